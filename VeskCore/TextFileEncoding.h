// The six encodings a user's text file can be read and written in. Its raw value is the form stored
// in session state.
#pragma once

#include <QByteArray>
#include <QString>
#include <QStringView>

#include <array>
#include <cstdint>
#include <optional>

class TextFileEncoding {
public:
    enum Case : std::uint8_t { utf8, utf8BOM, utf16LE, utf16BE, windows1252, latin1 };

    constexpr TextFileEncoding(Case value = utf8) : m_case(value) {}
    // Switches and comparisons work on the case itself.
    constexpr operator Case() const { return m_case; }

    static constexpr std::array<Case, 6> allCases{utf8, utf8BOM, utf16LE, utf16BE, windows1252, latin1};

    QString rawValue() const;
    static std::optional<TextFileEncoding> fromRawValue(QStringView raw);

    // Both UTF-16 cases show "UTF-16", on purpose.
    QString displayName() const;
    // The name R knows the encoding by, as `source(encoding =)` takes it.
    QString rName() const;
    // The byte order mark written before the text; empty for the encodings without one.
    QByteArray bom() const;
    bool isUnicode() const;

    // The encoding that TextFileCodec::decode finds for the whole file, or nothing when the file
    // can't be read, isn't a regular file, or isn't text. Reads the file memory-mapped where possible
    // and builds no string, so a large file costs no more than its mapping.
    static std::optional<TextFileEncoding> detect(const QString &filePath);

private:
    Case m_case;
};
