// ConsoleText: carriage returns, backspaces and erases applied to the last stored line, escape
// sequences held back across writes, and styles kept through a replay.
#include "ANSIText.h"
#include "ConsoleText.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

namespace {

// Feeds the writes in order with one kept cursor.
QString written(const QStringList &writes, ConsoleText::Cursor &cursor, QString base = {})
{
    for (const QString &w : writes)
        base = ConsoleText::appending(w, std::move(base), cursor);
    return base;
}

QString written(const QStringList &writes, QString base = {})
{
    ConsoleText::Cursor cursor;
    return written(writes, cursor, std::move(base));
}

} // namespace

TEST(ConsoleText, PlainAppendKeepsEverything)
{
    ConsoleText::Cursor cursor;
    // No CR or BS: text, line feeds and escape sequences go in unchanged, also a cut-off one, and
    // the base is not read at all.
    const QString base = u"a\rb\x1b[31m"_qs;
    EXPECT_EQ(ConsoleText::appending(u"x\x1b[0m\ny\x1b[1;3"_qs, base, cursor),
              u"a\rb\x1b[31mx\x1b[0m\ny\x1b[1;3"_qs);
    EXPECT_EQ(cursor, ConsoleText::Cursor());
}

TEST(ConsoleText, CarriageReturnAndBackspaceOverwrite)
{
    ConsoleText::Cursor cursor;
    EXPECT_EQ(written({u"abc\rX"_qs}, cursor), u"Xbc"_qs);
    EXPECT_EQ(cursor.fromEnd, 2);
    EXPECT_EQ(written({u"YZW"_qs}, cursor, u"Xbc"_qs), u"XYZW"_qs);
    EXPECT_EQ(cursor.fromEnd, 0);

    EXPECT_EQ(written({u"abc\b\bX"_qs}), u"aXc"_qs);
    EXPECT_EQ(written({u"\b\b\bX"_qs}), u"X"_qs);
    EXPECT_EQ(written({u"50%\r\x1b[K60%"_qs}), u"60%"_qs);
    // A shorter text leaves the rest of the line, as on a terminal.
    EXPECT_EQ(written({u"long line"_qs, u"\rshort"_qs}), u"shortline"_qs);
    // Progress in separate writes, the usual way.
    EXPECT_EQ(written({u" 10% [=>  ]"_qs, u"\r 42% [==> ]"_qs, u"\r100% [====]\n"_qs, u"done"_qs}),
              u"100% [====]\ndone"_qs);

    // CR LF is a line break.
    cursor = {};
    EXPECT_EQ(written({u"abc\r\nX\r\n"_qs}, cursor), u"abc\nX\n"_qs);
    EXPECT_EQ(cursor.fromEnd, 0);
    // Split over two writes the CR returns first; the line is kept whole all the same.
    EXPECT_EQ(written({u"abc\r"_qs, u"\nX"_qs}), u"abc\nX"_qs);
    // But a CR then text overwrites, and a CR at the very end of the base is not a break.
    EXPECT_EQ(written({u"abc\r"_qs, u"X\n"_qs}), u"Xbc\n"_qs);
}

TEST(ConsoleText, OnlyTheLastLineIsReplayed)
{
    // The first part stays byte for byte, even with a lone CR or a style left open in it.
    const QString first = u"one\rtwo\x1b[31m\r\nthree\n"_qs;
    ConsoleText::Cursor cursor;
    EXPECT_EQ(written({u"\rXY"_qs}, cursor, first + u"last"_qs), first + u"XYst"_qs);
    EXPECT_EQ(cursor.fromEnd, 2);
    // A cursor that claims more columns than the line has stops at its start.
    cursor = {1000, {}};
    EXPECT_EQ(written({u"Z"_qs}, cursor, first + u"last"_qs), first + u"Zast"_qs);
}

TEST(ConsoleText, GraphemeClustersAreCharacters)
{
    ConsoleText::Cursor cursor;
    // e + combining acute, a thumbs-up with a skin tone, a flag: one column each.
    const QString wide = u"e\u0301👍🏽🇩🇪x"_qs;
    EXPECT_EQ(written({wide + u"\b\b\bY"_qs}, cursor), u"e\u0301Y🇩🇪x"_qs);
    EXPECT_EQ(cursor.fromEnd, 2);
    EXPECT_EQ(written({wide + u"\rZ"_qs}), u"Z👍🏽🇩🇪x"_qs);
    // Replayed clusters count the same way.
    cursor = {4, {}};
    EXPECT_EQ(written({u"A"_qs}, cursor, wide), u"A👍🏽🇩🇪x"_qs);
    EXPECT_EQ(cursor.fromEnd, 3);
}

