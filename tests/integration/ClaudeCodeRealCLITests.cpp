// ClaudeCodeProcess against the real claude (the version pinned in tests/agents, installed by npm ci)
// talking to a scripted Messages API on 127.0.0.1, with MCP servers that the tests start: the
// official SDK's and Vesk's own. Every wait has a time limit, so a stuck child fails a test instead
// of hanging the suite.
#include "ClaudeCodeProcess.h"
#include "HTTPTestClient.h"
#include "MCPServer.h"
#include "ScriptedMessagesAPI.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <optional>

using namespace std::chrono_literals;

namespace {

constexpr auto startLimit = 60s; // claude's first start on a loaded machine, up to its first result
constexpr auto turnLimit = 30s;

QString claudePath()
{
    return TestSupport::sourcePath(u"tests/agents/node_modules/.bin/claude"_qs);
}

// Sets variables of this process, which the child inherits, and puts the old values back.
class ScopedEnvironment {
public:
    explicit ScopedEnvironment(const QList<std::pair<QByteArray, QByteArray>> &variables)
    {
        for (const auto &[name, value] : variables) {
            m_saved.append({name, qEnvironmentVariableIsSet(name.constData())
                                      ? std::optional<QByteArray>(qgetenv(name.constData()))
                                      : std::nullopt});
            if (value.isEmpty())
                qunsetenv(name.constData());
            else
                qputenv(name.constData(), value);
        }
    }
    ~ScopedEnvironment()
    {
        for (const auto &[name, value] : m_saved) {
            if (value)
                qputenv(name.constData(), *value);
            else
                qunsetenv(name.constData());
        }
    }

private:
    QList<std::pair<QByteArray, std::optional<QByteArray>>> m_saved;
};

// One ClaudeCodeProcess and everything it said.
struct AgentRun {
    std::unique_ptr<ClaudeCodeProcess> process;
    QList<AgentStreamEvent> events;
    bool finished = false;

    explicit AgentRun(ClaudeCodeConfiguration configuration)
        : process(std::make_unique<ClaudeCodeProcess>(std::move(configuration)))
    {
        QObject::connect(process.get(), &ClaudeCodeProcess::event, process.get(),
                         [this](const AgentStreamEvent &event) { events.append(event); });
        QObject::connect(process.get(), &ClaudeCodeProcess::finished, process.get(),
                         [this] { finished = true; });
    }

    template <typename T> QList<T> all() const
    {
        QList<T> found;
        for (const AgentStreamEvent &event : events)
            if (const T *payload = event.as<T>())
                found.append(*payload);
        return found;
    }
    QString text() const
    {
        QString joined;
        for (const auto &delta : all<AgentStreamEvent::TextDelta>())
            joined += delta.text;
        return joined;
    }
    // Waits for the `count`-th result of this process.
    bool waitForResults(qsizetype count, std::chrono::milliseconds limit = turnLimit)
    {
        return TestSupport::waitUntil(
                   [&] { return all<AgentStreamEvent::Result>().size() >= count || finished; }, limit) &&
               all<AgentStreamEvent::Result>().size() >= count;
    }
    bool waitForFinish(std::chrono::milliseconds limit = 15s)
    {
        return TestSupport::waitUntil([&] { return finished; }, limit);
    }
};

// The official SDK's Streamable HTTP server with its echo tool (tests/mcp).
class SDKEchoServer {
public:
    ~SDKEchoServer()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    // The port once it listens, or 0.
    quint16 start()
    {
        const QString node = QStandardPaths::findExecutable(u"node"_qs);
        const QString folder = TestSupport::sourcePath(u"tests/mcp"_qs);
        if (node.isEmpty() || !QFileInfo::exists(folder + u"/node_modules/@modelcontextprotocol/sdk"_qs))
            return 0;
        m_process.setWorkingDirectory(folder);
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(node, {folder + u"/sdk-echo-server.mjs"_qs});
        const auto until = std::chrono::steady_clock::now() + 30s;
        while (std::chrono::steady_clock::now() < until && m_process.state() != QProcess::NotRunning) {
            m_process.waitForReadyRead(500);
            while (m_process.canReadLine()) {
                const QByteArray line = m_process.readLine().trimmed();
                if (line.startsWith("listening "))
                    return quint16(line.mid(10).toUInt());
            }
        }
        return 0;
    }

private:
    QProcess m_process;
};

// Vesk's own tool server with one tool that notes each call it gets.
struct NotingToolServer {
    std::mutex mutex;
    QList<JSONValue> calls;
    MCPServer server{u"vesk-test-tools"_qs, u"0.1"_qs, std::nullopt, MCPServer::makeToken()};

