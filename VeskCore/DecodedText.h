// The contents of a text file as Vesk holds them: line-feed text, with the encoding and the line
// ending that put it back on disk in the same form.
#pragma once

#include "LineEnding.h"
#include "TextFileEncoding.h"

#include <QString>

struct DecodedText {
    QString text;
    TextFileEncoding encoding;
    LineEnding lineEnding;

    bool operator==(const DecodedText &) const = default;
};
