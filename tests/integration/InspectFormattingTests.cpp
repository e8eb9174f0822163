// The kernel lays out the texts of inspect itself for plain frames and vectors; these tests hold
// them to R's own str(), print(summary()) and print(head()) byte for byte, against a real R, for
// every data frame of R's datasets package and vectors of every plain kind, under the options that
// change the layout.
#include "LiveSession.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

const QString Split = u"~~vesk-split~~"_qs;

// R's own three texts of `expr`, printed by the console.
QStringList rsOwnTexts(LiveSession &k, const QString &expr)
{
    const ExecResult result =
        k.run(u"local({ x <- %1\n"
              "  cat(capture.output(utils::str(x)), \"%2\",\n"
              "      capture.output(print(summary(x))), \"%2\",\n"
              "      capture.output(print(utils::head(x, 6L))), sep = \"\\n\") })"_qs.arg(expr, Split));
    // The console ends output with a line break.
    return result.output.chopped(1).split(u'\n' + Split + u'\n');
}

std::string text(const JSONValue &value)
{
    return value.stringValue().value_or(u"(none)"_qs).toStdString();
}

} // namespace

TEST(InspectFormatting, TextsEqualRsOwnForTheDatasetsFramesAndPlainVectorsUnderEachLayout)
{
    LiveSession k;
    ASSERT_TRUE(k.start());
    ASSERT_TRUE(k.run(QStringLiteral(
                          "dbl <- c(1.5, NA, Inf, -Inf, NaN, 0, -2.25, 1e-300)\n"
                          "huge <- c(123456789012, 1e15, 2.5e20, 3); tiny <- c(1e-10, 2.3e-12, 5e-5, 0.1)\n"
                          "thirds <- c(-0, 1/3, 2/3, 100, 1e5, 123456.7); steps <- seq(0, 1, by = 0.001)\n"
                          "ints <- c(1L, NA, -1000000L, 42L, 7L, 8L, 9L, 1000000000L)\n"
                          "flags <- c(TRUE, FALSE, NA, TRUE, TRUE, FALSE, TRUE)\n"
                          "words <- c(\"a\", NA, \"gr\\u00fc\\u00dfe\", \"\\u65e5\\u672c\\u8a9e\", \"x y\", "
                          "\"a longer one\", \"z\")\n"
                          "levels3 <- factor(c(\"b\", \"a\", NA, \"c\", \"a\")); days <- "
                          "as.Date(c(\"2024-01-31\", NA, \"1999-12-31\"))\n"
                          "scattered <- local({ set.seed(2); rnorm(50) * 10^runif(50, -3, 6) })\n"
                          "sparse <- c(0.0001234, 0.0002, NA, NA, NA, NA, NA, 0.00015); manyNA <- c(rep(NA, "
                          "1e5), 1.5, 2)\n"
                          "kinds <- data.frame(d = as.Date(\"2020-01-01\") + c(0, 40, NA), s = "
                          "c(\"\\u00e4\", NA, \"bb\"),\n"
                          "                    l = c(TRUE, NA, FALSE), f = factor(c(\"u\", \"v\", NA)), i = "
                          "c(1L, NA, 3L),\n"
                          "                    x = c(1e-20, 1, 1e20), y = c(0.5, -0.25, NA))"))
                    .ok);
    QStringList cases =
        k.run(QStringLiteral("cat(Filter(function(n) is.data.frame(get(n, \"package:datasets\")),\n"
                             "           ls(\"package:datasets\")), sep = \"\\n\")"))
            .output.trimmed()
            .split(u'\n');
    for (const char *frame : {"mtcars", "iris", "airquality", "ToothGrowth", "CO2", "esoph", "warpbreaks"})
        ASSERT_TRUE(cases.contains(QLatin1String(frame))) << frame;
    cases << u"dbl"_qs << u"huge"_qs << u"tiny"_qs << u"thirds"_qs << u"steps"_qs << u"ints"_qs << u"flags"_qs
          << u"words"_qs << u"levels3"_qs << u"days"_qs << u"scattered"_qs << u"sparse"_qs << u"manyNA"_qs
          << u"kinds"_qs;

    for (const char *options : {"digits = 7, width = 80", "digits = 3", "width = 40",
                                "digits = 3, width = 40", "digits = 10, scipen = 4, OutDec = \",\""}) {
        SCOPED_TRACE(options);
        ASSERT_TRUE(k.run(u"options(digits = 7, width = 80, scipen = 0, OutDec = \".\"); options(%1)"_qs.arg(
                              QLatin1String(options)))
                        .ok);
        for (const QString &name : cases) {
            SCOPED_TRACE(name.toStdString());
            const QStringList expected = rsOwnTexts(k, name);
            ASSERT_EQ(expected.size(), 3);
            const RRequestResult inspected = k.request(u"inspect"_qs, {RArgument(name)});
            ASSERT_TRUE(inspected.ok());
            EXPECT_EQ(text(inspected.value()[u"str"]), expected[0].toStdString());
            EXPECT_EQ(text(inspected.value()[u"summaryText"]), expected[1].toStdString());
            EXPECT_EQ(text(inspected.value()[u"head"]), expected[2].toStdString());
        }
    }

    // The comparisons above hold only if the kernel's own layout answered: it does for the common
    // kinds (str() leaves dates to R).
    const ExecResult covered =
        k.run(QStringLiteral("cat(vapply(c(\"mtcars\", \"airquality\", \"iris\", \"ToothGrowth\", "
                             "\"warpbreaks\", \"esoph\", \"kinds\"),\n"
                             "           function(n) !is.null(.vesk$quickHead(get(n))) && "
                             "!is.null(.vesk$quickSummary(get(n))), NA),\n"
                             "    vapply(c(\"mtcars\", \"airquality\", \"iris\", \"esoph\", \"dbl\", "
                             "\"ints\", \"flags\", \"words\",\n"
                             "             \"steps\", \"levels3\"),\n"
                             "           function(n) !is.null(.vesk$plainStr(get(n))), NA),\n"
                             "    vapply(c(\"dbl\", \"huge\", \"ints\", \"sparse\"), function(n) "
                             "!is.null(.vesk$quickSummary(get(n))), NA),\n"
                             "    vapply(c(\"dbl\", \"ints\", \"flags\", \"words\"), function(n) "
                             "!is.null(.vesk$quickHead(get(n))), NA))"));
    EXPECT_EQ(covered.output.trimmed().split(u' ').count(u"TRUE"_qs), 25) << covered.output.toStdString();
}

