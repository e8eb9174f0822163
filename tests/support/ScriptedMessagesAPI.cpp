#include "ScriptedMessagesAPI.h"

#include "HTTPRequestParser.h"
#include "HTTPResponse.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

using namespace std::chrono_literals;

namespace {

// An endless turn gives up after this, so a test that forgets to interrupt cannot hang.
constexpr auto endlessLimit = 120s;

QString pathOf(const QString &target)
{
    const qsizetype query = target.indexOf(u'?');
    return query < 0 ? target : target.left(query);
}

QByteArray sseEvent(const char *name, const JSONValue &data)
{
    return QByteArray("event: ") + name + "\ndata: " + data.serialized() + "\n\n";
}

HTTPResponse jsonResponse(int status, const JSONValue &body)
{
    HTTPResponse response;
    response.status = status;
    response.headers.append({QStringLiteral("Content-Type"), QStringLiteral("application/json")});
    response.body = body.serialized();
    return response;
}

JSONValue textMessage(const QString &model, const QString &text)
{
    return JSONValue{
        {QStringLiteral("id"), "msg_side"},
        {QStringLiteral("type"), "message"},
        {QStringLiteral("role"), "assistant"},
        {QStringLiteral("model"), model},
        {QStringLiteral("content"),
         JSONValue::array({JSONValue{{QStringLiteral("type"), "text"}, {QStringLiteral("text"), text}}})},
        {QStringLiteral("stop_reason"), "end_turn"},
        {QStringLiteral("stop_sequence"), nullptr},
        {QStringLiteral("usage"),
         JSONValue{{QStringLiteral("input_tokens"), 5}, {QStringLiteral("output_tokens"), 5}}}};
}

} // namespace

ScriptedMessagesAPI::Turn ScriptedMessagesAPI::Turn::text(QStringList chunks,
                                                          std::chrono::milliseconds deltaDelay)
{
    Turn turn;
    turn.blocks.append(Block::text(std::move(chunks)));
    turn.deltaDelay = deltaDelay;
    return turn;
}

ScriptedMessagesAPI::Turn ScriptedMessagesAPI::Turn::toolUse(QString id, QString name, JSONValue input,
                                                             QString leadText)
{
    Turn turn;
    if (!leadText.isEmpty())
        turn.blocks.append(Block::text({std::move(leadText)}));
    turn.blocks.append(Block::toolUse(std::move(id), std::move(name), std::move(input)));
    turn.stopReason = QStringLiteral("tool_use");
    return turn;
}

ScriptedMessagesAPI::Turn ScriptedMessagesAPI::Turn::endlessText(QString chunk,
                                                                 std::chrono::milliseconds interval)
{
    Turn turn = text({std::move(chunk)}, interval);
    turn.endless = true;
    return turn;
}

QString ScriptedMessagesAPI::Request::header(const char *name) const
{
    const auto it = headers.find(QString::fromLatin1(name));
    return it == headers.end() ? QString() : it->second;
}

QString ScriptedMessagesAPI::Request::systemText() const
{
    const JSONValue system = body[u"system"];
    if (const auto text = system.stringValue())
        return *text;
    QStringList parts;
    if (const JSONValue::Array *blocks = system.arrayValue()) {
        for (const JSONValue &block : *blocks)
            if (const auto text = block[u"text"].stringValue())
                parts.append(*text);
    }
    return parts.join(u'\n');
}

QStringList ScriptedMessagesAPI::Request::toolNames() const
{
    QStringList names;
    if (const JSONValue::Array *tools = body[u"tools"].arrayValue()) {
        for (const JSONValue &tool : *tools)
            names.append(tool[u"name"].stringValue().value_or(QString()));
    }
    return names;
}

struct ScriptedMessagesAPI::State {
    int listenFD = -1;
    int wakeRead = -1; // readable for every poller once stop() writes to wakeWrite
    int wakeWrite = -1;
    quint16 port = 0;
    std::atomic<bool> stopping{false};

    mutable std::mutex mutex;
    std::deque<Turn> turns;
    int turnsServed = 0;
    QList<Request> requests;
    int abandoned = 0;
    std::vector<int> connections;

    std::mutex threadsMutex;
    std::vector<std::thread> threads;

    void acceptLoop();
    void serve(int fd);
    // False when the client is gone or the server stops.
    bool sendAll(int fd, QByteArrayView bytes);
    // Waits up to `delay`; false when the client closed its end or the server stops.
    bool pause(int fd, std::chrono::milliseconds delay);
    // False when the connection must close.
    bool answer(int fd, const HTTPRequest &request);
    bool stream(int fd, const Turn &turn, const QString &model, int index);
};

