#include "QStringPrinting.h"
#include "TextFileCodec.h"
#include "TextFilePrinting.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cerrno>
#include <iconv.h>
#include <sys/stat.h>

namespace {

// glibc's converter, the reference the files are made with and read back by.
std::optional<QByteArray> iconvConvert(const QByteArray &input, const char *from, const char *to)
{
    iconv_t cd = iconv_open(to, from);
    if (cd == iconv_t(-1))
        return std::nullopt;
    QByteArray output(input.size() * 4 + 16, Qt::Uninitialized);
    char *in = const_cast<char *>(input.constData());
    size_t inLeft = size_t(input.size());
    char *out = output.data();
    size_t outLeft = size_t(output.size());
    const size_t result = iconv(cd, &in, &inLeft, &out, &outLeft);
    const bool flushed = iconv(cd, nullptr, nullptr, &out, &outLeft) != size_t(-1);
    iconv_close(cd);
    if (result == size_t(-1) || !flushed || inLeft != 0)
        return std::nullopt;
    output.truncate(out - output.data());
    return output;
}

std::optional<QString> iconvDecode(const QByteArray &input, const char *from)
{
    const std::optional<QByteArray> utf16 = iconvConvert(input, from, "UTF-16LE");
    if (!utf16)
        return std::nullopt;
    return QString(reinterpret_cast<const QChar *>(utf16->constData()), utf16->size() / 2);
}

const char *iconvName(TextFileEncoding encoding)
{
    switch (encoding) {
    case TextFileEncoding::utf8:
    case TextFileEncoding::utf8BOM:
        return "UTF-8";
    case TextFileEncoding::utf16LE:
        return "UTF-16LE";
    case TextFileEncoding::utf16BE:
        return "UTF-16BE";
    case TextFileEncoding::windows1252:
        return "WINDOWS-1252";
    case TextFileEncoding::latin1:
        return "ISO-8859-1";
    }
    return "";
}

// Lines with the characters peculiar to each encoding. The Latin 1 lines hold C1 controls whose
// bytes Windows-1252 leaves undefined, so that the file can't pass for Windows-1252.
QStringList corpusLines(TextFileEncoding encoding)
{
    QStringList lines{u"x <- c(1, 2, 3)  # plain ASCII"_qs, u""_qs, u"\tf <- function(a) a + 1"_qs,
                      u"café, naïve, Größe, ¿señor?"_qs};
    switch (encoding) {
    case TextFileEncoding::windows1252:
        lines << u"price <- \"€ 12 – “quoted” ‘single’ … • ™ Š š Œ œ Ž ž Ÿ ƒ ˆ ˜ ‰ ‹ › † ‡\""_qs;
        break;
    case TextFileEncoding::latin1:
        lines << u"ctrl <- \"\u0081 \u008D \u008F \u0090 \u009D\" # « × ÷ ÿ »"_qs;
        break;
    default:
        lines
            << u"emoji <- \"😀 𝕏 👩‍🔬\" # 中文 Ελληνικά € “” \uFEFF in the middle"_qs
            << u"last <- \"\U0010FFFD\""_qs;
        break;
    }
    lines << u"end"_qs;
    return lines;
}

QByteArray corpusFile(TextFileEncoding encoding, LineEnding ending)
{
    const QString text = corpusLines(encoding).join(ending.characters());
    const std::optional<QByteArray> body = iconvConvert(text.toUtf8(), "UTF-8", iconvName(encoding));
    EXPECT_TRUE(body.has_value()) << encoding.rawValue().toStdString();
    return encoding.bom() + body.value_or(QByteArray());
}

QString lineFeeds(QString text)
{
    return text.replace(u"\r\n"_qs, u"\n"_qs).replace(u'\r', u'\n');
}

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray data;
    for (int value : values)
        data.append(char(value));
    return data;
}

// Decodes to this text and form, and writes back to the same bytes.
void expectRoundTrip(const QByteArray &data, const DecodedText &expected)
{
    EXPECT_EQ(TextFileCodec::decode(data), expected) << data.toHex().constData();
    EXPECT_EQ(TextFileCodec::encode(expected.text, expected.encoding, expected.lineEnding), data)
        << data.toHex().constData();
}

} // namespace

