// The data viewer's words and numbers: column profiles decoded field by field, and the formatting
// of numbers, counts, shares, cells, copied rows and R vectors.
#include "ColumnProfile.h"
#include "DataFormat.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

Result<QList<ColumnProfile>> profiles(const char *json)
{
    const std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(json));
    EXPECT_TRUE(value) << json;
    return ColumnProfile::list(value.value_or(JSONValue()));
}

} // namespace

// A bad field keeps its default and never loses the others; a single profile is a list of one.
TEST(ColumnProfile, DecodesFieldByField)
{
    Result<QList<ColumnProfile>> one = profiles(
        R"({"name":"x","type":"Date","n":"10","missing":2.6,"unique":null,"min":true,"max":"2024-03-01",
            "mean":"1.5","sd":"wide","histogram":4,"top":{"value":7,"count":"3"}})");
    ASSERT_TRUE(one.ok()) << one.error().toStdString();
    ASSERT_EQ(one->size(), 1);
    const ColumnProfile &p = one->front();
    EXPECT_EQ(p.n, 10);
    EXPECT_EQ(p.missing, 3);
    EXPECT_EQ(p.unique, std::nullopt);
    EXPECT_EQ(p.min, std::nullopt) << "a boolean extreme is none";
    EXPECT_EQ(p.max->description(), u"2024-03-01"_qs);
    EXPECT_EQ(p.max->number(), std::nullopt);
    EXPECT_EQ(p.mean, 1.5);
    EXPECT_EQ(p.sd, std::nullopt);
    EXPECT_EQ(p.histogram, (QList<qint64>{4}));
    EXPECT_EQ(p.top, (QList<TopValue>{{u"7"_qs, 3}}));
    EXPECT_EQ(p.kind().kind(), DataColumnKind::Case::Date);
    EXPECT_DOUBLE_EQ(p.missingFraction(), 0.3);

    Result<QList<ColumnProfile>> many = profiles(
        R"([{"histogram":[1,-2,null,1e30,"5"],"top":[{"count":1},{"value":null}],"min":1234567.891},
            {"name":"b","top":[{"value":"a","count":2},3]}])");
    ASSERT_TRUE(many.ok());
    EXPECT_EQ((*many)[0].type, u"unknown"_qs);
    EXPECT_EQ((*many)[0].histogram, (QList<qint64>{1, 0, 0, 0, 5}));
    EXPECT_EQ((*many)[0].top, (QList<TopValue>{{u"NA"_qs, 1}, {u"NA"_qs, 0}}));
    EXPECT_EQ((*many)[0].min->description(), u"1234568"_qs);
    EXPECT_TRUE((*many)[1].top.isEmpty()) << "a top list with a bad entry is left out as a whole";
    EXPECT_EQ((*many)[1].name, u"b"_qs);
    EXPECT_DOUBLE_EQ((*many)[1].missingFraction(), 0.0);

    EXPECT_FALSE(profiles(R"([{"name":"a"},2])").ok());
    EXPECT_FALSE(profiles(R"("profiles")").ok());
}