bool ScriptedMessagesAPI::State::sendAll(int fd, QByteArrayView bytes)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        if (stopping)
            return false;
        const ssize_t n = ::send(fd, bytes.data() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        sent += n;
    }
    return true;
}

bool ScriptedMessagesAPI::State::pause(int fd, std::chrono::milliseconds delay)
{
    const auto until = std::chrono::steady_clock::now() + delay;
    for (;;) {
        if (stopping)
            return false;
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        pollfd fds[2] = {{fd, POLLIN | POLLRDHUP, 0}, {wakeRead, POLLIN, 0}};
        const int ready = ::poll(fds, 2, int(std::max<qint64>(0, left.count())));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return ready == 0;
        if (fds[1].revents)
            return false;
        if (fds[0].revents & (POLLRDHUP | POLLHUP | POLLERR))
            return false;
        // The client may pipeline its next request; it waits in the socket until this stream ends.
        if (left.count() <= 0)
            return true;
        std::this_thread::sleep_for(std::min(left, 5ms));
    }
}

bool ScriptedMessagesAPI::State::stream(int fd, const Turn &turn, const QString &model, int index)
{
    const QString messageID = QStringLiteral("msg_scripted_%1").arg(index);
    QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-cache\r\n"
                      "request-id: req_scripted\r\nConnection: close\r\n\r\n";
    head += sseEvent(
        "message_start",
        JSONValue{{QStringLiteral("type"), "message_start"},
                  {QStringLiteral("message"),
                   JSONValue{{QStringLiteral("id"), messageID},
                             {QStringLiteral("type"), "message"},
                             {QStringLiteral("role"), "assistant"},
                             {QStringLiteral("content"), JSONValue::Array{}},
                             {QStringLiteral("model"), model},
                             {QStringLiteral("stop_reason"), nullptr},
                             {QStringLiteral("stop_sequence"), nullptr},
                             {QStringLiteral("usage"), JSONValue{{QStringLiteral("input_tokens"), 10},
                                                                 {QStringLiteral("output_tokens"), 1}}}}}});
    head += sseEvent("ping", JSONValue{{QStringLiteral("type"), "ping"}});
    if (!sendAll(fd, head))
        return false;

    bool firstDelta = true;
    // Each delta after the first waits for the turn's delay; a client that leaves meanwhile ends it.
    const auto delta = [&](int blockIndex, const JSONValue &payload) {
        if (!firstDelta && turn.deltaDelay.count() > 0 && !pause(fd, turn.deltaDelay))
            return false;
        firstDelta = false;
        return sendAll(
            fd, sseEvent("content_block_delta", JSONValue{{QStringLiteral("type"), "content_block_delta"},
                                                          {QStringLiteral("index"), blockIndex},
                                                          {QStringLiteral("delta"), payload}}));
    };
    const auto textDelta = [](const QString &text) {
        return JSONValue{{QStringLiteral("type"), "text_delta"}, {QStringLiteral("text"), text}};
    };

    for (int i = 0; i < turn.blocks.size(); ++i) {
        const Block &block = turn.blocks[i];
        const JSONValue start =
            block.kind == Block::Kind::Text
                ? JSONValue{{QStringLiteral("type"), "text"}, {QStringLiteral("text"), ""}}
                : JSONValue{{QStringLiteral("type"), "tool_use"},
                            {QStringLiteral("id"), block.id},
                            {QStringLiteral("name"), block.name},
                            {QStringLiteral("input"), JSONValue::Object{}}};
        if (!sendAll(
                fd, sseEvent("content_block_start", JSONValue{{QStringLiteral("type"), "content_block_start"},
                                                              {QStringLiteral("index"), i},
                                                              {QStringLiteral("content_block"), start}})))
            return false;
        if (block.kind == Block::Kind::Text) {
            for (const QString &chunk : block.chunks)
                if (!delta(i, textDelta(chunk)))
                    return false;
            if (turn.endless) {
                const auto until = std::chrono::steady_clock::now() + endlessLimit;
                while (std::chrono::steady_clock::now() < until)
                    if (!delta(i, textDelta(block.chunks.value(0))))
                        return false;
            }
        } else {
            const QString json = block.input.serializedString();
            const qsizetype half = json.size() / 2;
            for (const QString &part : {json.left(half), json.mid(half)})
                if (!delta(i, JSONValue{{QStringLiteral("type"), "input_json_delta"},
                                        {QStringLiteral("partial_json"), part}}))
                    return false;
        }
        if (!sendAll(fd,
                     sseEvent("content_block_stop", JSONValue{{QStringLiteral("type"), "content_block_stop"},
                                                              {QStringLiteral("index"), i}})))
            return false;
    }
    QByteArray tail = sseEvent(
        "message_delta",
        JSONValue{{QStringLiteral("type"), "message_delta"},
                  {QStringLiteral("delta"), JSONValue{{QStringLiteral("stop_reason"), turn.stopReason},
                                                      {QStringLiteral("stop_sequence"), nullptr}}},
                  {QStringLiteral("usage"), JSONValue{{QStringLiteral("output_tokens"), 12}}}});
    tail += sseEvent("message_stop", JSONValue{{QStringLiteral("type"), "message_stop"}});
    return sendAll(fd, tail);
}

