// The tool server over real sockets: the refusals in front of MCP, sessions, batches, cancellation,
// binding to 127.0.0.1 alone, and clients that misbehave.
#include "HTTPTestClient.h"
#include "LoopbackHTTPServer.h"
#include "MCPDemoTools.h"
#include "MCPServer.h"
#include "QStringPrinting.h"
#include "TestSupport.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <ifaddrs.h>

#include <future>
#include <thread>

namespace {

using namespace std::chrono_literals;

using Reply = HTTPTestReply;
using Client = HTTPTestClient;

QByteArray request(const QByteArray &method, const QByteArray &target, const QByteArray &body,
                   const QList<QByteArray> &headers)
{
    QByteArray out = method + ' ' + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    for (const QByteArray &h : headers)
        out += h + "\r\n";
    if (!body.isEmpty() || method == "POST")
        out += "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return out + "\r\n" + body;
}

JSONValue json(const char *text)
{
    return JSONValue::parse(QByteArrayView(text)).value_or(JSONValue());
}

JSONValue rpc(int id, const QString &method, JSONValue params = JSONValue(JSONValue::Object()))
{
    return JSONValue{
        {u"jsonrpc"_qs, "2.0"}, {u"id"_qs, id}, {u"method"_qs, method}, {u"params"_qs, std::move(params)}};
}

JSONValue call(int id, const QString &tool, JSONValue arguments = JSONValue(JSONValue::Object()))
{
    return rpc(id, u"tools/call"_qs, JSONValue{{u"name"_qs, tool}, {u"arguments"_qs, std::move(arguments)}});
}

class MCPServerTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        tools.registerIn(server);
        const auto started = server.start(0);
        ASSERT_TRUE(std::holds_alternative<QUrl>(started));
        port = quint16(std::get<QUrl>(started).port());
        auth = "Authorization: Bearer " + server.token().toUtf8();
    }

    Reply send(const QByteArray &method, const QByteArray &target, const QByteArray &body = {},
               QList<QByteArray> headers = {})
    {
        Client client(port);
        client.send(request(method, target, body, headers));
        return client.read();
    }
    Reply post(const JSONValue &message, QList<QByteArray> headers = {})
    {
        headers.append(auth);
        return send("POST", "/mcp", message.serialized(), headers);
    }
    QString initialize()
    {
        const Reply r =
            post(rpc(1, u"initialize"_qs,
                     json(R"({"protocolVersion":"2025-06-18","clientInfo":{"name":"t","version":"1"}})")));
        EXPECT_EQ(r.status, 200);
        return r.header("mcp-session-id");
    }
    QByteArray sessionHeader(const QString &id) { return "Mcp-Session-Id: " + id.toUtf8(); }

    MCPDemoTools tools;
    MCPServer server{u"vesk-test"_qs, u"0.1"_qs, u"Be kind."_qs, MCPServer::makeToken()};
    quint16 port = 0;
    QByteArray auth;
};

void expectRefusal(const Reply &r, int status, int code, const QString &message)
{
    EXPECT_EQ(r.status, status) << r.body.toStdString();
    EXPECT_EQ(r.header("content-type"), u"application/json");
    const JSONValue json = r.json();
    EXPECT_TRUE(json[u"id"].isNull());
    EXPECT_EQ(json[u"error"][u"code"].intValue(), code);
    EXPECT_EQ(json[u"error"][u"message"].stringValue(), message);
}

} // namespace