    std::optional<QUrl> start()
    {
        server.registerTool(
            MCPTool{u"note"_qs, std::nullopt, u"Notes a text and says so."_qs,
                    JSONValue{{u"type"_qs, "object"},
                              {u"properties"_qs, JSONValue{{u"text"_qs, JSONValue{{u"type"_qs, "string"}}}}}},
                    std::nullopt,
                    [this](const JSONValue &arguments, const MCPRequestContext &, std::stop_token,
                           MCPTool::Completion done) {
                        {
                            std::lock_guard lock(mutex);
                            calls.append(arguments);
                        }
                        done(MCPToolResult::text(u"noted: "_qs +
                                                 arguments[u"text"].stringValue().value_or(QString())));
                    }});
        const auto started = server.start(0);
        if (!std::holds_alternative<QUrl>(started))
            return std::nullopt;
        return std::get<QUrl>(started);
    }
    QList<JSONValue> callsSoFar()
    {
        std::lock_guard lock(mutex);
        return calls;
    }
    JSONValue mcpConfig(const QUrl &url) const
    {
        return JSONValue{
            {u"mcpServers"_qs,
             JSONValue{{u"vesk"_qs,
                        JSONValue{{u"type"_qs, "http"},
                                  {u"url"_qs, url.toString()},
                                  {u"headers"_qs,
                                   JSONValue{{u"Authorization"_qs, u"Bearer "_qs + server.token()}}}}}}}};
    }
};

// The messages of a request, and the text of its last user message.
const JSONValue::Array &messagesOf(const ScriptedMessagesAPI::Request &request)
{
    static const JSONValue::Array none;
    const JSONValue *messages = request.body.find(u"messages");
    return messages && messages->arrayValue() ? *messages->arrayValue() : none;
}

// Every text and tool result of the conversation, in order, as "role: text" lines.
QStringList transcript(const ScriptedMessagesAPI::Request &request)
{
    QStringList lines;
    for (const JSONValue &message : messagesOf(request)) {
        const QString role = message[u"role"].stringValue().value_or(QString());
        if (role == u"system")
            continue;
        const JSONValue content = message[u"content"];
        if (const auto text = content.stringValue()) {
            lines.append(role + u": "_qs + *text);
            continue;
        }
        for (const JSONValue &block : content.arrayValue() ? *content.arrayValue() : JSONValue::Array()) {
            const QString type = block[u"type"].stringValue().value_or(QString());
            if (type == u"text")
                lines.append(role + u": "_qs + block[u"text"].stringValue().value_or(QString()));
            else if (type == u"tool_use")
                lines.append(role + u": tool_use "_qs + block[u"id"].stringValue().value_or(QString()) +
                             u' ' + block[u"input"].serializedString());
            else if (type == u"tool_result") {
                QString text = block[u"content"].stringValue().value_or(QString());
                for (const JSONValue &part :
                     block[u"content"].arrayValue() ? *block[u"content"].arrayValue() : JSONValue::Array())
                    text += part[u"text"].stringValue().value_or(QString());
                lines.append(role + u": tool_result "_qs +
                             block[u"tool_use_id"].stringValue().value_or(QString()) + u' ' + text);
            }
        }
    }
    return lines;
}

class ClaudeRealCLI : public ::testing::Test {
protected:
    void SetUp() override
    {
        // Installed wherever the tests run (scripts/setup.sh), so a missing CLI is a failure.
        ASSERT_TRUE(QFileInfo(claudePath()).isExecutable())
            << "tests/agents/node_modules/.bin/claude is missing; run: npm ci --prefix tests/agents";
        ASSERT_TRUE(m_folder.isValid());
        for (const char *sub : {"home", "project", "tmp"})
            ASSERT_TRUE(QDir(m_folder.path()).mkpath(QString::fromLatin1(sub)));
        const Result<quint16> port = m_api.start();
        ASSERT_TRUE(port.ok()) << port.error().toStdString();
        auto variables = m_api.childEnvironment(path(u"home"_qs));
        // The private configuration file goes here, where a test can see all that is left.
        variables.append({"TMPDIR", path(u"tmp"_qs).toUtf8()});
        m_environment.emplace(variables);
    }

