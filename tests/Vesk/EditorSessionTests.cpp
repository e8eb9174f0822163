// An editor session on a bare text document (no view): context queries, the chunks the run commands
// take from R Markdown, and how the text reaches its binding.
#include "../VeskCore/QStringPrinting.h"
#include "Editor/EditorSession.h"
#include "Editor/RmdChunks.h"
#include "RSourceModel.h"
#include "RSourceSnapshot.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QTextCursor>
#include <QTextDocument>

#include <gtest/gtest.h>

TEST(EditorSessionModel, ContextTellsCodeStringsCommentsAndProse)
{
    QTextDocument document;
    EditorSession session(&document, EditorMode::document);
    session.loadText(u"x <- \"ab\nc\" # note\ny"_qs);
    const QString &text = session.text();
    EXPECT_EQ(session.context(0), TextContext::code);
    EXPECT_EQ(session.context(text.indexOf(u'a')), TextContext::string);
    EXPECT_EQ(session.context(text.indexOf(u'"')), TextContext::code) << "before the opening quote";
    EXPECT_EQ(session.context(text.indexOf(u'c')), TextContext::string) << "a line that continues a string";
    EXPECT_EQ(session.context(text.indexOf(u"note"_qs)), TextContext::comment);
    EXPECT_EQ(session.context(text.size()), TextContext::code);
    EXPECT_EQ(session.token(text.indexOf(u'y'))->kind, RTokenKind::identifier);
    EXPECT_FALSE(session.token(-3).has_value());
    EXPECT_FALSE(session.token(text.size() + 10).has_value());

    session.setLanguage(RSourceLanguage::rMarkdown);
    session.loadText(u"Prose (here)\n```{r}\nf(1)\n```\n"_qs);
    EXPECT_EQ(session.context(3), TextContext::notApplicable);
    EXPECT_EQ(session.context(session.text().indexOf(u"(1)"_qs)), TextContext::code);
    session.setSelection(3);
    EXPECT_FALSE(session.handleTypedCharacter(u'(')) << "prose gets no pairs";

    session.setLanguage(RSourceLanguage::plain);
    EXPECT_EQ(session.context(0), TextContext::notApplicable);
    EXPECT_FALSE(session.backwardDeletionRange().has_value());
}

TEST(EditorSessionModel, ChunksAreTheRChunksWithOneBasedLines)
{
    const QString text =
        QStringLiteral("---\ntitle: x\n---\n```{r setup, include=FALSE}\na <- 1\nb <- 2\n```\n"
                       "text\n```{python}\nprint(1)\n```\n   ```{R}\n```\n``` {r}\nc\n````\n"
                       "```{rust}\nno\n```\n```{r}\nunclosed\n");
    const QList<RmdChunks::Chunk> chunks = RmdChunks::all(text);
    ASSERT_EQ(chunks.size(), 3);
    EXPECT_EQ(chunks[0], (RmdChunks::Chunk{u"a <- 1\nb <- 2"_qs, 5, 6}));
    EXPECT_EQ(chunks[1].code, QString()) << "an empty chunk";
    EXPECT_EQ(chunks[2], (RmdChunks::Chunk{u"c"_qs, 15, 15}));
    EXPECT_EQ(RmdChunks::chunk(6, text)->startLine, 5);
    EXPECT_FALSE(RmdChunks::chunk(4, text).has_value()) << "the header line is not code";
    EXPECT_FALSE(RmdChunks::chunk(13, text).has_value()) << "an empty chunk holds no line";
    EXPECT_FALSE(RmdChunks::chunk(21, text).has_value()) << "an unclosed chunk is not run";
}

// Fences the run commands' own scan once read otherwise than the highlighting: a line of fewer
// backticks, or of backticks and text, does not close a chunk (as knitr reads it).
TEST(EditorSessionModel, RunAllRunsTheLinesTheHighlightingShowsAsRCode)
{
    const struct {
        QString text;
        QString code;
    } cases[] = {
        {u"````{r}\nx <- \"\n```\n\"\n````\n"_qs, u"x <- \"\n```\n\""_qs},
        {u"```{r}\ns <- \"\n``` not a fence\n\"\n```\nafter\n"_qs, u"s <- \"\n``` not a fence\n\""_qs},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text.toStdString());
        const QList<RmdChunks::Chunk> chunks = RmdChunks::all(c.text);
        ASSERT_EQ(chunks.size(), 1);
        EXPECT_EQ(chunks[0].code, c.code);
        const RSourceSnapshot highlighting(c.text, RSourceLanguage::rMarkdown);
        for (qsizetype line = 0; line < highlighting.lineCount(); ++line) {
            const bool run = line + 1 >= chunks[0].startLine && line + 1 <= chunks[0].endLine;
            EXPECT_EQ(highlighting.isCode(line), run) << "line " << line + 1;
        }
    }
}

