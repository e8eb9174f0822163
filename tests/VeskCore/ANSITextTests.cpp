// ANSIStyle and ANSIText: SGR parameters, the sequence written for a style, and reading stored text
// back into runs.
#include "ANSIText.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

namespace {

using Color = ANSIStyle::Color;

ANSIStyle applied(const QString &parameters, ANSIStyle start = {})
{
    start.applySGR(parameters);
    return start;
}

ANSIStyle withForeground(Color c)
{
    ANSIStyle s;
    s.foreground = c;
    return s;
}

} // namespace

TEST(ANSIStyle, SGRParameters)
{
    const ANSIStyle all = applied(QStringLiteral("1;2;3;4;31;42"));
    EXPECT_TRUE(all.bold && all.dim && all.italic && all.underline);
    EXPECT_EQ(all.foreground, Color::palette(1));
    EXPECT_EQ(all.background, Color::palette(2));
    // 22 clears bold and dim together; 23 and 24 one flag each; values outside the table do nothing.
    const ANSIStyle cleared = applied(QStringLiteral("22;23;5;50;98;108"), all);
    EXPECT_FALSE(cleared.bold || cleared.dim || cleared.italic);
    EXPECT_TRUE(cleared.underline);
    EXPECT_EQ(applied(QStringLiteral("24;39;49"), all), applied(QStringLiteral("1;2;3")));
    // Bright colours are palette 8 to 15.
    EXPECT_EQ(applied(QStringLiteral("97")).foreground, Color::palette(15));
    EXPECT_EQ(applied(QStringLiteral("100")).background, Color::palette(8));
    // Empty text and empty pieces count as 0, a reset: ";1" resets, then sets bold.
    EXPECT_TRUE(applied(QString(), all).isDefault());
    EXPECT_EQ(applied(QStringLiteral(";1"), all), applied(QStringLiteral("1")));
}

TEST(ANSIStyle, ExtendedColors)
{
    EXPECT_EQ(applied(QStringLiteral("38;5;208")).foreground, Color::palette(208));
    EXPECT_EQ(applied(QStringLiteral("48;2;10;20;30")).background, Color::rgb(10, 20, 30));
    // A component above 255 is clamped, also a huge one.
    EXPECT_EQ(applied(QStringLiteral("38;2;300;99999999999999;7")).foreground, Color::rgb(255, 255, 7));
    // A palette value of 256 is skipped without effect, and the walk goes on behind it.
    const ANSIStyle skipped = applied(QStringLiteral("38;5;256;1"), withForeground(Color::palette(4)));
    EXPECT_EQ(skipped.foreground, Color::palette(4));
    EXPECT_TRUE(skipped.bold);
    // Too few values: the 38 alone is passed over and the rest read as ordinary values.
    EXPECT_EQ(applied(QStringLiteral("38;2;1;3")), applied(QStringLiteral("2;1;3")));
    EXPECT_TRUE(applied(QStringLiteral("38;5")).isDefault());
    EXPECT_EQ(applied(QStringLiteral("38;5;1;2")), applied(QStringLiteral("31;2")));
}

TEST(ANSIText, SequenceForStyle)
{
    EXPECT_EQ(ANSIText::sequence({}), QStringLiteral("\x1b[0m"));
    ANSIStyle s;
    s.bold = s.dim = s.italic = s.underline = true;
    s.foreground = Color::palette(1);
    s.background = Color::palette(9);
    EXPECT_EQ(ANSIText::sequence(s), QStringLiteral("\x1b[0;1;2;3;4;31;101m"));
    s = {};
    s.foreground = Color::palette(200);
    s.background = Color::rgb(1, 2, 255);
    EXPECT_EQ(ANSIText::sequence(s), QStringLiteral("\x1b[0;38;5;200;48;2;1;2;255m"));
}

TEST(ANSIText, SequenceRoundTripsThroughEndStyle)
{
    const QList<std::optional<Color>> colors = {
        std::nullopt,        Color::palette(0),   Color::palette(7),
        Color::palette(8),   Color::palette(15),  Color::palette(16),
        Color::palette(255), Color::rgb(0, 0, 0), Color::rgb(255, 128, 1)};
    for (int flags = 0; flags < 16; ++flags) {
        for (const auto &fg : colors) {
            for (const auto &bg : colors) {
                ANSIStyle s;
                s.bold = flags & 1;
                s.dim = flags & 2;
                s.italic = flags & 4;
                s.underline = flags & 8;
                s.foreground = fg;
                s.background = bg;
                const QString text = QStringLiteral("x") + ANSIText::sequence(s);
                ASSERT_EQ(ANSIText::endStyle(text), s) << ANSIText::sequence(s).mid(1).toStdString();
            }
        }
    }
}

