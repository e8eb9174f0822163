#include "OutputChunks.h"

#include "ANSIText.h"

#include <algorithm>

namespace OutputChunks {

qsizetype lineBreaks(QByteArrayView utf8)
{
    return std::count(utf8.begin(), utf8.end(), '\n');
}

qsizetype lineBreaks(const QString &text)
{
    return text.count(u'\n');
}

qsizetype lineCount(const QString &text)
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

} // namespace OutputChunks
