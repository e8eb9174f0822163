// The settings that reach an editor, read once and applied as one value.
#pragma once

class Settings;

struct EditorConfiguration {
    double fontSize = 13.0;
    int tabWidth = 2;
    bool wrapLines = false;
    bool showLineNumbers = true;
    bool highlightCurrentLine = true;
    bool autoCloseBrackets = true;

    bool operator==(const EditorConfiguration &) const = default;

    static EditorConfiguration fromSettings(const Settings &settings);
};
