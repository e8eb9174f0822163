// The main window around a workspace without R: console drawing, input keys, menus, settings.
#include "App/Views/Appearance.h"
#include "App/Views/SettingsWindow.h"
#include "App/Views/WorkspacePane.h"
#include "Console/Views/ConsoleInput.h"
#include "Console/Views/ConsoleTranscriptView.h"
#include "Console/Views/ConsoleView.h"
#include "Documents/DocumentStore.h"
#include "OffscreenWorkspace.h"
#include "TestSupport.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMenuBar>
#include <QScrollBar>
#include <QTabWidget>
#include <QTreeWidget>

#include <gtest/gtest.h>

namespace {

struct WindowFixture : OffscreenWindow {
    WindowFixture() { window->show(); }
    ConsoleModel &console() { return workspace->console(); }
    QString shown() const { return window->console()->transcript()->toPlainText(); }
    void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
    {
        QKeyEvent event(QEvent::KeyPress, key, modifiers);
        QApplication::sendEvent(window->console()->input(), &event);
    }
};

} // namespace

TEST(MainWindowView, DrawsCellsIncrementallyAndBoundsAFlood)
{
    WindowFixture f;
    f.console().note(QStringLiteral("R 4.2.2 is ready."));
    f.console().begin(QStringLiteral("r1"), QStringLiteral("summary(x)"), ExecOrigin::console());
    f.console().append(ConsoleModel::Item::output(QStringLiteral("\x1b[38;5;208mwarm\x1b[0m 1\n")));
    f.console().append(ConsoleModel::Item::warning(QStringLiteral("x"), std::nullopt));
    f.console().append(ConsoleModel::Item::errorItem(RErrorInfo{
        QStringLiteral("boom"), QStringLiteral("f()"), {RFrame{QStringLiteral("f()"), {}, {}}}, false}));
    ExecResult failed;
    failed.error = RErrorInfo{QStringLiteral("boom"), {}, {}, false};
    f.console().finish(QStringLiteral("r1"), failed);
    const QString text = f.shown();
    EXPECT_TRUE(text.contains(QStringLiteral("R 4.2.2 is ready.")));
    EXPECT_TRUE(text.contains(QStringLiteral("› summary(x)")));
    EXPECT_TRUE(text.contains(QStringLiteral("warm 1"))) << "escape sequences become colour, not text";
    EXPECT_TRUE(text.contains(QStringLiteral("⚠ Warning: x")));
    EXPECT_TRUE(text.contains(QStringLiteral("✕ Error in f()\nboom\n  1. f()")));

    // A flood: the document keeps the head, a marker and the tail, and stays bounded.
    f.console().begin(QStringLiteral("r2"), QStringLiteral("print(1:1e6)"), ExecOrigin::console());
    for (int batch = 0; batch < 40; ++batch) {
        QString lines;
        for (int i = 0; i < 2500; ++i)
            lines += QStringLiteral("line %1\n").arg(batch * 2500 + i);
        f.console().append(ConsoleModel::Item::output(lines));
        f.console().flush();
    }
    const QString flooded = f.shown();
    EXPECT_TRUE(flooded.contains(QStringLiteral("line 0\n")));
    EXPECT_TRUE(flooded.contains(QStringLiteral("lines not shown …")));
    EXPECT_TRUE(flooded.contains(QStringLiteral("line 99999")));
    EXPECT_LT(flooded.size(), 200000);
    // Earlier cells were left as they were drawn.
    EXPECT_TRUE(flooded.startsWith(text.left(text.indexOf(QStringLiteral("✕")))));

    // The document matches a fresh drawing of the same model.
    f.window->console()->transcript()->rebuild();
    EXPECT_EQ(f.shown(), flooded);

    f.console().clear();
    EXPECT_TRUE(f.shown().trimmed().isEmpty());
    EXPECT_FALSE(f.window->grab().isNull());
}

// The transcript keeps to the end while the user has not scrolled away: across a shorter console
// (a script tab opening) and new output; a new run comes into view wherever the user had scrolled.
TEST(MainWindowView, TranscriptFollowsTheEnd)
{
    WindowFixture f;
    QScrollBar *bar = f.window->console()->transcript()->verticalScrollBar();
    const auto settle = [] { QApplication::processEvents(); };
    const auto output = [&](int from) {
        QString lines;
        for (int i = from; i < from + 200; ++i)
            lines += QStringLiteral("line %1\n").arg(i);
        f.console().append(ConsoleModel::Item::output(lines));
        f.console().flush();
        settle();
    };
    f.console().begin(QStringLiteral("r1"), QStringLiteral("print(x)"), ExecOrigin::console());
    output(0);
    ASSERT_GT(bar->maximum(), 0);
    EXPECT_EQ(bar->value(), bar->maximum());

    const int before = bar->maximum();
    f.workspace->documents().newScript(QStringLiteral("a <- 1\n"));
    settle();
    ASSERT_GT(bar->maximum(), before) << "the console got shorter";
    EXPECT_EQ(bar->value(), bar->maximum());
    output(200);
    EXPECT_EQ(bar->value(), bar->maximum());

    // Scrolled up by the user: output does not pull the view down.
    bar->setValue(0);
    output(400);
    EXPECT_EQ(bar->value(), 0);
    // A run from the editor brings its cell into view.
    f.console().begin(QStringLiteral("r2"), QStringLiteral("a <- 1"),
                      ExecOrigin::editor(QStringLiteral("Untitled")));
    f.console().flush();
    settle();
    EXPECT_EQ(bar->value(), bar->maximum());
    output(600);
    EXPECT_EQ(bar->value(), bar->maximum());
}

