// tools/call on an echo tool over keep-alive connections: Vesk's MCP server against the MCP
// TypeScript SDK's own Streamable HTTP server (tests/mcp/sdk-echo-server.mjs), measured in the same
// run by the same load client: several connections, each on its own thread, one request in flight per
// connection. Prints requests per second and p50/p99 latency.
//
// Usage: bench_mcp [seconds per server, default 3] [connections, default 4]
#include "BenchFigures.h"
#include "HTTPTestClient.h"
#include "MCPServer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

struct Target {
    quint16 port = 0;
    QList<QByteArray> headers; // besides Host, Content-Type and Content-Length
};

struct Figures {
    double requestsPerSecond = 0;
    double p50 = 0;
    double p99 = 0;
    qint64 failures = 0;
};

// Sends the request on the connection; returns the status, with the body and the answer's session
// header if asked for.
int exchange(HTTPTestClient &connection, const QByteArray &request, QByteArray *body = nullptr,
             QByteArray *session = nullptr)
{
    if (!connection.send(request))
        return 0;
    const HTTPTestReply reply = connection.read();
    if (body)
        *body = reply.body;
    if (session)
        *session = reply.header("mcp-session-id").toUtf8();
    return reply.status;
}

QByteArray post(const Target &target, const QByteArray &body)
{
    QByteArray out = "POST /mcp HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/json\r\n";
    for (const QByteArray &h : target.headers)
        out += h + "\r\n";
    return out + "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
}

// Initializes one session and adds its header to the target.
bool openSession(Target &target)
{
    HTTPTestClient connection(target.port);
    QByteArray session;
    const int status = exchange(
        connection,
        post(target,
             R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-06-18",)"
             R"("capabilities":{},"clientInfo":{"name":"bench","version":"1"}}})"),
        nullptr, &session);
    if (status != 200 || session.isEmpty())
        return false;
    target.headers.append("Mcp-Session-Id: " + session);
    target.headers.append("MCP-Protocol-Version: 2025-06-18");
    exchange(connection, post(target, R"({"jsonrpc":"2.0","method":"notifications/initialized"})"));
    return true;
}

Figures load(const Target &target, double seconds, int connections)
{
    std::atomic<bool> measuring{false};
    std::atomic<bool> done{false};
    std::atomic<qint64> failures{0};
    std::vector<std::vector<double>> latencies{size_t(connections)};
    std::vector<std::thread> threads;
    for (int c = 0; c < connections; ++c) {
        threads.emplace_back([&, c] {
            HTTPTestClient connection(target.port);
            std::vector<double> &mine = latencies[size_t(c)];
            mine.reserve(200000);
            for (qint64 i = 0; !done; ++i) {
                const QByteArray body =
                    R"({"jsonrpc":"2.0","id":)" + QByteArray::number(i) +
                    R"(,"method":"tools/call","params":{"name":"echo","arguments":{"text":"hello )" +
                    QByteArray::number(i) + R"("}}})";
                const QByteArray request = post(target, body);
                const auto start = Clock::now();
                QByteArray answer;
                const int status = exchange(connection, request, &answer);
                const double ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
                if (status != 200 || !answer.contains("hello ")) {
                    ++failures;
                    break;
                }
                if (measuring)
                    mine.push_back(ms);
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // warm-up
    measuring = true;
    const auto start = Clock::now();
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
    measuring = false;
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    done = true;
    for (std::thread &t : threads)
        t.join();

    std::vector<double> all;
    for (const auto &l : latencies)
        all.insert(all.end(), l.begin(), l.end());
    Figures f;
    f.failures = failures;
    if (all.empty())
        return f;
    std::sort(all.begin(), all.end());
    f.requestsPerSecond = double(all.size()) / elapsed;
    f.p50 = all[all.size() / 2];
    f.p99 = all[std::min(all.size() - 1, size_t(double(all.size()) * 0.99))];
    return f;
}

void report(const char *prefix, const Figures &f)
{
    const QByteArray p(prefix);
    printFigure(p + "_tools_call_rps", f.requestsPerSecond, "req/s");
    printFigure(p + "_tools_call_p50", f.p50, "ms");
    printFigure(p + "_tools_call_p99", f.p99, "ms");
    if (f.failures)
        printFigure(p + "_tools_call_failures", double(f.failures), "count");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const double seconds = argc > 1 ? std::max(0.5, atof(argv[1])) : 3.0;
    const int connections = argc > 2 ? std::max(1, atoi(argv[2])) : 4;

    Figures vesk;
    {
        MCPServer server(QStringLiteral("bench"), QStringLiteral("1"), std::nullopt, MCPServer::makeToken());
        server.registerTool(
            MCPTool{QStringLiteral("echo"), std::nullopt, QStringLiteral("Echo."),
                    JSONValue{{QStringLiteral("type"), "object"}}, std::nullopt,
                    [](const JSONValue &arguments, const MCPRequestContext &, std::stop_token,
                       MCPTool::Completion done) {
                        done(MCPToolResult::text(arguments[u"text"].stringValue().value_or(QString())));
                    }});
        const auto url = server.start(0);
        if (!std::holds_alternative<QUrl>(url)) {
            std::fprintf(stderr, "%s\n", qPrintable(std::get<MCPServerError>(url).description()));
            return 1;
        }
        Target target{quint16(std::get<QUrl>(url).port()),
                      {"Authorization: Bearer " + server.token().toUtf8()}};
        if (!openSession(target)) {
            std::fprintf(stderr, "initialize failed on Vesk's server\n");
            return 1;
        }
        vesk = load(target, seconds, connections);
    }
    report("vesk", vesk);

    // The SDK's server, if node and the installed SDK are there.
    const QString node = QStandardPaths::findExecutable(QStringLiteral("node"));
    const QString mcpDir = QStringLiteral(VESK_SOURCE_DIR "/tests/mcp");
    if (node.isEmpty() ||
        !QFileInfo::exists(mcpDir + QStringLiteral("/node_modules/@modelcontextprotocol/sdk"))) {
        std::fprintf(stderr, "node or tests/mcp/node_modules missing: the SDK server is not measured\n");
        return 0;
    }
    QProcess sdk;
    sdk.setWorkingDirectory(mcpDir);
    sdk.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    sdk.start(node, {mcpDir + QStringLiteral("/sdk-echo-server.mjs")});
    quint16 port = 0;
    if (sdk.waitForStarted(10000)) {
        // Node may take more than a second to start on a loaded machine: only its exit ends the wait.
        const auto until = Clock::now() + std::chrono::seconds(20);
        while (!port && Clock::now() < until && sdk.state() == QProcess::Running) {
            sdk.waitForReadyRead(1000);
            while (!port && sdk.canReadLine()) {
                const QByteArray line = sdk.readLine().trimmed();
                if (line.startsWith("listening "))
                    port = quint16(line.mid(10).toUInt());
            }
        }
    }
    Target target{port, {"Accept: application/json, text/event-stream"}};
    if (!port || !openSession(target)) {
        std::fprintf(stderr, "the SDK server did not start\n");
        sdk.kill();
        sdk.waitForFinished(5000);
        return 1;
    }
    const Figures sdkFigures = load(target, seconds, connections);
    sdk.terminate();
    if (!sdk.waitForFinished(2000)) {
        sdk.kill();
        sdk.waitForFinished(2000);
    }
    report("sdk", sdkFigures);
    if (sdkFigures.requestsPerSecond > 0)
        printFigure("vesk_to_sdk_rps_ratio", vesk.requestsPerSecond / sdkFigures.requestsPerSecond, "x");
    return 0;
}
