// Lets GoogleTest show QString values in failure messages, with control characters escaped so that
// terminal sequences stay readable.
#pragma once

#include <QString>

#include <ostream>

inline void PrintTo(const QString &text, std::ostream *os)
{
    QString shown;
    for (QChar c : text) {
        if (c.unicode() < 0x20 || c.unicode() == 0x7F)
            shown += u"\\x%1"_qs.arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            shown += c;
    }
    *os << '"' << shown.toStdString() << '"';
}
