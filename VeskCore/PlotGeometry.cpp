#include "PlotGeometry.h"

#include "PlotFormat.h"

#include <QSet>
#include <climits>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr double ln10 = 2.302585092994046;

// An array of numbers only; anything else counts as missing.
std::optional<QList<double>> numbers(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    const JSONValue::Array *array = value->arrayValue();
    if (!array)
        return std::nullopt;
    QList<double> out;
    out.reserve(array->size());
    for (const JSONValue &element : *array) {
        const std::optional<double> number = element.doubleValue();
        if (!number)
            return std::nullopt;
        out.append(*number);
    }
    return out;
}

std::optional<QList<double>> numbers(const JSONValue *object, QStringView key, qsizetype size = -1)
{
    std::optional<QList<double>> out = numbers(object ? object->find(key) : nullptr);
    if (out && size >= 0 && out->size() != size)
        return std::nullopt;
    return out;
}

bool isTrue(const JSONValue *object, QStringView key)
{
    const JSONValue *value = object ? object->find(key) : nullptr;
    return value && value->boolValue() == true;
}

// A JSON number as an integer, when it is one that fits.
std::optional<qint64> wholeNumber(double v)
{
    if (!std::isfinite(v) || std::fabs(v) > 9e15)
        return std::nullopt;
    return qint64(std::llround(v));
}

PlotGeometry::Axis axisFrom(const JSONValue *value)
{
    PlotGeometry::Axis axis;
    if (!value || !value->objectValue())
        return axis;
    const std::optional<QString> kind = (*value)[u"kind"].stringValue();
    if (kind == u"numeric") {
        axis.kind = PlotGeometry::Axis::Kind::Numeric;
    } else if (kind == u"category") {
        const std::optional<QList<double>> at = numbers(value, u"at");
        const JSONValue *labels = value->find(u"labels");
        const JSONValue::Array *labelArray = labels ? labels->arrayValue() : nullptr;
        if (!at || !labelArray || labelArray->size() != at->size())
            return axis;
        axis.kind = PlotGeometry::Axis::Kind::Category;
        axis.ticks = *at;
        for (const JSONValue &label : *labelArray)
            axis.labels.append(label.stringValue().value_or(QString()));
        axis.discrete = isTrue(value, u"discrete");
    }
    return axis;
}

bool inRange(double fraction)
{
    return fraction >= -0.01 && fraction <= 1.01;
}

// The user coordinate of a view position along an axis.
double toUser(double offset, double length, const PlotSpan &usr)
{
    return usr.from + offset / length * (usr.to - usr.from);
}

QRectF grown(const QRectF &rect, double by)
{
    return rect.adjusted(-by, -by, by, by);
}

bool within(const QRectF &rect, QPointF p)
{
    return p.x() >= rect.left() && p.x() <= rect.right() && p.y() >= rect.top() && p.y() <= rect.bottom();
}

} // namespace

