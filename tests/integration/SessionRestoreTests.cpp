// The real `vesk` on a private X server, typed into with xdotool and killed with SIGKILL: the next
// start must bring back the texts typed up to five seconds before the kill, the tabs and the
// selection; and the R of a killed Vesk must not run on.
#include "Base/SessionFiles.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <thread>
#include <vector>

#include <unistd.h>

using namespace std::chrono_literals;

namespace {

QString tool(const QString &name)
{
    return QStandardPaths::findExecutable(name);
}

struct DesktopRun {
    QTemporaryDir home;
    QProcess server;
    QString display;

    ~DesktopRun()
    {
        // SIGTERM, so the server removes its lock file.
        server.terminate();
        server.waitForFinished(3000);
    }
    bool startServer()
    {
        // The server picks a free display itself and tells its number on the given descriptor.
        // -noreset: by default the server resets when its last client goes (the killed Vesk), and
        // a client that connects during the reset is turned away.
        server.start(tool(u"Xvfb"_qs), {u"-displayfd"_qs, u"1"_qs, u"-screen"_qs, u"0"_qs, u"1280x800x24"_qs,
                                        u"-nolisten"_qs, u"tcp"_qs, u"-noreset"_qs});
        if (!server.waitForStarted(5000))
            return false;
        QByteArray number;
        if (!TestSupport::waitUntil(
                [&] {
                    number += server.readAllStandardOutput();
                    return number.endsWith('\n');
                },
                10s))
            return false;
        display = u':' + QString::fromLatin1(number.trimmed());
        return TestSupport::waitUntil([&] { return xdotool({u"getdisplaygeometry"_qs}); }, 10s);
    }
    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_qs, home.path());
        env.insert(u"XDG_DATA_HOME"_qs, home.filePath(u"data"_qs));
        env.insert(u"XDG_CONFIG_HOME"_qs, home.filePath(u"config"_qs));
        env.insert(u"DISPLAY"_qs, display);
        env.remove(u"QT_QPA_PLATFORM"_qs);
        return env;
    }
    bool xdotool(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.start(tool(u"xdotool"_qs), arguments);
        return process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit &&
               process.exitCode() == 0;
    }
    void startVesk(QProcess &vesk, const QStringList &arguments)
    {
        vesk.setProcessEnvironment(environment());
        vesk.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        vesk.start(QStringLiteral(VESK_BINARY_DIR "/vesk"), arguments);
    }
    bool windowShown() const
    {
        return TestSupport::waitUntil(
            [&] {
                return xdotool({u"search"_qs, u"--name"_qs, u"proj — Vesk"_qs});
            },
            40s);
    }
    QString dataFolder() const { return home.filePath(u"data/Vesk"_qs); }
    // Types one key every `interval`, each with xdotool of its own; when each key had been sent.
    std::vector<std::chrono::steady_clock::time_point> typeSteadily(const QString &keys,
                                                                    std::chrono::milliseconds interval) const
    {
        std::vector<std::chrono::steady_clock::time_point> sent;
        auto next = std::chrono::steady_clock::now();
        for (const QChar key : keys) {
            std::this_thread::sleep_until(next);
            next += interval;
            if (!xdotool({u"type"_qs, QString(key)}))
                break;
            sent.push_back(std::chrono::steady_clock::now());
        }
        return sent;
    }
};

// The keys sent at least `age` before `now`: those an autosave must hold.
qsizetype sentBefore(const std::vector<std::chrono::steady_clock::time_point> &sent,
                     std::chrono::steady_clock::time_point now, std::chrono::milliseconds age)
{
    return std::count_if(sent.cbegin(), sent.cend(), [&](auto time) { return time <= now - age; });
}

// Keys that no editor completes, indents or pairs.
QString digits(int count)
{
    QString text;
    for (int i = 0; i < count; ++i)
        text += QChar(u'0' + (i + 1) % 10);
    return text;
}

// Clock ticks of user and system time the process has used.
qint64 cpuTicks(qint64 pid)
{
    const QByteArray stat = TestSupport::readFile(u"/proc/%1/stat"_qs.arg(pid));
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    return fields.size() > 12 ? fields[11].toLongLong() + fields[12].toLongLong() : -1;
}

} // namespace

