#include "AgentStreamParser.h"
#include "QStringPrinting.h"
#include "TestSupport.h"

#include <QFile>
#include <QTimeZone>

#include <gtest/gtest.h>

#include <ostream>

using Event = AgentStreamEvent;
using Block = AgentStreamEvent::Block;

namespace {

template <typename T> void printOptional(std::ostream *os, const char *name, const std::optional<T> &value)
{
    *os << ' ' << name << '=';
    if (!value)
        *os << "nil";
    else if constexpr (std::is_same_v<T, QString>)
        PrintTo(*value, os);
    else if constexpr (std::is_same_v<T, QDateTime>)
        *os << value->toString(Qt::ISODateWithMs).toStdString();
    else
        *os << *value;
}

Event textDelta(const char *text)
{
    return {Event::TextDelta{QString::fromUtf8(text)}};
}

QDateTime utcSeconds(qint64 seconds)
{
    return QDateTime::fromSecsSinceEpoch(seconds, QTimeZone::utc());
}

JSONValue json(const char *text)
{
    return *JSONValue::parse(QByteArrayView(text));
}

} // namespace

void PrintTo(const AgentStreamEvent &event, std::ostream *os)
{
    std::visit(
        [os](const auto &e) {
            using T = std::decay_t<decltype(e)>;
            if constexpr (std::is_same_v<T, Event::Initialized>) {
                *os << "initialized " << e.sessionID.toStdString() << ' ' << e.model.toStdString();
                for (const auto &[name, status] : e.mcpServers)
                    *os << ' ' << name.toStdString() << '=' << status.toStdString();
            } else if constexpr (std::is_same_v<T, Event::TextDelta>) {
                *os << "textDelta ";
                PrintTo(e.text, os);
            } else if constexpr (std::is_same_v<T, Event::ThinkingDelta>) {
                *os << "thinkingDelta ";
                PrintTo(e.text, os);
            } else if constexpr (std::is_same_v<T, Event::ToolUseStarted>) {
                *os << "toolUseStarted " << e.id.toStdString() << ' ' << e.name.toStdString();
            } else if constexpr (std::is_same_v<T, Event::Assistant>) {
                *os << "assistant";
                for (const Block &b : e.blocks) {
                    *os << " [" << int(b.kind) << ' ';
                    PrintTo(b.text, os);
                    *os << ' ' << b.id.toStdString() << ' ' << b.name.toStdString() << ' '
                        << b.input.serialized().toStdString() << ']';
                }
            } else if constexpr (std::is_same_v<T, Event::ToolResult>) {
                *os << "toolResult " << e.toolUseID.toStdString() << " isError=" << e.isError << ' ';
                PrintTo(e.text, os);
            } else if constexpr (std::is_same_v<T, Event::Result>) {
                *os << "result isError=" << e.isError;
                printOptional(os, "text", e.text);
                printOptional(os, "costUSD", e.costUSD);
                printOptional(os, "durationMS", e.durationMS);
                printOptional(os, "sessionID", e.sessionID);
            } else if constexpr (std::is_same_v<T, Event::Status>) {
                *os << "status " << e.status.toStdString();
            } else if constexpr (std::is_same_v<T, Event::Usage>) {
                *os << "usage";
                printOptional(os, "fiveHour", e.fiveHour);
                printOptional(os, "sevenDay", e.sevenDay);
                printOptional(os, "fiveHourResets", e.fiveHourResets);
            } else if constexpr (std::is_same_v<T, Event::Stderr>) {
                *os << "stderr " << e.text.toStdString();
            } else if constexpr (std::is_same_v<T, Event::Exited>) {
                *os << "exited " << e.status;
            } else {
                *os << "messageStarted";
            }
        },
        event.payload);
}

