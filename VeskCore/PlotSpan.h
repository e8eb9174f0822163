// One axis's extent in data units, from the left (or bottom) edge to the right (or top) one.
#pragma once

struct PlotSpan {
    double from = 0;
    double to = 0;

    bool operator==(const PlotSpan &) const = default;
};
