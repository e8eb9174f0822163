// The look R's plots take from the application: whether the modern theme is on, the accent colour
// and a palette, as the kernel's `setTheme` receives them.
#pragma once

#include <QColor>
#include <QList>
#include <QString>
#include <QStringList>

class Settings;

namespace PlotTheme {

// The setting `modernPlots`; absent means on.
bool isModern(const Settings &settings);
// The colour as drawn on a light background (plots are white whatever the window's look).
QColor light(const QColor &color);
// "#RRGGBB" of the colour's 8-bit sRGB components.
QString hex(const QColor &color);
// The accent to draw with: the window's accent in its light form, or blue when it is too grey to
// carry a chart.
QColor accent(const QColor &windowAccent);
// The named colours after the accent, in their light forms.
QList<QColor> systemColors();
QColor systemBlue();
// The accent first, then the named colours. The first colour is used for single-series charts.
QStringList paletteHex(const QColor &accent);

} // namespace PlotTheme
