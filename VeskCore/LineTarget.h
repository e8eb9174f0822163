// A "line" or "line:column" entry of the go-to-line prompt, one-based as typed.
#pragma once

#include <QStringView>

#include <optional>

struct LineTarget {
    qint64 line = 1;
    std::optional<qint64> column;

    // Absent unless the text is a positive line, optionally followed by ":" and a positive column.
    static std::optional<LineTarget> parse(QStringView text);

    bool operator==(const LineTarget &) const = default;
};
