#include "RSyntax.h"

#include "RMarkdownScanner.h"

namespace RSyntax {

RTextSpan statementRange(const RSourceSnapshot &s, qsizetype cursorLine)
{
    const qsizetype line = qBound<qsizetype>(0, cursorLine, s.lineCount() - 1);
    if (!s.isCode(line))
        return s.span(line, line);
    qsizetype start = line, end = line;
    RBracketBalance balance;
    balance.append(s, line);
    // Each round can only widen the span; the bound guards against oscillation.
    const qsizetype rounds = 2 * s.lineCount() + 3;
    for (qsizetype round = 0; round < rounds; ++round) {
        bool moved = false;
        if (const std::optional<qsizetype> up = s.extendUp(start, balance); up && *up < start) {
            for (qsizetype l = start - 1; l >= *up; --l)
                balance.prepend(s, l);
            start = *up;
            moved = true;
        }
        if (const std::optional<qsizetype> down = s.extendDown(start, end, balance); down && *down > end) {
            for (qsizetype l = end + 1; l <= *down; ++l)
                balance.append(s, l);
            end = *down;
            moved = true;
        }
        if (!moved)
            break;
    }
    return s.span(start, end);
}

RTextSpan statementRange(const QString &code, qsizetype cursorLine)
{
    const RSourceSnapshot snapshot(code, RSourceLanguage::r);
    return statementRange(snapshot, cursorLine);
}

std::optional<qsizetype> matchingBracket(qsizetype at, const RSourceSnapshot &s, qsizetype lineLimit)
{
    const std::optional<RToken> token = s.token(at);
    if (!token || token->kind != RTokenKind::bracket)
        return std::nullopt;
    const qsizetype line = s.line(token->location);
    std::optional<RLineToken> match;
    if (s.isOpener(*token))
        match = s.matchingCloser(token->end(), line, lineLimit);
    else
        match = s.matchingOpener(token->location, line, lineLimit);
    if (!match)
        return std::nullopt;
    return match->token.location;
}

bool isLikelyComplete(const QString &code)
{
    const RSourceSnapshot s(code, RSourceLanguage::r);
    if (s.endState().r.isInsideLiteral())
        return false;
    qsizetype depth = 0;
    std::optional<RLineToken> last;
    for (qsizetype line = 0; line < s.lineCount(); ++line) {
        for (const RToken &t : s.significantTokens(line)) {
            if (s.isOpener(t)) {
                ++depth;
            } else if (s.isCloser(t)) {
                // Nothing to close: let R report the error.
                if (depth == 0)
                    return true;
                --depth;
            }
            last = RLineToken{t, line};
        }
    }
    if (depth > 0)
        return false;
    if (!last)
        return true;
    return !s.continuesStatement(last->token, last->line);
}

std::optional<RMarkdownChunk> chunk(qsizetype at, const QString &text)
{
    const RMarkdownOutline outline = RMarkdownScanner::scan(text);
    const RLineIndex lines(text);
    const RMarkdownChunk *c = outline.chunk(lines.line(at));
    if (!c)
        return std::nullopt;
    return *c;
}

std::optional<QString> sectionTitle(QStringView marker)
{
    qsizetype b = 0, e = marker.size();
    while (b < e && (marker[b] == u'#' || marker[b] == u' ' || marker[b] == u'\t'))
        ++b;
    while (e > b) {
        const QChar c = marker[e - 1];
        if (c == u'-' || c == u'=' || c == u'#' || c == u' ' || c == u'\t' || c == u'\r')
            --e;
        else
            break;
    }
    if (e <= b)
        return std::nullopt;
    while (b < e && (marker[b] == u'-' || marker[b] == u' '))
        ++b;
    const QString title = marker.mid(b, e - b).trimmed().toString();
    if (title.isEmpty())
        return std::nullopt;
    return title;
}

namespace {

std::optional<RToken> marker(const RSourceSnapshot &s, qsizetype line)
{
    if (!s.isCode(line))
        return std::nullopt;
    for (const RToken &t : s.tokens(line)) {
        if (t.kind == RTokenKind::sectionMarker)
            return t;
    }
    return std::nullopt;
}

} // namespace

QList<std::pair<qsizetype, std::optional<QString>>> sections(const RSourceSnapshot &s)
{
    QList<std::pair<qsizetype, std::optional<QString>>> out;
    for (qsizetype line = 0; line < s.lineCount(); ++line) {
        if (const std::optional<RToken> t = marker(s, line))
            out.append({line, sectionTitle(s.view(*t))});
    }
    return out;
}

RSection currentSection(const RSourceSnapshot &s, qsizetype lineIndex)
{
    const qsizetype line = qBound<qsizetype>(0, lineIndex, s.lineCount() - 1);
    qsizetype start = 0;
    std::optional<QString> title;
    for (qsizetype l = line; l >= 0; --l) {
        if (const std::optional<RToken> t = marker(s, l)) {
            start = l;
            title = sectionTitle(s.view(*t));
            break;
        }
    }
    qsizetype end = s.lineCount();
    for (qsizetype l = line + 1; l < s.lineCount(); ++l) {
        if (marker(s, l)) {
            end = l;
            break;
        }
    }
    const RTextSpan span = s.span(start, qMax(end - 1, start));
    return RSection{title, span.firstLine, span.lastLine, span.range};
}

RSection currentSection(const QString &text, qsizetype lineIndex)
{
    const RSourceSnapshot snapshot(text, RSourceLanguage::r);
    return currentSection(snapshot, lineIndex);
}

} // namespace RSyntax
