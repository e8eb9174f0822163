// The document tabs, the plain editor bound to a document, the outside-change bar and the file
// tree in the main window, offscreen.
#include "Documents/DocumentStore.h"
#include "Documents/Views/DocumentTabs.h"
#include "Documents/Views/PlainTextEditorView.h"
#include "Documents/Views/ScriptPane.h"
#include "Editor/Views/CodeEditor.h"
#include "Files/FileTreeModel.h"
#include "Files/Views/FileTreeView.h"
#include "OffscreenWorkspace.h"
#include "RSourceModel.h"
#include "TestSupport.h"
#include "TextFileCodec.h"

#include <QApplication>
#include <QFile>
#include <QInputDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTabBar>
#include <QTreeView>

#include <gtest/gtest.h>

namespace {

struct DocumentWindow : OffscreenWindow {
    QList<Alert> alerts;

    DocumentWindow()
    {
        store().presentAlert = [this](const Alert &alert) { alerts.append(alert); };
        window->show();
    }
    DocumentStore &store() { return workspace->documents(); }
    DocumentTabs &tabs() { return *window->documentTabs(); }
    QString file(const QString &name, const QByteArray &bytes)
    {
        QFile out(dir.filePath(name));
        EXPECT_TRUE(out.open(QIODevice::WriteOnly));
        out.write(bytes);
        return dir.filePath(name);
    }
    // The text editor inside an editor view, which may be the view itself.
    static QPlainTextEdit *textEdit(QWidget *view)
    {
        auto *inner = view->findChild<QPlainTextEdit *>();
        return inner ? inner : qobject_cast<QPlainTextEdit *>(view);
    }
    // An item of the menu titled `menuTitle`, or of any menu when that is empty.
    QAction *menuItem(const QString &text, const QString &menuTitle = {})
    {
        for (QAction *menu : window->menuBar()->actions())
            if (menu->menu() && (menuTitle.isEmpty() || menu->text() == menuTitle))
                for (QAction *action : menu->menu()->actions())
                    if (action->text() == text)
                        return action;
        return nullptr;
    }
};

} // namespace

TEST(DocumentViews, TabsFollowTheStoreWithDirtyMarks)
{
    DocumentWindow f;
    // Nothing open: the console gets the column.
    EXPECT_FALSE(f.tabs().isVisible());
    EditorDocument *a = f.store().newScript(u"a <- 1\n"_qs);
    EXPECT_TRUE(f.tabs().isVisible());
    f.store().open(f.file(u"b.R"_qs, "b <- 2\n"));
    ASSERT_EQ(f.tabs().count(), 2);
    EXPECT_EQ(f.tabs().tabText(0), u"Untitled"_qs);
    EXPECT_EQ(f.tabs().tabText(1), u"b.R"_qs);
    EXPECT_EQ(f.tabs().currentIndex(), 1);

    // Typing goes into the document, and the tab gets its mark.
    f.tabs().setCurrentIndex(0);
    EXPECT_EQ(f.store().selectedID(), a->id());
    QPlainTextEdit *editor = DocumentWindow::textEdit(f.tabs().editorView(a->id()));
    ASSERT_NE(editor, nullptr);
    editor->moveCursor(QTextCursor::End);
    for (const QChar c : u"b <- a"_qs) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
        QApplication::sendEvent(editor, &press);
    }
    EXPECT_EQ(a->text(), u"a <- 1\nb <- a"_qs);
    EXPECT_EQ(f.tabs().tabText(0), u"● Untitled"_qs);

    // The close button asks; "Don’t Save" takes the tab away.
    emit f.tabs().tabCloseRequested(0);
    ASSERT_EQ(f.alerts.size(), 1);
    f.alerts.takeLast().onChoice(2);
    EXPECT_EQ(f.tabs().count(), 1);
    EXPECT_EQ(f.tabs().tabText(0), u"b.R"_qs);
    f.store().close(f.store().selectedID().value());
    EXPECT_FALSE(f.tabs().isVisible());
}

