// Text helpers shared by the bounded output types. Sizes count UTF-8 bytes.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>

namespace OutputChunks {

// The number of line feed bytes.
qsizetype lineBreaks(QByteArrayView utf8);
qsizetype lineBreaks(const QString &text);
// Line breaks, plus one when the text is not empty and does not end in a line feed.
qsizetype lineCount(const QString &text);
// `index` moved forward past UTF-8 continuation bytes, not beyond the end.
qsizetype scalarBoundary(QByteArrayView utf8, qsizetype index);

struct Split {
    QStringList frozen;
    QString live;
};
// Cuts `text` into pieces of at most `maxBytes` bytes and `maxLines` line breaks, preferring line
// ends, never inside a character or an escape sequence. Each piece starts by setting the style
// carried over from the one before, so it displays alone with the right colours.
Split split(const QString &text, qsizetype maxBytes, qsizetype maxLines);

} // namespace OutputChunks