std::optional<PlotGeometry> PlotGeometry::fromJSON(const JSONValue &json)
{
    if (!json.objectValue())
        return std::nullopt;
    const JSONValue *panel = json.find(u"panel");
    if (!panel || !panel->objectValue())
        return std::nullopt;
    const std::optional<QList<double>> usr = numbers(panel, u"usr", 4);
    const std::optional<QList<double>> region = numbers(panel, u"region", 4);
    const std::optional<QList<double>> xlim = numbers(panel, u"xlim", 2);
    const std::optional<QList<double>> ylim = numbers(panel, u"ylim", 2);
    if (!usr || !region || !xlim || !ylim)
        return std::nullopt;
    for (double v : *usr)
        if (!std::isfinite(v))
            return std::nullopt;
    if ((*usr)[0] == (*usr)[1] || (*usr)[2] == (*usr)[3])
        return std::nullopt;
    const double left = (*region)[0], right = (*region)[1], bottom = (*region)[2], top = (*region)[3];
    if (!(right - left > 0) || !(top - bottom > 0))
        return std::nullopt;
    if (!inRange(left) || !inRange(right) || !inRange(bottom) || !inRange(top))
        return std::nullopt;

    PlotGeometry g;
    g.usrX = {(*usr)[0], (*usr)[1]};
    g.usrY = {(*usr)[2], (*usr)[3]};
    g.region = QRectF(left, bottom, right - left, top - bottom);
    g.window = {{(*xlim)[0], (*xlim)[1]}, {(*ylim)[0], (*ylim)[1]}};
    g.xLog = isTrue(panel, u"xlog");
    g.yLog = isTrue(panel, u"ylog");
    g.xAxis = axisFrom(json.find(u"xaxis"));
    g.yAxis = axisFrom(json.find(u"yaxis"));
    g.zoomable = isTrue(&json, u"zoomable");

    if (const JSONValue *points = json.find(u"points"); points && points->objectValue()) {
        const std::optional<QList<double>> xs = numbers(points, u"x");
        const std::optional<QList<double>> ys = numbers(points, u"y");
        if (xs && ys && xs->size() == ys->size()) {
            const QList<double> index = numbers(points, u"index").value_or(QList<double>());
            const QList<double> series = numbers(points, u"series").value_or(QList<double>());
            QSet<int> seen;
            g.points.reserve(xs->size());
            for (qsizetype i = 0; i < xs->size(); ++i) {
                Point p;
                p.x = (*xs)[i];
                p.y = (*ys)[i];
                const std::optional<qint64> n = i < index.size() ? wholeNumber(index[i]) : std::nullopt;
                p.index = n.value_or(i + 1);
                const std::optional<qint64> s = i < series.size() ? wholeNumber(series[i]) : std::nullopt;
                p.series = s && *s >= INT_MIN && *s <= INT_MAX ? int(*s) : 1;
                seen.insert(p.series);
                g.points.append(p);
            }
            g.seriesCount = int(seen.size());
        }
        g.pointsTruncated = isTrue(points, u"truncated");
    }

    if (const JSONValue *bars = json.find(u"bars"); bars && bars->objectValue()) {
        const std::optional<QList<double>> x0 = numbers(bars, u"x0");
        const std::optional<QList<double>> x1 = numbers(bars, u"x1");
        const std::optional<QList<double>> y0 = numbers(bars, u"y0");
        const std::optional<QList<double>> y1 = numbers(bars, u"y1");
        if (x0 && x1 && y0 && y1 && x0->size() == x1->size() && x0->size() == y0->size() &&
            x0->size() == y1->size()) {
            const JSONValue *labels = bars->find(u"labels");
            const JSONValue::Array *labelArray = labels ? labels->arrayValue() : nullptr;
            g.bars.reserve(x0->size());
            for (qsizetype i = 0; i < x0->size(); ++i) {
                Bar bar{(*x0)[i], (*x1)[i], (*y0)[i], (*y1)[i], std::nullopt, int(i)};
                if (labelArray && i < labelArray->size())
                    bar.label = (*labelArray)[i].stringValue();
                g.bars.append(bar);
            }
        }
        g.barsHorizontal = isTrue(bars, u"horizontal");
        g.isHistogram = isTrue(bars, u"histogram");
    }
    return g;
}

QRectF PlotGeometry::aspectFit(QSizeF size, QRectF rect)
{
    if (!(size.width() > 0) || !(size.height() > 0) || !(rect.width() > 0) || !(rect.height() > 0))
        return rect;
    const double scale = std::min(rect.width() / size.width(), rect.height() / size.height());
    const QSizeF fitted = size * scale;
    return QRectF(rect.center().x() - fitted.width() / 2, rect.center().y() - fitted.height() / 2,
                  fitted.width(), fitted.height());
}

QRectF PlotGeometry::plotRect(QRectF r) const
{
    const double top = region.y() + region.height();
    return QRectF(r.x() + region.x() * r.width(), r.y() + (1 - top) * r.height(), region.width() * r.width(),
                  region.height() * r.height());
}

std::optional<QPointF> PlotGeometry::viewPoint(double x, double y, QRectF imageRect) const
{
    if (xLog) {
        if (!(x > 0))
            return std::nullopt;
        x = std::log10(x);
    }
    if (yLog) {
        if (!(y > 0))
            return std::nullopt;
        y = std::log10(y);
    }
    const QRectF p = plotRect(imageRect);
    const double vx = p.left() + p.width() * (x - usrX.from) / (usrX.to - usrX.from);
    const double vy = p.bottom() - p.height() * (y - usrY.from) / (usrY.to - usrY.from);
    if (!std::isfinite(vx) || !std::isfinite(vy))
        return std::nullopt;
    return QPointF(vx, vy);
}

std::optional<QPointF> PlotGeometry::dataPoint(QPointF at, QRectF imageRect) const
{
    const QRectF p = plotRect(imageRect);
    if (!(p.width() > 0) || !(p.height() > 0) || !within(grown(p, 0.5), at))
        return std::nullopt;
    double x = toUser(at.x() - p.left(), p.width(), usrX);
    double y = toUser(p.bottom() - at.y(), p.height(), usrY);
    if (xLog)
        x = std::pow(10.0, x);
    if (yLog)
        y = std::pow(10.0, y);
    if (!std::isfinite(x) || !std::isfinite(y))
        return std::nullopt;
    return QPointF(x, y);
}

