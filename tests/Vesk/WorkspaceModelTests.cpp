// Workspace driven with session events and commands, without R.
#include "App/RecentProjects.h"
#include "App/SessionFiles.h"
#include "Console/HistoryStore.h"
#include "WorkspaceTestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

SessionEvent ready()
{
    SessionEvent event;
    event.kind = SessionEvent::Kind::Ready;
    event.info.version = QStringLiteral("4.2.2");
    return event;
}

SessionEvent exited(const QString &reason, bool byQuitting)
{
    SessionEvent event;
    event.kind = SessionEvent::Kind::Exited;
    event.text = reason;
    event.byQuitting = byQuitting;
    return event;
}

} // namespace

TEST(WorkspaceLifecycle, CrashLimitCountsRestartsWithinAMinute)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    QDateTime clock = QDateTime::currentDateTime();
    w.now = [&] { return clock; };

    // An exit before "ready" is a failed start: one note, and it does not count.
    w.handle(exited(QStringLiteral("R exited with status 1."), false));
    EXPECT_EQ(f.notes().last(), QStringLiteral("R exited with status 1 while starting. Check the project’s "
                                               ".Rprofile, then use Session › Restart R."));

    w.handle(ready());
    w.handle(exited(QString(), true));
    EXPECT_EQ(f.notes().last(), QStringLiteral("R session ended. Starting a new session…"));
    for (int i = 0; i < 2; ++i) {
        w.handle(ready());
        w.handle(exited(QStringLiteral("R was killed by signal 9."), false));
        EXPECT_EQ(f.notes().last(), QStringLiteral("R was killed by signal 9. Starting a new session…"));
    }
    w.handle(ready());
    w.handle(exited(QStringLiteral("R was killed by signal 9."), false));
    EXPECT_EQ(f.notes().last(),
              QStringLiteral("R was killed by signal 9. R stopped several times in a minute, so "
                             "Vesk did not start it again. Use Session › Restart R when you’re "
                             "ready."));

    // A minute later the old restarts no longer count.
    clock = clock.addSecs(61);
    w.handle(ready());
    w.handle(exited(QStringLiteral("R was killed by signal 9."), false));
    EXPECT_EQ(f.notes().last(), QStringLiteral("R was killed by signal 9. Starting a new session…"));
    EXPECT_EQ(f.notes().filter(QStringLiteral("is ready.")).first(), QStringLiteral("R 4.2.2 is ready."));
}

TEST(WorkspaceLifecycle, StalledStartNotesAndOffersARestartWithoutProfile)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    std::optional<Workspace::Alert> shown;
    w.presentAlert = [&](const Workspace::Alert &alert) { shown = alert; };
    w.kernelPath = QStringLiteral("/nonexistent/kernel.R");

    SessionEvent stalled;
    stalled.kind = SessionEvent::Kind::StartupStalled;
    w.handle(stalled);
    EXPECT_EQ(f.notes().last(), QStringLiteral("R has not started after 20 seconds and printed nothing."));
    ASSERT_TRUE(shown.has_value());
    EXPECT_EQ(shown->title, QStringLiteral("R hasn’t started after 20 seconds"));
    EXPECT_EQ(shown->buttons,
              (QStringList{QStringLiteral("Restart Without .Rprofile"), QStringLiteral("Keep Waiting")}));

    stalled.text = QStringLiteral("  Enter a name: \n");
    w.handle(stalled);
    EXPECT_EQ(f.notes().last(),
              QStringLiteral("R has not started after 20 seconds. It printed:\nEnter a name:"));
    EXPECT_TRUE(shown->text.endsWith(QStringLiteral("\n\nThe last thing R printed:\nEnter a name:")));
    shown->onChoice(1);
    EXPECT_EQ(f.notes().last(),
              QStringLiteral("R has not started after 20 seconds. It printed:\nEnter a name:"));
    shown->onChoice(0);
    EXPECT_EQ(f.notes().last(), QStringLiteral("Restarting R without .Rprofile…"));
    w.shutDown();
}