TEST(MCPServerChecks, TokensAndOrigins)
{
    const QString token = MCPServer::makeToken();
    EXPECT_TRUE(QRegularExpression(u"^[0-9a-f]{64}$"_qs).match(token).hasMatch());
    EXPECT_NE(token, MCPServer::makeToken());
    EXPECT_EQ(MCPServer::randomHex(16).size(), 32);

    EXPECT_TRUE(MCPServer::isAuthorized(u"bearer "_qs + token + u' ', token));
    EXPECT_TRUE(MCPServer::isAuthorized(u"  Bearer   "_qs + token, token));
    EXPECT_FALSE(MCPServer::isAuthorized(u"Basic "_qs + token, token));
    EXPECT_FALSE(MCPServer::isAuthorized(u"Bearer "_qs + token.chopped(1), token));
    EXPECT_FALSE(MCPServer::isAuthorized(u"Bearer "_qs + token + u'0', token));
    EXPECT_FALSE(MCPServer::isAuthorized(u"Bearer"_qs, QString()));
    EXPECT_FALSE(MCPServer::isAuthorized(u"Bearer "_qs, QString()));

    for (const char *good :
         {"http://localhost:3000", "https://127.0.0.1", "http://[::1]:8080/", "HTTP://LOCALHOST"})
        EXPECT_TRUE(MCPServer::isLoopbackOrigin(QString::fromLatin1(good))) << good;
    for (const char *bad : {"null", "http://example.com", "http://user@localhost", "http://u:p@127.0.0.1",
                            "http://localhost/app", "file://localhost", "ws://localhost", "http://127.0.0.2",
                            "http://localhost.example.com", ""})
        EXPECT_FALSE(MCPServer::isLoopbackOrigin(QString::fromLatin1(bad))) << bad;
}

TEST_F(MCPServerTest, RefusalsComeInOrder)
{
    // Origin first, then path, then the token.
    expectRefusal(send("POST", "/other", "{}", {"Origin: http://evil.example"}), 403, -32000,
                  u"Forbidden: origin http://evil.example is not allowed."_qs);
    for (const QByteArray origin : {"null", "http://user@localhost", "http://localhost/path"})
        EXPECT_EQ(send("POST", "/mcp", "{}", {"Origin: " + origin, auth}).status, 403) << origin.constData();
    expectRefusal(send("POST", "/other", "{}"), 404, -32000, u"Not found."_qs);
    EXPECT_EQ(send("POST", "/mcpx", "{}").status, 404);

    for (const QList<QByteArray> &headers : QList<QList<QByteArray>>{
             {}, {"Authorization: Bearer wrong"}, {"Authorization: Basic " + server.token().toUtf8()}}) {
        const Reply r = send("POST", "/mcp", "{}", headers);
        expectRefusal(r, 401, -32000, u"Unauthorized."_qs);
        EXPECT_EQ(r.header("www-authenticate"), u"Bearer realm=\"vesk\"");
    }

    const Reply get = send("GET", "/mcp", {}, {auth});
    expectRefusal(get, 405, -32000, u"Method not allowed."_qs);
    EXPECT_EQ(get.header("allow"), u"POST, DELETE");

    expectRefusal(post(rpc(1, u"ping"_qs), {"MCP-Protocol-Version: 1999-01-01"}), 400, -32000,
                  u"Unsupported MCP-Protocol-Version: 1999-01-01"_qs);

    // What passes: loopback origins, a query, a lower-case scheme word.
    const QByteArray lowerAuth = "authorization: bearer " + server.token().toUtf8() + " ";
    for (const QByteArray origin : {"Origin: http://localhost:5173", "Origin: https://127.0.0.1"}) {
        const Reply r = send("POST", "/mcp/?trace=1", rpc(7, u"ping"_qs).serialized(), {origin, lowerAuth});
        EXPECT_EQ(r.status, 200);
        EXPECT_EQ(r.json(), json(R"({"jsonrpc":"2.0","id":7,"result":{}})"));
    }
}

TEST_F(MCPServerTest, OnlyThePathOfTheTargetLeadsToMCP)
{
    // Without the token a target that leads to MCP is refused by the token check, any other by the
    // path check before it; with the token the first kind is served. Targets are not percent-decoded.
    QList<QByteArray> toMCP =
        QByteArray(
            "/mcp /mcp/ /mcp?x=1 /mcp#f /mcp?next=http://x/other HTTP://127.0.0.1/mcp?q https://[::1]:1/mcp/")
            .split(' ');
    const QList<QByteArray> elsewhere =
        QByteArray(
            "/other /other?next=http://x/mcp /a://b/mcp /x#http://y/mcp a://b/mcp ftp://x/mcp http://x/other "
            "http://x?/mcp http://x mcp * //mcp /MCP /mcpx /%6Dcp /mcp%2F")
            .split(' ');
    toMCP.append("http://127.0.0.1:" + QByteArray::number(port) + "/mcp");
    const QByteArray ping = rpc(1, u"ping"_qs).serialized();
    Client client(port);
    for (const QByteArray &target : toMCP + elsewhere) {
        const bool mcp = toMCP.contains(target);
        client.send(request("POST", target, ping, {}));
        EXPECT_EQ(client.read().status, mcp ? 401 : 404) << target.constData();
        client.send(request("POST", target, ping, {auth}));
        EXPECT_EQ(client.read().status, mcp ? 200 : 404) << target.constData();
    }
}

