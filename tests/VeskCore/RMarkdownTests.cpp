#include "CaretMarks.h"
#include "Outline.h"
#include "QStringPrinting.h"
#include "RHighlight.h"
#include "RMarkdownEditing.h"
#include "RMarkdownScanner.h"

#include <gtest/gtest.h>

namespace {

using Kind = RMarkdownScanner::LineKind;
using State = RMarkdownScanner::LineState;

std::pair<Kind, State> classified(const QString &line, State state = State::text())
{
    return RMarkdownScanner::classify(reinterpret_cast<const char16_t *>(line.utf16()), 0, line.size(),
                                      state);
}

// Inserts a chunk at the caret `|` (or around the selection between two `|`) and marks the caret.
QString withChunk(const QString &marked)
{
    const CaretMarked in = withoutMarks(marked);
    const RTextEdit e = RMarkdownEditing::insertChunk(in.text, in.selection.value(), u"```{r}"_qs);
    return withMarks(e.applied(in.text), RTextRange{e.selectionLocation, e.selectionLength});
}

} // namespace

TEST(RMarkdownScanner, LineClasses)
{
    EXPECT_EQ(classified(u"---"_qs, State::documentStart()),
              (std::pair{Kind::frontMatter(), State::frontMatter()}));
    EXPECT_EQ(classified(u"---"_qs).first, Kind::text());
    EXPECT_EQ(classified(u"...\n"_qs, State::frontMatter()).second, State::text());
    for (const QString &open : {u"```{r}"_qs, u"```{r setup, include=FALSE}"_qs, u"``` {r}"_qs,
                                u"   ```{r}"_qs, u"```{R, echo=FALSE}  \r\n"_qs})
        EXPECT_EQ(classified(open), (std::pair{Kind::chunkHeader(true), State::chunk(3, true)}))
            << open.toStdString();
    for (const QString &line : {u"    ```{r}"_qs, u"``` a`b"_qs, u"#Title"_qs, u"####### x"_qs})
        EXPECT_EQ(classified(line).first, Kind::text()) << line.toStdString();
    for (const QString &line : {u"```r"_qs, u"```{rust}"_qs, u"```{r.x}"_qs})
        EXPECT_EQ(classified(line).first, Kind::chunkHeader(false)) << line.toStdString();
    EXPECT_EQ(classified(u"# Title"_qs).first, Kind::heading(1));
    EXPECT_EQ(classified(u"##"_qs).first, Kind::heading(2));
    EXPECT_EQ(classified(u"# comment"_qs, State::chunk(3, true)).first, Kind::code(true));
    // A fence of four is not closed by three.
    EXPECT_EQ(classified(u"```"_qs, State::chunk(4, true)).first, Kind::code(true));
    EXPECT_EQ(classified(u"  ````"_qs, State::chunk(4, true)).first, Kind::chunkFence());
}

TEST(RMarkdownScanner, OutlineOfChunksAndHeadings)
{
    const QString doc =
        u"\n---\n# One\n```{r setup, include=FALSE}\nx\n```\n## Two  \n```{python}\n```\n```{r}\ny"_qs;
    const RMarkdownOutline outline = RMarkdownScanner::scan(doc);
    ASSERT_EQ(outline.chunks.size(), 3);
    const RMarkdownChunk &setup = outline.chunks[0];
    EXPECT_EQ(setup.engine, u"r"_qs);
    EXPECT_EQ(setup.label, u"setup"_qs);
    EXPECT_TRUE(setup.isR);
    EXPECT_TRUE(setup.isClosed);
    EXPECT_EQ(setup.firstLine, 3);
    EXPECT_EQ(setup.lastLine, 5);
    EXPECT_EQ(doc.mid(setup.codeRange.location, setup.codeRange.length), u"x"_qs);
    EXPECT_EQ(outline.chunks[1].engine, u"python"_qs);
    EXPECT_EQ(outline.chunks[1].codeStart, outline.chunks[1].codeEnd);
    EXPECT_FALSE(outline.chunks[2].isClosed);
    EXPECT_EQ(outline.chunks[2].lastLine, 10);
    ASSERT_EQ(outline.headings.size(), 2);
    EXPECT_EQ(outline.headings[1].title, u"Two"_qs);
    EXPECT_EQ(outline.headings[1].level, 2);
    EXPECT_EQ(outline.chunk(4), &outline.chunks[0]);
    EXPECT_EQ(outline.chunk(6), nullptr);

    QString engine;
    std::optional<QString> label;
    RMarkdownScanner::parseHeader(u"```{r, echo=FALSE}"_qs, engine, label);
    EXPECT_FALSE(label.has_value()) << "an option is not a label";
}