    QString path(const QString &sub) const { return m_folder.path() + u'/' + sub; }

    ClaudeCodeConfiguration configuration() const
    {
        ClaudeCodeConfiguration c;
        c.executable = claudePath();
        c.workingDirectory = path(u"project"_qs);
        c.systemPrompt = u"You are Vesk's test agent."_qs;
        return c;
    }

    QStringList configFilesLeft() const
    {
        return QDir(path(u"tmp"_qs)).entryList({u"vesk-mcp-*"_qs}, QDir::Files | QDir::Hidden);
    }

    QTemporaryDir m_folder;
    ScriptedMessagesAPI m_api;
    std::optional<ScopedEnvironment> m_environment;
};

TEST_F(ClaudeRealCLI, SDKServerConnectsTextStreamsInOrderAndAToolResultReachesTheNextRequest)
{
    SDKEchoServer sdk;
    const quint16 sdkPort = sdk.start();
    ASSERT_NE(sdkPort, 0) << "the SDK's echo server did not start; run: npm ci --prefix tests/mcp";

    const QStringList chunks = {u"One, "_qs, u"two, "_qs, u"three "_qs, u"and done."_qs};
    m_api.addTurn(ScriptedMessagesAPI::Turn::text(chunks, 20ms));
    m_api.addTurn(ScriptedMessagesAPI::Turn::toolUse(u"toolu_sdk_1"_qs, u"mcp__sdk__echo"_qs,
                                                     JSONValue{{u"text"_qs, "ping"}}, u"Calling."_qs));
    m_api.addTurn(ScriptedMessagesAPI::Turn::text({u"It said ping."_qs}));

    ClaudeCodeConfiguration c = configuration();
    c.mcpConfig = JSONValue{
        {u"mcpServers"_qs,
         JSONValue{{u"sdk"_qs, JSONValue{{u"type"_qs, "http"},
                                         {u"url"_qs, u"http://127.0.0.1:%1/mcp"_qs.arg(sdkPort)}}}}}};
    c.allowedTools = {u"mcp__sdk__echo"_qs};
    AgentRun run(c);
    const Result<void> started = run.process->start();
    ASSERT_TRUE(started.ok()) << started.error().toStdString();
    run.process->send(u"Count to three."_qs);
    ASSERT_TRUE(run.waitForResults(1, startLimit));

    const auto initialized = run.all<AgentStreamEvent::Initialized>();
    ASSERT_FALSE(initialized.isEmpty());
    EXPECT_FALSE(initialized[0].sessionID.isEmpty());
    EXPECT_EQ(initialized[0].mcpServers, (std::map<QString, QString>{{u"sdk"_qs, u"connected"_qs}}));
    // Nothing of the turn comes before the init line.
    EXPECT_TRUE(run.events.front().as<AgentStreamEvent::Initialized>());

    QStringList deltas;
    for (const auto &delta : run.all<AgentStreamEvent::TextDelta>())
        deltas.append(delta.text);
    EXPECT_EQ(deltas, chunks);
    const auto result = run.all<AgentStreamEvent::Result>().at(0);
    EXPECT_FALSE(result.isError);
    EXPECT_EQ(result.text, chunks.join(QString()));
    ASSERT_TRUE(result.costUSD);
    EXPECT_GT(*result.costUSD, 0);
    ASSERT_TRUE(result.durationMS);
    EXPECT_GE(*result.durationMS, 60); // three 20 ms pauses between the deltas
    EXPECT_EQ(result.sessionID, initialized[0].sessionID);

    const auto first = m_api.turnRequests().at(0);
    EXPECT_TRUE(first.systemText().contains(u"You are Vesk's test agent."_qs))
        << first.systemText().toStdString();
    EXPECT_TRUE(first.toolNames().contains(u"mcp__sdk__echo"_qs))
        << first.toolNames().join(u',').toStdString();
    EXPECT_EQ(transcript(first), QStringList{u"user: Count to three."_qs});

    run.process->send(u"Echo ping."_qs);
    ASSERT_TRUE(run.waitForResults(2));
    EXPECT_EQ(run.all<AgentStreamEvent::ToolUseStarted>(),
              (QList<AgentStreamEvent::ToolUseStarted>{{u"toolu_sdk_1"_qs, u"mcp__sdk__echo"_qs}}));
    EXPECT_EQ(run.all<AgentStreamEvent::ToolResult>(),
              (QList<AgentStreamEvent::ToolResult>{{u"toolu_sdk_1"_qs, false, u"ping"_qs}}));
    const auto requests = m_api.turnRequests();
    ASSERT_EQ(requests.size(), 3);
    EXPECT_EQ(transcript(requests[2]).mid(2),
              (QStringList{u"user: Echo ping."_qs, u"assistant: Calling."_qs,
                           u"assistant: tool_use toolu_sdk_1 {\"text\":\"ping\"}"_qs,
                           u"user: tool_result toolu_sdk_1 ping"_qs}))
        << transcript(requests[2]).join(u'\n').toStdString();
    run.process->terminate();
    EXPECT_TRUE(run.waitForFinish());
}

TEST_F(ClaudeRealCLI, VeskToolServerConnectsAndGetsTheScriptedCall)
{
    NotingToolServer tools;
    const std::optional<QUrl> url = tools.start();
    ASSERT_TRUE(url);
    m_api.addTurn(ScriptedMessagesAPI::Turn::toolUse(u"toolu_vesk_1"_qs, u"mcp__vesk__note"_qs,
                                                     JSONValue{{u"text"_qs, "from the script"}}));
    m_api.addTurn(ScriptedMessagesAPI::Turn::text({u"Noted."_qs}));

    ClaudeCodeConfiguration c = configuration();
    c.mcpConfig = tools.mcpConfig(*url);
    c.allowedTools = {u"mcp__vesk__note"_qs};
    AgentRun run(c);
    ASSERT_TRUE(run.process->start().ok());
    run.process->send(u"Note something."_qs);
    ASSERT_TRUE(run.waitForResults(1, startLimit));

    const auto initialized = run.all<AgentStreamEvent::Initialized>();
    ASSERT_FALSE(initialized.isEmpty());
    EXPECT_EQ(initialized[0].mcpServers, (std::map<QString, QString>{{u"vesk"_qs, u"connected"_qs}}));
    EXPECT_EQ(tools.callsSoFar(), (QList<JSONValue>{JSONValue{{u"text"_qs, "from the script"}}}));
    EXPECT_EQ(
        run.all<AgentStreamEvent::ToolResult>(),
        (QList<AgentStreamEvent::ToolResult>{{u"toolu_vesk_1"_qs, false, u"noted: from the script"_qs}}));
    const auto requests = m_api.turnRequests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_TRUE(requests[0].toolNames().contains(u"mcp__vesk__note"_qs));
    EXPECT_EQ(transcript(requests[1]).last(), u"user: tool_result toolu_vesk_1 noted: from the script"_qs);
    const auto result = run.all<AgentStreamEvent::Result>().at(0);
    EXPECT_FALSE(result.isError);
    EXPECT_EQ(result.text, u"Noted."_qs);
    run.process->terminate();
    EXPECT_TRUE(run.waitForFinish());
}

TEST_F(ClaudeRealCLI, InterruptEndsALongStreamedTurnWithAResultAndTheNextTurnRuns)
{
    m_api.addTurn(ScriptedMessagesAPI::Turn::endlessText(u"more "_qs, 30ms));
    m_api.addTurn(ScriptedMessagesAPI::Turn::text({u"Still here."_qs}));
    AgentRun run(configuration());
    ASSERT_TRUE(run.process->start().ok());
    run.process->send(u"Talk for a long time."_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return run.all<AgentStreamEvent::TextDelta>().size() >= 3; },
                                       startLimit));
    EXPECT_TRUE(run.all<AgentStreamEvent::Result>().isEmpty());

    run.process->interrupt();
    ASSERT_TRUE(run.waitForResults(1, 15s));
    EXPECT_FALSE(run.finished);
    // claude hung up on the stream rather than reading it to an end that never comes.
    EXPECT_TRUE(TestSupport::waitUntil([&] { return m_api.abandonedStreams() == 1; }, 10s));

    const qsizetype before = run.all<AgentStreamEvent::TextDelta>().size();
    run.process->send(u"Are you there?"_qs);
    ASSERT_TRUE(run.waitForResults(2));
    EXPECT_EQ(run.all<AgentStreamEvent::TextDelta>().mid(before),
              QList<AgentStreamEvent::TextDelta>{{u"Still here."_qs}});
    EXPECT_FALSE(run.all<AgentStreamEvent::Result>().at(1).isError);
    run.process->terminate();
    EXPECT_TRUE(run.waitForFinish());
}

