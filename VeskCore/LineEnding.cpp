#include "LineEnding.h"

QString LineEnding::rawValue() const
{
    switch (m_case) {
    case lf:
        return QStringLiteral("lf");
    case crlf:
        return QStringLiteral("crlf");
    case cr:
        return QStringLiteral("cr");
    }
    return {};
}

std::optional<LineEnding> LineEnding::fromRawValue(QStringView raw)
{
    for (Case value : allCases) {
        if (LineEnding(value).rawValue() == raw)
            return LineEnding(value);
    }
    return std::nullopt;
}

QString LineEnding::displayName() const
{
    switch (m_case) {
    case lf:
        return QStringLiteral("LF");
    case crlf:
        return QStringLiteral("CRLF");
    case cr:
        return QStringLiteral("CR");
    }
    return {};
}

QString LineEnding::characters() const
{
    switch (m_case) {
    case lf:
        return QStringLiteral("\n");
    case crlf:
        return QStringLiteral("\r\n");
    case cr:
        return QStringLiteral("\r");
    }
    return {};
}

LineEnding LineEnding::detect(QStringView text)
{
    qsizetype at = text.indexOf(u'\r');
    if (at < 0)
        return lf;
    qsizetype pairs = 0;
    qsizetype loneReturns = 0;
    while (at >= 0) {
        if (at + 1 < text.size() && text[at + 1] == u'\n')
            ++pairs;
        else
            ++loneReturns;
        at = text.indexOf(u'\r', at + 1);
    }
    const qsizetype loneFeeds = text.count(u'\n') - pairs;
    if (loneFeeds >= pairs && loneFeeds >= loneReturns)
        return lf;
    return loneReturns > pairs ? cr : crlf;
}

QString LineEnding::normalize(QString text)
{
    const qsizetype first = text.indexOf(u'\r');
    if (first < 0)
        return text;
    // Breaks only ever shrink, so the text is rewritten in place.
    const qsizetype n = text.size();
    char16_t *units = reinterpret_cast<char16_t *>(text.data());
    qsizetype written = first;
    for (qsizetype read = first; read < n; ++read) {
        const char16_t c = units[read];
        if (c == u'\r') {
            units[written++] = u'\n';
            if (read + 1 < n && units[read + 1] == u'\n')
                ++read;
        } else {
            units[written++] = c;
        }
    }
    text.truncate(written);
    return text;
}

QString LineEnding::apply(QString text) const
{
    text = normalize(std::move(text));
    if (m_case == lf)
        return text;
    const qsizetype breaks = text.count(u'\n');
    if (breaks == 0)
        return text;
    if (m_case == cr) {
        text.replace(u'\n', u'\r');
        return text;
    }
    QString result(text.size() + breaks, Qt::Uninitialized);
    char16_t *out = reinterpret_cast<char16_t *>(result.data());
    for (const QChar c : std::as_const(text)) {
        if (c == u'\n')
            *out++ = u'\r';
        *out++ = c.unicode();
    }
    return result;
}
