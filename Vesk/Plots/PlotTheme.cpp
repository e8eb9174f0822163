#include "PlotTheme.h"

#include "Base/Settings.h"

namespace PlotTheme {

bool isModern(const Settings &settings)
{
    const QVariant value = settings.value(Settings::modernPlots);
    return !value.isValid() || value.toBool();
}

QColor light(const QColor &color)
{
    // Qt's colours have no appearance variants: the light form is the colour itself, opaque, in sRGB.
    QColor rgb = color.toRgb();
    rgb.setAlpha(255);
    return rgb;
}

QString hex(const QColor &color)
{
    const QColor rgb = color.toRgb();
    return QStringLiteral("#%1%2%3")
        .arg(rgb.red(), 2, 16, QLatin1Char('0'))
        .arg(rgb.green(), 2, 16, QLatin1Char('0'))
        .arg(rgb.blue(), 2, 16, QLatin1Char('0'))
        .toUpper();
}

QColor systemBlue()
{
    return QColor(0x00, 0x7A, 0xFF);
}

QList<QColor> systemColors()
{
    // blue, orange, green, pink, purple, teal, yellow, indigo, brown, red, mint
    return {systemBlue(),
            QColor(0xFF, 0x95, 0x00),
            QColor(0x34, 0xC7, 0x59),
            QColor(0xFF, 0x2D, 0x55),
            QColor(0xAF, 0x52, 0xDE),
            QColor(0x30, 0xB0, 0xC7),
            QColor(0xFF, 0xCC, 0x00),
            QColor(0x58, 0x56, 0xD6),
            QColor(0xA2, 0x84, 0x5E),
            QColor(0xFF, 0x3B, 0x30),
            QColor(0x00, 0xC7, 0xBE)};
}

QColor accent(const QColor &windowAccent)
{
    const QColor form = light(windowAccent.isValid() ? windowAccent : systemBlue());
    // A graphite accent can't tell one series from the axes.
    if (form.toHsv().hsvSaturationF() < 0.15)
        return systemBlue();
    return form;
}

QStringList paletteHex(const QColor &accentColor)
{
    QStringList result{hex(accentColor)};
    for (const QColor &color : systemColors())
        result.append(hex(light(color)));
    return result;
}

} // namespace PlotTheme