bool ScriptedMessagesAPI::State::answer(int fd, const HTTPRequest &request)
{
    Request record;
    record.method = request.method;
    record.target = request.target;
    for (const auto &[name, value] : request.headers)
        record.headers.emplace(name, value);
    record.body = JSONValue::parse(QByteArrayView(request.body)).value_or(JSONValue());

    const QString path = pathOf(request.target);
    const bool post = request.method == u"POST";
    if (post && path == u"/v1/messages/count_tokens")
        record.kind = Kind::CountTokens;
    else if (post && path == u"/v1/messages")
        record.kind = record.body[u"stream"].boolValue().value_or(false) && record.body.contains(u"tools")
                          ? Kind::Turn
                          : Kind::Side;

    Turn turn = Turn::text({QString::fromLatin1(fallbackText)});
    int index = -1;
    {
        std::lock_guard lock(mutex);
        if (record.kind == Kind::Turn) {
            index = turnsServed++;
            record.turn = index;
            if (!turns.empty()) {
                turn = std::move(turns.front());
                turns.pop_front();
            }
        }
        requests.append(record);
    }

    const QString model = record.body[u"model"].stringValue().value_or(QStringLiteral("claude-scripted"));
    const bool keepAlive = request.keepAlive();
    switch (record.kind) {
    case Kind::Turn: {
        const bool finished = stream(fd, turn, model, index);
        if (!finished && !stopping) {
            std::lock_guard lock(mutex);
            ++abandoned;
        }
        return false;
    }
    case Kind::Side:
        if (record.body[u"stream"].boolValue().value_or(false)) {
            stream(fd, Turn::text({QStringLiteral("Side answer.")}), model, -1);
            return false;
        }
        return sendAll(fd, jsonResponse(200, textMessage(model, QStringLiteral("Side answer.")))
                               .serialized(keepAlive)) &&
               keepAlive;
    case Kind::CountTokens:
        return sendAll(fd, jsonResponse(200, JSONValue{{QStringLiteral("input_tokens"), 42}})
                               .serialized(keepAlive)) &&
               keepAlive;
    case Kind::Other:
        break;
    }
    const HTTPResponse notFound = jsonResponse(
        404, JSONValue{{QStringLiteral("type"), "error"},
                       {QStringLiteral("error"), JSONValue{{QStringLiteral("type"), "not_found_error"},
                                                           {QStringLiteral("message"), "Not found."}}}});
    return sendAll(fd, notFound.serialized(keepAlive, request.method != u"HEAD")) && keepAlive;
}

