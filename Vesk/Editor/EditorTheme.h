// The editor's colours: a style per token kind and the colours of the decorations around the text.
#pragma once

#include "RToken.h"

#include <QColor>
#include <QTextCharFormat>

#include <array>

struct EditorTheme {
    QColor text, background, currentLine, bracketMatch, gutterText, gutterBackground, breakpoint, searchMatch;
    std::array<QTextCharFormat, 17> formats;

    const QTextCharFormat &format(RTokenKind kind) const { return formats[static_cast<size_t>(kind)]; }
    bool operator==(const EditorTheme &other) const
    {
        return text == other.text && background == other.background && formats == other.formats;
    }

    static EditorTheme light();
    static EditorTheme dark();
};
