// The output of one run in the console, kept bounded as a list of chunks: the first chunk (the head
// of the output) and the latest ones stay, what lies between is dropped and counted. All chunks but
// the last are frozen, so a list view can diff by chunk id.
#pragma once

#include "ConsoleText.h"

#include <QList>
#include <QString>
#include <QUuid>

class OutputRun {
public:
    struct Chunk {
        QUuid id; // stable for the row of a list
        QString text;

        bool operator==(const Chunk &) const = default;
    };

    explicit OutputRun(qsizetype maxBytes = 6000, qsizetype maxLines = 200, qsizetype maxChunks = 20);

    // Costs in proportion to the live chunk and `text`; frozen chunks are never touched.
    void write(const QString &text);
    // All chunks joined.
    QString text() const;
    bool isEmpty() const { return m_chunks.isEmpty(); }

    const QList<Chunk> &chunks() const { return m_chunks; }
    qsizetype omittedChunks() const { return m_omittedChunks; }
    qsizetype omittedLines() const { return m_omittedLines; }
    // Identity of the "omitted" row in a view.
    QUuid markerID() const { return m_markerID; }
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
    QUuid m_markerID;
    ConsoleText::Cursor m_cursor;
    // Size and line feeds of the live chunk, kept up to date so that a small write into a large
    // live chunk need not count it again.
    qsizetype m_liveBytes = 0;
    qsizetype m_liveLineBreaks = 0;
};
