#include "MCPServer.h"

#include "LoopbackHTTPServer.h"

#include <QRandomGenerator>

#include <atomic>
#include <chrono>
#include <map>
#include <mutex>

namespace {

using Clock = std::chrono::steady_clock;

const QString jsonType = QStringLiteral("application/json");

// One decoded JSON-RPC message.
struct Incoming {
    enum class Kind { Request, Notification, Invalid, Response };
    Kind kind = Kind::Invalid;
    JSONValue id;
    QString method;
    std::optional<JSONValue> params;

    static Incoming decode(const JSONValue &json)
    {
        Incoming in;
        if (!json.objectValue())
            return in;
        const JSONValue *id = json.find(u"id");
        const bool hasID =
            id && (id->kind() == JSONValue::Kind::Number || id->kind() == JSONValue::Kind::String);
        if (hasID)
            in.id = *id;
        if (json[u"jsonrpc"].stringValue() != QStringLiteral("2.0"))
            return in;
        if (const std::optional<QString> method = json[u"method"].stringValue()) {
            in.kind = hasID ? Kind::Request : Kind::Notification;
            in.method = *method;
            if (const JSONValue *params = json.find(u"params"))
                in.params = *params;
            return in;
        }
        if (json.contains(u"result") || json.contains(u"error"))
            in.kind = Kind::Response;
        return in;
    }
};

JSONValue errorObject(const JSONValue &id, int code, const QString &message)
{
    return JSONValue{{QStringLiteral("jsonrpc"), "2.0"},
                     {QStringLiteral("id"), id},
                     {QStringLiteral("error"),
                      JSONValue{{QStringLiteral("code"), code}, {QStringLiteral("message"), message}}}};
}

JSONValue resultObject(const JSONValue &id, JSONValue result)
{
    return JSONValue{{QStringLiteral("jsonrpc"), "2.0"},
                     {QStringLiteral("id"), id},
                     {QStringLiteral("result"), std::move(result)}};
}

HTTPResponse jsonResponse(int status, const JSONValue &body)
{
    HTTPResponse response;
    response.status = status;
    response.headers.append({QStringLiteral("Content-Type"), jsonType});
    response.body = body.serialized();
    return response;
}

HTTPResponse refusal(int status, int code, const QString &message)
{
    return jsonResponse(status, errorObject(JSONValue(), code, message));
}

// Equal lengths and then every byte pair, with no early exit, so timing tells nothing of the token.
bool constantTimeEqual(const QByteArray &a, const QByteArray &b)
{
    if (a.size() != b.size())
        return false;
    unsigned char sum = 0;
    for (qsizetype i = 0; i < a.size(); ++i)
        sum |= static_cast<unsigned char>(a[i] ^ b[i]);
    return sum == 0;
}

} // namespace

struct MCPServer::Core : std::enable_shared_from_this<Core> {
    struct Session {
        std::optional<QString> clientName;
        std::optional<QString> clientVersion;
        QString protocolVersion;
        Clock::time_point lastUsed;
    };
    struct RunningCall {
        quint64 ticket = 0;
        std::optional<QString> session;
        std::shared_ptr<std::stop_source> stop;
    };
    // What one reply adds to the answer besides its object.
    struct Reply {
        JSONValue object;
        std::optional<QString> createdSession;
    };
    using ReplyDone = std::function<void(Reply)>;

    QString name;
    QString version;
    std::optional<QString> instructions;
    QString token;

    mutable std::mutex mutex; // guards everything below
    std::map<QString, MCPTool> tools;
    QStringList toolOrder;
    std::map<QString, Session> sessions;
    std::map<QString, RunningCall> calls; // by callKey()
    quint64 nextTicket = 0;
    std::shared_ptr<LoopbackHTTPServer> http;
    std::optional<QUrl> url;

    static QString callKey(const std::optional<QString> &session, const JSONValue &id)
    {
        return (session ? QStringLiteral("s") + *session : QStringLiteral("-")) + u' ' +
               id.serializedString();
    }

