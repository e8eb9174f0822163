// The editor's run keys against a real R: what Ctrl+Enter walks through reaches R whole, in order.
#include "Editor/Views/CodeEditor.h"
#include "Editor/Views/CodeEditorPane.h"
#include "LiveWorkspace.h"

#include <QApplication>
#include <QKeyEvent>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

TEST(EditorRun, ControlReturnWalksAScriptStatementByStatementInR)
{
    LiveWorkspace f;
    ASSERT_TRUE(f.start());
    Workspace &workspace = f.workspace;

    CodeEditorPane pane(&workspace);
    pane.show();
    EditorSession *session = pane.editor()->session();
    session->loadText(
        QStringLiteral("total <- sum(\n  20,\n  22\n)\n\n\ncat(\"total is\", total, \"\\n\")\n"));
    session->setSelection(session->text().indexOf(QStringLiteral("20")));
    auto controlReturn = [&] {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::ControlModifier);
        QApplication::sendEvent(pane.editor(), &press);
    };
    controlReturn();
    EXPECT_EQ(session->selection().location, session->text().indexOf(QStringLiteral("cat(")));
    controlReturn();
    const auto transcript = [&] { return workspace.console().transcript(100, -1); };
    ASSERT_TRUE(
        TestSupport::waitUntil([&] { return transcript().contains(QStringLiteral("total is 42")); }, 30s))
        << transcript().toStdString();
    EXPECT_EQ(session->selection().location, session->text().size()) << "after the last statement, the end";
    workspace.shutDown();
}
