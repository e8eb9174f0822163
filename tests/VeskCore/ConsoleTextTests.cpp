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
    const QString base = QStringLiteral("a\rb\x1b[31m");
    EXPECT_EQ(ConsoleText::appending(QStringLiteral("x\x1b[0m\ny\x1b[1;3"), base, cursor),
              QStringLiteral("a\rb\x1b[31mx\x1b[0m\ny\x1b[1;3"));
    EXPECT_EQ(cursor, ConsoleText::Cursor());
}

TEST(ConsoleText, CarriageReturnAndBackspaceOverwrite)
{
    ConsoleText::Cursor cursor;
    EXPECT_EQ(written({QStringLiteral("abc\rX")}, cursor), QStringLiteral("Xbc"));
    EXPECT_EQ(cursor.fromEnd, 2);
    EXPECT_EQ(written({QStringLiteral("YZW")}, cursor, QStringLiteral("Xbc")), QStringLiteral("XYZW"));
    EXPECT_EQ(cursor.fromEnd, 0);

    EXPECT_EQ(written({QStringLiteral("abc\b\bX")}), QStringLiteral("aXc"));
    EXPECT_EQ(written({QStringLiteral("\b\b\bX")}), QStringLiteral("X"));
    EXPECT_EQ(written({QStringLiteral("50%\r\x1b[K60%")}), QStringLiteral("60%"));
    // A shorter text leaves the rest of the line, as on a terminal.
    EXPECT_EQ(written({QStringLiteral("long line"), QStringLiteral("\rshort")}), QStringLiteral("shortline"));
    // Progress in separate writes, the usual way.
    EXPECT_EQ(written({QStringLiteral(" 10% [=>  ]"), QStringLiteral("\r 42% [==> ]"),
                       QStringLiteral("\r100% [====]\n"), QStringLiteral("done")}),
              QStringLiteral("100% [====]\ndone"));
}

TEST(ConsoleText, OnlyTheLastLineIsReplayed)
{
    // The first part stays byte for byte, even with a lone CR or a style left open in it.
    const QString first = QStringLiteral("one\rtwo\x1b[31m\r\nthree\n");
    ConsoleText::Cursor cursor;
    EXPECT_EQ(written({QStringLiteral("\rXY")}, cursor, first + QStringLiteral("last")),
              first + QStringLiteral("XYst"));
    EXPECT_EQ(cursor.fromEnd, 2);
    // A cursor that claims more columns than the line has stops at its start.
    cursor = {1000, {}};
    EXPECT_EQ(written({QStringLiteral("Z")}, cursor, first + QStringLiteral("last")),
              first + QStringLiteral("Zast"));
}

TEST(ConsoleText, CarriageReturnLineFeedIsALineBreak)
{
    ConsoleText::Cursor cursor;
    EXPECT_EQ(written({QStringLiteral("abc\r\nX\r\n")}, cursor), QStringLiteral("abc\nX\n"));
    EXPECT_EQ(cursor.fromEnd, 0);
    // Split over two writes the CR returns first; the line is kept whole all the same.
    EXPECT_EQ(written({QStringLiteral("abc\r"), QStringLiteral("\nX")}), QStringLiteral("abc\nX"));
    // But a CR then text overwrites, and a CR at the very end of the base is not a break.
    EXPECT_EQ(written({QStringLiteral("abc\r"), QStringLiteral("X\n")}), QStringLiteral("Xbc\n"));
}

TEST(ConsoleText, GraphemeClustersAreCharacters)
{
    ConsoleText::Cursor cursor;
    // e + combining acute, a thumbs-up with a skin tone, a flag: one column each.
    const QString wide = QStringLiteral("e\u0301👍🏽🇩🇪x");
    EXPECT_EQ(written({wide + QStringLiteral("\b\b\bY")}, cursor), QStringLiteral("e\u0301Y🇩🇪x"));
    EXPECT_EQ(cursor.fromEnd, 2);
    EXPECT_EQ(written({wide + QStringLiteral("\rZ")}), QStringLiteral("Z👍🏽🇩🇪x"));
    // Replayed clusters count the same way.
    cursor = {4, {}};
    EXPECT_EQ(written({QStringLiteral("A")}, cursor, wide), QStringLiteral("A👍🏽🇩🇪x"));
    EXPECT_EQ(cursor.fromEnd, 3);
}

