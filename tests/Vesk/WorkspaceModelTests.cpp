// Workspace driven with session events and commands, without R.
#include "Base/RecentProjects.h"
#include "Base/SessionFiles.h"
#include "Console/HistoryStore.h"
#include "WorkspaceTestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

SessionEvent eventOf(SessionEvent::Kind kind)
{
    SessionEvent event;
    event.kind = kind;
    return event;
}

SessionEvent ready()
{
    SessionEvent event = eventOf(SessionEvent::Kind::Ready);
    event.info.version = u"4.2.2"_qs;
    return event;
}

SessionEvent exited(const QString &reason, bool byQuitting)
{
    SessionEvent event = eventOf(SessionEvent::Kind::Exited);
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
    w.handle(exited(u"R exited with status 1."_qs, false));
    EXPECT_EQ(f.notes().last(), QStringLiteral("R exited with status 1 while starting. Check the project’s "
                                               ".Rprofile, then use Session › Restart R."));

    w.handle(ready());
    w.handle(exited(QString(), true));
    EXPECT_EQ(f.notes().last(), u"R session ended. Starting a new session…"_qs);
    for (int i = 0; i < 2; ++i) {
        w.handle(ready());
        w.handle(exited(u"R was killed by signal 9."_qs, false));
        EXPECT_EQ(f.notes().last(), u"R was killed by signal 9. Starting a new session…"_qs);
    }
    w.handle(ready());
    w.handle(exited(u"R was killed by signal 9."_qs, false));
    EXPECT_EQ(f.notes().last(),
              QStringLiteral("R was killed by signal 9. R stopped several times in a minute, so "
                             "Vesk did not start it again. Use Session › Restart R when you’re "
                             "ready."));

    // A minute later the old restarts no longer count.
    clock = clock.addSecs(61);
    w.handle(ready());
    w.handle(exited(u"R was killed by signal 9."_qs, false));
    EXPECT_EQ(f.notes().last(), u"R was killed by signal 9. Starting a new session…"_qs);
    EXPECT_EQ(f.notes().filter(u"is ready."_qs).first(), u"R 4.2.2 is ready."_qs);
}

TEST(WorkspaceLifecycle, StalledStartNotesAndOffersARestartWithoutProfile)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    std::optional<Alert> shown;
    w.presentAlert = [&](const Alert &alert) { shown = alert; };
    w.kernelPath = u"/nonexistent/kernel.R"_qs;

    SessionEvent stalled = eventOf(SessionEvent::Kind::StartupStalled);
    w.handle(stalled);
    EXPECT_EQ(f.notes().last(), u"R has not started after 20 seconds and printed nothing."_qs);
    ASSERT_TRUE(shown.has_value());
    EXPECT_EQ(shown->title, u"R hasn’t started after 20 seconds"_qs);
    EXPECT_EQ(shown->buttons, (QStringList{u"Restart Without .Rprofile"_qs, u"Keep Waiting"_qs}));

    stalled.text = u"  Enter a name: \n"_qs;
    w.handle(stalled);
    EXPECT_EQ(f.notes().last(), u"R has not started after 20 seconds. It printed:\nEnter a name:"_qs);
    EXPECT_TRUE(shown->text.endsWith(u"\n\nThe last thing R printed:\nEnter a name:"_qs));
    shown->onChoice(1);
    EXPECT_EQ(f.notes().last(), u"R has not started after 20 seconds. It printed:\nEnter a name:"_qs);
    shown->onChoice(0);
    EXPECT_EQ(f.notes().last(), u"Restarting R without .Rprofile…"_qs);
    w.shutDown();
}

