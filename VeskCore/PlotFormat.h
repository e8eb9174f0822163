// Number text for plot readouts and tooltips: pointer coordinates as precise as a pixel, exact values
// as R would print them, and the category label under the pointer.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace PlotFormat {

// A pointer coordinate; `resolution` is the data distance one view point covers (<= 0: unknown).
QString coordinate(double value, double resolution);
// An exact value: "NA", "Inf", whole numbers without decimals, otherwise 6 significant digits.
QString value(double v);
// The label of the tick nearest to `x`, if it lies within half the smallest gap between ticks.
std::optional<QString> nearestLabel(double x, const QList<double> &ticks, const QStringList &labels);
// C's "%.<significant-1>e".
QString scientific(double value, int significant);

} // namespace PlotFormat