TEST(DocumentViews, OutsideChangesShowTheBarAndReloadsReachTheEditor)
{
    DocumentWindow f;
    const QString path = f.file(u"s.R"_qs, "one\n");
    f.store().open(path);
    EditorDocument *document = f.store().script(path);
    auto *pane = qobject_cast<ScriptPane *>(f.tabs().page(document->id()));
    ASSERT_NE(pane, nullptr);
    QPlainTextEdit *editor = DocumentWindow::textEdit(pane->editor());
    ASSERT_NE(editor, nullptr);
    EXPECT_FALSE(pane->changedBar()->isVisibleTo(pane));
    EXPECT_EQ(pane->formatLabel()->text(), u"Saved as UTF-8 with LF, like the file on disk"_qs);

    document->setText(u"mine\n"_qs);
    f.file(u"s.R"_qs, "theirs, longer\n");
    f.store().checkDisk();
    EXPECT_TRUE(pane->changedBar()->isVisibleTo(pane));
    pane->reloadButton()->click();
    EXPECT_EQ(editor->toPlainText(), u"theirs, longer\n"_qs);
    EXPECT_FALSE(pane->changedBar()->isVisibleTo(pane));

    ASSERT_TRUE(QFile::remove(path));
    f.store().checkDisk();
    EXPECT_TRUE(pane->deletedWarning()->isVisibleTo(pane));
    EXPECT_EQ(f.tabs().tabText(0), u"● s.R"_qs) << "a deleted file needs saving";
}

TEST(DocumentViews, TheWindowHasTheFileTreeAndTheDocumentCommands)
{
    DocumentWindow f;
    EXPECT_FALSE(f.window->fileTree()->tree()->isVisibleTo(f.window.get())) << "no project, no tree";
    for (const char *expected : {"New Script", "Open File…", "Save", "Save As…", "Save All", "Close Tab"})
        EXPECT_NE(f.menuItem(QString::fromUtf8(expected)), nullptr) << expected;

    // A name the rules refuse is asked for again, with the reason shown.
    f.workspace->files().setRootPath(f.dir.path());
    EXPECT_TRUE(f.window->fileTree()->tree()->isVisibleTo(f.window.get()));
    f.file(u"taken.R"_qs, "x\n");
    QStringList answers = {u"Taken.R"_qs, u"fresh.R"_qs};
    QStringList refusals;
    f.window->fileTree()->askName = [&](const QString &, const QString &) {
        return answers.isEmpty() ? std::optional<QString>() : answers.takeFirst();
    };
    f.window->fileTree()->showRefusal = [&](const QString &message) { refusals.append(message); };
    f.window->fileTree()->newFile();
    EXPECT_EQ(refusals, QStringList{u"“Taken.R” already exists. Choose a different name."_qs});
    EXPECT_TRUE(QFile::exists(f.dir.filePath(u"fresh.R"_qs)));
    ASSERT_NE(f.store().script(f.dir.filePath(u"fresh.R"_qs)), nullptr) << "a new file opens";
}

TEST(DocumentViews, TheCodeMenuRunsTheSelectedScript)
{
    DocumentWindow f;
    QAction *runAll = f.menuItem(u"Run All"_qs, u"&Code"_qs);
    QAction *knit = f.menuItem(u"Knit Document"_qs, u"&Code"_qs);
    ASSERT_TRUE(runAll && knit);
    EXPECT_FALSE(runAll->isEnabled()) << "nothing to run without a script";

    f.store().newScript(u"a <- 1\nb <- 2\n"_qs);
    EXPECT_TRUE(runAll->isEnabled());
    EXPECT_FALSE(knit->isEnabled()) << "only R Markdown knits";
    runAll->trigger();
    ASSERT_FALSE(f.workspace->history().isEmpty());
    EXPECT_EQ(f.workspace->history().last().code, u"a <- 1\nb <- 2"_qs);

    f.store().open(f.file(u"report.Rmd"_qs, "---\ntitle: x\n---\n"));
    EXPECT_TRUE(knit->isEnabled());
}

// The editing commands that have no other way in: Reindent Lines, Insert Chunk, Go to Line.
TEST(DocumentViews, TheCodeMenuEditsTheSelectedScript)
{
    DocumentWindow f;
    QAction *reindent = f.menuItem(u"Reindent Lines"_qs, u"&Code"_qs);
    QAction *chunk = f.menuItem(u"Insert Chunk"_qs, u"&Code"_qs);
    QAction *goTo = f.menuItem(u"Go to Line…"_qs, u"&Code"_qs);
    ASSERT_TRUE(reindent && chunk && goTo);
    EXPECT_FALSE(reindent->shortcut().isEmpty());
    EXPECT_FALSE(chunk->shortcut().isEmpty());
    EXPECT_FALSE(goTo->shortcut().isEmpty());

    EditorDocument *script = f.store().newScript(u"f <- function(x) {\nx + 1\n      }\n"_qs);
    EXPECT_FALSE(chunk->isEnabled()) << "chunks are for R Markdown";
    QPlainTextEdit *editor = DocumentWindow::textEdit(f.tabs().editorView(script->id()));
    editor->selectAll();
    reindent->trigger();
    EXPECT_EQ(editor->toPlainText(), u"f <- function(x) {\n  x + 1\n}\n"_qs);

    goTo->trigger();
    ASSERT_TRUE(f.window->goToLineDialog);
    f.window->goToLineDialog->setTextValue(u"2:3"_qs);
    f.window->goToLineDialog->accept();
    QApplication::processEvents();
    EXPECT_EQ(editor->textCursor().blockNumber(), 1);
    EXPECT_EQ(editor->textCursor().positionInBlock(), 2);
    // A line past the end goes to the last line, as far as the text reaches.
    goTo->trigger();
    f.window->goToLineDialog->setTextValue(u"99:99"_qs);
    f.window->goToLineDialog->accept();
    QApplication::processEvents();
    EXPECT_EQ(editor->textCursor().position(), editor->toPlainText().size());

    f.store().open(f.file(u"r.Rmd"_qs, "Text\n"));
    ASSERT_TRUE(f.store().selected() && f.store().selected()->script);
    EditorDocument *report = f.store().selected()->script;
    EXPECT_TRUE(chunk->isEnabled());
    QPlainTextEdit *markdown = DocumentWindow::textEdit(f.tabs().editorView(report->id()));
    markdown->moveCursor(QTextCursor::End);
    chunk->trigger();
    EXPECT_TRUE(markdown->toPlainText().contains(u"```{r}\n\n```"_qs))
        << markdown->toPlainText().toStdString();
}