    void respond(const HTTPRequest &request, std::stop_token cancelled, HTTPConnection::Completion done);
    void handlePost(const HTTPRequest &request, std::stop_token cancelled, HTTPConnection::Completion done);
    HTTPResponse handleDelete(const HTTPRequest &request);
    void reply(const Incoming &in, const std::optional<QString> &session, std::stop_token cancelled,
               ReplyDone done);
    Reply initialize(const Incoming &in);
    JSONValue toolListing() const;
    void callTool(const Incoming &in, const std::optional<QString> &session, std::stop_token cancelled,
                  ReplyDone done);
    bool endSession(const QString &id);
};

const QStringList &MCPServer::supportedProtocolVersions()
{
    static const QStringList versions{QStringLiteral("2025-11-25"), QStringLiteral("2025-06-18"),
                                      QStringLiteral("2025-03-26"), QStringLiteral("2024-11-05")};
    return versions;
}

MCPServer::MCPServer(QString name, QString version, std::optional<QString> instructions, QString token)
    : m_core(std::make_shared<Core>())
{
    m_core->name = std::move(name);
    m_core->version = std::move(version);
    m_core->instructions = std::move(instructions);
    m_core->token = std::move(token);
}

MCPServer::~MCPServer()
{
    stop();
}

QString MCPServer::randomHex(int byteCount)
{
    QByteArray bytes(qMax(0, byteCount), Qt::Uninitialized);
    QRandomGenerator *generator = QRandomGenerator::system();
    for (char &b : bytes)
        b = char(generator->bounded(256));
    return QString::fromLatin1(bytes.toHex());
}

QString MCPServer::makeToken()
{
    return randomHex(32);
}

bool MCPServer::isLoopbackOrigin(const QString &origin)
{
    const QUrl url(origin, QUrl::StrictMode);
    if (!url.isValid())
        return false;
    const QString scheme = url.scheme().toLower();
    if (scheme != u"http" && scheme != u"https")
        return false;
    if (!url.userName().isEmpty() || !url.password().isEmpty() || origin.contains(u'@'))
        return false;
    if (!url.path().isEmpty() && url.path() != u"/")
        return false;
    const QString host = url.host().toLower();
    return host == u"127.0.0.1" || host == u"localhost" || host == u"::1" || host == u"[::1]";
}

bool MCPServer::isAuthorized(const QString &authorization, const QString &token)
{
    if (token.isEmpty() || authorization.isEmpty())
        return false;
    const QString trimmed = authorization.trimmed();
    const qsizetype space = trimmed.indexOf(u' ');
    if (space < 0 || trimmed.first(space).toLower() != u"bearer")
        return false;
    return constantTimeEqual(trimmed.sliced(space + 1).trimmed().toUtf8(), token.toUtf8());
}

QString MCPServer::requestPath(const QString &target)
{
    QStringView path = target;
    // Only a target that starts with "http://" or "https://" is in absolute form; a "://" anywhere
    // else (in a query, or in a path segment) is part of an ordinary path.
    for (const QStringView scheme : {u"http://", u"https://"}) {
        if (path.startsWith(scheme, Qt::CaseInsensitive)) {
            path = path.sliced(scheme.size());
            qsizetype authorityEnd = 0;
            while (authorityEnd < path.size() && path[authorityEnd] != u'/' && path[authorityEnd] != u'?' &&
                   path[authorityEnd] != u'#')
                ++authorityEnd;
            path = path.sliced(authorityEnd);
            break;
        }
    }
    for (qsizetype i = 0; i < path.size(); ++i) {
        if (path[i] == u'?' || path[i] == u'#')
            return path.first(i).toString();
    }
    return path.toString();
}

void MCPServer::registerTool(MCPTool tool)
{
    std::lock_guard lock(m_core->mutex);
    if (m_core->tools.find(tool.name) == m_core->tools.end())
        m_core->toolOrder.append(tool.name);
    const QString name = tool.name;
    m_core->tools.insert_or_assign(name, std::move(tool));
}

