// The window a plot is zoomed to, in data units on both axes (also on a log axis).
#pragma once

#include "PlotSpan.h"

struct PlotZoom {
    PlotSpan x;
    PlotSpan y;

    bool operator==(const PlotZoom &) const = default;
};
