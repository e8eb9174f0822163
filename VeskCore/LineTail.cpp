#include "LineTail.h"

#include <QTextBoundaryFinder>

#include <algorithm>

namespace {

// Well above maxLineLength characters of any real text.
constexpr qsizetype maxPartial = 16 * LineTail::maxLineLength;

bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t';
}

QStringView trimmedStart(QStringView text)
{
    qsizetype i = 0;
    while (i < text.size() && isBlank(text[i]))
        ++i;
    return text.sliced(i);
}

QStringView trimmedEnd(QStringView text)
{
    qsizetype n = text.size();
    while (n > 0 && isBlank(text[n - 1]))
        --n;
    return text.first(n);
}

QString firstCharacters(QStringView text, qsizetype count)
{
    if (text.size() <= count)
        return text.toString();
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text.constData(), text.size());
    qsizetype end = 0;
    for (qsizetype i = 0; i < count; ++i) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0)
            break;
        end = next;
    }
    return text.first(end).toString();
}

} // namespace

LineTail::LineTail(qsizetype limit) : m_limit(std::max<qsizetype>(0, limit)) {}

void LineTail::append(const QString &text)
{
    QStringView rest(text);
    for (;;) {
        const qsizetype lineFeed = rest.indexOf(u'\n');
        const QStringView piece = lineFeed < 0 ? rest : rest.first(lineFeed);
        // Accumulate into the partial line, keeping at most maxPartial units of it.
        const QStringView incoming = m_partial.isEmpty() ? trimmedStart(piece) : piece;
        const qsizetype room = m_partialClipped ? 0 : maxPartial - m_partial.size();
        if (incoming.size() <= room) {
            m_partial += incoming;
        } else {
            qsizetype take = std::max<qsizetype>(0, room);
            if (take > 0 && incoming[take - 1].isHighSurrogate())
                --take;
            m_partial += incoming.first(take);
            if (!trimmedStart(incoming.sliced(take)).isEmpty())
                m_partialClipped = true;
        }
        if (lineFeed < 0)
            return;
        finishLine();
        rest = rest.sliced(lineFeed + 1);
    }
}

QString LineTail::partialLine() const
{
    // Anything but blanks beyond the clip means the kept part has no trailing blanks to trim.
    const QStringView kept = m_partialClipped ? QStringView(m_partial) : trimmedEnd(m_partial);
    return firstCharacters(kept, maxLineLength);
}

void LineTail::finishLine()
{
    const QString line = partialLine();
    m_partial.clear();
    m_partialClipped = false;
    if (line.isEmpty())
        return;
    m_lines.append(line);
    while (m_lines.size() > m_limit)
        m_lines.removeFirst();
}

QString LineTail::text() const
{
    QStringList all = m_lines;
    const QString last = partialLine();
    if (!last.isEmpty())
        all.append(last);
    return all.sliced(std::max<qsizetype>(0, all.size() - m_limit)).join(u'\n');
}

void LineTail::removeAll()
{
    m_lines.clear();
    m_partial.clear();
    m_partialClipped = false;
}
