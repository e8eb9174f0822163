// Workspace against a real R: runs, settings that reach R, quitting, the crash limit.
#include "App/Workspace.h"
#include "Base/Settings.h"
#include "Documents/DocumentStore.h"
#include "LiveWorkspace.h"
#include "TestSupport.h"

#include <QDir>

#include <csignal>
#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(WorkspaceLive, RunsCodeIntoCellsAndAppliesSettings)
{
    LiveWorkspace f;
    ASSERT_TRUE(f.start());
    EXPECT_TRUE(f.lastNote().endsWith(u" is ready."_qs)) << f.lastNote().toStdString();

    const ExecResult made = f.run(u"x <- 1:10; warning(\"careful\"); message(\"hi\")"_qs);
    EXPECT_TRUE(made.ok);
    f.workspace.console().flush();
    QList<ConsoleModel::Item::Kind> kinds;
    for (const auto &item : f.workspace.console().cells().last().items)
        kinds.append(item.kind);
    EXPECT_TRUE(kinds.contains(ConsoleModel::Item::Kind::Warning));
    EXPECT_TRUE(kinds.contains(ConsoleModel::Item::Kind::Message));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !f.workspace.environment().isEmpty(); }));
    EXPECT_EQ(f.workspace.environment().first().name, u"x"_qs);

    const ExecResult failed = f.run(u"stop(\"boom\")"_qs);
    EXPECT_FALSE(failed.ok);
    EXPECT_EQ(f.workspace.console().cells().last().state, ConsoleModel::Cell::State::Failed);
    ASSERT_TRUE(f.workspace.console().lastError().has_value());
    EXPECT_EQ(f.workspace.console().lastError()->message, u"boom"_qs);

    // A changed setting reaches R at once.
    f.settings.setValue(Settings::digits, 3);
    ASSERT_TRUE(f.idle());
    EXPECT_TRUE(f.run(u"getOption(\"digits\")"_qs).output.contains(u"[1] 3"_qs));
    f.workspace.shutDown();
}

TEST(WorkspaceLive, QuitAndCrashesRestartUntilTheLimit)
{
    LiveWorkspace f;
    ASSERT_TRUE(f.start());

    f.run(u"q()"_qs);
    ASSERT_TRUE(TestSupport::waitUntil(
        [&] { return f.lastNote() == u"R session ended. Starting a new session…"_qs; }));
    ASSERT_TRUE(f.idle());

    // Three kills within a minute bring R back three times... (the quit above counts as one).
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(f.workspace.session().info().has_value());
        const qsizetype restarts = f.notes(u"Starting a new session…"_qs);
        ::kill(f.workspace.session().info()->pid, SIGKILL);
        ASSERT_TRUE(TestSupport::waitUntil(
            [&] { return f.notes(u"Starting a new session…"_qs) == restarts + 1; }, 30s));
        ASSERT_TRUE(f.idle());
    }
    // ...and the next one leaves it down.
    ::kill(f.workspace.session().info()->pid, SIGKILL);
    ASSERT_TRUE(TestSupport::waitUntil(
        [&] { return f.lastNote().endsWith(u"Use Session › Restart R when you’re ready."_qs); }));
    TestSupport::spin(500ms);
    EXPECT_EQ(f.workspace.session().status().kind, RSessionStatus::Kind::Stopped);

    f.workspace.restartR();
    ASSERT_TRUE(f.idle()) << f.workspace.console().transcript(5, 2000).toStdString();
    f.workspace.shutDown();
}

TEST(WorkspaceLive, AProjectsDataViewsHoldWhatTheyShowUntilTheirTabsClose)
{
    LiveWorkspace live;
    const QString project = live.dir.filePath(u"project"_qs);
    ASSERT_TRUE(QDir().mkpath(project));
    live.workspace.openProject(project);
    ASSERT_TRUE(live.idle());
    DocumentStore &documents = live.workspace.documents();
    EXPECT_EQ(documents.projectFolder(), std::optional<QString>(project));

    const auto classOf = [&](const QString &expr) {
        std::optional<RRequestResult> answer;
        live.workspace.session().request(u"inspect"_qs, {RArgument(expr)}, {},
                                         [&](const RRequestResult &result) { answer = result; });
        TestSupport::waitUntil([&] { return answer.has_value(); }, 30s);
        return answer && answer->ok() ? answer->value()[u"class"][0].stringValue().value_or(QString())
                                      : QString();
    };
    // A view of a global name leaves the name alone; one of a value the kernel held lets it go.
    const struct {
        QString code;
        bool held;
        QString classAfterClosing;
    } cases[] = {
        {u"cars2 <- cars; View(cars2)"_qs, false, u"data.frame"_qs},
        {u"View(head(cars), \"Top\")"_qs, true, u"NULL"_qs},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.code.toStdString());
        ASSERT_TRUE(live.run(c.code).ok);
        ASSERT_TRUE(
            TestSupport::waitUntil([&] { return documents.selected() && documents.selected()->data; }, 30s));
        const DataDocument *view = documents.selected()->data;
        const QUuid id = view->id();
        const QString expr = view->expr();
        EXPECT_EQ(view->holdsPinnedObject(), c.held);
        EXPECT_EQ(classOf(expr), u"data.frame"_qs);
        documents.close(id);
        EXPECT_FALSE(documents.item(id));
        EXPECT_EQ(classOf(expr), c.classAfterClosing);
    }
}