TEST_F(MCPServerTest, SessionsListAndCall)
{
    const Reply init =
        post(rpc(1, u"initialize"_qs, json(R"({"protocolVersion":"2099-01-01","clientInfo":{"name":"c"}})")));
    ASSERT_EQ(init.status, 200);
    const QString session = init.header("mcp-session-id");
    EXPECT_EQ(session.size(), 32);
    const JSONValue result = init.json()[u"result"];
    EXPECT_EQ(result[u"protocolVersion"].stringValue(), u"2025-06-18");
    EXPECT_EQ(result[u"serverInfo"][u"name"].stringValue(), u"vesk-test");
    EXPECT_EQ(result[u"instructions"].stringValue(), u"Be kind.");
    EXPECT_EQ(result[u"capabilities"][u"tools"][u"listChanged"].boolValue(), false);

    const Reply list = post(rpc(2, u"tools/list"_qs), {sessionHeader(session)});
    EXPECT_EQ(list.header("mcp-session-id"), session);
    const JSONValue listed = list.json()[u"result"][u"tools"];
    ASSERT_EQ(listed.arrayValue()->size(), 3);
    EXPECT_EQ(listed[0][u"name"].stringValue(), u"echo");
    EXPECT_EQ(listed[0][u"title"].stringValue(), u"Echo");
    EXPECT_EQ(listed[0][u"annotations"][u"readOnlyHint"].boolValue(), true);
    EXPECT_FALSE(listed[1].contains(u"title"));
    EXPECT_EQ(listed[2][u"name"].stringValue(), u"image");

    // Re-registering keeps the place; unregistering removes.
    MCPTool renamed{u"slow"_qs, u"Slow"_qs, u"d"_qs, JSONValue(), {}, {}};
    server.registerTool(renamed);
    server.unregisterTool(u"image"_qs);
    const JSONValue relisted = post(rpc(3, u"tools/list"_qs)).json()[u"result"][u"tools"];
    ASSERT_EQ(relisted.arrayValue()->size(), 2);
    EXPECT_EQ(relisted[1][u"title"].stringValue(), u"Slow");

    const JSONValue echoed =
        post(call(4, u"echo"_qs, JSONValue{{u"text"_qs, "client"}}), {sessionHeader(session)}).json();
    EXPECT_EQ(echoed[u"result"], MCPToolResult::text(u"c"_qs).json());
    const JSONValue failed = post(call(5, u"echo"_qs, JSONValue{{u"text"_qs, "fail"}})).json();
    EXPECT_EQ(failed[u"result"][u"isError"].boolValue(), true);

    EXPECT_EQ(server.sessionCount(), 1);
    const Reply ended = send("DELETE", "/mcp", {}, {auth, sessionHeader(session)});
    EXPECT_EQ(ended.status, 200);
    EXPECT_TRUE(ended.body.isEmpty());
    expectRefusal(send("DELETE", "/mcp", {}, {auth, sessionHeader(session)}), 404, -32001,
                  u"Session not found."_qs);
    expectRefusal(send("DELETE", "/mcp", {}, {auth}), 400, -32000, u"Missing Mcp-Session-Id header."_qs);
    expectRefusal(post(rpc(6, u"ping"_qs), {sessionHeader(session)}), 404, -32001, u"Session not found."_qs);
}

