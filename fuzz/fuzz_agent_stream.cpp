// AgentStreamParser::parse on arbitrary bytes as one line of claude's output. Properties: parsing is
// a function of the line; a line gives only the events a line can give, a stream event at
// most one; and the same object as a sub-agent's stream event gives nothing.
// Run with -dict=fuzz/fuzz_agent_stream.dict.
#include "AgentStreamParser.h"

#include <cstdint>
#include <cstdlib>

namespace {

void require(bool condition)
{
    if (!condition)
        std::abort();
}

// The parser's events, with the properties every line must keep.
QList<AgentStreamEvent> checkedParse(QByteArrayView line)
{
    const QList<AgentStreamEvent> events = AgentStreamParser::parse(line);
    require(events == AgentStreamParser::parse(line));
    for (const AgentStreamEvent &event : events)
        require(!event.as<AgentStreamEvent::Stderr>() && !event.as<AgentStreamEvent::Exited>());
    return events;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView line(data, qsizetype(size));
    const QList<AgentStreamEvent> events = checkedParse(line);
    // The bytes as they stand in the places of a stream event that are read, so the fuzzer need not
    // find the envelope first.
    for (const char *envelope :
         {R"({"type":"stream_event","event":%1})",
          R"({"type":"stream_event","event":{"type":"content_block_delta","delta":%1}})",
          R"({"type":"stream_event","event":{"type":"content_block_start","content_block":%1}})"}) {
        const QByteArray text(envelope);
        const qsizetype at = text.indexOf("%1");
        require(checkedParse(text.left(at) + line.toByteArray() + text.mid(at + 2)).size() <= 1);
    }

    const std::optional<JSONValue> value = JSONValue::parse(line);
    const JSONValue::Object *object = value ? value->objectValue() : nullptr;
    if (!object)
        return 0;
    if (value->find(u"type") && value->find(u"type")->stringValue() == u"stream_event")
        require(events.size() <= 1);

    // The same members as a stream event of the main agent and of a sub-agent.
    JSONValue::Object asStreamEvent = *object;
    asStreamEvent.insert_or_assign(QStringLiteral("type"), JSONValue("stream_event"));
    asStreamEvent.insert_or_assign(QStringLiteral("parent_tool_use_id"), JSONValue());
    require(checkedParse(JSONValue(asStreamEvent).serialized()).size() <= 1);
    asStreamEvent.insert_or_assign(QStringLiteral("parent_tool_use_id"), JSONValue("toolu_1"));
    require(checkedParse(JSONValue(asStreamEvent).serialized()).isEmpty());
    return 0;
}