TEST(TextFileCodec, CorpusRoundTripsByteForByteAndAgreesWithIconv)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    for (TextFileEncoding encoding : TextFileEncoding::allCases) {
        for (LineEnding ending : LineEnding::allCases) {
            SCOPED_TRACE(encoding.rawValue().toStdString() + " " + ending.rawValue().toStdString());
            const QByteArray file = corpusFile(encoding, ending);
            const std::optional<DecodedText> decoded = TextFileCodec::decode(file);
            ASSERT_TRUE(decoded.has_value());
            EXPECT_EQ(decoded->encoding, encoding);
            EXPECT_EQ(decoded->lineEnding, ending);
            EXPECT_FALSE(decoded->text.contains(u'\r'));

            const std::optional<QString> reference =
                iconvDecode(file.sliced(encoding.bom().size()), iconvName(encoding));
            ASSERT_TRUE(reference.has_value());
            EXPECT_EQ(decoded->text, lineFeeds(*reference));
            EXPECT_EQ(decoded->text, corpusLines(encoding).join(u'\n'));

            EXPECT_EQ(TextFileCodec::encode(decoded->text, decoded->encoding, decoded->lineEnding), file);

            const QString path = dir.filePath(encoding.rawValue() + u'-' + ending.rawValue());
            QFile out(path);
            ASSERT_TRUE(out.open(QIODevice::WriteOnly));
            out.write(file);
            out.close();
            EXPECT_EQ(TextFileEncoding::detect(path), encoding);
        }
    }
}

TEST(TextFileCodec, LegacyChainHasNoHeuristicsBeyondItsOrder)
{
    using E = TextFileEncoding;
    // Latin 1 without any of the five undefined bytes passes for Windows-1252, and still round trips.
    expectRoundTrip(*iconvConvert("caf\xC3\xA9 \xC3\xB7\n", "UTF-8", "ISO-8859-1"),
                    {u"café ÷\n"_qs, E::windows1252, LineEnding::lf});
    // One stray E9 in UTF-8 makes the file Windows-1252, where E9 is é; a lone 81 falls to Latin 1.
    expectRoundTrip("na\xC3\xAFve \xE9t\xC3\xA9", {u"naÃ¯ve étÃ©"_qs, E::windows1252, LineEnding::lf});
    expectRoundTrip("a\x81z", {u"a\u0081z"_qs, E::latin1, LineEnding::lf});
    // A UTF-8 mark before a broken body: the mark is read as three Windows-1252 characters.
    expectRoundTrip("\xEF\xBB\xBFx\xFFy\r\n", {u"ï»¿xÿy\n"_qs, E::windows1252, LineEnding::crlf});
    // Only the first mark is taken off; a second one is text.
    expectRoundTrip("\xEF\xBB\xBF\xEF\xBB\xBFx", {u"\uFEFFx"_qs, E::utf8BOM, LineEnding::lf});
}

TEST(TextFileCodec, StrictUTF8AgreesWithIconvOnBoundariesAndRandomBytes)
{
    const QList<QByteArray> cases{
        bytes({0x7F}), bytes({0xC2, 0x80}), bytes({0xDF, 0xBF}), bytes({0xE0, 0xA0, 0x80}),
        bytes({0xEF, 0xBF, 0xBF}), bytes({0xF0, 0x90, 0x80, 0x80}), bytes({0xF4, 0x8F, 0xBF, 0xBF}),
        bytes({0xED, 0x9F, 0xBF}), bytes({0xEE, 0x80, 0x80}),
        // Overlong, surrogates, beyond U+10FFFF, stray and cut sequences.
        bytes({0xC0, 0x80}), bytes({0xC1, 0xBF}), bytes({0xE0, 0x9F, 0xBF}), bytes({0xF0, 0x8F, 0xBF, 0xBF}),
        bytes({0xED, 0xA0, 0x80}), bytes({0xED, 0xBF, 0xBF}), bytes({0xF4, 0x90, 0x80, 0x80}),
        bytes({0xF5, 0x80, 0x80, 0x80}), bytes({0xFF}), bytes({0x80}), bytes({0xE2, 0x82}),
        bytes({0xE2, 0x82, 0x41}), bytes({0xF0, 0x9F, 0x98})};
    for (const QByteArray &sequence : cases) {
        // Padded so that the ASCII fast path and the tail are both crossed.
        const QByteArray data = "0123456789abcdef" + sequence + "xyz";
        const std::optional<QString> reference = iconvDecode(data, "UTF-8");
        const std::optional<DecodedText> decoded = TextFileCodec::decode(data);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->encoding == TextFileEncoding::utf8, reference.has_value())
            << data.toHex().constData();
        if (reference && decoded->encoding == TextFileEncoding::utf8) {
            EXPECT_EQ(decoded->text, *reference);
        }
    }

    QRandomGenerator random(42);
    const char pieces[] = {'\x41', '\x80', '\xBF', '\xC2', '\xDF', '\xE0', '\xED', '\xEF',
                           '\xF0', '\xF4', '\x9F', '\xA0', '\x90', '\x8F', '\xC0', '\xF5'};
    for (int round = 0; round < 20000; ++round) {
        QByteArray data;
        const int length = 1 + random.bounded(12);
        for (int i = 0; i < length; ++i)
            data.append(pieces[random.bounded(int(sizeof pieces))]);
        const bool valid = iconvDecode(data, "UTF-8").has_value();
        const std::optional<TextFileEncoding> found = TextFileCodec::detectEncoding(data);
        ASSERT_TRUE(found);
        ASSERT_EQ(*found == TextFileEncoding::utf8, valid) << data.toHex().constData();
    }
}