TEST_F(ClaudeRealCLI, ASecondProcessResumesTheConversation)
{
    m_api.addTurn(ScriptedMessagesAPI::Turn::text({u"The answer is 42."_qs}));
    m_api.addTurn(ScriptedMessagesAPI::Turn::text({u"You asked about 42."_qs}));
    QString sessionID;
    {
        AgentRun first(configuration());
        ASSERT_TRUE(first.process->start().ok());
        first.process->send(u"What is the answer?"_qs);
        ASSERT_TRUE(first.waitForResults(1, startLimit));
        sessionID = first.all<AgentStreamEvent::Result>().at(0).sessionID.value_or(QString());
        first.process->terminate();
        ASSERT_TRUE(first.waitForFinish());
    }
    ASSERT_FALSE(sessionID.isEmpty());

    ClaudeCodeConfiguration c = configuration();
    c.resumeSessionID = sessionID;
    AgentRun second(c);
    ASSERT_TRUE(second.process->start().ok());
    second.process->send(u"What did I ask?"_qs);
    ASSERT_TRUE(second.waitForResults(1, startLimit));
    EXPECT_EQ(second.text(), u"You asked about 42."_qs);
    const auto requests = m_api.turnRequests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_EQ(transcript(requests[1]),
              (QStringList{u"user: What is the answer?"_qs, u"assistant: The answer is 42."_qs,
                           u"user: What did I ask?"_qs}))
        << transcript(requests[1]).join(u'\n').toStdString();
    second.process->terminate();
    EXPECT_TRUE(second.waitForFinish());
}