TEST(ConsoleText, EscapeHeldBackAcrossWrites)
{
    ConsoleText::Cursor cursor;
    QString text = written({u"x\r\x1b[1;3"_qs}, cursor);
    EXPECT_EQ(text, u"x"_qs);
    EXPECT_EQ(cursor.pending, u"\x1b[1;3"_qs);
    text = written({u"1mred"_qs}, cursor, text);
    EXPECT_EQ(text, u"\x1b[0;1;31mred"_qs);
    EXPECT_TRUE(cursor.pending.isEmpty());

    // An OSC cut off in one write and finished in the next.
    cursor = {};
    text = written({u"x\r\x1b]8;;http://e"_qs, u"xample\x07link"_qs}, cursor);
    EXPECT_EQ(text, u"link"_qs);

    // An escape cut off at the end of the base (stored by a plain append) is finished by the next write.
    cursor = {};
    text = written({u"ab\x1b[3"_qs, u"1mX\r"_qs}, cursor);
    EXPECT_EQ(text, u"ab\x1b[0;31mX"_qs);
    EXPECT_EQ(cursor.fromEnd, 3);
}

TEST(ConsoleText, PendingStaysBounded)
{
    // An OSC that never ends must neither grow the cursor nor be re-read without end.
    ConsoleText::Cursor cursor;
    QString text = written({u"x\r\x1b]"_qs}, cursor);
    const QString junk(1000, u'j');
    for (int i = 0; i < 20; ++i) {
        text = written({junk}, cursor, text);
        ASSERT_LE(cursor.pending.size(), ConsoleText::maxPending);
    }
    // Once dropped, the rest of it is ordinary text.
    EXPECT_TRUE(text.endsWith(junk));
}

TEST(ConsoleText, EraseModesAndOtherEscapes)
{
    EXPECT_EQ(written({u"abcdef\b\b\b\x1b[K"_qs}), u"abc"_qs);
    EXPECT_EQ(written({u"abcdef\b\b\b\x1b[0K"_qs}), u"abc"_qs);
    EXPECT_EQ(written({u"abcdef\b\b\b\x1b[1K"_qs}), u"    ef"_qs);
    // Mode 1 with the cursor at the end blanks the whole line and keeps its length.
    EXPECT_EQ(written({u"abc\x1b[1K\r"_qs}), u"   "_qs);
    ConsoleText::Cursor cursor;
    EXPECT_EQ(written({u"abcdef\b\b\x1b[2KX"_qs}, cursor), u"    X"_qs);
    EXPECT_EQ(cursor.fromEnd, 0);
    // Unknown modes and non-numeric parameters do nothing; unparsable numbers count as mode 0.
    EXPECT_EQ(written({u"abc\r\x1b[3K"_qs}), u"abc"_qs);
    EXPECT_EQ(written({u"abc\r\x1b[?1K"_qs}), u"abc"_qs);
    EXPECT_EQ(written({u"abc\b\x1b[1;2K"_qs}), u"ab"_qs);

    // A non-final after CSI parameters is an ordinary character; other finals and escapes do nothing.
    EXPECT_EQ(written({u"ab\r\x1b[12é"_qs}), u"éb"_qs);
    EXPECT_EQ(written({u"abc\r\x1b[2C\x1b(B\x1b]0;title\x1b\\X"_qs}), u"Xbc"_qs);
    // An OSC ended by a line break leaves the break in place.
    EXPECT_EQ(written({u"abc\r\x1b]0;title\nX"_qs}), u"abc\nX"_qs);
}

TEST(ConsoleText, StylesSurviveOverwriteAndReplay)
{
    // Overwritten characters take the pen; the pen left open at the end is written last.
    EXPECT_EQ(written({u"\x1b[31mred\r\x1b[32mg"_qs}), u"\x1b[0;32mg\x1b[0;31med\x1b[0;32m"_qs);
    // Erased cells are in the default style.
    EXPECT_EQ(written({u"\x1b[31mabc\x1b[1K\r"_qs}), u"   \x1b[0;31m"_qs);
    // A new line starts in the pen, so it needs no sequence of its own.
    EXPECT_EQ(written({u"\x1b[31mab\ncd\r"_qs}), u"\x1b[0;31mab\ncd"_qs);
    // A replayed line turns its stored sequences into per-character styles.
    EXPECT_EQ(written({u"\rX"_qs}, u"\x1b[1mbold\x1b[0m tail"_qs), u"X\x1b[0;1mold\x1b[0m tail"_qs);
    // What the display reads is what a terminal would show.
    const QString progress = written({u"\x1b[32m 10%\x1b[0m"_qs, u"\r\x1b[32m 99%\x1b[0m"_qs, u"\n"_qs});
    const QList<ANSIRun> runs = ANSIText::parse(progress);
    ASSERT_EQ(runs.size(), 2);
    EXPECT_EQ(runs[0].text, u" 99%"_qs);
    EXPECT_EQ(runs[0].style.foreground, ANSIStyle::Color::palette(2));
    EXPECT_EQ(runs[1].text, u"\n"_qs);
}
