#include "EditorConfiguration.h"

#include "Base/Settings.h"

#include <algorithm>

EditorConfiguration EditorConfiguration::fromSettings(const Settings &settings)
{
    EditorConfiguration configuration;
    // A stored value out of any sensible range must not make a tab of zero or a thousand blanks.
    configuration.fontSize = std::clamp(settings.doubleValue(Settings::editorFontSize), 6.0, 72.0);
    configuration.tabWidth = std::clamp(settings.intValue(Settings::tabWidth), 1, 16);
    configuration.wrapLines = settings.boolValue(Settings::wrapLines);
    configuration.showLineNumbers = settings.boolValue(Settings::showLineNumbers);
    configuration.highlightCurrentLine = settings.boolValue(Settings::highlightCurrentLine);
    configuration.autoCloseBrackets = settings.boolValue(Settings::autoCloseBrackets);
    return configuration;
}
