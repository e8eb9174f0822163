// OutputChunks, OutputRun, HeadTailText and LineTail: output kept bounded, with its beginning, its
// end, and a count of what was dropped between.
#include "ANSIText.h"
#include "HeadTailText.h"
#include "LineTail.h"
#include "OutputChunks.h"
#include "OutputRun.h"
#include "QStringPrinting.h"

#include <QRandomGenerator>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

qsizetype utf8Size(const QString &text)
{
    return text.toUtf8().size();
}

// A stream of output such as R prints: lines of mixed length, some coloured, some non-ASCII,
// progress bars with carriage returns, in writes that split lines and escape sequences anywhere.
QStringList outputStream(quint32 seed, int writes)
{
    QRandomGenerator random(seed);
    QString all;
    for (int i = 0; i < writes * 3; ++i) {
        const quint32 kind = random.bounded(6);
        if (kind == 0)
            all += u"\x1b[3%1mcoloured %2\x1b[0m\n"_qs.arg(random.bounded(8)).arg(i);
        else if (kind == 1)
            all += QString(random.bounded(300), u'x') + u'\n';
        else if (kind == 2)
            all += u"Grüße, 日本語, 😀 %1\n"_qs.arg(i);
        else if (kind == 3)
            all += u"\r%1% [====>   ]"_qs.arg(random.bounded(100));
        else if (kind == 4)
            all += u"\x1b[1;38;5;%1mbold\x1b[22m still coloured "_qs.arg(random.bounded(256));
        else
            all += u"[1] %1\n"_qs.arg(random.generate());
    }
    QStringList pieces;
    qsizetype at = 0;
    while (at < all.size()) {
        qsizetype length = 1 + random.bounded(400);
        if (at + length < all.size() && all[at + length - 1].isHighSurrogate())
            ++length;
        pieces.append(all.mid(at, length));
        at += length;
    }
    return pieces;
}

} // namespace

TEST(OutputChunks, Counting)
{
    EXPECT_EQ(OutputChunks::lineCount(QString()), 0);
    EXPECT_EQ(OutputChunks::lineCount(u"a\n"_qs), 1);
    EXPECT_EQ(OutputChunks::lineCount(u"a\nb"_qs), 2);
    const QByteArray euro = u"a€b"_qs.toUtf8(); // a E2 82 AC b
    EXPECT_EQ(OutputChunks::scalarBoundary(euro, 1), 1);
    EXPECT_EQ(OutputChunks::scalarBoundary(euro, 2), 4);
    EXPECT_EQ(OutputChunks::scalarBoundary(euro, 99), 5);
    const QString mixed = u"aé€😀\n\x1b[1m日本"_qs;
    EXPECT_EQ(OutputChunks::byteCount(mixed), utf8Size(mixed));
}

TEST(OutputChunks, LongLineIsCutOnAScalarBoundary)
{
    const QString ascii(10000, u'x');
    auto [frozen, live] = OutputChunks::split(ascii, 6000, 200);
    ASSERT_EQ(frozen.size(), 1);
    EXPECT_EQ(utf8Size(frozen[0]), 6000);
    EXPECT_EQ(live.size(), 4000);

    // With 2-byte characters behind one ASCII byte, byte 6000 falls inside a character: the cut
    // goes on to its end.
    QString accents = u'a' + QString(5000, u'é');
    std::tie(frozen, live) = OutputChunks::split(accents, 6000, 200);
    ASSERT_EQ(frozen.size(), 1);
    EXPECT_EQ(utf8Size(frozen[0]), 6001);
    EXPECT_EQ(frozen[0] + live, accents);

    // The same for a character outside the BMP: never between the halves of a surrogate pair.
    const QString emoji = u"ab"_qs + u"😀"_qs.repeated(3000);
    std::tie(frozen, live) = OutputChunks::split(emoji, 6000, 200);
    for (const QString &piece : frozen) {
        EXPECT_FALSE(piece.back().isHighSurrogate());
        EXPECT_LE(utf8Size(piece), 6003);
    }
    EXPECT_FALSE(live.front().isLowSurrogate());
    EXPECT_EQ(frozen.join(QString()) + live, emoji);
}

