#include "ClaudeCodeProcess.h"

#include "QStringPrinting.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QUuid>

#include <gtest/gtest.h>

#include <csignal>

#include <sys/stat.h>

using namespace std::chrono_literals;

namespace {

// "a|b|" is the list "a", "b", "".
QStringList list(const char *joined)
{
    return QString::fromUtf8(joined).split(u'|');
}

TEST(ClaudeCodeConfiguration, BuildsTheCommandLineFromItsOptions)
{
    const QStringList fixed = list("-p|--input-format|stream-json|--output-format|stream-json|--verbose|"
                                   "--include-partial-messages|--setting-sources||--disable-slash-commands|"
                                   "--strict-mcp-config|--system-prompt|Be brief.|--tools");
    const JSONValue servers{{u"mcpServers"_qs, JSONValue{}}};
    struct Case {
        std::function<void(ClaudeCodeConfiguration &)> set;
        std::optional<QString> file;
        const char *after; // everything after "--tools"
    };
    const QList<Case> cases = {
        {[](auto &) {}, std::nullopt, ""},
        {[](auto &c) {
             c.builtInTools = {u"Read"_qs, u"Grep"_qs};
         },
         std::nullopt, "Read,Grep"},
        {[&](auto &c) { c.mcpConfig = servers; }, std::nullopt, "|--mcp-config|{\"mcpServers\":null}"},
        {[&](auto &c) { c.mcpConfig = servers; }, u"/tmp/x.json"_qs, "|--mcp-config|/tmp/x.json"},
        {[](auto &c) { c.model = c.effort = u""_qs; }, std::nullopt, ""},
        {[](auto &c) { c.resumeSessionID = u""_qs; }, std::nullopt, "|--resume|"},
        {[&](auto &c) {
             c.mcpConfig = servers;
             c.allowedTools = {u"mcp__vesk__run"_qs, u"mcp__vesk__view"_qs};
             c.model = u"opus"_qs;
             c.effort = u"high"_qs;
             c.resumeSessionID = u"abc"_qs;
             c.name = u"Analysis"_qs;
         },
         u"/tmp/x.json"_qs,
         "|--mcp-config|/tmp/x.json|--allowedTools|mcp__vesk__run,mcp__vesk__view|--model|opus|--effort|high|"
         "--resume|abc|--name|Analysis"},
    };
    for (const Case &c : cases) {
        ClaudeCodeConfiguration configuration;
        configuration.systemPrompt = u"Be brief."_qs;
        c.set(configuration);
        EXPECT_EQ(configuration.arguments(c.file), fixed + list(c.after)) << c.after;
    }
}

// What a process told, as it came.
struct Recorder {
    QList<AgentStreamEvent> events;
    int finishedCount = 0;
    qsizetype eventsAtFinish = -1;

    explicit Recorder(ClaudeCodeProcess &process)
    {
        QObject::connect(&process, &ClaudeCodeProcess::event,
                         [this](const AgentStreamEvent &e) { events << e; });
        QObject::connect(&process, &ClaudeCodeProcess::finished, [this] {
            ++finishedCount;
            eventsAtFinish = events.size();
        });
    }
    bool waitFinished()
    {
        return TestSupport::waitUntil([&] { return finishedCount > 0; });
    }
    template <typename T> QStringList texts(QString T::*field) const
    {
        QStringList result;
        for (const AgentStreamEvent &e : events)
            if (const T *payload = e.as<T>())
                result << payload->*field;
        return result;
    }
    QStringList statuses() const { return texts(&AgentStreamEvent::Status::status); }
    QString stderrText() const { return texts(&AgentStreamEvent::Stderr::text).join(QString()); }
    // The status of the Exited event, which must be the last event before the one end.
    std::optional<qint32> exitStatus() const
    {
        const auto *exited = events.isEmpty() ? nullptr : events.last().as<AgentStreamEvent::Exited>();
        if (!exited || finishedCount != 1 || eventsAtFinish != events.size())
            return std::nullopt;
        return exited->status;
    }
};

class ClaudeCodeProcessTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    const JSONValue mcpConfig{{u"mcpServers"_qs, JSONValue{{u"vesk"_qs, JSONValue{{u"type"_qs, "http"}}}}}};

