#include "HeadTailText.h"

#include "OutputChunks.h"

#include "TextUnits.h"

using TextUnits::decodeUTF8;

HeadTailText::HeadTailText(qsizetype headLimit, qsizetype tailLimit)
    : m_headLimit(qMax<qsizetype>(0, headLimit)), m_tailLimit(qMax<qsizetype>(1, tailLimit))
{
}

void HeadTailText::append(const QString &text)
{
    if (text.isEmpty())
        return;
    QByteArray bytes = text.toUtf8();
    if (!m_headFull) {
        const qsizetype room = qMax<qsizetype>(0, m_headLimit - m_head.size());
        if (bytes.size() <= room) {
            m_head.append(bytes);
            return;
        }
        const qsizetype cut = OutputChunks::scalarBoundary(bytes, room);
        m_head.append(bytes.constData(), cut);
        m_headFull = true;
        bytes.remove(0, cut);
    }
    m_tail.append(bytes);
    // Trimming only now and then keeps appending in small pieces cheap.
    if (m_tail.size() > 2 * m_tailLimit)
        trim(m_tail, m_droppedBytes, m_droppedLines);
}

void HeadTailText::trim(QByteArray &tail, qsizetype &droppedBytes, qsizetype &droppedLines) const
{
    const qsizetype excess = tail.size() - m_tailLimit;
    if (excess < 1)
        return;
    const qsizetype cut = OutputChunks::scalarBoundary(tail, excess);
    droppedBytes += cut;
    droppedLines += OutputChunks::lineBreaks(QByteArrayView(tail.constData(), cut));
    tail.remove(0, cut);
}

QString HeadTailText::text() const
{
    QByteArray tail = m_tail;
    qsizetype droppedBytes = m_droppedBytes;
    qsizetype droppedLines = m_droppedLines;
    trim(tail, droppedBytes, droppedLines);
    if (droppedBytes == 0)
        return decodeUTF8(m_head + tail);
    QString marker = QStringLiteral("… %1 %2 of output omitted …\n")
                         .arg(droppedLines)
                         .arg(droppedLines == 1 ? QStringLiteral("line") : QStringLiteral("lines"));
    if (!m_head.endsWith('\n'))
        marker.prepend(u'\n');
    return decodeUTF8(m_head) + marker + decodeUTF8(tail);
}

bool HeadTailText::isTruncated() const
{
    return m_droppedBytes > 0 || m_tail.size() > m_tailLimit;
}