TEST(OutputChunks, CutsFallBehindLineFeeds)
{
    QString text;
    for (int i = 0; i < 100; ++i)
        text += u"line %1\n"_qs.arg(i, 3, 10, QLatin1Char('0')); // 9 bytes each
    EXPECT_TRUE(OutputChunks::split(text, 900, 100).first.isEmpty());
    auto [frozen, live] = OutputChunks::split(text, 100, 200);
    ASSERT_FALSE(frozen.isEmpty());
    for (const QString &piece : frozen)
        EXPECT_EQ(piece.size(), 99);
    EXPECT_EQ(frozen.join(QString()) + live, text);

    std::tie(frozen, live) = OutputChunks::split(text, 6000, 7);
    for (const QString &piece : frozen)
        EXPECT_EQ(OutputChunks::lineBreaks(piece), 7);
    EXPECT_LE(OutputChunks::lineBreaks(live), 7);
    // Limits below the minimum are raised to 16 bytes and 1 line.
    EXPECT_EQ(OutputChunks::split(QString(17, u'x'), 0, 0).first, QStringList({QString(16, u'x')}));
    EXPECT_EQ(OutputChunks::split(u"a\nb\nc"_qs, 100, 0).first, QStringList({u"a\n"_qs, u"b\n"_qs}));
}

TEST(OutputChunks, ColourOpenAtACutIsSetAgain)
{
    const QString text = u"\x1b[1;31m"_qs + QString(100, u'r') + u"\x1b[0m plain"_qs;
    const auto [frozen, live] = OutputChunks::split(text, 40, 10);
    ASSERT_GE(frozen.size(), 2);
    ANSIStyle boldRed;
    boldRed.bold = true;
    boldRed.foreground = ANSIStyle::Color::palette(1);
    // Every piece alone shows its text in the right style.
    for (qsizetype i = 1; i < frozen.size(); ++i) {
        EXPECT_TRUE(frozen[i].startsWith(ANSIText::sequence(boldRed)));
        const QList<ANSIRun> runs = ANSIText::parse(frozen[i]);
        ASSERT_EQ(runs.size(), 1);
        EXPECT_EQ(runs[0].style, boldRed);
    }
    EXPECT_EQ(ANSIText::parse(live).first().style, boldRed);
    EXPECT_EQ(ANSIText::parse(live).last(), ANSIRun({u" plain"_qs, {}}));
    EXPECT_EQ(ANSIText::strip(frozen.join(QString()) + live), ANSIText::strip(text));
}

TEST(OutputChunks, EscapeSequenceIsNotTornAtACut)
{
    const QString sgr = u"\x1b[1;38;2;255;128;0m"_qs;
    const QString text = QString(40, u'a') + sgr + QString(40, u'b');
    const auto [frozen, live] = OutputChunks::split(text, 50, 10);
    ASSERT_FALSE(frozen.isEmpty());
    EXPECT_EQ(frozen[0], QString(40, u'a'));
    EXPECT_TRUE(frozen.value(1, live).startsWith(sgr));

    // An ESC at the start of the piece is not a reason to cut there.
    const QString atStart = sgr + QString(60, u'c');
    const auto [frozen2, live2] = OutputChunks::split(atStart, 20, 10);
    ASSERT_FALSE(frozen2.isEmpty());
    EXPECT_EQ(utf8Size(frozen2[0]), 20);
}

TEST(OutputRun, KeepsTheHeadAndTheNewestTail)
{
    OutputRun run(100, 5, 4);
    QString all;
    for (int i = 0; i < 200; ++i) {
        all += u"line %1\n"_qs.arg(i);
        run.write(u"line %1\n"_qs.arg(i));
    }
    EXPECT_EQ(run.chunks().first().text, u"line 0\nline 1\nline 2\nline 3\nline 4\n"_qs);
    EXPECT_TRUE(all.endsWith(run.text().sliced(run.chunks().first().text.size())));
}