// The user's own methods (and functions the layout stands in for) send inspect through R's
// functions, and the kernel's layout comes back once they are gone.
TEST(InspectFormatting, UsersOwnMethodsTakeRsPath)
{
    LiveSession k;
    ASSERT_TRUE(k.start());
    const QStringList quick = rsOwnTexts(k, u"mtcars"_qs);
    ASSERT_EQ(quick.size(), 3);
    ASSERT_TRUE(k.run(QStringLiteral("str.data.frame <- function(object, ...) cat(\"my str\\n\")\n"
                                     "summary.data.frame <- function(object, ...) \"my summary\"\n"
                                     "print.data.frame <- function(x, ...) cat(\"my frame\\n\")"))
                    .ok);
    RRequestResult inspected = k.request(u"inspect"_qs, {RArgument("mtcars")});
    ASSERT_TRUE(inspected.ok());
    EXPECT_EQ(text(inspected.value()[u"str"]), "my str");
    EXPECT_EQ(text(inspected.value()[u"summaryText"]), "[1] \"my summary\"");
    EXPECT_EQ(text(inspected.value()[u"head"]), "my frame");

    ASSERT_TRUE(k.run(QStringLiteral("rm(str.data.frame, summary.data.frame, print.data.frame)\n"
                                     "print.summaryDefault <- function(x, ...) cat(\"my summary\\n\")\n"
                                     "print.default <- function(x, ...) cat(\"my print\\n\")"))
                    .ok);
    inspected = k.request(u"inspect"_qs, {RArgument("c(1.5, 2)")});
    ASSERT_TRUE(inspected.ok());
    EXPECT_EQ(text(inspected.value()[u"summaryText"]), "my summary");
    EXPECT_EQ(text(inspected.value()[u"head"]), "my print");

    ASSERT_TRUE(k.run(QStringLiteral("rm(print.summaryDefault, print.default)")).ok);
    inspected = k.request(u"inspect"_qs, {RArgument("mtcars")});
    ASSERT_TRUE(inspected.ok());
    EXPECT_EQ(text(inspected.value()[u"str"]), quick[0].toStdString());
    EXPECT_EQ(text(inspected.value()[u"summaryText"]), quick[1].toStdString());
    EXPECT_EQ(text(inspected.value()[u"head"]), quick[2].toStdString());
}
