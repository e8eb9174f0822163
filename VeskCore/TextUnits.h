// Small measures of text shared by the parsers and the session: the value of a hex digit, and
// whether text fits a byte budget once encoded as UTF-8.
#pragma once

#include <QStringView>

namespace TextUnits {

// 0 to 15, or -1 for anything but an ASCII hex digit.
constexpr int hexDigitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// True when the UTF-8 form of `text` takes at most `bytes` bytes. A UTF-16 unit takes one to three
// bytes, so most texts are decided by their length alone and only the rest are encoded.
inline bool fitsUTF8(QStringView text, qsizetype bytes)
{
    if (text.size() > bytes)
        return false;
    if (text.size() * 3 <= bytes)
        return true;
    return text.toUtf8().size() <= bytes;
}

} // namespace TextUnits