void MCPServer::unregisterTool(const QString &name)
{
    std::lock_guard lock(m_core->mutex);
    m_core->tools.erase(name);
    m_core->toolOrder.removeAll(name);
}

std::variant<QUrl, MCPServerError> MCPServer::start(quint16 port)
{
    std::shared_ptr<LoopbackHTTPServer> server;
    {
        std::lock_guard lock(m_core->mutex);
        if (m_core->url)
            return *m_core->url;
        if (m_core->http)
            return MCPServerError::alreadyStarting();
        std::weak_ptr<Core> weak = m_core;
        server = std::make_shared<LoopbackHTTPServer>(
            maxRequestBodyBytes, [weak](HTTPRequest request, std::stop_token cancelled, auto done) {
                if (const auto core = weak.lock())
                    core->respond(request, std::move(cancelled), std::move(done));
                else
                    done(HTTPResponse::plainText(503, QStringLiteral("Server stopped.\n")));
            });
        m_core->http = server;
    }
    const std::variant<quint16, MCPServerError> started = server->start(port);
    std::lock_guard lock(m_core->mutex);
    if (const auto *error = std::get_if<MCPServerError>(&started)) {
        if (m_core->http == server)
            m_core->http.reset();
        return *error;
    }
    if (m_core->http != server) {
        // stop() came in meanwhile.
        server->stop();
        return MCPServerError::stopped();
    }
    m_core->url = QUrl(QStringLiteral("http://127.0.0.1:%1/mcp").arg(std::get<quint16>(started)));
    return *m_core->url;
}

void MCPServer::stop()
{
    std::shared_ptr<LoopbackHTTPServer> server;
    std::map<QString, Core::RunningCall> calls;
    {
        std::lock_guard lock(m_core->mutex);
        server = std::move(m_core->http);
        m_core->http.reset();
        m_core->url.reset();
        calls.swap(m_core->calls);
        m_core->sessions.clear();
    }
    for (auto &[key, call] : calls)
        call.stop->request_stop();
    if (server)
        server->stop();
}

std::optional<QUrl> MCPServer::url() const
{
    std::lock_guard lock(m_core->mutex);
    return m_core->url;
}

const QString &MCPServer::token() const
{
    return m_core->token;
}

int MCPServer::sessionCount() const
{
    std::lock_guard lock(m_core->mutex);
    return int(m_core->sessions.size());
}

bool MCPServer::hasSession(const QString &id) const
{
    std::lock_guard lock(m_core->mutex);
    return m_core->sessions.count(id) > 0;
}

void MCPServer::respond(HTTPRequest request, std::stop_token cancelled, HTTPConnection::Completion done)
{
    m_core->respond(request, std::move(cancelled), std::move(done));
}

void MCPServer::Core::respond(const HTTPRequest &request, std::stop_token cancelled,
                              HTTPConnection::Completion done)
{
    if (request.hasHeader(u"origin")) {
        const QString origin = request.header(u"origin");
        if (!isLoopbackOrigin(origin))
            return done(
                refusal(403, -32000, QStringLiteral("Forbidden: origin %1 is not allowed.").arg(origin)));
    }
    const QString path = requestPath(request.target);
    if (path != u"/mcp" && path != u"/mcp/")
        return done(refusal(404, -32000, QStringLiteral("Not found.")));
    if (!isAuthorized(request.header(u"authorization"), token)) {
        HTTPResponse response = refusal(401, -32000, QStringLiteral("Unauthorized."));
        response.headers.append(
            {QStringLiteral("WWW-Authenticate"), QStringLiteral("Bearer realm=\"vesk\"")});
        return done(std::move(response));
    }
    if (request.method == u"POST")
        return handlePost(request, std::move(cancelled), std::move(done));
    if (request.method == u"DELETE")
        return done(handleDelete(request));
    HTTPResponse response = refusal(405, -32000, QStringLiteral("Method not allowed."));
    response.headers.append({QStringLiteral("Allow"), QStringLiteral("POST, DELETE")});
    done(std::move(response));
}

