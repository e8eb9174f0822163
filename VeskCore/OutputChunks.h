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

} // namespace OutputChunks