TEST(RMarkdownEditing, InsertChunk)
{
    EXPECT_EQ(withChunk(u"text\n|"_qs), u"text\n```{r}\n|\n```"_qs);
    EXPECT_EQ(withChunk(u"ab|cd"_qs), u"ab\n```{r}\n|\n```\ncd"_qs);
    EXPECT_EQ(withChunk(u"```{r}\nx\n|y\n```"_qs), u"```{r}\nx\n```\n\n```{r}\n|y\n```"_qs);
    EXPECT_EQ(withChunk(u"```{r}\nx|\n```"_qs), u"```{r}\nx\n```\n\n```{r}\n|\n```"_qs);
    EXPECT_EQ(withChunk(u"|```{r}\nx\n```"_qs), u"```{r}\n|\n```\n\n```{r}\nx\n```"_qs);
    EXPECT_EQ(withChunk(u"```{python}\nx|\n```\nz"_qs), u"```{python}\nx\n```\n\n```{r}\n|\n```\nz"_qs);
    EXPECT_EQ(withChunk(u"a\n|b\nc\n|d"_qs), u"a\n```{r}\n|b\nc|\n```\nd"_qs);
}

TEST(Outline, ItemsOfScriptsAndDocuments)
{
    const QString script =
        u"# Setup ----\nf <- function(x) x\n`g h` = function (y) y\nk <- \\(x) x\n# ---- tail\n## Sub ====\n"_qs;
    const QList<OutlineItem> items = Outline::items(script, RSourceLanguage::r);
    ASSERT_EQ(items.size(), 4);
    EXPECT_EQ(items[0], (OutlineItem{OutlineItem::Kind::section, u"Setup"_qs, 1, 0}));
    EXPECT_EQ(items[1], (OutlineItem{OutlineItem::Kind::function, u"f"_qs, 2, 0}));
    EXPECT_EQ(items[2].title, u"`g h`"_qs);
    EXPECT_EQ(items[3], (OutlineItem{OutlineItem::Kind::section, u"Sub"_qs, 6, 1}));

    const QString doc =
        u"# Heading\n```{r}\n# Heading\n# Inner ----\n```\n```{python}\nf <- function(x) 1\n```\n```{r}\n```"_qs;
    const QList<OutlineItem> docItems = Outline::items(doc, RSourceLanguage::rMarkdown);
    ASSERT_EQ(docItems.size(), 4);
    EXPECT_EQ(docItems[0], (OutlineItem{OutlineItem::Kind::heading, u"Heading"_qs, 1, 0}));
    EXPECT_EQ(docItems[1], (OutlineItem{OutlineItem::Kind::chunk, u"Chunk at line 2"_qs, 2, 0}));
    EXPECT_EQ(docItems[2].title, u"Inner"_qs);
    EXPECT_EQ(docItems[3].title, u"Chunk at line 9"_qs);
    EXPECT_TRUE(Outline::items(QString(), RSourceLanguage::plain).isEmpty());
}

TEST(RHighlight, Roles)
{
    using R = RHighlight::Role;
    const QString code = u"f(x, \"s\") # c\nif (TRUE) 1.5e3 <- `a b`"_qs;
    QStringList shown;
    for (const RHighlight::Span &s : RHighlight::spans(code)) {
        if (s.role != R::text)
            shown << QString::number(int(s.role)) + u':' + code.mid(s.location, s.length);
    }
    EXPECT_EQ(shown.join(u' '), u"4:f 0:\"s\" 6:# c 2:if 3:TRUE 1:1.5e3 5:<-"_qs);
    EXPECT_TRUE(RHighlight::spans(u"'open"_qs).first().role == R::string);
}
