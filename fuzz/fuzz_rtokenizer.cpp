// RTokenizer::tokenize on arbitrary UTF-16 units (lone surrogates included): tokens ascend, never
// overlap and stay inside the text; lexing line by line gives the same tokens, with literals that
// run over a line end cut at each line. The other one-shot readers of R text must not crash.
#include "Outline.h"
#include "RHighlight.h"
#include "RLineLexer.h"
#include "RMarkdownScanner.h"
#include "RReference.h"
#include "RSyntax.h"
#include "RTokenizer.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QString text;
    text.resize(qsizetype(size / 2));
    for (qsizetype i = 0; i < text.size(); ++i)
        text[i] = QChar(char16_t(data[2 * i] | (data[2 * i + 1] << 8)));

    const QList<RToken> whole = RTokenizer::tokenize(text);
    qsizetype end = 0;
    for (const RToken &t : whole) {
        if (t.location < end || t.length <= 0 || t.end() > text.size())
            std::abort();
        end = t.end();
    }

    // A lone carriage return breaks lines for the index but not for the tokenizer's comments.
    bool loneCR = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i] == u'\r' && (i + 1 >= text.size() || text[i + 1] != u'\n'))
            loneCR = true;
    }
    if (!loneCR) {
        const RLineIndex lines(text);
        RLineState state = RLineState::initial();
        QList<RToken> joined;
        for (qsizetype l = 0; l < lines.lineCount(); ++l) {
            const bool continues = state.r.isInsideLiteral();
            const RLineLexer::Line line = RLineLexer::lex(l, lines, text, RSourceLanguage::r, state);
            for (qsizetype i = 0; i < line.tokens.size(); ++i) {
                const RToken &t = line.tokens[i];
                if (i == 0 && continues && !joined.isEmpty() && joined.last().end() == t.location &&
                    joined.last().kind == t.kind)
                    joined.last().length += t.length;
                else
                    joined.append(t);
            }
            state = line.end;
        }
        // A backtick name that runs over a line end is finished as an identifier line by line,
        // while the whole text still sees what follows it.
        QList<RToken> expected = whole;
        for (RToken &t : expected) {
            if ((t.kind == RTokenKind::functionCall || t.kind == RTokenKind::argumentName) &&
                QStringView(text).mid(t.location, t.length).contains(u'\n'))
                t.kind = RTokenKind::identifier;
        }
        if (joined != expected)
            std::abort();
    }

    (void)RSyntax::isLikelyComplete(text);
    (void)RReference::isPlainReference(text);
    (void)RHighlight::spans(text);
    (void)Outline::scan(text, RSourceLanguage::rMarkdown);
    const RMarkdownOutline outline = RMarkdownScanner::scan(text);
    for (const RMarkdownChunk &c : outline.chunks) {
        if (c.range.location < 0 || c.range.end() > text.size() || c.codeRange.end() > text.size())
            std::abort();
    }
    return 0;
}
