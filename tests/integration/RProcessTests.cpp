// RProcess against a real R with the kernel, and against small shell children for the process
// layer's corner cases (a child that ignores SIGTERM, a pipe held open by a grandchild).
#include "CommandOutput.h"
#include "PosixChild.h"
#include "RProcess.h"
#include "TestSupport.h"
#include "ToolLocator.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <csignal>
#include <thread>

using namespace std::chrono_literals;

namespace {

struct Recorder {
    QList<RProcessEvent> events;

    explicit Recorder(RProcess &process)
    {
        QObject::connect(&process, &RProcess::eventReceived,
                         [this](const RProcessEvent &e) { events.append(e); });
    }
    bool exited() const { return !events.isEmpty() && events.last().kind == RProcessEvent::Kind::Exited; }
    qsizetype countPrompts(RPrompt::Kind kind) const
    {
        qsizetype n = 0;
        for (const auto &e : events)
            if (e.kind == RProcessEvent::Kind::Stdout && e.stream.kind == RStreamEvent::Kind::Prompt &&
                e.stream.prompt.kind == kind)
                ++n;
        return n;
    }
    QString stdoutText(qsizetype from = 0) const
    {
        QString text;
        for (qsizetype i = from; i < events.size(); ++i)
            if (events[i].kind == RProcessEvent::Kind::Stdout &&
                events[i].stream.kind == RStreamEvent::Kind::Text)
                text += events[i].stream.text;
        return text;
    }
    // Waits for the ready prompt after the kernel's handshake.
    bool waitUntilReady()
    {
        return TestSupport::waitUntil([&] { return countPrompts(RPrompt::Kind::Ready) >= 1 || exited(); }) &&
               !exited();
    }
};

QString writeScript(QTemporaryDir &dir, const QString &body)
{
    const QString path = dir.filePath(QStringLiteral("child.sh"));
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write(("#!/bin/sh\n" + body + "\n").toUtf8());
    file.close();
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

} // namespace

TEST(RProcessWithR, HandshakeThenEchoTextPrompt)
{
    RProcess process(TestSupport::rExecutable(), QDir::tempPath(), TestSupport::kernelScript());
    Recorder recorder(process);
    QString error;
    ASSERT_TRUE(process.start({}, true, &error)) << error.toStdString();
    ASSERT_TRUE(recorder.waitUntilReady()) << recorder.stdoutText().toStdString();

    // The ready frame carries R's version and the child's pid.
    bool sawReady = false;
    for (const auto &e : recorder.events) {
        if (e.kind == RProcessEvent::Kind::Stdout && e.stream.kind == RStreamEvent::Kind::Event &&
            e.stream.value[u"type"].stringValue() == QStringLiteral("ready")) {
            EXPECT_TRUE(e.stream.value[u"version"].stringValue().value_or(QString()).startsWith(u'4'));
            EXPECT_EQ(e.stream.value[u"pid"].intValue(), process.processIdentifier());
            sawReady = true;
        }
    }
    EXPECT_TRUE(sawReady);

    const qsizetype mark = recorder.events.size();
    process.send(QStringLiteral("cat('Grüße 你好 🎉\\n'); 1+1"));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.countPrompts(RPrompt::Kind::Ready) >= 2; }));
    QList<RStreamEvent> after;
    for (qsizetype i = mark; i < recorder.events.size(); ++i)
        after.append(recorder.events[i].stream);
    ASSERT_GE(after.size(), 3);
    EXPECT_EQ(after.first().kind, RStreamEvent::Kind::Echo);
    EXPECT_EQ(after.first().text, QStringLiteral("cat('Grüße 你好 🎉\\n'); 1+1"));
    EXPECT_EQ(after.last().kind, RStreamEvent::Kind::Prompt);
    EXPECT_EQ(recorder.stdoutText(mark), QStringLiteral("Grüße 你好 🎉\n[1] 2\n"));

    process.send(QStringLiteral("q()"));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.exited(); }));
    EXPECT_EQ(recorder.events.last().text, QStringLiteral("R quit."));
    EXPECT_FALSE(process.isRunning());
}