TEST(AgentStreamParser, ReadsEachKindOfLineByItsKeysAndTakesWrongTypesAsAbsent)
{
    struct Case {
        const char *line;
        QList<Event> events;
    };
    const Case cases[] = {
        // system
        {R"({"type":"system","subtype":"init","session_id":"s1","model":"claude-sonnet-4-5","mcp_servers":[{"name":"vesk","status":"connected"},{"name":"other"},{"status":"failed"},"x",{"name":3}]})",
         {{Event::Initialized{"s1", "claude-sonnet-4-5", {{"vesk", "connected"}, {"other", ""}}}}}},
        {R"({"type":"system","subtype":"init"})", {{Event::Initialized{}}}},
        {R"({"type":"system","subtype":"init","session_id":7,"model":null,"mcp_servers":{"name":"x"}})",
         {{Event::Initialized{}}}},
        {R"({"type":"system","subtype":"status","status":"compacting"})", {{Event::Status{"compacting"}}}},
        {R"({"type":"system","subtype":"status","status":null})", {}},
        {R"({"type":"system","subtype":"compact_boundary"})", {}},
        {R"({"type":"system"})", {}},
        // stream_event
        {R"({"type":"stream_event","event":{"type":"message_start","message":{"id":"msg_1"}}})",
         {{Event::MessageStarted{}}}},
        {R"({"type":"stream_event","parent_tool_use_id":"toolu_1","event":{"type":"message_start"}})", {}},
        {R"({"type":"stream_event","parent_tool_use_id":null,"event":{"type":"message_start"}})",
         {{Event::MessageStarted{}}}},
        {R"({"type":"stream_event","parent_tool_use_id":5,"event":{"type":"message_start"}})",
         {{Event::MessageStarted{}}}},
        {R"({"type":"stream_event","event":"message_start"})", {}},
        {R"({"type":"stream_event","event":{"type":"content_block_start","index":1,"content_block":{"type":"tool_use","id":"toolu_9","name":"mcp__vesk__run_r","input":{}}}})",
         {{Event::ToolUseStarted{"toolu_9", "mcp__vesk__run_r"}}}},
        {R"({"type":"stream_event","event":{"type":"content_block_start","content_block":{"type":"tool_use","id":1}}})",
         {{Event::ToolUseStarted{}}}},
        {R"({"type":"stream_event","event":{"type":"content_block_start","content_block":{"type":"text","text":""}}})",
         {}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","index":0,"delta":{"type":"text_delta","text":"Hel\nlo \u00e9\ud83d\ude00"}}})",
         {{Event::TextDelta{QString::fromUtf8("Hel\nlo é😀")}}}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":""}}})",
         {textDelta("")}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":1}}})",
         {}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","thinking":"x"}}})",
         {}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"thinking_delta","thinking":"hmm"}}})",
         {{Event::ThinkingDelta{"hmm"}}}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"input_json_delta","partial_json":"{\"a\""}}})",
         {}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"signature_delta","signature":"abc"}}})",
         {}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":"text_delta"}})", {}},
        {R"({"type":"stream_event","event":{"type":"message_stop"}})", {}},
        // escaped keys and values read as the JSON reader reads them
        {R"({"typ\u0065":"stream_event","event":{"type":"message_start"}})", {{Event::MessageStarted{}}}},
        {R"({"type":"stream_\u0065vent","event":{"type":"message_start"}})", {{Event::MessageStarted{}}}},
        {R"({"type":"stream_event","event":{"type":"message_st\u0061rt"}})", {{Event::MessageStarted{}}}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","t\u0065xt":"x"}}})",
         {textDelta("x")}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":"x"}},"event":{"type":"message_start"}})",
         {{Event::MessageStarted{}}}},
        {R"({"type":"stream_event","parent_tool_use_id":"p","parent_tool_use_id":null,"event":{"type":"message_start"}})",
         {{Event::MessageStarted{}}}},
        {" \t{ \"type\" :\r\n\"stream_event\" , \"event\" : { \"delta\" : { \"text\" : \"a\\\"b\\\\\" , "
         "\"type\" : \"text_delta\" } , \"type\" : \"content_block_delta\" } }\n",
         {textDelta("a\"b\\")}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":"x","deep":[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]]}}})",
         {textDelta("x")}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":"x"}},"n":01})",
         {}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":"\x"}}})",
         {}},
        {R"({"type":"stream_event","event":{"type":"content_block_delta","delta":{"type":"text_delta","text":"\ud800"}}})",
         {{Event::TextDelta{QString(QChar::ReplacementCharacter)}}}},
        // assistant
        {R"({"type":"assistant","message":{"content":[{"type":"thinking","thinking":"plan","signature":"s"},{"type":"text","text":"Hi"},{"type":"tool_use","id":"t1","name":"Read","input":{"file_path":"/a"}},{"type":"tool_use","id":"t2","name":"LS"},{"type":"tool_use","id":"t3"},{"type":"text","text":null},{"type":"image"},{"text":"untyped"}]}})",
         {{Event::Assistant{{Block::makeThinking("plan"), Block::makeText("Hi"),
                             Block::makeToolUse("t1", "Read", json(R"({"file_path":"/a"})")),
                             Block::makeToolUse("t2", "LS", JSONValue(JSONValue::Object()))}}}}},
        {R"({"type":"assistant","message":{"content":[{"type":"tool_use","id":"t1","name":"R","input":[1,null]}]}})",
         {{Event::Assistant{{Block::makeToolUse("t1", "R", json("[1,null]"))}}}}},
        {R"({"type":"assistant","message":{"content":"text"}})", {{Event::Assistant{}}}},
        {R"({"type":"assistant"})", {{Event::Assistant{}}}},
        {R"({"type":"assistant","parent_tool_use_id":"t0","message":{"content":[{"type":"text","text":"a"}]}})",
         {}},
        // user
        {R"({"type":"user","message":{"role":"user","content":[{"type":"tool_result","tool_use_id":"t1","content":"one\ntwo"},{"type":"text","text":"skipped"},{"type":"tool_result","tool_use_id":"t2","is_error":true,"content":[{"type":"text","text":"a"},{"type":"image","source":{}},{"type":"text","text":"b"},{"type":"text","text":7}]}]}})",
         {{Event::ToolResult{"t1", false, "one\ntwo"}}, {Event::ToolResult{"t2", true, "a\nb"}}}},
        {R"({"type":"user","message":{"content":[{"type":"tool_result","is_error":"yes","content":{"text":"x"}}]}})",
         {{Event::ToolResult{"", false, ""}}}},
        {R"({"type":"user","message":{"content":[{"type":"tool_result","tool_use_id":"t","content":[]}]}})",
         {{Event::ToolResult{"t", false, ""}}}},
        {R"({"type":"user","message":{"content":[{"type":"text","text":"a prompt"}]}})", {}},
        {R"({"type":"user","parent_tool_use_id":"t0","message":{"content":[{"type":"tool_result","tool_use_id":"t1"}]}})",
         {}},
        // result
        {R"({"type":"result"})", {{Event::Result{true, {}, {}, {}, {}}}}},
        {R"({"type":"result","subtype":"success"})", {{Event::Result{false, {}, {}, {}, {}}}}},
        {R"({"type":"result","subtype":"success","is_error":true})", {{Event::Result{true, {}, {}, {}, {}}}}},
        {R"({"type":"result","subtype":"error_during_execution","is_error":false})",
         {{Event::Result{false, {}, {}, {}, {}}}}},
        {R"({"type":"result","subtype":"success","is_error":"false"})",
         {{Event::Result{false, {}, {}, {}, {}}}}},
        {R"({"type":"result","subtype":"error_max_turns","is_error":"false"})",
         {{Event::Result{true, {}, {}, {}, {}}}}},
        {R"({"type":"result","subtype":"success","is_error":false,"duration_ms":2712,"duration_api_ms":2390,"num_turns":1,"result":"Done.","session_id":"s1","total_cost_usd":0.0123})",
         {{Event::Result{false, "Done.", 0.0123, 2712, "s1"}}}},
        {R"({"type":"result","duration_ms":1.5,"total_cost_usd":"0.1","result":5,"session_id":null})",
         {{Event::Result{true, {}, {}, {}, {}}}}},
        {R"({"type":"result","duration_ms":3e3,"total_cost_usd":0})",
         {{Event::Result{true, {}, 0.0, 3000, {}}}}},
        {R"({"type":"result","duration_ms":-9223372036854775808})",
         {{Event::Result{true, {}, {}, std::numeric_limits<qint64>::min(), {}}}}},
        {R"({"type":"result","duration_ms":9223372036854775808})", {{Event::Result{true, {}, {}, {}, {}}}}},
        {R"({"type":"result","duration_ms":1e400})", {{Event::Result{true, {}, {}, {}, {}}}}},
        // rate_limit_event
        {R"({"type":"rate_limit_event"})", {{Event::Usage{}}}},
        {R"({"type":"rate_limit_event","rate_limit_info":{"status":"allowed","unifiedWindows":{"five_hour":{"utilization":0.42,"resetsAt":1784079000},"seven_day":{"utilization":1.5,"resetsAt":1784500000}}}})",
         {{Event::Usage{0.42, 1.5, utcSeconds(1784079000)}}}},
        {R"({"type":"rate_limit_event","rate_limit_info":{"unifiedWindows":{"five_hour":{"resetsAt":1784079000.25},"seven_day":{"utilization":"0.1"}}}})",
         {{Event::Usage{{}, {}, utcSeconds(1784079000).addMSecs(250)}}}},
        {R"({"type":"rate_limit_event","rate_limit_info":{"unifiedWindows":{"five_hour":[0.4],"seven_day":{"utilization":0}}}})",
         {{Event::Usage{{}, 0.0, {}}}}},
        {R"({"type":"rate_limit_event","rate_limit_info":{"unifiedWindows":{"five_hour":{"resetsAt":1e300}}}})",
         {{Event::Usage{}}}},
        {R"({"type":"rate_limit_event","rate_limit_info":{"status":"allowed","resetsAt":1784079000}})",
         {{Event::Usage{}}}},
        {R"({"type":"rate_limit_event","rate_limit_info":"x"})", {{Event::Usage{}}}},
        // other types
        {R"({"type":"control_request","request":{}})", {}},
        {R"({"type":"Result"})", {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(AgentStreamParser::parse(QByteArrayView(c.line)), c.events);
        EXPECT_EQ(AgentStreamParser::parse(QString::fromUtf8(c.line)), c.events);
    }
}

