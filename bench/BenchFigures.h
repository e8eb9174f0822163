// What the benchmark programs share: their figures go out as `name: value unit` lines, and most of
// them are medians, which a shared machine's noise moves less than means.
#pragma once

#include <algorithm>
#include <cstdio>
#include <vector>

inline void printFigure(const char *name, double value, const char *unit)
{
    std::printf("%s: %.3f %s\n", name, value, unit);
    std::fflush(stdout);
}

inline double median(std::vector<double> values)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}