QRectF PlotGeometry::viewRect(const Bar &bar, QRectF imageRect) const
{
    const QRectF p = plotRect(imageRect);
    const auto mapX = [&](double v) {
        if (xLog) {
            if (!(v > 0))
                return p.left();
            v = std::log10(v);
        }
        return p.left() + p.width() * (v - usrX.from) / (usrX.to - usrX.from);
    };
    const auto mapY = [&](double v) {
        if (yLog) {
            if (!(v > 0))
                return p.bottom();
            v = std::log10(v);
        }
        return p.bottom() - p.height() * (v - usrY.from) / (usrY.to - usrY.from);
    };
    const double ax = mapX(bar.x0), bx = mapX(bar.x1), ay = mapY(bar.y0), by = mapY(bar.y1);
    if (!std::isfinite(ax) || !std::isfinite(bx) || !std::isfinite(ay) || !std::isfinite(by))
        return QRectF();
    const double left = std::max(std::min(ax, bx), p.left());
    const double right = std::min(std::max(ax, bx), p.right());
    const double top = std::max(std::min(ay, by), p.top());
    const double bottom = std::min(std::max(ay, by), p.bottom());
    if (left > right || top > bottom)
        return QRectF();
    return QRectF(QPointF(left, top), QPointF(right, bottom));
}

std::optional<PlotGeometry::Hit> PlotGeometry::hit(QPointF at, QRectF imageRect, double radius) const
{
    const QRectF p = plotRect(imageRect);
    if (!within(grown(p, radius), at))
        return std::nullopt;

    const Point *nearest = nullptr;
    QPointF nearestAt;
    double nearestDistance = std::numeric_limits<double>::infinity();
    for (const Point &point : points) {
        const std::optional<QPointF> v = viewPoint(point.x, point.y, imageRect);
        if (!v)
            continue;
        const double distance = std::hypot(v->x() - at.x(), v->y() - at.y());
        if (distance > radius)
            continue;
        if (distance < nearestDistance) {
            nearestDistance = distance;
            nearest = &point;
            nearestAt = *v;
        }
    }
    if (nearest) {
        Hit h;
        h.kind = Hit::Kind::Point;
        h.point = *nearest;
        h.at = nearestAt;
        return h;
    }

    if (bars.isEmpty() || !within(p, at))
        return std::nullopt;
    const Bar *best = nullptr;
    QRectF bestRect;
    double bestDistance = std::numeric_limits<double>::infinity();
    for (const Bar &bar : bars) {
        const QRectF r = viewRect(bar, imageRect);
        if (r.isNull() || r.isEmpty())
            continue;
        if (within(r, at)) {
            best = &bar;
            bestRect = r;
            break;
        }
        double distance;
        if (barsHorizontal) {
            if (at.y() < r.top() || at.y() > r.bottom())
                continue;
            distance = std::max(0.0, std::max(r.left() - at.x(), at.x() - r.right()));
        } else {
            if (at.x() < r.left() || at.x() > r.right())
                continue;
            distance = std::max(0.0, std::max(r.top() - at.y(), at.y() - r.bottom()));
        }
        if (distance < bestDistance) {
            bestDistance = distance;
            best = &bar;
            bestRect = r;
        }
    }
    if (!best)
        return std::nullopt;
    Hit h;
    h.kind = Hit::Kind::Bar;
    h.bar = *best;
    h.rect = bestRect;
    return h;
}

std::optional<PlotGeometry::Readout> PlotGeometry::readout(QPointF at, QRectF imageRect) const
{
    const QRectF p = plotRect(imageRect);
    if (!(p.width() > 0) || !(p.height() > 0))
        return std::nullopt;
    const std::optional<QPointF> data = dataPoint(at, imageRect);
    if (!data)
        return std::nullopt;
    const auto text = [](double v, const Axis &axis, const PlotSpan &usr, double length,
                         bool log) -> std::optional<QString> {
        switch (axis.kind) {
        case Axis::Kind::Numeric: {
            double resolution = std::fabs(usr.to - usr.from) / length;
            if (log)
                resolution *= std::fabs(v) * ln10;
            return PlotFormat::coordinate(v, resolution);
        }
        case Axis::Kind::Category:
            if (axis.discrete)
                return PlotFormat::nearestLabel(v, axis.ticks, axis.labels);
            return std::nullopt;
        case Axis::Kind::None:
            return std::nullopt;
        }
        return std::nullopt;
    };
    Readout r;
    r.x = text(data->x(), xAxis, usrX, p.width(), xLog);
    r.y = text(data->y(), yAxis, usrY, p.height(), yLog);
    if (!r.x && !r.y)
        return std::nullopt;
    return r;
}

QString PlotGeometry::exactValue(double v, const Axis &axis, const PlotSpan &usr) const
{
    if (axis.kind == Axis::Kind::Category) {
        const double span = std::fabs(usr.to - usr.from);
        const double tolerance = span >= 1 ? span * 1e-9 : 1e-9;
        for (qsizetype i = 0; i < axis.ticks.size() && i < axis.labels.size(); ++i)
            if (std::fabs(axis.ticks[i] - v) <= tolerance)
                return axis.labels[i];
    }
    return PlotFormat::value(v);
}

