// Keeps the console's stored form of output: plain text with SGR sequences inline, on which carriage
// returns, backspaces and line erases have taken effect as on a terminal, one line deep.
#pragma once

#include <QString>

class ConsoleText {
public:
    // Terminal state kept by the owner of a text between two writes.
    struct Cursor {
        int fromEnd = 0; // columns from the cursor to the end of the last line
        QString pending; // an incomplete escape sequence held back from the last write

        bool operator==(const Cursor &) const = default;
    };

    // An incomplete escape sequence longer than this is dropped rather than held back, so that a
    // stream which never finishes one costs neither memory nor time.
    static constexpr qsizetype maxPending = 4096;

    // `base` with `text` applied. Pass `base` as an rvalue: then only its last line is touched,
    // and a plain append only appends.
    static QString appending(const QString &text, QString base, Cursor &cursor);
    static QString appending(const QString &text, QString base);

    // Whether `appending` would simply add `text` at the end.
    static bool isPlainAppend(const QString &text, const Cursor &cursor);
};