TEST(ANSIText, ParseRuns)
{
    EXPECT_TRUE(ANSIText::parse(QString()).isEmpty());
    EXPECT_EQ(ANSIText::parse(QStringLiteral("plain\ttext\n")),
              QList<ANSIRun>({{QStringLiteral("plain\ttext\n"), {}}}));

    const ANSIStyle red = withForeground(Color::palette(1));
    EXPECT_EQ(
        ANSIText::parse(QStringLiteral("a\x1b[31mb\x1b[0mc")),
        QList<ANSIRun>({{QStringLiteral("a"), {}}, {QStringLiteral("b"), red}, {QStringLiteral("c"), {}}}));
    // Runs of equal style merge, also across sequences that set the same style again; a style with
    // no text behind it gives no run.
    EXPECT_EQ(ANSIText::parse(QStringLiteral("\x1b[31ma\x1b[0;31mb\x1b[1m\x1b[22m\x1b[32m")),
              QList<ANSIRun>({{QStringLiteral("ab"), red}}));
}

TEST(ANSIText, SequencesThatAreDropped)
{
    const auto strip = [](const char *text) { return ANSIText::strip(QString::fromUtf8(text)); };
    // Non-SGR CSI, SGR with private parameter bytes, other escapes, OSC ended by BEL, ST, or a line break.
    EXPECT_EQ(strip("a\x1b[2Jb\x1b[?25hc\x1b[1;2Hd"), QStringLiteral("abcd"));
    EXPECT_EQ(strip("\x1b[?1mx"), QStringLiteral("x"));
    EXPECT_TRUE(ANSIText::endStyle(QStringLiteral("\x1b[?1mx")).isDefault());
    EXPECT_EQ(strip("\x1b(Bx\x1b"
                    "7y\x1b=z"),
              QStringLiteral("xyz"));
    EXPECT_EQ(strip("\x1b]8;;http://x\x07link\x1b]8;;\x07"), QStringLiteral("link"));
    EXPECT_EQ(strip("\x1b]0;title\x1b\\after"), QStringLiteral("after"));
    EXPECT_EQ(strip("\x1b]0;title\nafter"), QStringLiteral("\nafter"));
    EXPECT_EQ(strip("\x1b]0;title\rafter"), QStringLiteral("\rafter"));
    // A byte that is not a final stays as text; so does what follows a lone ESC that takes nothing.
    EXPECT_EQ(strip("\x1b[12\nx"), QStringLiteral("\nx"));
    EXPECT_EQ(strip("a\x1b\nb"), QStringLiteral("a\nb"));
    EXPECT_EQ(strip("a\x1b\x1b[31mb"), QStringLiteral("ab"));
    EXPECT_EQ(ANSIText::parse(QStringLiteral("a\x1b\x1b[31mb")).last().style,
              withForeground(Color::palette(1)));
}

TEST(ANSIText, SequenceCutOffAtTheEndIsDroppedWithTheRest)
{
    EXPECT_EQ(ANSIText::strip(QStringLiteral("abc\x1b")), QStringLiteral("abc"));
    EXPECT_EQ(ANSIText::parse(QStringLiteral("abc\x1b")), QList<ANSIRun>({{QStringLiteral("abc"), {}}}));
    EXPECT_EQ(ANSIText::strip(QStringLiteral("abc\x1b[31")), QStringLiteral("abc"));
    EXPECT_EQ(ANSIText::strip(QStringLiteral("abc\x1b]8;;http://example.org/")), QStringLiteral("abc"));
    EXPECT_EQ(ANSIText::strip(QStringLiteral("abc\x1b]8;;x\x1b")), QStringLiteral("abc"));
    EXPECT_EQ(ANSIText::strip(QStringLiteral("abc\x1b( ")), QStringLiteral("abc"));
    // A cut-off SGR does not count for the end style either; one behind the last character does.
    EXPECT_TRUE(ANSIText::endStyle(QStringLiteral("abc\x1b[31")).isDefault());
    EXPECT_EQ(ANSIText::endStyle(QStringLiteral("\x1b[1mx\x1b[22;31m")), withForeground(Color::palette(1)));
    // A surrogate where a final byte is expected is not a final: it stays as text.
    EXPECT_EQ(ANSIText::strip(QStringLiteral("\x1b[1😀")), QStringLiteral("😀"));
}
