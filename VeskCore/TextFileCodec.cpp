#include "TextFileCodec.h"

#include <array>
#include <cstring>

namespace {

// Windows-1252 bytes 80 to 9F; 0 marks the five bytes the code page leaves undefined. All other
// bytes are their Latin 1 code points.
constexpr std::array<char16_t, 32> windows1252High{
    0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

// U+FFFF is no Windows-1252 character, so it can mark the undefined bytes in the full table.
constexpr char16_t undefinedByte = 0xFFFF;

constexpr std::array<char16_t, 256> makeWindows1252Table()
{
    std::array<char16_t, 256> table{};
    for (int byte = 0; byte < 256; ++byte) {
        if (byte >= 0x80 && byte < 0xA0) {
            const char16_t mapped = windows1252High[byte - 0x80];
            table[byte] = mapped ? mapped : undefinedByte;
        } else {
            table[byte] = char16_t(byte);
        }
    }
    return table;
}
constexpr std::array<char16_t, 256> windows1252Table = makeWindows1252Table();

inline const uchar *bytes(QByteArrayView data)
{
    return reinterpret_cast<const uchar *>(data.data());
}

inline bool allASCII(const uchar *p)
{
    quint64 word;
    std::memcpy(&word, p, sizeof word);
    return (word & 0x8080808080808080ULL) == 0;
}

// Strict UTF-8: overlong forms, surrogates, values above U+10FFFF and a sequence cut by the end are
// all failures. With Write false it only validates and `out` is not touched. Gives the number of
// UTF-16 units written, or -1 at the first error.
template <bool Write> qsizetype convertUTF8(QByteArrayView data, char16_t *out)
{
    const uchar *p = bytes(data);
    const uchar *const end = p + data.size();
    char16_t *const start = out;
    while (p < end) {
        while (end - p >= 8 && allASCII(p)) {
            if constexpr (Write) {
                for (int i = 0; i < 8; ++i)
                    out[i] = p[i];
                out += 8;
            }
            p += 8;
        }
        if (p == end)
            break;
        const uchar lead = *p;
        if (lead < 0x80) {
            if constexpr (Write)
                *out++ = lead;
            ++p;
            continue;
        }
        int extra;
        char32_t point;
        uchar low = 0x80, high = 0xBF; // the allowed range of the second byte
        if (lead < 0xC2) {
            return -1;
        } else if (lead < 0xE0) {
            extra = 1;
            point = lead & 0x1F;
        } else if (lead < 0xF0) {
            extra = 2;
            point = lead & 0x0F;
            if (lead == 0xE0)
                low = 0xA0; // overlong
            else if (lead == 0xED)
                high = 0x9F; // surrogates
        } else if (lead < 0xF5) {
            extra = 3;
            point = lead & 0x07;
            if (lead == 0xF0)
                low = 0x90; // overlong
            else if (lead == 0xF4)
                high = 0x8F; // above U+10FFFF
        } else {
            return -1;
        }
        if (end - p <= extra || p[1] < low || p[1] > high)
            return -1;
        point = (point << 6) | (p[1] & 0x3F);
        for (int i = 2; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80)
                return -1;
            point = (point << 6) | (p[i] & 0x3F);
        }
        p += extra + 1;
        if constexpr (Write) {
            if (point >= 0x10000) {
                point -= 0x10000;
                *out++ = char16_t(0xD800 | (point >> 10));
                *out++ = char16_t(0xDC00 | (point & 0x3FF));
            } else {
                *out++ = char16_t(point);
            }
        }
    }
    return out - start;
}

// Strict UTF-16 without a byte order mark: an odd byte count or an unpaired surrogate fails.
template <bool Write> qsizetype convertUTF16(QByteArrayView data, bool bigEndian, char16_t *out)
{
    if (data.size() % 2)
        return -1;
    const uchar *p = bytes(data);
    const qsizetype units = data.size() / 2;
    const auto unit = [&](qsizetype i) -> char16_t {
        return bigEndian ? char16_t(p[2 * i] << 8 | p[2 * i + 1]) : char16_t(p[2 * i] | p[2 * i + 1] << 8);
    };
    for (qsizetype i = 0; i < units; ++i) {
        const char16_t u = unit(i);
        if (QChar::isHighSurrogate(u)) {
            if (i + 1 == units || !QChar::isLowSurrogate(unit(i + 1)))
                return -1;
            if constexpr (Write) {
                out[i] = u;
                out[i + 1] = unit(i + 1);
            }
            ++i;
        } else if (QChar::isLowSurrogate(u)) {
            return -1;
        } else if constexpr (Write) {
            out[i] = u;
        }
    }
    return units;
}

// Every byte goes through the table; an undefined one fails the whole conversion.
template <bool Write> qsizetype convertWindows1252(QByteArrayView data, char16_t *out)
{
    const uchar *p = bytes(data);
    const qsizetype n = data.size();
    bool undefined = false;
    for (qsizetype i = 0; i < n; ++i) {
        while (n - i >= 8 && allASCII(p + i)) {
            if constexpr (Write) {
                for (int k = 0; k < 8; ++k)
                    out[i + k] = p[i + k];
            }
            i += 8;
        }
        if (i == n)
            break;
        const char16_t c = windows1252Table[p[i]];
        undefined |= c == undefinedByte;
        if constexpr (Write)
            out[i] = c;
    }
    return undefined ? -1 : data.size();
}

bool isValidUTF8(QByteArrayView data)
{
    return convertUTF8<false>(data, nullptr) >= 0;
}

// The decoding chain, shared by decode and detectEncoding. With `text` null nothing is built.
std::optional<TextFileEncoding> run(QByteArrayView data, QString *text)
{
    if (TextFileCodec::looksBinary(data))
        return std::nullopt;

    const std::optional<TextFileEncoding> bom = TextFileCodec::bomEncoding(data);
    // A UTF-16 text has at most one unit per two bytes, any other at most one per byte.
    const qsizetype capacity = bom && (*bom == TextFileEncoding::utf16LE || *bom == TextFileEncoding::utf16BE)
                                   ? (data.size() - 2) / 2
                                   : data.size();
    char16_t *out = nullptr;
    if (text) {
        *text = QString(capacity, Qt::Uninitialized);
        out = reinterpret_cast<char16_t *>(text->data());
    }
    const auto finish = [&](qsizetype written, TextFileEncoding encoding) -> std::optional<TextFileEncoding> {
        if (written < 0)
            return std::nullopt;
        if (text) {
            text->truncate(written);
            // Many multi-byte characters leave much of the buffer unused.
            if (written < capacity - capacity / 4)
                text->squeeze();
        }
        return encoding;
    };

    if (bom == TextFileEncoding::utf16LE || bom == TextFileEncoding::utf16BE) {
        const bool bigEndian = *bom == TextFileEncoding::utf16BE;
        const QByteArrayView body = data.sliced(2);
        return finish(text ? convertUTF16<true>(body, bigEndian, out)
                           : convertUTF16<false>(body, bigEndian, out),
                      *bom);
    }
    if (bom == TextFileEncoding::utf8BOM) {
        const QByteArrayView body = data.sliced(3);
        const qsizetype written = text ? convertUTF8<true>(body, out) : convertUTF8<false>(body, out);
        if (written >= 0)
            return finish(written, TextFileEncoding::utf8BOM);
        // A broken UTF-8 body falls to the legacy sets with its mark as three characters.
    } else {
        const qsizetype written = text ? convertUTF8<true>(data, out) : convertUTF8<false>(data, out);
        if (written >= 0)
            return finish(written, TextFileEncoding::utf8);
    }

    const qsizetype written =
        text ? convertWindows1252<true>(data, out) : convertWindows1252<false>(data, out);
    if (written >= 0)
        return finish(written, TextFileEncoding::windows1252);
    if (text)
        *text = QString::fromLatin1(data);
    return TextFileEncoding::latin1;
}

// A lone surrogate can't be stored in any file; Unicode encodings write U+FFFD in its place.
constexpr char16_t replacementCharacter = 0xFFFD;

QByteArray encodeUTF8(QStringView text, QByteArrayView bom)
{
    QByteArray data(bom.size() + 3 * text.size(), Qt::Uninitialized);
    if (!bom.isEmpty())
        std::memcpy(data.data(), bom.data(), bom.size());
    uchar *out = reinterpret_cast<uchar *>(data.data()) + bom.size();
    const char16_t *p = text.utf16();
    const char16_t *const end = p + text.size();
    while (p < end) {
        char32_t point = *p++;
        if (point < 0x80) {
            *out++ = uchar(point);
            continue;
        }
        if (QChar::isSurrogate(point)) {
            if (QChar::isHighSurrogate(point) && p < end && QChar::isLowSurrogate(*p))
                point = QChar::surrogateToUcs4(char16_t(point), *p++);
            else
                point = replacementCharacter;
        }
        if (point < 0x800) {
            *out++ = uchar(0xC0 | point >> 6);
        } else if (point < 0x10000) {
            *out++ = uchar(0xE0 | point >> 12);
            *out++ = uchar(0x80 | ((point >> 6) & 0x3F));
        } else {
            *out++ = uchar(0xF0 | point >> 18);
            *out++ = uchar(0x80 | ((point >> 12) & 0x3F));
            *out++ = uchar(0x80 | ((point >> 6) & 0x3F));
        }
        *out++ = uchar(0x80 | (point & 0x3F));
    }
    data.truncate(out - reinterpret_cast<uchar *>(data.data()));
    if (data.size() < data.capacity() - data.capacity() / 4)
        data.squeeze();
    return data;
}

QByteArray encodeUTF16(QStringView text, bool bigEndian)
{
    QByteArray data(2 + 2 * text.size(), Qt::Uninitialized);
    uchar *out = reinterpret_cast<uchar *>(data.data());
    const auto put = [&](char16_t u) {
        *out++ = uchar(bigEndian ? u >> 8 : u & 0xFF);
        *out++ = uchar(bigEndian ? u & 0xFF : u >> 8);
    };
    put(0xFEFF);
    const qsizetype n = text.size();
    const char16_t *p = text.utf16();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t u = p[i];
        if (QChar::isHighSurrogate(u) && i + 1 < n && QChar::isLowSurrogate(p[i + 1])) {
            put(u);
            put(p[++i]);
        } else {
            put(QChar::isSurrogate(u) ? replacementCharacter : u);
        }
    }
    return data;
}

