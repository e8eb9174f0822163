#include "JSONValue.h"

#include <QSet>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

JSONValue parsed(const char *text)
{
    std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(text));
    EXPECT_TRUE(value.has_value()) << text;
    return value.value_or(JSONValue());
}

} // namespace

TEST(JSONValue, ScalarsMembersAndNullVersusAbsence)
{
    EXPECT_EQ(parsed(" true ").boolValue(), true);
    EXPECT_EQ(parsed("-0.5e1").doubleValue(), -5.0);
    EXPECT_TRUE(parsed("null").isNull());
    EXPECT_EQ(parsed("\"\"").stringValue(), QString());
    EXPECT_EQ(parsed("[]").arrayValue()->size(), 0);
    EXPECT_EQ(parsed("{}").objectValue()->size(), 0u);
    EXPECT_EQ(parsed(R"({"k":1,"k":2})")[u"k"].intValue(), 2);

    const JSONValue object = parsed(R"({"a":null,"n":[1,"x",true]})");
    ASSERT_NE(object.find(u"a"), nullptr);
    EXPECT_TRUE(object.find(u"a")->isNull());
    EXPECT_EQ(object.find(u"b"), nullptr);
    EXPECT_EQ(object[u"n"][1].stringValue(), u"x"_qs);
    EXPECT_EQ(object[u"n"].at(3), nullptr);
    EXPECT_EQ(object[u"n"].at(-1), nullptr);
    EXPECT_EQ(object[u"n"][2].boolValue(), true);
    // No coercion between kinds.
    EXPECT_FALSE(object[u"n"][0].stringValue().has_value());
    EXPECT_FALSE(object[u"n"][2].doubleValue().has_value());
    EXPECT_EQ(object[u"n"][0][u"x"].kind(), JSONValue::Kind::Null);
}

TEST(JSONValue, IntRoundsHalvesAwayAndRefusesHugeOrNonFinite)
{
    for (const auto &[value, expected] :
         std::initializer_list<std::pair<double, int>>{{1.5, 2}, {-1.5, -2}, {2.4, 2}})
        EXPECT_EQ(JSONValue(value).intValue(), expected) << value;
    for (double refused : {1e19, std::nan(""), std::numeric_limits<double>::infinity()})
        EXPECT_FALSE(JSONValue(refused).intValue().has_value()) << refused;
    EXPECT_FALSE(JSONValue("3").intValue().has_value());
    EXPECT_EQ(parsed("9007199254740993").intValue(), 9007199254740992LL);
    // Beyond the range of a double: the nearest finite value, which still writes back as a number.
    EXPECT_EQ(parsed("-2e2222").doubleValue(), -std::numeric_limits<double>::max());
    EXPECT_EQ(JSONValue::parse(QByteArrayView(parsed("2e2222").serialized())), parsed("2e2222"));
    EXPECT_EQ(parsed("1e-400").doubleValue(), 0.0);
}

TEST(JSONValue, SerializesSortedCompactWithBareSlashesAndRoundTrips)
{
    const JSONValue value =
        parsed(R"({"b":1,"a":"x/y","c":[1.5,-0.25,1e300,null,false],"d":{"z":"\u0001\n\"\\"}})");
    EXPECT_EQ(value.serialized(),
              QByteArray(R"({"a":"x/y","b":1,"c":[1.5,-0.25,1e+300,null,false],"d":{"z":"\u0001\n\"\\"}})"));
    EXPECT_EQ(JSONValue::parse(QByteArrayView(value.serialized())), value);
    // Non-finite numbers have no JSON form.
    EXPECT_EQ(JSONValue(std::nan("")).serialized(), QByteArray("null"));
}

TEST(JSONValue, EqualityAndHashAreStructural)
{
    EXPECT_EQ(JSONValue(3), JSONValue(3.0));
    EXPECT_EQ(parsed(R"({"a":1,"b":[true]})"), parsed(R"({"b":[true],"a":1.0})"));
    EXPECT_NE(parsed(R"([1,2])"), parsed(R"([2,1])"));
    EXPECT_NE(JSONValue(true), JSONValue(1));
    EXPECT_NE(JSONValue(), JSONValue(false));
    EXPECT_EQ(qHash(parsed(R"({"a":1,"b":2})")), qHash(parsed(R"({"b":2,"a":1})")));
    QSet<JSONValue> set{JSONValue(1), JSONValue(1.0), JSONValue("1")};
    EXPECT_EQ(set.size(), 2);
}

TEST(JSONValue, UnicodeEscapesAndUTF8)
{
    // A lone surrogate cannot be represented, and invalid UTF-8 is repaired: both become U+FFFD.
    const std::pair<const char *, QString> cases[] = {{R"("\u00fc\ud83d\ude00")", u"ü😀"_qs},
                                                      {"\"Grüße 你好 🎉\"", u"Grüße 你好 🎉"_qs},
                                                      {R"("a\ud800b")", u"a\uFFFDb"_qs},
                                                      {R"("\udc00\u0041")", u"\uFFFDA"_qs},
                                                      {"\"a\xff\x62\"", u"a\uFFFDb"_qs}};
    for (const auto &[text, expected] : cases)
        EXPECT_EQ(parsed(text).stringValue(), expected) << text;
}

TEST(JSONValue, RejectsMalformedInputWithAnError)
{
    const char *bad[] = {"",      "   ",        "tru",   "nul",      "01",       "1.",        ".5",
                         "-",     "1e",         "+1",    "[1,]",     "[1 2]",    "{\"a\"}",   "{\"a\":}",
                         "{a:1}", "{\"a\":1,}", "\"abc", "\"a\nb\"", "\"\\x\"",  "\"\\u12\"", "[",
                         "{",     "1 2",        "[1]]",  "NaN",      "Infinity", "'a'"};
    for (const char *text : bad) {
        JSONValue::ParseError error;
        EXPECT_FALSE(JSONValue::parse(QByteArrayView(text), &error).has_value()) << text;
        EXPECT_FALSE(error.message.isEmpty()) << text;
    }
}

TEST(JSONValue, DeepNestingIsRefusedWithoutOverflow)
{
    QByteArray deep(100000, '[');
    EXPECT_FALSE(JSONValue::parse(QByteArrayView(deep)).has_value());
    QByteArray ok = QByteArray(500, '[') + QByteArray(500, ']');
    EXPECT_TRUE(JSONValue::parse(QByteArrayView(ok)).has_value());
}
