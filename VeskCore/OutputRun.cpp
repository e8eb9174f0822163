#include "OutputRun.h"

#include "OutputChunks.h"

OutputRun::OutputRun(qsizetype maxBytes, qsizetype maxLines, qsizetype maxChunks)
    : m_maxBytes(maxBytes), m_maxLines(maxLines), m_maxChunks(qMax<qsizetype>(2, maxChunks))
{
}

void OutputRun::write(const QString &text)
{
    if (m_chunks.isEmpty())
        m_chunks.append({QUuid::createUuid(), QString()});
    // Only the live chunk is touched: frozen chunks never change again.
    const QString applied = ConsoleText::appending(text, m_chunks.last().text, m_cursor);
    OutputChunks::Split split = OutputChunks::split(applied, m_maxBytes, m_maxLines);
    if (split.frozen.isEmpty()) {
        m_chunks.last().text = std::move(split.live);
        return;
    }
    m_chunks.last().text = std::move(split.frozen.first());
    for (qsizetype i = 1; i < split.frozen.size(); ++i)
        m_chunks.append({QUuid::createUuid(), std::move(split.frozen[i])});
    m_chunks.append({QUuid::createUuid(), std::move(split.live)});
    while (m_chunks.size() > m_maxChunks) {
        // The first chunk always stays, as the head of the output.
        m_omittedLines += OutputChunks::lineBreaks(m_chunks.at(1).text);
        ++m_omittedChunks;
        m_chunks.removeAt(1);
    }
}

QString OutputRun::text() const
{
    QString out;
    for (const Chunk &chunk : m_chunks)
        out.append(chunk.text);
    return out;
}
