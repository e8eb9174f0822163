// A half-open range of rows or of page numbers, `lower ..< upper`.
#pragma once

#include <QtGlobal>

#include <algorithm>

struct DataRowRange {
    qint64 lower = 0;
    qint64 upper = 0;

    bool isEmpty() const { return upper <= lower; }
    qint64 count() const { return std::max<qint64>(upper - lower, 0); }
    bool contains(qint64 value) const { return value >= lower && value < upper; }
    bool operator==(const DataRowRange &) const = default;
};