TEST(RProcessLaunch, MissingWorkingDirectoryOrExecutableFails)
{
    RProcess missingDir(TestSupport::rExecutable(), QStringLiteral("/nonexistent/vesk-test"),
                        TestSupport::kernelScript());
    Recorder recorder(missingDir);
    QString error;
    EXPECT_FALSE(missingDir.start({}, true, &error));
    EXPECT_TRUE(error.contains(QStringLiteral("/nonexistent/vesk-test"))) << error.toStdString();

    RProcess missingExecutable(QStringLiteral("/nonexistent/R"), QDir::tempPath(),
                               TestSupport::kernelScript());
    EXPECT_FALSE(missingExecutable.start({}, true, &error));
    EXPECT_FALSE(error.isEmpty());
    TestSupport::spin(100ms);
    EXPECT_TRUE(recorder.events.isEmpty());
    EXPECT_FALSE(missingDir.isRunning());
}

TEST(RProcessLaunch, ChildIgnoringTermIsKilledAndExitComesLast)
{
    QTemporaryDir dir;
    const QString script = writeScript(dir, QStringLiteral("trap '' TERM\nprintf 'last words'\n"
                                                           "while :; do sleep 0.05; done"));
    RProcess process(script, dir.path(), TestSupport::kernelScript());
    Recorder recorder(process);
    QString error;
    ASSERT_TRUE(process.start({}, true, &error)) << error.toStdString();
    ASSERT_TRUE(
        TestSupport::waitUntil([&] { return recorder.stdoutText().contains(QStringLiteral("last")); }));
    process.terminate();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.exited(); }, 6s));
    EXPECT_EQ(recorder.events.last().text, QStringLiteral("R was terminated by signal 9."));
    EXPECT_EQ(recorder.events.last().status, 9);
    EXPECT_EQ(recorder.stdoutText(), QStringLiteral("last words"));

    // After the exit, sending and terminating do nothing.
    const qsizetype count = recorder.events.size();
    process.send(QStringLiteral("1"));
    process.terminate();
    TestSupport::spin(100ms);
    EXPECT_EQ(recorder.events.size(), count);
}

TEST(RProcessLaunch, TerminatingEndsWhatTheChildStartedToo)
{
    QTemporaryDir dir;
    // As R's system() does: a child of the child, which the shell waits for.
    const QString script = writeScript(dir, QStringLiteral("sleep 60 &\necho $!\nwait"));
    RProcess process(script, dir.path(), TestSupport::kernelScript());
    Recorder recorder(process);
    QString error;
    ASSERT_TRUE(process.start({}, true, &error)) << error.toStdString();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.stdoutText().endsWith(u'\n'); }));
    const qint64 sleeper = recorder.stdoutText().trimmed().toLongLong();
    ASSERT_TRUE(TestSupport::processRuns(sleeper));
    process.terminate();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.exited(); }, 6s));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return !TestSupport::processRuns(sleeper); }, 3s));
}

TEST(PosixChildLaunch, ChildOfAThreadThatEndedLivesOn)
{
    // The kernel's parent-death signal follows the thread that forked: a child forked on a short-lived
    // thread must not die with it.
    PosixChild child;
    bool started = false;
    std::thread([&] {
        PosixChild::Options options;
        options.program = QStringLiteral("/bin/sleep");
        options.arguments = {QStringLiteral("30")};
        options.environment = PosixChild::systemEnvironment();
        started = child.start(options, nullptr);
    }).join();
    ASSERT_TRUE(started);
    TestSupport::spin(300ms);
    EXPECT_TRUE(TestSupport::processRuns(child.pid()));
    ::kill(child.pid(), SIGKILL);
    EXPECT_EQ(PosixChild::wait(child.pid()).code, SIGKILL);
}

