// A stretch of a script between section marker comments ("# Load data ----").
#pragma once

#include "RTextSpan.h"

#include <QString>

#include <optional>

struct RSection {
    std::optional<QString> title;
    qsizetype firstLine = 0;
    qsizetype lastLine = 0;
    RTextRange range;

    bool operator==(const RSection &) const = default;
};
