#include "DataColumnInfo.h"

#include "DataJSON.h"

DataColumnInfo DataColumnInfo::fromJSON(const JSONValue &value)
{
    DataColumnInfo column;
    column.name = DataJSON::string(value.find(u"name")).value_or(QString());
    column.type = DataJSON::string(value.find(u"type")).value_or(QStringLiteral("unknown"));
    return column;
}

std::optional<qsizetype> DataColumnInfo::remap(std::optional<qsizetype> index,
                                               const QList<DataColumnInfo> &from,
                                               const QList<DataColumnInfo> &to)
{
    if (!index || *index < 0 || *index >= from.size())
        return std::nullopt;
    const QString &name = from[*index].name;
    if (*index < to.size() && to[*index].name == name)
        return index;
    for (qsizetype i = 0; i < to.size(); ++i)
        if (to[i].name == name)
            return i;
    return std::nullopt;
}
