// The session reports every condition with R's own message and call, and a run that failed never
// counts as a success. Each case is one console line, checked against what R itself writes on
// standard error for the same line at an interactive console.
#include "LiveSession.h"
#include "TestSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using Kind = SessionEvent::Kind;

enum class Shape { Error, LongCall, Warning, Message };

struct Case {
    const char *name;
    QString line;
    Shape shape;
};

// What R wrote on standard error for each line, in order: the lines are run in one interactive R,
// each after a marker message.
QStringList rStandardError(const QList<Case> &cases, const QString &directory)
{
    QByteArray input;
    for (qsizetype i = 0; i < cases.size(); ++i)
        input += u"message(\"<<case %1>>\")\n%2\n"_qs.arg(i).arg(cases[i].line).toUtf8();
    const TestSupport::ProgramRun run =
        TestSupport::runProgram(TestSupport::rExecutable(),
                                {u"--interactive"_qs, u"--no-echo"_qs, u"--no-restore"_qs, u"--no-save"_qs},
                                TestSupport::Input::Bytes, input, std::chrono::seconds(60), directory);
    EXPECT_FALSE(run.timedOut);
    QStringList blocks;
    const QString err = QString::fromUtf8(run.err);
    for (qsizetype i = 0; i < cases.size(); ++i) {
        const QString open = u"<<case %1>>\n"_qs.arg(i);
        const QString next = u"<<case %1>>\n"_qs.arg(i + 1);
        const qsizetype from = err.indexOf(open);
        const qsizetype to = i + 1 < cases.size() ? err.indexOf(next) : err.size();
        EXPECT_GE(from, 0) << open.toStdString();
        blocks.append(from < 0 ? QString() : err.mid(from + open.size(), to - from - open.size()));
    }
    return blocks;
}

// R puts the message on the call's line, or on the next line when both would not fit in one:
// either is R's text for this message and call.
bool sameAsR(const QString &r, const QString &lead, const QString &call, const QString &message,
             const QString &separator)
{
    const QString start = lead + call + u" :"_qs;
    return r == start + u' ' + message + u'\n' || r == start + separator + message + u'\n';
}

} // namespace

