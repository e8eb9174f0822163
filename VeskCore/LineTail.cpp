#include "LineTail.h"

namespace {

constexpr qsizetype maxLineCharacters = 400;

QString trimmedLine(const QString &line)
{
    qsizetype start = 0, end = line.size();
    while (start < end && (line[start] == u' ' || line[start] == u'\t'))
        ++start;
    while (end > start && (line[end - 1] == u' ' || line[end - 1] == u'\t'))
        --end;
    return line.mid(start, qMin(end - start, maxLineCharacters));
}

} // namespace

void LineTail::append(const QString &text)
{
    QStringList pieces = (m_partial + text).split(u'\n');
    m_partial = pieces.takeLast();
    // Only the first characters of a line are ever shown: an endless line must not grow.
    if (m_partial.size() > 16 * maxLineCharacters)
        m_partial.truncate(16 * maxLineCharacters);
    for (const QString &piece : pieces) {
        QString line = trimmedLine(piece);
        if (!line.isEmpty())
            m_lines.append(std::move(line));
    }
    if (m_lines.size() > m_limit)
        m_lines.remove(0, m_lines.size() - m_limit);
}

QString LineTail::text() const
{
    QStringList lines = m_lines;
    const QString last = trimmedLine(m_partial);
    if (!last.isEmpty())
        lines.append(last);
    if (lines.size() > m_limit)
        lines = lines.mid(lines.size() - m_limit);
    return lines.join(u'\n');
}

void LineTail::removeAll()
{
    m_lines.clear();
    m_partial.clear();
}