namespace {

std::optional<HTTPResponse> protocolVersionRefusal(const HTTPRequest &request)
{
    if (!request.hasHeader(u"mcp-protocol-version"))
        return std::nullopt;
    const QString version = request.header(u"mcp-protocol-version");
    if (MCPServer::supportedProtocolVersions().contains(version))
        return std::nullopt;
    return refusal(400, -32000, QStringLiteral("Unsupported MCP-Protocol-Version: %1").arg(version));
}

} // namespace

HTTPResponse MCPServer::Core::handleDelete(const HTTPRequest &request)
{
    if (auto refused = protocolVersionRefusal(request))
        return *refused;
    if (!request.hasHeader(u"mcp-session-id"))
        return refusal(400, -32000, QStringLiteral("Missing Mcp-Session-Id header."));
    if (!endSession(request.header(u"mcp-session-id")))
        return refusal(404, -32001, QStringLiteral("Session not found."));
    HTTPResponse response;
    response.status = 200;
    return response;
}

bool MCPServer::Core::endSession(const QString &id)
{
    std::vector<std::shared_ptr<std::stop_source>> cancelled;
    {
        std::lock_guard lock(mutex);
        if (sessions.erase(id) == 0)
            return false;
        for (auto it = calls.begin(); it != calls.end();) {
            if (it->second.session == id) {
                cancelled.push_back(it->second.stop);
                it = calls.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const auto &stop : cancelled)
        stop->request_stop();
    return true;
}

void MCPServer::Core::handlePost(const HTTPRequest &request, std::stop_token cancelled,
                                 HTTPConnection::Completion done)
{
    if (auto refused = protocolVersionRefusal(request))
        return done(std::move(*refused));
    const std::optional<JSONValue> body = JSONValue::parse(QByteArrayView(request.body));
    if (!body)
        return done(refusal(400, -32700, QStringLiteral("Parse error.")));

    QList<Incoming> messages;
    const bool batch = body->arrayValue() != nullptr;
    if (body->objectValue()) {
        messages.append(Incoming::decode(*body));
    } else if (batch && !body->arrayValue()->isEmpty()) {
        for (const JSONValue &element : *body->arrayValue())
            messages.append(Incoming::decode(element));
    } else {
        return done(refusal(400, -32600, QStringLiteral("Invalid request.")));
    }

    const bool initializing = std::any_of(messages.begin(), messages.end(), [](const Incoming &in) {
        return in.kind == Incoming::Kind::Request && in.method == u"initialize";
    });

    std::optional<QString> session;
    if (request.hasHeader(u"mcp-session-id") && !initializing) {
        const QString id = request.header(u"mcp-session-id");
        std::lock_guard lock(mutex);
        const auto it = sessions.find(id);
        if (it == sessions.end())
            return done(refusal(404, -32001, QStringLiteral("Session not found.")));
        it->second.lastUsed = Clock::now();
        session = id;
    }

    QList<Incoming> work;
    for (const Incoming &in : messages) {
        if (in.kind == Incoming::Kind::Notification && in.method == u"notifications/cancelled") {
            const JSONValue *params = in.params ? in.params->find(u"requestId") : nullptr;
            if (!params ||
                (params->kind() != JSONValue::Kind::Number && params->kind() != JSONValue::Kind::String))
                continue;
            std::shared_ptr<std::stop_source> stop;
            {
                std::lock_guard lock(mutex);
                const auto it = calls.find(callKey(session, *params));
                if (it != calls.end()) {
                    stop = it->second.stop;
                    calls.erase(it);
                }
            }
            if (stop)
                stop->request_stop();
        } else if (in.kind == Incoming::Kind::Request || in.kind == Incoming::Kind::Invalid) {
            work.append(in);
        }
    }
    if (work.isEmpty()) {
        HTTPResponse accepted;
        accepted.status = 202;
        return done(std::move(accepted));
    }

    // The replies may finish on any thread and in any order; the last one answers.
    struct Gather {
        std::mutex mutex;
        QList<JSONValue> objects;
        std::optional<QString> session;
        int remaining = 0;
        bool batch = false;
        bool invalidAlone = false;
        HTTPConnection::Completion done;
    };
    auto gather = std::make_shared<Gather>();
    gather->objects.resize(work.size());
    gather->session = session;
    gather->remaining = int(work.size());
    gather->batch = batch;
    gather->invalidAlone = !batch && work.front().kind == Incoming::Kind::Invalid;
    gather->done = std::move(done);

    for (qsizetype index = 0; index < work.size(); ++index) {
        reply(work[index], session, cancelled, [gather, index](Reply reply) {
            {
                std::lock_guard lock(gather->mutex);
                gather->objects[index] = std::move(reply.object);
                if (reply.createdSession)
                    gather->session = reply.createdSession;
                if (--gather->remaining > 0)
                    return;
            }
            HTTPResponse response =
                jsonResponse(gather->invalidAlone ? 400 : 200,
                             gather->batch ? JSONValue(gather->objects) : gather->objects.front());
            if (gather->session)
                response.headers.append({QStringLiteral("Mcp-Session-Id"), *gather->session});
            gather->done(std::move(response));
        });
    }
}

void MCPServer::Core::reply(const Incoming &in, const std::optional<QString> &session,
                            std::stop_token cancelled, ReplyDone done)
{
    if (in.kind == Incoming::Kind::Invalid)
        return done({errorObject(in.id, -32600, QStringLiteral("Invalid request.")), {}});
    if (in.params && !in.params->objectValue() && !in.params->isNull())
        return done({errorObject(in.id, -32602, QStringLiteral("Invalid params: expected an object.")), {}});
    if (in.method == u"initialize")
        return done(initialize(in));
    if (in.method == u"ping")
        return done({resultObject(in.id, JSONValue(JSONValue::Object())), {}});
    if (in.method == u"tools/list")
        return done({resultObject(in.id, JSONValue{{QStringLiteral("tools"), toolListing()}}), {}});
    if (in.method == u"tools/call")
        return callTool(in, session, std::move(cancelled), std::move(done));
    done({errorObject(in.id, -32601, QStringLiteral("Method not found: %1").arg(in.method)), {}});
}

MCPServer::Core::Reply MCPServer::Core::initialize(const Incoming &in)
{
    const JSONValue params = in.params.value_or(JSONValue());
    Session session;
    const std::optional<QString> asked = params[u"protocolVersion"].stringValue();
    // A client that asks for a version we do not know is answered with ours, not refused.
    session.protocolVersion =
        asked && supportedProtocolVersions().contains(*asked) ? *asked : fallbackProtocolVersion();
    session.clientName = params[u"clientInfo"][u"name"].stringValue();
    session.clientVersion = params[u"clientInfo"][u"version"].stringValue();
    session.lastUsed = Clock::now();

    const QString id = randomHex(16);
    std::optional<QString> evicted;
    {
        std::lock_guard lock(mutex);
        if (int(sessions.size()) >= maxSessions) {
            auto oldest = sessions.begin();
            for (auto it = sessions.begin(); it != sessions.end(); ++it) {
                if (it->second.lastUsed < oldest->second.lastUsed)
                    oldest = it;
            }
            evicted = oldest->first;
        }
    }
    if (evicted)
        endSession(*evicted);
    {
        std::lock_guard lock(mutex);
        sessions[id] = session;
    }

    JSONValue::Object result{
        {QStringLiteral("protocolVersion"), session.protocolVersion},
        {QStringLiteral("capabilities"),
         JSONValue{{QStringLiteral("tools"), JSONValue{{QStringLiteral("listChanged"), false}}}}},
        {QStringLiteral("serverInfo"),
         JSONValue{{QStringLiteral("name"), name}, {QStringLiteral("version"), version}}}};
    if (instructions)
        result.emplace(QStringLiteral("instructions"), *instructions);
    return {resultObject(in.id, JSONValue(std::move(result))), id};
}

JSONValue MCPServer::Core::toolListing() const
{
    std::lock_guard lock(mutex);
    JSONValue::Array listing;
    listing.reserve(toolOrder.size());
    for (const QString &toolName : toolOrder) {
        const MCPTool &tool = tools.at(toolName);
        JSONValue::Object entry{{QStringLiteral("name"), tool.name},
                                {QStringLiteral("description"), tool.description},
                                {QStringLiteral("inputSchema"), tool.inputSchema}};
        if (tool.title)
            entry.emplace(QStringLiteral("title"), *tool.title);
        if (tool.annotations)
            entry.emplace(QStringLiteral("annotations"), *tool.annotations);
        listing.append(JSONValue(std::move(entry)));
    }
    return JSONValue(std::move(listing));
}

void MCPServer::Core::callTool(const Incoming &in, const std::optional<QString> &session,
                               std::stop_token cancelled, ReplyDone done)
{
    const JSONValue params = in.params.value_or(JSONValue());
    const std::optional<QString> toolName = params[u"name"].stringValue();
    if (!toolName)
        return done(
            {errorObject(in.id, -32602, QStringLiteral("Invalid params: tools/call needs a tool name.")),
             {}});
    JSONValue arguments = params[u"arguments"];
    if (arguments.isNull())
        arguments = JSONValue(JSONValue::Object());
    if (!arguments.objectValue())
        return done(
            {errorObject(in.id, -32602, QStringLiteral("Invalid params: arguments must be an object.")), {}});

    MCPTool::Handler handler;
    MCPRequestContext context;
    context.sessionID = session;
    const QString key = callKey(session, in.id);
    auto stop = std::make_shared<std::stop_source>();
    quint64 ticket = 0;
    bool stopped = false;
    {
        std::lock_guard lock(mutex);
        const auto tool = tools.find(*toolName);
        if (tool == tools.end())
            return done({errorObject(in.id, -32602, QStringLiteral("Unknown tool: %1").arg(*toolName)), {}});
        handler = tool->second.handler;
        if (session) {
            if (const auto s = sessions.find(*session); s != sessions.end())
                context.clientName = s->second.clientName;
        }
        ticket = ++nextTicket;
        calls[key] = RunningCall{ticket, session, stop};
        stopped = !http;
    }
    if (stopped)
        stop->request_stop();

    // The client going away cancels the tool's task too. The callback lives until the call ends.
    using Forward = std::stop_callback<std::function<void()>>;
    auto forward = std::make_shared<std::unique_ptr<Forward>>(
        std::make_unique<Forward>(cancelled, std::function<void()>([stop] { stop->request_stop(); })));

    std::weak_ptr<Core> weak = weak_from_this();
    auto answered = std::make_shared<std::atomic<bool>>(false);
    const JSONValue id = in.id;
    MCPTool::Completion finish = [weak, key, ticket, id, done, answered, forward](MCPToolResult result) {
        if (answered->exchange(true))
            return;
        if (const auto core = weak.lock()) {
            std::lock_guard lock(core->mutex);
            // A finished call never removes a newer one that reuses its id.
            const auto it = core->calls.find(key);
            if (it != core->calls.end() && it->second.ticket == ticket)
                core->calls.erase(it);
        }
        forward->reset();
        done({resultObject(id, result.json()), {}});
    };
    if (!handler) {
        finish(MCPToolResult::error(QStringLiteral("The tool %1 has no handler.").arg(*toolName)));
        return;
    }
    try {
        handler(arguments, context, stop->get_token(), finish);
    } catch (const std::exception &e) {
        finish(MCPToolResult::error(QStringLiteral("The tool failed: %1").arg(QString::fromUtf8(e.what()))));
    } catch (...) {
        finish(MCPToolResult::error(QStringLiteral("The tool failed.")));
    }
}
