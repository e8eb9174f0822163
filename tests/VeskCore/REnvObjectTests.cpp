#include "JSONValue.h"
#include "RSessionTypes.h"

#include <gtest/gtest.h>

// The Environment pane's texts of one object: sizes in decimal units, as the editor's size limit
// and the platform's file sizes are, and dimensions only for exactly two.
TEST(REnvObject, SizeAndDimensionTexts)
{
    const QLocale c(QLocale::English, QLocale::UnitedStates);
    struct Case {
        const char *json;
        std::optional<QString> size;
        std::optional<QString> dim;
    };
    const Case cases[] = {
        {R"({"name":"a","size":1500000,"dim":[32,11]})", u"1.5 MB"_qs, u"32 × 11"_qs},
        {R"({"name":"b","size":999,"dim":[2,3,4]})", u"999 bytes"_qs, std::nullopt},
        {R"({"name":"c","size":2000})", u"2.0 kB"_qs, std::nullopt},
        {R"({"name":"d","size":0,"dim":[1234567,2]})", std::nullopt, u"1,234,567 × 2"_qs},
        {R"({"name":"e","size":"big"})", std::nullopt, std::nullopt},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.json);
        const std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(k.json));
        ASSERT_TRUE(value);
        const std::optional<REnvObject> object = REnvObject::fromJSON(*value);
        ASSERT_TRUE(object) << "a bad field never loses the object";
        EXPECT_EQ(object->sizeText(c), k.size);
        EXPECT_EQ(object->dimensionText(c), k.dim);
    }
}
