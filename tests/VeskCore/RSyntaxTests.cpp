#include "QStringPrinting.h"
#include "RReference.h"
#include "RStatementShapes.h"
#include "RSyntax.h"

#include <gtest/gtest.h>

namespace {

std::pair<qsizetype, qsizetype> statement(const QString &code, qsizetype line,
                                          RSourceLanguage language = RSourceLanguage::r)
{
    const RSourceSnapshot s(code, language);
    const RTextSpan span = RSyntax::statementRange(s, line);
    return {span.firstLine, span.lastLine};
}

using Lines = std::pair<qsizetype, qsizetype>;

} // namespace

TEST(RSyntax, StatementsOverContinuationsAndBrackets)
{
    for (int line = 0; line < 3; ++line) {
        EXPECT_EQ(statement(u"x <- c(1,\n  2,\n  3)"_qs, line), Lines(0, 2)) << line;
        EXPECT_EQ(statement(u"df |>\n  filter(a) |>\n  select(b)"_qs, line), Lines(0, 2)) << line;
    }
    const QString ifElse = u"if (a) {\n  b\n} else {\n  c\n}"_qs;
    for (int line : {0, 2, 4}) // `} else {` pulls in the line above
        EXPECT_EQ(statement(ifElse, line), Lines(0, 4)) << line;
    // Inside braces a line runs alone.
    EXPECT_EQ(statement(ifElse, 1), Lines(1, 1));
    EXPECT_EQ(statement(u"f <- function(x)\n{\n  x\n}"_qs, 0), Lines(0, 3));
    // A pipe chain that ends inside a call extends down again.
    EXPECT_EQ(statement(u"a |>\n  f(1,\n    2) |>\n  g()\nz"_qs, 0), Lines(0, 3));
}

TEST(RSyntax, StatementsOverEveryContinuationShape)
{
    // The same spans come from R in RParserAgreementTests; CRLF line ends change nothing.
    for (const RStatementShapes::Shape &shape : RStatementShapes::shapes()) {
        for (const QString &text : {shape.text(), shape.lines.join(u"\r\n"_qs) + u"\r\n"_qs}) {
            const RSourceSnapshot s(text, RSourceLanguage::r);
            for (int line = 0; line < shape.lines.size(); ++line) {
                const RTextSpan span = RSyntax::statementRange(s, line);
                EXPECT_EQ(Lines(span.firstLine, span.lastLine), Lines(shape.spans[line]))
                    << "line " << line << " of\n"
                    << shape.text().toStdString();
            }
        }
    }
}

TEST(RSyntax, StatementsAtTheEdges)
{
    const QString code = u"x\n"_qs.repeated(10) + u"f(\n  1,\n  2\n\ny\n"_qs;
    // An unclosed call takes the rest of the code region.
    EXPECT_EQ(statement(code, 10), Lines(10, 15));
    // A cursor inside a multi-line string gives the whole string.
    const QString string = u"a\nx <- \"one\ntwo\nthree\"\nb"_qs;
    EXPECT_EQ(statement(string, 2), Lines(1, 3));
    EXPECT_EQ(statement(string, 1), Lines(1, 3));
    // Statements never cross a fence.
    const QString doc = u"```{r}\nx <- 1 +\n```\n```{r}\n  2\n```"_qs;
    EXPECT_EQ(statement(doc, 1, RSourceLanguage::rMarkdown), Lines(1, 1));
    EXPECT_EQ(statement(doc, 4, RSourceLanguage::rMarkdown), Lines(4, 4));
    EXPECT_EQ(statement(doc, 0, RSourceLanguage::rMarkdown), Lines(0, 0));
    EXPECT_EQ(statement(QString(), 7), Lines(0, 0));
    // A closer with nothing to open doesn't loop.
    EXPECT_EQ(statement(u")\n)(\n(("_qs, 1), Lines(1, 2));
}

TEST(RSyntax, MatchingBrackets)
{
    const QString code = u"f(x[1], {\n  g(\")\")\n})"_qs;
    const RSourceSnapshot s(code, RSourceLanguage::r);
    EXPECT_EQ(RSyntax::matchingBracket(1, s, 1000), code.size() - 1);
    EXPECT_EQ(RSyntax::matchingBracket(code.size() - 1, s, 1000), 1);
    EXPECT_EQ(RSyntax::matchingBracket(8, s, 1000), code.size() - 2);
    EXPECT_EQ(RSyntax::matchingBracket(8, s, 1), std::nullopt); // the line limit holds
    EXPECT_EQ(RSyntax::matchingBracket(0, s, 1000), std::nullopt);
    EXPECT_EQ(RSyntax::matchingBracket(-5, s, 1000), std::nullopt);
    EXPECT_FALSE(s.matchingOpener(5, -1, 10).has_value());
    EXPECT_FALSE(s.matchingOpener(5, 0, 0).has_value());
}

TEST(RSyntax, ConsoleCompleteness)
{
    for (const QString &incomplete :
         {u"x <- "_qs, u"f(1"_qs, u"'abc"_qs, u"if (x)"_qs, u"function(x)"_qs, u"r\"(a"_qs, u"`a"_qs,
          u"x |>"_qs, u"\\(x)"_qs, u"for (i in 1:3)"_qs, u"f <- \\"_qs, u"x # c\r"_qs + u"y +"_qs})
        EXPECT_FALSE(RSyntax::isLikelyComplete(incomplete)) << incomplete.toStdString();
    for (const QString &complete :
         {u")"_qs, QString(), u"f(x)"_qs, u"x # comment <-"_qs, u"if (x) y"_qs, u"f(1))(("_qs})
        EXPECT_TRUE(RSyntax::isLikelyComplete(complete)) << complete.toStdString();
}

TEST(RReference, PlainReferences)
{
    for (const QString &plain :
         {u"mtcars$mpg"_qs, u"stats::lm"_qs, u"x[[\"a\"]]"_qs, u"x[[1]]$y # note"_qs, u" `my df` @ slot "_qs,
          u"\"pkg\":::`f`"_qs, u"x[[1.5e3L]]"_qs, u"Tx"_qs, u"l$\"a b\""_qs})
        EXPECT_TRUE(RReference::isPlainReference(plain)) << plain.toStdString();
    for (const QString &code : {u"f(x)"_qs, u"x[1]"_qs, u"a + b"_qs, u"if"_qs, QString(), u"  "_qs, u".5"_qs,
                                u"\"a\""_qs, u"stats::"_qs, u"x$"_qs, u"x[[y]]"_qs, u"`a"_qs, u"TRUE"_qs,
                                u"T"_qs, u"F$x"_qs, u"NULL"_qs, u"return"_qs})
        EXPECT_FALSE(RReference::isPlainReference(code)) << code.toStdString();
}