TEST_F(MCPServerTest, MessagesBatchesAndErrors)
{
    expectRefusal(send("POST", "/mcp", "{nope", {auth}), 400, -32700, u"Parse error."_qs);
    expectRefusal(send("POST", "/mcp", "[]", {auth}), 400, -32600, u"Invalid request."_qs);
    expectRefusal(send("POST", "/mcp", "42", {auth}), 400, -32600, u"Invalid request."_qs);

    const JSONValue notification = json(R"({"jsonrpc":"2.0","method":"notifications/x"})");
    const JSONValue cancelUnknown =
        json(R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":99}})");
    const JSONValue cancelNoID = json(R"({"jsonrpc":"2.0","method":"notifications/cancelled"})");
    const Reply accepted = post(JSONValue::array({notification, cancelUnknown, cancelNoID}));
    EXPECT_EQ(accepted.status, 202);
    EXPECT_TRUE(accepted.body.isEmpty());

    const JSONValue invalid = json(R"({"jsonrpc":"1.0","id":"x","method":"ping"})");
    const Reply alone = post(invalid);
    EXPECT_EQ(alone.status, 400);
    EXPECT_EQ(alone.json()[u"id"].stringValue(), u"x");
    EXPECT_EQ(alone.json()[u"error"][u"code"].intValue(), -32600);

    const Reply batch =
        post(JSONValue::array({rpc(1, u"ping"_qs), invalid, JSONValue(3), rpc(2, u"nope"_qs), notification}));
    EXPECT_EQ(batch.status, 200);
    const JSONValue answers = batch.json();
    ASSERT_EQ(answers.arrayValue()->size(), 4);
    EXPECT_EQ(answers[0][u"id"].intValue(), 1);
    EXPECT_EQ(answers[1][u"error"][u"code"].intValue(), -32600);
    EXPECT_TRUE(answers[2][u"id"].isNull());
    EXPECT_EQ(answers[3][u"error"][u"message"].stringValue(), u"Method not found: nope");

    auto errorOf = [&](const JSONValue &message) { return post(message).json()[u"error"]; };
    EXPECT_EQ(errorOf(rpc(1, u"ping"_qs, JSONValue(3)))[u"message"].stringValue(),
              u"Invalid params: expected an object.");
    EXPECT_EQ(errorOf(rpc(1, u"tools/call"_qs))[u"message"].stringValue(),
              u"Invalid params: tools/call needs a tool name.");
    EXPECT_EQ(errorOf(call(1, u"echo"_qs, JSONValue(3)))[u"message"].stringValue(),
              u"Invalid params: arguments must be an object.");
    const JSONValue unknown = errorOf(call(1, u"nope"_qs));
    EXPECT_EQ(unknown[u"code"].intValue(), -32602);
    EXPECT_EQ(unknown[u"message"].stringValue(), u"Unknown tool: nope");
    // Null arguments are an empty object.
    EXPECT_EQ(post(call(1, u"echo"_qs, JSONValue())).json()[u"result"],
              MCPToolResult::text(QString()).json());

    // A batch runs its calls concurrently: two slow calls take one wait, not two.
    const JSONValue slowly = JSONValue{{u"seconds"_qs, 0.3}};
    const Reply both = post(JSONValue::array({call(1, u"slow"_qs, slowly), call(2, u"image"_qs)}));
    const JSONValue image = both.json()[1][u"result"][u"content"][1];
    EXPECT_EQ(image[u"type"].stringValue(), u"image");
    EXPECT_EQ(image[u"mimeType"].stringValue(), u"image/png");
    EXPECT_EQ(QByteArray::fromBase64(image[u"data"].stringValue()->toLatin1()), MCPDemoTools::png());
    EXPECT_EQ(both.json()[0][u"result"][u"content"][0][u"text"].stringValue(), u"Waited.");
}

TEST_F(MCPServerTest, CancellationReachesTheTool)
{
    const QString session = initialize();
    // Cancelled by a notification on another connection.
    auto pending =
        std::async(std::launch::async, [&] { return post(call(5, u"slow"_qs), {sessionHeader(session)}); });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return tools.slowStarted == 1; }, 10s));
    // Another session's id 5 is a different call.
    const QString other = initialize();
    const JSONValue cancel =
        json(R"({"jsonrpc":"2.0","method":"notifications/cancelled","params":{"requestId":5}})");
    EXPECT_EQ(post(cancel, {sessionHeader(other)}).status, 202);
    EXPECT_EQ(pending.wait_for(200ms), std::future_status::timeout);
    EXPECT_EQ(post(cancel, {sessionHeader(session)}).status, 202);
    const Reply answered = pending.get();
    EXPECT_EQ(answered.json()[u"result"][u"isError"].boolValue(), true);
    EXPECT_EQ(tools.slowCancelled, 1);

    // Cancelled by the client going away; nothing is written and the server goes on.
    {
        Client client(port);
        client.send(request("POST", "/mcp", call(6, u"slow"_qs).serialized(), {auth}));
        ASSERT_TRUE(TestSupport::waitUntil([&] { return tools.slowStarted == 2; }, 10s));
    }
    EXPECT_TRUE(TestSupport::waitUntil([&] { return tools.slowCancelled == 2; }, 10s));

    // Ending the session cancels its calls.
    auto third =
        std::async(std::launch::async, [&] { return post(call(7, u"slow"_qs), {sessionHeader(session)}); });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return tools.slowStarted == 3; }, 10s));
    EXPECT_EQ(send("DELETE", "/mcp", {}, {auth, sessionHeader(session)}).status, 200);
    EXPECT_EQ(third.get().status, 200);
    EXPECT_EQ(tools.slowCancelled, 3);
    EXPECT_EQ(post(rpc(1, u"ping"_qs)).status, 200);
}

