// The line break a text file uses. Inside Vesk every text has line feeds; the ending travels beside
// the text and is put back when it is written.
#pragma once

#include <QString>
#include <QStringView>

#include <array>
#include <cstdint>
#include <optional>

class LineEnding {
public:
    enum Case : std::uint8_t { lf, crlf, cr };

    constexpr LineEnding(Case value = lf) : m_case(value) {}
    constexpr operator Case() const { return m_case; }

    static constexpr std::array<Case, 3> allCases{lf, crlf, cr};

    QString rawValue() const;
    static std::optional<LineEnding> fromRawValue(QStringView raw);
    QString displayName() const;
    // The break itself: "\n", "\r\n" or "\r".
    QString characters() const;

    // The ending the text mainly uses. Ties go to lf, then to crlf; a text with no break is lf.
    static LineEnding detect(QStringView text);
    // Every carriage return becomes a line feed, and a line feed right after one is dropped. A text
    // with no carriage return comes back untouched (and unshared), so callers should move into it.
    static QString normalize(QString text);
    // The text normalised, then each line feed replaced by this ending's characters.
    QString apply(QString text) const;

private:
    Case m_case;
};
