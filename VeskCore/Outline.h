// The jump bar's list of sections, functions, chunks and headings, read with regular expressions
// line by line. The last result is kept, because the jump bar asks on every refresh.
#pragma once

#include "OutlineItem.h"
#include "RToken.h"

#include <QList>
#include <QString>

namespace Outline {

QList<OutlineItem> items(const QString &text, RSourceLanguage language);
// Without the cache.
QList<OutlineItem> scan(const QString &text, RSourceLanguage language);
// What the jump bar lists when there are no items.
QString emptyText();

} // namespace Outline