TEST(TextFileCodec, UTF16IsStrictAndTrustsItsMark)
{
    // FF FE followed by anything is not binary; an odd length or a lone surrogate is then no text.
    EXPECT_FALSE(TextFileCodec::looksBinary(bytes({0xFF, 0xFE, 0, 0, 0, 1, 2, 3})));
    for (const QByteArray &broken :
         {bytes({0xFF, 0xFE, 0x41, 0x00, 0x42}), bytes({0xFF, 0xFE, 0x3D, 0xD8, 0x41, 0x00}),
          bytes({0xFE, 0xFF, 0xDC, 0x00}), bytes({0xFE, 0xFF, 0xD8, 0x3D})})
        EXPECT_FALSE(TextFileCodec::decode(broken)) << broken.toHex().constData();
    // No UTF-32: FF FE 00 00 is a UTF-16 LE zero character.
    expectRoundTrip(bytes({0xFF, 0xFE, 0x00, 0x00}),
                    {QString(QChar(0)), TextFileEncoding::utf16LE, LineEnding::lf});
    // A mark alone is an empty text; a second mark stays as text.
    expectRoundTrip(bytes({0xFE, 0xFF, 0xFE, 0xFF}),
                    {u"\uFEFF"_qs, TextFileEncoding::utf16BE, LineEnding::lf});
    // The breaks of UTF-16 are units, not bytes: 0D 0A inside a character is no break.
    expectRoundTrip(bytes({0xFE, 0xFF, 0x0D, 0x0A, 0x00, 0x0D}),
                    {u"\u0D0A\n"_qs, TextFileEncoding::utf16BE, LineEnding::cr});
}

TEST(TextFileCodec, BinaryTestReadsOnlyTheSniffedPrefix)
{
    EXPECT_FALSE(TextFileCodec::looksBinary({}));
    const std::optional<DecodedText> empty = TextFileCodec::decode({});
    ASSERT_TRUE(empty);
    EXPECT_EQ(*empty, (DecodedText{QString(), TextFileEncoding::utf8, LineEnding::lf}));

    // 50 bytes with 6 control bytes: 60 exceeds 50. With 5, 50 does not.
    QByteArray controls(50, 'a');
    for (int i = 0; i < 5; ++i)
        controls[i * 7] = '\x01';
    EXPECT_FALSE(TextFileCodec::looksBinary(controls));
    controls[40] = '\x1F';
    EXPECT_TRUE(TextFileCodec::looksBinary(controls));
    EXPECT_FALSE(TextFileCodec::decode(controls));
    // Tab, line feed, form feed, carriage return, escape and DEL don't count.
    EXPECT_FALSE(TextFileCodec::looksBinary("\t\n\f\r\x1B\x7F"));
    EXPECT_TRUE(TextFileCodec::looksBinary("\x0B"));

    QByteArray text(TextFileCodec::sniffLength, 'a');
    text.append('\0');
    EXPECT_FALSE(TextFileCodec::looksBinary(text));
    EXPECT_FALSE(TextFileCodec::hasNULBytes(text));
    ASSERT_TRUE(TextFileCodec::decode(text));
    EXPECT_EQ(TextFileCodec::decode(text)->text.back(), QChar(0));
    text[TextFileCodec::sniffLength - 1] = '\0';
    EXPECT_TRUE(TextFileCodec::looksBinary(text));
    EXPECT_TRUE(TextFileCodec::hasNULBytes(text));
    EXPECT_FALSE(TextFileCodec::decode(text));

    // The start of a PNG and of a gzip stream: refused, whatever the chain could make of them.
    EXPECT_FALSE(TextFileCodec::decode(bytes({0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 0x0D})));
    EXPECT_FALSE(TextFileCodec::decode(bytes({0x1F, 0x8B, 0x08, 0x00, 0x12, 0x34, 0x56, 0x78, 0x00, 0x03})));
    // A UTF-8 mark is no excuse.
    EXPECT_TRUE(TextFileCodec::looksBinary(bytes({0xEF, 0xBB, 0xBF, 0x00})));
}

