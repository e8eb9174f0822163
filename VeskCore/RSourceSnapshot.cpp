#include "RSourceSnapshot.h"

#include <cstring>

RSourceSnapshot::RSourceSnapshot(const QString &text, RSourceLanguage language)
    : m_text(text), m_language(language), m_lines(text)
{
    m_states.reserve(m_lines.lineCount());
    m_cache.reserve(size_t(m_lines.lineCount()));
    RLineState state = RLineState::initial();
    for (qsizetype line = 0; line < m_lines.lineCount(); ++line) {
        m_states.append(state);
        RLineLexer::Line lexed = RLineLexer::lex(line, m_lines, m_text, m_language, state);
        state = lexed.end;
        m_cache.emplace(line, std::move(lexed));
    }
}

RSourceSnapshot::RSourceSnapshot(const QString &text, RSourceLanguage language, const RLineIndex &lines,
                                 const QList<RLineState> &states)
    : m_text(text), m_language(language), m_lines(lines), m_states(states)
{
    // States that don't fit the index would make every query guess; keep them in step.
    m_states.resize(m_lines.lineCount(), RLineState::initial());
}

const RLineLexer::Line &RSourceSnapshot::lexed(qsizetype line) const
{
    line = clampLine(line);
    auto it = m_cache.find(line);
    if (it != m_cache.end())
        return it->second;
    return m_cache.emplace(line, RLineLexer::lex(line, m_lines, m_text, m_language, m_states[line]))
        .first->second;
}

RTextRange RSourceSnapshot::lineRange(qsizetype line, bool includingNewline) const
{
    return m_lines.range(line, includingNewline);
}

qsizetype RSourceSnapshot::contentEnd(qsizetype line) const
{
    line = clampLine(line);
    if (line + 1 >= lineCount())
        return length();
    const qsizetype start = lineStart(line);
    qsizetype end = qMin(m_lines.start(line + 1) - 1, length());
    if (end > start && character(end) == '\n' && character(end - 1) == '\r')
        --end;
    return qMax(end, start);
}

QString RSourceSnapshot::lineBreak(qsizetype nearLine) const
{
    const qsizetype line = qMin(nearLine, lineCount() - 2);
    if (line < 0)
        return QStringLiteral("\n");
    const qsizetype at = m_lines.start(line + 1) - 1;
    if (character(at) == '\r')
        return QStringLiteral("\r");
    if (character(at) == '\n' && at > 0 && character(at - 1) == '\r')
        return QStringLiteral("\r\n");
    return QStringLiteral("\n");
}

QString RSourceSnapshot::lineText(qsizetype line) const
{
    return string(m_lines.range(line, false));
}

QString RSourceSnapshot::string(RTextRange range) const
{
    const qsizetype from = qBound<qsizetype>(0, range.location, length());
    const qsizetype to = qBound<qsizetype>(from, range.location + qMax<qsizetype>(range.length, 0), length());
    return m_text.mid(from, to - from);
}

QStringView RSourceSnapshot::view(const RToken &token) const
{
    const qsizetype from = qBound<qsizetype>(0, token.location, length());
    const qsizetype to = qBound<qsizetype>(from, token.end(), length());
    return QStringView(m_text).mid(from, to - from);
}

char16_t RSourceSnapshot::character(qsizetype at) const
{
    if (at < 0 || at >= length())
        return 0;
    return m_text.at(at).unicode();
}

std::optional<RToken> RSourceSnapshot::token(qsizetype at) const
{
    if (at < 0 || at >= length())
        return std::nullopt;
    for (const RToken &t : lexed(line(at)).tokens) {
        if (t.location <= at && at < t.end())
            return t;
    }
    return std::nullopt;
}

QList<RToken> RSourceSnapshot::tokens(qsizetype line) const
{
    if (!validLine(line))
        return {};
    return lexed(line).tokens;
}

QList<RToken> RSourceSnapshot::significantTokens(qsizetype line) const
{
    if (!validLine(line))
        return {};
    const RLineLexer::Line &l = lexed(line);
    if (!l.isCode)
        return {};
    QList<RToken> out;
    out.reserve(l.tokens.size());
    for (const RToken &t : l.tokens) {
        switch (t.kind) {
        case RTokenKind::comment:
        case RTokenKind::roxygen:
        case RTokenKind::roxygenTag:
        case RTokenKind::sectionMarker:
            break;
        default:
            out.append(t);
        }
    }
    return out;
}

bool RSourceSnapshot::isCode(qsizetype line) const
{
    return validLine(line) && lexed(line).isCode;
}

std::optional<RMarkdownScanner::LineKind> RSourceSnapshot::markdownKind(qsizetype line) const
{
    if (!validLine(line))
        return std::nullopt;
    return lexed(line).markdownKind;
}

RLineState RSourceSnapshot::startState(qsizetype line) const
{
    return m_states.value(clampLine(line), RLineState::initial());
}

RLineState RSourceSnapshot::endState() const
{
    return lexed(lineCount() - 1).end;
}

bool RSourceSnapshot::startsInsideLiteral(qsizetype line) const
{
    return isCode(line) && m_states[line].r.isInsideLiteral();
}

