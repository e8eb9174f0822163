// The in-process MCP server over Streamable HTTP, reduced to what tool use needs: JSON-RPC 2.0 over
// POST, no event stream and no server-initiated messages. It listens on 127.0.0.1 behind a bearer
// token, an origin check and session ids. Its state is guarded by one lock that no tool handler runs
// under; handlers run on the connections' threads and answer whenever they are done.
#pragma once

#include "HTTPConnection.h"
#include "MCPServerError.h"
#include "MCPTool.h"

#include <QStringList>
#include <QUrl>

#include <memory>
#include <optional>
#include <variant>

class MCPServer {
public:
    static const QStringList &supportedProtocolVersions();
    static QString fallbackProtocolVersion() { return QStringLiteral("2025-06-18"); }
    static constexpr qint64 maxRequestBodyBytes = 20 * 1024 * 1024;
    static constexpr int maxSessions = 256;

    MCPServer(QString name, QString version, std::optional<QString> instructions, QString token);
    // Stops: running calls are cancelled and the server's threads are waited for.
    ~MCPServer();
    MCPServer(const MCPServer &) = delete;
    MCPServer &operator=(const MCPServer &) = delete;

    // 64 lower-case hex digits from 32 bytes of the system's secure generator.
    static QString makeToken();
    static QString randomHex(int byteCount);
    // The checks in front of every request.
    static bool isLoopbackOrigin(const QString &origin);
    static bool isAuthorized(const QString &authorization, const QString &token);
    // The path of a request target, also of one in absolute form ("http://host:port/mcp"), without
    // query or fragment. It is not percent-decoded: clients send the URL they were given, so "/%6Dcp"
    // is not "/mcp".
    static QString requestPath(const QString &target);

    // A new name goes last in tools/list; a known name is replaced in its place.
    void registerTool(MCPTool tool);
    void unregisterTool(const QString &name);

    // Listens on 127.0.0.1:port (0: any free port) and returns "http://127.0.0.1:<port>/mcp". Once
    // listening, returns the same URL again.
    std::variant<QUrl, MCPServerError> start(quint16 port = 0);
    // Cancels every running call and forgets all sessions; the server may be started again.
    void stop();

    std::optional<QUrl> url() const;
    const QString &token() const;
    int sessionCount() const;
    bool hasSession(const QString &id) const;

    // The handler of the HTTP server: answers one request through `done`.
    void respond(HTTPRequest request, std::stop_token cancelled, HTTPConnection::Completion done);

private:
    struct Core;
    std::shared_ptr<Core> m_core;
};