TEST(TextFileCodec, UTF8PrefixAllowsOnlyACutAtTheSniffLength)
{
    QByteArray data(TextFileCodec::sniffLength - 1, 'a');
    data.append("\xF0\x9F\x98\x80 tail"); // cut after its first byte
    EXPECT_TRUE(TextFileCodec::isUTF8Prefix(data));
    data[100] = '\xE9'; // a real error before the cut
    EXPECT_FALSE(TextFileCodec::isUTF8Prefix(data));
    // Data that ends at the prefix gets no allowance for a cut.
    EXPECT_FALSE(TextFileCodec::isUTF8Prefix("abc\xE2\x82"));
    EXPECT_TRUE(TextFileCodec::isUTF8Prefix("abc\xE2\x82\xAC"));
    EXPECT_TRUE(TextFileCodec::isUTF8Prefix({}));
    // An error beyond the prefix is not seen.
    QByteArray late(TextFileCodec::sniffLength, 'a');
    late.append('\xFF');
    EXPECT_TRUE(TextFileCodec::isUTF8Prefix(late));
}

TEST(TextFileCodec, EncodeRefusesWhatTheLegacySetsCantHold)
{
    const QString greek = u"caf\u00E9 \u03B1"_qs;
    EXPECT_FALSE(TextFileCodec::encode(greek, TextFileEncoding::latin1, LineEnding::lf));
    EXPECT_FALSE(TextFileCodec::encode(greek, TextFileEncoding::windows1252, LineEnding::lf));
    EXPECT_EQ(TextFileCodec::encode(greek, TextFileEncoding::utf8, LineEnding::lf),
              QByteArray("caf\xC3\xA9 \xCE\xB1"));
    // € is Windows-1252 only; the C1 controls are Latin 1 only.
    EXPECT_EQ(TextFileCodec::encode(u"€"_qs, TextFileEncoding::windows1252, LineEnding::lf),
              QByteArray("\x80"));
    EXPECT_FALSE(TextFileCodec::encode(u"€"_qs, TextFileEncoding::latin1, LineEnding::lf));
    EXPECT_FALSE(TextFileCodec::encode(u"\u0081"_qs, TextFileEncoding::windows1252, LineEnding::lf));
    EXPECT_FALSE(TextFileCodec::encode(u"\u0080"_qs, TextFileEncoding::windows1252, LineEnding::lf));
    EXPECT_EQ(TextFileCodec::encode(u"\u0081ÿ"_qs, TextFileEncoding::latin1, LineEnding::lf),
              QByteArray("\x81\xFF"));

    // Whatever breaks the text has, the chosen ending is written.
    EXPECT_EQ(
        TextFileCodec::encode(u"a\r\nb\rc\n"_qs, TextFileEncoding::utf16BE, LineEnding::crlf),
        bytes({0xFE, 0xFF, 0, 'a', 0, '\r', 0, '\n', 0, 'b', 0, '\r', 0, '\n', 0, 'c', 0, '\r', 0, '\n'}));
    EXPECT_EQ(TextFileCodec::encode(u"😀"_qs, TextFileEncoding::utf16LE, LineEnding::lf),
              bytes({0xFF, 0xFE, 0x3D, 0xD8, 0x00, 0xDE}));
    // A lone surrogate can't be stored anywhere; the Unicode encodings write U+FFFD instead of failing.
    const QString lone = u"a"_qs + QChar(0xD83D) + u"b"_qs + QChar(0xDE00);
    EXPECT_EQ(TextFileCodec::encode(lone, TextFileEncoding::utf8BOM, LineEnding::lf),
              QByteArray("\xEF\xBB\xBF"
                         "a\xEF\xBF\xBD"
                         "b\xEF\xBF\xBD"));
    EXPECT_EQ(TextFileCodec::encode(lone, TextFileEncoding::utf16LE, LineEnding::lf),
              bytes({0xFF, 0xFE, 'a', 0, 0xFD, 0xFF, 'b', 0, 0xFD, 0xFF}));
}

