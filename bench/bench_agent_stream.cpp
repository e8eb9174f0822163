// Agent stream throughput: ~10 MB of stream-json lines shaped as claude prints them (mostly text
// deltas, with message starts, finished messages, tool calls, tool results and results), each line
// parsed on its own as the process does.
#include "AgentStreamParser.h"
#include "BenchFigures.h"

#include <QRandomGenerator>
#include <QUuid>

#include <ctime>

namespace {

QByteArray uuid()
{
    return QUuid::createUuid().toByteArray(QUuid::WithoutBraces);
}

QByteArray quoted(const QByteArray &text)
{
    return JSONValue(QString::fromUtf8(text)).serialized();
}

QList<QByteArray> transcript(qsizetype bytes)
{
    const QByteArray session = R"J("session_id":"dd60932d-c883-4695-bb2b-5b30d4720e56")J";
    const char *words[] = {"The ",   "median ", "of ",     "`mpg` ", "is ",    "19.2, ", "and ",   "the ",
                           "model ", "fits ",   "well",    ".\n\n",  "```r\n", "lm(",    "mpg ~ ", "wt",
                           ")\n```", " — ",     "größer ", "🙂 ",  "\"x\" ", "a\\b "};
    QRandomGenerator random(11);
    QList<QByteArray> lines;
    qsizetype total = 0;
    int message = 0;
    auto add = [&](QByteArray line) {
        total += line.size() + 1;
        lines.append(std::move(line));
    };
    while (total < bytes) {
        const QByteArray id = "msg_" + QByteArray::number(message++);
        const QByteArray tail = "," + session + R"J(,"parent_tool_use_id":null,"uuid":")J" + uuid() +
                                R"J(","api_message_id":")J" + id + "\"}";
        add(R"J({"type":"stream_event","event":{"message":{"content":[],"id":")J" + id +
            R"J(","model":"claude-opus-5-5","role":"assistant","stop_reason":null,"stop_sequence":null,"type":"message","usage":{"input_tokens":10,"output_tokens":1}},"type":"message_start"})J" +
            tail);
        add(R"J({"type":"stream_event","event":{"content_block":{"text":"","type":"text"},"index":0,"type":"content_block_start"})J" +
            tail);
        QByteArray answer;
        const int deltas = 20 + random.bounded(80);
        for (int i = 0; i < deltas; ++i) {
            QByteArray piece;
            for (int n = 1 + random.bounded(4); n > 0; --n)
                piece += words[random.bounded(int(std::size(words)))];
            answer += piece;
            add(R"J({"type":"stream_event","event":{"delta":{"text":)J" + quoted(piece) +
                R"J(,"type":"text_delta"},"index":0,"type":"content_block_delta"})J" + tail);
        }
        add(R"J({"type":"assistant","message":{"content":[{"text":)J" + quoted(answer) +
            R"J(,"type":"text"}],"id":")J" + id +
            R"J(","model":"claude-opus-5-5","role":"assistant","stop_reason":null,"stop_sequence":null,"type":"message","usage":{"input_tokens":10,"output_tokens":1},"context_management":null},"parent_tool_use_id":null,)J" +
            session + R"J(,"uuid":")J" + uuid() + "\"}");
        add(R"J({"type":"stream_event","event":{"index":0,"type":"content_block_stop"})J" + tail);
        if (message % 3 == 0) {
            add(R"J({"type":"stream_event","event":{"content_block":{"id":"toolu_01","input":{},"name":"mcp__vesk__run_r","type":"tool_use"},"index":1,"type":"content_block_start"})J" +
                tail);
            add(R"J({"type":"stream_event","event":{"delta":{"partial_json":"{\"code\":\"summary(mtcars)\"}","type":"input_json_delta"},"index":1,"type":"content_block_delta"})J" +
                tail);
            add(R"J({"type":"assistant","message":{"content":[{"id":"toolu_01","input":{"code":"summary(mtcars)"},"name":"mcp__vesk__run_r","type":"tool_use"}],"id":")J" +
                id + R"J(","role":"assistant","type":"message"},"parent_tool_use_id":null,)J" + session +
                "}");
            add(R"J({"type":"user","message":{"role":"user","content":[{"tool_use_id":"toolu_01","type":"tool_result","content":[{"type":"text","text":"      mpg             cyl       \n Min.   :10.40   Min.   :4.000  \n 1st Qu.:15.43   1st Qu.:4.000  \n Median :19.20   Median :6.000  "}]}]},"parent_tool_use_id":null,)J" +
                session + R"J(,"uuid":")J" + uuid() + "\"}");
        }
        add(R"J({"type":"stream_event","event":{"delta":{"stop_reason":"end_turn","stop_sequence":null},"type":"message_delta","usage":{"output_tokens":12}})J" +
            tail);
        add(R"J({"type":"stream_event","event":{"type":"message_stop"})J" + tail);
        if (message % 4 == 0)
            add(R"J({"duration_api_ms":206,"stop_reason":"end_turn",)J" + session +
                R"J(,"total_cost_usd":0.00084,"usage":{"input_tokens":20,"output_tokens":24},"permission_denials":[],"is_error":false,"num_turns":2,"subtype":"success","result":)J" +
                quoted(answer) + R"J(,"type":"result","duration_ms":157,"uuid":")J" + uuid() + "\"}");
    }
    return lines;
}

// The parser is pure computation on one thread; its CPU time is what a shared, busy machine moves
// least.
double cpuSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + t.tv_nsec / 1e9;
}

} // namespace

int main()
{
    const QList<QByteArray> lines = transcript(10 * 1000 * 1000);
    qsizetype bytes = 0;
    for (const QByteArray &line : lines)
        bytes += line.size() + 1;

    // The parser as the process calls it.
    auto measure = [&](auto &&parse) {
        std::vector<double> seconds;
        qsizetype events = 0;
        for (int round = 0; round < 7; ++round) {
            events = 0;
            const double start = cpuSeconds();
            for (const QByteArray &line : lines)
                events += parse(QByteArrayView(line)).size();
            seconds.push_back(cpuSeconds() - start);
        }
        return std::pair(median(seconds), events);
    };
    const auto [s, events] = measure([](QByteArrayView line) { return AgentStreamParser::parse(line); });
    printFigure("agent_stream_bytes", bytes / 1e6, "MB");
    printFigure("agent_stream_events", double(events), "events");
    printFigure("agent_stream_parse_throughput", bytes / 1e6 / s, "MB/s");
    printFigure("agent_stream_parse_lines", lines.size() / s, "lines/s");
    return events > 0 ? 0 : 1;
}