TEST(AgentStreamParser, GivesNothingForLinesThatAreNotATypedObject)
{
    const char *lines[] = {
        "",
        "   ",
        "not json",
        "42",
        "\"assistant\"",
        "[{\"type\":\"result\"}]",
        "null",
        "{}",
        R"({"type":null})",
        R"({"type":["result"]})",
        R"({"subtype":"success","is_error":false})",
        R"({"type":"result"} trailing)",
        R"({"type":"result")",
        "{\"type\":\"result\"}\n{\"type\":\"result\"}",
    };
    for (const char *line : lines) {
        SCOPED_TRACE(line);
        EXPECT_TRUE(AgentStreamParser::parse(QByteArrayView(line)).isEmpty());
    }
}

// The process hands over raw bytes: broken UTF-8 inside a string is repaired, not a reason to drop
// the line; outside strings the line is no JSON.
TEST(AgentStreamParser, RepairsInvalidUTF8InsideStrings)
{
    const QByteArray line = "{\"type\":\"stream_event\",\"event\":{\"type\":\"content_block_delta\","
                            "\"delta\":{\"type\":\"text_delta\",\"text\":\"a\xff"
                            "b\xe2\x82\"}}}";
    const QList<Event> events = AgentStreamParser::parse(QByteArrayView(line));
    ASSERT_EQ(events.size(), 1);
    const QString text = events[0].as<Event::TextDelta>()->text;
    EXPECT_TRUE(text.startsWith(QStringLiteral("a\uFFFDb")));
    EXPECT_TRUE(text.endsWith(QChar(QChar::ReplacementCharacter)));
    EXPECT_TRUE(AgentStreamParser::parse(QByteArrayView("{\"type\":\"result\"}\xff")).isEmpty());
    EXPECT_EQ(AgentStreamParser::parse(QByteArrayView("\xef\xbb\xbf{\"type\":\"result\"}")), QList<Event>())
        << "a byte order mark is no JSON";
}

