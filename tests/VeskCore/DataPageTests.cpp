// Decoding the kernel's data pages: R's JSON writer unboxes vectors of one, writes numbers as text
// and NA as null, and a page must still come out with one cell per row and column.
#include "DataColumnKind.h"
#include "DataJSON.h"
#include "DataPage.h"
#include "DataQuery.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

namespace {

using Cells = QList<QList<std::optional<QString>>>;

DataPage decode(const char *json)
{
    const std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(json));
    EXPECT_TRUE(value) << json;
    Result<DataPage> page = DataPage::fromJSON(value.value_or(JSONValue()));
    EXPECT_TRUE(page.ok()) << json << ": " << page.error().toStdString();
    return page.ok() ? page.value() : DataPage{};
}

} // namespace

// A page of one row or one cell arrives as bare scalars; columns are made up when none came.
TEST(DataPage, UnboxedAnswersKeepTheirShape)
{
    DataPage row = decode(R"({"total":1,"rows":7,"cells":["a",2.5,true,null]})");
    EXPECT_EQ(row.rows, (QList<qint64>{7}));
    ASSERT_EQ(row.columns.size(), 4);
    EXPECT_EQ(row.columns[1], (DataColumnInfo{u"V2"_qs, u"character"_qs}));
    EXPECT_EQ(row.cells, (Cells{{u"a"_qs}, {u"2.5"_qs}, {u"TRUE"_qs}, {std::nullopt}}));

    DataPage cell = decode(R"({"columns":{"name":"x","type":"integer"},"cells":3})");
    EXPECT_EQ(cell.columns, (QList<DataColumnInfo>{{u"x"_qs, u"integer"_qs}}));
    EXPECT_EQ(cell.rows, (QList<qint64>{1}));
    EXPECT_EQ(cell.cells, (Cells{{u"3"_qs}}));
    EXPECT_EQ(cell.total, 1);
    EXPECT_EQ(cell.filtered, 1);
}

// Scalars read as R would print them; numbers and counts read from text; row numbers made when
// missing; totals default to each other.
TEST(DataPage, LenientScalarsAndDefaults)
{
    DataPage page = decode(R"({"offset":"400","filtered":7,
        "columns":[{"name":"a","type":"numeric"},{"name":null},{"type":["x"]}],
        "cells":[[3.0,1e15,0.1],[1e20,-0.5,"NA"],[false,[1],{"a":1}]]})");
    EXPECT_EQ(page.rows, (QList<qint64>{401, 402, 403}));
    EXPECT_EQ(page.total, 7);
    EXPECT_EQ(page.filtered, 7);
    EXPECT_EQ(page.offset, 400);
    EXPECT_EQ(page.columns[1], (DataColumnInfo{QString(), u"unknown"_qs}));
    EXPECT_EQ(page.columns[2], (DataColumnInfo{QString(), u"unknown"_qs})) << "a type that is no scalar";
    EXPECT_EQ(page.cells[0], (QList<std::optional<QString>>{u"3"_qs, u"1e+15"_qs, u"0.1"_qs}));
    EXPECT_EQ(page.cells[1], (QList<std::optional<QString>>{u"1e+20"_qs, u"-0.5"_qs, u"NA"_qs}));
    EXPECT_EQ(page.cells[2], (QList<std::optional<QString>>{u"FALSE"_qs, std::nullopt, std::nullopt}));

    DataPage counted = decode(R"({"rows":["5",null,2.5,-2.5,true],"total":"x"})");
    EXPECT_EQ(counted.rows, (QList<qint64>{5, 0, 3, -3, 1}));
    EXPECT_EQ(counted.total, 5) << "an unreadable total counts the rows";
    EXPECT_EQ(counted.filtered, 5);

    const JSONValue spaced(u" 5"_qs), trailing(u"5x"_qs), exponent(u"1e3"_qs);
    EXPECT_EQ(DataJSON::number(&spaced), std::nullopt);
    EXPECT_EQ(DataJSON::number(&trailing), std::nullopt);
    EXPECT_EQ(DataJSON::number(&exponent), 1000.0);
    EXPECT_EQ(DataJSON::integer(9.3e18), std::nullopt);
    EXPECT_EQ(DataJSON::integer(-9.1e18), qint64(-9.1e18));
}

