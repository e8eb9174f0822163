#include "CaretMarks.h"
#include "QStringPrinting.h"
#include "RSourceSnapshot.h"
#include "RTyping.h"

#include <gtest/gtest.h>

namespace {

RTyping::Surroundings around(const RSourceSnapshot &snapshot, const CaretMarked &in, TextContext context)
{
    return RTyping::Surroundings{in.text, in.selection.value(), context,
                                 [&snapshot](qsizetype at) { return snapshot.token(at); }};
}

// The marked text after typing `c`, or nothing when the character goes in as typed.
std::optional<QString> afterTyping(const QString &marked, char16_t c, TextContext context)
{
    const CaretMarked in = withoutMarks(marked);
    const RSourceSnapshot snapshot(in.text, RSourceLanguage::r);
    const auto edit = RTyping::typedCharacter(c, around(snapshot, in, context));
    if (!edit)
        return std::nullopt;
    return withMarks(edit->applied(in.text), RTextRange{edit->selectionLocation, edit->selectionLength});
}

} // namespace

TEST(RTyping, BracketsAndQuotesPairStepOverAndWrap)
{
    const TextContext code = TextContext::code;
    const struct {
        QString before;
        char16_t typed;
        TextContext context;
        std::optional<QString> after;
    } cases[] = {
        {u"f|"_qs, u'(', code, u"f(|)"_qs},
        {u"x[|]"_qs, u'[', code, u"x[[|]]"_qs},
        {u"if (a) |"_qs, u'{', code, u"if (a) {|}"_qs},
        {u"f(a, |b)"_qs, u'(', code, std::nullopt},
        {u"|a + b|"_qs, u'(', code, u"(|a + b|)"_qs},
        {u"|a|"_qs, u'"', code, u"\"|a|\""_qs},
        {u"f(|)"_qs, u')', code, u"f()|"_qs},
        {u"x[[1|]]"_qs, u']', code, u"x[[1]|]"_qs},
        {u"x <- |"_qs, u'"', code, u"x <- \"|\""_qs},
        {u"x <- |;"_qs, u'\'', code, u"x <- '|';"_qs},
        {u"x <- |;"_qs, u'(', code, std::nullopt},
        {u"x <- \"abc|\""_qs, u'"', TextContext::string, u"x <- \"abc\"|"_qs},
        {u"x <- \"|\""_qs, u'"', TextContext::string, u"x <- \"\"|"_qs},
        {u"`my var|`"_qs, u'`', TextContext::code, u"`my var`|"_qs},
        {u"x <- \"(|)\""_qs, u')', TextContext::string, std::nullopt},
        {u"don|"_qs, u'\'', code, std::nullopt},
        {u"x <- \"|"_qs, u'"', code, std::nullopt},
        {u"r|"_qs, u'"', code, u"r\"|\""_qs},
        {u"br|"_qs, u'"', code, std::nullopt},
        {u"# note |"_qs, u'(', TextContext::comment, std::nullopt},
        {u"f(x|"_qs, u')', code, std::nullopt},
        {u"f|"_qs, u'x', code, std::nullopt},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.before.toStdString() + " + " + QString(QChar(c.typed)).toStdString());
        EXPECT_EQ(afterTyping(c.before, c.typed, c.context), c.after);
    }
}

TEST(RTyping, BackspaceTakesAnEmptyPairOrIndentationToTheTabStop)
{
    const struct {
        QString before;
        bool pairs;
        int tabWidth;
        std::optional<RTextRange> deleted;
    } cases[] = {
        {u"f(|)"_qs, true, 2, RTextRange{1, 2}},
        {u"x <- \"|\""_qs, true, 2, RTextRange{5, 2}},
        {u"x <- '|'"_qs, true, 2, RTextRange{5, 2}},
        {u"f(|)"_qs, false, 2, std::nullopt},
        {u"\"a|\""_qs, true, 2, std::nullopt},
        {u"x <- \"\"|\""_qs, true, 2, std::nullopt},
        {u"# (|)"_qs, true, 2, std::nullopt},
        {u"f(\n    |x"_qs, true, 2, RTextRange{5, 2}},
        {u"f(\n      |x"_qs, true, 4, RTextRange{7, 2}},
        {u"f(\n     |x"_qs, true, 4, std::nullopt},
        {u"    |"_qs, true, 4, RTextRange{0, 4}},
        {u"  x|"_qs, true, 2, std::nullopt},
        {u"|x"_qs, true, 2, std::nullopt},
        {u"|f()|"_qs, true, 2, std::nullopt},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.before.toStdString());
        const CaretMarked in = withoutMarks(c.before);
        const RSourceSnapshot snapshot(in.text, RSourceLanguage::r);
        EXPECT_EQ(RTyping::backwardDeletion(around(snapshot, in, TextContext::code), c.pairs, c.tabWidth),
                  c.deleted);
    }
}
