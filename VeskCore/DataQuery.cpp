#include "DataQuery.h"

#include "RLiteral.h"

DataQuery::DataQuery(qint64 offset, qint64 limit, std::optional<qsizetype> sort, bool descending,
                     QString filter)
    : m_offset(offset), m_limit(limit), m_sort(sort), m_descending(descending), m_filter(std::move(filter))
{
}

DataQuery::DataQuery(qint64 offset, qint64 limit, const DataViewKey &view)
    : DataQuery(offset, limit, view.sort(), view.descending(), view.filter())
{
}

DataRowRange DataQuery::rows() const
{
    return {m_offset, m_offset + std::max<qint64>(m_limit, 0)};
}

DataViewKey DataQuery::view() const
{
    return DataViewKey(m_sort, m_descending, m_filter);
}

RArgument DataQuery::sortArgument() const
{
    return m_sort ? RArgument(qint64(*m_sort) + 1) : RArgument::null();
}

QList<std::pair<QString, RArgument>> DataQuery::namedArguments() const
{
    return {{QStringLiteral("offset"), RArgument(m_offset)},
            {QStringLiteral("limit"), RArgument(m_limit)},
            {QStringLiteral("sort"), sortArgument()},
            {QStringLiteral("desc"), RArgument(m_descending)},
            {QStringLiteral("filter"), RArgument(m_filter)}};
}

QString DataQuery::rCall(const QString &id, const QString &expression) const
{
    return RLiteral::call(QStringLiteral(".vesk$data"), {RArgument(id), RArgument(expression)},
                          namedArguments());
}

QString DataQuery::profileCall(const QString &id, const QString &expression)
{
    return RLiteral::call(QStringLiteral(".vesk$profile"), {RArgument(id), RArgument(expression)});
}