// Every column has one value a row and there are as many columns as named; row names follow rows.
TEST(DataPage, NormalisesCellsAndRowNames)
{
    DataPage page = decode(R"({"rows":[1,2],"rowNames":["a",null,"c"],
        "columns":[{"name":"x","type":"numeric"},{"name":"y","type":"numeric"}],
        "cells":[[1],[1,2,3],[9,9]]})");
    EXPECT_EQ(page.cells, (Cells{{u"1"_qs, std::nullopt}, {u"1"_qs, u"2"_qs}}));
    EXPECT_EQ(page.rowNames, (QStringList{u"a"_qs, u"NA"_qs}));

    DataPage padded = decode(R"({"rows":[1,2,3],"rowNames":"a",
        "columns":[{"name":"x","type":"numeric"},{"name":"y","type":"numeric"}],"cells":[[1,2,3]]})");
    EXPECT_EQ(padded.rowNames, (QStringList{u"a"_qs, QString(), QString()}));
    EXPECT_EQ(padded.cells[1], (QList<std::optional<QString>>{std::nullopt, std::nullopt, std::nullopt}));

    DataPage empty =
        decode(R"({"total":0,"rows":[],"rowNames":["a"],"columns":[{"name":"x","type":"logical"}],
        "cells":[[]]})");
    EXPECT_EQ(empty.rowNames, std::nullopt);
    EXPECT_EQ(empty.rowCount(), 0);
    EXPECT_EQ(empty.cells, (Cells{{}}));
    EXPECT_EQ(decode(R"({"rowNames":null,"rows":1})").rowNames, std::nullopt);

    for (const char *bad : {R"([1,2])", R"("page")", R"({"columns":[{"name":"a"},1]})"}) {
        const std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(bad));
        ASSERT_TRUE(value);
        EXPECT_FALSE(DataPage::fromJSON(*value).ok()) << bad;
    }
}

// The kernel call a query writes, and the view it stands for.
TEST(DataPage, QueriesWriteTheKernelCall)
{
    const DataQuery sorted(200, 600, 2, true, u"a\"b"_qs);
    EXPECT_EQ(
        sorted.rCall(u"r1"_qs, u"df"_qs),
        u".vesk$data(\"r1\", \"df\", offset = 200L, limit = 600L, sort = 3L, desc = TRUE, filter = \"a\\\"b\")"_qs);
    EXPECT_EQ(sorted.rows(), (DataRowRange{200, 800}));
    const DataQuery plain(0, -5, std::nullopt, true, QString());
    EXPECT_EQ(plain.rows(), (DataRowRange{0, 0}));
    EXPECT_EQ(plain.view(), DataViewKey(std::nullopt, false, QString())) << "no sort, no descending";
    EXPECT_TRUE(plain.sortArgument() == RArgument::null());
    EXPECT_EQ(DataQuery::profileCall(u"r2"_qs, u".vesk$views[[\"v1\"]]"_qs),
              u".vesk$profile(\"r2\", \".vesk$views[[\\\"v1\\\"]]\")"_qs);

    const QList<DataColumnInfo> before{
        {u"a"_qs, u"numeric"_qs}, {u"b"_qs, u"numeric"_qs}, {u"a"_qs, u"character"_qs}};
    const QList<DataColumnInfo> after{
        {u"b"_qs, u"integer"_qs}, {u"a"_qs, u"numeric"_qs}, {u"a"_qs, u"numeric"_qs}};
    EXPECT_EQ(DataColumnInfo::remap(2, before, after), 2) << "the same name in the same place stays";
    EXPECT_EQ(DataColumnInfo::remap(0, before, after), 1) << "else the first of that name";
    EXPECT_EQ(DataColumnInfo::remap(1, before, after), 0);
    EXPECT_EQ(DataColumnInfo::remap(3, before, after), std::nullopt);
    EXPECT_EQ(DataColumnInfo::remap(0, before, {{u"c"_qs, u"numeric"_qs}}), std::nullopt);
}

TEST(DataPage, ColumnKindsFromRWords)
{
    struct Case {
        const char *word;
        DataColumnKind::Case kind;
        const char *label;
        bool numeric;
    };
    const Case cases[] = {
        {"double", DataColumnKind::Case::Numeric, "num", true},
        {"ordered", DataColumnKind::Case::Factor, "fct", false},
        {"POSIXlt", DataColumnKind::Case::DateTime, "dttm", false},
        {"date", DataColumnKind::Case::Date, "date", false},
        {"Integer", DataColumnKind::Case::Other, "Integ…", false},
        {"Intege", DataColumnKind::Case::Other, "Intege", false},
        {"difftime", DataColumnKind::Case::Other, "drtn", true},
        {"units", DataColumnKind::Case::Other, "units", true},
        {"complex", DataColumnKind::Case::Other, "cplx", false},
        {"matrix", DataColumnKind::Case::Other, "matrix", false},
        {"tbl_df2", DataColumnKind::Case::Other, "tbl_d…", false},
        {"ŝŝŝŝŝŝ𝔁", DataColumnKind::Case::Other, "ŝŝŝŝŝ…", false},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.word);
        const DataColumnKind kind(QString::fromUtf8(k.word));
        EXPECT_EQ(kind.kind(), k.kind);
        EXPECT_EQ(kind.shortLabel(), QString::fromUtf8(k.label));
        EXPECT_EQ(kind.isNumeric(), k.numeric);
    }
    EXPECT_EQ(DataColumnKind(u"POSIXct"_qs).displayName(), u"Date-time"_qs);
    EXPECT_EQ(DataColumnKind(u"hms"_qs).displayName(), u"hms"_qs);
}
