// The script editor and the console input, driven by key events on an offscreen view: what typing,
// deleting, Return, the run keys and undo do to the text, and what reaches the workspace's run.
#include "../VeskCore/QStringPrinting.h"
#include "CaretMarks.h"
#include "Console/Views/ConsoleInput.h"
#include "Console/Views/ConsoleView.h"
#include "Documents/DocumentStore.h"
#include "Editor/CodeEditorController.h"
#include "Editor/Views/CodeEditor.h"
#include "Editor/Views/CodeEditorPane.h"
#include "Editor/Views/EditorFindBar.h"
#include "Editor/Views/EditorJumpBar.h"
#include "Editor/Views/ScriptEditorView.h"
#include "OffscreenWorkspace.h"
#include "TestSupport.h"
#include "ToolLocator.h"

#include <QApplication>
#include <QFile>
#include <QKeyEvent>
#include <QLineEdit>
#include <QRandomGenerator>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextLayout>
#include <QThreadPool>

#include <gtest/gtest.h>

namespace {

struct EditorFixture : OffscreenWorkspace {
    std::unique_ptr<CodeEditorPane> pane;

    EditorFixture()
    {
        pane = std::make_unique<CodeEditorPane>(workspace.get());
        pane->resize(700, 500);
        pane->show();
    }
    CodeEditor *editor() const { return pane->editor(); }
    EditorSession *session() const { return pane->editor()->session(); }
    CodeEditorController *controller() const { return pane->controller(); }
    QString text() const { return editor()->toPlainText(); }
    int caret() const { return editor()->textCursor().position(); }

    // `|` marks the caret; a second `|` makes a selection between the two.
    void load(const QString &marked)
    {
        const CaretMarked in = withoutMarks(marked);
        session()->loadText(in.text);
        if (in.selection)
            session()->setSelection(in.selection->location, in.selection->length);
    }
    // The text with `|` at the caret (and at the selection's other end).
    QString shown() const
    {
        const QTextCursor cursor = editor()->textCursor();
        return withMarks(
            text(), RTextRange{cursor.selectionStart(), cursor.selectionEnd() - cursor.selectionStart()});
    }
    void press(int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier, const QString &text = {})
    {
        QKeyEvent event(QEvent::KeyPress, key, modifiers, text);
        QApplication::sendEvent(editor(), &event);
    }
    void type(const QString &text)
    {
        for (const QChar c : text) {
            if (c == u'\n')
                press(Qt::Key_Return);
            else
                press(c.isLetter() ? c.toUpper().unicode() : c.unicode(), Qt::NoModifier, QString(c));
        }
    }
    QStringList ran() const
    {
        QStringList codes;
        for (const HistoryEntry &entry : workspace->history())
            codes.append(entry.code);
        return codes;
    }
};

QTextCharFormat formatAt(const QTextDocument *document, int position)
{
    const QTextBlock block = document->findBlock(position);
    for (const QTextLayout::FormatRange &range : block.layout()->formats())
        if (position - block.position() >= range.start &&
            position - block.position() < range.start + range.length)
            return range.format;
    return {};
}

} // namespace

