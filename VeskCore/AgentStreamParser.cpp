#include "AgentStreamParser.h"

#include <QTimeZone>

#include <cmath>

namespace {

using Event = AgentStreamEvent;

// Every read is by key, and a value of the wrong JSON type counts as absent.
const JSONValue *member(const JSONValue *object, QStringView key)
{
    return object ? object->find(key) : nullptr;
}

const JSONValue *objectMember(const JSONValue *object, QStringView key)
{
    const JSONValue *value = member(object, key);
    return value && value->objectValue() ? value : nullptr;
}

std::optional<QString> stringMember(const JSONValue *object, QStringView key)
{
    const JSONValue *value = member(object, key);
    return value ? value->stringValue() : std::nullopt;
}

std::optional<double> numberMember(const JSONValue *object, QStringView key)
{
    const JSONValue *value = member(object, key);
    return value ? value->doubleValue() : std::nullopt;
}

bool typeIs(const JSONValue *object, QStringView type)
{
    return stringMember(object, u"type") == type;
}

// A string parent_tool_use_id marks a sub-agent's line; its work shows through the parent's tool call.
bool fromSubagent(const JSONValue &line)
{
    return stringMember(&line, u"parent_tool_use_id").has_value();
}

const JSONValue::Array *messageContent(const JSONValue &line)
{
    const JSONValue *content = member(objectMember(&line, u"message"), u"content");
    return content ? content->arrayValue() : nullptr;
}

std::optional<qint64> exactInteger(std::optional<double> value)
{
    // The range of qint64, both ends exact as doubles: -2^63 is inside, 2^63 is not.
    if (!value || *value != std::trunc(*value) || *value < -9223372036854775808.0 ||
        *value >= 9223372036854775808.0)
        return std::nullopt;
    return qint64(*value);
}

void systemLine(const JSONValue &line, QList<Event> &out)
{
    const std::optional<QString> subtype = stringMember(&line, u"subtype");
    if (subtype == u"init") {
        Event::Initialized init;
        init.sessionID = stringMember(&line, u"session_id").value_or(QString());
        init.model = stringMember(&line, u"model").value_or(QString());
        if (const JSONValue *servers = member(&line, u"mcp_servers"); servers && servers->arrayValue()) {
            for (const JSONValue &server : *servers->arrayValue()) {
                if (!server.objectValue())
                    continue;
                if (std::optional<QString> name = stringMember(&server, u"name"))
                    init.mcpServers[*name] = stringMember(&server, u"status").value_or(QString());
            }
        }
        out.append({std::move(init)});
    } else if (subtype == u"status") {
        if (std::optional<QString> status = stringMember(&line, u"status"))
            out.append({Event::Status{*status}});
    }
}

void streamEventLine(const JSONValue &line, QList<Event> &out)
{
    const JSONValue *event = objectMember(&line, u"event");
    if (!event || fromSubagent(line))
        return;
    const std::optional<QString> type = stringMember(event, u"type");
    if (type == u"message_start") {
        out.append({Event::MessageStarted{}});
    } else if (type == u"content_block_start") {
        const JSONValue *block = objectMember(event, u"content_block");
        if (typeIs(block, u"tool_use"))
            out.append({Event::ToolUseStarted{stringMember(block, u"id").value_or(QString()),
                                              stringMember(block, u"name").value_or(QString())}});
    } else if (type == u"content_block_delta") {
        const JSONValue *delta = objectMember(event, u"delta");
        if (typeIs(delta, u"text_delta")) {
            if (std::optional<QString> text = stringMember(delta, u"text"))
                out.append({Event::TextDelta{*text}});
        } else if (typeIs(delta, u"thinking_delta")) {
            if (std::optional<QString> text = stringMember(delta, u"thinking"))
                out.append({Event::ThinkingDelta{*text}});
        }
    }
}

void assistantLine(const JSONValue &line, QList<Event> &out)
{
    if (fromSubagent(line))
        return;
    Event::Assistant assistant;
    if (const JSONValue::Array *content = messageContent(line)) {
        for (const JSONValue &element : *content) {
            const std::optional<QString> type = stringMember(&element, u"type");
            if (type == u"text") {
                if (std::optional<QString> text = stringMember(&element, u"text"))
                    assistant.blocks.append(Event::Block::makeText(*text));
            } else if (type == u"thinking") {
                if (std::optional<QString> text = stringMember(&element, u"thinking"))
                    assistant.blocks.append(Event::Block::makeThinking(*text));
            } else if (type == u"tool_use") {
                std::optional<QString> id = stringMember(&element, u"id");
                std::optional<QString> name = stringMember(&element, u"name");
                if (!id || !name)
                    continue;
                const JSONValue *input = element.find(u"input");
                assistant.blocks.append(
                    Event::Block::makeToolUse(*id, *name, input ? *input : JSONValue(JSONValue::Object())));
            }
        }
    }
    out.append({std::move(assistant)});
}

QString toolResultText(const JSONValue *content)
{
    if (!content)
        return {};
    if (std::optional<QString> text = content->stringValue())
        return *text;
    const JSONValue::Array *parts = content->arrayValue();
    if (!parts)
        return {};
    QStringList texts;
    for (const JSONValue &part : *parts) {
        if (!typeIs(&part, u"text"))
            continue;
        if (std::optional<QString> text = stringMember(&part, u"text"))
            texts.append(*text);
    }
    return texts.join(u'\n');
}

void userLine(const JSONValue &line, QList<Event> &out)
{
    if (fromSubagent(line))
        return;
    const JSONValue::Array *content = messageContent(line);
    if (!content)
        return;
    for (const JSONValue &element : *content) {
        if (!typeIs(&element, u"tool_result"))
            continue;
        const JSONValue *isError = member(&element, u"is_error");
        out.append({Event::ToolResult{stringMember(&element, u"tool_use_id").value_or(QString()),
                                      (isError ? isError->boolValue() : std::nullopt).value_or(false),
                                      toolResultText(member(&element, u"content"))}});
    }
}

void resultLine(const JSONValue &line, QList<Event> &out)
{
    Event::Result result;
    const JSONValue *isError = member(&line, u"is_error");
    if (std::optional<bool> flag = isError ? isError->boolValue() : std::nullopt)
        result.isError = *flag;
    else
        result.isError = stringMember(&line, u"subtype") != u"success";
    result.text = stringMember(&line, u"result");
    result.costUSD = numberMember(&line, u"total_cost_usd");
    result.durationMS = exactInteger(numberMember(&line, u"duration_ms"));
    result.sessionID = stringMember(&line, u"session_id");
    out.append({std::move(result)});
}

std::optional<QDateTime> dateFromSeconds(std::optional<double> seconds)
{
    if (!seconds)
        return std::nullopt;
    const double ms = std::round(*seconds * 1000);
    if (!(std::fabs(ms) < 9.2e18)) // beyond any date QDateTime can hold
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64(ms), QTimeZone::utc());
}

