#include "DataPage.h"

#include "DataJSON.h"

namespace {

// A member that is there and not null.
const JSONValue *present(const JSONValue &object, QStringView key)
{
    const JSONValue *value = object.find(key);
    return value && !value->isNull() ? value : nullptr;
}

Result<DataColumnInfo> decodeColumn(const JSONValue &value)
{
    if (!value.objectValue())
        return Failure{QStringLiteral("A column of the data page is not an object.")};
    return DataColumnInfo::fromJSON(value);
}

} // namespace

Result<DataPage> DataPage::fromJSON(const JSONValue &value)
{
    if (!value.objectValue())
        return Failure{QStringLiteral("The data page is not an object.")};
    DataPage page;
    if (const JSONValue *columns = present(value, u"columns")) {
        Result<QList<DataColumnInfo>> decoded = DataJSON::oneOrMany<DataColumnInfo>(*columns, decodeColumn);
        if (!decoded)
            return Failure{decoded.error()};
        page.columns = std::move(decoded).value();
    }
    if (const JSONValue *cells = present(value, u"cells")) {
        auto column = [](const JSONValue &item) -> Result<QList<std::optional<QString>>> {
            return DataJSON::lenientList<std::optional<QString>>(item, DataJSON::string);
        };
        page.cells = DataJSON::oneOrMany<QList<std::optional<QString>>>(*cells, column).value();
    }
    const qint64 offset = DataJSON::integer(DataJSON::number(value.find(u"offset"))).value_or(0);
    if (const JSONValue *rows = present(value, u"rows")) {
        for (const std::optional<double> &row :
             DataJSON::lenientList<std::optional<double>>(*rows, DataJSON::number))
            page.rows.append(DataJSON::integer(row).value_or(0));
    } else {
        qsizetype longest = 0;
        for (const auto &column : std::as_const(page.cells))
            longest = std::max(longest, column.size());
        page.rows.reserve(longest);
        for (qsizetype i = 0; i < longest; ++i)
            page.rows.append(offset + 1 + i);
    }
    if (const JSONValue *names = present(value, u"rowNames")) {
        QStringList list;
        for (const std::optional<QString> &name :
             DataJSON::lenientList<std::optional<QString>>(*names, DataJSON::string))
            list.append(name.value_or(QStringLiteral("NA")));
        page.rowNames = std::move(list);
    }
    const std::optional<qint64> filtered = DataJSON::integer(DataJSON::number(value.find(u"filtered")));
    const std::optional<qint64> total = DataJSON::integer(DataJSON::number(value.find(u"total")));
    page.total = total.value_or(filtered.value_or(page.rows.size()));
    page.filtered = filtered.value_or(page.total);
    page.offset = offset;

    // Normalise, so that reading a cell never needs a bounds check beyond the row count.
    if (!page.cells.isEmpty() && page.columns.isEmpty()) {
        for (qsizetype i = 0; i < page.cells.size(); ++i)
            page.columns.append({QStringLiteral("V%1").arg(i + 1), QStringLiteral("character")});
    }
    page.cells.resize(page.columns.size());
    const qsizetype rowCount = page.rows.size();
    for (auto &column : page.cells)
        column.resize(rowCount);
    if (page.rowNames) {
        if (page.rows.isEmpty())
            page.rowNames.reset();
        else
            page.rowNames->resize(rowCount);
    }
    return page;
}