QString RSourceSnapshot::leadingWhitespace(qsizetype line) const
{
    const qsizetype start = lineStart(line);
    const qsizetype end = contentEnd(line);
    qsizetype i = start;
    while (i < end && (character(i) == ' ' || character(i) == '\t'))
        ++i;
    return m_text.mid(start, i - start);
}

qsizetype RSourceSnapshot::column(qsizetype offset, int tabWidth) const
{
    const qsizetype width = qMax(tabWidth, 1);
    offset = qBound<qsizetype>(0, offset, length());
    qsizetype column = 0;
    for (qsizetype i = lineStart(line(offset)); i < offset; ++i)
        column = character(i) == '\t' ? (column / width + 1) * width : column + 1;
    return column;
}

RTextSpan RSourceSnapshot::span(qsizetype from, qsizetype to) const
{
    from = clampLine(from);
    to = qMax(from, clampLine(to));
    const qsizetype start = lineStart(from);
    const qsizetype end = to + 1 < lineCount() ? qMin(m_lines.start(to + 1) - 1, length()) : length();
    return RTextSpan{from, to, RTextRange{start, qMax<qsizetype>(end - start, 0)}};
}

bool RSourceSnapshot::isOpener(const RToken &token) const
{
    if (token.kind != RTokenKind::bracket)
        return false;
    const char16_t c = character(token.location);
    return c == '(' || c == '[' || c == '{';
}

bool RSourceSnapshot::isCloser(const RToken &token) const
{
    if (token.kind != RTokenKind::bracket)
        return false;
    const char16_t c = character(token.location);
    return c == ')' || c == ']' || c == '}';
}

bool RSourceSnapshot::isComma(const RToken &token) const
{
    return token.kind == RTokenKind::punctuation && character(token.location) == ',';
}

bool RSourceSnapshot::isLambda(const RToken &token) const
{
    return token.kind == RTokenKind::keyword && character(token.location) == '\\';
}

bool RSourceSnapshot::isKeyword(const RToken &token, std::initializer_list<const char *> words) const
{
    if (token.kind != RTokenKind::keyword)
        return false;
    const QStringView v = view(token);
    for (const char *word : words) {
        if (v == QLatin1StringView(word))
            return true;
    }
    return false;
}

std::optional<RLineToken> RSourceSnapshot::matchingOpener(qsizetype before, qsizetype line,
                                                          qsizetype lineLimit) const
{
    if (line < 0 || lineLimit < 1 || lineCount() == 0)
        return std::nullopt;
    line = clampLine(line);
    qsizetype depth = 0;
    for (qsizetype l = line; l >= 0 && line - l < lineLimit; --l) {
        if (!isCode(l))
            return std::nullopt;
        const QList<RToken> tokens = significantTokens(l);
        for (auto it = tokens.crbegin(); it != tokens.crend(); ++it) {
            if (it->kind != RTokenKind::bracket || it->location >= before)
                continue;
            if (isCloser(*it)) {
                ++depth;
            } else if (depth == 0) {
                return RLineToken{*it, l};
            } else {
                --depth;
            }
        }
    }
    return std::nullopt;
}

std::optional<RLineToken> RSourceSnapshot::matchingCloser(qsizetype after, qsizetype line,
                                                          qsizetype lineLimit) const
{
    if (line < 0 || lineLimit < 1 || line >= lineCount())
        return std::nullopt;
    qsizetype depth = 0;
    for (qsizetype l = line; l < lineCount() && l - line < lineLimit; ++l) {
        if (!isCode(l))
            return std::nullopt;
        for (const RToken &t : significantTokens(l)) {
            if (t.kind != RTokenKind::bracket || t.location < after)
                continue;
            if (isOpener(t)) {
                ++depth;
            } else if (depth == 0) {
                return RLineToken{t, l};
            } else {
                --depth;
            }
        }
    }
    return std::nullopt;
}

std::optional<RLineToken> RSourceSnapshot::significantToken(qsizetype before, qsizetype line) const
{
    if (line < 0)
        return std::nullopt;
    for (qsizetype l = clampLine(line); l >= 0; --l) {
        if (!isCode(l))
            return std::nullopt;
        const QList<RToken> tokens = significantTokens(l);
        for (auto it = tokens.crbegin(); it != tokens.crend(); ++it) {
            if (it->location < before)
                return RLineToken{*it, l};
        }
    }
    return std::nullopt;
}

std::optional<qsizetype> RSourceSnapshot::previousCodeLine(qsizetype before) const
{
    for (qsizetype l = qMin(before, lineCount()) - 1; l >= 0; --l) {
        if (!isCode(l))
            return std::nullopt;
        if (!significantTokens(l).isEmpty())
            return l;
    }
    return std::nullopt;
}

std::optional<qsizetype> RSourceSnapshot::nextCodeLine(qsizetype after) const
{
    for (qsizetype l = qMax<qsizetype>(after + 1, 0); l < lineCount(); ++l) {
        if (!isCode(l))
            return std::nullopt;
        if (!significantTokens(l).isEmpty())
            return l;
    }
    return std::nullopt;
}