void rateLimitLine(const JSONValue &line, QList<Event> &out)
{
    Event::Usage usage;
    const JSONValue *windows = objectMember(objectMember(&line, u"rate_limit_info"), u"unifiedWindows");
    if (windows) {
        const JSONValue *fiveHour = objectMember(windows, u"five_hour");
        usage.fiveHour = numberMember(fiveHour, u"utilization");
        usage.sevenDay = numberMember(objectMember(windows, u"seven_day"), u"utilization");
        usage.fiveHourResets = dateFromSeconds(numberMember(fiveHour, u"resetsAt"));
    }
    out.append({std::move(usage)});
}

QList<AgentStreamEvent> eventsOf(const JSONValue &line)
{
    QList<Event> out;
    const std::optional<QString> type = stringMember(&line, u"type");
    if (!type)
        return out;
    if (*type == u"stream_event")
        streamEventLine(line, out);
    else if (*type == u"assistant")
        assistantLine(line, out);
    else if (*type == u"user")
        userLine(line, out);
    else if (*type == u"result")
        resultLine(line, out);
    else if (*type == u"system")
        systemLine(line, out);
    else if (*type == u"rate_limit_event")
        rateLimitLine(line, out);
    return out;
}

} // namespace

namespace AgentStreamParser {

QList<AgentStreamEvent> parse(QByteArrayView utf8Line)
{
    const std::optional<JSONValue> line = JSONValue::parse(utf8Line);
    return line ? eventsOf(*line) : QList<Event>();
}

QList<AgentStreamEvent> parse(QStringView line)
{
    return parse(QByteArrayView(line.toUtf8()));
}

} // namespace AgentStreamParser