TEST(LineEnding, DetectionCountsAndTieBreaks)
{
    EXPECT_EQ(LineEnding::detect(u"a\r\nb\nc\n"), LineEnding::lf);
    EXPECT_EQ(LineEnding::detect(u"a\rb\r\nc"), LineEnding::crlf);
    EXPECT_EQ(LineEnding::detect(u"a\rb\rc\r\n"), LineEnding::cr);
    EXPECT_EQ(LineEnding::detect(u"a\nb\rc"), LineEnding::lf);
    EXPECT_EQ(LineEnding::detect(u"a\r\nb\r\nc\n"), LineEnding::crlf);
    EXPECT_EQ(LineEnding::detect(u"no breaks"), LineEnding::lf);
    EXPECT_EQ(LineEnding::detect(u"\r"), LineEnding::cr);
    EXPECT_EQ(LineEnding::detect(u"\r\r\n"), LineEnding::crlf); // one lone return, one pair: a tie
}

TEST(LineEnding, NormaliseAndApplyRewriteEveryBreak)
{
    EXPECT_EQ(LineEnding::normalize(u"a\r\r\nb\n\rc\r"_qs), u"a\n\nb\n\nc\n"_qs);
    EXPECT_EQ(LineEnding::normalize(u"\r\n\r\n"_qs), u"\n\n"_qs);
    EXPECT_EQ(LineEnding(LineEnding::crlf).apply(u"a\nb\r\nc\rd"_qs), u"a\r\nb\r\nc\r\nd"_qs);
    EXPECT_EQ(LineEnding(LineEnding::cr).apply(u"a\r\nb\n"_qs), u"a\rb\r"_qs);
    EXPECT_EQ(LineEnding(LineEnding::lf).apply(u"a\r\nb\r"_qs), u"a\nb\n"_qs);
    // The caller's copy is never written through.
    const QString shared = u"a\r\nb"_qs;
    const QString copy = shared;
    EXPECT_EQ(LineEnding::normalize(copy), u"a\nb"_qs);
    EXPECT_EQ(shared, u"a\r\nb"_qs);
}

TEST(TextFileEncoding, StoredFormsRoundTrip)
{
    for (TextFileEncoding encoding : TextFileEncoding::allCases)
        EXPECT_EQ(TextFileEncoding::fromRawValue(encoding.rawValue()), encoding);
    for (LineEnding ending : LineEnding::allCases)
        EXPECT_EQ(LineEnding::fromRawValue(ending.rawValue()), ending);
    EXPECT_FALSE(TextFileEncoding::fromRawValue(u"UTF-8"));
    EXPECT_FALSE(LineEnding::fromRawValue(u"LF"));
}

TEST(TextFileEncoding, DetectRefusesWhatIsNoRegularTextFile)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    EXPECT_FALSE(TextFileEncoding::detect(dir.filePath(u"missing"_qs)));
    EXPECT_FALSE(TextFileEncoding::detect(dir.path()));
    // A FIFO would block a plain read until a writer came.
    const QString fifo = dir.filePath(u"fifo"_qs);
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0) << errno;
    EXPECT_FALSE(TextFileEncoding::detect(fifo));

    const auto write = [&](const QString &name, const QByteArray &data) {
        QFile file(dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(data);
        return file.fileName();
    };
    EXPECT_EQ(TextFileEncoding::detect(write(u"empty"_qs, {})), TextFileEncoding::utf8);
    EXPECT_FALSE(TextFileEncoding::detect(write(u"binary"_qs, QByteArray("ELF\0\0\0", 6))));
    EXPECT_EQ(TextFileEncoding::detect(write(u"latin"_qs, "\x81")), TextFileEncoding::latin1);
}
