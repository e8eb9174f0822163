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

// An RProcess that runs a shell script in R's place, and what it sent.
struct ShellChild {
    QTemporaryDir dir;
    RProcess process;
    Recorder recorder{process};

    explicit ShellChild(const QString &body)
        : process(script(dir, body), dir.path(), TestSupport::kernelScript())
    {
    }
    static QString script(const QTemporaryDir &dir, const QString &body)
    {
        const QString path =
            TestSupport::writeFile(dir.path(), u"child.sh"_qs, ("#!/bin/sh\n" + body + "\n").toUtf8());
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }
    bool start()
    {
        QString error;
        const bool started = process.start({}, true, &error);
        EXPECT_TRUE(started) << error.toStdString();
        return started;
    }
};

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
            e.stream.value[u"type"].stringValue() == u"ready"_qs) {
            EXPECT_TRUE(e.stream.value[u"version"].stringValue().value_or(QString()).startsWith(u'4'));
            EXPECT_EQ(e.stream.value[u"pid"].intValue(), process.processIdentifier());
            sawReady = true;
        }
    }
    EXPECT_TRUE(sawReady);

    const qsizetype mark = recorder.events.size();
    process.send(u"cat('Grüße 你好 🎉\\n'); 1+1"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.countPrompts(RPrompt::Kind::Ready) >= 2; }));
    QList<RStreamEvent> after;
    for (qsizetype i = mark; i < recorder.events.size(); ++i)
        after.append(recorder.events[i].stream);
    ASSERT_GE(after.size(), 3);
    EXPECT_EQ(after.first().kind, RStreamEvent::Kind::Echo);
    EXPECT_EQ(after.first().text, u"cat('Grüße 你好 🎉\\n'); 1+1"_qs);
    EXPECT_EQ(after.last().kind, RStreamEvent::Kind::Prompt);
    EXPECT_EQ(recorder.stdoutText(mark), u"Grüße 你好 🎉\n[1] 2\n"_qs);

    process.send(u"q()"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.exited(); }));
    EXPECT_EQ(recorder.events.last().text, u"R quit."_qs);
    EXPECT_FALSE(process.isRunning());
}

TEST(RProcessLaunch, MissingWorkingDirectoryOrExecutableFails)
{
    RProcess missingDir(TestSupport::rExecutable(), u"/nonexistent/vesk-test"_qs,
                        TestSupport::kernelScript());
    Recorder recorder(missingDir);
    QString error;
    EXPECT_FALSE(missingDir.start({}, true, &error));
    EXPECT_TRUE(error.contains(u"/nonexistent/vesk-test"_qs)) << error.toStdString();

    RProcess missingExecutable(u"/nonexistent/R"_qs, QDir::tempPath(), TestSupport::kernelScript());
    EXPECT_FALSE(missingExecutable.start({}, true, &error));
    EXPECT_FALSE(error.isEmpty());
    TestSupport::spin(100ms);
    EXPECT_TRUE(recorder.events.isEmpty());
    EXPECT_FALSE(missingDir.isRunning());
}

TEST(RProcessLaunch, ChildIgnoringTermIsKilledAndExitComesLast)
{
    ShellChild child(u"trap '' TERM\nprintf 'last words'\nwhile :; do sleep 0.05; done"_qs);
    RProcess &process = child.process;
    Recorder &recorder = child.recorder;
    ASSERT_TRUE(child.start());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.stdoutText().contains(u"last"_qs); }));
    process.terminate();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.exited(); }, 6s));
    EXPECT_EQ(recorder.events.last().text, u"R was terminated by signal 9."_qs);
    EXPECT_EQ(recorder.events.last().status, 9);
    EXPECT_EQ(recorder.stdoutText(), u"last words"_qs);

    // After the exit, sending and terminating do nothing.
    const qsizetype count = recorder.events.size();
    process.send(u"1"_qs);
    process.terminate();
    TestSupport::spin(100ms);
    EXPECT_EQ(recorder.events.size(), count);
}

