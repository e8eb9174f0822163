#include "LineTarget.h"

#include <QString>

#include <limits>

namespace {

bool isLineBreak(QChar c)
{
    const char16_t u = c.unicode();
    return u == u'\n' || u == u'\r' || u == 0x0B || u == 0x0C || u == 0x85 || u == 0x2028 || u == 0x2029;
}

// Trims blanks, not line breaks: a break inside the entry spoils it.
QStringView trimmedBlanks(QStringView text)
{
    qsizetype start = 0, end = text.size();
    while (start < end && text[start].isSpace() && !isLineBreak(text[start]))
        ++start;
    while (end > start && text[end - 1].isSpace() && !isLineBreak(text[end - 1]))
        --end;
    return text.sliced(start, end - start);
}

// A decimal integer of ASCII digits with an optional sign; overflow fails.
std::optional<qint64> integer(QStringView text)
{
    qsizetype at = 0;
    bool negative = false;
    if (!text.isEmpty() && (text[0] == u'+' || text[0] == u'-')) {
        negative = text[0] == u'-';
        ++at;
    }
    if (at == text.size())
        return std::nullopt;
    qint64 value = 0;
    for (; at < text.size(); ++at) {
        const char16_t c = text[at].unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        if (value > (std::numeric_limits<qint64>::max() - (c - u'0')) / 10)
            return std::nullopt;
        value = value * 10 + (c - u'0');
    }
    return negative ? -value : value;
}

std::optional<qint64> positive(QStringView part)
{
    const std::optional<qint64> value = integer(trimmedBlanks(part));
    if (!value || *value <= 0)
        return std::nullopt;
    return value;
}

} // namespace

std::optional<LineTarget> LineTarget::parse(QStringView text)
{
    const QStringView trimmed = text.trimmed();
    const qsizetype colon = trimmed.indexOf(u':');
    if (colon < 0) {
        if (const std::optional<qint64> line = positive(trimmed))
            return LineTarget{*line, std::nullopt};
        return std::nullopt;
    }
    const QStringView columnPart = trimmed.sliced(colon + 1);
    if (columnPart.contains(u':'))
        return std::nullopt;
    const std::optional<qint64> line = positive(trimmed.first(colon));
    const std::optional<qint64> column = positive(columnPart);
    if (!line || !column)
        return std::nullopt;
    return LineTarget{*line, *column};
}
