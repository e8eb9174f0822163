#include "AgentStreamParser.h"

#include "TextUnits.h"

#include <QTimeZone>

#include <array>
#include <cmath>
#include <cstring>

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

// Streamed deltas are nearly every line `claude` prints, and building a whole JSONValue for each
// (a map node and a string per key) cost more than everything else together. So stream_event lines
// are first skimmed in place: the line is checked to be JSON that JSONValue::parse accepts, then only
// the few members read are looked up in the bytes. Whatever the skim cannot answer for certain (keys
// or compared values with escapes, deep nesting, other line types) goes the general way, so both
// ways give the same events for every line.
namespace Skim {

constexpr int maxDepth = 64; // stricter than the reader: deeper lines go the general way

// Checks that the line is one JSON document the reader accepts, with keys of plain ASCII. May refuse
// more than the reader does, never less.
class Validator {
public:
    explicit Validator(QByteArrayView line) : m_p(line.data()), m_end(line.data() + line.size()) {}

    bool document()
    {
        space();
        if (!value(0))
            return false;
        space();
        return m_p == m_end;
    }

private:
    const char *m_p;
    const char *m_end;

    void space()
    {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\n' || *m_p == '\r' || *m_p == '\t'))
            ++m_p;
    }

    bool literal(QByteArrayView word)
    {
        if (m_end - m_p < word.size() || QByteArrayView(m_p, word.size()) != word)
            return false;
        m_p += word.size();
        return true;
    }

    bool digits()
    {
        if (m_p >= m_end || *m_p < '0' || *m_p > '9')
            return false;
        while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
            ++m_p;
        return true;
    }

    bool number()
    {
        if (*m_p == '-')
            ++m_p;
        if (m_p < m_end && *m_p == '0')
            ++m_p;
        else if (!digits())
            return false;
        if (m_p < m_end && *m_p == '.') {
            ++m_p;
            if (!digits())
                return false;
        }
        if (m_p < m_end && (*m_p == 'e' || *m_p == 'E')) {
            ++m_p;
            if (m_p < m_end && (*m_p == '+' || *m_p == '-'))
                ++m_p;
            if (!digits())
                return false;
        }
        return true;
    }

    // `plain` turns false at an escape or a byte outside ASCII.
    bool string(bool *plain)
    {
        ++m_p;
        while (m_p < m_end) {
            const unsigned char c = static_cast<unsigned char>(*m_p);
            if (c == '"') {
                ++m_p;
                return true;
            }
            if (c < 0x20)
                return false;
            if (c != '\\') {
                if (c >= 0x80)
                    *plain = false; // broken UTF-8 is repaired, not refused
                ++m_p;
                continue;
            }
            *plain = false;
            if (m_end - m_p < 2)
                return false;
            switch (m_p[1]) {
            case '"':
            case '\\':
            case '/':
            case 'b':
            case 'f':
            case 'n':
            case 'r':
            case 't':
                m_p += 2;
                break;
            case 'u':
                if (m_end - m_p < 6)
                    return false;
                for (int i = 2; i < 6; ++i) {
                    if (TextUnits::hexDigitValue(m_p[i]) < 0)
                        return false;
                }
                m_p += 6;
                break;
            default:
                return false;
            }
        }
        return false;
    }

    bool value(int depth)
    {
        if (m_p >= m_end)
            return false;
        bool plain = true;
        switch (*m_p) {
        case '"':
            return string(&plain);
        case '{':
            return container(depth + 1, '}');
        case '[':
            return container(depth + 1, ']');
        case 't':
            return literal("true");
        case 'f':
            return literal("false");
        case 'n':
            return literal("null");
        default:
            return (*m_p == '-' || (*m_p >= '0' && *m_p <= '9')) && number();
        }
    }