TEST_F(MCPServerTest, TheLeastRecentlyUsedSessionIsEvicted)
{
    // The first session is used last before the others are made, with a call left running.
    const QString oldest = initialize();
    auto running =
        std::async(std::launch::async, [&] { return post(call(9, u"slow"_qs), {sessionHeader(oldest)}); });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return tools.slowStarted == 1; }, 10s));
    QStringList ids;
    for (int i = 1; i < MCPServer::maxSessions; ++i)
        ids.append(initialize());
    EXPECT_EQ(server.sessionCount(), 256);
    // Using the second-oldest again keeps it from being the next to go.
    EXPECT_EQ(post(rpc(2, u"ping"_qs), {sessionHeader(ids[0])}).status, 200);

    const QString newest = initialize();
    EXPECT_EQ(server.sessionCount(), 256);
    EXPECT_TRUE(server.hasSession(newest));
    EXPECT_TRUE(server.hasSession(ids[0]));
    EXPECT_FALSE(server.hasSession(oldest));
    EXPECT_EQ(running.get().json()[u"result"][u"isError"].boolValue(), true);
    EXPECT_EQ(tools.slowCancelled, 1);
    EXPECT_EQ(post(rpc(3, u"ping"_qs), {sessionHeader(oldest)}).status, 404);

    // The next one goes in creation order: ids[1] was made before the ping of ids[0].
    initialize();
    EXPECT_FALSE(server.hasSession(ids[1]));
    EXPECT_TRUE(server.hasSession(ids[0]));
}

TEST_F(MCPServerTest, ListensOnLoopbackAddressOnly)
{
    EXPECT_TRUE(Client(port, "127.0.0.1").connected());
    EXPECT_FALSE(Client(port, "127.0.0.2").connected());
    // Any other address of this machine, where there is one.
    ifaddrs *list = nullptr;
    ASSERT_EQ(getifaddrs(&list), 0);
    int tried = 0;
    for (ifaddrs *a = list; a; a = a->ifa_next) {
        if (!a->ifa_addr || a->ifa_addr->sa_family != AF_INET)
            continue;
        char text[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in *>(a->ifa_addr)->sin_addr, text, sizeof text);
        if (QByteArray(text).startsWith("127."))
            continue;
        ++tried;
        EXPECT_FALSE(Client(port, text).connected()) << text;
    }
    freeifaddrs(list);
    RecordProperty("nonLoopbackAddressesTried", tried);
}

TEST_F(MCPServerTest, SurvivesGarbageAndHalfRequests)
{
    {
        Client garbage(port);
        static const char tlsHello[] = "\x16\x03\x01\x02\x00 not http at all\r\n\r\n";
        garbage.send(QByteArray(tlsHello, sizeof tlsHello - 1));
        const Reply r = garbage.read();
        EXPECT_EQ(r.status, 400);
        EXPECT_EQ(r.body, "Malformed request line.\n");
        EXPECT_EQ(r.header("connection"), u"close");
        EXPECT_TRUE(garbage.closedWithin(3s));
    }
    {
        Client huge(port);
        huge.send("POST /mcp HTTP/1.1\r\nContent-Length: 20971521\r\n\r\n");
        EXPECT_EQ(huge.read().body, "Request body exceeds 20971520 bytes.\n");
    }
    {
        Client half(port);
        half.send("POST /mcp HTTP/1.1\r\nContent-Length: 100\r\n\r\n{\"jsonrpc\"");
    } // gone mid-request
    {
        Client headOnly(port);
        headOnly.send("POST /mcp HT");
        headOnly.shutdownWrite();
        EXPECT_TRUE(headOnly.closedWithin(3s));
    }
    EXPECT_TRUE(TestSupport::waitUntil([&] { return post(rpc(1, u"ping"_qs)).status == 200; }, 5s));
}

