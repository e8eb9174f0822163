// Small measures of text shared by the parsers and the session: the value of a hex digit, whether
// text fits a byte budget once encoded as UTF-8, and decoding UTF-8 pieces.
#pragma once

#include <QByteArrayView>
#include <QString>
#include <QStringDecoder>
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

// UTF-8 to text, invalid sequences as U+FFFD. Unlike QString::fromUtf8 it keeps a byte order mark
// at the start: a piece of a stream, of a JSON string or of a line may well begin with U+FEFF.
inline QString decodeUTF8(QByteArrayView utf8)
{
    QStringDecoder decoder(QStringDecoder::Utf8,
                           QStringDecoder::Flag::Stateless | QStringDecoder::Flag::ConvertInitialBom);
    return decoder.decode(utf8);
}

} // namespace TextUnits
