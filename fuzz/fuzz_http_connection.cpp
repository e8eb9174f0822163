// Drives a whole HTTPConnection, with the MCP server behind it, over a transport in memory. The input
// is both the client's bytes and the script: pieces are cut at lengths it picks, and between pieces it
// may finish a deferred tool call, let the linger time pass, close the client's side, fail the
// client's reading or shut the connection down. The token is fixed ("t"), so inputs carrying
// "Authorization: Bearer t" reach MCP itself (fuzz_http_connection.dict has the words).
// Checks: every write is a whole response, nothing is read or written once closed or written after
// the final answer, the connection closes exactly once, and run() returns.
#include "HTTPConnection.h"
#include "MCPServer.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <utility>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

using Deferred = MCPTool::Completion;

class ScriptedTransport final : public HTTPTransport {
public:
    ScriptedTransport(FuzzedDataProvider &input, std::deque<Deferred> &deferred)
        : m_input(input), m_deferred(deferred)
    {
        const uint8_t options = m_input.ConsumeIntegral<uint8_t>();
        static constexpr size_t pieceLimits[] = {1, 7, 64, 1 << 16};
        m_maxPiece = pieceLimits[options & 3];
        if (options & 4)
            m_writeLimit = m_input.ConsumeIntegralInRange<qsizetype>(0, 4096);
    }

    HTTPConnection *connection = nullptr;

    Readiness wait(bool wantInput, std::optional<std::chrono::milliseconds> timeout) override
    {
        check(!m_closed);
        Readiness ready;
        for (;;) {
            if (m_woken) {
                m_woken = false;
                ready.woken = true;
                return ready;
            }
            if (wantInput && (!m_pending.isEmpty() || m_ended)) {
                ready.input = true;
                return ready;
            }
            if (m_input.remaining_bytes() == 0) {
                // The script is over: deferred calls finish, then the client goes.
                if (!m_deferred.empty()) {
                    finishOldest();
                } else if (wantInput) {
                    m_ended = true;
                } else if (timeout) {
                    ready.timedOut = true;
                    return ready;
                } else {
                    ready.failed = true; // nothing could ever wake it
                    return ready;
                }
                continue;
            }
            switch (m_input.ConsumeIntegralInRange<int>(0, 9)) {
            case 6:
                finishOldest();
                break;
            case 7:
                if (timeout) {
                    ready.timedOut = true;
                    return ready;
                }
                break;
            case 8:
                m_ended = true;
                break;
            case 9:
                connection->shutDown();
                break;
            default:
                if (m_pending.isEmpty() && !m_ended)
                    m_pending = QByteArray::fromStdString(
                        m_input.ConsumeBytesAsString(m_input.ConsumeIntegralInRange<size_t>(1, m_maxPiece)));
                break;
            }
        }
    }

    qsizetype read(char *data, qsizetype capacity) override
    {
        check(!m_closed);
        if (m_pending.isEmpty())
            return m_ended ? 0 : -1;
        const qsizetype n = qMin(capacity, m_pending.size());
        memcpy(data, m_pending.constData(), size_t(n));
        m_pending.remove(0, n);
        return n;
    }

    bool write(QByteArrayView bytes, const std::function<bool()> &abandon) override
    {
        check(!m_closed && !m_writeShut);
        check(bytes.startsWith("HTTP/1.1 "));
        m_written += bytes.size();
        if (m_writeLimit && m_written > *m_writeLimit) {
            // The client stopped reading and then went; a shutdown may have come meanwhile.
            if (std::exchange(m_woken, false))
                (void)abandon();
            return false;
        }
        return true;
    }

    void shutdownWrite() override
    {
        check(!m_closed);
        m_writeShut = true;
    }
    void close() override { m_closed = true; }
    void wake() override { m_woken = true; }

private:
    void finishOldest()
    {
        if (m_deferred.empty())
            return;
        const Deferred done = std::move(m_deferred.front());
        m_deferred.pop_front();
        done(MCPToolResult::text(QStringLiteral("later")));
    }

    FuzzedDataProvider &m_input;
    std::deque<Deferred> &m_deferred;
    size_t m_maxPiece = 1;
    std::optional<qsizetype> m_writeLimit;
    QByteArray m_pending;
    qsizetype m_written = 0;
    bool m_ended = false;
    bool m_woken = false;
    bool m_writeShut = false;
    bool m_closed = false;
};

void registerTools(MCPServer &server, std::deque<Deferred> &deferred)
{
    const JSONValue schema{{QStringLiteral("type"), "object"}};
    server.registerTool(MCPTool{
        QStringLiteral("echo"), std::nullopt, QStringLiteral("Echo."), schema, std::nullopt,
        [](const JSONValue &arguments, const MCPRequestContext &, std::stop_token, MCPTool::Completion done) {
            done(MCPToolResult::text(arguments[u"text"].stringValue().value_or(QString())));
        }});
    server.registerTool(
        MCPTool{QStringLiteral("later"), std::nullopt, QStringLiteral("Answers later."), schema, std::nullopt,
                [&deferred](const JSONValue &, const MCPRequestContext &, std::stop_token,
                            MCPTool::Completion done) { deferred.push_back(std::move(done)); }});
    server.registerTool(MCPTool{QStringLiteral("throw"), std::nullopt, QStringLiteral("Throws."), schema,
                                std::nullopt,
                                [](const JSONValue &, const MCPRequestContext &, std::stop_token,
                                   MCPTool::Completion) { throw std::runtime_error("thrown"); }});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider input(data, size);
    std::deque<Deferred> deferred;
    MCPServer server(QStringLiteral("fuzz"), QStringLiteral("1"), std::nullopt, QStringLiteral("t"));
    registerTools(server, deferred);
    const qint64 maxBody =
        input.ConsumeBool() ? input.ConsumeIntegralInRange<qint64>(0, 300) : MCPServer::maxRequestBodyBytes;

    auto transport = std::make_shared<ScriptedTransport>(input, deferred);
    int closes = 0;
    {
        HTTPConnection connection(
            transport, maxBody,
            [&server](HTTPRequest request, std::stop_token stop, HTTPConnection::Completion done) {
                server.respond(std::move(request), std::move(stop), std::move(done));
            },
            [&closes](HTTPConnection *) { ++closes; });
        transport->connection = &connection;
        connection.run();
        check(closes == 1);
        // Calls that finish after the close are dropped.
        while (!deferred.empty()) {
            const Deferred done = std::move(deferred.front());
            deferred.pop_front();
            done(MCPToolResult::text(QStringLiteral("late")));
        }
        transport->connection = nullptr;
    }
    check(closes == 1);
    return 0;
}