TEST_F(MCPServerTest, KeepAlivePipeliningAndClose)
{
    Client client(port);
    const QByteArray slow =
        request("POST", "/mcp", call(1, u"slow"_qs, JSONValue{{u"seconds"_qs, 0.2}}).serialized(), {auth});
    const QByteArray ping = request("POST", "/mcp", rpc(2, u"ping"_qs).serialized(), {auth});
    client.send(slow + ping);
    // In order, although the second is quicker.
    EXPECT_EQ(client.read().json()[u"id"].intValue(), 1);
    const Reply second = client.read();
    EXPECT_EQ(second.json()[u"id"].intValue(), 2);
    EXPECT_EQ(second.header("connection"), u"keep-alive");

    // Expect: 100-continue gets the interim answer once, before the body is sent.
    const QByteArray body = rpc(3, u"ping"_qs).serialized();
    client.send("POST /mcp HTTP/1.1\r\nExpect: 100-continue\r\n" + auth +
                "\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n\r\n");
    const Reply interim = client.read();
    EXPECT_EQ(interim.status, 100);
    client.send(body);
    EXPECT_EQ(client.read().json()[u"id"].intValue(), 3);

    // A closing request: what follows is read and dropped, and the socket goes.
    client.send(request("POST", "/mcp", body, {auth, "Connection: close"}) + ping);
    const Reply last = client.read();
    EXPECT_EQ(last.status, 200);
    EXPECT_EQ(last.header("connection"), u"close");
    QByteArray rest;
    EXPECT_TRUE(client.closedWithin(3s, &rest));
    EXPECT_TRUE(rest.isEmpty() && client.pending().isEmpty());

    // HEAD gets the length of what it would have got, and no body.
    Client head(port);
    head.send(request("HEAD", "/mcp", {}, {auth}) + request("POST", "/mcp", body, {auth}));
    const Reply headReply = head.read(true);
    EXPECT_EQ(headReply.status, 405);
    EXPECT_GT(headReply.header("content-length").toInt(), 0);
    EXPECT_EQ(head.read().json()[u"id"].intValue(), 3);
}

namespace {

// Sends `first`, a request answered with 200 only after a while, and behind it `count` small requests
// at once on one connection, then checks every answer in order. The small ones are refused with 404 or
// 401 (answered before any JSON is read), with a ping every thousandth whose id is its number. While
// the first is at its handler the server reads ahead, so the rest are waiting in its buffer when the
// answer comes. The requests go from another thread, since the server stops reading while the client
// does not take its answers.
void expectPipelinedAnswers(quint16 port, const QByteArray &first, const QByteArray &auth, int count)
{
    auto expectedStatus = [](int i) { return i % 1000 == 999 ? 200 : i % 2 ? 401 : 404; };
    QByteArray requests = first;
    for (int i = 0; i < count; ++i) {
        const int status = expectedStatus(i);
        requests += status == 200   ? request("POST", "/mcp", rpc(i, u"ping"_qs).serialized(), {auth})
                    : status == 401 ? QByteArray("A /mcp HTTP/1.1\n\n")
                                    : QByteArray("A / HTTP/1.1\n\n");
    }
    Client client(port);
    std::thread sender([&] { client.send(requests); });
    EXPECT_EQ(client.read().status, 200);
    int inOrder = 0;
    for (int i = 0; i < count; ++i) {
        const Reply r = client.read();
        if (r.status != expectedStatus(i) || (r.status == 200 && r.json()[u"id"].intValue() != i)) {
            ADD_FAILURE() << "answer " << i << ": status " << r.status << ", " << r.body.toStdString();
            client.shutdownWrite(); // a send still blocked on the server ends
            break;
        }
        ++inOrder;
    }
    sender.join();
    EXPECT_EQ(inOrder, count);
}

} // namespace

