// Keeps the console's stored form of output: carriage returns, backspaces and line erases take
// effect as on a terminal, one line deep, without a screen model.
#pragma once

#include "ANSIText.h"

#include <QString>

namespace ConsoleText {

// Kept by the owner of a text between two writes.
struct Cursor {
    int fromEnd = 0; // columns from the cursor to the end of the last line
    QString pending; // an incomplete escape sequence held back from the last write
    bool operator==(const Cursor &) const = default;
};

// The stored text `base` with `text` applied.
QString appending(const QString &text, const QString &base, Cursor &cursor);
QString appending(const QString &text, const QString &base);

} // namespace ConsoleText
