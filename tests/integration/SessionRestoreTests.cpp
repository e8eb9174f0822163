// The real `vesk` on a private X server, typed into with xdotool and killed with SIGKILL three
// seconds after the typing: the next start must bring back both texts, the tabs and the selection.
#include "App/SessionFiles.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

QString tool(const QString &name)
{
    return QStandardPaths::findExecutable(name);
}

QByteArray readAll(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
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
        server.start(tool(QStringLiteral("Xvfb")),
                     {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-screen"),
                      QStringLiteral("0"), QStringLiteral("1280x800x24"), QStringLiteral("-nolisten"),
                      QStringLiteral("tcp"), QStringLiteral("-noreset")});
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
        return TestSupport::waitUntil([&] { return xdotool({QStringLiteral("getdisplaygeometry")}); }, 10s);
    }
    QProcessEnvironment environment() const
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("HOME"), home.path());
        env.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
        env.insert(QStringLiteral("DISPLAY"), display);
        env.remove(QStringLiteral("QT_QPA_PLATFORM"));
        return env;
    }
    bool xdotool(const QStringList &arguments) const
    {
        QProcess process;
        process.setProcessEnvironment(environment());
        process.start(tool(QStringLiteral("xdotool")), arguments);
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
                return xdotool(
                    {QStringLiteral("search"), QStringLiteral("--name"), QStringLiteral("proj — Vesk")});
            },
            40s);
    }
    QString dataFolder() const { return home.filePath(QStringLiteral("data/Vesk/Vesk")); }
};

} // namespace

TEST(SessionRestoreApp, UnsavedTextTabsAndSelectionSurviveSIGKILL)
{
    if (tool(QStringLiteral("Xvfb")).isEmpty() || tool(QStringLiteral("xdotool")).isEmpty())
        GTEST_SKIP() << "needs Xvfb and xdotool";
    if (!QFile::exists(QStringLiteral(VESK_BINARY_DIR "/vesk")))
        GTEST_SKIP() << "needs the vesk executable (VESK_APP=ON)";
    DesktopRun run;
    ASSERT_TRUE(run.startServer());
    const QString project = run.home.filePath(QStringLiteral("proj"));
    ASSERT_TRUE(QDir().mkpath(project));
    const QString script = project + QStringLiteral("/analysis.R");
    {
        QFile file(script);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write("x <- 1\nprint(x)\n");
    }

    QProcess first;
    run.startVesk(first, {project, script});
    ASSERT_TRUE(first.waitForStarted(5000));
    ASSERT_TRUE(run.windowShown());
    TestSupport::spin(3s); // let R come up, so nothing takes the focus away while typing
    // The editor of the opened file fills the top of the middle column; the window sits at 0,0.
    ASSERT_TRUE(run.xdotool({QStringLiteral("mousemove"), QStringLiteral("500"), QStringLiteral("90"),
                             QStringLiteral("click"), QStringLiteral("1")}));
    TestSupport::spin(300ms);
    ASSERT_TRUE(run.xdotool({QStringLiteral("key"), QStringLiteral("ctrl+End")}));
    ASSERT_TRUE(run.xdotool({QStringLiteral("type"), QStringLiteral("summary(x)")}));
    ASSERT_TRUE(run.xdotool({QStringLiteral("key"), QStringLiteral("ctrl+n")}));
    TestSupport::spin(500ms);
    ASSERT_TRUE(run.xdotool({QStringLiteral("type"), QStringLiteral("plot(1:10)")}));
    TestSupport::spin(3s);
    first.kill(); // SIGKILL: no quit path runs
    ASSERT_TRUE(first.waitForFinished(5000));
    EXPECT_EQ(readAll(script), QByteArray("x <- 1\nprint(x)\n")) << "nothing was saved";

    // The next start, with no arguments, reopens the last project and its tabs; quitting it then
    // stores what it restored.
    QProcess second;
    run.startVesk(second, {});
    ASSERT_TRUE(second.waitForStarted(5000));
    ASSERT_TRUE(run.windowShown());
    // Quitting while R still starts would ask first: give R time to be ready on a busy machine.
    TestSupport::spin(6s);
    ASSERT_TRUE(run.xdotool({QStringLiteral("mousemove"), QStringLiteral("500"), QStringLiteral("90"),
                             QStringLiteral("click"), QStringLiteral("1")}));
    ASSERT_TRUE(run.xdotool({QStringLiteral("key"), QStringLiteral("ctrl+q")}));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return second.state() == QProcess::NotRunning; }, 20s));

    const QString key = SessionFiles::key(project);
    const QByteArray stored =
        readAll(run.dataFolder() + QStringLiteral("/Sessions/") + key + QStringLiteral(".json"));
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
        return QString::fromUtf8(readAll(run.dataFolder() + QStringLiteral("/Autosave/") + name));
    };
    EXPECT_EQ(autosaved(*state->tabs[0].autosave), QStringLiteral("x <- 1\nprint(x)\nsummary(x)"));
    EXPECT_EQ(autosaved(*state->tabs[1].autosave), QStringLiteral("plot(1:10)"));
}