    bool container(int depth, char close)
    {
        if (depth > maxDepth)
            return false;
        ++m_p;
        space();
        if (m_p < m_end && *m_p == close) {
            ++m_p;
            return true;
        }
        for (;;) {
            space();
            if (close == '}') {
                bool plain = true;
                if (m_p >= m_end || *m_p != '"' || !string(&plain) || !plain)
                    return false;
                space();
                if (m_p >= m_end || *m_p != ':')
                    return false;
                ++m_p;
                space();
            }
            if (!value(depth))
                return false;
            space();
            if (m_p >= m_end)
                return false;
            if (*m_p == ',') {
                ++m_p;
                continue;
            }
            if (*m_p == close) {
                ++m_p;
                return true;
            }
            return false;
        }
    }
};

// Walking a line the Validator accepted: every value is complete and well formed.
const char *skipSpace(const char *p)
{
    while (*p == ' ' || *p == '\n' || *p == '\r' || *p == '\t')
        ++p;
    return p;
}

const char *skipString(const char *p, const char *end)
{
    for (++p;;) {
        p = static_cast<const char *>(std::memchr(p, '"', size_t(end - p)));
        const char *q = p;
        while (q[-1] == '\\')
            --q;
        if ((p - q) % 2 == 0) // not escaped
            return p + 1;
        ++p;
    }
}

const char *skipValue(const char *p, const char *end)
{
    if (*p == '"')
        return skipString(p, end);
    if (*p != '{' && *p != '[') {
        while (*p != ',' && *p != '}' && *p != ']' && *p != ' ' && *p != '\n' && *p != '\r' && *p != '\t')
            ++p;
        return p;
    }
    int depth = 0;
    for (;;) {
        if (*p == '"') {
            p = skipString(p, end);
            continue;
        }
        if (*p == '{' || *p == '[')
            ++depth;
        else if ((*p == '}' || *p == ']') && --depth == 0)
            return p + 1;
        ++p;
    }
}

// One value of the line; empty when absent.
using Span = QByteArrayView;

bool isObject(Span value)
{
    return !value.isEmpty() && value.front() == '{';
}

bool isString(Span value)
{
    return !value.isEmpty() && value.front() == '"';
}

// The members of those names (keys are plain here), in one pass; the last of equal keys counts, as
// the reader keeps it.
template <size_t N> std::array<Span, N> members(Span object, const std::array<QByteArrayView, N> &keys)
{
    std::array<Span, N> found{};
    if (!isObject(object))
        return found;
    const char *p = skipSpace(object.data() + 1);
    if (*p == '}')
        return found;
    for (;;) {
        const char *name = skipSpace(p);
        p = skipString(name, object.end());
        const QByteArrayView key(name + 1, p - name - 2);
        const char *value = skipSpace(skipSpace(p) + 1);
        p = skipValue(value, object.end());
        for (size_t i = 0; i < N; ++i) {
            if (key == keys[i])
                found[i] = Span(value, p - value);
        }
        p = skipSpace(p);
        if (*p != ',')
            return found;
        ++p;
    }
}

enum class Match { No, Yes, Unknown };

// Plain ASCII compares byte for byte. Escapes, and other bytes (the UTF-8 decoder drops a byte order
// mark at the start of a run), are left to the general way.
bool plain(Span raw)
{
    for (char c : raw) {
        if (c == '\\' || static_cast<unsigned char>(c) >= 0x80)
            return false;
    }
    return true;
}

// Whether the value is the string `text` (plain ASCII).
Match stringIs(Span value, QByteArrayView text)
{
    if (!isString(value))
        return Match::No;
    const Span raw = value.sliced(1, value.size() - 2);
    if (!plain(raw))
        return Match::Unknown;
    return raw == text ? Match::Yes : Match::No;
}

// Decoded by the reader itself, so the text is exactly what the general way gives.
QString decoded(Span value)
{
    const std::optional<JSONValue> string = JSONValue::parse(value);
    return string ? string->stringValue().value_or(QString()) : QString();
}

// The events of a stream_event line, or nothing when the general way must answer.
std::optional<QList<Event>> streamEvent(QByteArrayView line)
{
    if (!Validator(line).document())
        return std::nullopt;
    const char *start = skipSpace(line.data());
    if (*start != '{')
        return std::nullopt;
    const auto [type, event, parent] = members<3>(Span(start, skipValue(start, line.end()) - start),
                                                  {"type", "event", "parent_tool_use_id"});
    if (stringIs(type, "stream_event") != Match::Yes)
        return std::nullopt;
    QList<Event> out;
    if (!isObject(event) || isString(parent))
        return out;
    const auto [eventType, delta, block] = members<3>(event, {"type", "delta", "content_block"});
    if (stringIs(eventType, "message_start") == Match::Yes) {
        out.append({Event::MessageStarted{}});
        return out;
    }
    if (const Match isDelta = stringIs(eventType, "content_block_delta"); isDelta != Match::No) {
        if (isDelta == Match::Unknown)
            return std::nullopt;
        const auto [deltaType, text, thinking] = members<3>(delta, {"type", "text", "thinking"});
        const Match isText = stringIs(deltaType, "text_delta");
        const Match isThinking = stringIs(deltaType, "thinking_delta");
        if (isText == Match::Unknown || isThinking == Match::Unknown)
            return std::nullopt;
        if (isText == Match::Yes && isString(text))
            out.append({Event::TextDelta{decoded(text)}});
        else if (isThinking == Match::Yes && isString(thinking))
            out.append({Event::ThinkingDelta{decoded(thinking)}});
        return out;
    }
    if (const Match isStart = stringIs(eventType, "content_block_start"); isStart != Match::No) {
        if (isStart == Match::Unknown)
            return std::nullopt;
        const auto [blockType, id, name] = members<3>(block, {"type", "id", "name"});
        const Match isToolUse = stringIs(blockType, "tool_use");
        if (isToolUse == Match::Unknown)
            return std::nullopt;
        if (isToolUse == Match::Yes)
            out.append({Event::ToolUseStarted{isString(id) ? decoded(id) : QString(),
                                              isString(name) ? decoded(name) : QString()}});
        return out;
    }
    return out;
}

} // namespace Skim

} // namespace

namespace AgentStreamParser {

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

QList<AgentStreamEvent> parse(QByteArrayView utf8Line)
{
    if (std::optional<QList<Event>> skimmed = Skim::streamEvent(utf8Line))
        return std::move(*skimmed);
    const std::optional<JSONValue> line = JSONValue::parse(utf8Line);
    return line ? eventsOf(*line) : QList<Event>();
}

QList<AgentStreamEvent> parse(QStringView line)
{
    return parse(QByteArrayView(line.toUtf8()));
}

} // namespace AgentStreamParser
