#include "RMarkdownScanner.h"

#include "RLineIndex.h"
#include "RTokenizer.h"

namespace RMarkdownScanner {

size_t qHash(const LineState &state, size_t seed)
{
    return ::qHashMulti(seed, int(state.state), state.fence, state.isR);
}

namespace {

bool isExactly(const char16_t *u, qsizetype from, qsizetype to, const char *word)
{
    qsizetype i = from;
    for (; *word; ++word, ++i) {
        if (i >= to || u[i] != char16_t(*word))
            return false;
    }
    return i == to;
}

qsizetype skipLeadingBlanks(const char16_t *u, qsizetype from, qsizetype to)
{
    qsizetype i = from;
    while (i < to && i - from < 3 && u[i] == ' ')
        ++i;
    return i;
}

} // namespace

bool engineIsR(const char16_t *u, qsizetype from, qsizetype to)
{
    qsizetype i = from;
    while (i < to && u[i] == ' ')
        ++i;
    if (i >= to || (u[i] != 'r' && u[i] != 'R'))
        return false;
    ++i;
    if (i >= to)
        return true;
    const char16_t c = u[i];
    if (c < 128)
        return !((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                 c == '_');
    return RTokenizer::isSpace(c) || RTokenizer::isNonASCIIPunctuation(c);
}

std::pair<LineKind, LineState> classify(const char16_t *u, qsizetype from, qsizetype to,
                                        const LineState &state)
{
    while (to > from && (u[to - 1] == '\t' || u[to - 1] == '\n' || u[to - 1] == '\r' || u[to - 1] == ' '))
        --to;
    switch (state.state) {
    case LineState::Case::documentStart:
        if (isExactly(u, from, to, "---"))
            return {LineKind::frontMatter(), LineState::frontMatter()};
        break;
    case LineState::Case::frontMatter:
        if (isExactly(u, from, to, "---") || isExactly(u, from, to, "..."))
            return {LineKind::frontMatter(), LineState::text()};
        return {LineKind::frontMatter(), state};
    case LineState::Case::chunk: {
        qsizetype i = skipLeadingBlanks(u, from, to);
        qsizetype ticks = 0;
        while (i < to && u[i] == '`') {
            ++i;
            ++ticks;
        }
        if (i == to && ticks >= state.fence)
            return {LineKind::chunkFence(), LineState::text()};
        return {LineKind::code(state.isR), state};
    }
    case LineState::Case::text:
        break;
    }

    qsizetype i = skipLeadingBlanks(u, from, to);
    qsizetype ticks = 0;
    while (i + ticks < to && u[i + ticks] == '`')
        ++ticks;
    if (ticks >= 3) {
        qsizetype j = i + ticks;
        while (j < to && (u[j] == ' ' || u[j] == '\t'))
            ++j;
        bool inline_ = false;
        for (qsizetype k = j; k < to; ++k) {
            if (u[k] == '`') {
                inline_ = true;
                break;
            }
        }
        if (!inline_) {
            const bool isR = j < to && u[j] == '{' && engineIsR(u, j + 1, to);
            return {LineKind::chunkHeader(isR), LineState::chunk(int(qMin<qsizetype>(ticks, 1 << 20)), isR)};
        }
    }
    if (i < to && u[i] == '#') {
        qsizetype hashes = 0;
        while (i + hashes < to && u[i + hashes] == '#')
            ++hashes;
        const qsizetype after = i + hashes;
        if (hashes <= 6 && (after == to || u[after] == ' ' || u[after] == '\t'))
            return {LineKind::heading(int(hashes)), LineState::text()};
    }
    return {LineKind::text(), LineState::text()};
}

void parseHeader(const QString &header, QString &engine, std::optional<QString> &label)
{
    engine.clear();
    label.reset();
    const qsizetype brace = header.indexOf(u'{');
    if (brace < 0)
        return;
    QString rest = header.mid(brace + 1);
    const qsizetype close = rest.lastIndexOf(u'}');
    if (close >= 0)
        rest.truncate(close);
    qsizetype b = 0, e = rest.size();
    while (b < e && rest[b] == u' ')
        ++b;
    while (e > b && rest[e - 1] == u' ')
        --e;
    rest = rest.mid(b, e - b);
    qsizetype i = 0;
    while (i < rest.size() && (rest[i].isLetterOrNumber() || rest[i] == u'_' || rest[i] == u'.'))
        ++i;
    engine = rest.left(i);
    while (i < rest.size() && (rest[i] == u' ' || rest[i] == u','))
        ++i;
    QString candidate = rest.mid(i);
    const qsizetype comma = candidate.indexOf(u',');
    if (comma >= 0)
        candidate.truncate(comma);
    candidate = candidate.trimmed();
    if (candidate.isEmpty() || candidate.contains(u'='))
        return;
    label = candidate;
}

RMarkdownOutline scan(const QString &text)
{
    RMarkdownOutline outline;
    const RLineIndex lines(text);
    const char16_t *u = reinterpret_cast<const char16_t *>(text.utf16());
    auto contentEnd = [&](qsizetype line) {
        const RTextRange r = lines.range(line, true);
        qsizetype end = r.end();
        if (line + 1 < lines.lineCount()) {
            end -= 1;
            if (end > r.location && u[end - 1] == '\r' && u[end] == '\n')
                --end;
        }
        return end;
    };
    LineState state = LineState::documentStart();
    std::optional<RMarkdownChunk> open;
    auto finish = [&](qsizetype lastLine, bool closed) {
        RMarkdownChunk c = *open;
        c.isClosed = closed;
        c.lastLine = lastLine;
        c.codeEnd = closed ? lastLine : lastLine + 1;
        const qsizetype start = lines.start(c.firstLine);
        c.range = RTextRange{start, contentEnd(lastLine) - start};
        if (c.codeEnd > c.codeStart) {
            const qsizetype codeStart = lines.start(c.codeStart);
            c.codeRange = RTextRange{codeStart, contentEnd(c.codeEnd - 1) - codeStart};
        } else {
            c.codeRange = RTextRange{c.headerRange.end(), 0};
        }
        outline.chunks.append(c);
        open.reset();
    };
    for (qsizetype line = 0; line < lines.lineCount(); ++line) {
        const qsizetype start = lines.start(line);
        const qsizetype end = contentEnd(line);
        const auto [kind, next] = classify(u, start, end, state);
        state = next;
        switch (kind.kind) {
        case LineKind::Case::chunkHeader: {
            RMarkdownChunk c;
            c.header = text.mid(start, end - start).trimmed();
            parseHeader(c.header, c.engine, c.label);
            c.isR = kind.isR;
            c.firstLine = line;
            c.codeStart = line + 1;
            c.headerRange = RTextRange{start, end - start};
            open = c;
            break;
        }
        case LineKind::Case::chunkFence:
            if (open)
                finish(line, true);
            break;
        case LineKind::Case::heading: {
            qsizetype i = start;
            while (i < end && u[i] == ' ')
                ++i;
            while (i < end && u[i] == '#')
                ++i;
            outline.headings.append(RMarkdownHeading{kind.level, text.mid(i, end - i).trimmed(), line,
                                                     RTextRange{start, end - start}});
            break;
        }
        default:
            break;
        }
    }
    if (open)
        finish(lines.lineCount() - 1, false);
    return outline;
}

} // namespace RMarkdownScanner