void ScriptedMessagesAPI::State::serve(int fd)
{
    HTTPRequestParser parser(64 * 1024 * 1024);
    char buffer[65536];
    bool open = true;
    while (open && !stopping) {
        pollfd fds[2] = {{fd, POLLIN, 0}, {wakeRead, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (fds[1].revents)
            break;
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        parser.append(QByteArrayView(buffer, n));
        for (;;) {
            if (parser.continuePending()) {
                parser.clearContinuePending();
                sendAll(fd, HTTPResponse::continueLine());
            }
            HTTPRequestParser::Next next = parser.next();
            if (std::holds_alternative<HTTPRequestParser::NeedMore>(next))
                break;
            if (const auto *error = std::get_if<HTTPParseError>(&next)) {
                sendAll(fd, HTTPResponse::plainText(error->status, error->message).serialized(false));
                open = false;
                break;
            }
            if (!answer(fd, std::get<HTTPRequest>(next))) {
                open = false;
                break;
            }
        }
    }
    std::lock_guard lock(mutex);
    std::erase(connections, fd);
    ::close(fd);
}

void ScriptedMessagesAPI::State::acceptLoop()
{
    while (!stopping) {
        pollfd fds[2] = {{listenFD, POLLIN, 0}, {wakeRead, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (fds[1].revents)
            return;
        const int fd = ::accept4(listenFD, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            continue;
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        {
            std::lock_guard lock(mutex);
            connections.push_back(fd);
        }
        std::lock_guard lock(threadsMutex);
        threads.emplace_back([this, fd] { serve(fd); });
    }
}

ScriptedMessagesAPI::ScriptedMessagesAPI() : m_state(std::make_shared<State>()) {}

ScriptedMessagesAPI::~ScriptedMessagesAPI()
{
    stop();
}

Result<quint16> ScriptedMessagesAPI::start()
{
    State &s = *m_state;
    if (s.listenFD >= 0)
        return s.port;
    int wake[2];
    if (::pipe2(wake, O_CLOEXEC) != 0)
        return Failure{QStringLiteral("Cannot make a pipe: %1").arg(QString::fromLocal8Bit(strerror(errno)))};
    s.wakeRead = wake[0];
    s.wakeWrite = wake[1];
    s.listenFD = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (s.listenFD < 0 || ::bind(s.listenFD, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(s.listenFD, 64) != 0 ||
        ::getsockname(s.listenFD, reinterpret_cast<sockaddr *>(&address), &length) != 0)
        return Failure{
            QStringLiteral("Cannot listen on 127.0.0.1: %1").arg(QString::fromLocal8Bit(strerror(errno)))};
    s.port = ntohs(address.sin_port);
    std::lock_guard lock(s.threadsMutex);
    s.threads.emplace_back([state = m_state.get()] { state->acceptLoop(); });
    return s.port;
}

void ScriptedMessagesAPI::stop()
{
    State &s = *m_state;
    if (s.stopping.exchange(true) || s.listenFD < 0)
        return;
    const char byte = 1;
    (void)!::write(s.wakeWrite, &byte, 1);
    {
        std::lock_guard lock(s.mutex);
        for (int fd : s.connections)
            ::shutdown(fd, SHUT_RDWR);
    }
    // Joined outside the lock: the acceptor may still be adding a thread.
    for (;;) {
        std::vector<std::thread> threads;
        {
            std::lock_guard lock(s.threadsMutex);
            threads.swap(s.threads);
        }
        if (threads.empty())
            break;
        for (std::thread &thread : threads)
            thread.join();
    }
    ::close(s.listenFD);
    ::close(s.wakeRead);
    ::close(s.wakeWrite);
}

QString ScriptedMessagesAPI::baseURL() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(m_state->port);
}

void ScriptedMessagesAPI::addTurn(Turn turn)
{
    std::lock_guard lock(m_state->mutex);
    m_state->turns.push_back(std::move(turn));
}

QList<ScriptedMessagesAPI::Request> ScriptedMessagesAPI::requests() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->requests;
}

QList<ScriptedMessagesAPI::Request> ScriptedMessagesAPI::turnRequests() const
{
    QList<Request> turns;
    for (Request &request : requests())
        if (request.kind == Kind::Turn)
            turns.append(std::move(request));
    return turns;
}

int ScriptedMessagesAPI::abandonedStreams() const
{
    std::lock_guard lock(m_state->mutex);
    return m_state->abandoned;
}

QList<std::pair<QByteArray, QByteArray>> ScriptedMessagesAPI::childEnvironment(const QString &home) const
{
    return {
        {"ANTHROPIC_BASE_URL", baseURL().toUtf8()},
        {"ANTHROPIC_API_KEY", "sk-ant-scripted"},
        {"HOME", home.toUtf8()},
        {"CLAUDE_CONFIG_DIR", QByteArray()},
        {"ANTHROPIC_AUTH_TOKEN", QByteArray()},
        {"CLAUDE_CODE_OAUTH_TOKEN", QByteArray()},
        {"CLAUDE_CODE_USE_BEDROCK", QByteArray()},
        {"CLAUDE_CODE_USE_VERTEX", QByteArray()},
        {"CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC", "1"},
        {"DISABLE_TELEMETRY", "1"},
        {"DISABLE_AUTOUPDATER", "1"},
        {"DISABLE_ERROR_REPORTING", "1"},
    };
}
