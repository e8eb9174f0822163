// What the save dialog of a plot asks: width and height as the user types them, in inches, and the
// resolution of raster formats.
#pragma once

#include <QObject>
#include <QSizeF>
#include <QString>

class Settings;

class PlotExportOptions : public QObject {
    Q_OBJECT
public:
    // Fills the fields from a size in points and the stored resolution setting.
    PlotExportOptions(QSizeF points, const Settings &settings, QObject *parent = nullptr);

    QString width;
    QString height;
    int dpi = 144;

    // The size in points that the typed fields give.
    QSizeF points() const;
    // The kernel's `scale` for this resolution: pixels per inch over 72.
    double scale() const { return dpi / 72.0; }

    // One typed side in points: locale first, then a plain decimal; unusable gives 7 inches.
    static double pointsFromInches(const QString &text);
};
