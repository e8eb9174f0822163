#include "QStringPrinting.h"
#include "RLineIndex.h"
#include "RSourceModel.h"
#include "RSyntax.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

namespace {

// States and per-line tokens of a fresh lexing of `text`.
struct Fresh {
    QList<RLineState> states;
    QList<QList<RToken>> tokens;
};

Fresh freshLexing(const QString &text, RSourceLanguage language)
{
    Fresh fresh;
    const RLineIndex lines(text);
    RLineState state = RLineState::initial();
    for (qsizetype l = 0; l < lines.lineCount(); ++l) {
        fresh.states.append(state);
        RLineLexer::Line line = RLineLexer::lex(l, lines, text, language, state);
        fresh.tokens.append(line.tokens);
        state = line.end;
    }
    return fresh;
}

struct Edited {
    RSourceModel model;
    QString text;

    explicit Edited(const QString &initial, RSourceLanguage language = RSourceLanguage::r)
        : model(language), text(initial)
    {
        model.reset(text);
        model.relex(text);
    }

    // Replaces `length` units at `at` and returns the lines the relex visited.
    QList<qsizetype> replace(qsizetype at, qsizetype length, const QString &with)
    {
        text.replace(at, length, with);
        model.replaceCharacters(RTextRange{at, length}, with.size(), text);
        QList<qsizetype> visited;
        model.relex(text, [&](qsizetype line, RTextRange, const QList<RToken> &) { visited.append(line); });
        return visited;
    }
};

} // namespace

TEST(RLineIndex, LineBreaksAndEdits)
{
    EXPECT_EQ(RLineIndex(QString()).lineStarts(), QList<qsizetype>{0});
    EXPECT_EQ(RLineIndex(QString()).line(5), 0);
    EXPECT_EQ(RLineIndex(u"a\r\nb"_qs).lineStarts(), (QList<qsizetype>{0, 3}));
    EXPECT_EQ(RLineIndex(u"a\rb\n"_qs).lineStarts(), (QList<qsizetype>{0, 2, 4}));

    // A line feed between the two units of a CRLF pair makes three lines.
    QString text = u"a\r\nb"_qs;
    RLineIndex index(text);
    text.insert(2, u'\n');
    index.replaceCharacters(RTextRange{2, 0}, 1, text);
    EXPECT_EQ(index.lineStarts(), (QList<qsizetype>{0, 3, 4}));
    EXPECT_EQ(index, RLineIndex(text));

    // A line feed typed right after a lone carriage return joins them into one break.
    text = u"a\rb"_qs;
    index = RLineIndex(text);
    text.insert(2, u'\n');
    RLineIndex::Change change = index.replaceCharacters(RTextRange{2, 0}, 1, text);
    EXPECT_EQ(index, RLineIndex(text));
    EXPECT_EQ(change, (RLineIndex::Change{0, 1, 1}));

    // Deleting a whole line.
    text = u"x\ny\nz"_qs;
    index = RLineIndex(text);
    text.remove(2, 2);
    change = index.replaceCharacters(RTextRange{2, 2}, 0, text);
    EXPECT_EQ(change, (RLineIndex::Change{1, 1, 0}));
    EXPECT_EQ(index, RLineIndex(text));

    EXPECT_EQ(index.range(0, false), (RTextRange{0, 1}));
    EXPECT_EQ(index.range(99, true), (RTextRange{2, 1}));
    EXPECT_EQ(index.lines(RTextRange{0, 3}), (std::pair<qsizetype, qsizetype>{0, 1}));
}

TEST(RLineIndex, RandomEditsMatchAFreshIndex)
{
    QRandomGenerator random(42);
    const char16_t pieces[][4] = {u"\n", u"\r", u"\r\n", u"ab", u"x", u"\n\n", u""};
    QString text = u"first\nsecond\r\nthird\rfourth\n"_qs;
    RLineIndex index(text);
    for (int round = 0; round < 5000; ++round) {
        const qsizetype at = random.bounded(int(text.size() + 1));
        const qsizetype length = random.bounded(int(qMin<qsizetype>(4, text.size() - at) + 1));
        const QString with = QString::fromUtf16(pieces[random.bounded(7)]);
        text.replace(at, length, with);
        index.replaceCharacters(RTextRange{at, length}, with.size(), text);
        ASSERT_EQ(index.lineStarts(), RLineIndex(text).lineStarts()) << "round " << round;
        ASSERT_EQ(index.length(), text.size());
        const qsizetype probe = random.bounded(int(text.size() + 1));
        ASSERT_EQ(index.line(probe), RLineIndex(text).line(probe));
    }
}