// On a random stream, whatever the cuts: the head stays, a frozen chunk keeps its id and text, and every
// line is either kept or counted as omitted.
TEST(OutputRun, RandomStreamsKeepTheirInvariants)
{
    for (quint32 seed : {1u, 2u, 3u}) {
        OutputRun run(300, 8, 6);
        qsizetype lines = 0;
        QList<OutputRun::Chunk> before;
        for (const QString &piece : outputStream(seed, 300)) {
            run.write(piece);
            lines += piece.count(u'\n');
            ASSERT_LE(run.chunks().size(), 6);
            ASSERT_EQ(run.omittedLines() + OutputChunks::lineBreaks(run.text()), lines);
            for (qsizetype i = 0; i + 1 < before.size(); ++i) {
                const auto same = [&](const OutputRun::Chunk &c) { return c.id == before[i].id; };
                const auto found = std::find_if(run.chunks().begin(), run.chunks().end(), same);
                if (found != run.chunks().end())
                    ASSERT_EQ(found->text, before[i].text);
                else
                    ASSERT_NE(i, 0); // the head stays
            }
            before = run.chunks();
        }
        EXPECT_GT(run.omittedChunks(), 0);
    }
}

TEST(OutputRun, EdgeCases)
{
    OutputRun run(16, 1, 0);
    EXPECT_EQ(run.maxChunks(), 2);
    EXPECT_TRUE(run.isEmpty());
    run.write(QString());
    EXPECT_FALSE(run.isEmpty());
    for (int i = 0; i < 10; ++i)
        run.write(u"%1\n"_qs.arg(i));
    EXPECT_EQ(run.chunks().size(), 2);
    EXPECT_EQ(run.chunks().first().text, u"0\n"_qs);
    EXPECT_EQ(run.omittedLines(), 9 - OutputChunks::lineBreaks(run.chunks().last().text));

    // A trailing incomplete escape sequence waits in the cursor and never shows.
    OutputRun progress;
    progress.write(u"10%\r20%\x1b[3"_qs);
    EXPECT_EQ(progress.text(), u"20%"_qs);
    EXPECT_EQ(progress.cursor().pending, u"\x1b[3"_qs);
    progress.write(u"2mok\n"_qs);
    EXPECT_EQ(progress.text(), u"20%\x1b[0;32mok\n"_qs);

    // Carriage-return updates rewrite the live chunk in place, however many there are.
    OutputRun bar(6000, 200, 20);
    for (int i = 0; i < 5000; ++i)
        bar.write(u"\r%1% [=====>   ]"_qs.arg(i % 100));
    EXPECT_EQ(bar.chunks().size(), 1);
    EXPECT_EQ(bar.text(), u"99% [=====>   ]"_qs);
}

TEST(HeadTailText, HeadFillsToItsLimitThenTheTail)
{
    HeadTailText text(20, 100);
    EXPECT_TRUE(text.isEmpty());
    text.append(QString());
    EXPECT_TRUE(text.isEmpty());
    const QString first = u"abcdefghijklmno"_qs;
    const QString second = u"PQRSTUVWXYZ0123"_qs;
    text.append(first);
    text.append(second);
    EXPECT_EQ(text.text(), first + second);
    EXPECT_FALSE(text.isTruncated());
    EXPECT_EQ(text.droppedBytes(), 0);

    // A byte order mark is output like any other character, at the start of the head or the tail.
    HeadTailText bom(4, 100);
    const QString withMarks = QChar(0xFEFF) + u"x"_qs + QChar(0xFEFF) + u"y"_qs;
    bom.append(withMarks);
    EXPECT_EQ(bom.text(), withMarks);
    bom.append(QString(300, u'z') + QChar(0xFEFF) + QString(97, u'z'));
    EXPECT_TRUE(bom.text().startsWith(QChar(0xFEFF) + u"x\n…"_qs));
    EXPECT_TRUE(bom.text().endsWith(u"…\n"_qs + QChar(0xFEFF) + QString(97, u'z')));

    // The head cut moves past a multi-byte character rather than into it.
    HeadTailText euro(5, 100);
    euro.append(u"aaaa€b"_qs);
    EXPECT_EQ(euro.text(), u"aaaa€b"_qs);
    euro.append(QString(300, u'z'));
    EXPECT_TRUE(euro.text().startsWith(u"aaaa€\n… "_qs));
}

