// What the kernel knows of a drawn plot (its plot region, R's user coordinates, axes, and for plots it
// recognises each point and bar), and all the mathematics between the picture's view points and the
// data: hit testing, readouts, tooltips, drag selections and zoom windows. View coordinates have y
// growing downward; R's user coordinates have y growing upward.
#pragma once

#include "JSONValue.h"
#include "PlotZoom.h"

#include <QList>
#include <QPointF>
#include <QRectF>
#include <QSizeF>
#include <QString>
#include <QStringList>

#include <optional>

class PlotGeometry {
public:
    struct Axis {
        enum class Kind { None, Numeric, Category };
        Kind kind = Kind::None;
        QList<double> ticks;   // Category
        QStringList labels;    // Category, as many as ticks
        bool discrete = false; // Category

        bool operator==(const Axis &) const = default;
    };

    struct Point {
        double x = 0;
        double y = 0;
        qint64 index = 1; // the observation's 1-based number
        int series = 1;

        bool operator==(const Point &) const = default;
    };

    struct Bar {
        double x0 = 0, x1 = 0, y0 = 0, y1 = 0;
        std::optional<QString> label;
        int index = 0; // 0-based position

        bool operator==(const Bar &) const = default;
    };

    struct Hit {
        enum class Kind { Point, Bar };
        Kind kind = Kind::Point;
        Point point; // Point
        QPointF at;  // Point: where it is drawn
        Bar bar;     // Bar
        QRectF rect; // Bar: where it is drawn
    };

    struct Readout {
        std::optional<QString> x;
        std::optional<QString> y;
    };

    struct Tooltip {
        struct Line {
            QString label;
            QString value;
            bool operator==(const Line &) const = default;
        };
        QString title;
        QList<Line> lines;
    };

    PlotSpan usrX, usrY; // par("usr"); log10 units on a log axis
    QRectF region;       // the plot region in fractions of the image, y upward
    PlotZoom window;     // the limits the figure was drawn with
    bool xLog = false, yLog = false;
    Axis xAxis, yAxis;
    QList<Point> points;
    bool pointsTruncated = false;
    QList<Bar> bars;
    bool barsHorizontal = false;
    bool isHistogram = false;
    bool zoomable = false;
    int seriesCount = 0;

    // The kernel's description, or none when it is unusable (the plot is then a plain picture).
    static std::optional<PlotGeometry> fromJSON(const JSONValue &json);

    // Where an image of `size` is drawn in `rect`, keeping its proportions, centred.
    static QRectF aspectFit(QSizeF size, QRectF rect);

    QRectF plotRect(QRectF imageRect) const;
    std::optional<QPointF> viewPoint(double x, double y, QRectF imageRect) const;
    std::optional<QPointF> dataPoint(QPointF at, QRectF imageRect) const;
    // The bar's rectangle clipped to the plot region; the null rectangle when nothing is left.
    QRectF viewRect(const Bar &bar, QRectF imageRect) const;

    std::optional<Hit> hit(QPointF at, QRectF imageRect, double radius) const;
    std::optional<Readout> readout(QPointF at, QRectF imageRect) const;
    Tooltip tooltip(const Hit &hit) const;

    // The rectangle a drag selects; a drag thinner than `minimum` becomes a band across the region.
    std::optional<QRectF> selection(QPointF from, QPointF to, QRectF imageRect, double minimum) const;
    // The window a selection zooms to; none when the plot can't zoom or nothing would change.
    std::optional<PlotZoom> zoom(QRectF selecting, QRectF imageRect) const;

private:
    QString exactValue(double v, const Axis &axis, const PlotSpan &usr) const;
};
