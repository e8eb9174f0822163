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
        {R"({"name":"a","size":1500000,"dim":[32,11]})", QStringLiteral("1.5 MB"), QStringLiteral("32 × 11")},
        {R"({"name":"b","size":999,"dim":[2,3,4]})", QStringLiteral("999 bytes"), std::nullopt},
        {R"({"name":"c","size":2000})", QStringLiteral("2.0 kB"), std::nullopt},
        {R"({"name":"d","size":0,"dim":[1234567,2]})", std::nullopt, QStringLiteral("1,234,567 × 2")},
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