PlotGeometry::Tooltip PlotGeometry::tooltip(const Hit &hit) const
{
    Tooltip t;
    if (hit.kind == Hit::Kind::Point) {
        t.title = QStringLiteral("#%1").arg(hit.point.index);
        if (seriesCount >= 2)
            t.title = QStringLiteral("Series %1 \u00b7 ").arg(hit.point.series) + t.title;
        t.lines = {{QStringLiteral("x"), exactValue(hit.point.x, xAxis, usrX)},
                   {QStringLiteral("y"), exactValue(hit.point.y, yAxis, usrY)}};
        return t;
    }
    const Bar &bar = hit.bar;
    if (bar.label && !bar.label->isEmpty()) {
        t.title = *bar.label;
    } else if (isHistogram) {
        t.title = PlotFormat::value(std::min(bar.x0, bar.x1)) + QStringLiteral(" \u2013 ") +
                  PlotFormat::value(std::max(bar.x0, bar.x1));
    } else {
        t.title = QStringLiteral("Bar %1").arg(bar.index + 1);
    }
    double magnitude;
    if (barsHorizontal)
        magnitude = xLog ? bar.x1 : bar.x1 - bar.x0;
    else
        magnitude = yLog ? bar.y1 : bar.y1 - bar.y0;
    QString label = QStringLiteral("Value");
    if (isHistogram) {
        const bool counts =
            std::all_of(bars.begin(), bars.end(), [](const Bar &b) { return b.y1 == std::trunc(b.y1); });
        label = counts ? QStringLiteral("Count") : QStringLiteral("Density");
    }
    t.lines = {{label, PlotFormat::value(magnitude)}};
    return t;
}

std::optional<QRectF> PlotGeometry::selection(QPointF from, QPointF to, QRectF imageRect,
                                              double minimum) const
{
    const QRectF p = plotRect(imageRect);
    const double left = std::max(std::min(from.x(), to.x()), p.left());
    const double right = std::min(std::max(from.x(), to.x()), p.right());
    const double top = std::max(std::min(from.y(), to.y()), p.top());
    const double bottom = std::min(std::max(from.y(), to.y()), p.bottom());
    if (!(left <= right) || !(top <= bottom))
        return std::nullopt;
    const double width = right - left, height = bottom - top;
    if (width < minimum && height < minimum)
        return std::nullopt;
    if (height < minimum)
        return QRectF(left, p.top(), width, p.height());
    if (width < minimum)
        return QRectF(p.left(), top, p.width(), height);
    return QRectF(left, top, width, height);
}

std::optional<PlotZoom> PlotGeometry::zoom(QRectF selecting, QRectF imageRect) const
{
    const QRectF p = plotRect(imageRect);
    if (!zoomable || !(p.width() > 0) || !(p.height() > 0))
        return std::nullopt;

    // One axis: `near`/`far` are the selection's offsets from the region's start along it.
    const auto axisWindow = [](double near, double far, double length, const PlotSpan &usr,
                               const PlotSpan &window, bool log) -> std::optional<PlotSpan> {
        if (std::fabs(near) <= 0.5 && std::fabs(far - length) <= 0.5)
            return window;
        const double u0 = toUser(near, length, usr);
        const double u1 = toUser(far, length, usr);
        if (!std::isfinite(u0) || !std::isfinite(u1) || u0 == u1)
            return std::nullopt;
        const double mid = (u0 + u1) / 2;
        const double smallest = std::fabs(mid) >= 1 ? std::fabs(mid) * 1e-12 : 1e-12;
        if (!(std::fabs(u1 - u0) > smallest))
            return std::nullopt;
        const double w = log ? std::log10(window.to) - std::log10(window.from) : window.to - window.from;
        double f = std::fabs((usr.to - usr.from) / w);
        if (!std::isfinite(f) || w == 0)
            f = 1.08;
        else if (f <= 1)
            f = 1;
        else
            f = std::min(f, 1.08);
        double a = mid + (u0 - mid) / f;
        double b = mid + (u1 - mid) / f;
        if (log) {
            a = std::pow(10.0, a);
            b = std::pow(10.0, b);
        }
        if (!std::isfinite(a) || !std::isfinite(b) || a == b)
            return std::nullopt;
        return PlotSpan{a, b};
    };

    const std::optional<PlotSpan> x = axisWindow(selecting.left() - p.left(), selecting.right() - p.left(),
                                                 p.width(), usrX, window.x, xLog);
    const std::optional<PlotSpan> y = axisWindow(
        p.bottom() - selecting.bottom(), p.bottom() - selecting.top(), p.height(), usrY, window.y, yLog);
    if (!x || !y)
        return std::nullopt;
    const PlotZoom result{*x, *y};
    if (result == window)
        return std::nullopt;
    return result;
}