TEST(WorkspaceLifecycle, StateEventsAttachChangesAndUpdateTheEnvironment)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    SessionEvent state = eventOf(SessionEvent::Kind::State);
    state.state.wd = u"/tmp"_qs;
    state.state.env = {numericValue(u"x"_qs, 3)};
    w.handle(state); // the first snapshot is not current yet: nothing to compare
    EXPECT_EQ(w.environment().size(), 1);
    EXPECT_EQ(w.workingDirectory(), u"/tmp"_qs);

    SessionEvent started = eventOf(SessionEvent::Kind::ExecStarted);
    started.id = u"r1"_qs;
    started.code = u"x <- 1:5"_qs;
    w.handle(started);
    state.state.env = {numericValue(u"x"_qs, 5)};
    w.handle(state);
    ASSERT_EQ(w.console().cells().last().changes.size(), 1);
    EXPECT_EQ(w.console().cells().last().changes[0].detail, u"length 3 → 5"_qs);

    f.settings->setValue(Settings::showWorkspaceChanges, false);
    started.id = u"r2"_qs;
    w.handle(started);
    state.state.env = {numericValue(u"x"_qs, 7)};
    w.handle(state);
    EXPECT_TRUE(w.console().cells().last().changes.isEmpty());

    SessionEvent finished = eventOf(SessionEvent::Kind::ExecFinished);
    finished.id = u"r2"_qs;
    finished.result.ok = true;
    w.handle(finished);
    ASSERT_TRUE(w.lastRun().has_value());
    EXPECT_TRUE(w.lastRun()->ok);
    EXPECT_EQ(w.console().cells().last().state, ConsoleModel::Cell::State::Done);

    w.resetSessionState();
    EXPECT_TRUE(w.environment().isEmpty());
    EXPECT_FALSE(w.lastRun().has_value());
}

TEST(WorkspaceCommands, SubmitAndRunRecordHistory)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    w.persistsHistory = false;
    // An empty line at an idle prompt is not run; code is trimmed and recorded once.
    w.setConsoleInput(u" \t "_qs);
    w.submitConsole();
    EXPECT_TRUE(w.history().isEmpty());
    w.setConsoleInput(u"  a\n"_qs);
    w.submitConsole();
    EXPECT_TRUE(w.consoleInput().isEmpty());
    w.setConsoleInput(u"a"_qs);
    w.submitConsole();
    w.run(u"b"_qs, ExecOrigin::editor(u"analysis.R"_qs));
    w.run(u"a"_qs, ExecOrigin::console());
    w.run(u"hidden"_qs, ExecOrigin::system());
    ASSERT_EQ(w.history().size(), 3);
    // An editor's or agent's run keeps its name; the console's has none.
    EXPECT_EQ(w.history()[1].origin, u"analysis.R"_qs);
    EXPECT_EQ(w.history()[0].origin, std::nullopt);
    EXPECT_EQ(w.history()[2].origin, std::nullopt);

    std::optional<ExecResult> result;
    w.run(u" \n "_qs, ExecOrigin::console(), std::nullopt, 1, [&](const ExecResult &r) { result = r; });
    EXPECT_EQ(result, ExecResult::cancelled());

    // Without R, the options cannot be sent: a start-up refresh reports it, an unchanged one sends nothing.
    w.refreshROptions(true);
    EXPECT_EQ(f.notes().last(), u"Startup code failed: R is not running."_qs);
    const qsizetype notes = f.notes().size();
    w.refreshROptions(false);
    EXPECT_EQ(f.notes().size(), notes);
    f.settings->setValue(Settings::digits, 4);
    w.refreshROptions(false);
    EXPECT_EQ(f.notes().size(), notes + 1);
}

TEST(WorkspaceCommands, ClearWorkspaceAsksWithTheCount)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    std::optional<Alert> shown;
    w.presentAlert = [&](const Alert &alert) { shown = alert; };
    SessionEvent state = eventOf(SessionEvent::Kind::State);
    state.state.env = {numericValue(u"x"_qs, 1), numericValue(u"y"_qs, 1)};
    w.handle(state);
    w.confirmClearWorkspace();
    ASSERT_TRUE(shown.has_value());
    EXPECT_EQ(shown->title, u"Remove all objects from the workspace?"_qs);
    EXPECT_EQ(shown->text, u"This removes 2 objects from the global environment. It can’t be undone."_qs);
    EXPECT_EQ(shown->buttons, (QStringList{u"Remove All"_qs, u"Cancel"_qs}));
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

    w.setConsoleInput(u"dra"_qs);
    EXPECT_EQ(w.consoleHistory(D::Back), u"a"_qs);
    EXPECT_EQ(w.consoleHistory(D::Back), u"b"_qs);
    EXPECT_EQ(w.consoleHistory(D::Back), u"a"_qs);
    EXPECT_EQ(w.consoleHistory(D::Back), u"a"_qs) << "index 0 stays";
    EXPECT_EQ(w.consoleHistory(D::Forward), u"b"_qs);
    EXPECT_EQ(w.consoleHistory(D::Forward), u"a"_qs);
    EXPECT_EQ(w.consoleHistory(D::Forward), u"dra"_qs);
    EXPECT_FALSE(w.consoleHistory(D::Forward).has_value());

    w.setConsoleInput(QString());
    w.consoleHistory(D::Back);
    EXPECT_EQ(w.consoleHistory(D::Forward), QString()) << "an empty draft comes back empty";

    for (int i = 0; i < 2001; ++i)
        w.run(u"x%1"_qs.arg(i), ExecOrigin::console());
    EXPECT_EQ(w.history().size(), Workspace::historyLimit);
    EXPECT_EQ(w.history().last().code, u"x2000"_qs);
    EXPECT_EQ(w.history().first().code, u"x1"_qs);
}

