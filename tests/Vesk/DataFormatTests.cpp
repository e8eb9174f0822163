// The data viewer's words and numbers: significant digits, grouped counts, shares, one-line cells
// and tab-separated text; and profiles decoded field by field with what the inspector makes of them.
#include "../VeskCore/QStringPrinting.h"
#include "Data/ColumnProfile.h"
#include "Data/DataFormat.h"

#include <gtest/gtest.h>

#include <limits>

TEST(DataFormat, NumbersCountsAndShares)
{
    EXPECT_EQ(DataFormat::number(0.1 + 0.2, 5), u"0.3"_qs);
    EXPECT_EQ(DataFormat::number(100, 5), u"100"_qs);
    EXPECT_EQ(DataFormat::number(-1.5e-7, 5), u"-1.5e-07"_qs);
    EXPECT_EQ(DataFormat::number(1234567.891, 5), u"1234568"_qs) << "the integer part stays whole";
    EXPECT_EQ(DataFormat::number(0.000123456, 5), u"0.00012346"_qs);
    EXPECT_EQ(DataFormat::number(1e20, 5), u"1e+20"_qs);
    EXPECT_EQ(DataFormat::number(-0.0, 5), u"0"_qs);
    EXPECT_EQ(DataFormat::number(std::numeric_limits<double>::quiet_NaN(), 5), u"NaN"_qs);
    EXPECT_EQ(DataFormat::number(-std::numeric_limits<double>::infinity(), 5), u"-Inf"_qs);

    EXPECT_EQ(DataFormat::count(9999), u"9999"_qs);
    EXPECT_EQ(DataFormat::count(12345), u"12\u202F345"_qs);
    EXPECT_EQ(DataFormat::count(-1234567), u"-1\u202F234\u202F567"_qs);

    EXPECT_EQ(DataFormat::percent(0, 0), u"0%"_qs);
    EXPECT_EQ(DataFormat::percent(5, 5), u"100%"_qs);
    EXPECT_EQ(DataFormat::percent(1, 100000), u"<0.1%"_qs);
    EXPECT_EQ(DataFormat::percent(99999, 100000), u">99.9%"_qs);
    EXPECT_EQ(DataFormat::percent(1, 3), u"33%"_qs);
    EXPECT_EQ(DataFormat::percent(5, 1000), u"0.5%"_qs);
    EXPECT_EQ(DataFormat::percent(5, 100), u"5%"_qs);
}

TEST(DataFormat, CellsOnOneLineAndTabSeparatedText)
{
    EXPECT_EQ(DataFormat::singleLine(QString(600, u'x'), 500), QString(500, u'x') + u"…"_qs);
    EXPECT_EQ(DataFormat::singleLine(u"a\tb\r\nc"_qs, 500), u"a b  c"_qs);
    const QString clean = QString(40, u'c');
    EXPECT_TRUE(DataFormat::singleLine(clean, 500).isSharedWith(clean)) << "the common case is not copied";
    const QString faces = QString::fromUcs4(U"\U0001F600\U0001F600\U0001F600");
    EXPECT_EQ(DataFormat::singleLine(faces + u'\n', 2), QString::fromUcs4(U"\U0001F600\U0001F600") + u"…"_qs)
        << "cut by characters, never inside a pair";

    EXPECT_EQ(DataFormat::tsv({u"a"_qs, u"b\tc"_qs}, {{u"x\ny"_qs, std::nullopt}, {u""_qs, u"2"_qs}}),
              u"a\tb c\nx y\tNA\n\t2"_qs);
    EXPECT_EQ(DataFormat::tsv({u"a"_qs}, {}), u"a"_qs);
}

TEST(ColumnProfile, DecodesEachFieldAloneAndDescribesItself)
{
    const auto parse = [](const char *text) { return JSONValue::parse(QByteArrayView(text)).value(); };
    Result<QList<ColumnProfile>> one = ColumnProfile::list(parse(
        R"({"name":"x","type":"numeric","n":"100","missing":5,"unique":40,"min":true,"max":9,"mean":"4.5",
            "histogram":7,"top":{"value":"","count":30}})"));
    ASSERT_TRUE(one.ok()) << one.error().toStdString();
    ASSERT_EQ(one->size(), 1) << "one object is a list of one";
    const ColumnProfile &x = one->first();
    EXPECT_EQ(x.n, 100);
    EXPECT_EQ(x.min, std::nullopt) << "a boolean minimum is dropped";
    EXPECT_EQ(x.max->number(), 9.0);
    EXPECT_EQ(x.mean, 4.5);
    EXPECT_EQ(x.histogram, QList<qint64>{7});
    ASSERT_EQ(x.top.size(), 1);
    EXPECT_EQ(x.top[0].count, 30);
    EXPECT_FALSE(ColumnProfile::list(parse(R"("text")")).ok());

    const QList<ColumnProfile::Section> sections = x.inspectorSections();
    ASSERT_EQ(sections.size(), 3);
    EXPECT_EQ(sections[0].rows[1], (std::pair{u"Missing"_qs, u"5 (5%)"_qs}));
    EXPECT_EQ(sections[1].title, u"Statistics"_qs);
    EXPECT_EQ(sections[2].rows[0].first, u"Empty string"_qs);
    EXPECT_EQ(sections[2].rows[1], (std::pair{u"39 other values"_qs, u"65 (65%)"_qs}));
    EXPECT_TRUE(x.drawableHistogram().isEmpty()) << "no finite minimum, no range to draw";

    const ColumnProfile day =
        ColumnProfile::list(
            parse(R"([{"name":"d","type":"Date","n":2,"missing":2,"min":"2024-01-01","max":"2024-03-01"}])"))
            .value()
            .first();
    EXPECT_EQ(day.inspectorSections()[1].title, u"Range"_qs);
    EXPECT_EQ(day.inspectorSections()[1].rows[0], (std::pair{u"Earliest"_qs, u"2024-01-01"_qs}));
    EXPECT_EQ(day.note(), u"All values are missing."_qs);

    ColumnProfile single;
    single.min = ColumnProfile::Value{3.0};
    single.max = ColumnProfile::Value{3.0};
    single.histogram = {4};
    EXPECT_EQ(single.histogramRange(), (std::pair{2.5, 3.5}));
    EXPECT_EQ(single.sparkline(), QList<double>{1.0});
}
