// One entry of the editor's jump bar.
#pragma once

#include <QString>

#include <cstdint>

struct OutlineItem {
    enum class Kind : std::uint8_t { section, function, chunk, heading };

    Kind kind = Kind::section;
    QString title;
    // One-based.
    qsizetype line = 1;
    // Zero-based depth.
    int level = 0;

    bool operator==(const OutlineItem &) const = default;
};
