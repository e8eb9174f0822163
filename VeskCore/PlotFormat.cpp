#include "PlotFormat.h"

#include <QLocale>

#include <algorithm>
#include <cmath>
#include <limits>

namespace PlotFormat {

namespace {

// The locale's number with at most 4 significant digits, trailing zeros dropped, no grouping.
QString fourSignificant(double v)
{
    if (v == 0)
        return QStringLiteral("0");
    const int exponent = int(std::floor(std::log10(std::fabs(v))));
    const double unit = std::pow(10.0, exponent - 3);
    const double rounded = std::round(v / unit) * unit;
    const int decimals = std::clamp(3 - exponent, 0, 12);
    QLocale locale;
    locale.setNumberOptions(QLocale::OmitGroupSeparator);
    QString text = locale.toString(rounded, 'f', decimals);
    const QString point = locale.decimalPoint();
    if (decimals > 0 && text.contains(point)) {
        while (text.endsWith(locale.zeroDigit()))
            text.chop(locale.zeroDigit().size());
        if (text.endsWith(point))
            text.chop(point.size());
    }
    if (text == QString(locale.negativeSign()) + locale.zeroDigit())
        text = locale.zeroDigit();
    return text;
}

} // namespace

QString scientific(double value, int significant)
{
    return QString::asprintf("%.*e", std::max(0, significant - 1), value);
}

QString coordinate(double value, double resolution)
{
    if (!std::isfinite(value))
        return QStringLiteral("\u2013");
    const bool validResolution = resolution > 0 && std::isfinite(resolution);
    const double magnitude = std::fabs(value);
    if (value != 0 && (magnitude >= 1e7 || magnitude < 0.0001)) {
        if (!validResolution)
            return scientific(value, 3);
        const double digits = std::ceil(std::log10(magnitude) - std::log10(resolution));
        return scientific(value, int(std::clamp(digits, 1.0, 6.0)));
    }
    if (!validResolution)
        return fourSignificant(value);
    const int decimals = int(std::clamp(std::ceil(-std::log10(2 * resolution)), 0.0, 8.0));
    QString text = QString::asprintf("%.*f", decimals, value);
    // "-0.00" reads as a sign on nothing.
    if (text.startsWith(u'-') && text.mid(1).count(u'0') + text.mid(1).count(u'.') == text.size() - 1)
        text.remove(0, 1);
    return text;
}

QString value(double v)
{
    if (std::isnan(v))
        return QStringLiteral("NA");
    if (std::isinf(v))
        return v > 0 ? QStringLiteral("Inf") : QStringLiteral("-Inf");
    if (v == std::trunc(v) && std::fabs(v) < 1e15)
        return QString::asprintf("%.0f", v == 0 ? 0.0 : v);
    return QString::asprintf("%.6g", v);
}

std::optional<QString> nearestLabel(double x, const QList<double> &ticks, const QStringList &labels)
{
    if (ticks.isEmpty() || ticks.size() != labels.size() || !std::isfinite(x))
        return std::nullopt;
    QList<double> sorted = ticks;
    std::sort(sorted.begin(), sorted.end());
    double reach = std::numeric_limits<double>::infinity();
    for (qsizetype i = 1; i < sorted.size(); ++i)
        reach = std::min(reach, (sorted[i] - sorted[i - 1]) / 2);
    qsizetype best = -1;
    double bestDistance = std::numeric_limits<double>::infinity();
    for (qsizetype i = 0; i < ticks.size(); ++i) {
        const double distance = std::fabs(ticks[i] - x);
        if (distance < bestDistance) {
            bestDistance = distance;
            best = i;
        }
    }
    if (best < 0 || !(bestDistance <= reach))
        return std::nullopt;
    return labels[best];
}

} // namespace PlotFormat
