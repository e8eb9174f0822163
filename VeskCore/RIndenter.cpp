#include "RIndenter.h"

#include "RSourceModel.h"

namespace RIndenter {

namespace {

constexpr qsizetype bracketLimit = 5000;

bool isBlankOrTab(QChar c)
{
    return c == u' ' || c == u'\t';
}

bool isCommentKind(RTokenKind kind)
{
    return kind == RTokenKind::comment || kind == RTokenKind::roxygen || kind == RTokenKind::roxygenTag ||
           kind == RTokenKind::sectionMarker;
}

QString blanks(qsizetype count)
{
    return QString(qMax<qsizetype>(count, 0), u' ');
}

// Whether a line's last significant token leaves the statement open, a comma aside.
bool lineContinues(const RSourceSnapshot &s, qsizetype line)
{
    const QList<RToken> tokens = s.significantTokens(line);
    if (tokens.isEmpty())
        return false;
    const RToken &last = tokens.last();
    return !s.isComma(last) && s.continuesStatement(last, line);
}

RTextEdit insertAt(RTextRange selection, const QString &replacement)
{
    return RTextEdit{selection.location, selection.length, replacement,
                     selection.location + replacement.size(), 0};
}

} // namespace

std::pair<qsizetype, qsizetype> selectedLines(RTextRange range, const RSourceSnapshot &s)
{
    const qsizetype first = s.line(range.location);
    qsizetype last = s.line(range.end());
    if (range.length > 0 && last > first && s.lineStart(last) == range.end())
        --last;
    return {first, qMax(first, last)};
}

qsizetype statementStart(qsizetype line, const RSourceSnapshot &s)
{
    qsizetype current = qBound<qsizetype>(0, line, s.lineCount() - 1);
    for (int step = 0; step < 10000; ++step) {
        RBracketBalance balance;
        balance.append(s, current);
        if (!balance.closers.isEmpty()) {
            const RLineToken &closer = balance.closers.last();
            const std::optional<RLineToken> opener =
                s.matchingOpener(closer.token.location, closer.line, bracketLimit);
            if (opener && opener->line < current) {
                current = opener->line;
                continue;
            }
        }
        const std::optional<qsizetype> prev = s.previousCodeLine(current);
        if (!prev)
            return current;
        const RToken last = s.significantTokens(*prev).last();
        // A comma continues a list, not a statement.
        if (s.isComma(last) || !s.continuesStatement(last, *prev))
            return current;
        current = *prev;
    }
    return current;
}

QString indentation(qsizetype line, qsizetype caret, const RSourceSnapshot &s, int tabWidth)
{
    line = qBound<qsizetype>(0, line, s.lineCount() - 1);
    const QString unit = blanks(qMax(tabWidth, 1));
    const QString base = s.leadingWhitespace(line);
    QList<RToken> tokens;
    for (const RToken &t : s.significantTokens(line)) {
        if (t.location < caret)
            tokens.append(t);
    }
    QList<qsizetype> open; // indices into tokens
    QList<RToken> unmatched;
    for (qsizetype i = 0; i < tokens.size(); ++i) {
        if (s.isOpener(tokens[i]))
            open.append(i);
        else if (s.isCloser(tokens[i])) {
            if (!open.isEmpty())
                open.removeLast();
            else
                unmatched.append(tokens[i]);
        }
    }
    if (!open.isEmpty()) {
        const qsizetype i = open.last();
        if (s.character(tokens[i].location) == '{' || i + 1 == tokens.size())
            return base + unit;
        // Line continuation up under the first argument.
        return blanks(s.column(tokens[i + 1].location, tabWidth));
    }
    const std::optional<RToken> last = tokens.isEmpty() ? std::nullopt : std::optional<RToken>(tokens.last());
    const bool continues = last && !s.isComma(*last) && s.continuesStatement(*last, line);
    if (!unmatched.isEmpty()) {
        const std::optional<RLineToken> opener =
            s.matchingOpener(unmatched.last().location, line, bracketLimit);
        if (opener)
            return s.leadingWhitespace(statementStart(opener->line, s)) + (continues ? unit : QString());
    }
    if (!continues) {
        const std::optional<qsizetype> prev = s.previousCodeLine(line);
        // A finished continuation dedents to where its statement began.
        if ((!last || !s.isComma(*last)) && prev && lineContinues(s, *prev))
            return s.leadingWhitespace(statementStart(line, s));
        return base;
    }
    const std::optional<qsizetype> prev = s.previousCodeLine(line);
    if (prev && lineContinues(s, *prev))
        return base;
    return base + unit;
}

RTextEdit newline(const RSourceSnapshot &s, RTextRange selection, int tabWidth)
{
    const qsizetype loc = qBound<qsizetype>(0, selection.location, s.length());
    const qsizetype selEnd = qBound<qsizetype>(loc, selection.end(), s.length());
    selection = RTextRange{loc, selEnd - loc};
    const qsizetype line = s.line(loc);
    const qsizetype lineStart = s.lineStart(line);
    const qsizetype contentEnd = s.contentEnd(line);
    const QString brk = s.lineBreak(line);
    const QString lead = s.text().mid(lineStart, loc - lineStart);
    qsizetype keptLength = 0;
    while (keptLength < lead.size() && isBlankOrTab(lead[keptLength]))
        ++keptLength;
    const QString kept = lead.left(keptLength);

    if (!s.isCode(line))
        return insertAt(selection, brk + kept);

    const QList<RToken> tokens = s.tokens(line);
    if (loc == lineStart && s.startsInsideLiteral(line))
        return insertAt(selection, brk);
    for (qsizetype i = 0; i < tokens.size(); ++i) {
        const RToken &t = tokens[i];
        if (t.kind != RTokenKind::string || !(t.location < loc && loc < t.end()))
            continue;
        const bool fromAbove = i == 0 && s.startsInsideLiteral(line);
        const bool goesOn =
            i + 1 == tokens.size() && s.startState(line + 1).r.isInsideLiteral() && line + 1 < s.lineCount();
        if (fromAbove || goesOn)
            return insertAt(selection, brk);
    }
    for (const RToken &t : tokens) {
        if (!isCommentKind(t.kind) || loc < t.location || loc > t.end())
            continue;
        const QString ws = s.leadingWhitespace(line);
        const bool roxygen = t.kind == RTokenKind::roxygen || t.kind == RTokenKind::roxygenTag;
        if (roxygen && loc - (lineStart + ws.size()) >= 2)
            return insertAt(selection, brk + ws + QStringLiteral("#' "));
        return insertAt(selection, brk + ws);
    }

    bool restBlank = true;
    for (qsizetype i = selEnd; i < contentEnd; ++i) {
        if (!isBlankOrTab(s.text()[i])) {
            restBlank = false;
            break;
        }
    }
    if (restBlank && keptLength == lead.size()) {
        const QString replacement = kept + brk + kept;
        const qsizetype end = qMax(contentEnd, selEnd);
        return RTextEdit{lineStart, end - lineStart, replacement, lineStart + replacement.size(), 0};
    }

    if (selection.length == 0) {
        const std::optional<RLineToken> before = s.significantToken(loc, line);
        const std::optional<RToken> after = s.token(loc);
        const bool openerBefore =
            before && before->line == line && before->token.end() == loc && s.isOpener(before->token);
        if (openerBefore && after && after->location == loc && after->kind == RTokenKind::bracket) {
            const QString inner = indentation(line, loc, s, tabWidth);
            const QString middle = brk + inner;
            return RTextEdit{loc, 0, middle + brk + s.leadingWhitespace(line), loc + middle.size(), 0};
        }
    }

    qsizetype from = loc;
    while (from > lineStart && isBlankOrTab(s.text()[from - 1]))
        --from;
    qsizetype to = selEnd;
    while (to < contentEnd && isBlankOrTab(s.text()[to]))
        ++to;
    const QString replacement = brk + indentation(line, loc, s, tabWidth);
    return RTextEdit{from, to - from, replacement, from + replacement.size(), 0};
}

std::optional<RTextEdit> closingBracket(QChar character, const RSourceSnapshot &s, qsizetype caret)
{
    caret = qBound<qsizetype>(0, caret, s.length());
    const qsizetype line = s.line(caret);
    if (!s.isCode(line) || s.startsInsideLiteral(line))
        return std::nullopt;
    const qsizetype lineStart = s.lineStart(line);
    const QString before = s.text().mid(lineStart, caret - lineStart);
    for (QChar c : before) {
        if (!isBlankOrTab(c))
            return std::nullopt;
    }
    const std::optional<RLineToken> opener = s.matchingOpener(caret, line, bracketLimit);
    if (!opener)
        return std::nullopt;
    const QString wanted = s.leadingWhitespace(opener->line);
    if (wanted == before)
        return std::nullopt;
    const QString replacement = wanted + character;
    return RTextEdit{lineStart, caret - lineStart, replacement, lineStart + replacement.size(), 0};
}

namespace {

// Rewrites each selected line's content with `change` (which returns the new content and the offset
// in the line up to which the caret keeps its place) and keeps the breaks between them.
template <typename Change>
RTextEdit rewriteLines(const RSourceSnapshot &s, RTextRange selection, Change change)
{
    const auto [first, last] = selectedLines(selection, s);
    const qsizetype from = s.lineStart(first);
    const qsizetype to = s.contentEnd(last);
    QString replacement;
    qsizetype firstDelta = 0, totalDelta = 0;
    for (qsizetype line = first; line <= last; ++line) {
        const QString content = s.text().mid(s.lineStart(line), s.contentEnd(line) - s.lineStart(line));
        const QString changed = change(content);
        replacement += changed;
        if (line == first)
            firstDelta = changed.size() - content.size();
        totalDelta += changed.size() - content.size();
        if (line < last)
            replacement += s.text().mid(s.contentEnd(line), s.lineStart(line + 1) - s.contentEnd(line));
    }
    const qsizetype location = qMax(from, selection.location + firstDelta);
    const qsizetype length = qMax<qsizetype>(
        0, selection.length + (totalDelta - firstDelta) +
               (selection.location + firstDelta < from ? selection.location + firstDelta - from : 0));
    return RTextEdit{from, to - from, replacement, location, length};
}

bool isBlankLine(const QString &content)
{
    for (QChar c : content) {
        if (!isBlankOrTab(c) && c != u'\r')
            return false;
    }
    return true;
}

qsizetype indentOf(const QString &content)
{
    qsizetype i = 0;
    while (i < content.size() && isBlankOrTab(content[i]))
        ++i;
    return i;
}

} // namespace

RTextEdit toggleComment(const RSourceSnapshot &s, RTextRange selection)
{
    const auto [first, last] = selectedLines(selection, s);
    bool allCode = true;
    bool allCommented = true;
    qsizetype minIndent = -1;
    for (qsizetype line = first; line <= last; ++line) {
        if (!s.isCode(line))
            allCode = false;
        const QString content = s.text().mid(s.lineStart(line), s.contentEnd(line) - s.lineStart(line));
        if (isBlankLine(content))
            continue;
        const qsizetype indent = indentOf(content);
        if (content[indent] != u'#')
            allCommented = false;
        minIndent = minIndent < 0 ? indent : qMin(minIndent, indent);
    }
    if (!allCode || minIndent < 0)
        return RTextEdit{selection.location, 0, QString(), selection.location, selection.length};
    return rewriteLines(s, selection, [&](const QString &content) {
        if (isBlankLine(content))
            return content;
        QString out = content;
        if (allCommented) {
            const qsizetype hash = indentOf(out);
            out.remove(hash, hash + 1 < out.size() && out[hash + 1] == u' ' ? 2 : 1);
        } else {
            out.insert(minIndent, QStringLiteral("# "));
        }
        return out;
    });
}

RTextEdit shiftLines(const RSourceSnapshot &s, RTextRange selection, bool inward, int tabWidth)
{
    const qsizetype width = qMax(tabWidth, 1);
    return rewriteLines(s, selection, [&](const QString &content) {
        if (inward)
            return content.isEmpty() ? content : blanks(width) + content;
        if (content.startsWith(u'\t'))
            return content.mid(1);
        qsizetype n = 0;
        while (n < width && n < content.size() && content[n] == u' ')
            ++n;
        return content.mid(n);
    });
}

RTextEdit insertOperator(const QString &op, const RSourceSnapshot &s, RTextRange selection)
{
    const qsizetype loc = qBound<qsizetype>(0, selection.location, s.length());
    selection = RTextRange{loc, qBound<qsizetype>(0, selection.length, s.length() - loc)};
    const qsizetype line = s.line(loc);
    bool plain = !s.isCode(line);
    for (const RToken &t : s.tokens(line)) {
        if ((isCommentKind(t.kind) && t.location < loc && loc <= t.end()) ||
            (t.kind == RTokenKind::string && t.location < loc && loc < t.end()))
            plain = true;
    }
    if (plain)
        return insertAt(selection, op);
    const char16_t before = s.character(loc - 1);
    const bool spaceBefore = !(loc == 0 || RTokenizer::isSpace(before) || before == '\n');
    const bool spaceAfter = !RTokenizer::isSpace(s.character(selection.end()));
    return insertAt(selection, (spaceBefore ? QStringLiteral(" ") : QString()) + op +
                                   (spaceAfter ? QStringLiteral(" ") : QString()));
}

std::optional<QString> targetIndentation(qsizetype line, const RSourceSnapshot &s, int tabWidth)
{
    if (!s.isCode(line) || s.startsInsideLiteral(line))
        return std::nullopt;
    const QList<RToken> tokens = s.significantTokens(line);
    if (!tokens.isEmpty() && s.isCloser(tokens.first())) {
        if (const std::optional<RLineToken> opener =
                s.matchingOpener(tokens.first().location, line, bracketLimit))
            return s.leadingWhitespace(opener->line);
    }
    const std::optional<qsizetype> prev = s.previousCodeLine(line);
    if (!prev)
        return std::nullopt;
    return indentation(*prev, s.contentEnd(*prev), s, tabWidth);
}

std::optional<RTextEdit> reindentLines(const QString &text, RSourceLanguage language, RTextRange selection,
                                       int tabWidth)
{
    RSourceModel model(language);
    model.reset(text);
    QString work = text;
    std::pair<qsizetype, qsizetype> range;
    {
        const RSourceSnapshot initial(text, language, model.lines(), model.states());
        range = selectedLines(selection, initial);
    }
    for (qsizetype line = range.first; line <= range.second && line < model.lineCount(); ++line) {
        model.relex(work);
        const std::unique_ptr<RSourceSnapshot> s = model.snapshot(work);
        const QString content = work.mid(s->lineStart(line), s->contentEnd(line) - s->lineStart(line));
        if (isBlankLine(content))
            continue;
        const std::optional<QString> target = targetIndentation(line, *s, tabWidth);
        const QString current = s->leadingWhitespace(line);
        if (!target || *target == current)
            continue;
        const qsizetype at = s->lineStart(line);
        work.replace(at, current.size(), *target);
        model.replaceCharacters(RTextRange{at, current.size()}, target->size(), work);
    }
    if (work == text)
        return std::nullopt;
    qsizetype prefix = 0;
    while (prefix < text.size() && prefix < work.size() && text[prefix] == work[prefix])
        ++prefix;
    qsizetype suffix = 0;
    while (suffix < text.size() - prefix && suffix < work.size() - prefix &&
           text[text.size() - 1 - suffix] == work[work.size() - 1 - suffix])
        ++suffix;
    const RLineIndex lines(work);
    const qsizetype selStart = lines.start(range.first);
    const RTextRange lastLine = lines.range(range.second, false);
    return RTextEdit{prefix, text.size() - suffix - prefix, work.mid(prefix, work.size() - suffix - prefix),
                     selStart, lastLine.end() - selStart};
}

} // namespace RIndenter