TEST(WorkspaceLifecycle, StateEventsAttachChangesAndUpdateTheEnvironment)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    SessionEvent state;
    state.kind = SessionEvent::Kind::State;
    state.state.wd = QStringLiteral("/tmp");
    state.state.env = {numericValue(QStringLiteral("x"), 3)};
    w.handle(state); // the first snapshot is not current yet: nothing to compare
    EXPECT_EQ(w.environment().size(), 1);
    EXPECT_EQ(w.workingDirectory(), QStringLiteral("/tmp"));

    SessionEvent started;
    started.kind = SessionEvent::Kind::ExecStarted;
    started.id = QStringLiteral("r1");
    started.code = QStringLiteral("x <- 1:5");
    w.handle(started);
    state.state.env = {numericValue(QStringLiteral("x"), 5)};
    w.handle(state);
    ASSERT_EQ(w.console().cells().last().changes.size(), 1);
    EXPECT_EQ(w.console().cells().last().changes[0].detail, QStringLiteral("length 3 → 5"));

    f.settings->setValue(Settings::showWorkspaceChanges, false);
    started.id = QStringLiteral("r2");
    w.handle(started);
    state.state.env = {numericValue(QStringLiteral("x"), 7)};
    w.handle(state);
    EXPECT_TRUE(w.console().cells().last().changes.isEmpty());

    SessionEvent finished;
    finished.kind = SessionEvent::Kind::ExecFinished;
    finished.id = QStringLiteral("r2");
    finished.result.ok = true;
    w.handle(finished);
    ASSERT_TRUE(w.lastRun().has_value());
    EXPECT_TRUE(w.lastRun()->ok);
    EXPECT_EQ(w.console().cells().last().state, ConsoleModel::Cell::State::Done);

    w.resetSessionState();
    EXPECT_TRUE(w.environment().isEmpty());
    EXPECT_FALSE(w.lastRun().has_value());
}

TEST(WorkspaceCommands, SubmitRunAndPlaceholders)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    w.persistsHistory = false;
    EXPECT_EQ(w.consolePlaceholder(), QStringLiteral("Run R code"));
    w.setConsoleAskMode(true);
    EXPECT_EQ(w.consolePlaceholder(), QStringLiteral("Ask the Analyst about your data…"));
    w.setConsoleAskMode(false);

    // An empty line at an idle prompt is not run; code is trimmed and recorded once.
    w.setConsoleInput(QStringLiteral(" \t "));
    w.submitConsole();
    EXPECT_TRUE(w.history().isEmpty());
    w.setConsoleInput(QStringLiteral("  a\n"));
    w.submitConsole();
    EXPECT_TRUE(w.consoleInput().isEmpty());
    w.setConsoleInput(QStringLiteral("a"));
    w.submitConsole();
    w.run(QStringLiteral("b"), ExecOrigin::editor(QStringLiteral("analysis.R")));
    w.run(QStringLiteral("a"), ExecOrigin::console());
    w.run(QStringLiteral("hidden"), ExecOrigin::system());
    ASSERT_EQ(w.history().size(), 3);
    EXPECT_EQ(w.history()[1].origin, QStringLiteral("analysis.R"));

    std::optional<ExecResult> result;
    w.run(QStringLiteral(" \n "), ExecOrigin::console(), std::nullopt, 1,
          [&](const ExecResult &r) { result = r; });
    EXPECT_EQ(result, ExecResult::cancelled());

    // Without R, the options cannot be sent: a start-up refresh reports it, an unchanged one sends nothing.
    w.refreshROptions(true);
    EXPECT_EQ(f.notes().last(), QStringLiteral("Startup code failed: R is not running."));
    const qsizetype notes = f.notes().size();
    w.refreshROptions(false);
    EXPECT_EQ(f.notes().size(), notes);
    f.settings->setValue(Settings::digits, 4);
    w.refreshROptions(false);
    EXPECT_EQ(f.notes().size(), notes + 1);
}

TEST(WorkspaceCommands, PlotAreaSizesAndClearWorkspaceAlert)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    w.plotAreaResized(QSize(100, 500));
    EXPECT_TRUE(w.lastPlotSize().isEmpty());
    w.plotAreaResized(QSize(603, 397));
    EXPECT_EQ(w.lastPlotSize(), QSize(600, 400));

    std::optional<Workspace::Alert> shown;
    w.presentAlert = [&](const Workspace::Alert &alert) { shown = alert; };
    SessionEvent state;
    state.kind = SessionEvent::Kind::State;
    state.state.env = {numericValue(QStringLiteral("x"), 1), numericValue(QStringLiteral("y"), 1)};
    w.handle(state);
    w.confirmClearWorkspace();
    ASSERT_TRUE(shown.has_value());
    EXPECT_EQ(shown->title, QStringLiteral("Remove all objects from the workspace?"));
    EXPECT_EQ(shown->text,
              QStringLiteral("This removes 2 objects from the global environment. It can’t be undone."));
    EXPECT_EQ(shown->buttons, (QStringList{QStringLiteral("Remove All"), QStringLiteral("Cancel")}));
}