#ifdef VESK_APP_BUILT
// The executable itself, where it is built.
TEST(SessionRestoreApp, SteadilyTypedTextTabsAndSelectionSurviveSIGKILL)
{
    ASSERT_FALSE(tool(u"Xvfb"_qs).isEmpty());
    ASSERT_FALSE(tool(u"xdotool"_qs).isEmpty());
    ASSERT_TRUE(QFile::exists(QStringLiteral(VESK_BINARY_DIR "/vesk")));
    DesktopRun run;
    ASSERT_TRUE(run.startServer());
    const QString project = run.home.filePath(u"proj"_qs);
    ASSERT_TRUE(QDir().mkpath(project));
    const QString script = TestSupport::writeFile(project, u"analysis.R"_qs, "x <- 1\nprint(x)\n");

    QProcess first;
    run.startVesk(first, {project, script});
    ASSERT_TRUE(first.waitForStarted(5000));
    ASSERT_TRUE(run.windowShown());
    TestSupport::spin(3s); // let R come up, so nothing takes the focus away while typing
    // The editor of the opened file fills the top of the middle column; the window sits at 0,0.
    ASSERT_TRUE(run.xdotool({u"mousemove"_qs, u"500"_qs, u"90"_qs, u"click"_qs, u"1"_qs}));
    TestSupport::spin(300ms);
    ASSERT_TRUE(run.xdotool({u"key"_qs, u"ctrl+End"_qs}));
    // A key every 100 ms for 8 seconds into each script, with no pause that a quiet-time autosave
    // would wait for; the new script never pauses before the kill.
    const QString keys = digits(80);
    const auto intoFile = run.typeSteadily(keys, 100ms);
    ASSERT_TRUE(run.xdotool({u"key"_qs, u"ctrl+n"_qs}));
    TestSupport::spin(300ms);
    const auto intoNew = run.typeSteadily(keys, 100ms);
    first.kill(); // SIGKILL: no quit path runs
    const auto killed = std::chrono::steady_clock::now();
    ASSERT_TRUE(first.waitForFinished(5000));
    EXPECT_EQ(TestSupport::readFile(script), QByteArray("x <- 1\nprint(x)\n")) << "nothing was saved";
    ASSERT_EQ(intoFile.size(), size_t(keys.size()));
    ASSERT_EQ(intoNew.size(), size_t(keys.size()));
    // Written at most five seconds after the first edit it lacks; the margin is for scheduling.
    const qsizetype fileKept = sentBefore(intoFile, killed, 5500ms);
    const qsizetype newKept = sentBefore(intoNew, killed, 5500ms);
    ASSERT_GT(newKept, 0) << "the typing into the new script lasted long enough to need a write";

    // The next start, with no arguments, reopens the last project and its tabs; quitting it then
    // stores what it restored.
    QProcess second;
    run.startVesk(second, {});
    ASSERT_TRUE(second.waitForStarted(5000));
    ASSERT_TRUE(run.windowShown());
    // Quitting while R still starts would ask first: give R time to be ready on a busy machine.
    TestSupport::spin(6s);
    ASSERT_TRUE(run.xdotool({u"mousemove"_qs, u"500"_qs, u"90"_qs, u"click"_qs, u"1"_qs}));
    ASSERT_TRUE(run.xdotool({u"key"_qs, u"ctrl+q"_qs}));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return second.state() == QProcess::NotRunning; }, 20s));

    const QString key = SessionFiles::key(project);
    const QByteArray stored = TestSupport::readFile(run.dataFolder() + u"/Sessions/"_qs + key + u".json"_qs);
    const auto value = JSONValue::parse(QByteArrayView(stored));
    ASSERT_TRUE(value) << stored.constData();
    const auto state = SessionState::fromJSON(*value);
    ASSERT_TRUE(state);
    ASSERT_EQ(state->tabs.size(), 2) << stored.constData();
    EXPECT_EQ(state->tabs[0].path, std::optional<QString>(script));
    EXPECT_FALSE(state->tabs[1].path);
    EXPECT_EQ(state->tabs[1].untitledIndex, 1);
    EXPECT_EQ(state->selectedIndex, std::optional<int>(1));
    ASSERT_TRUE(state->tabs[0].autosave && state->tabs[1].autosave);
    auto autosaved = [&](const QString &name) {
        return QString::fromUtf8(TestSupport::readFile(run.dataFolder() + u"/Autosave/"_qs + name));
    };
    const QString fileText = autosaved(*state->tabs[0].autosave);
    const QString newText = autosaved(*state->tabs[1].autosave);
    const QString saved = u"x <- 1\nprint(x)\n"_qs;
    EXPECT_TRUE(fileText.startsWith(saved + keys.left(fileKept)) && (saved + keys).startsWith(fileText))
        << fileText.toStdString() << " should hold the first " << fileKept << " keys";
    EXPECT_TRUE(newText.startsWith(keys.left(newKept)) && keys.startsWith(newText))
        << newText.toStdString() << " should hold the first " << newKept << " keys";
}

