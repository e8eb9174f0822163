#include "RLineLexer.h"

namespace RLineLexer {

namespace {

// One token over the line without its trailing breaks; none for a line of nothing but breaks.
void wholeLine(const char16_t *u, qsizetype count, qsizetype base, RTokenKind kind, QList<RToken> &into)
{
    qsizetype end = count;
    while (end > 0 && (u[end - 1] == '\n' || u[end - 1] == '\r'))
        --end;
    if (end > 0)
        into.append(RToken{kind, base, end});
}

} // namespace

Line lex(const char16_t *u, qsizetype count, qsizetype base, RSourceLanguage language,
         const RLineState &state)
{
    using Kind = RMarkdownScanner::LineKind::Case;
    Line line;
    count = qMax<qsizetype>(count, 0);
    line.end.markdown = RMarkdownScanner::LineState::text();
    switch (language) {
    case RSourceLanguage::r:
        line.end.r = state.r;
        RTokenizer::scan(u, 0, count, base, line.end.r, line.tokens);
        line.isCode = true;
        return line;
    case RSourceLanguage::plain:
        return line;
    case RSourceLanguage::rMarkdown:
        break;
    }
    const auto [kind, next] = RMarkdownScanner::classify(u, 0, count, state.markdown);
    line.end.markdown = next;
    line.markdownKind = kind;
    switch (kind.kind) {
    case Kind::code:
        if (kind.isR) {
            line.end.r = state.r;
            RTokenizer::scan(u, 0, count, base, line.end.r, line.tokens);
            line.isCode = true;
        }
        break;
    case Kind::heading:
        wholeLine(u, count, base, RTokenKind::markdownHeading, line.tokens);
        break;
    case Kind::frontMatter:
        wholeLine(u, count, base, RTokenKind::yamlFrontMatter, line.tokens);
        break;
    case Kind::chunkHeader:
    case Kind::chunkFence:
        wholeLine(u, count, base, RTokenKind::chunkHeader, line.tokens);
        break;
    case Kind::text:
        break;
    }
    return line;
}

Line lex(qsizetype line, const RLineIndex &lines, const QString &text, RSourceLanguage language,
         const RLineState &state)
{
    RTextRange range = lines.range(line, true);
    // An index that doesn't fit the text reads no further than the text.
    const qsizetype from = qBound<qsizetype>(0, range.location, text.size());
    const qsizetype to = qBound<qsizetype>(from, range.end(), text.size());
    return lex(reinterpret_cast<const char16_t *>(text.utf16()) + from, to - from, from, language, state);
}

} // namespace RLineLexer