TEST(ConsoleText, EscapeHeldBackAcrossWrites)
{
    ConsoleText::Cursor cursor;
    QString text = written({QStringLiteral("x\r\x1b[1;3")}, cursor);
    EXPECT_EQ(text, QStringLiteral("x"));
    EXPECT_EQ(cursor.pending, QStringLiteral("\x1b[1;3"));
    text = written({QStringLiteral("1mred")}, cursor, text);
    EXPECT_EQ(text, QStringLiteral("\x1b[0;1;31mred"));
    EXPECT_TRUE(cursor.pending.isEmpty());

    // An OSC cut off in one write and finished in the next.
    cursor = {};
    text = written({QStringLiteral("x\r\x1b]8;;http://e"), QStringLiteral("xample\x07link")}, cursor);
    EXPECT_EQ(text, QStringLiteral("link"));

    // An escape cut off at the end of the base (stored by a plain append) is finished by the next write.
    cursor = {};
    text = written({QStringLiteral("ab\x1b[3"), QStringLiteral("1mX\r")}, cursor);
    EXPECT_EQ(text, QStringLiteral("ab\x1b[0;31mX"));
    EXPECT_EQ(cursor.fromEnd, 3);
}

TEST(ConsoleText, PendingStaysBounded)
{
    // An OSC that never ends must neither grow the cursor nor be re-read without end.
    ConsoleText::Cursor cursor;
    QString text = written({QStringLiteral("x\r\x1b]")}, cursor);
    const QString junk(1000, u'j');
    for (int i = 0; i < 20; ++i) {
        text = written({junk}, cursor, text);
        ASSERT_LE(cursor.pending.size(), ConsoleText::maxPending);
    }
    // Once dropped, the rest of it is ordinary text.
    EXPECT_TRUE(text.endsWith(junk));
}

TEST(ConsoleText, OtherEscapesInALine)
{
    // A non-final after CSI parameters is an ordinary character; other finals and escapes do nothing.
    EXPECT_EQ(written({QStringLiteral("ab\r\x1b[12é")}), QStringLiteral("éb"));
    EXPECT_EQ(written({QStringLiteral("abc\r\x1b[2C\x1b(B\x1b]0;title\x1b\\X")}), QStringLiteral("Xbc"));
    // An OSC ended by a line break leaves the break in place.
    EXPECT_EQ(written({QStringLiteral("abc\r\x1b]0;title\nX")}), QStringLiteral("abc\nX"));
}

TEST(ConsoleText, EraseModes)
{
    EXPECT_EQ(written({QStringLiteral("abcdef\b\b\b\x1b[K")}), QStringLiteral("abc"));
    EXPECT_EQ(written({QStringLiteral("abcdef\b\b\b\x1b[0K")}), QStringLiteral("abc"));
    EXPECT_EQ(written({QStringLiteral("abcdef\b\b\b\x1b[1K")}), QStringLiteral("    ef"));
    // Mode 1 with the cursor at the end blanks the whole line and keeps its length.
    EXPECT_EQ(written({QStringLiteral("abc\x1b[1K\r")}), QStringLiteral("   "));
    ConsoleText::Cursor cursor;
    EXPECT_EQ(written({QStringLiteral("abcdef\b\b\x1b[2KX")}, cursor), QStringLiteral("    X"));
    EXPECT_EQ(cursor.fromEnd, 0);
    // Unknown modes and non-numeric parameters do nothing; unparsable numbers count as mode 0.
    EXPECT_EQ(written({QStringLiteral("abc\r\x1b[3K")}), QStringLiteral("abc"));
    EXPECT_EQ(written({QStringLiteral("abc\r\x1b[?1K")}), QStringLiteral("abc"));
    EXPECT_EQ(written({QStringLiteral("abc\b\x1b[1;2K")}), QStringLiteral("ab"));
}

TEST(ConsoleText, StylesSurviveOverwriteAndReplay)
{
    // Overwritten characters take the pen; the pen left open at the end is written last.
    EXPECT_EQ(written({QStringLiteral("\x1b[31mred\r\x1b[32mg")}),
              QStringLiteral("\x1b[0;32mg\x1b[0;31med\x1b[0;32m"));
    // Erased cells are in the default style.
    EXPECT_EQ(written({QStringLiteral("\x1b[31mabc\x1b[1K\r")}), QStringLiteral("   \x1b[0;31m"));
    // A new line starts in the pen, so it needs no sequence of its own.
    EXPECT_EQ(written({QStringLiteral("\x1b[31mab\ncd\r")}), QStringLiteral("\x1b[0;31mab\ncd"));
    // A replayed line turns its stored sequences into per-character styles.
    EXPECT_EQ(written({QStringLiteral("\rX")}, QStringLiteral("\x1b[1mbold\x1b[0m tail")),
              QStringLiteral("X\x1b[0;1mold\x1b[0m tail"));
    // What the display reads is what a terminal would show.
    const QString progress = written({QStringLiteral("\x1b[32m 10%\x1b[0m"),
                                      QStringLiteral("\r\x1b[32m 99%\x1b[0m"), QStringLiteral("\n")});
    const QList<ANSIRun> runs = ANSIText::parse(progress);
    ASSERT_EQ(runs.size(), 2);
    EXPECT_EQ(runs[0].text, QStringLiteral(" 99%"));
    EXPECT_EQ(runs[0].style.foreground, ANSIStyle::Color::palette(2));
    EXPECT_EQ(runs[1].text, QStringLiteral("\n"));
}