TEST(EditorSessionModel, SmallTextsReachTheBindingAtOnceLargeOnesPerBurst)
{
    QTextDocument document;
    EditorSession session(&document, EditorMode::document);
    QString bound;
    int writes = 0;
    session.textBinding = [&](const QString &text) {
        bound = text;
        ++writes;
    };
    session.loadText(u"a\n"_qs);
    EXPECT_EQ(writes, 0) << "loaded text is not written back";
    QTextCursor cursor(&document);
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(u"b"_qs);
    EXPECT_EQ(bound, u"a\nb"_qs);

    session.loadText(QString(EditorSession::immediateSyncLimit + 10, u'x'));
    cursor.movePosition(QTextCursor::End);
    cursor.insertText(u"y"_qs);
    cursor.insertText(u"z"_qs);
    EXPECT_EQ(bound, u"a\nb"_qs) << "a large text waits for the end of the burst";
    const int before = writes;
    ASSERT_TRUE(TestSupport::waitUntil([&] { return bound.endsWith(u"yz"_qs); }));
    EXPECT_EQ(writes, before + 1) << "one write for the burst";
    cursor.insertText(u"!"_qs);
    session.flushPendingChanges();
    EXPECT_TRUE(bound.endsWith(u'!')) << "a command flushes first";
    EXPECT_EQ(bound, session.lastSyncedText());
}

// A long text loaded by slices: at every slice's end the document and the session's text agree, the
// line index is a fresh one and the lines above the first dirty one are lexed as a fresh lexing
// lexes them. An edit made meanwhile keeps its place and reaches the binding once the fill ends; a
// new load drops the fill before it; a command finishes a fill at once.
TEST(EditorSessionModel, ALongTextFillsBySlicesAndStaysFresh)
{
    QTextDocument document;
    EditorSession session(&document, EditorMode::document);
    QString bound;
    int writes = 0;
    session.textBinding = [&](const QString &text) {
        bound = text;
        ++writes;
    };
    QString text;
    for (int i = 0; i < 6000; ++i)
        text += i % 7 == 0 ? u"s <- \"opens (\n"_qs : u"f(%1) # note\n"_qs.arg(i);
    session.loadText(u"old <- 1\n"_qs.repeated(3000));
    ASSERT_TRUE(session.isLoading());
    session.loadText(text);
    ASSERT_TRUE(session.isLoading());
    EXPECT_LT(document.blockCount(), 1000);

    int slices = 0;
    while (session.isLoading()) {
        QCoreApplication::processEvents();
        ++slices;
        QString shown = document.toRawText();
        shown.replace(QChar::ParagraphSeparator, u'\n');
        ASSERT_EQ(session.text(), shown) << "slice " << slices;
        ASSERT_TRUE(session.model().lines() == RLineIndex(session.text())) << "slice " << slices;
        RSourceModel fresh;
        fresh.reset(session.text());
        fresh.relex(session.text());
        const qsizetype firstDirty =
            session.model().isClean() ? fresh.lineCount() : session.model().dirty().front().first;
        for (qsizetype line = 0; line < firstDirty; ++line)
            ASSERT_TRUE(session.model().states()[line] == fresh.states()[line]) << "slice " << slices;
        if (slices == 1)
            QTextCursor(&document).insertText(u"edit "_qs);
        if (session.isLoading())
            EXPECT_EQ(writes, 0) << "the binding holds the whole text already";
    }
    EXPECT_GT(slices, 1);
    EXPECT_EQ(session.text(), u"edit "_qs + text);
    EXPECT_EQ(writes, 1);
    EXPECT_EQ(bound, session.text());

    session.loadText(text);
    ASSERT_TRUE(session.isLoading());
    session.flushPendingChanges();
    EXPECT_FALSE(session.isLoading());
    EXPECT_EQ(session.text(), text);
    EXPECT_EQ(document.characterCount() - 1, text.size());
    EXPECT_EQ(writes, 1) << "a load is not written back";
}