TEST(CodeEditorView, TypingAFunctionPairsTypesOverAndIndents)
{
    EditorFixture f;
    f.type(u"f <- function(x"_qs);
    EXPECT_EQ(f.shown(), u"f <- function(x|)"_qs);
    f.type(u") {"_qs);
    EXPECT_EQ(f.shown(), u"f <- function(x) {|}"_qs) << "the closer was typed over";
    f.type(u"\n"_qs);
    EXPECT_EQ(f.shown(), u"f <- function(x) {\n  |\n}"_qs);
    f.type(u"if (x) {\nx + "_qs);
    f.type(u"\n1"_qs);
    EXPECT_EQ(f.shown(), u"f <- function(x) {\n  if (x) {\n    x +\n      1|\n  }\n}"_qs);

    // Return inside an open call aligns with its first argument.
    f.load(u"x <- c(a,|"_qs);
    f.press(Qt::Key_Return);
    EXPECT_EQ(f.shown(), u"x <- c(a,\n       |"_qs);

    // A closer typed on a blank line goes back to its opener's indentation.
    f.load(u"g <- function() {\n  y\n    |"_qs);
    f.type(u"}"_qs);
    EXPECT_EQ(f.shown(), u"g <- function() {\n  y\n}|"_qs);

    // Tab inserts blanks to the next stop; Shift+Tab takes a level off.
    f.load(u"a|"_qs);
    f.press(Qt::Key_Tab);
    EXPECT_EQ(f.shown(), u"a |"_qs);
    f.press(Qt::Key_Tab);
    EXPECT_EQ(f.shown(), u"a   |"_qs);
    f.load(u"    b|"_qs);
    f.press(Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_EQ(f.text(), u"  b"_qs);
}

TEST(CodeEditorView, PairsDependOnWhatStandsAroundTheCaret)
{
    EditorFixture f;
    struct Case {
        const char *before;
        const char *typed;
        const char *after;
    };
    const Case cases[] = {
        {"|x", "(", "(|x"},           {"|)", "(", "(|))"},
        {"a|", "\"", "a\"|"},         {"r|", "\"", "r\"|\""},
        {"xr|", "\"", "xr\"|"},       {"|", "'", "'|'"},
        {"\"|\"", "\"", "\"\"|"},     {"f(|a + b|)", "(", "f((|a + b|))"},
        {"# a|", "(", "# a(|"},       {"x <- \"a|\"", "\"", "x <- \"a\"|"},
        {"|x;", "\"", "\"|x;"},       {"c(1|)", ")", "c(1)|"},
        {"\"(|)\"", ")", "\"()|)\""},
    };
    for (const Case &c : cases) {
        f.load(QString::fromUtf8(c.before));
        f.type(QString::fromUtf8(c.typed));
        EXPECT_EQ(f.shown(), QString::fromUtf8(c.after)) << c.before << " + " << c.typed;
    }

    // Backspace takes a whole pair, a whole indentation step, or one unit.
    const Case deletions[] = {
        {"(|)", "", "|"},       {"\"|\"", "", "|"},    {"\"a\"|\"", "", "\"a|\""}, {"x(|y)", "", "x|y)"},
        {"    |x", "", "  |x"}, {"   |x", "", "  |x"}, {" |x", "", "|x"},
    };
    for (const Case &c : deletions) {
        f.load(QString::fromUtf8(c.before));
        f.press(Qt::Key_Backspace);
        EXPECT_EQ(f.shown(), QString::fromUtf8(c.after)) << "backspace in " << c.before;
    }

    // With the setting off, brackets go in alone.
    f.settings.setValue(Settings::autoCloseBrackets, false);
    f.load(u"|"_qs);
    f.type(u"(\""_qs);
    EXPECT_EQ(f.shown(), u"(\"|"_qs);
}

TEST(CodeEditorView, ControlReturnRunsTheWholeStatementAndWalksOn)
{
    EditorFixture f;
    f.load(u"f(\n  x,|\n  y\n)\n\n\nz <- 1\n"_qs);
    f.press(Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(f.ran(), QStringList{u"f(\n  x,\n  y\n)"_qs});
    EXPECT_EQ(f.shown(), u"f(\n  x,\n  y\n)\n\n\n|z <- 1\n"_qs) << "the caret went to the next statement";

    // On a blank line nothing runs, and the caret only moves.
    f.load(u"a <- 1\n|\n# note\n  b <- 2\n"_qs);
    f.press(Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(f.ran().size(), 1);
    EXPECT_EQ(f.shown(), u"a <- 1\n\n# note\n  |b <- 2\n"_qs);

    // The last statement leaves the caret at the end of the text.
    f.press(Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(f.ran().last(), u"b <- 2"_qs);
    EXPECT_EQ(f.caret(), f.text().size());

    // A selection runs as it stands, and the caret stays.
    f.load(u"x <- |1 + 2| * 3"_qs);
    f.press(Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(f.ran().last(), u"1 + 2"_qs);
    EXPECT_EQ(f.shown(), u"x <- |1 + 2| * 3"_qs);
    EXPECT_EQ(f.controller()->selectedCode().startLine, 1);

    // In R Markdown a fence or prose runs nothing; the caret moves to the next code line.
    f.session()->setLanguage(RSourceLanguage::rMarkdown);
    f.load(u"# Title\n|Some prose.\n```{r}\nm <- 2\n```\n"_qs);
    const qsizetype before = f.ran().size();
    f.press(Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(f.ran().size(), before);
    EXPECT_EQ(f.shown(), u"# Title\nSome prose.\n```{r}\n|m <- 2\n```\n"_qs);
    f.press(Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(f.ran().last(), u"m <- 2"_qs);
}

TEST(CodeEditorView, SectionsChunksAndTheTextUpToTheCaretRunAsTheyShould)
{
    EditorFixture f;
    f.load(u"a <- 1\n# Load ----\nb <- 2\n|c <- 3\n# Plot ----\nd <- 4\n"_qs);
    EXPECT_EQ(f.controller()->currentSection().startLine, 2);
    f.press(Qt::Key_Return, Qt::ControlModifier | Qt::AltModifier);
    EXPECT_EQ(f.ran().last(), u"# Load ----\nb <- 2\nc <- 3"_qs);
    f.press(Qt::Key_B, Qt::ControlModifier | Qt::AltModifier);
    EXPECT_EQ(f.ran().last(), u"a <- 1\n# Load ----\nb <- 2\nc <- 3"_qs);
    f.press(Qt::Key_Return, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(f.ran().last(), u"a <- 1\n# Load ----\nb <- 2\nc <- 3\n# Plot ----\nd <- 4"_qs);

    f.session()->setLanguage(RSourceLanguage::rMarkdown);
    f.load(QStringLiteral(
        "---\ntitle: t\n---\n```{r}\nx <- 1\n```\nText\n```{r, echo=FALSE}\ny <- 2\n|z <- 3\nw "
        "<- 4\n```\n```{python}\nprint(1)\n```\n"));
    const qsizetype before = f.ran().size();
    f.press(Qt::Key_B, Qt::ControlModifier | Qt::AltModifier);
    EXPECT_EQ(f.controller()->textUpToCursor().startLine, 5);
    EXPECT_EQ(f.ran().last(), u"x <- 1\ny <- 2\nz <- 3"_qs);
    f.press(Qt::Key_Return, Qt::ControlModifier | Qt::AltModifier);
    EXPECT_EQ(f.ran().last(), u"y <- 2\nz <- 3\nw <- 4"_qs);
    f.press(Qt::Key_Return, Qt::ControlModifier | Qt::ShiftModifier);
    // Each R chunk runs on its own; the Python chunk not at all.
    const QStringList ran = f.ran().mid(before);
    EXPECT_EQ(ran.mid(ran.size() - 2), (QStringList{u"x <- 1"_qs, u"y <- 2\nz <- 3\nw <- 4"_qs}));
}

TEST(CodeEditorView, UndoTakesBackOneStructuralEditInOneStep)
{
    EditorFixture f;
    struct Case {
        const char *before;
        int key;
        Qt::KeyboardModifiers modifiers;
        const char *typed;
        const char *after;
    };
    const Case cases[] = {
        {"|a <- 1\nb <- 2|\n", Qt::Key_Slash, Qt::ControlModifier, "", "# a <- 1\n# b <- 2\n"},
        {"x|", Qt::Key_ParenLeft, Qt::NoModifier, "(", "x()"},
        {"f <- function() {|}", Qt::Key_Return, Qt::NoModifier, "", "f <- function() {\n  \n}"},
        {"|a\nb|", Qt::Key_BracketRight, Qt::ControlModifier, "", "  a\n  b"},
    };
    for (const Case &c : cases) {
        f.load(QString::fromUtf8(c.before));
        f.press(c.key, c.modifiers, QString::fromUtf8(c.typed));
        EXPECT_EQ(f.text(), QString::fromUtf8(c.after)) << c.before;
        f.editor()->undo();
        EXPECT_EQ(f.text(), withoutMarks(QString::fromUtf8(c.before)).text) << c.before;
    }

    f.load(u"x|"_qs);
    f.press(Qt::Key_Minus, Qt::AltModifier, u"-"_qs);
    EXPECT_EQ(f.shown(), u"x <- |"_qs);
    f.press(Qt::Key_M, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_EQ(f.shown(), u"x <- |> |"_qs);
    f.editor()->undo();
    EXPECT_EQ(f.text(), u"x <- "_qs);
    f.editor()->undo();
    EXPECT_EQ(f.text(), u"x"_qs);
    EXPECT_FALSE(f.editor()->document()->isUndoAvailable()) << "a loaded text starts a fresh history";
}

TEST(CodeEditorView, StylingFollowsEditsAndTheTextStaysInStep)
{
    EditorFixture f;
    QString script;
    for (int i = 0; i < 300; ++i)
        script += u"x%1 <- c(%1, \"s\") # note\n"_qs.arg(i);
    QString bound;
    f.session()->textBinding = [&bound](const QString &text) { bound = text; };
    f.load(script);
    QTextDocument *document = f.editor()->document();
    const EditorTheme &theme = f.session()->theme();
    const int line200 = document->findBlockByNumber(200).position();
    EXPECT_EQ(formatAt(document, line200 + 16), theme.format(RTokenKind::string));
    EXPECT_EQ(formatAt(document, line200 + 20), theme.format(RTokenKind::comment));

    // An opened quote turns the rest of the file into a string; closing it restores the colours.
    const int line100 = document->findBlockByNumber(100).position();
    f.session()->setSelection(line100);
    f.press(Qt::Key_QuoteDbl, Qt::NoModifier, u"\""_qs);
    EXPECT_EQ(f.text().mid(line100, 2), u"\"x"_qs) << "a quote before a name goes in alone";
    EXPECT_EQ(formatAt(document, document->findBlockByNumber(200).position() + 1),
              theme.format(RTokenKind::string))
        << "every quote after it now opens where one closed before";
    f.press(Qt::Key_Backspace);
    EXPECT_EQ(formatAt(document, line200 + 20), theme.format(RTokenKind::comment));
    EXPECT_TRUE(f.session()->model().isClean());

    // Random edits, undo and redo, pasted CRLF text: the session's text is always the document's.
    QRandomGenerator random(7);
    for (int step = 0; step < 200; ++step) {
        QTextCursor cursor(document);
        const int length = document->characterCount() - 1;
        cursor.setPosition(int(random.bounded(length + 1)));
        cursor.setPosition(std::min(length, cursor.position() + int(random.bounded(30))),
                           QTextCursor::KeepAnchor);
        const QStringList pieces{u"(\n"_qs, u"\"a\r\nb"_qs, QString(), u"é\u2028x"_qs, u"}\n\n"_qs};
        if (step % 7 == 3)
            f.editor()->undo();
        else if (step % 11 == 5)
            f.editor()->redo();
        else
            cursor.insertText(pieces[step % pieces.size()]);
        QString expected = document->toRawText();
        expected.replace(QChar::ParagraphSeparator, u'\n');
        ASSERT_EQ(f.session()->text(), expected) << "after step " << step;
    }
    TestSupport::waitUntil([&] { return bound == f.session()->text(); }, std::chrono::seconds(2));
    EXPECT_EQ(bound, f.session()->text()) << "the binding gets the text after the burst";
    EXPECT_EQ(f.session()->lastSyncedText(), bound);
}

TEST(CodeEditorView, BracketsBreakpointsNamesAndTheJumpBar)
{
    EditorFixture f;
    f.load(u"my.var_1 <- list(a = 1)\nf <- function(x) {\n  x\n}\n# Plot ----\n"_qs);
    f.session()->setSelection(16);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return f.session()->bracketPair().has_value(); }));
    EXPECT_EQ(*f.session()->bracketPair(), (std::pair<qsizetype, qsizetype>{16, 22}));

    EXPECT_EQ(f.session()->nameRange(3), (RTextRange{0, 8})) << "a dotted, underscored name is one word";

    f.session()->toggleBreakpoint(2);
    f.session()->toggleBreakpoint(4);
    QTextCursor(f.editor()->document()).insertText(u"\n"_qs);
    EXPECT_EQ(f.session()->breakpoints(), (std::set<qsizetype>{3, 5})) << "marks move with their lines";
    f.session()->toggleBreakpoint(3);
    EXPECT_EQ(f.session()->breakpoints(), (std::set<qsizetype>{5}));

    f.pane->jumpBar()->refresh();
    ASSERT_EQ(f.pane->jumpBar()->items().size(), 2);
    EXPECT_EQ(f.pane->jumpBar()->items()[0].title, u"f"_qs);
    f.pane->jumpBar()->activated(1);
    EXPECT_EQ(f.editor()->textCursor().blockNumber(), 5);

    // Find and replace.
    f.pane->findBar()->open(true);
    f.pane->findBar()->findField()->setText(u"x"_qs);
    f.pane->findBar()->replaceField()->setText(u"value"_qs);
    EXPECT_EQ(f.pane->findBar()->replaceAll(), 2);
    EXPECT_TRUE(f.text().contains(u"function(value) {\n  value\n}"_qs));
    f.editor()->undo();
    EXPECT_TRUE(f.text().contains(u"function(x) {\n  x\n}"_qs)) << "replace all is one undo step";
}

TEST(CodeEditorView, ConsoleReturnSubmitsOnlyCompleteInput)
{
    OffscreenWindow f;
    const Workspace &workspace = *f.workspace;
    f.window->show();
    ConsoleInput *input = f.window->console()->input();
    auto press = [input](int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
                         const QString &text = {}) {
        QKeyEvent event(QEvent::KeyPress, key, modifiers, text);
        QApplication::sendEvent(input, &event);
    };
    for (const QChar c : u"f(1,"_qs)
        press(c.unicode(), Qt::NoModifier, QString(c));
    EXPECT_EQ(input->toPlainText(), u"f(1,)"_qs);
    input->moveCursor(QTextCursor::End);
    input->textCursor().deletePreviousChar();
    press(Qt::Key_Return);
    EXPECT_TRUE(workspace.history().isEmpty()) << "an open call is not submitted";
    EXPECT_EQ(input->toPlainText(), u"f(1,\n  "_qs);
    for (const QChar c : u"2)"_qs)
        press(c.unicode(), Qt::NoModifier, QString(c));
    press(Qt::Key_Return);
    ASSERT_EQ(workspace.history().size(), 1);
    EXPECT_EQ(workspace.history().last().code, u"f(1,\n  2)"_qs);
    EXPECT_TRUE(input->toPlainText().isEmpty());

    // Ctrl+Return submits whatever is there; an open string keeps Return for a new line.
    input->setPlainText(u"'abc"_qs);
    input->moveCursor(QTextCursor::End);
    press(Qt::Key_Return);
    EXPECT_EQ(workspace.history().size(), 1);
    press(Qt::Key_Return, Qt::ControlModifier);
    EXPECT_EQ(workspace.history().size(), 2);

    // The input is coloured like a script.
    input->setPlainText(u"x <- \"s\""_qs);
    const QTextCharFormat format = formatAt(input->document(), 6);
    EXPECT_EQ(format, input->session()->theme().format(RTokenKind::string));
}

TEST(CodeEditorView, SettingsReachTheEditor)
{
    EditorFixture f;
    f.settings.setValue(Settings::tabWidth, 4);
    f.load(u"a|"_qs);
    f.press(Qt::Key_Tab);
    EXPECT_EQ(f.shown(), u"a   |"_qs);
    f.load(u"f({|})"_qs);
    f.press(Qt::Key_Return);
    EXPECT_EQ(f.shown(), u"f({\n    |\n})"_qs);

    f.settings.setValue(Settings::editorFontSize, 20.0);
    EXPECT_DOUBLE_EQ(f.editor()->font().pointSizeF(), 20.0);
    f.settings.setValue(Settings::wrapLines, true);
    EXPECT_EQ(f.editor()->lineWrapMode(), QPlainTextEdit::WidgetWidth);
    const int withNumbers = f.editor()->gutterWidth();
    f.settings.setValue(Settings::showLineNumbers, false);
    EXPECT_LT(f.editor()->gutterWidth(), withNumbers) << "the gutter keeps room for breakpoints only";
}

TEST(CodeEditorView, AScriptEditorWritesItsDocumentAndSourcesOrKnitsTheSavedFile)
{
    EditorFixture f;
    const auto write = [&f](const QString &name, const QByteArray &bytes) {
        QFile file(f.dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return file.fileName();
    };
    // A name that an R string must escape: a double quote and a backslash.
    const QString path = write(u"say \"hi\" \\ it's.R"_qs, "x <- 1\n");
    const auto rString = [](QString text) {
        return u'"' + text.replace(u'\\', u"\\\\"_qs).replace(u'"', u"\\\""_qs) + u'"';
    };
    DocumentStore &store = f.workspace->documents();
    store.open(path);
    EditorDocument *document = store.script(path);
    ASSERT_NE(document, nullptr);
    ScriptEditorView view(*f.workspace, *document);
    view.show();
    CodeEditor *editor = view.editor();
    EXPECT_EQ(editor->toPlainText(), u"x <- 1\n"_qs);

    editor->moveCursor(QTextCursor::End);
    for (const QChar c : u"y <- 2"_qs) {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
        QApplication::sendEvent(editor, &press);
    }
    EXPECT_EQ(document->text(), u"x <- 1\ny <- 2"_qs) << "typing reaches the document at once";
    view.editor()->session()->toggleBreakpoint(1);
    EXPECT_EQ(document->breakpoints(), QSet<int>{2}) << "documents count lines from one";

    // Source saves first, then sources the file with its encoding; the path survives R's quoting.
    QKeyEvent source(QEvent::KeyPress, Qt::Key_S, Qt::ControlModifier | Qt::ShiftModifier);
    QApplication::sendEvent(editor, &source);
    EXPECT_FALSE(document->needsSave());
    ASSERT_FALSE(f.ran().isEmpty());
    EXPECT_EQ(f.ran().last(), u"source(%1, encoding = \"UTF-8\")"_qs.arg(rString(path)));

    // Text replaced from outside shows in the editor.
    document->replaceText(u"z <- 3\n"_qs);
    EXPECT_EQ(editor->toPlainText(), u"z <- 3\n"_qs);

    // An R Markdown document knits instead.
    const QString report = write(u"report.Rmd"_qs, "# Report\n```{r}\n1 + 1\n```\n");
    store.open(report);
    ScriptEditorView reportView(*f.workspace, *store.script(report));
    EXPECT_EQ(reportView.editor()->session()->language(), RSourceLanguage::rMarkdown);
    QApplication::sendEvent(reportView.editor(), &source);
    ASSERT_TRUE(ToolLocator::pandocDirectory()) << "Pandoc is installed with the test dependencies";
    EXPECT_EQ(f.ran().last(),
              QStringLiteral("browseURL(rmarkdown::render(\"%1\", envir = new.env(parent = globalenv()), "
                             "quiet = TRUE))")
                  .arg(report));
}

// The outline of a long script is read on a pool thread: what the bar ends with is the outline of
// the text it was last asked about, even when an earlier answer comes late, and its entries jump.
TEST(CodeEditorView, TheJumpBarReadsALongScriptOffTheMainThread)
{
    EditorFixture f;
    const auto script = [](const QString &name) {
        QString text;
        for (int i = 0; i < 3000; ++i)
            text += u"# Part "_qs + QString::number(i) + u" ----\n"_qs + name + QString::number(i) +
                    u" <- function(x) x + 1\n# "_qs + QString(60, u'-') + u'\n';
        return text;
    };
    const QString first = script(u"a"_qs);
    const QString second = script(u"b"_qs);
    ASSERT_GE(first.size(), EditorJumpBar::backgroundScanLength);
    EditorJumpBar *bar = f.pane->jumpBar();
    f.load(first);
    f.session()->finishLoading();
    bar->refresh();
    EXPECT_TRUE(bar->items().isEmpty()) << "the answer comes later";
    f.load(second);
    f.session()->finishLoading();
    bar->refresh();
    QThreadPool::globalInstance()->waitForDone();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !bar->items().isEmpty(); }));
    QApplication::processEvents();
    ASSERT_EQ(bar->items().size(), 6000);
    EXPECT_EQ(bar->count(), 6000);
    EXPECT_EQ(bar->items()[1].title, u"b0"_qs);
    bar->activated(4001);
    EXPECT_EQ(f.editor()->textCursor().blockNumber(), 2000 * 3 + 1);
}

namespace {

// Every block's formats, as the layouts hold them.
QList<QList<QTextLayout::FormatRange>> blockFormats(const QTextDocument *document)
{
    QList<QList<QTextLayout::FormatRange>> formats;
    for (QTextBlock block = document->firstBlock(); block.isValid(); block = block.next())
        formats.append(block.layout()->formats());
    return formats;
}

// The formats of a fresh, complete styling of `text`.
QList<QList<QTextLayout::FormatRange>> freshFormats(const QString &text, const EditorTheme &theme)
{
    QTextDocument document;
    EditorSession session(&document, EditorMode::document);
    session.setTheme(theme);
    session.loadText(text);
    session.finishStyling();
    return blockFormats(&document);
}

} // namespace

TEST(CodeEditorView, ALargeScriptShowsStyledAtOnceAndEndsAsAFreshStyling)
{
    EditorFixture f;
    QString script;
    for (int i = 0; i < 20000; ++i)
        script += u"x%1 <- c(%1, \"s\") # note\n"_qs.arg(i);
    // Units the document also breaks blocks at, or keeps as they are.
    script.insert(40, u"\u2029a\u2028b\u00a0"_qs);
    QTextDocument *document = f.editor()->document();
    const EditorTheme theme = f.session()->theme();
    const auto shownAreFresh = [&](const char *when) {
        const auto fresh = freshFormats(f.session()->text(), theme);
        const auto [first, last] = f.session()->visibleLines();
        const auto now = blockFormats(document);
        for (qsizetype line = first; line <= std::min<qsizetype>(last, now.size() - 1); ++line)
            ASSERT_EQ(now[line], fresh[line]) << when << ", line " << line;
    };

    f.load(script);
    QString raw = document->toRawText();
    raw.replace(QChar::ParagraphSeparator, u'\n');
    EXPECT_EQ(f.session()->text(), raw);
    shownAreFresh("after the open");
    // The rest of the text goes in by slices, and keys wait for it.
    EXPECT_TRUE(f.editor()->isReadOnly());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !f.session()->isLoading(); }));
    EXPECT_FALSE(f.editor()->isReadOnly());

    // A quote at the top while the rest is still being styled, and one far down after a scroll.
    f.session()->setSelection(0);
    f.press(Qt::Key_QuoteDbl, Qt::NoModifier, u"\""_qs);
    shownAreFresh("after the quote");
    QApplication::processEvents();
    f.editor()->verticalScrollBar()->setValue(f.editor()->verticalScrollBar()->maximum() / 2);
    shownAreFresh("after the scroll");
    const int middle = document->findBlockByNumber(int(f.session()->visibleLines().first)).position();
    QTextCursor(document).insertText(u"'"_qs);
    f.session()->setSelection(middle);
    f.press(Qt::Key_Apostrophe, Qt::NoModifier, u"'"_qs);
    shownAreFresh("after the second quote");

    ASSERT_TRUE(
        TestSupport::waitUntil([&] { return f.session()->model().isClean(); }, std::chrono::seconds(20)));
    EXPECT_EQ(blockFormats(document), freshFormats(f.session()->text(), theme));
}
