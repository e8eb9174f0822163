// How a piece of terminal output looks: colours and the four flags that SGR sequences set.
#pragma once

#include <QStringView>

#include <cstdint>
#include <optional>

struct ANSIStyle {
    struct Color {
        enum class Kind { Palette, RGB };
        Kind kind = Kind::Palette;
        int index = 0; // Palette: 0 to 255
        std::uint8_t r = 0, g = 0, b = 0;

        static Color palette(int index) { return {Kind::Palette, index, 0, 0, 0}; }
        static Color rgb(std::uint8_t r, std::uint8_t g, std::uint8_t b) { return {Kind::RGB, 0, r, g, b}; }
        bool operator==(const Color &) const = default;
    };

    std::optional<Color> foreground;
    std::optional<Color> background;
    bool bold = false;
    bool dim = false;
    bool italic = false;
    bool underline = false;

    bool isDefault() const { return *this == ANSIStyle(); }
    // Applies the parameters of an SGR sequence ("1;31", "38;5;208", "") as a terminal would.
    void applySGR(QStringView parameters);

    bool operator==(const ANSIStyle &) const = default;
};
