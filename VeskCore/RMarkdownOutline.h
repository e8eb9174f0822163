// The chunks and headings of an R Markdown document, as RMarkdownScanner::scan finds them.
#pragma once

#include "RTextSpan.h"

#include <QList>
#include <QString>

#include <optional>

struct RMarkdownChunk {
    QString engine;
    std::optional<QString> label;
    QString header;
    bool isR = false;
    bool isClosed = false;
    // Closed range: the header line to the closing fence or the last line.
    qsizetype firstLine = 0;
    qsizetype lastLine = 0;
    // Half-open range of the lines between the fences.
    qsizetype codeStart = 0;
    qsizetype codeEnd = 0;
    RTextRange range;
    RTextRange headerRange;
    RTextRange codeRange;

    bool containsLine(qsizetype line) const { return line >= firstLine && line <= lastLine; }
};

struct RMarkdownHeading {
    int level = 1;
    QString title;
    qsizetype line = 0;
    RTextRange range;
};

struct RMarkdownOutline {
    QList<RMarkdownChunk> chunks;
    QList<RMarkdownHeading> headings;

    const RMarkdownChunk *chunk(qsizetype containingLine) const;
};
