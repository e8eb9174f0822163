// Plain ranges of source text: a (location, length) pair of UTF-16 offsets, and a run of whole lines.
#pragma once

#include <QtGlobal>

struct RTextRange {
    qsizetype location = 0;
    qsizetype length = 0;

    qsizetype end() const { return location + length; }
    bool operator==(const RTextRange &) const = default;
};

struct RTextSpan {
    // Closed range of line indices.
    qsizetype firstLine = 0;
    qsizetype lastLine = 0;
    RTextRange range;

    bool operator==(const RTextSpan &) const = default;
};