TEST(RProcessLaunch, TerminatingEndsWhatTheChildStartedToo)
{
    // As R's system() does: a child of the child, which the shell waits for.
    ShellChild child(u"sleep 60 &\necho $!\nwait"_qs);
    Recorder &recorder = child.recorder;
    ASSERT_TRUE(child.start());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.stdoutText().endsWith(u'\n'); }));
    const qint64 sleeper = recorder.stdoutText().trimmed().toLongLong();
    ASSERT_TRUE(TestSupport::processRuns(sleeper));
    child.process.terminate();
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
        options.program = u"/bin/sleep"_qs;
        options.arguments = {u"30"_qs};
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
    // A grandchild keeps standard output open long after the child is gone.
    ShellChild child(u"(sleep 20) &\nprintf 'partial line'\nexit 3"_qs);
    Recorder &recorder = child.recorder;
    ASSERT_TRUE(child.start());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return recorder.exited(); }, 10s));
    EXPECT_EQ(recorder.events.last().text, u"R exited with status 3."_qs);
    EXPECT_EQ(recorder.events.last().status, 3);
    EXPECT_EQ(recorder.stdoutText(), u"partial line"_qs);
}

TEST(RProcessEnvironment, BuiltFromTheParentInOrder)
{
    const QStringList parent = {u"LANG=de_DE.utf-8"_qs, u"PATH=/usr/local/bin2:/bin"_qs, u"RSTUDIO=1"_qs,
                                u"VESK_KERNEL_TOKEN=forged"_qs, u"HOME=/home/x"_qs};
    const QStringList env =
        RProcess::childEnvironment(parent, {{u"TERM"_qs, u"xterm"_qs}, {u"VESK_KERNEL_TOKEN"_qs, u"x"_qs}},
                                   u"0123456789abcdef0123456789abcdef"_qs);
    // "/usr/local/bin2" contains "/usr/local/bin" as a substring, which counts.
    for (const char *entry :
         {"LANG=de_DE.utf-8", "LC_CTYPE=de_DE.utf-8",
          "PATH=/usr/local/bin2:/bin:/opt/homebrew/bin:/Library/TeX/texbin", "R_CLI_NUM_COLORS=256",
          "TERM=xterm", "VESK_KERNEL_TOKEN=0123456789abcdef0123456789abcdef", "HOME=/home/x"})
        EXPECT_TRUE(env.contains(QLatin1String(entry))) << entry;
    for (const QString &entry : env)
        EXPECT_FALSE(entry.startsWith(u"RSTUDIO="_qs)) << entry.toStdString();

    const QStringList bare = RProcess::childEnvironment({u"LANG=C"_qs}, {}, u"0123456789abcdef"_qs);
    for (const char *entry :
         {"LANG=en_US.UTF-8", "LC_CTYPE=en_US.UTF-8",
          "PATH=/usr/bin:/bin:/usr/sbin:/sbin:/usr/local/bin:/opt/homebrew/bin:/Library/TeX/texbin"})
        EXPECT_TRUE(bare.contains(QLatin1String(entry))) << entry;

    EXPECT_EQ(RProcess::arguments(false).last(), u"--no-init-file"_qs);
    EXPECT_FALSE(RProcess::arguments(true).contains(u"--no-init-file"_qs));
}

TEST(CommandOutputRun, OutputTimeoutAndFailure)
{
    EXPECT_EQ(
        CommandOutput::run({u"/bin/sh"_qs, u"-c"_qs, u"echo hi; echo err >&2; exit 4"_qs}, std::nullopt, 5s),
        u"hi\n"_qs);
    EXPECT_FALSE(CommandOutput::run({u"/bin/sleep"_qs, u"10"_qs}, std::nullopt, 200ms).has_value());
    EXPECT_FALSE(CommandOutput::run({u"/nonexistent/tool"_qs}, std::nullopt, 1s).has_value());
    EXPECT_EQ(
        CommandOutput::run({u"/bin/sh"_qs, u"-c"_qs, u"echo $VESK_X"_qs}, QStringList{u"VESK_X=42"_qs}, 5s),
        u"42\n"_qs);
}

TEST(RLocatorFind, PreferredPathMustBeExecutable)
{
    EXPECT_EQ(RLocator::find(u"/bin/sh"_qs), u"/bin/sh"_qs);
    // R is installed where these tests run, so a missing preferred path falls back to it.
    const std::optional<QString> fallback = RLocator::find(u"/nonexistent/R"_qs);
    ASSERT_TRUE(fallback.has_value());
    EXPECT_TRUE(RLocator::candidates().contains(*fallback));
    EXPECT_EQ(RLocator::find(QString()), RLocator::find(std::nullopt));
}
