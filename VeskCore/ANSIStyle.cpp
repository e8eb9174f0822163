#include "ANSIStyle.h"

#include <QVarLengthArray>

#include <algorithm>

namespace {

// Saturates instead of overflowing, so that a huge rgb component still clamps to 255.
int parameterValue(QStringView piece)
{
    constexpr int ceiling = 1 << 24;
    int value = 0;
    for (QChar c : piece) {
        if (c < u'0' || c > u'9')
            return 0;
        value = std::min(ceiling, value * 10 + (c.unicode() - u'0'));
    }
    return value;
}

std::uint8_t component(int value)
{
    return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

} // namespace

void ANSIStyle::applySGR(QStringView parameters)
{
    QVarLengthArray<int, 16> values;
    qsizetype start = 0;
    for (;;) {
        const qsizetype end = parameters.indexOf(u';', start);
        values.append(
            parameterValue(parameters.mid(start, end < 0 ? parameters.size() - start : end - start)));
        if (end < 0)
            break;
        start = end + 1;
    }

    const qsizetype n = values.size();
    for (qsizetype i = 0; i < n; ++i) {
        const int v = values[i];
        if (v == 0) {
            *this = ANSIStyle();
        } else if (v == 1) {
            bold = true;
        } else if (v == 2) {
            dim = true;
        } else if (v == 3) {
            italic = true;
        } else if (v == 4) {
            underline = true;
        } else if (v == 22) {
            bold = dim = false;
        } else if (v == 23) {
            italic = false;
        } else if (v == 24) {
            underline = false;
        } else if (v >= 30 && v <= 37) {
            foreground = Color::palette(v - 30);
        } else if (v == 39) {
            foreground.reset();
        } else if (v >= 40 && v <= 47) {
            background = Color::palette(v - 40);
        } else if (v == 49) {
            background.reset();
        } else if (v >= 90 && v <= 97) {
            foreground = Color::palette(v - 82);
        } else if (v >= 100 && v <= 107) {
            background = Color::palette(v - 92);
        } else if (v == 38 || v == 48) {
            std::optional<Color> &target = v == 38 ? foreground : background;
            if (i + 2 < n && values[i + 1] == 5) {
                if (values[i + 2] < 256)
                    target = Color::palette(values[i + 2]);
                i += 2;
            } else if (i + 4 < n && values[i + 1] == 2) {
                target =
                    Color::rgb(component(values[i + 2]), component(values[i + 3]), component(values[i + 4]));
                i += 4;
            }
        }
    }
}
