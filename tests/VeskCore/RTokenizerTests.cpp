#include "QStringPrinting.h"
#include "RLineLexer.h"
#include "RTokenizer.h"

#include <gtest/gtest.h>

namespace {

// "kind:text" for each token, joined by blanks.
QString described(const QString &text, const QList<RToken> &tokens)
{
    QStringList parts;
    for (const RToken &t : tokens)
        parts << rTokenKindName(t.kind) + u':' + text.mid(t.location, t.length);
    return parts.join(u' ');
}

QString lexed(const QString &text)
{
    return described(text, RTokenizer::tokenize(text));
}

// Lexes line by line through RLineLexer, carrying the state.
QString lexedByLine(const QString &text, RSourceLanguage language = RSourceLanguage::r)
{
    const RLineIndex lines(text);
    RLineState state = RLineState::initial();
    QList<RToken> all;
    for (qsizetype l = 0; l < lines.lineCount(); ++l) {
        const RLineLexer::Line line = RLineLexer::lex(l, lines, text, language, state);
        all += line.tokens;
        state = line.end;
    }
    return described(text, all);
}

} // namespace

TEST(RTokenizer, RawStrings)
{
    EXPECT_EQ(lexed(u"x <- r\"(a\"b)\""_qs), u"identifier:x operator:<- string:r\"(a\"b)\""_qs);
    EXPECT_EQ(lexed(u"br\"(x)\""_qs), u"identifier:br string:\"(x)\""_qs);
    EXPECT_EQ(lexed(u"R\"--[text]--\""_qs), u"string:R\"--[text]--\""_qs);
    EXPECT_EQ(lexed(u"r\"abc\""_qs), u"identifier:r string:\"abc\""_qs);
    // Too few or too many dashes don't close.
    RTokenizer::State state;
    QList<RToken> tokens;
    const QString open = u"r\"---( )--\" )----\""_qs;
    RTokenizer::scan(reinterpret_cast<const char16_t *>(open.utf16()), 0, open.size(), 0, state, tokens);
    EXPECT_EQ(state, RTokenizer::State::rawString(u'"', u')', 3));
    ASSERT_EQ(tokens.size(), 1);
    EXPECT_EQ(tokens[0].length, open.size());
    EXPECT_EQ(lexedByLine(u"x <- r\"[a\nb]\" + 1"_qs),
              u"identifier:x operator:<- string:r\"[a\n string:b]\" operator:+ number:1"_qs);
}

TEST(RTokenizer, NamesCallsAndArguments)
{
    EXPECT_EQ(lexed(u"f (x)"_qs), u"identifier:f bracket:( identifier:x bracket:)"_qs);
    EXPECT_EQ(lexed(u"f(x)"_qs), u"functionCall:f bracket:( identifier:x bracket:)"_qs);
    EXPECT_EQ(lexed(u"if(x) TRUE("_qs),
              u"keyword:if bracket:( identifier:x bracket:) constant:TRUE bracket:("_qs);
    EXPECT_EQ(
        lexed(u"f(a = 1, b == 2, c\n  = 3)"_qs),
        u"functionCall:f bracket:( argumentName:a operator:= number:1 punctuation:, identifier:b operator:== "
        "number:2 punctuation:, identifier:c operator:= number:3 bracket:)"_qs);
    // The argument position rides in the state across lines and comments.
    EXPECT_EQ(lexedByLine(u"f(\n  # note\n  x = 1)"_qs),
              u"functionCall:f bracket:( comment:# note argumentName:x operator:= number:1 bracket:)"_qs);
    EXPECT_EQ(lexed(u"`my var`(1); f(`a b` = 1)"_qs),
              u"functionCall:`my var` bracket:( number:1 bracket:) punctuation:; functionCall:f bracket:( "
              "argumentName:`a b` operator:= number:1 bracket:)"_qs);
    // A square bracket opens no argument position.
    EXPECT_EQ(lexed(u"x[a = 1]"_qs), u"identifier:x bracket:[ identifier:a operator:= number:1 bracket:]"_qs);
    EXPECT_EQ(lexed(u"α <- 1 «"_qs), u"identifier:α operator:<- number:1 punctuation:«"_qs);
    EXPECT_EQ(lexed(u"NA_character_ NA_integer_ NA_complex_ returns"_qs),
              u"constant:NA_character_ constant:NA_integer_ constant:NA_complex_ identifier:returns"_qs);
    // A name at the end of the range has no look-ahead.
    EXPECT_EQ(lexedByLine(u"f(x\n= 1)"_qs),
              u"functionCall:f bracket:( identifier:x operator:= number:1 bracket:)"_qs);
}

