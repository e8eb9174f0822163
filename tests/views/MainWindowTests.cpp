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
    f.console().note(u"R 4.2.2 is ready."_qs);
    f.console().begin(u"r1"_qs, u"summary(x)"_qs, ExecOrigin::console());
    f.console().append(ConsoleModel::Item::output(u"\x1b[38;5;208mwarm\x1b[0m 1\n"_qs));
    f.console().append(ConsoleModel::Item::warning(u"x"_qs, std::nullopt));
    f.console().append(
        ConsoleModel::Item::errorItem(RErrorInfo{u"boom"_qs, u"f()"_qs, {RFrame{u"f()"_qs, {}, {}}}, false}));
    ExecResult failed;
    failed.error = RErrorInfo{u"boom"_qs, {}, {}, false};
    f.console().finish(u"r1"_qs, failed);
    const QString text = f.shown();
    EXPECT_TRUE(text.contains(u"R 4.2.2 is ready."_qs));
    EXPECT_TRUE(text.contains(u"› summary(x)"_qs));
    EXPECT_TRUE(text.contains(u"warm 1"_qs)) << "escape sequences become colour, not text";
    EXPECT_TRUE(text.contains(u"⚠ Warning: x"_qs));
    EXPECT_TRUE(text.contains(u"✕ Error in f()\nboom\n  1. f()"_qs));

    // A flood: the document keeps the head, a marker and the tail, and stays bounded.
    f.console().begin(u"r2"_qs, u"print(1:1e6)"_qs, ExecOrigin::console());
    for (int batch = 0; batch < 40; ++batch) {
        QString lines;
        for (int i = 0; i < 2500; ++i)
            lines += u"line %1\n"_qs.arg(batch * 2500 + i);
        f.console().append(ConsoleModel::Item::output(lines));
        f.console().flush();
    }
    const QString flooded = f.shown();
    EXPECT_TRUE(flooded.contains(u"line 0\n"_qs));
    EXPECT_TRUE(flooded.contains(u"lines not shown …"_qs));
    EXPECT_TRUE(flooded.contains(u"line 99999"_qs));
    EXPECT_LT(flooded.size(), 200000);
    // Earlier cells were left as they were drawn.
    EXPECT_TRUE(flooded.startsWith(text.left(text.indexOf(u"✕"_qs))));

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
            lines += u"line %1\n"_qs.arg(i);
        f.console().append(ConsoleModel::Item::output(lines));
        f.console().flush();
        settle();
    };
    f.console().begin(u"r1"_qs, u"print(x)"_qs, ExecOrigin::console());
    output(0);
    ASSERT_GT(bar->maximum(), 0);
    EXPECT_EQ(bar->value(), bar->maximum());

    const int before = bar->maximum();
    f.workspace->documents().newScript(u"a <- 1\n"_qs);
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
    f.console().begin(u"r2"_qs, u"a <- 1"_qs, ExecOrigin::editor(u"Untitled"_qs));
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
    EXPECT_EQ(input->placeholderText(), u"Run R code"_qs);
    f.workspace->setConsoleAskMode(true);
    EXPECT_EQ(input->placeholderText(), u"Ask the Analyst about your data…"_qs);
    f.workspace->setConsoleAskMode(false);

    for (const QString &code : {u"a <- 1"_qs, u"b <- 2"_qs}) {
        input->setPlainText(code);
        f.press(Qt::Key_Return);
    }
    ASSERT_EQ(f.workspace->history().size(), 2);
    EXPECT_TRUE(input->toPlainText().isEmpty());

    input->setPlainText(u"dra"_qs);
    f.press(Qt::Key_Up);
    EXPECT_EQ(input->toPlainText(), u"b <- 2"_qs);
    f.press(Qt::Key_Up);
    EXPECT_EQ(input->toPlainText(), u"a <- 1"_qs);
    f.press(Qt::Key_Down);
    f.press(Qt::Key_Down);
    EXPECT_EQ(input->toPlainText(), u"dra"_qs);

    // Shift+Enter adds a line instead of running.
    f.press(Qt::Key_Return, Qt::ShiftModifier);
    EXPECT_EQ(input->toPlainText(), u"dra\n"_qs);
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
    EXPECT_EQ(objects->topLevelItem(0)->text(0), u"cars"_qs);
    EXPECT_EQ(objects->topLevelItem(0)->text(1), u"data.frame"_qs);
    EXPECT_EQ(objects->topLevelItem(0)->text(2), u"50 × 2"_qs);
    // Later states change the rows in place: added before and after, changed, removed.
    const auto shown = [&] {
        QStringList rows;
        for (int i = 0; i < objects->topLevelItemCount(); ++i)
            rows.append(objects->topLevelItem(i)->text(0) + u' ' + objects->topLevelItem(i)->text(2));
        return rows.join(u", "_qs).toStdString();
    };
    QTreeWidgetItem *carsRow = objects->topLevelItem(0);
    REnvObject cars = frame; // `frame` refers into a list the workspace now shares
    REnvObject first;
    first.name = u"a"_qs;
    first.length = 3;
    REnvObject last = first;
    last.name = u"zeta"_qs;
    cars.dim = QList<double>{60, 2};
    state.state.env = {first, cars, last};
    f.workspace->handle(state);
    EXPECT_EQ(shown(), "a [3], cars 60 × 2, zeta [3]");
    EXPECT_EQ(objects->topLevelItem(1), carsRow) << "a changed object keeps its row";
    state.state.env = {last};
    f.workspace->handle(state);
    EXPECT_EQ(shown(), "zeta [3]");
    state.state.env = {first, cars};
    f.workspace->handle(state);
    EXPECT_EQ(shown(), "a [3], cars 60 × 2");

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

    Appearance::apply(u"dark"_qs);
    EXPECT_TRUE(Appearance::isDark());
    EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 128);
    Appearance::apply(u"light"_qs);
    EXPECT_FALSE(Appearance::isDark());
}
