#include "RTextEdit.h"

QString RTextEdit::applied(const QString &text) const
{
    const qsizetype from = qBound<qsizetype>(0, location, text.size());
    const qsizetype to = qBound<qsizetype>(from, location + qMax<qsizetype>(length, 0), text.size());
    QString out = text;
    out.replace(from, to - from, replacement);
    return out;
}
