// The result of every structural edit: a range to replace and the selection after it, applied by
// the text view as one undoable step.
#pragma once

#include <QString>

struct RTextEdit {
    qsizetype location = 0;
    qsizetype length = 0;
    QString replacement;
    qsizetype selectionLocation = 0;
    qsizetype selectionLength = 0;

    bool operator==(const RTextEdit &) const = default;
    // `text` with the edit applied (the range clipped to the text).
    QString applied(const QString &text) const;
};