TEST(RSourceModel, RandomEditsLeaveWhatAFreshLexingGives)
{
    // The central invariant, for each language.
    const QStringList pieces = {u"\""_qs,    u"'"_qs,      u"`"_qs,     u"\n"_qs,       u"r\"("_qs,
                                u")\""_qs,   u"f(a = "_qs, u"#' @x"_qs, u"```{r}\n"_qs, u"```\n"_qs,
                                u"---\n"_qs, u"\\"_qs,     u"\r\n"_qs,  u"x"_qs,        u"# a ----\n"_qs,
                                u")"_qs,     u"{"_qs,      u"# H\n"_qs};
    for (RSourceLanguage language :
         {RSourceLanguage::r, RSourceLanguage::rMarkdown, RSourceLanguage::plain}) {
        QRandomGenerator random(7 + int(language));
        Edited edited(u"---\ntitle: t\n---\n```{r}\nx <- f(a = 1,\n  b)\n```\n"_qs, language);
        for (int round = 0; round < 3000; ++round) {
            // Several edits between relexes exercise the merging of dirty lines.
            const int edits = 1 + random.bounded(3);
            for (int e = 0; e < edits; ++e) {
                const qsizetype at = random.bounded(int(edited.text.size() + 1));
                const qsizetype length = random.bounded(int(qMin<qsizetype>(6, edited.text.size() - at) + 1));
                const QString with =
                    random.bounded(4) == 0 ? QString() : pieces[random.bounded(int(pieces.size()))];
                edited.text.replace(at, length, with);
                edited.model.replaceCharacters(RTextRange{at, length}, with.size(), edited.text);
            }
            edited.model.relex(edited.text);
            ASSERT_TRUE(edited.model.isClean());
            const Fresh fresh = freshLexing(edited.text, language);
            ASSERT_EQ(edited.model.states(), fresh.states) << "round " << round;
            const qsizetype probe = random.bounded(int(fresh.tokens.size()));
            ASSERT_EQ(edited.model.tokens(probe, edited.text), fresh.tokens[probe]);
        }
    }
}

TEST(RSourceModel, RelexInSlicesIsFreshAboveTheFirstDirtyLineAndInTheEnd)
{
    // Slices of a few lines with edits between them, as the editor styles a large file while the
    // user types: whatever a slice leaves behind, the lines above the first dirty one are final.
    const QStringList pieces = {u"\""_qs,       u"'"_qs,     u"\n"_qs, u"r\"("_qs,       u")\""_qs,
                                u"```{r}\n"_qs, u"```\n"_qs, u"x"_qs,  u"# a ----\n"_qs, u"{\n"_qs};
    for (RSourceLanguage language : {RSourceLanguage::r, RSourceLanguage::rMarkdown}) {
        QRandomGenerator random(11 + int(language));
        QString initial;
        for (int i = 0; i < 60; ++i)
            initial += u"```{r}\nx <- \"a\" # n\n```\ntext\n"_qs;
        Edited edited(initial, language);
        for (int round = 0; round < 400; ++round) {
            const qsizetype at = random.bounded(int(edited.text.size() + 1));
            const QString with = pieces[random.bounded(int(pieces.size()))];
            edited.text.insert(at, with);
            edited.model.replaceCharacters(RTextRange{at, 0}, with.size(), edited.text);
            const qsizetype budget = 1 + random.bounded(40);
            qsizetype asked = 0;
            const qsizetype lexed =
                edited.model.relex(edited.text, {}, [&](qsizetype) { return asked++ < budget; });
            ASSERT_LE(lexed, budget);
            const Fresh fresh = freshLexing(edited.text, language);
            const qsizetype firstDirty =
                edited.model.isClean() ? edited.model.lineCount() : edited.model.dirty().front().first;
            ASSERT_EQ(edited.model.states().mid(0, firstDirty + 1), fresh.states.mid(0, firstDirty + 1))
                << "round " << round;
            if (round % 10 == 9) {
                edited.model.relex(edited.text);
                ASSERT_EQ(edited.model.states(), fresh.states) << "round " << round;
            }
        }
    }
}