std::optional<uchar> windows1252Byte(char16_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF))
        return uchar(c);
    if (c < 0x100)
        return std::nullopt; // the C1 controls have no place in the code page
    for (std::size_t i = 0; i < windows1252High.size(); ++i) {
        if (windows1252High[i] == c)
            return uchar(0x80 + i);
    }
    return std::nullopt;
}

std::optional<QByteArray> encodeSingleByte(QStringView text, bool windows1252)
{
    QByteArray data(text.size(), Qt::Uninitialized);
    uchar *out = reinterpret_cast<uchar *>(data.data());
    const char16_t *p = text.utf16();
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char16_t c = p[i];
        if (c < 0x80 || (!windows1252 && c <= 0xFF)) {
            out[i] = uchar(c);
        } else if (!windows1252) {
            return std::nullopt;
        } else if (const std::optional<uchar> byte = windows1252Byte(c)) {
            out[i] = *byte;
        } else {
            return std::nullopt;
        }
    }
    return data;
}

} // namespace

namespace TextFileCodec {

std::optional<DecodedText> decode(QByteArrayView data)
{
    QString text;
    const std::optional<TextFileEncoding> encoding = run(data, &text);
    if (!encoding)
        return std::nullopt;
    // In the byte encodings a carriage return is the byte 0D and nothing else, and glibc's memchr
    // finds one faster than a scan of the twice as large text: most files have none.
    const bool wide = *encoding == TextFileEncoding::utf16LE || *encoding == TextFileEncoding::utf16BE;
    const bool hasReturn =
        wide ? text.contains(u'\r') : !data.isEmpty() && std::memchr(data.data(), '\r', data.size());
    if (!hasReturn)
        return DecodedText{std::move(text), *encoding, LineEnding::lf};
    // The ending is read from the text as the file has it, before the breaks are normalised.
    const LineEnding lineEnding = LineEnding::detect(text);
    return DecodedText{LineEnding::normalize(std::move(text)), *encoding, lineEnding};
}

std::optional<TextFileEncoding> detectEncoding(QByteArrayView data)
{
    return run(data, nullptr);
}

std::optional<QByteArray> encode(const QString &text, TextFileEncoding encoding, LineEnding lineEnding)
{
    const QString body = lineEnding.apply(text);
    switch (encoding) {
    case TextFileEncoding::utf8:
    case TextFileEncoding::utf8BOM:
        return encodeUTF8(body, encoding.bom());
    case TextFileEncoding::utf16LE:
        return encodeUTF16(body, false);
    case TextFileEncoding::utf16BE:
        return encodeUTF16(body, true);
    case TextFileEncoding::windows1252:
        return encodeSingleByte(body, true);
    case TextFileEncoding::latin1:
        return encodeSingleByte(body, false);
    }
    return std::nullopt;
}

std::optional<TextFileEncoding> bomEncoding(QByteArrayView data)
{
    if (data.startsWith("\xEF\xBB\xBF"))
        return TextFileEncoding::utf8BOM;
    if (data.startsWith("\xFE\xFF"))
        return TextFileEncoding::utf16BE;
    if (data.startsWith("\xFF\xFE"))
        return TextFileEncoding::utf16LE;
    return std::nullopt;
}

bool looksBinary(QByteArrayView data)
{
    const std::optional<TextFileEncoding> bom = bomEncoding(data);
    // UTF-16 is full of zero bytes; its mark alone vouches for it.
    if (bom == TextFileEncoding::utf16LE || bom == TextFileEncoding::utf16BE)
        return false;
    const QByteArrayView prefix = data.first(qMin(data.size(), sniffLength));
    qsizetype controls = 0;
    for (const char byte : prefix) {
        const uchar b = uchar(byte);
        if (b == 0)
            return true;
        // Escape is allowed: coloured terminal output saved to a file is still text.
        if (b < 32 && b != 9 && b != 10 && b != 12 && b != 13 && b != 27)
            ++controls;
    }
    return controls * 10 > prefix.size();
}

bool hasNULBytes(QByteArrayView data)
{
    const QByteArrayView prefix = data.first(qMin(data.size(), sniffLength));
    return !prefix.isEmpty() && std::memchr(prefix.data(), 0, prefix.size()) != nullptr;
}

bool isUTF8Prefix(QByteArrayView data)
{
    const QByteArrayView prefix = data.first(qMin(data.size(), sniffLength));
    if (isValidUTF8(prefix))
        return true;
    if (data.size() <= sniffLength)
        return false;
    // The cut may have split a character of up to four bytes.
    for (qsizetype cut = 1; cut <= 3; ++cut) {
        if (isValidUTF8(prefix.chopped(cut)))
            return true;
    }
    return false;
}

} // namespace TextFileCodec
