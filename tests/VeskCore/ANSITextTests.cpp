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
    const ANSIStyle all = applied(u"1;2;3;4;31;42"_qs);
    EXPECT_TRUE(all.bold && all.dim && all.italic && all.underline);
    EXPECT_EQ(all.foreground, Color::palette(1));
    EXPECT_EQ(all.background, Color::palette(2));
    // 22 clears bold and dim together; 23 and 24 one flag each; values outside the table do nothing.
    const ANSIStyle cleared = applied(u"22;23;5;50;98;108"_qs, all);
    EXPECT_FALSE(cleared.bold || cleared.dim || cleared.italic);
    EXPECT_TRUE(cleared.underline);
    EXPECT_EQ(applied(u"24;39;49"_qs, all), applied(u"1;2;3"_qs));
    // Bright colours are palette 8 to 15.
    EXPECT_EQ(applied(u"97"_qs).foreground, Color::palette(15));
    EXPECT_EQ(applied(u"100"_qs).background, Color::palette(8));
    // Empty text and empty pieces count as 0, a reset: ";1" resets, then sets bold.
    EXPECT_TRUE(applied(QString(), all).isDefault());
    EXPECT_EQ(applied(u";1"_qs, all), applied(u"1"_qs));
}

TEST(ANSIStyle, ExtendedColors)
{
    EXPECT_EQ(applied(u"38;5;208"_qs).foreground, Color::palette(208));
    EXPECT_EQ(applied(u"48;2;10;20;30"_qs).background, Color::rgb(10, 20, 30));
    // A component above 255 is clamped, also a huge one.
    EXPECT_EQ(applied(u"38;2;300;99999999999999;7"_qs).foreground, Color::rgb(255, 255, 7));
    // A palette value of 256 is skipped without effect, and the walk goes on behind it.
    const ANSIStyle skipped = applied(u"38;5;256;1"_qs, withForeground(Color::palette(4)));
    EXPECT_EQ(skipped.foreground, Color::palette(4));
    EXPECT_TRUE(skipped.bold);
    // Too few values: the 38 alone is passed over and the rest read as ordinary values.
    EXPECT_EQ(applied(u"38;2;1;3"_qs), applied(u"2;1;3"_qs));
    EXPECT_TRUE(applied(u"38;5"_qs).isDefault());
    EXPECT_EQ(applied(u"38;5;1;2"_qs), applied(u"31;2"_qs));
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
                const QString text = u"x"_qs + ANSIText::sequence(s);
                ASSERT_EQ(ANSIText::endStyle(text), s) << ANSIText::sequence(s).mid(1).toStdString();
            }
        }
    }
}

TEST(ANSIText, ParseRuns)
{
    EXPECT_TRUE(ANSIText::parse(QString()).isEmpty());
    EXPECT_EQ(ANSIText::parse(u"plain\ttext\n"_qs), QList<ANSIRun>({{u"plain\ttext\n"_qs, {}}}));

    const ANSIStyle red = withForeground(Color::palette(1));
    EXPECT_EQ(ANSIText::parse(u"a\x1b[31mb\x1b[0mc"_qs),
              QList<ANSIRun>({{u"a"_qs, {}}, {u"b"_qs, red}, {u"c"_qs, {}}}));
    // Runs of equal style merge, also across sequences that set the same style again; a style with
    // no text behind it gives no run.
    EXPECT_EQ(ANSIText::parse(u"\x1b[31ma\x1b[0;31mb\x1b[1m\x1b[22m\x1b[32m"_qs),
              QList<ANSIRun>({{u"ab"_qs, red}}));
}

TEST(ANSIText, SequencesThatAreDroppedAlsoWhenCutOff)
{
    const auto strip = [](const char *text) { return ANSIText::strip(QString::fromUtf8(text)); };
    // Non-SGR CSI, SGR with private parameter bytes, other escapes, OSC ended by BEL, ST, or a line break.
    EXPECT_EQ(strip("a\x1b[2Jb\x1b[?25hc\x1b[1;2Hd"), u"abcd"_qs);
    EXPECT_EQ(strip("\x1b[?1mx"), u"x"_qs);
    EXPECT_TRUE(ANSIText::endStyle(u"\x1b[?1mx"_qs).isDefault());
    EXPECT_EQ(strip("\x1b(Bx\x1b"
                    "7y\x1b=z"),
              u"xyz"_qs);
    EXPECT_EQ(strip("\x1b]8;;http://x\x07link\x1b]8;;\x07"), u"link"_qs);
    EXPECT_EQ(strip("\x1b]0;title\x1b\\after"), u"after"_qs);
    EXPECT_EQ(strip("\x1b]0;title\nafter"), u"\nafter"_qs);
    EXPECT_EQ(strip("\x1b]0;title\rafter"), u"\rafter"_qs);
    // A byte that is not a final stays as text; so does what follows a lone ESC that takes nothing.
    EXPECT_EQ(strip("\x1b[12\nx"), u"\nx"_qs);
    EXPECT_EQ(strip("a\x1b\nb"), u"a\nb"_qs);
    EXPECT_EQ(strip("a\x1b\x1b[31mb"), u"ab"_qs);
    EXPECT_EQ(ANSIText::parse(u"a\x1b\x1b[31mb"_qs).last().style, withForeground(Color::palette(1)));

    // A sequence cut off at the end is dropped with the rest.
    EXPECT_EQ(ANSIText::strip(u"abc\x1b"_qs), u"abc"_qs);
    EXPECT_EQ(ANSIText::parse(u"abc\x1b"_qs), QList<ANSIRun>({{u"abc"_qs, {}}}));
    EXPECT_EQ(ANSIText::strip(u"abc\x1b[31"_qs), u"abc"_qs);
    EXPECT_EQ(ANSIText::strip(u"abc\x1b]8;;http://example.org/"_qs), u"abc"_qs);
    EXPECT_EQ(ANSIText::strip(u"abc\x1b]8;;x\x1b"_qs), u"abc"_qs);
    EXPECT_EQ(ANSIText::strip(u"abc\x1b( "_qs), u"abc"_qs);
    // A cut-off SGR does not count for the end style either; one behind the last character does.
    EXPECT_TRUE(ANSIText::endStyle(u"abc\x1b[31"_qs).isDefault());
    EXPECT_EQ(ANSIText::endStyle(u"\x1b[1mx\x1b[22;31m"_qs), withForeground(Color::palette(1)));
    // A surrogate where a final byte is expected is not a final: it stays as text.
    EXPECT_EQ(ANSIText::strip(u"\x1b[1😀"_qs), u"😀"_qs);
}
