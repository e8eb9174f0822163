// Terminal-style text as the console stores it: plain text with SGR colour sequences inline.
// ANSIText turns it into styled runs for display, or strips it for whatever wants plain text.
#pragma once

#include <QList>
#include <QString>

#include <optional>

struct ANSIStyle {
    struct Color {
        enum class Kind { Palette, RGB };
        Kind kind = Kind::Palette;
        int palette = 0; // 0 to 255
        quint8 r = 0, g = 0, b = 0;

        static Color fromPalette(int index) { return {Kind::Palette, index, 0, 0, 0}; }
        static Color rgb(quint8 r, quint8 g, quint8 b) { return {Kind::RGB, 0, r, g, b}; }
        bool operator==(const Color &) const = default;
    };

    std::optional<Color> foreground;
    std::optional<Color> background;
    bool bold = false;
    bool dim = false;
    bool italic = false;
    bool underline = false;

    bool isDefault() const { return *this == ANSIStyle{}; }
    // Applies the parameters of one SGR sequence ("1;31", "38;5;200", "" for a reset).
    void apply(QStringView parameters);
    bool operator==(const ANSIStyle &) const = default;
};

struct ANSIRun {
    QString text;
    ANSIStyle style;
    bool operator==(const ANSIRun &) const = default;
};

namespace ANSIText {

QList<ANSIRun> parse(const QString &text);
QString strip(const QString &text);
// The style in effect behind the last character.
ANSIStyle endStyle(const QString &text);
// The SGR sequence that sets exactly this style, starting with a reset.
QString sequence(const ANSIStyle &style);

} // namespace ANSIText
