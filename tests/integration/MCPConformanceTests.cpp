// The tool server against the official MCP TypeScript client SDK (tests/mcp, installed by npm ci):
// the real client connects with the bearer token, lists and calls every demo tool, cancels a slow
// call and ends its session with DELETE.
#include "MCPDemoTools.h"
#include "MCPServer.h"
#include "TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>

#include <gtest/gtest.h>

TEST(MCPConformance, OfficialClientSDKWalk)
{
    const QString node = QStandardPaths::findExecutable(u"node"_qs);
    // Both are installed wherever the tests run (scripts/setup.sh), so a missing one is a failure.
    ASSERT_FALSE(node.isEmpty()) << "node is not installed; scripts/setup.sh installs it";
    ASSERT_TRUE(
        QFileInfo::exists(TestSupport::sourcePath(u"tests/mcp/node_modules/@modelcontextprotocol/sdk"_qs)))
        << "tests/mcp/node_modules is missing; run: npm ci --prefix tests/mcp";

    MCPDemoTools tools;
    MCPServer server(u"vesk-conformance-server"_qs, u"0.1.0"_qs, u"Demo tools only."_qs,
                     MCPServer::makeToken());
    tools.registerIn(server);
    const auto started = server.start(0);
    ASSERT_TRUE(std::holds_alternative<QUrl>(started))
        << std::get<MCPServerError>(started).description().toStdString();

    QProcess client;
    client.setProcessChannelMode(QProcess::MergedChannels);
    client.setWorkingDirectory(TestSupport::sourcePath(u"tests/mcp"_qs));
    client.start(node, {TestSupport::sourcePath(u"tests/mcp/conformance-client.mjs"_qs),
                        std::get<QUrl>(started).toString(), server.token()});
    ASSERT_TRUE(client.waitForStarted(10000));
    // The server answers on its own threads, so this thread may simply wait.
    ASSERT_TRUE(client.waitForFinished(60000)) << "the client did not finish";
    const QString output = QString::fromUtf8(client.readAll());
    SCOPED_TRACE(output.toStdString());
    EXPECT_EQ(client.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(client.exitCode(), 0);

    QStringList passed;
    for (const QString &line : output.split(u'\n')) {
        if (line.startsWith(u"ok "))
            passed.append(line.section(u' ', 1, 1));
    }
    EXPECT_EQ(passed, QStringList({"wrong-token", "initialize", "server-info", "instructions", "list-tools",
                                   "tool-schema", "call-echo", "client-name", "call-error-result",
                                   "call-image", "call-slow", "cancel-slow", "ping", "delete-session"}));
    EXPECT_TRUE(output.contains(u"\ndone"));
    // The cancellation reached the tool itself, and the session is gone.
    EXPECT_TRUE(TestSupport::waitUntil([&] { return tools.slowCancelled == 1; }, std::chrono::seconds(10)));
    EXPECT_EQ(tools.slowStarted, 2);
    EXPECT_EQ(server.sessionCount(), 0);
}
