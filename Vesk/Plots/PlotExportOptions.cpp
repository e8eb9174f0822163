#include "PlotExportOptions.h"

#include "Base/Settings.h"

#include <QLocale>

#include <algorithm>
#include <cmath>

PlotExportOptions::PlotExportOptions(QSizeF points, const Settings &settings, QObject *parent)
    : QObject(parent), dpi(settings.plotExportDPIValue())
{
    QLocale locale;
    locale.setNumberOptions(QLocale::OmitGroupSeparator);
    width = locale.toString(points.width() / 72, 'g', 6);
    height = locale.toString(points.height() / 72, 'g', 6);
}

double PlotExportOptions::pointsFromInches(const QString &text)
{
    const QString trimmed = text.trimmed();
    bool ok = false;
    // "7,5" is never seventy-five: group separators are refused.
    QLocale locale;
    locale.setNumberOptions(QLocale::RejectGroupSeparator);
    double inches = locale.toDouble(trimmed, &ok);
    if (!ok)
        inches = QLocale::c().toDouble(QString(trimmed).replace(u',', u'.'), &ok);
    if (!ok || !std::isfinite(inches))
        return 504;
    if (inches <= 1)
        return 72;
    return std::min(inches, 50.0) * 72;
}

QSizeF PlotExportOptions::points() const
{
    return QSizeF(pointsFromInches(width), pointsFromInches(height));
}
