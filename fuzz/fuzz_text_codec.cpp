// TextFileCodec::decode on arbitrary bytes. Whatever decodes must encode in its own encoding, and
// give back the very bytes when the file's breaks are all of one kind; the UTF-8 verdict must agree
// with iconv's.
#include "TextFileCodec.h"

#include <cstdint>
#include <cstdlib>
#include <iconv.h>

namespace {

bool iconvAccepts(QByteArrayView data, const char *from)
{
    iconv_t cd = iconv_open("UTF-16LE", from);
    if (cd == iconv_t(-1))
        std::abort();
    QByteArray output(data.size() * 2 + 16, Qt::Uninitialized);
    char *in = const_cast<char *>(data.data());
    size_t inLeft = size_t(data.size());
    char *out = output.data();
    size_t outLeft = size_t(output.size());
    const bool ok = iconv(cd, &in, &inLeft, &out, &outLeft) != size_t(-1) && inLeft == 0 &&
                    iconv(cd, nullptr, nullptr, &out, &outLeft) != size_t(-1);
    iconv_close(cd);
    return ok;
}

// The kinds of break in the file's own units: 1 lone line feed, 2 pair, 4 lone carriage return.
int breakKinds(QByteArrayView data, TextFileEncoding encoding)
{
    const bool wide = encoding == TextFileEncoding::utf16LE || encoding == TextFileEncoding::utf16BE;
    const QByteArrayView body = data.sliced(encoding.bom().size());
    const qsizetype step = wide ? 2 : 1;
    const auto unit = [&](qsizetype at) -> unsigned {
        if (!wide)
            return uchar(body[at]);
        return encoding == TextFileEncoding::utf16BE ? uchar(body[at]) << 8 | uchar(body[at + 1])
                                                     : uchar(body[at]) | uchar(body[at + 1]) << 8;
    };
    int kinds = 0;
    for (qsizetype at = 0; at + step <= body.size(); at += step) {
        if (unit(at) == '\n') {
            kinds |= 1;
        } else if (unit(at) == '\r') {
            const bool pair = at + 2 * step <= body.size() && unit(at + step) == '\n';
            kinds |= pair ? 2 : 4;
            if (pair)
                at += step;
        }
    }
    return kinds;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView bytes(data, qsizetype(size));
    const std::optional<DecodedText> decoded = TextFileCodec::decode(bytes);
    (void)TextFileCodec::isUTF8Prefix(bytes);
    if (TextFileCodec::detectEncoding(bytes) != (decoded ? std::optional(decoded->encoding) : std::nullopt))
        std::abort();
    if (!decoded)
        return 0;
    if (decoded->text.contains(u'\r'))
        std::abort();

    const TextFileEncoding encoding = decoded->encoding;
    if (encoding == TextFileEncoding::utf8 && !iconvAccepts(bytes, "UTF-8"))
        std::abort();
    if ((encoding == TextFileEncoding::windows1252 || encoding == TextFileEncoding::latin1) &&
        !TextFileCodec::bomEncoding(bytes) && iconvAccepts(bytes, "UTF-8"))
        std::abort();
    if (encoding == TextFileEncoding::utf16LE && !iconvAccepts(bytes.sliced(2), "UTF-16LE"))
        std::abort();
    if (encoding == TextFileEncoding::utf16BE && !iconvAccepts(bytes.sliced(2), "UTF-16BE"))
        std::abort();

    const std::optional<QByteArray> encoded =
        TextFileCodec::encode(decoded->text, encoding, decoded->lineEnding);
    if (!encoded)
        std::abort();
    const int kinds = breakKinds(bytes, encoding);
    if ((kinds & (kinds - 1)) == 0 && *encoded != bytes)
        std::abort();
    return 0;
}
