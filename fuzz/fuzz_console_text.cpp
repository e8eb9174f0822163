// Terminal output of any shape, cut into writes at points the input chooses, through ConsoleText with
// a kept cursor, ANSIText, OutputChunks and the bounded output types. Besides crashes it checks the
// invariants the console relies on, and OutputRun against a plain re-split on every write.
#include "ANSIText.h"
#include "ConsoleText.h"
#include "HeadTailText.h"
#include "LineTail.h"
#include "OutputChunks.h"
#include "OutputRun.h"

#include <QStringList>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "check failed: %s (line %d)\n", #condition, __LINE__);                      \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

QStringList writes(const QString &input, std::uint32_t seed)
{
    QStringList pieces;
    qsizetype at = 0;
    while (at < input.size()) {
        seed = seed * 1103515245u + 12345u + input[at].unicode();
        const qsizetype length = 1 + (seed >> 16) % 48;
        pieces.append(input.mid(at, length));
        at += length;
    }
    return pieces;
}

void checkANSIText(const QString &text)
{
    const QList<ANSIRun> runs = ANSIText::parse(text);
    QString joined;
    for (qsizetype i = 0; i < runs.size(); ++i) {
        CHECK(!runs[i].text.isEmpty());
        if (i > 0)
            CHECK(!(runs[i].style == runs[i - 1].style));
        joined += runs[i].text;
    }
    const QString plain = ANSIText::strip(text);
    CHECK(plain == joined);
    CHECK(!plain.contains(u'\x1b'));
    const ANSIStyle end = ANSIText::endStyle(text);
    CHECK(ANSIText::endStyle(QStringLiteral("x") + ANSIText::sequence(end)) == end);
}

void checkSplit(const QString &text, qsizetype maxBytes, qsizetype maxLines)
{
    const auto [frozen, live] = OutputChunks::split(text, maxBytes, maxLines);
    // Without the style each piece starts by setting again, the pieces are the text.
    QString rebuilt;
    ANSIStyle carried;
    QStringList all = frozen;
    all.append(live);
    for (qsizetype i = 0; i < all.size(); ++i) {
        QStringView piece(all[i]);
        if (i > 0 && !carried.isDefault()) {
            const QString prefix = ANSIText::sequence(carried);
            CHECK(piece.startsWith(prefix));
            piece = piece.sliced(prefix.size());
        }
        if (i + 1 < all.size()) {
            CHECK(!piece.isEmpty());
            CHECK(OutputChunks::lineBreaks(all[i]) <= std::max<qsizetype>(1, maxLines));
            CHECK(OutputChunks::byteCount(piece) <= std::max<qsizetype>(16, maxBytes) + 3);
            carried = ANSIText::endStyle(all[i]);
        }
        rebuilt += piece;
    }
    CHECK(rebuilt == text);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size < 2)
        return 0;
    const std::uint8_t mode = data[0];
    const std::uint8_t seed = data[1];
    data += 2;
    size -= 2;
    // Half the inputs as UTF-8, half as raw UTF-16 so that lone surrogates come through too.
    const QString input = (mode & 1)
                              ? QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size))
                              : QString(reinterpret_cast<const QChar *>(data), qsizetype(size / 2));
    const QStringList pieces = writes(input, seed);

    const qsizetype maxBytes = 8 + ((mode >> 1) & 63);
    const qsizetype maxLines = (mode >> 6) + ((seed & 1) ? 1 : 0);
    const qsizetype maxChunks = seed % 5;

    ConsoleText::Cursor cursor;
    QString text;
    OutputRun run(maxBytes, maxLines, maxChunks);
    QList<QString> reference;
    ConsoleText::Cursor referenceCursor;
    qsizetype referenceOmitted = 0;
    HeadTailText headTail(seed % 40, 1 + mode % 50);
    LineTail lineTail(seed % 4);

    for (const QString &piece : pieces) {
        text = ConsoleText::appending(piece, std::move(text), cursor);
        CHECK(cursor.fromEnd >= 0);
        CHECK(cursor.fromEnd <= text.size() - (text.lastIndexOf(u'\n') + 1));
        CHECK(cursor.pending.size() <= ConsoleText::maxPending);

        run.write(piece);
        if (reference.isEmpty())
            reference.append(QString());
        auto [frozen, live] = OutputChunks::split(
            ConsoleText::appending(piece, reference.last(), referenceCursor), maxBytes, maxLines);
        if (frozen.isEmpty()) {
            reference.last() = live;
        } else {
            reference.last() = frozen.takeFirst();
            reference += frozen;
            reference.append(live);
            while (reference.size() > std::max<qsizetype>(2, maxChunks))
                referenceOmitted += OutputChunks::lineBreaks(reference.takeAt(1));
        }
        CHECK(run.chunks().size() == reference.size());
        for (qsizetype i = 0; i < reference.size(); ++i)
            CHECK(run.chunks()[i].text == reference[i]);
        CHECK(run.omittedLines() == referenceOmitted);
        CHECK(run.cursor() == referenceCursor);

        headTail.append(piece);
        lineTail.append(piece);
        CHECK(lineTail.lines().size() <= lineTail.limit());
    }

    const bool plain = !input.contains(u'\r') && !input.contains(u'\b');
    if (plain)
        CHECK(text == input);
    checkANSIText(text);
    checkANSIText(input);
    checkSplit(text, maxBytes, maxLines);
    checkSplit(input, maxBytes, maxLines);
    for (const OutputRun::Chunk &chunk : run.chunks())
        checkANSIText(chunk.text);

    const QString flat = headTail.text();
    if (!headTail.isTruncated()) {
        // Each write is converted on its own, so compare with the writes converted one by one.
        QByteArray written;
        for (const QString &piece : pieces)
            written += piece.toUtf8();
        CHECK(flat.toUtf8() == written);
    }
    CHECK(flat.toUtf8().size() <= headTail.headLimit() + headTail.tailLimit() + 3 + 64);
    const QString tail = lineTail.text();
    CHECK(tail.count(u'\n') < std::max<qsizetype>(1, lineTail.limit()));
    return 0;
}
