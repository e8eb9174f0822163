#include "OutputChunks.h"

#include "ANSIText.h"

#include <algorithm>

namespace OutputChunks {

qsizetype lineBreaks(QByteArrayView utf8)
{
    return std::count(utf8.begin(), utf8.end(), '\n');
}

qsizetype lineBreaks(QStringView text)
{
    return text.count(u'\n');
}

qsizetype lineCount(QStringView text)
{
    const qsizetype breaks = lineBreaks(text);
    return breaks + ((!text.isEmpty() && !text.endsWith(u'\n')) ? 1 : 0);
}

qsizetype scalarBoundary(QByteArrayView utf8, qsizetype index)
{
    index = std::clamp<qsizetype>(index, 0, utf8.size());
    while (index < utf8.size() && (static_cast<unsigned char>(utf8[index]) & 0xC0) == 0x80)
        ++index;
    return index;
}

std::pair<QStringList, QString> split(const QString &text, qsizetype maxBytes, qsizetype maxLines)
{
    maxBytes = std::max<qsizetype>(16, maxBytes);
    maxLines = std::max<qsizetype>(1, maxLines);
    if (byteCount(text) <= maxBytes && lineBreaks(text) <= maxLines)
        return {{}, text};

    // An escape sequence this close before a cut is carried whole into the next piece.
    constexpr qsizetype escapeLookBack = 32;
    const qsizetype n = text.size();
    QStringList frozen;
    ANSIStyle carried;
    qsizetype start = 0;
    for (;;) {
        qsizetype at = start;
        qsizetype bytes = 0;
        qsizetype breaks = 0;
        qsizetype behindLastBreak = -1;
        while (at < n && bytes < maxBytes && breaks < maxLines) {
            const QChar c = text[at++];
            bytes += byteCount(c);
            if (c == u'\n') {
                ++breaks;
                behindLastBreak = at;
            }
        }
        if (at >= n)
            break;

        qsizetype cut = behindLastBreak;
        if (cut < 0) {
            cut = at;
            if (text[cut].isLowSurrogate() && text[cut - 1].isHighSurrogate())
                ++cut;
            qsizetype back = 0;
            for (qsizetype q = cut - 1; q > start; --q) {
                back += byteCount(text[q]);
                if (back > escapeLookBack)
                    break;
                if (text[q] == u'\x1b') {
                    cut = q;
                    break;
                }
            }
        }
        if (cut <= start || cut >= n)
            break;

        QString piece = carried.isDefault() ? QString() : ANSIText::sequence(carried);
        piece += QStringView(text).sliced(start, cut - start);
        carried = ANSIText::endStyle(piece);
        frozen.append(std::move(piece));
        start = cut;
    }
    if (frozen.isEmpty())
        return {{}, text};
    QString live = carried.isDefault() ? QString() : ANSIText::sequence(carried);
    live += QStringView(text).sliced(start);
    return {frozen, live};
}

} // namespace OutputChunks
