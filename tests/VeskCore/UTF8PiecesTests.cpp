// U+FEFF is an ordinary character inside R output, JSON strings and agent lines; decoding a piece
// that happens to begin with it must keep it (QString::fromUtf8 drops it).
#include "AgentStreamParser.h"
#include "CommandOutput.h"
#include "JSONValue.h"
#include "RStreamParser.h"

#include <gtest/gtest.h>

namespace {

const QString bom(QChar(0xFEFF));

} // namespace

TEST(UTF8Pieces, AByteOrderMarkAtTheStartOfAPieceIsKept)
{
    // JSON: at the start of a string, after an escape, and through a round trip.
    EXPECT_EQ(JSONValue::parse(QByteArrayView("\"\xEF\xBB\xBFx\""))->stringValue(), bom + u"x"_qs);
    EXPECT_EQ(JSONValue::parse(QByteArrayView("\"\\n\xEF\xBB\xBF\""))->stringValue(), u"\n"_qs + bom);
    const JSONValue value(bom + u"x"_qs);
    EXPECT_EQ(JSONValue::parse(value.serialized()), value);

    // An agent's streamed text.
    const QList<AgentStreamEvent> events = AgentStreamParser::parse(QByteArrayView(
        R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":")"
        "\xEF\xBB\xBF"
        R"(a"}}})"));
    ASSERT_EQ(events.size(), 1);
    EXPECT_EQ(events[0].as<AgentStreamEvent::TextDelta>()->text, bom + u"a"_qs);

    // R output whose feed begins with the mark, and the end of a flush.
    RStreamParser parser(u"0123456789abcdef0123456789abcdef"_qs);
    QString text;
    for (const RStreamEvent &event :
         parser.feed("\xEF\xBB\xBFhi\n") + parser.feed("\xEF\xBB\xBF") + parser.flush())
        text += event.text;
    EXPECT_EQ(text, bom + u"hi\n"_qs + bom);

    // A command's output.
    EXPECT_EQ(CommandOutput::run({u"/usr/bin/printf"_qs, u"\\357\\273\\277ok"_qs}, std::nullopt,
                                 std::chrono::seconds(10)),
              bom + u"ok"_qs);
}
