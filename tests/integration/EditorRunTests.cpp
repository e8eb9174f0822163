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
    session->loadText(u"total <- sum(\n  20,\n  22\n)\n\n\ncat(\"total is\", total, \"\\n\")\n"_qs);
    session->setSelection(session->text().indexOf(u"20"_qs));
    auto controlReturn = [&] {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_Return, Qt::ControlModifier);
        QApplication::sendEvent(pane.editor(), &press);
    };
    controlReturn();
    EXPECT_EQ(session->selection().location, session->text().indexOf(u"cat("_qs));
    controlReturn();
    const auto transcript = [&] { return workspace.console().transcript(100, -1); };
    ASSERT_TRUE(TestSupport::waitUntil([&] { return transcript().contains(u"total is 42"_qs); }, 30s))
        << transcript().toStdString();
    EXPECT_EQ(session->selection().location, session->text().size()) << "after the last statement, the end";
    workspace.shutDown();
}