TEST_F(ClaudeRealCLI, TerminateLeavesNoChildAndNoConfigurationFile)
{
    NotingToolServer tools;
    const std::optional<QUrl> url = tools.start();
    ASSERT_TRUE(url);
    m_api.addTurn(ScriptedMessagesAPI::Turn::endlessText(u"busy "_qs, 30ms));
    ClaudeCodeConfiguration c = configuration();
    c.mcpConfig = tools.mcpConfig(*url);
    AgentRun run(c);
    ASSERT_TRUE(run.process->start().ok());
    EXPECT_EQ(configFilesLeft().size(), 1);
    run.process->send(u"Keep busy."_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !run.all<AgentStreamEvent::TextDelta>().isEmpty(); },
                                       startLimit));

    // claude and all it started, in the middle of a turn.
    const qint64 pid = run.process->processIdentifier();
    ASSERT_GT(pid, 0);
    QList<qint64> family{pid};
    for (qsizetype i = 0; i < family.size(); ++i)
        family += TestSupport::childProcesses(family[i]);

    run.process->terminate();
    ASSERT_TRUE(run.waitForFinish());
    ASSERT_FALSE(run.events.isEmpty());
    EXPECT_TRUE(run.events.last().as<AgentStreamEvent::Exited>());
    EXPECT_FALSE(run.process->isRunning());
    for (qint64 member : family)
        EXPECT_TRUE(TestSupport::waitUntil([&] { return !TestSupport::processRuns(member); }, 5s))
            << "process " << member << " outlived terminate()";
    EXPECT_FALSE(TestSupport::childProcesses(QCoreApplication::applicationPid()).contains(pid));
    EXPECT_EQ(configFilesLeft(), QStringList());
    EXPECT_FALSE(run.process->mcpConfigFile());
}