qsizetype RSourceSnapshot::lastLineOfRegion(qsizetype from) const
{
    qsizetype l = clampLine(from);
    while (l + 1 < lineCount() && isCode(l + 1))
        ++l;
    return l;
}

bool RSourceSnapshot::continuesStatement(const RToken &token, qsizetype line) const
{
    if (token.kind == RTokenKind::operator_ || isComma(token) || isLambda(token))
        return true;
    if (isKeyword(token, {"if", "else", "for", "while", "repeat", "function", "in"}))
        return true;
    return isControlHeaderEnd(token, line);
}

bool RSourceSnapshot::isControlHeaderEnd(const RToken &token, qsizetype line) const
{
    if (token.kind != RTokenKind::bracket || character(token.location) != ')')
        return false;
    const std::optional<RLineToken> opener = matchingOpener(token.location, line, 500);
    if (!opener)
        return false;
    const std::optional<RLineToken> before = significantToken(opener->token.location, opener->line);
    return before &&
           (isKeyword(before->token, {"if", "for", "while", "function"}) || isLambda(before->token));
}

std::optional<RLineToken> RSourceSnapshot::enclosingOpener(qsizetype line) const
{
    if (!validLine(line))
        return std::nullopt;
    // One pass from the top serves every later question: Run Line on each line of a file costs one
    // lexing of it, not one per line.
    for (qsizetype l = qsizetype(m_openerAtStart.size()); l <= line; ++l) {
        if (!isCode(l)) {
            m_openBrackets.clear();
            m_openerAtStart.push_back(-1);
            continue;
        }
        m_openerAtStart.push_back(m_openBrackets.empty() ? -1 : m_openBrackets.back());
        for (const RToken &t : lexed(l).tokens) {
            if (isOpener(t))
                m_openBrackets.push_back(t.location);
            else if (isCloser(t) && !m_openBrackets.empty())
                m_openBrackets.pop_back();
        }
    }
    const qsizetype at = m_openerAtStart[size_t(line)];
    if (at < 0)
        return std::nullopt;
    return RLineToken{RToken{RTokenKind::bracket, at, 1}, this->line(at)};
}

std::optional<qsizetype> RSourceSnapshot::extendUp(qsizetype start, const RBracketBalance &balance) const
{
    if (!validLine(start))
        return std::nullopt;
    // A statement can't begin inside a literal.
    if (isCode(start) && m_states[start].r.isInsideLiteral() && start > 0 && isCode(start - 1))
        return start - 1;
    if (!balance.closers.isEmpty()) {
        const RLineToken &closer = balance.closers.last();
        const std::optional<RLineToken> opener =
            matchingOpener(closer.token.location, closer.line, unlimited());
        if (opener && opener->line < start)
            return opener->line;
    }
    // Inside parentheses or brackets R reads on whatever the line starts with (`,`, `%op%`, `=`);
    // only braces hold statements of their own.
    std::optional<RLineToken> opener = enclosingOpener(start);
    qsizetype outermost = -1;
    while (opener && character(opener->token.location) != '{') {
        outermost = opener->line;
        opener = enclosingOpener(opener->line);
    }
    if (outermost >= 0 && outermost < start)
        return outermost;
    const std::optional<qsizetype> prev = previousCodeLine(start);
    if (!prev)
        return std::nullopt;
    if (continuesStatement(significantTokens(*prev).last(), *prev))
        return prev;
    // The first code line from `start` on, which a blank start line takes from below.
    const std::optional<qsizetype> own = nextCodeLine(start - 1);
    if (own && isKeyword(significantTokens(*own).first(), {"else"}))
        return prev;
    return std::nullopt;
}

std::optional<qsizetype> RSourceSnapshot::extendDown(qsizetype start, qsizetype end,
                                                     const RBracketBalance &balance) const
{
    if (!validLine(end))
        return std::nullopt;
    if (!balance.openers.isEmpty()) {
        const RLineToken &opener = balance.openers.last();
        const std::optional<RLineToken> closer = matchingCloser(opener.token.end(), opener.line, unlimited());
        if (closer)
            return closer->line;
        return lastLineOfRegion(end);
    }
    // A literal left open at the end belongs to the statement, as its start does (see extendUp).
    if (isCode(end) && lexed(end).end.r.isInsideLiteral() && end + 1 < lineCount() && isCode(end + 1))
        return end + 1;
    std::optional<RLineToken> last;
    for (qsizetype l = end; l >= start && l >= 0; --l) {
        const QList<RToken> tokens = significantTokens(l);
        if (!tokens.isEmpty()) {
            last = RLineToken{tokens.last(), l};
            break;
        }
    }
    const std::optional<qsizetype> next = nextCodeLine(last ? last->line : end);
    if (last && continuesStatement(last->token, last->line))
        return next;
    if (next) {
        const QList<RToken> tokens = significantTokens(*next);
        if (!tokens.isEmpty() && isKeyword(tokens.first(), {"else"}))
            return next;
    }
    return std::nullopt;
}