TEST(RProcessLaunch, ExitWithHeldPipeStillEndsTheStream)
{
    QTemporaryDir dir;
    // A grandchild keeps standard output open long after the child is gone.
    const QString script = writeScript(dir, QStringLiteral("(sleep 20) &\nprintf 'partial line'\nexit 3"));
    RProcess process(script, dir.path(), TestSupport::kernelScript());
    Recorder recorder(process);
    QString error;
    ASSERT_TRUE(process.start({}, true, &error)) << error.toStdString();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.exited(); }, 10s));
    EXPECT_EQ(recorder.events.last().text, QStringLiteral("R exited with status 3."));
    EXPECT_EQ(recorder.events.last().status, 3);
    EXPECT_EQ(recorder.stdoutText(), QStringLiteral("partial line"));
}

TEST(RProcessEnvironment, BuiltFromTheParentInOrder)
{
    const QStringList parent = {QStringLiteral("LANG=de_DE.utf-8"),
                                QStringLiteral("PATH=/usr/local/bin2:/bin"), QStringLiteral("RSTUDIO=1"),
                                QStringLiteral("VESK_KERNEL_TOKEN=forged"), QStringLiteral("HOME=/home/x")};
    const QStringList env =
        RProcess::childEnvironment(parent,
                                   {{QStringLiteral("TERM"), QStringLiteral("xterm")},
                                    {QStringLiteral("VESK_KERNEL_TOKEN"), QStringLiteral("x")}},
                                   QStringLiteral("0123456789abcdef0123456789abcdef"));
    // "/usr/local/bin2" contains "/usr/local/bin" as a substring, which counts.
    for (const char *entry :
         {"LANG=de_DE.utf-8", "LC_CTYPE=de_DE.utf-8",
          "PATH=/usr/local/bin2:/bin:/opt/homebrew/bin:/Library/TeX/texbin", "R_CLI_NUM_COLORS=256",
          "TERM=xterm", "VESK_KERNEL_TOKEN=0123456789abcdef0123456789abcdef", "HOME=/home/x"})
        EXPECT_TRUE(env.contains(QLatin1String(entry))) << entry;
    for (const QString &entry : env)
        EXPECT_FALSE(entry.startsWith(QStringLiteral("RSTUDIO="))) << entry.toStdString();

    const QStringList bare =
        RProcess::childEnvironment({QStringLiteral("LANG=C")}, {}, QStringLiteral("0123456789abcdef"));
    for (const char *entry :
         {"LANG=en_US.UTF-8", "LC_CTYPE=en_US.UTF-8",
          "PATH=/usr/bin:/bin:/usr/sbin:/sbin:/usr/local/bin:/opt/homebrew/bin:/Library/TeX/texbin"})
        EXPECT_TRUE(bare.contains(QLatin1String(entry))) << entry;

    EXPECT_EQ(RProcess::arguments(false).last(), QStringLiteral("--no-init-file"));
    EXPECT_FALSE(RProcess::arguments(true).contains(QStringLiteral("--no-init-file")));
}

TEST(CommandOutputRun, OutputTimeoutAndFailure)
{
    EXPECT_EQ(CommandOutput::run({QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                                  QStringLiteral("echo hi; echo err >&2; exit 4")},
                                 std::nullopt, 5s),
              QStringLiteral("hi\n"));
    EXPECT_FALSE(CommandOutput::run({QStringLiteral("/bin/sleep"), QStringLiteral("10")}, std::nullopt, 200ms)
                     .has_value());
    EXPECT_FALSE(CommandOutput::run({QStringLiteral("/nonexistent/tool")}, std::nullopt, 1s).has_value());
    EXPECT_EQ(
        CommandOutput::run({QStringLiteral("/bin/sh"), QStringLiteral("-c"), QStringLiteral("echo $VESK_X")},
                           QStringList{QStringLiteral("VESK_X=42")}, 5s),
        QStringLiteral("42\n"));
}

TEST(RLocatorFind, PreferredPathMustBeExecutable)
{
    EXPECT_EQ(RLocator::find(QStringLiteral("/bin/sh")), QStringLiteral("/bin/sh"));
    if (const auto fallback = RLocator::find(QStringLiteral("/nonexistent/R"))) {
        EXPECT_TRUE(RLocator::candidates().contains(*fallback));
    }
    EXPECT_EQ(RLocator::find(QString()), RLocator::find(std::nullopt));
}