    // A stand-in for claude: a shell script with the working folder in $D.
    ClaudeCodeConfiguration fake(const QByteArray &body)
    {
        const QString path = TestSupport::writeFile(dir.path(), u"claude"_qs,
                                                    "#!/bin/sh\nD='" + dir.path().toUtf8() + "'\n" + body);
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        ClaudeCodeConfiguration configuration;
        configuration.executable = path;
        configuration.workingDirectory = dir.path();
        configuration.systemPrompt = u"Be brief."_qs;
        return configuration;
    }
    // What the fake child wrote to `name` in the folder.
    QByteArray file(const char *name) const
    {
        QFile file(dir.filePath(QLatin1String(name)));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

TEST_F(ClaudeCodeProcessTest, FramesLinesAcrossReadsAndFlushesTheLastOneBeforeTheExit)
{
    // A line whose newline comes only after a message on stdin; an empty line and a broken one; a line
    // longer than a read; and a last line with no newline.
    ClaudeCodeProcess process(fake(R"sh(
printf '%s' '{"type":"system","subtype":"status","status":"one"}'
read line
printf '\n\nnot json\n{"type":"system","subtype":"status","status":"two"}\n'
printf '%s' '{"type":"system","subtype":"status","status":"'
head -c 200000 /dev/zero | tr '\0' x
printf '"}\n'
printf '%s' '{"type":"system","subtype":"status","status":"last"}'
exit 3
)sh"));
    Recorder recorder(process);
    ASSERT_TRUE(process.start().ok());
    TestSupport::spin(300ms);
    EXPECT_TRUE(recorder.events.isEmpty());
    process.send(u"go"_qs);
    ASSERT_TRUE(recorder.waitFinished());
    EXPECT_EQ(recorder.statuses(), (QStringList{u"one"_qs, u"two"_qs, QString(200000, u'x'), u"last"_qs}));
    EXPECT_EQ(recorder.exitStatus(), 3);
    EXPECT_EQ(recorder.events.size(), 5);
}

TEST_F(ClaudeCodeProcessTest, TellsStandardErrorAsItComesAndASignalLikeAShell)
{
    ClaudeCodeProcess process(fake(R"sh(
printf 'first ' >&2
read line
printf 'bad \377 byte\n' >&2
kill -TERM $$
)sh"));
    Recorder recorder(process);
    ASSERT_TRUE(process.start().ok());
    // No line framing: the piece without a newline comes on its own.
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !recorder.events.isEmpty(); }));
    EXPECT_EQ(recorder.stderrText(), u"first "_qs);
    process.send(u"go"_qs);
    ASSERT_TRUE(recorder.waitFinished());
    EXPECT_EQ(recorder.stderrText(), u"first bad \uFFFD byte\n"_qs);
    EXPECT_EQ(recorder.exitStatus(), ClaudeCodeProcess::signalStatusBase + SIGTERM);
}

TEST_F(ClaudeCodeProcessTest, RunsWithItsCommandLineEnvironmentAndAPrivateConfiguration)
{
    const QByteArray inheritedPath = qgetenv("PATH");
    const auto restore = qScopeGuard([&] { qputenv("PATH", inheritedPath); });
    struct Case {
        const char *name;
        std::optional<QByteArray> path;
        QString expected;
    };
    for (const Case &c : {Case{"inherited PATH", inheritedPath, QString::fromLocal8Bit(inheritedPath)},
                          Case{"no PATH", std::nullopt, u"/usr/bin:/bin"_qs}}) {
        ClaudeCodeConfiguration configuration = fake(R"sh(
for a in "$@"; do printf '[%s]\n' "$a"; done > "$D/args"
printf '%s\n%s\n%s\n' "$PATH" "$CLAUDE_CODE_ENTRYPOINT" "$(pwd)" > "$D/env"
while [ "$1" != --mcp-config ]; do shift; done
stat -c %a "$2" > "$D/mode"
cat "$2" > "$D/config"
)sh");
        configuration.mcpConfig = mcpConfig;
        QDir(dir.path()).mkdir(u"work"_qs);
        configuration.workingDirectory = dir.filePath(u"work"_qs);
        ClaudeCodeProcess process(configuration);
        Recorder recorder(process);
        if (c.path)
            qputenv("PATH", *c.path);
        else
            qunsetenv("PATH");
        const Result<void> started = process.start();
        qputenv("PATH", inheritedPath);
        ASSERT_TRUE(started.ok()) << c.name << started.error().toStdString();
        const std::optional<QString> configFile = process.mcpConfigFile();
        ASSERT_TRUE(configFile.has_value());
        EXPECT_TRUE(QFileInfo(*configFile).fileName().startsWith(u"vesk-mcp-"_qs));
        ASSERT_TRUE(recorder.waitFinished()) << c.name;
        EXPECT_EQ(recorder.exitStatus(), 0) << c.name;

        QString args;
        for (const QString &argument : configuration.arguments(configFile))
            args += u'[' + argument + u"]\n"_qs;
        EXPECT_EQ(QString::fromUtf8(file("args")), args) << c.name;
        EXPECT_EQ(QString::fromUtf8(file("env")), dir.path() + u':' + c.expected +
                                                      u":/usr/local/bin:/opt/homebrew/bin\nsdk-vesk\n"_qs +
                                                      configuration.workingDirectory + u'\n')
            << c.name;
        EXPECT_EQ(file("mode"), "600\n") << c.name;
        EXPECT_EQ(JSONValue::parse(file("config")), mcpConfig) << c.name;
        EXPECT_FALSE(QFile::exists(*configFile)) << c.name;
        EXPECT_FALSE(process.mcpConfigFile().has_value()) << c.name;
    }
}

TEST_F(ClaudeCodeProcessTest, WritesOneJSONLinePerMessageAndNothingOnceTheChildIsGone)
{
    ClaudeCodeProcess process(fake("head -n 3 > \"$D/stdin\"\n"));
    Recorder recorder(process);
    ASSERT_TRUE(process.start().ok());
    const JSONValue blocks =
        JSONValue::array({JSONValue{{u"type"_qs, "image"}, {u"source"_qs, JSONValue{{u"data"_qs, "AAAA"}}}}});
    process.send(u"two\nlines \"quoted\""_qs);
    process.send(blocks);
    process.interrupt();
    ASSERT_TRUE(recorder.waitFinished());
    EXPECT_EQ(recorder.exitStatus(), 0);
    process.send(u"too late"_qs);
    process.interrupt();

    const QList<QByteArray> lines = file("stdin").split('\n');
    ASSERT_EQ(lines.size(), 4);
    EXPECT_EQ(lines[3], "");
    auto user = [](const JSONValue &content) {
        return JSONValue{{u"type"_qs, "user"},
                         {u"message"_qs, JSONValue{{u"role"_qs, "user"}, {u"content"_qs, content}}}};
    };
    EXPECT_EQ(
        JSONValue::parse(lines[0]),
        user(JSONValue::array({JSONValue{{u"type"_qs, "text"}, {u"text"_qs, u"two\nlines \"quoted\""_qs}}})));
    EXPECT_EQ(JSONValue::parse(lines[1]), user(blocks));
    const std::optional<JSONValue> interrupt = JSONValue::parse(lines[2]);
    ASSERT_TRUE(interrupt.has_value());
    EXPECT_EQ((*interrupt)[u"type"], JSONValue("control_request"));
    EXPECT_EQ((*interrupt)[u"request"], (JSONValue{{u"subtype"_qs, "interrupt"}}));
    EXPECT_FALSE(QUuid::fromString((*interrupt)[u"request_id"].stringValue().value_or(QString())).isNull());
}

TEST_F(ClaudeCodeProcessTest, TerminateEndsTheChildRemovesTheFileAndStillFinishes)
{
    struct Case {
        const char *name;
        QByteArray body;
        qint32 status;
    };
    // A child that ignores the request to end is killed a little later.
    for (const Case &c : {Case{"plain", "exec sleep 30\n", ClaudeCodeProcess::signalStatusBase + SIGTERM},
                          Case{"stubborn", "trap '' TERM\nwhile :; do sleep 0.1; done\n",
                               ClaudeCodeProcess::signalStatusBase + SIGKILL}}) {
        ClaudeCodeConfiguration configuration = fake(c.body);
        configuration.mcpConfig = mcpConfig;
        ClaudeCodeProcess process(configuration);
        Recorder recorder(process);
        ASSERT_TRUE(process.start().ok()) << c.name;
        const qint64 pid = process.processIdentifier();
        const std::optional<QString> configFile = process.mcpConfigFile();
        ASSERT_TRUE(configFile.has_value()) << c.name;
        struct stat info {};
        ASSERT_EQ(::stat(QFile::encodeName(*configFile).constData(), &info), 0) << c.name;
        EXPECT_EQ(info.st_mode & 0777, 0600u) << c.name;
        TestSupport::spin(100ms);
        EXPECT_TRUE(process.isRunning()) << c.name;

        process.terminate();
        EXPECT_FALSE(QFile::exists(*configFile)) << c.name;
        ASSERT_TRUE(recorder.waitFinished()) << c.name;
        EXPECT_EQ(recorder.exitStatus(), c.status) << c.name;
        EXPECT_FALSE(process.isRunning()) << c.name;
        // Reaped: not even a zombie is left.
        EXPECT_FALSE(QFileInfo::exists(u"/proc/%1"_qs.arg(pid))) << c.name;
        process.terminate(); // after the exit: nothing happens
        TestSupport::spin(50ms);
        EXPECT_EQ(recorder.finishedCount, 1) << c.name;
    }
}

TEST_F(ClaudeCodeProcessTest, EndsItsChildWhenDestroyed)
{
    qint64 pid = -1;
    {
        ClaudeCodeProcess process(fake("exec sleep 30\n"));
        ASSERT_TRUE(process.start().ok());
        pid = process.processIdentifier();
    }
    EXPECT_TRUE(TestSupport::waitUntil([&] { return !QFileInfo::exists(u"/proc/%1"_qs.arg(pid)); }));
}

TEST_F(ClaudeCodeProcessTest, FailsToStartWithAMessageAndLeavesNothingBehind)
{
    const QByteArray savedTemp = qgetenv("TMPDIR");
    const auto restore = qScopeGuard([&] {
        if (savedTemp.isNull())
            qunsetenv("TMPDIR");
        else
            qputenv("TMPDIR", savedTemp);
    });
    QDir(dir.path()).mkdir(u"tmp"_qs);
    struct Case {
        const char *name;
        QString executable;
        QString temporary;
        QString named; // in the message
    };
    const QString missing = dir.filePath(u"missing/claude"_qs);
    const QString noTemp = dir.filePath(u"no-such-folder"_qs);
    // A file where the folder should be: the file cannot be created in it.
    const QString fileTemp = TestSupport::writeFile(dir.path(), u"not-a-folder"_qs, {});
    const QString executable = fake("exit 0\n").executable;
    for (const Case &c : {Case{"no executable", missing, dir.filePath(u"tmp"_qs), missing},
                          Case{"no temporary folder", executable, noTemp, noTemp},
                          Case{"temporary folder unusable", executable, fileTemp, fileTemp}}) {
        ClaudeCodeConfiguration configuration = fake("exit 0\n");
        configuration.executable = c.executable;
        configuration.mcpConfig = mcpConfig;
        ClaudeCodeProcess process(configuration);
        Recorder recorder(process);
        qputenv("TMPDIR", QFile::encodeName(c.temporary));
        const Result<void> started = process.start();
        qunsetenv("TMPDIR");
        ASSERT_FALSE(started.ok()) << c.name;
        EXPECT_TRUE(started.error().contains(c.named)) << c.name << started.error().toStdString();
        EXPECT_FALSE(process.isRunning()) << c.name;
        EXPECT_EQ(QDir(dir.filePath(u"tmp"_qs)).entryList(QDir::Files), QStringList()) << c.name;
        TestSupport::spin(300ms);
        EXPECT_TRUE(recorder.events.isEmpty()) << c.name;
        EXPECT_EQ(recorder.finishedCount, 0) << c.name;
    }
}

} // namespace