TEST(MainWindowView, InputKeysSubmitWalkHistoryAndFollowTheState)
{
    WindowFixture f;
    ConsoleInput *input = f.window->console()->input();
    EXPECT_EQ(input->placeholderText(), QStringLiteral("Run R code"));
    f.workspace->setConsoleAskMode(true);
    EXPECT_EQ(input->placeholderText(), QStringLiteral("Ask the Analyst about your data…"));
    f.workspace->setConsoleAskMode(false);

    for (const QString &code : {u"a <- 1"_qs, u"b <- 2"_qs}) {
        input->setPlainText(code);
        f.press(Qt::Key_Return);
    }
    ASSERT_EQ(f.workspace->history().size(), 2);
    EXPECT_TRUE(input->toPlainText().isEmpty());

    input->setPlainText(QStringLiteral("dra"));
    f.press(Qt::Key_Up);
    EXPECT_EQ(input->toPlainText(), QStringLiteral("b <- 2"));
    f.press(Qt::Key_Up);
    EXPECT_EQ(input->toPlainText(), QStringLiteral("a <- 1"));
    f.press(Qt::Key_Down);
    f.press(Qt::Key_Down);
    EXPECT_EQ(input->toPlainText(), QStringLiteral("dra"));

    // Shift+Enter adds a line instead of running.
    f.press(Qt::Key_Return, Qt::ShiftModifier);
    EXPECT_EQ(input->toPlainText(), QStringLiteral("dra\n"));
    EXPECT_EQ(f.workspace->history().size(), 2);
}

TEST(MainWindowView, MenusWorkspacePaneAndSettingsWindow)
{
    WindowFixture f;
    QStringList menus;
    for (QAction *action : f.window->menuBar()->actions())
        menus.append(action->text());
    EXPECT_EQ(menus, (QStringList{u"&File"_qs, u"&Code"_qs, u"&Session"_qs}));
    QStringList sessionItems;
    for (QAction *action : f.window->menuBar()->actions()[2]->menu()->actions())
        if (!action->isSeparator())
            sessionItems.append(action->text());
    EXPECT_EQ(sessionItems, (QStringList{u"Restart R"_qs, u"Interrupt R"_qs, u"Clear Console"_qs,
                                         u"Set Working Directory…"_qs, u"Clear Workspace…"_qs}));

    SessionEvent state;
    state.kind = SessionEvent::Kind::State;
    REnvObject &frame = state.state.env.emplace_back();
    frame.name = u"cars"_qs;
    frame.kind = REnvObject::Kind::Data;
    frame.classes = {u"data.frame"_qs};
    frame.dim = QList<double>{50, 2};
    f.workspace->handle(state);
    QTreeWidget *objects = f.window->workspacePane()->objects();
    ASSERT_EQ(objects->topLevelItemCount(), 1);
    EXPECT_EQ(objects->topLevelItem(0)->text(0), QStringLiteral("cars"));
    EXPECT_EQ(objects->topLevelItem(0)->text(1), QStringLiteral("data.frame"));
    EXPECT_EQ(objects->topLevelItem(0)->text(2), QStringLiteral("50 × 2"));

    SettingsWindow settings(f.settings);
    QStringList tabs;
    for (int i = 0; i < settings.tabs()->count(); ++i)
        tabs.append(settings.tabs()->tabText(i));
    EXPECT_EQ(tabs, (QStringList{u"General"_qs, u"Editor"_qs, u"R"_qs, u"Plots"_qs, u"Agents"_qs}));

    // The window asks before closing while R is busy; here nothing runs, so it closes.
    bool asked = false;
    f.window->confirmClose = [&] {
        asked = true;
        return false;
    };
    EXPECT_TRUE(f.window->close());
    EXPECT_FALSE(asked);

    Appearance::apply(QStringLiteral("dark"));
    EXPECT_TRUE(Appearance::isDark());
    EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 128);
    Appearance::apply(QStringLiteral("light"));
    EXPECT_FALSE(Appearance::isDark());
}