TEST(RTokenizer, NumbersAndOperators)
{
    EXPECT_EQ(lexed(u".5 1.5e-3L .foo .. 1e+"_qs),
              u"number:.5 number:1.5e-3L identifier:.foo identifier:.. number:1 identifier:e operator:+"_qs);
    EXPECT_EQ(lexed(u"0x1p-2 0xFFL 0x1.8 1Lx 2i"_qs),
              u"number:0x1p-2 number:0xFFL number:0x1.8 number:1L identifier:x number:2i"_qs);
    EXPECT_EQ(lexed(u"x %>% y"_qs), u"identifier:x operator:%>% identifier:y"_qs);
    EXPECT_EQ(lexed(u"5 % 2\n%"_qs), u"number:5 operator:% number:2 operator:%"_qs);
    EXPECT_EQ(
        lexed(u"a <<- b << c ->> d |> e ::: f := g ** h || i && j != k"_qs),
        u"identifier:a operator:<<- identifier:b operator:< operator:< identifier:c operator:->> "
        "identifier:d operator:|> identifier:e operator:::: identifier:f operator::= identifier:g "
        "operator:** identifier:h operator:|| identifier:i operator:&& identifier:j operator:!= identifier:k"_qs);
    // A backslash is R's lambda wherever its `(` stands, lines below included.
    EXPECT_EQ(lexed(u"\\(x) x; f <- \\ # c\n\n (y) y"_qs),
              u"keyword:\\ bracket:( identifier:x bracket:) identifier:x punctuation:; identifier:f "
              "operator:<- keyword:\\ comment:# c bracket:( identifier:y bracket:) identifier:y"_qs);
    EXPECT_EQ(
        lexed(u"x |> f(y = _) |> g(a_b = _)"_qs),
        u"identifier:x operator:|> functionCall:f bracket:( argumentName:y operator:= keyword:_ "
        "bracket:) operator:|> functionCall:g bracket:( argumentName:a_b operator:= keyword:_ bracket:)"_qs);
}

TEST(RTokenizer, CommentsRoxygenAndSections)
{
    EXPECT_EQ(lexed(u"y <- 1 # ---- not a section"_qs),
              u"identifier:y operator:<- number:1 comment:# ---- not a section"_qs);
    EXPECT_EQ(lexed(u"y #' not roxygen"_qs), u"identifier:y comment:#' not roxygen"_qs);
    EXPECT_EQ(lexed(u"  #' @param x the value, a@b.c\n"_qs),
              u"roxygen:#'  roxygenTag:@param roxygen: x the value, a@b.c"_qs);
    EXPECT_EQ(lexed(u"#'@export"_qs), u"roxygen:#' roxygenTag:@export"_qs);
    EXPECT_EQ(
        lexed(u"# Load data ----\n### ====\n# ---- setup\n# ---\n#---- \n"_qs),
        u"sectionMarker:# Load data ---- sectionMarker:### ==== sectionMarker:# ---- setup comment:# --- "
        "sectionMarker:#---- "_qs);
}

TEST(RTokenizer, CarriageReturnsEndLinesAsInRsFiles)
{
    const std::pair<QString, QString> cases[] = {
        {u"x # c\r\ny"_qs, u"identifier:x comment:# c identifier:y"_qs},
        {u"x # c\ry # d\r"_qs, u"identifier:x comment:# c identifier:y comment:# d"_qs},
        {u"x\r# ----- y\r\n"_qs, u"identifier:x sectionMarker:# ----- y"_qs},
        {u"x\r  #' @param a\r\n"_qs, u"identifier:x roxygen:#'  roxygenTag:@param roxygen: a"_qs},
        {u"a %in\r% b"_qs, u"identifier:a operator:% keyword:in operator:% identifier:b"_qs},
    };
    for (const auto &[text, tokens] : cases) {
        EXPECT_EQ(lexed(text), tokens) << text.toStdString();
        EXPECT_EQ(lexedByLine(text), tokens) << text.toStdString();
    }
}