TEST(RSourceModel, RelexVisitsOnlyWhatChanged)
{
    QString text;
    for (int i = 0; i < 1000; ++i)
        text += u"x <- f(1, \"a\")\n"_qs;
    Edited edited(text);
    EXPECT_EQ(edited.replace(500 * 15 + 2, 0, u"y"_qs), QList<qsizetype>{500});

    // An open quote at the top repaints to the end; closing it repaints the same lines again.
    QList<qsizetype> opened = edited.replace(0, 0, u"\""_qs);
    EXPECT_EQ(opened.size(), 1001);
    QList<qsizetype> closed = edited.replace(1, 0, u"\""_qs);
    EXPECT_EQ(closed.size(), 1001);
    EXPECT_EQ(closed.first(), 0);
}

TEST(RSourceModel, SnapshotLeavesTheModelDirtyAndChunkLines)
{
    const QString doc = u"# H\n```{r}\nx\n```\ntext"_qs;
    RSourceModel model(RSourceLanguage::rMarkdown);
    model.reset(doc);
    const std::unique_ptr<RSourceSnapshot> snapshot = model.snapshot(doc);
    EXPECT_FALSE(model.isClean());
    EXPECT_TRUE(snapshot->isCode(2));
    EXPECT_FALSE(snapshot->isCode(1));
    model.relex(doc);
    for (const qsizetype line : {0, 1, 2, 3, 4, 99})
        EXPECT_EQ(model.isChunkLine(line), line >= 1 && line <= 3) << line;
    EXPECT_EQ(model.lexLine(99, doc), (std::pair<QList<RToken>, bool>{{}, false}));
    EXPECT_TRUE(model.lexLine(2, doc).second);
}

TEST(RSourceSnapshot, LinesBreaksAndColumns)
{
    const RSourceSnapshot s(u"a\r\n\tbc\rd\n"_qs, RSourceLanguage::r);
    EXPECT_EQ(s.lineCount(), 4);
    EXPECT_EQ(s.contentEnd(0), 1);
    EXPECT_EQ(s.contentEnd(1), 6);
    EXPECT_EQ(s.contentEnd(3), s.length());
    EXPECT_EQ(s.lineBreak(0), u"\r\n"_qs);
    EXPECT_EQ(s.lineBreak(1), u"\r"_qs);
    EXPECT_EQ(s.lineBreak(9), u"\n"_qs);
    EXPECT_EQ(s.lineText(0), u"a\r"_qs);
    EXPECT_EQ(s.leadingWhitespace(1), u"\t"_qs);
    EXPECT_EQ(s.column(5, 4), 5);
    EXPECT_EQ(s.character(-1), 0);
    EXPECT_FALSE(s.token(100).has_value());
    EXPECT_EQ(s.text(*s.token(4)), u"bc"_qs);
    EXPECT_EQ(s.span(1, 2).range, (RTextRange{3, 5}));
    EXPECT_EQ(s.span(3, 3).range, (RTextRange{9, 0}));
    EXPECT_TRUE(s.tokens(-1).isEmpty());
    EXPECT_FALSE(s.startsInsideLiteral(7));
}

TEST(RSyntax, SectionsAndCurrentSection)
{
    EXPECT_EQ(RSyntax::sectionTitle(u"# Data ----"), u"Data"_qs);
    EXPECT_EQ(RSyntax::sectionTitle(u"# ---- Data ----"), u"Data"_qs);
    EXPECT_EQ(RSyntax::sectionTitle(u"#### ===="), std::nullopt);
    const QString text = u"a\n# One ----\nb\nx # Two ----\n## Two ====\nc"_qs;
    const RSourceSnapshot s(text, RSourceLanguage::r);
    const auto sections = RSyntax::sections(s);
    ASSERT_EQ(sections.size(), 2);
    EXPECT_EQ(sections[1], (std::pair<qsizetype, std::optional<QString>>{4, u"Two"_qs}));
    const RSection one = RSyntax::currentSection(s, 3);
    EXPECT_EQ(one.title, u"One"_qs);
    EXPECT_EQ(one.firstLine, 1);
    EXPECT_EQ(one.lastLine, 3);
    EXPECT_EQ(RSyntax::currentSection(text, 0).title, std::nullopt);
    const RSection whole = RSyntax::currentSection(u"x\ny"_qs, 1);
    EXPECT_EQ(whole.firstLine, 0);
    EXPECT_EQ(whole.lastLine, 1);
    EXPECT_EQ(whole.range, (RTextRange{0, 3}));
}