TEST_F(ClaudeRealCLI, AClaudeThatDiesAtStartEndsWithItsExitStatus)
{
    const QString script = TestSupport::writeFile(path(u"project"_qs), u"claude"_qs,
                                                  "#!/bin/sh\necho 'cannot start' >&2\nexit 3\n");
    QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    ClaudeCodeConfiguration c = configuration();
    c.executable = script;
    c.mcpConfig = JSONValue{{u"mcpServers"_qs, JSONValue::Object{}}};
    AgentRun run(c);
    ASSERT_TRUE(run.process->start().ok());
    run.process->send(u"Hello?"_qs);
    ASSERT_TRUE(run.waitForFinish(10s));
    ASSERT_FALSE(run.events.isEmpty());
    EXPECT_EQ(run.events.last(), AgentStreamEvent{AgentStreamEvent::Exited{3}});
    QString stderrText;
    for (const auto &piece : run.all<AgentStreamEvent::Stderr>())
        stderrText += piece.text;
    EXPECT_EQ(stderrText, u"cannot start\n"_qs);
    EXPECT_TRUE(run.all<AgentStreamEvent::Result>().isEmpty());
    EXPECT_EQ(configFilesLeft(), QStringList());
    // A message to the dead child goes nowhere.
    run.process->send(u"Still there?"_qs);
    run.process->terminate();
}

// The stand-in itself: what the CLI may send besides conversation turns is answered without using
// up the script, and the turns stream as server-sent events.
TEST(ScriptedMessagesAPI, AnswersEverythingButTurnsWithoutUsingTheScript)
{
    ScriptedMessagesAPI api;
    const Result<quint16> port = api.start();
    ASSERT_TRUE(port.ok());
    api.addTurn(ScriptedMessagesAPI::Turn::text({u"Scripted."_qs}));
    const auto post = [](const char *target, const QByteArray &body) {
        return QByteArray("POST ") + target + " HTTP/1.1\r\nHost: x\r\nContent-Type: application/json\r\n" +
               "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    };
    struct Case {
        QByteArray request;
        int status;
        const char *bodyHolds;
        bool head = false;
    };
    const QList<Case> cases = {
        {post("/v1/messages/count_tokens?beta=true", R"({"model":"m","messages":[],"tools":[]})"), 200,
         R"("input_tokens":42)"},
        {post("/v1/messages?beta=true", R"({"model":"small","max_tokens":50,"messages":[]})"), 200,
         "Side answer."},
        {"GET /v1/models HTTP/1.1\r\nHost: x\r\n\r\n", 404, "not_found_error"},
        {"HEAD / HTTP/1.1\r\nHost: x\r\n\r\n", 404, "", true},
    };
    HTTPTestClient client(*port);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.request.left(40).toStdString());
        ASSERT_TRUE(client.send(c.request));
        const HTTPTestReply reply = client.read(c.head);
        EXPECT_EQ(reply.status, c.status);
        EXPECT_TRUE(reply.body.contains(c.bodyHolds)) << reply.body.toStdString();
    }
    EXPECT_TRUE(api.turnRequests().isEmpty());

    for (const char *expected : {"Scripted.", ScriptedMessagesAPI::fallbackText}) {
        HTTPTestClient turn(*port);
        ASSERT_TRUE(turn.send(
            post("/v1/messages?beta=true", R"({"model":"m","stream":true,"tools":[],"messages":[]})")));
        QByteArray stream;
        ASSERT_TRUE(turn.closedWithin(10s, &stream));
        EXPECT_TRUE(stream.startsWith("HTTP/1.1 200 OK\r\n"));
        EXPECT_TRUE(stream.contains("event: message_start\n"));
        EXPECT_TRUE(stream.contains(QByteArray(R"({"text":")") + expected + R"(","type":"text_delta"})"))
            << stream.toStdString();
        EXPECT_TRUE(stream.endsWith("event: message_stop\ndata: {\"type\":\"message_stop\"}\n\n"));
    }
    QList<ScriptedMessagesAPI::Kind> kinds;
    for (const auto &request : api.requests())
        kinds.append(request.kind);
    using Kind = ScriptedMessagesAPI::Kind;
    EXPECT_EQ(kinds,
              (QList<Kind>{Kind::CountTokens, Kind::Side, Kind::Other, Kind::Other, Kind::Turn, Kind::Turn}));
    EXPECT_EQ(api.turnRequests().at(1).turn, 1);
}

} // namespace