TEST(WorkspaceHistory, ArrowKeysWalkTheHistoryAndGiveBackTheDraft)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    w.persistsHistory = false;
    using D = Workspace::HistoryDirection;
    EXPECT_FALSE(w.consoleHistory(D::Back).has_value());
    EXPECT_FALSE(w.consoleHistory(D::Forward).has_value());
    for (const char *code : {"a", "b", "a", "a"})
        w.run(QString::fromLatin1(code), ExecOrigin::console());
    ASSERT_EQ(w.history().size(), 3);

    w.setConsoleInput(QStringLiteral("dra"));
    EXPECT_EQ(w.consoleHistory(D::Back), QStringLiteral("a"));
    EXPECT_EQ(w.consoleHistory(D::Back), QStringLiteral("b"));
    EXPECT_EQ(w.consoleHistory(D::Back), QStringLiteral("a"));
    EXPECT_EQ(w.consoleHistory(D::Back), QStringLiteral("a")) << "index 0 stays";
    EXPECT_EQ(w.consoleHistory(D::Forward), QStringLiteral("b"));
    EXPECT_EQ(w.consoleHistory(D::Forward), QStringLiteral("a"));
    EXPECT_EQ(w.consoleHistory(D::Forward), QStringLiteral("dra"));
    EXPECT_FALSE(w.consoleHistory(D::Forward).has_value());

    w.setConsoleInput(QString());
    w.consoleHistory(D::Back);
    EXPECT_EQ(w.consoleHistory(D::Forward), QString()) << "an empty draft comes back empty";

    for (int i = 0; i < 2001; ++i)
        w.run(QStringLiteral("x%1").arg(i), ExecOrigin::console());
    EXPECT_EQ(w.history().size(), Workspace::historyLimit);
    EXPECT_EQ(w.history().last().code, QStringLiteral("x2000"));
    EXPECT_EQ(w.history().first().code, QStringLiteral("x1"));
}

TEST(WorkspaceHistory, PersistsPerProjectAndSurvivesDamage)
{
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir projects;
    const QString one = projects.filePath(QStringLiteral("a/data"));
    const QString two = projects.filePath(QStringLiteral("b/data"));
    QDir().mkpath(one);
    QDir().mkpath(two);
    EXPECT_NE(SessionFiles::key(one), SessionFiles::key(two)) << "same folder name, two keys";
    EXPECT_TRUE(SessionFiles::key(one).startsWith(QStringLiteral("data-")));
    EXPECT_EQ(SessionFiles::key(one), SessionFiles::key(one + QStringLiteral("/")));
    EXPECT_EQ(SessionFiles::key(std::nullopt), QStringLiteral("no-project"));
    EXPECT_EQ(SessionFiles::key(QStringLiteral("/tmp/my project!")).section(u'-', 0, 2),
              QStringLiteral("my-project-"));
    QFile::remove(HistoryStore::filePath(one));
    QFile::remove(HistoryStore::filePath(two));

    {
        IsolatedWorkspace f;
        f.workspace->openProject(one);
        f.workspace->run(QStringLiteral("summary(x)"), ExecOrigin::console());
        f.workspace->switchProject(two);
        f.workspace->run(QStringLiteral("plot(y)"), ExecOrigin::agent(QStringLiteral("Analyst")));
        f.workspace->shutDown();
        EXPECT_EQ(RecentProjects::all(*f.settings), (QStringList{two, one}));
    }
    const QList<HistoryEntry> first = HistoryStore::load(one);
    ASSERT_EQ(first.size(), 1);
    EXPECT_EQ(first[0].code, QStringLiteral("summary(x)"));
    EXPECT_EQ(first[0].origin, QStringLiteral("console"));
    EXPECT_LT(std::abs(first[0].date.secsTo(QDateTime::currentDateTime())), 60);
    const QList<HistoryEntry> second = HistoryStore::load(two);
    ASSERT_EQ(second.size(), 1);
    EXPECT_EQ(second[0].origin, QStringLiteral("Analyst"));

    {
        IsolatedWorkspace f;
        f.workspace->openProject(one);
        ASSERT_EQ(f.workspace->history().size(), 1);
        f.workspace->shutDown();
    }

    QFile damaged(HistoryStore::filePath(one));
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly));
    damaged.write("[{\"code\": \"ok\"}, {\"code\": 3}, \x01\x02 not json");
    damaged.close();
    EXPECT_TRUE(HistoryStore::load(one).isEmpty());

    // Records that do not decode are skipped; absurd dates do not hurt.
    ASSERT_TRUE(damaged.open(QIODevice::WriteOnly | QIODevice::Truncate));
    damaged.write("[{\"code\": \"ok\", \"date\": 1e308}, {\"code\": 3}, 7, {\"code\": \"b\", \"date\": 0}]");
    damaged.close();
    const QList<HistoryEntry> kept = HistoryStore::load(one);
    ASSERT_EQ(kept.size(), 2);
    EXPECT_FALSE(kept[0].date.isValid());
    EXPECT_EQ(kept[1].date, QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC));
    QFile::remove(HistoryStore::filePath(one));
    QFile::remove(HistoryStore::filePath(two));
}
