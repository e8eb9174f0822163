// Text helpers shared by the bounded output types. Sizes count UTF-8 bytes.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <utility>

namespace OutputChunks {

// The number of line feed bytes.
qsizetype lineBreaks(QByteArrayView utf8);
qsizetype lineBreaks(QStringView text);
// Line breaks, plus one when the text is not empty and does not end in a line feed.
qsizetype lineCount(QStringView text);
// `index` moved forward past UTF-8 continuation bytes, not beyond the end.
qsizetype scalarBoundary(QByteArrayView utf8, qsizetype index);

// The size of `text` in UTF-8, counted without converting it. Each half of a surrogate counts 2, so
// that sizes add up over any cut; for a valid pair that is exact.
inline qsizetype byteCount(QChar c)
{
    const char16_t u = c.unicode();
    return u < 0x80 ? 1 : (u < 0x800 || QChar::isSurrogate(u)) ? 2 : 3;
}
inline qsizetype byteCount(QStringView text)
{
    qsizetype bytes = 0;
    for (QChar c : text)
        bytes += byteCount(c);
    return bytes;
}

// Cuts `text` into frozen pieces and the live rest. A piece holds at most `maxLines` line feeds and
// about `maxBytes` bytes: its cut falls behind the last line feed where there is one, else runs on to
// the end of a character, or moves back before a short escape sequence so as not to tear it. Each
// piece but the first starts by setting the style that was open at its cut.
std::pair<QStringList, QString> split(const QString &text, qsizetype maxBytes, qsizetype maxLines);

} // namespace OutputChunks
