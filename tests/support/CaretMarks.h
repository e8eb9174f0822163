// Editing cases written as one string: `|` marks the caret, and a second `|` makes a selection
// between the two, so that a case and its expected outcome read side by side.
#pragma once

#include "RTextSpan.h"

#include <QString>

#include <optional>

struct CaretMarked {
    QString text;
    std::optional<RTextRange> selection; // none if the text had no mark
};

// The text without its marks, and the selection they made.
inline CaretMarked withoutMarks(QString text)
{
    const qsizetype first = text.indexOf(u'|');
    if (first < 0)
        return {text, std::nullopt};
    text.remove(first, 1);
    const qsizetype second = text.indexOf(u'|');
    if (second < 0)
        return {text, RTextRange{first, 0}};
    text.remove(second, 1);
    return {text, RTextRange{first, second - first}};
}

// The text with `|` at the selection's start, and at its end too if it is not empty.
inline QString withMarks(QString text, RTextRange selection)
{
    if (selection.length > 0)
        text.insert(selection.end(), u'|');
    text.insert(selection.location, u'|');
    return text;
}