TEST_F(MCPServerTest, ManyPipelinedRequestsAreAnsweredInOrder)
{
    const QByteArray slow =
        request("POST", "/mcp", call(0, u"slow"_qs, JSONValue{{u"seconds"_qs, 0.3}}).serialized(), {auth});
    expectPipelinedAnswers(port, slow, auth, 100000);
}

TEST(LoopbackHTTPServer, ServesPipelinedRequestsOnASmallStack)
{
    MCPServer mcp(u"n"_qs, u"v"_qs, std::nullopt, u"t"_qs);
    std::thread later;
    LoopbackHTTPServer http(MCPServer::maxRequestBodyBytes,
                            [&](HTTPRequest request, std::stop_token stop, HTTPConnection::Completion done) {
                                if (request.target != u"/later")
                                    return mcp.respond(std::move(request), std::move(stop), std::move(done));
                                later = std::thread([done] {
                                    std::this_thread::sleep_for(200ms);
                                    done(HTTPResponse::plainText(200, u"later"_qs));
                                });
                            });
    http.setConnectionStackSize(512 * 1024);
    const auto port = http.start(0);
    ASSERT_TRUE(std::holds_alternative<quint16>(port));
    expectPipelinedAnswers(std::get<quint16>(port), "GET /later HTTP/1.1\r\n\r\n", "Authorization: Bearer t",
                           1000);
    later.join();
}

TEST(LoopbackHTTPServer, RefusesAConnectionItCannotMakeAThreadFor)
{
    LoopbackHTTPServer server(100, [](HTTPRequest, std::stop_token, HTTPConnection::Completion done) {
        done(HTTPResponse::plainText(200, u"ok"_qs));
    });
    const auto port = server.start(0);
    ASSERT_TRUE(std::holds_alternative<quint16>(port));

    // A stack larger than the address space: creating the thread fails as when threads run out.
    server.setConnectionStackSize(std::size_t(1) << 50);
    Client refused(std::get<quint16>(port));
    refused.send("GET / HTTP/1.1\r\n\r\n");
    QByteArray answer;
    EXPECT_TRUE(refused.closedWithin(3s, &answer));
    EXPECT_TRUE(answer.isEmpty()) << answer.toStdString();
    EXPECT_EQ(server.connectionCount(), 0);

    server.setConnectionStackSize(0);
    Client served(std::get<quint16>(port));
    served.send("GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(served.read().body, "ok");
    EXPECT_EQ(server.connectionCount(), 1);
}

TEST(LoopbackHTTPServer, StartAndStop)
{
    auto handler = [](HTTPRequest, std::stop_token, HTTPConnection::Completion done) {
        done(HTTPResponse::plainText(200, u"ok"_qs));
    };
    LoopbackHTTPServer first(100, handler);
    const auto port = first.start(0);
    ASSERT_TRUE(std::holds_alternative<quint16>(port));
    EXPECT_GT(std::get<quint16>(port), 0);
    EXPECT_EQ(std::get<MCPServerError>(first.start(0)), MCPServerError::alreadyStarting());

    LoopbackHTTPServer second(100, handler);
    const auto taken = second.start(std::get<quint16>(port));
    ASSERT_TRUE(std::holds_alternative<MCPServerError>(taken));
    EXPECT_TRUE(
        std::get<MCPServerError>(taken).description().startsWith(u"The MCP server could not listen: "));

    Client open(std::get<quint16>(port));
    open.send("GET / HTTP/1.1\r\n\r\n");
    EXPECT_EQ(open.read().body, "ok");
    first.stop();
    EXPECT_TRUE(open.closedWithin(3s));
    EXPECT_EQ(std::get<MCPServerError>(first.start(0)).description(), u"The MCP server was stopped.");

    // The MCP server may be started again after a stop, on a new port.
    MCPServer mcp(u"n"_qs, u"v"_qs, std::nullopt, u"t"_qs);
    const auto url = mcp.start(0);
    ASSERT_TRUE(std::holds_alternative<QUrl>(url));
    EXPECT_EQ(std::get<QUrl>(mcp.start(0)), std::get<QUrl>(url));
    mcp.stop();
    EXPECT_FALSE(mcp.url());
    EXPECT_TRUE(std::holds_alternative<QUrl>(mcp.start(0)));
}