// A script of more lines than the editor takes at once: the first screen comes first and the rest by
// slices, and what ends in the editor is the file, byte for byte, with nothing to undo, nothing
// modified, a save during the fill writing the whole text, and the styling's model a fresh one.
TEST(DocumentViews, ALongScriptGoesInPiecewiseAndEndsAsItsFile)
{
    DocumentWindow f;
    QString savedAs;
    f.store().chooseSavePath = [&](const QString &, const QString &) {
        return std::optional<QString>(savedAs);
    };
    QByteArray lines;
    for (int i = 0; i < 5000; ++i)
        lines += "x" + QByteArray::number(i) + " <- \"é€😀\" # ü {\n";
    QByteArray crlf = lines;
    crlf.replace("\n", "\r\n");
    const struct {
        const char *name;
        QByteArray bytes;
    } cases[] = {
        {"no final line feed, non-ASCII text", lines + "last <- \"ß\""},
        {"CRLF line ends", crlf},
        {"a very long last line", lines + "y <- '" + QByteArray(300000, 'y') + "'"},
    };
    int index = 0;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ++index;
        const QString path = f.file(u"long%1.R"_qs.arg(index), c.bytes);
        f.store().open(path);
        EditorDocument *document = f.store().script(path);
        ASSERT_TRUE(document);
        auto *editor = f.tabs().editorView(document->id())->findChild<CodeEditor *>();
        ASSERT_TRUE(editor);
        EditorSession *session = editor->session();
        ASSERT_TRUE(session->isLoading());
        EXPECT_TRUE(editor->isReadOnly());
        EXPECT_LT(editor->document()->blockCount(), 1000) << "the first screen comes first";

        savedAs = f.dir.filePath(u"copy%1.R"_qs.arg(index));
        bool saved = false;
        f.store().save(document, true, [&](bool ok) { saved = ok; });
        EXPECT_TRUE(saved);
        QFile copy(savedAs);
        ASSERT_TRUE(copy.open(QIODevice::ReadOnly));
        EXPECT_TRUE(copy.readAll() == c.bytes) << "a save during the fill writes the whole text";
        ASSERT_TRUE(session->isLoading()) << "the save came during the fill";

        ASSERT_TRUE(TestSupport::waitUntil([&] { return !session->isLoading(); }));
        QString shown = editor->document()->toRawText();
        shown.replace(QChar::ParagraphSeparator, u'\n');
        EXPECT_TRUE(shown == document->text());
        EXPECT_TRUE(TextFileCodec::encode(shown, document->encoding(), document->lineEnding()) == c.bytes);
        EXPECT_FALSE(document->needsSave());
        EXPECT_FALSE(editor->document()->isModified());
        EXPECT_FALSE(editor->isReadOnly());
        EXPECT_FALSE(editor->document()->isUndoAvailable());
        QKeyEvent undo(QEvent::KeyPress, Qt::Key_Z, Qt::ControlModifier);
        QApplication::sendEvent(editor, &undo);
        EXPECT_EQ(editor->document()->characterCount() - 1, shown.size()) << "undo keeps the file's text";

        session->finishStyling();
        RSourceModel fresh(session->language());
        fresh.reset(session->text());
        fresh.relex(session->text());
        EXPECT_TRUE(session->model().lines() == fresh.lines());
        EXPECT_TRUE(session->model().states() == fresh.states());
    }
}
