// The light and dark looks of the application, following the "appearance" setting.
#pragma once

#include "ANSIStyle.h"

#include <QColor>
#include <QString>

struct ConsoleColors {
    QColor text, muted, codeBackground, code, errorBackground, error, warningBackground, warning, message,
        note, accent, changeAdded, changeRemoved;
};

namespace Appearance {

// Applies "system", "light" or "dark" to the application: palette and style sheet.
void apply(const QString &appearance);
bool isDark();
const ConsoleColors &consoleColors();
// One of the 256 terminal colours, or a true colour, for the current look.
QColor ansiColor(const ANSIStyle::Color &color);

} // namespace Appearance
