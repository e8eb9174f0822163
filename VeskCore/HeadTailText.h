// The flat text of a finished execution, bounded: the beginning and the end are kept, with a
// marker for what lies between.
#pragma once

#include <QByteArray>
#include <QString>

class HeadTailText {
public:
    explicit HeadTailText(qsizetype headLimit = 20000, qsizetype tailLimit = 60000);

    void append(const QString &text);
    QString text() const;
    bool isEmpty() const { return m_head.isEmpty() && m_tail.isEmpty(); }
    bool isTruncated() const;

    qsizetype headLimit() const { return m_headLimit; }
    qsizetype tailLimit() const { return m_tailLimit; }
    qsizetype droppedLines() const { return m_droppedLines; }
    qsizetype droppedBytes() const { return m_droppedBytes; }

private:
    void trim(QByteArray &tail, qsizetype &droppedBytes, qsizetype &droppedLines) const;

    qsizetype m_headLimit;
    qsizetype m_tailLimit;
    // Kept as UTF-8: the limits count bytes.
    QByteArray m_head;
    QByteArray m_tail;
    bool m_headFull = false;
    qsizetype m_droppedLines = 0;
    qsizetype m_droppedBytes = 0;
};