TEST(RConditions, EachReachesTheUserWithRsOwnMessageAndCall)
{
    QTemporaryDir dir;
    const QList<Case> cases = {
        {"an empty argument", u"x <- c(1, 2, )"_qs, Shape::Error},
        {"an empty argument in the user's function", u"m <- function(...) stop(\"boom\"); m(1, , 3)"_qs,
         Shape::Error},
        {"a missing argument", u"f <- function(a) a + 1; f()"_qs, Shape::Error},
        {"no call", u"h <- function() stop(\"no call here\", call. = FALSE); h()"_qs, Shape::Error},
        {"from .Internal", u"nchar(\"a\", type = \"zz\")"_qs, Shape::Error},
        {"from a primitive", u"1 + \"a\""_qs, Shape::Error},
        {"do.call with a large vector",
         u"big <- function(x) stop(\"too big\"); do.call(\"big\", list(seq_len(100000) / 7))"_qs,
         Shape::Error},
        {"do.call with a large data frame",
         u"do.call(\"big\", list(data.frame(a = seq_len(100000) / 7, b = \"x\")))"_qs, Shape::Error},
        {"do.call with a large factor",
         QStringLiteral(
             "f3 <- function(x) stop(\"f3\"); do.call(\"f3\", list(factor(rep(c(\"a\", \"b\"), 100))))"),
         Shape::Error},
        {"do.call with a matrix", u"do.call(\"f3\", list(matrix(1:200, 10)))"_qs, Shape::Error},
        {"do.call with dates", u"do.call(\"f3\", list(as.Date(\"2020-01-01\") + 1:100))"_qs, Shape::Error},
        {"do.call with a named list",
         u"do.call(\"f3\", list(list(a = 1:1000 / 3, b = list(c = letters))))"_qs, Shape::Error},
        {"do.call with many arguments",
         u"g2 <- function(...) stop(\"many\"); do.call(\"g2\", as.list(1:2500))"_qs, Shape::Error},
        {"a call of 10,000 characters",
         u"g <- function(...) stop(\"long call\"); do.call(\"g\", list(strrep(\"a\", 10000)))"_qs,
         Shape::LongCall},
        {"a custom condition class",
         QStringLiteral("stop(structure(class = c(\"myError\", \"error\", \"condition\"), "
                        "list(message = \"custom failure\", call = quote(h(1)))))"),
         Shape::Error},
        {"a warning turned into an error",
         QStringLiteral("options(warn = 2); w <- function() warning(\"watch out\"); "
                        "tryCatch(w(), finally = options(warn = 0))"),
         Shape::Error},
        {"inside a print method",
         QStringLiteral(
             "print.boom <- function(x, ...) stop(\"cannot print\"); structure(1, class = \"boom\")"),
         Shape::Error},
        {"inside tryCatch with finally", u"tryCatch(stop(\"in body\"), finally = cat(\"cleanup\\n\"))"_qs,
         Shape::Error},
        {"in the finally of tryCatch", u"tryCatch(1, finally = stop(\"in finally\"))"_qs, Shape::Error},
        {"an S4 method",
         QStringLiteral("setGeneric(\"area\", function(s) standardGeneric(\"area\")); "
                        "setMethod(\"area\", \"numeric\", function(s) stop(\"negative area\")); area(1)"),
         Shape::Error},
        {"a non-ASCII message", u"stop(\"naïve café — 日本語\")"_qs, Shape::Error},
        {"a condition whose message errors",
         QStringLiteral("conditionMessage.weird <- function(c) stop(\"no message for you\"); "
                        "stop(structure(class = c(\"weird\", \"error\", \"condition\"), list(message = "
                        "\"m\", call = NULL)))"),
         Shape::Error},
        {"a long message",
         u"el <- function(x) stop(\"a rather long error message that goes on and on\"); el(1)"_qs,
         Shape::Error},
        {"in local()", u"local(stop(\"in local\"))"_qs, Shape::Error},
        {"a warning in a function", u"wf <- function() warning(\"careful now\"); wf()"_qs, Shape::Warning},
        {"a warning at top level", u"warning(\"top level warning\")"_qs, Shape::Warning},
        {"a warning with an empty argument", u"mw <- function(...) warning(\"odd\"); mw(1, )"_qs,
         Shape::Warning},
        {"a message", u"message(\"hello \", \"there\")"_qs, Shape::Message},
    };
    const QStringList r = rStandardError(cases, dir.path());

    LiveSession k;
    ASSERT_TRUE(k.start(dir.path()));
    for (qsizetype i = 0; i < cases.size(); ++i) {
        const Case &c = cases[i];
        SCOPED_TRACE(c.name);
        const qsizetype mark = k.events.size();
        const ExecResult result = k.run(c.line);
        const std::string told = r[i].toStdString();
        switch (c.shape) {
        case Shape::Error:
        case Shape::LongCall: {
            EXPECT_FALSE(result.ok) << "a failed run counts as a success";
            ASSERT_TRUE(result.error.has_value()) << told;
            EXPECT_EQ(k.eventsSince(mark, Kind::Error).size(), 1);
            const RErrorInfo &error = *result.error;
            if (c.shape == Shape::Error) {
                if (error.call)
                    EXPECT_TRUE(sameAsR(r[i], u"Error in "_qs, *error.call, error.message, u" \n  "_qs))
                        << "R: " << told << "session: " << error.call->toStdString() << " : "
                        << error.message.toStdString();
                else
                    EXPECT_EQ(r[i], u"Error: "_qs + error.message + u'\n');
            } else {
                // R cuts its line at 8 KB; the session's call is a bounded prefix of it.
                ASSERT_TRUE(error.call.has_value());
                EXPECT_TRUE(error.call->endsWith(u"..."_qs));
                EXPECT_TRUE(r[i].startsWith(u"Error in "_qs + error.call->chopped(3))) << told;
                EXPECT_EQ(error.message, u"long call"_qs);
            }
            break;
        }
        case Shape::Warning: {
            EXPECT_TRUE(result.ok);
            const QList<SessionEvent> warnings = k.eventsSince(mark, Kind::Warning);
            ASSERT_EQ(warnings.size(), 1);
            ASSERT_TRUE(r[i].startsWith(u"Warning message:\n"_qs)) << told;
            const QString line = r[i].mid(17);
            if (warnings[0].call)
                EXPECT_TRUE(sameAsR(line, u"In "_qs, *warnings[0].call, warnings[0].text, u"\n  "_qs))
                    << told << "session: " << warnings[0].call->toStdString();
            else
                EXPECT_EQ(line, warnings[0].text + u" \n"_qs);
            break;
        }
        case Shape::Message: {
            EXPECT_TRUE(result.ok);
            const QList<SessionEvent> messages = k.eventsSince(mark, Kind::Message);
            ASSERT_EQ(messages.size(), 1);
            EXPECT_EQ(messages[0].text, r[i]);
            break;
        }
        }
    }
    EXPECT_TRUE(k.run(u"1"_qs).ok) << "the session goes on";
}