TEST(RTokenizer, OpenLiteralsCarryAcrossLines)
{
    EXPECT_EQ(lexedByLine(u"x <- \"a\\\"\nb\" + `c\nd`(1)"_qs),
              u"identifier:x operator:<- string:\"a\\\"\n string:b\" operator:+ identifier:`c\n "
              "identifier:d` bracket:( number:1 bracket:)"_qs);
    // A backslash as the last unit leaves the string open.
    RTokenizer::State state;
    QList<RToken> tokens;
    const QString text = u"'abc\\"_qs;
    RTokenizer::scan(reinterpret_cast<const char16_t *>(text.utf16()), 0, text.size(), 0, state, tokens);
    EXPECT_EQ(state, RTokenizer::State::string(u'\''));
    EXPECT_TRUE(state.isInsideLiteral());
    // Locations are offset by `base`.
    state = RTokenizer::State::initial();
    tokens.clear();
    const QString line = u"ab"_qs;
    RTokenizer::scan(reinterpret_cast<const char16_t *>(line.utf16()), 0, 2, 100, state, tokens);
    ASSERT_EQ(tokens.size(), 1);
    EXPECT_EQ(tokens[0].location, 100);
}

TEST(RTokenizer, UnicodeSpacesAndNames)
{
    // R 4.2's blanks in a UTF-8 locale, and the spaces R rejects that still keep names apart here.
    const char16_t blanks[] = {u'\t',  u'\f',  0x1680, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004, 0x2005,
                               0x2006, 0x2008, 0x2009, 0x200A, 0x205F, 0x3000, 0x00A0, 0x2007, 0xFEFF};
    for (const char16_t blank : blanks) {
        const QString b(QChar{blank});
        EXPECT_EQ(lexed(b + u"a"_qs + b + u"b"_qs + b + u"+"_qs + b + u"c"_qs),
                  u"identifier:a identifier:b operator:+ identifier:c"_qs)
            << std::hex << int(blank);
    }
    // A surrogate is an ordinary non-ASCII name unit.
    EXPECT_EQ(lexed(u"😀1 x1 \u2014"_qs), u"identifier:😀1 identifier:x1 punctuation:\u2014"_qs);
    EXPECT_FALSE(RTokenizer::isSpace(u'\n'));
    EXPECT_TRUE(RTokenizer::tokenize(QString()).isEmpty());
}

TEST(RTokenizer, TokensStayInOrderOnArbitraryUnits)
{
    // Every unit ends in a token, white space or a literal; tokens ascend and never overlap.
    QString text;
    quint32 seed = 12345;
    const char16_t alphabet[] = u"ab1.eEx(){}[],;\\\"'`#%<-=>|&:*r@$~!? \n\t\r\u00a0\u2014\u00e9\xd83d";
    for (int i = 0; i < 20000; ++i) {
        seed = seed * 1103515245 + 12345;
        text += QChar(alphabet[(seed >> 16) % (sizeof(alphabet) / 2 - 1)]);
    }
    const QList<RToken> tokens = RTokenizer::tokenize(text);
    qsizetype end = 0;
    for (const RToken &t : tokens) {
        ASSERT_GE(t.location, end);
        ASSERT_GT(t.length, 0);
        end = t.end();
    }
    EXPECT_LE(end, text.size());
}

TEST(RLineLexer, LanguagesAndMarkdownLines)
{
    const QString doc =
        u"---\ntitle: x\n---\n# Head\ntext `r 1`\n```{r}\nx <- \"a\n```\ny\n```python\nz = 1\n```\n"_qs;
    EXPECT_EQ(
        lexedByLine(doc, RSourceLanguage::rMarkdown),
        u"yamlFrontMatter:--- yamlFrontMatter:title: x yamlFrontMatter:--- markdownHeading:# Head "
        "chunkHeader:```{r} identifier:x operator:<- string:\"a\n chunkHeader:``` chunkHeader:```python "
        "chunkHeader:```"_qs);
    // The closing fence drops the open string's state.
    const RLineIndex lines(doc);
    RLineState state = RLineState::initial();
    for (qsizetype l = 0; l < 7; ++l)
        state = RLineLexer::lex(l, lines, doc, RSourceLanguage::rMarkdown, state).end;
    EXPECT_TRUE(state.isInsideChunk());
    EXPECT_TRUE(state.r.isInsideLiteral());
    const RLineLexer::Line fence = RLineLexer::lex(7, lines, doc, RSourceLanguage::rMarkdown, state);
    EXPECT_FALSE(fence.isCode);
    EXPECT_EQ(fence.end.r, RTokenizer::State::initial());
    EXPECT_FALSE(fence.end.isInsideChunk());

    const RLineLexer::Line plain =
        RLineLexer::lex(0, lines, doc, RSourceLanguage::plain, RLineState::initial());
    EXPECT_TRUE(plain.tokens.isEmpty());
    EXPECT_FALSE(plain.isCode);
    EXPECT_FALSE(plain.markdownKind.has_value());
}
