// The output of one live run in the console, bounded: a list of chunks of which the first (the
// head of the output) and the last ones are kept, with a count of what was dropped between.
#pragma once

#include "ConsoleText.h"

#include <QList>
#include <QString>
#include <QUuid>

class OutputRun {
public:
    struct Chunk {
        QUuid id; // stable identity of a row in a list view
        QString text;
        bool operator==(const Chunk &) const = default;
    };

    OutputRun(qsizetype maxBytes = 6000, qsizetype maxLines = 200, qsizetype maxChunks = 20);

    void write(const QString &text);
    QString text() const;
    bool isEmpty() const { return m_chunks.isEmpty(); }

    const QList<Chunk> &chunks() const { return m_chunks; }
    qsizetype omittedChunks() const { return m_omittedChunks; }
    qsizetype omittedLines() const { return m_omittedLines; }
    const QUuid &markerID() const { return m_markerID; }
    const ConsoleText::Cursor &cursor() const { return m_cursor; }
    qsizetype maxBytes() const { return m_maxBytes; }
    qsizetype maxLines() const { return m_maxLines; }
    qsizetype maxChunks() const { return m_maxChunks; }

private:
    qsizetype m_maxBytes;
    qsizetype m_maxLines;
    qsizetype m_maxChunks;
    QList<Chunk> m_chunks;
    qsizetype m_omittedChunks = 0;
    qsizetype m_omittedLines = 0;
    QUuid m_markerID = QUuid::createUuid();
    ConsoleText::Cursor m_cursor;
};