TEST(DataFormat, NumbersCountsAndShares)
{
    EXPECT_EQ(DataFormat::number(1234567.891, 5), u"1234568"_qs);
    EXPECT_EQ(DataFormat::number(0.000123456, 5), u"0.00012346"_qs);
    EXPECT_EQ(DataFormat::number(1e20, 5), u"1e+20"_qs);
    EXPECT_EQ(DataFormat::number(0.00001234, 5), u"1.234e-05"_qs);
    EXPECT_EQ(DataFormat::number(0.1 + 0.2, 5), u"0.3"_qs);
    EXPECT_EQ(DataFormat::number(100, 5), u"100"_qs);
    EXPECT_EQ(DataFormat::number(-1.5e-7, 5), u"-1.5e-07"_qs);
    EXPECT_EQ(DataFormat::number(-0.0, 5), u"0"_qs);
    EXPECT_EQ(DataFormat::number(std::nan(""), 5), u"NaN"_qs);
    EXPECT_EQ(DataFormat::number(-std::numeric_limits<double>::infinity(), 5), u"-Inf"_qs);
    EXPECT_EQ(DataFormat::number(2.5, 0), u"3"_qs) << "at least one digit";

    const QString gap(QChar(0x202F));
    EXPECT_EQ(DataFormat::count(9999), u"9999"_qs);
    EXPECT_EQ(DataFormat::count(12345), u"12"_qs + gap + u"345"_qs);
    EXPECT_EQ(DataFormat::count(-1234567), u"-1"_qs + gap + u"234"_qs + gap + u"567"_qs);
    EXPECT_EQ(DataFormat::count(-42), u"-42"_qs);
    EXPECT_TRUE(DataFormat::count(std::numeric_limits<qint64>::min()).startsWith(u"-9"_qs));

    EXPECT_EQ(DataFormat::percent(0, 0), u"0%"_qs);
    EXPECT_EQ(DataFormat::percent(5, 5), u"100%"_qs);
    EXPECT_EQ(DataFormat::percent(1, 100000), u"<0.1%"_qs);
    EXPECT_EQ(DataFormat::percent(99999, 100000), u">99.9%"_qs);
    EXPECT_EQ(DataFormat::percent(1, 3), u"33%"_qs);
    EXPECT_EQ(DataFormat::percent(5, 1000), u"0.5%"_qs);
    EXPECT_EQ(DataFormat::percent(5, 100), u"5%"_qs);
    EXPECT_EQ(DataFormat::percent(7, 5), u"100%"_qs);
}

TEST(DataFormat, CellsRowsAndVectors)
{
    const QString clean = u"short text"_qs;
    EXPECT_EQ(DataFormat::singleLine(clean, 500).constData(), clean.constData())
        << "left untouched, not copied";
    EXPECT_EQ(DataFormat::singleLine(u"a\tb\r\nc"_qs, 500), u"a b  c"_qs);
    EXPECT_EQ(DataFormat::singleLine(QString(600, u'x'), 500), QString(500, u'x') + u"…"_qs);
    EXPECT_EQ(DataFormat::singleLine(u"é😀é😀"_qs, 3), u"é😀é…"_qs) << "cut by characters";
    EXPECT_EQ(DataFormat::singleLine(u"ééé"_qs, 4), u"ééé"_qs) << "six UTF-8 bytes, three characters";

    EXPECT_EQ(DataFormat::tsv({u"a"_qs, u"b\tc"_qs}, {{u"1\n2"_qs, std::nullopt}, {u"x"_qs, u""_qs}}),
              u"a\tb c\n1 2\tNA\nx\t"_qs);
    EXPECT_EQ(DataFormat::tsv({u"a"_qs}, {}), u"a"_qs);

    EXPECT_EQ(DataFormat::rVector({u"1"_qs, u"-2"_qs, std::nullopt}, DataColumnKind(u"integer"_qs)),
              u"c(1L, -2L, NA)"_qs);
    EXPECT_EQ(DataFormat::rVector({u"1.5"_qs, u"Inf"_qs, u"abc"_qs}, DataColumnKind(u"numeric"_qs)),
              u"c(1.5, Inf, \"abc\")"_qs);
    EXPECT_EQ(DataFormat::rVector({u"1e5"_qs, u"-"_qs, u"١"_qs}, DataColumnKind(u"integer"_qs)),
              u"c(1e5, \"-\", \"١\")"_qs);
    EXPECT_EQ(DataFormat::rVector({u".5"_qs, u"5."_qs, u" 5"_qs, u""_qs}, DataColumnKind(u"numeric"_qs)),
              u"c(.5, 5., \" 5\", \"\")"_qs);
    EXPECT_EQ(DataFormat::rVector({u"2024-01-01"_qs}, DataColumnKind(u"Date"_qs)),
              u"as.Date(c(\"2024-01-01\"))"_qs);
    EXPECT_EQ(DataFormat::rVector({u"TRUE"_qs, u"perhaps"_qs}, DataColumnKind(u"logical"_qs)),
              u"c(TRUE, \"perhaps\")"_qs);
    EXPECT_EQ(DataFormat::rVector({u"a\"b"_qs, std::nullopt}, DataColumnKind(u"factor"_qs)),
              u"factor(c(\"a\\\"b\", NA))"_qs);
    EXPECT_EQ(DataFormat::rVector({}, DataColumnKind(u"POSIXct"_qs)), u"as.POSIXct(c())"_qs);
}
