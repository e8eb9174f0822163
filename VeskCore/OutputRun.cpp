#include "OutputRun.h"

#include "OutputChunks.h"

#include <algorithm>

OutputRun::OutputRun(qsizetype maxBytes, qsizetype maxLines, qsizetype maxChunks)
    : m_maxBytes(maxBytes), m_maxLines(maxLines), m_maxChunks(std::max<qsizetype>(2, maxChunks)),
      m_markerID(QUuid::createUuid())
{
}

void OutputRun::write(const QString &text)
{
    if (m_chunks.isEmpty()) {
        m_chunks.append({QUuid::createUuid(), QString()});
        m_liveBytes = 0;
        m_liveLineBreaks = 0;
    }

    // Appending replaces at most the live chunk's last line; recount only that and what replaces it.
    QString &liveText = m_chunks.last().text;
    const qsizetype kept =
        ConsoleText::isPlainAppend(text, m_cursor) ? liveText.size() : liveText.lastIndexOf(u'\n') + 1;
    const QStringView replaced = QStringView(liveText).sliced(kept);
    m_liveBytes -= OutputChunks::byteCount(replaced);
    m_liveLineBreaks -= OutputChunks::lineBreaks(replaced);
    QString result = ConsoleText::appending(text, std::move(liveText), m_cursor);
    const QStringView added = QStringView(result).sliced(kept);
    m_liveBytes += OutputChunks::byteCount(added);
    m_liveLineBreaks += OutputChunks::lineBreaks(added);

    if (m_liveBytes <= std::max<qsizetype>(16, m_maxBytes) &&
        m_liveLineBreaks <= std::max<qsizetype>(1, m_maxLines)) {
        m_chunks.last().text = std::move(result);
        return;
    }
    auto [frozen, live] = OutputChunks::split(result, m_maxBytes, m_maxLines);
    if (frozen.isEmpty()) {
        m_chunks.last().text = std::move(result);
        return;
    }

    m_chunks.last().text = std::move(frozen.first());
    for (qsizetype i = 1; i < frozen.size(); ++i)
        m_chunks.append({QUuid::createUuid(), std::move(frozen[i])});
    m_liveBytes = OutputChunks::byteCount(live);
    m_liveLineBreaks = OutputChunks::lineBreaks(live);
    m_chunks.append({QUuid::createUuid(), std::move(live)});

    // The first chunk always stays, as the head of the output.
    if (m_chunks.size() > m_maxChunks) {
        const qsizetype excess = m_chunks.size() - m_maxChunks;
        for (qsizetype i = 1; i <= excess; ++i)
            m_omittedLines += OutputChunks::lineBreaks(m_chunks[i].text);
        m_chunks.remove(1, excess);
        m_omittedChunks += excess;
    }
}

QString OutputRun::text() const
{
    QString out;
    for (const Chunk &chunk : m_chunks)
        out += chunk.text;
    return out;
}