TEST(WorkspaceHistory, PersistsPerProjectAndSurvivesDamage)
{
    QStandardPaths::setTestModeEnabled(true);
    QTemporaryDir projects;
    const QString one = projects.filePath(u"a/data"_qs);
    const QString two = projects.filePath(u"b/data"_qs);
    QDir().mkpath(one);
    QDir().mkpath(two);
    EXPECT_NE(SessionFiles::key(one), SessionFiles::key(two)) << "same folder name, two keys";
    EXPECT_TRUE(SessionFiles::key(one).startsWith(u"data-"_qs));
    EXPECT_EQ(SessionFiles::key(one), SessionFiles::key(one + u"/"_qs));
    EXPECT_EQ(SessionFiles::key(std::nullopt), u"no-project"_qs);
    EXPECT_EQ(SessionFiles::key(u"/tmp/my project!"_qs).section(u'-', 0, 2), u"my-project-"_qs);
    QFile::remove(HistoryStore::filePath(one));
    QFile::remove(HistoryStore::filePath(two));

    {
        IsolatedWorkspace f;
        f.workspace->openProject(one);
        f.workspace->run(u"summary(x)"_qs, ExecOrigin::console());
        f.workspace->switchProject(two);
        f.workspace->run(u"plot(y)"_qs, ExecOrigin::agent(u"Analyst"_qs));
        f.workspace->shutDown();
        EXPECT_EQ(RecentProjects::all(*f.settings), (QStringList{two, one}));
    }
    const QList<HistoryEntry> first = HistoryStore::load(one);
    ASSERT_EQ(first.size(), 1);
    EXPECT_EQ(first[0].code, u"summary(x)"_qs);
    EXPECT_EQ(first[0].origin, std::nullopt);
    EXPECT_LT(std::abs(first[0].date.secsTo(QDateTime::currentDateTime())), 60);
    const QList<HistoryEntry> second = HistoryStore::load(two);
    ASSERT_EQ(second.size(), 1);
    EXPECT_EQ(second[0].origin, u"Analyst"_qs);

    {
        IsolatedWorkspace f;
        f.workspace->openProject(one);
        ASSERT_EQ(f.workspace->history().size(), 1);
        f.workspace->shutDown();
    }

    const auto damage = [&](const QByteArray &bytes) {
        QFile damaged(HistoryStore::filePath(one));
        EXPECT_TRUE(damaged.open(QIODevice::WriteOnly | QIODevice::Truncate));
        damaged.write(bytes);
    };
    damage("[{\"code\": \"ok\"}, {\"code\": 3}, \x01\x02 not json");
    EXPECT_TRUE(HistoryStore::load(one).isEmpty());

    // Records that do not decode are skipped; absurd dates do not hurt.
    damage("[{\"code\": \"ok\", \"date\": 1e308}, {\"code\": 3}, 7, {\"code\": \"b\", \"date\": 0}]");
    const QList<HistoryEntry> kept = HistoryStore::load(one);
    ASSERT_EQ(kept.size(), 2);
    EXPECT_FALSE(kept[0].date.isValid());
    EXPECT_EQ(kept[1].date, QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC));
    QFile::remove(HistoryStore::filePath(one));
    QFile::remove(HistoryStore::filePath(two));
}
