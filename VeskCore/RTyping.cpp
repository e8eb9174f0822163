#include "RTyping.h"

#include "RTokenizer.h"

#include <algorithm>

namespace RTyping {

namespace {

bool isQuote(char16_t unit)
{
    return unit == u'"' || unit == u'\'' || unit == u'`';
}

char16_t closerOf(char16_t unit)
{
    switch (unit) {
    case u'(':
        return u')';
    case u'[':
        return u']';
    case u'{':
        return u'}';
    case u'"':
    case u'\'':
    case u'`':
        return unit;
    default:
        return 0;
    }
}

} // namespace

bool isCloser(char16_t unit)
{
    return unit == u')' || unit == u']' || unit == u'}';
}

std::optional<RTextEdit> typedCharacter(char16_t c, const Surroundings &around)
{
    const QStringView text = around.text;
    const qsizetype loc = around.selection.location;
    const qsizetype len = around.selection.length;
    const char16_t next = loc + len < text.size() ? text.at(loc + len).unicode() : 0;
    const char16_t prev = loc > 0 ? text.at(loc - 1).unicode() : 0;
    const RTextEdit moveOver{loc + 1, 0, QString(), loc + 1, 0};

    if (len == 0 && (isQuote(c) || isCloser(c)) && next == c) {
        const auto here = around.tokenAt(loc);
        // A quote steps over the end of the string (or backquoted name) it closes.
        if (isQuote(c) && here &&
            (here->kind == RTokenKind::identifier || here->kind == RTokenKind::string) && here->length > 1 &&
            here->end() == loc + 1)
            return moveOver;
        if (isCloser(c) && here && here->kind == RTokenKind::bracket) {
            if (around.context != TextContext::code)
                return std::nullopt;
            return moveOver;
        }
    }
    if (around.context != TextContext::code)
        return std::nullopt;
    const char16_t closer = closerOf(c);
    if (!closer)
        return std::nullopt;
    if (len > 0)
        return RTextEdit{loc, len, QChar(c) + text.mid(loc, len).toString() + QChar(closer), loc + 1, len};
    bool free = next == 0 || next == u'\n' || RTokenizer::isSpace(next) || next == u')' || next == u',' ||
                next == u']' || next == u'}' || (isQuote(c) && next == u';');
    if (free && isQuote(c)) {
        const bool prevIsPart = prev != 0 && RTokenizer::isIdentifierPart(prev);
        if (prev == c) {
            free = false;
        } else if (prevIsPart) {
            // A lone r or R before a quote opens a raw string.
            const bool loneR = (prev == u'r' || prev == u'R') &&
                               (loc < 2 || !RTokenizer::isIdentifierPart(text.at(loc - 2).unicode()));
            free = loneR && next != u';';
        }
    }
    if (!free)
        return std::nullopt;
    return RTextEdit{loc, 0, QString(QChar(c)) + QChar(closer), loc + 1, 0};
}

std::optional<RTextRange> backwardDeletion(const Surroundings &around, bool pairs, int tabWidth)
{
    const QStringView text = around.text;
    const qsizetype loc = around.selection.location;
    if (around.selection.length > 0 || loc == 0)
        return std::nullopt;
    const char16_t prev = text.at(loc - 1).unicode();
    const char16_t next = loc < text.size() ? text.at(loc).unicode() : 0;
    if (pairs && next != 0 && closerOf(prev) == next) {
        const auto before = around.tokenAt(loc - 1);
        // Only a pair that is still empty: two quotes alone make one string token.
        if (isQuote(prev) ? (before && before->location == loc - 1 && before->length == 2)
                          : (before && before->kind == RTokenKind::bracket))
            return RTextRange{loc - 1, 2};
    }
    const qsizetype lineStart = text.lastIndexOf(u'\n', loc - 1) + 1;
    const qsizetype column = loc - lineStart;
    if (column >= 2) {
        const QStringView lead = text.mid(lineStart, column);
        if (std::all_of(lead.begin(), lead.end(), [](QChar unit) { return unit == u' '; })) {
            const int width = std::max(1, tabWidth);
            qsizetype back = column % width;
            if (back == 0)
                back = width;
            back = std::min(back, column);
            if (back >= 2)
                return RTextRange{loc - back, back};
        }
    }
    return std::nullopt;
}

} // namespace RTyping