// Lines the real claude printed against the scripted Messages API: a plain answer, a call of an MCP
// tool and its result, an interrupted turn and one more answer.
TEST(AgentStreamParser, ReadsTheLinesOfTheRealCLI)
{
    QFile file(TestSupport::sourcePath(QStringLiteral("tests/agents/recorded-stream.jsonl")));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << file.fileName().toStdString();
    QList<Event> events;
    int lines = 0;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().chopped(1);
        ASSERT_TRUE(JSONValue::parse(QByteArrayView(line))) << "line " << lines + 1;
        events += AgentStreamParser::parse(QByteArrayView(line));
        ++lines;
    }
    ASSERT_EQ(lines, 63);

    QString kinds;
    QString text;
    QList<Event::Result> results;
    const QString session = QStringLiteral("dd60932d-c883-4695-bb2b-5b30d4720e56");
    for (const Event &event : events) {
        if (const auto *init = event.as<Event::Initialized>()) {
            kinds += u'I';
            EXPECT_EQ(*init, (Event::Initialized{session, "claude-opus-5-5", {{"sdk", "connected"}}}));
        } else if (const auto *delta = event.as<Event::TextDelta>()) {
            kinds += u'd';
            text += delta->text;
        } else if (const auto *result = event.as<Event::Result>()) {
            kinds += u'R';
            results.append(*result);
        } else {
            kinds += event.as<Event::Status>()           ? u'S'
                     : event.as<Event::MessageStarted>() ? u'M'
                     : event.as<Event::Assistant>()      ? u'A'
                     : event.as<Event::ToolUseStarted>() ? u'T'
                     : event.as<Event::ToolResult>()     ? u'r'
                                                         : u'?';
        }
    }
    EXPECT_EQ(kinds, QStringLiteral("ISMdddAR"
                                    "ISMdATAr"
                                    "SMddAR"
                                    "ISMdddddAR"
                                    "ISMdAR"));
    EXPECT_EQ(text,
              QStringLiteral("Hello, world.Calling the echo.The tool said ping.more more more more more "
                             "Still here."));
    EXPECT_EQ(results, (QList<Event::Result>{{false, "Hello, world.", 0.00028000000000000003, 429, session},
                                             {false, "The tool said ping.", 0.00084, 157, session},
                                             {true, std::nullopt, 0.0010400000000000001, 254, session},
                                             {false, "Still here.", 0.0013200000000000002, 53, session}}));
    QList<Event> toolEvents;
    QList<Block> toolBlocks;
    for (const Event &event : events) {
        if (event.as<Event::ToolUseStarted>() || event.as<Event::ToolResult>())
            toolEvents.append(event);
        if (const auto *message = event.as<Event::Assistant>()) {
            for (const Block &block : message->blocks) {
                if (block.kind == Block::Kind::ToolUse)
                    toolBlocks.append(block);
            }
        }
    }
    EXPECT_EQ(toolEvents, (QList<Event>{{Event::ToolUseStarted{"toolu_01", "mcp__sdk__echo"}},
                                        {Event::ToolResult{"toolu_01", false, "ping"}}}));
    EXPECT_EQ(toolBlocks,
              QList<Block>{Block::makeToolUse("toolu_01", "mcp__sdk__echo", json(R"({"text":"ping"})"))});
}
