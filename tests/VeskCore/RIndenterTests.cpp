#include "CaretMarks.h"
#include "QStringPrinting.h"
#include "RIndenter.h"

#include <gtest/gtest.h>

namespace {

// Applies Return at the caret marked `|` (or the selection between two `|`) and marks the new caret.
QString afterReturn(const QString &marked, int tabWidth = 2)
{
    const CaretMarked in = withoutMarks(marked);
    const RSourceSnapshot s(in.text, RSourceLanguage::r);
    const RTextEdit edit = RIndenter::newline(s, in.selection.value(), tabWidth);
    return withMarks(edit.applied(in.text), RTextRange{edit.selectionLocation, 0});
}

RTextEdit toggled(const QString &text, RTextRange selection)
{
    return RIndenter::toggleComment(RSourceSnapshot(text, RSourceLanguage::r), selection);
}

} // namespace

TEST(RIndenter, ReturnAlignsIndentsAndContinuesComments)
{
    const std::pair<QString, QString> cases[] = {
        {u"x <- f(a,|"_qs, u"x <- f(a,\n       |"_qs},
        {u"f(|"_qs, u"f(\n  |"_qs},
        {u"x <- 1 +|"_qs, u"x <- 1 +\n  |"_qs},
        {u"x <- 1 +\n  2 +|"_qs, u"x <- 1 +\n  2 +\n  |"_qs},
        {u"x <- 1 +\n  2 +\n  3|"_qs, u"x <- 1 +\n  2 +\n  3\n|"_qs},
        {u"  g <- function(x) {|}"_qs, u"  g <- function(x) {\n    |\n  }"_qs},
        {u"if (x)|"_qs, u"if (x)\n  |"_qs},
        // A closer whose opener is lines above goes back to the statement's indentation.
        {u"x <- list(\n  a = 1,\n  b = 2)|"_qs, u"x <- list(\n  a = 1,\n  b = 2)\n|"_qs},
        // Blanks around the break go, and an empty line keeps none.
        {u"  x <- 1   |   y"_qs, u"  x <- 1\n  |y"_qs},
        {u"  |   "_qs, u"  \n  |"_qs},
        // Inside a string nothing is added; roxygen continues, a plain comment does not.
        {u"x <- \"ab|c\n  d\""_qs, u"x <- \"ab\n|c\n  d\""_qs},
        {u"x <- \"a\n  b|c\""_qs, u"x <- \"a\n  b\n|c\""_qs},
        {u"  #' Title|"_qs, u"  #' Title\n  #' |"_qs},
        {u"  # note|"_qs, u"  # note\n  |"_qs},
        {u"f(a,\r\n  b,|"_qs, u"f(a,\r\n  b,\r\n  |"_qs},
    };
    for (const auto &[marked, expected] : cases)
        EXPECT_EQ(afterReturn(marked), expected) << marked.toStdString();
}

TEST(RIndenter, ClosingBracketDedents)
{
    const QString text = u"f <- function() {\n  x\n    "_qs;
    const RSourceSnapshot s(text, RSourceLanguage::r);
    const std::optional<RTextEdit> e = RIndenter::closingBracket(u'}', s, text.size());
    ASSERT_TRUE(e.has_value());
    EXPECT_EQ(e->applied(text), u"f <- function() {\n  x\n}"_qs);
    // Already in place, or text before the caret: typed the ordinary way.
    EXPECT_FALSE(
        RIndenter::closingBracket(u'}', RSourceSnapshot(u"{\n"_qs, RSourceLanguage::r), 2).has_value());
    EXPECT_FALSE(RIndenter::closingBracket(u')', s, text.size() - 8).has_value());
}

TEST(RIndenter, CommentsAndShifts)
{
    const QString block = u"  a\n\n    b\n"_qs;
    const QString commented = toggled(block, RTextRange{0, block.size() - 1}).applied(block);
    EXPECT_EQ(commented, u"  # a\n\n  #   b\n"_qs);
    EXPECT_EQ(toggled(commented, RTextRange{0, commented.size() - 1}).applied(commented), block);
    // The selection moves with its first line.
    const RTextEdit e = toggled(u"x\ny"_qs, RTextRange{1, 2});
    EXPECT_EQ(e.selectionLocation, 3);
    EXPECT_EQ(e.selectionLength, 4);

    const RSourceSnapshot s(u"a\n\n\tb\n   c"_qs, RSourceLanguage::r);
    const RTextEdit in = RIndenter::shiftLines(s, RTextRange{0, 10}, true, 2);
    EXPECT_EQ(in.applied(s.text()), u"  a\n\n  \tb\n     c"_qs);
    const RTextEdit out = RIndenter::shiftLines(s, RTextRange{0, 10}, false, 2);
    EXPECT_EQ(out.applied(s.text()), u"a\n\nb\n c"_qs);
}

TEST(RIndenter, OperatorsAndReindent)
{
    auto op = [](const QString &text, qsizetype at) {
        const RSourceSnapshot s(text, RSourceLanguage::r);
        return RIndenter::insertOperator(u"<-"_qs, s, RTextRange{at, 0}).applied(text);
    };
    EXPECT_EQ(op(u"x"_qs, 1), u"x <- "_qs);
    EXPECT_EQ(op(u"x y"_qs, 2), u"x <- y"_qs);
    EXPECT_EQ(op(u"\"ab\""_qs, 2), u"\"a<-b\""_qs);
    EXPECT_EQ(op(u"# ab"_qs, 3), u"# a<-b"_qs);

    const QString messy = u"f <- function(x) {\nif (x) {\n        y\n      }\n\n   z\n}\n"_qs;
    const std::optional<RTextEdit> re =
        RIndenter::reindentLines(messy, RSourceLanguage::r, RTextRange{0, messy.size()}, 2);
    ASSERT_TRUE(re.has_value());
    EXPECT_EQ(re->applied(messy), u"f <- function(x) {\n  if (x) {\n    y\n  }\n\n  z\n}\n"_qs);
    EXPECT_FALSE(
        RIndenter::reindentLines(re->applied(messy), RSourceLanguage::r, RTextRange{0, 5}, 2).has_value());
}