TEST(SessionRestoreApp, BusyROfAKilledVeskEndsWithItAndSoDoesWhatRStarted)
{
    ASSERT_FALSE(tool(u"Xvfb"_qs).isEmpty());
    ASSERT_FALSE(tool(u"xdotool"_qs).isEmpty());
    DesktopRun run;
    ASSERT_TRUE(run.startServer());
    const QString project = run.home.filePath(u"proj"_qs);
    ASSERT_TRUE(QDir().mkpath(project));
    const QString sleeperFile = project + u"/sleeper.pid"_qs;
    // A program R started runs on its own, as system() leaves it; then R loops.
    const QString script = TestSupport::writeFile(
        project, u"loop.R"_qs, "system('sleep 300 & echo $! > " + sleeperFile.toUtf8() + "'); repeat {}\n");

    QProcess vesk;
    run.startVesk(vesk, {project, script});
    ASSERT_TRUE(vesk.waitForStarted(5000));
    ASSERT_TRUE(run.windowShown());
    qint64 r = 0;
    ASSERT_TRUE(TestSupport::waitUntil(
        [&] {
            for (const qint64 child : TestSupport::childProcesses(vesk.processId()))
                if (TestSupport::readFile(u"/proc/%1/cmdline"_qs.arg(child)).contains("--no-readline"))
                    r = child;
            return r > 0;
        },
        20s));
    TestSupport::spin(4s); // R loads the kernel before it runs anything
    ASSERT_TRUE(run.xdotool({u"mousemove"_qs, u"500"_qs, u"90"_qs, u"click"_qs, u"1"_qs}));
    ASSERT_TRUE(run.xdotool({u"key"_qs, u"ctrl+Home"_qs}));
    ASSERT_TRUE(run.xdotool({u"key"_qs, u"ctrl+Return"_qs}));
    // Busy: a second of the loop uses a good part of a second of processor time.
    ASSERT_TRUE(TestSupport::waitUntil(
        [&] {
            const qint64 before = cpuTicks(r);
            std::this_thread::sleep_for(1s);
            return cpuTicks(r) - before >= sysconf(_SC_CLK_TCK) / 4;
        },
        20s))
        << "R never ran the loop";
    const qint64 sleeper = TestSupport::readFile(sleeperFile).trimmed().toLongLong();
    ASSERT_TRUE(TestSupport::processRuns(sleeper));

    vesk.kill();
    ASSERT_TRUE(vesk.waitForFinished(5000));
    EXPECT_TRUE(TestSupport::waitUntil(
        [&] { return !TestSupport::processRuns(r) && !TestSupport::processRuns(sleeper); }, 1s))
        << "R runs: " << TestSupport::processRuns(r)
        << ", its program runs: " << TestSupport::processRuns(sleeper);
    for (const qint64 pid : {r, sleeper})
        if (TestSupport::processRuns(pid))
            ::kill(pid_t(pid), SIGKILL);
}
#endif