TEST(HeadTailText, MarkerForWhatWasDropped)
{
    HeadTailText one(6, 10);
    one.append(u"head\n"_qs);
    one.append(u"dropped\n0123456789"_qs);
    EXPECT_TRUE(one.isTruncated());
    // "head\n" plus "d" fill the head, "ropped\n" is dropped.
    EXPECT_EQ(one.text(), u"head\nd\n… 1 line of output omitted …\n0123456789"_qs);

    HeadTailText many(3, 10);
    for (int i = 0; i < 1000; ++i)
        many.append(u"%1\n"_qs.arg(i % 10));
    EXPECT_EQ(many.text(), u"0\n1\n… 994 lines of output omitted …\n5\n6\n7\n8\n9\n"_qs);
}

TEST(HeadTailText, TailIsTrimmedOnlyNowAndThenButReportedExactly)
{
    HeadTailText text(0, 10);
    text.append(QString(15, u'x'));
    // Below twice the limit nothing was dropped yet; the text is trimmed all the same.
    EXPECT_EQ(text.droppedBytes(), 0);
    EXPECT_TRUE(text.isTruncated());
    EXPECT_EQ(text.text(), u"\n… 0 lines of output omitted …\n"_qs + QString(10, u'x'));
    // Never a torn character at the tail's start.
    HeadTailText accents(0, 11);
    accents.append(QString(30, u'é'));
    EXPECT_EQ(accents.text(), u"\n… 0 lines of output omitted …\n"_qs + QString(5, u'é'));
}

TEST(LineTail, KeepsTheLastNonBlankLines)
{
    LineTail tail(3);
    tail.append(u"one\n  \n\t\ntwo  \n   three\nfour"_qs);
    EXPECT_EQ(tail.lines(), QStringList({u"one"_qs, u"two"_qs, u"three"_qs}));
    // The unfinished line counts as the last line.
    EXPECT_EQ(tail.text(), u"two\nthree\nfour"_qs);
    tail.append(u"ty\nfive\n"_qs);
    EXPECT_EQ(tail.text(), u"three\nfourty\nfive"_qs);
    EXPECT_EQ(tail.lines().size(), 3);
    tail.removeAll();
    EXPECT_EQ(tail.text(), QString());
    tail.append(u"   "_qs);
    EXPECT_EQ(tail.text(), QString());
}

TEST(LineTail, LongLinesAreCut)
{
    LineTail tail(20);
    tail.append(QString(1000, u'a') + u'\n');
    EXPECT_EQ(tail.lines(), QStringList({QString(400, u'a')}));

    // 400 characters, not UTF-16 units: an emoji is never torn.
    const QString emoji = u"😀"_qs.repeated(500);
    tail.append(emoji + u'\n');
    EXPECT_EQ(tail.lines().last(), emoji.left(800));

    // A line that never ends stays small, and blanks inside it are kept up to the cut.
    LineTail endless(2);
    endless.append(u"  x"_qs + QString(500, u' '));
    EXPECT_EQ(endless.text(), u"x"_qs);
    for (int i = 0; i < 1000; ++i)
        endless.append(QString(1000, u' '));
    endless.append(u"y"_qs);
    EXPECT_EQ(endless.text(), u"x"_qs + QString(399, u' '));
    endless.append(u"\n"_qs);
    EXPECT_EQ(endless.lines(), QStringList({u"x"_qs + QString(399, u' ')}));
}
