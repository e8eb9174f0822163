// Decoding throughput of ~100 MB text files, UTF-8 and Windows-1252, against glibc's iconv on the
// same bytes. Vesk's figure is the whole decode (binary test, encoding chain, ending detection,
// normalising); iconv's is the bare conversion to UTF-16, the form a QString holds.
#include "TextFileCodec.h"

#include <QStringList>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iconv.h>

namespace {

constexpr qsizetype targetSize = 100 * 1000 * 1000;

// About 100 MB of script-like lines, each line encoded on its own and repeated.
QByteArray sampleFile(TextFileEncoding encoding, LineEnding ending)
{
    const QStringList lines = encoding == TextFileEncoding::windows1252
                                  ? QStringList{u"# Résumé des coûts — “brut” et ‘net’ en €"_qs,
                                                u"prix <- c(12.5, 13.75, 9.99) # déjà payé…"_qs,
                                                u"summary(lm(y ~ x + région, data = données))"_qs,
                                                u"cat(\"Größe: \", format(n, big.mark = \"’\"), \"\\n\")"_qs}
                                  : QStringList{u"# Überblick der Kosten — “brutto” und ‘netto’ in € 😀"_qs,
                                                u"prices <- c(12.5, 13.75, 9.99) # 价格 Цена"_qs,
                                                u"summary(lm(y ~ x + region, data = frame))"_qs,
                                                u"plot(density(rnorm(1000)), main = \"Dichte\")"_qs};
    QList<QByteArray> encoded;
    for (const QString &line : lines)
        encoded.append(*TextFileCodec::encode(line + u'\n', encoding, ending));
    QByteArray data;
    data.reserve(targetSize + 200);
    for (qsizetype i = 0; data.size() < targetSize; ++i)
        data += encoded[i % encoded.size()];
    return data;
}

double bestSeconds(const std::function<void()> &run)
{
    double best = 1e9;
    for (int round = 0; round < 3; ++round) {
        const auto start = std::chrono::steady_clock::now();
        run();
        best =
            std::min(best, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

double codecSeconds(const QByteArray &data, TextFileEncoding expected)
{
    return bestSeconds([&] {
        const std::optional<DecodedText> decoded = TextFileCodec::decode(data);
        if (!decoded || decoded->encoding != expected)
            std::abort();
    });
}

double iconvSeconds(const QByteArray &data, const char *from)
{
    QByteArray output(data.size() * 2 + 16, Qt::Uninitialized);
    return bestSeconds([&] {
        iconv_t cd = iconv_open("UTF-16LE", from);
        char *in = const_cast<char *>(data.constData());
        size_t inLeft = size_t(data.size());
        char *out = output.data();
        size_t outLeft = size_t(output.size());
        if (cd == iconv_t(-1) || iconv(cd, &in, &inLeft, &out, &outLeft) == size_t(-1))
            std::abort();
        iconv_close(cd);
    });
}

void report(const char *name, const QByteArray &data, TextFileEncoding encoding, const char *iconvName)
{
    const double megabytes = data.size() / 1e6;
    const double vesk = megabytes / codecSeconds(data, encoding);
    const double reference = megabytes / iconvSeconds(data, iconvName);
    std::printf("%s_bytes: %.1f MB\n", name, megabytes);
    std::printf("%s_decode: %.0f MB/s\n", name, vesk);
    std::printf("%s_iconv: %.0f MB/s\n", name, reference);
    std::printf("%s_ratio_to_iconv: %.2f x\n", name, vesk / reference);
}

} // namespace

int main()
{
    const QByteArray utf8 = sampleFile(TextFileEncoding::utf8, LineEnding::lf);
    report("utf8", utf8, TextFileEncoding::utf8, "UTF-8");

    const QByteArray windows1252 = sampleFile(TextFileEncoding::windows1252, LineEnding::lf);
    report("windows1252", windows1252, TextFileEncoding::windows1252, "WINDOWS-1252");

    // Windows line breaks add the ending detection and the rewrite of every break.
    const QByteArray crlf = sampleFile(TextFileEncoding::utf8, LineEnding::crlf);
    std::printf("utf8_crlf_decode: %.0f MB/s\n",
                crlf.size() / 1e6 / codecSeconds(crlf, TextFileEncoding::utf8));

    const QString text = TextFileCodec::decode(utf8)->text;
    const double encodeSeconds = bestSeconds([&] {
        if (!TextFileCodec::encode(text, TextFileEncoding::utf8, LineEnding::lf))
            std::abort();
    });
    std::printf("utf8_encode: %.0f MB/s\n", utf8.size() / 1e6 / encodeSeconds);
    return 0;
}
