// The kernel script against a real R, driven through RSession: every event of the contract, the
// named requests, console input, interrupts, the browser, quitting, and the guarantees around them
// (no forged frames, UTF-8 intact, inline and file-borne code, no event from a replaced process).
// Cases share R processes where they can: each start costs a few tenths of a second.
#include "LiveSession.h"
#include "TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

using Kind = SessionEvent::Kind;

struct KernelSession : LiveSession {
    // Queues `code` as the console does; its result lands in `into`.
    void enqueue(const QString &code, std::optional<ExecResult> &into,
                 const std::optional<QString> &file = std::nullopt)
    {
        into.reset();
        session.enqueueExec(code, ExecOrigin::console(), file, 1, [&into](const ExecResult &r) { into = r; });
    }
    std::optional<RSessionState> lastState() const
    {
        for (qsizetype i = events.size() - 1; i >= 0; --i)
            if (events[i].kind == Kind::State)
                return events[i].state;
        return std::nullopt;
    }
};

const REnvObject *findObject(const RSessionState &state, const QString &name)
{
    for (const REnvObject &object : state.env)
        if (object.name == name)
            return &object;
    return nullptr;
}

std::string text(const QString &s)
{
    return s.toStdString();
}

} // namespace

// The handshake, the evaluation of code as the console does it, and the conditions as events.
TEST(KernelContract, RunsCodeAndReportsConditions)
{
    KernelSession k;
    ASSERT_TRUE(k.start());
    ASSERT_FALSE(k.events.isEmpty());
    EXPECT_EQ(k.events.first().kind, Kind::Ready);
    EXPECT_GT(k.session.info()->pid, 0);
    EXPECT_TRUE(k.session.info()->version.startsWith(u'4'));
    ASSERT_TRUE(k.lastState().has_value()) << "the kernel reports the environment once it is ready";
    EXPECT_TRUE(k.lastState()->env.isEmpty());
    EXPECT_TRUE(k.lastState()->attached.contains(u".GlobalEnv"_qs));
    EXPECT_FALSE(k.lastState()->attached.contains(u"tools:vesk"_qs));
    EXPECT_TRUE(k.lastState()->loaded.contains(u"base"_qs));

    // Nothing of the kernel in the global environment, and no trace of the token in reach.
    const ExecResult clean = k.run(QStringLiteral("print(ls(globalenv(), all.names = TRUE))\n"
                                                  "print(Sys.getenv(\"VESK_KERNEL_TOKEN\"))"));
    EXPECT_TRUE(clean.ok);
    EXPECT_EQ(clean.output, u"character(0)\n[1] \"\"\n"_qs);

    // Prints, a message, two warnings and an error two calls deep, in a file starting at line 10.
    const QString file = u"/tmp/vesk-analysis.R"_qs;
    qsizetype mark = k.events.size();
    const ExecResult failed = k.run(QStringLiteral("cat(\"start\\n\")\n"      // 10
                                                   "outer <- function() {\n"  // 11
                                                   "  message(\"loading\")\n" // 12
                                                   "  warning(\"first\")\n"   // 13
                                                   "  warning(\"second\")\n"  // 14
                                                   "  inner(2)\n"             // 15
                                                   "}\n"                      // 16
                                                   "inner <- function(x) {\n" // 17
                                                   "  stop(\"boom \", x)\n"   // 18
                                                   "}\n"                      // 19
                                                   "outer()\n"                // 20
                                                   "cat(\"never\\n\")"),      // 21
                                    file, 10);
    EXPECT_FALSE(failed.ok);
    EXPECT_FALSE(failed.interrupted);
    EXPECT_EQ(failed.output, u"start\nloading\n"_qs);
    EXPECT_EQ(failed.warnings, QStringList({u"first"_qs, u"second"_qs}));
    ASSERT_TRUE(failed.error.has_value());
    EXPECT_EQ(failed.error->message, u"boom 2"_qs);
    EXPECT_EQ(failed.error->call, u"inner(2)"_qs);
    EXPECT_FALSE(failed.error->isParseError);
    ASSERT_EQ(failed.error->traceback.size(), 3) << "outer(), inner(2), stop(): no kernel frames";
    const QList<RFrame> &frames = failed.error->traceback;
    EXPECT_EQ(frames[0].call, u"outer()"_qs);
    EXPECT_EQ(frames[0].line, 20);
    EXPECT_EQ(frames[1].call, u"inner(2)"_qs);
    EXPECT_EQ(frames[1].line, 15);
    EXPECT_EQ(frames[2].line, 18);
    for (const RFrame &frame : frames)
        EXPECT_EQ(frame.file, file);
    const QList<SessionEvent> warnings = k.eventsSince(mark, Kind::Warning);
    ASSERT_EQ(warnings.size(), 2);
    EXPECT_EQ(warnings[0].call, u"outer()"_qs);
    EXPECT_EQ(k.eventsSince(mark, Kind::Message).size(), 1);
    EXPECT_EQ(k.eventsSince(mark, Kind::Error).size(), 1);
    EXPECT_EQ(k.eventsSince(mark, Kind::State).size(), 1);
    EXPECT_EQ(k.session.status().kind, RSessionStatus::Kind::Idle);

    // An error at top level has no call (not the kernel's eval); a parse error says so.
    const ExecResult top = k.run(u"stop(\"plain\")"_qs);
    ASSERT_TRUE(top.error.has_value());
    EXPECT_FALSE(top.error->call.has_value());
    const ExecResult parse = k.run(u"x <- 1\ny y"_qs);
    ASSERT_TRUE(parse.error.has_value());
    EXPECT_TRUE(parse.error->isParseError);
    EXPECT_TRUE(parse.error->message.contains(u"unexpected symbol"_qs));
    EXPECT_FALSE(parse.ok);

    // The next run works; auto-printing follows the console (invisible values stay quiet, S4
    // objects are shown), and .Last.value is the user's.
    const ExecResult next = k.run(QStringLiteral("invisible(7)\ny <- 41 + 1\ny\n"
                                                 "setClass(\"P\", representation(a = \"numeric\"))\n"
                                                 "new(\"P\", a = 1)"));
    EXPECT_TRUE(next.ok);
    EXPECT_TRUE(next.output.startsWith(u"[1] 42\n"_qs)) << text(next.output);
    EXPECT_TRUE(next.output.contains(u"An object of class \"P\""_qs)) << text(next.output);
    EXPECT_EQ(k.run(u"y + 1"_qs).output, u"[1] 43\n"_qs);
    EXPECT_EQ(k.run(u".Last.value * 2"_qs).output, u"[1] 86\n"_qs);

    // User code that diverts output does not swallow events; a user's print method applies; a
    // changed prompt is put back (else the next run would never end).
    const ExecResult captured =
        k.run(QStringLiteral("x <- capture.output(warning(\"inside\")); print(x)\n"
                             "print.money <- function(x, ...) cat(\"$\", unclass(x), \"\\n\")\n"
                             "structure(5, class = \"money\")\n"
                             "options(prompt = \"> \")"));
    EXPECT_EQ(captured.warnings, QStringList({u"inside"_qs}));
    EXPECT_EQ(captured.output, u"character(0)\n$ 5 \n"_qs);
    EXPECT_TRUE(k.run(u"1"_qs).ok);

    // Running out of stack still reports an error.
    const ExecResult deep = k.run(u"f <- function(n) f(n + 1); f(1)"_qs);
    ASSERT_TRUE(deep.error.has_value());
    EXPECT_FALSE(deep.error->message.isEmpty());
    EXPECT_FALSE(deep.interrupted);

    // A user's options(warn = 2) still turns warnings into errors; warn < 0 silences them.
    const ExecResult strict = k.run(u"options(warn = 2); f <- function() warning(\"w\"); f()"_qs);
    EXPECT_TRUE(strict.warnings.isEmpty());
    ASSERT_TRUE(strict.error.has_value());
    EXPECT_TRUE(strict.error->message.contains(u"converted from warning"_qs));
    const ExecResult quiet = k.run(u"options(warn = -1); warning(\"w\"); options(warn = 0)"_qs);
    EXPECT_TRUE(quiet.ok);
    EXPECT_TRUE(quiet.warnings.isEmpty());
}

// The Environment pane's snapshot: what each object says about itself, cheaply.
TEST(KernelContract, StateDescribesTheGlobalEnvironment)
{
    KernelSession k;
    ASSERT_TRUE(k.start());
    const ExecResult made = k.run(QStringLiteral(
        "n <- 42L; s <- \"Gr\\u00fc\\u00dfe\"; v <- c(1.5, 2, 3)\n"
        "df <- data.frame(a = 1:3, b = c(\"x\", \"y\", \"z\"), d = as.Date(\"2024-01-01\") + 0:2)\n"
        "m <- matrix(1:6, 2); l <- list(1, \"a\"); e <- new.env(); f <- function(x, y) x + y\n"
        "big <- as.character(seq_len(2e5)); tbl <- df[df$a > 1, ]; tbl$c <- n"));
    ASSERT_TRUE(made.ok) << text(made.error ? made.error->message : QString());
    const std::optional<RSessionState> state = k.lastState();
    ASSERT_TRUE(state.has_value());
    EXPECT_FALSE(state->wd.isEmpty());
    QStringList names;
    for (const REnvObject &object : state->env)
        names.append(object.name);
    EXPECT_EQ(names, QStringList({"big", "df", "e", "f", "l", "m", "n", "s", "tbl", "v"}));

    const auto object = [&](const char *name) { return findObject(*state, QLatin1String(name)); };
    const REnvObject *n = object("n");
    EXPECT_EQ(n->kind, REnvObject::Kind::Value);
    EXPECT_EQ(n->classes, QStringList({"integer"}));
    EXPECT_EQ(n->type, u"integer"_qs);
    EXPECT_EQ(n->summary, u"42"_qs);
    EXPECT_EQ(n->length, 1.0);
    EXPECT_EQ(n->size, 56.0);
    EXPECT_EQ(object("s")->summary, u"\"Grüße\""_qs);
    EXPECT_EQ(object("v")->summary, u"num [1:3] 1.5 2 3"_qs);

    const REnvObject *df = object("df");
    EXPECT_EQ(df->kind, REnvObject::Kind::Data);
    EXPECT_EQ(df->classes, QStringList({"data.frame"}));
    EXPECT_EQ(df->dim, QList<double>({3, 3}));
    EXPECT_EQ(df->summary, u"3 obs. of 3 variables"_qs);
    ASSERT_TRUE(df->columns.has_value());
    EXPECT_EQ(*df->columns, (QList<REnvObject::Column>{{"a", "integer"}, {"b", "character"}, {"d", "Date"}}));
    EXPECT_TRUE(df->size.has_value());

    EXPECT_EQ(object("m")->kind, REnvObject::Kind::Data);
    EXPECT_EQ(object("m")->dim, QList<double>({2, 3}));
    EXPECT_EQ(object("l")->kind, REnvObject::Kind::List);
    EXPECT_EQ(object("e")->kind, REnvObject::Kind::Environment);
    const REnvObject *f = object("f");
    EXPECT_EQ(f->kind, REnvObject::Kind::Function);
    ASSERT_TRUE(f->summary.has_value());
    EXPECT_TRUE(f->summary->startsWith(u"function(x, y)"_qs)) << text(*f->summary);

    // Sizing a long character vector would walk every string: it is left out.
    EXPECT_FALSE(object("big")->size.has_value());
    EXPECT_EQ(object("big")->length, 200000.0);

    // What an object was made from, as far as top-level assignments tell.
    EXPECT_EQ(object("tbl")->from, QStringList({"df", "n"}));
    EXPECT_FALSE(df->from.has_value());

    // A changed definition changes the function's summary; an unchanged one keeps it.
    k.run(u"g <- 1"_qs);
    EXPECT_EQ(findObject(*k.lastState(), u"f"_qs)->summary, f->summary);
    k.run(u"f <- function(x, y) x * y"_qs);
    EXPECT_NE(findObject(*k.lastState(), u"f"_qs)->summary, f->summary);

    // A line typed at the prompt outside an execution also refreshes the snapshot.
    const qsizetype mark = k.events.size();
    k.session.sendRaw(u"typed <- 1"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !k.eventsSince(mark, Kind::State).isEmpty(); }));
    EXPECT_NE(findObject(k.eventsSince(mark, Kind::State).last().state, u"typed"_qs), nullptr);
}

// The functions the kernel takes over, the named requests, and what must not pass as a frame.
TEST(KernelContract, EventsRequestsAndTheStream)
{
    QTemporaryDir dir;
    KernelSession k;
    ASSERT_TRUE(k.start(dir.path()));

    // View(): a global name stays an expression; anything else is held by the kernel.
    qsizetype mark = k.events.size();
    ASSERT_TRUE(k.run(u"cars2 <- cars; View(cars2); View(head(cars), \"Top\")"_qs).ok);
    QList<SessionEvent> views = k.eventsSince(mark, Kind::View);
    ASSERT_EQ(views.size(), 2);
    EXPECT_EQ(views[0].expr, u"cars2"_qs);
    EXPECT_EQ(views[0].title, u"cars2"_qs);
    EXPECT_TRUE(views[1].expr.startsWith(u".vesk$views[[\""_qs)) << text(views[1].expr);
    EXPECT_EQ(views[1].title, u"Top"_qs);
    const RRequestResult held = k.request(u"inspect"_qs, {RArgument(views[1].expr)});
    ASSERT_TRUE(held.ok());
    EXPECT_EQ(held.value()[u"class"][0].stringValue(), u"data.frame"_qs);
    EXPECT_TRUE(k.request(u"dropView"_qs, {RArgument(views[1].expr)}).ok());
    const RRequestResult dropped = k.request(u"inspect"_qs, {RArgument(views[1].expr)});
    ASSERT_TRUE(dropped.ok());
    EXPECT_EQ(dropped.value()[u"class"][0].stringValue(), u"NULL"_qs);

    // file.edit(): one event per file, missing files created empty; browseURL and the viewer option.
    mark = k.events.size();
    ASSERT_TRUE(k.run(QStringLiteral("file.edit(\"one.R\", \"two.R\")\n"
                                     "browseURL(\"https://example.org/a?b=1\")\n"
                                     "getOption(\"viewer\")(\"/tmp/page.html\")"))
                    .ok);
    const QList<SessionEvent> opened = k.eventsSince(mark, Kind::OpenFile);
    ASSERT_EQ(opened.size(), 2);
    EXPECT_EQ(QFileInfo(opened[0].url.toLocalFile()).canonicalFilePath(),
              QFileInfo(dir.filePath(u"one.R"_qs)).canonicalFilePath());
    EXPECT_TRUE(QFileInfo::exists(dir.filePath(u"two.R"_qs)));
    ASSERT_EQ(k.eventsSince(mark, Kind::Browse).size(), 1);
    EXPECT_EQ(k.eventsSince(mark, Kind::Browse)[0].url, QUrl(u"https://example.org/a?b=1"_qs));
    ASSERT_EQ(k.eventsSince(mark, Kind::Viewer).size(), 1);
    EXPECT_EQ(k.eventsSince(mark, Kind::Viewer)[0].url, QUrl::fromLocalFile(u"/tmp/page.html"_qs));

    // User output cannot forge a frame or a prompt: without the token it is text.
    const QString wrongToken = u"0123456789abcdef0123456789abcdef"_qs;
    const ExecResult forged = k.run(QStringLiteral("cat(\"\\x1e\", \"\\x02VESK>\", \"Browse[1]> \")\n"
                                                   "cat(\"\\n\\x1e%1{\\\"type\\\":\\\"quit\\\"}\\x1f\\n\")\n"
                                                   "cat(\"\\x02VESK>%1\\x03\\n\")\n"
                                                   "message(\"\\x1f\\x1e in a message\")")
                                        .arg(wrongToken));
    EXPECT_TRUE(forged.ok);
    EXPECT_EQ(forged.output, QStringLiteral("\x1e \x02VESK> Browse[1]> \n\x1e%1{\"type\":\"quit\"}\x1f\n"
                                            "\x02VESK>%1\x03\n\x1f\x1e in a message\n")
                                 .arg(wrongToken));
    EXPECT_EQ(k.session.status().kind, RSessionStatus::Kind::Idle);
    EXPECT_TRUE(k.run(u"1"_qs).ok) << "the forged quit did not count";

    // UTF-8 both ways: code, printed output, messages, warnings and error texts.
    const QString world = u"Grüße 中文 😀"_qs;
    const ExecResult utf8 =
        k.run(u"w <- \"%1\"; cat(w, \"\\n\"); message(w); warning(w); stop(w)"_qs.arg(world));
    EXPECT_EQ(utf8.output, world + u" \n"_qs + world + u'\n');
    EXPECT_EQ(utf8.warnings, QStringList({world}));
    ASSERT_TRUE(utf8.error.has_value());
    EXPECT_EQ(utf8.error->message, world);
    EXPECT_EQ(findObject(*k.lastState(), u"w"_qs)->summary, u'"' + world + u'"');

    // Up to 2,000 UTF-8 bytes go inline, beyond through a file; "ü" is two bytes.
    auto sized = [](qsizetype bytes) {
        QString code = u"cat(deparse(sys.call(1)[[1]]), \"\\n\") # "_qs;
        while (code.toUtf8().size() + 2 <= bytes)
            code += u"ü"_qs;
        if (code.toUtf8().size() < bytes)
            code += u'x';
        return code;
    };
    ASSERT_EQ(sized(2000).toUtf8().size(), 2000);
    ASSERT_EQ(sized(2001).toUtf8().size(), 2001);
    EXPECT_LT(sized(2001).size(), 2000);
    EXPECT_EQ(k.run(sized(2000)).output, u".vesk$exec \n"_qs);
    EXPECT_EQ(k.run(sized(2001)).output, u".vesk$execFile \n"_qs);
    // Long code keeps its file and line for errors.
    const ExecResult longError = k.run(sized(2001) + u"\n\nstop(\"late\")"_qs, u"/tmp/long.R"_qs, 5);
    ASSERT_TRUE(longError.error.has_value());
    ASSERT_EQ(longError.error->traceback.size(), 1);
    EXPECT_EQ(longError.error->traceback[0].line, 7);

    // Short code whose escaped form outgrows R's console line also goes by file, and so does a
    // request whose call is that long.
    const QString controls = u"cat(nchar(\""_qs + QString(1000, QChar(1)) + u"\"), \"\\n\")"_qs;
    ASSERT_LT(controls.toUtf8().size(), 2000);
    EXPECT_EQ(k.run(controls).output, u"1000 \n"_qs);
    const RRequestResult longRequest =
        k.request(u"configure"_qs, {RArgument("https://cran.example.org"), RArgument(4),
                                    RArgument(u"cat(\""_qs + QString(3000, u'z') + u"\")"_qs)});
    ASSERT_TRUE(longRequest.ok()) << text(longRequest.error().description());
    EXPECT_EQ(longRequest.value()[u"output"].stringValue().value_or(QString()).size(), 3000);

    // Named requests.
    const RRequestResult configured =
        k.request(u"configure"_qs, {RArgument("https://cran.example.org"), RArgument(4),
                                    RArgument("print(pi); message(\"hi\"); stop(\"no\")")});
    ASSERT_TRUE(configured.ok());
    EXPECT_EQ(configured.value()[u"output"].stringValue(), u"[1] 3.142\nhi\nError: no"_qs);
    EXPECT_TRUE(k.request(u"setWidth"_qs, {RArgument(57)}).ok());
    EXPECT_TRUE(k.request(u"setPlotSize"_qs, {RArgument(400.0), RArgument(300.0), RArgument(2.0)}).ok());
    EXPECT_EQ(k.run(QStringLiteral(
                        "cat(getOption(\"width\"), getOption(\"digits\"), getOption(\"repos\")[[\"CRAN\"]])"))
                  .output,
              u"57 4 https://cran.example.org"_qs);

    const RRequestResult inspected = k.request(u"inspect"_qs, {RArgument("mtcars")});
    ASSERT_TRUE(inspected.ok());
    EXPECT_EQ(inspected.value()[u"class"][0].stringValue(), u"data.frame"_qs);
    EXPECT_TRUE(inspected.value()[u"head"].stringValue()->contains(u"Mazda RX4 Wag"_qs));
    const RRequestResult function = k.request(u"inspect"_qs, {RArgument("sum")});
    ASSERT_TRUE(function.ok());
    EXPECT_FALSE(function.value().contains(u"head"));

    // The str() and summary() texts of inspect are R's own, whichever way the kernel gets them.
    k.run(QStringLiteral(
        "iris2 <- iris[c(1, 51, 101), ]; airq <- airquality; chick <- as.data.frame(ChickWeight)\n"
        "words <- c(\"a\", NA, \"quote \\\"in\\\" it\", \"line\\nbreak\", strrep(\"long \", 40), \"é\")\n"
        "tiny <- c(1e-12, 3.14159, 2e11, NA, -0.5); flags <- c(TRUE, NA, FALSE, TRUE, TRUE, FALSE, TRUE)\n"
        "mixed <- data.frame(n = 1:12, x = c(seq(0.001, 120, length.out = 11), NA), w = rep(words, 2),\n"
        "                    f = rep(flags, length.out = 12), stringsAsFactors = FALSE)"));
    for (const char *name :
         {"mtcars", "iris2", "airq", "chick", "words", "tiny", "flags", "mixed", "letters"}) {
        const RRequestResult result = k.request(u"inspect"_qs, {RArgument(name)});
        ASSERT_TRUE(result.ok()) << name;
        // The console ends output with a line break.
        const QString expected =
            k.run(u"cat(capture.output(str(%1)), sep = \"\\n\")"_qs.arg(QLatin1String(name)))
                .output.chopped(1);
        EXPECT_EQ(text(result.value()[u"str"].stringValue().value_or(QString())), text(expected)) << name;
        const QString summary =
            k.run(u"cat(capture.output(print(summary(%1))), sep = \"\\n\")"_qs.arg(QLatin1String(name)))
                .output.chopped(1);
        EXPECT_EQ(text(result.value()[u"summaryText"].stringValue().value_or(QString())), text(summary))
            << name;
    }

    // A request that fails in R answers with the condition's message; one the kernel cannot
    // answer at all fails at the next prompt.
    const RRequestResult missing = k.request(u"inspect"_qs, {RArgument("no_such_object")});
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().description(), u"object 'no_such_object' not found"_qs);
    const RRequestResult unknown = k.request(u"noSuchRequest"_qs);
    ASSERT_FALSE(unknown.ok());
    EXPECT_EQ(unknown.error().kind, RSessionError::Kind::NoResponse);
    EXPECT_EQ(unknown.error().description(), u"R did not answer."_qs);

    // A request sent during a run waits for the ready prompt, then sees what the run made.
    std::optional<ExecResult> slow;
    std::optional<RRequestResult> during;
    QStringList order;
    k.session.enqueueExec(u"Sys.sleep(0.3); late <- \"made\""_qs, ExecOrigin::console(), std::nullopt, 1,
                          [&](const ExecResult &r) {
                              slow = r;
                              order.append(u"exec"_qs);
                          });
    k.session.request(u"inspect"_qs, {RArgument("late")}, {}, [&](const RRequestResult &r) {
        during = r;
        order.append(u"request"_qs);
    });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return during.has_value(); }));
    EXPECT_EQ(order, QStringList({"exec", "request"}));
    ASSERT_TRUE(during->ok());
    EXPECT_EQ(during->value()[u"str"].stringValue(), u" chr \"made\""_qs);
}

// readline(), readLines(stdin()), menu() and scan() answered through sendRaw.
TEST(KernelContract, ConsoleInput)
{
    KernelSession k;
    ASSERT_TRUE(k.start());
    std::optional<ExecResult> result;
    auto waitingFor = [&](RInputRequest::Kind kind) {
        return k.waitFor(RSessionStatus::Kind::WaitingForInput) && k.session.inputRequest() &&
               k.session.inputRequest()->kind == kind;
    };
    // Answers the read that `code` makes with `lines`: R waits until the last of them.
    auto answered = [&](const QString &code, RInputRequest::Kind kind, const QStringList &lines) {
        k.enqueue(code, result);
        EXPECT_TRUE(waitingFor(kind)) << text(code);
        for (const QString &line : lines) {
            EXPECT_EQ(k.session.status().kind, RSessionStatus::Kind::WaitingForInput) << text(line);
            k.session.sendRaw(line);
        }
        EXPECT_TRUE(TestSupport::waitUntil([&] { return result.has_value(); })) << text(code);
        return result.value_or(ExecResult{});
    };

    const ExecResult hello = answered(u"name <- readline(\"Name? \"); cat(\"Hello\", name, \"\\n\")"_qs,
                                      RInputRequest::Kind::Line, {u"Ada"_qs});
    EXPECT_TRUE(hello.ok);
    EXPECT_EQ(hello.output, u"Name? Ada\nHello Ada \n"_qs);

    // Several lines: the console has no end of file, so an empty line ends them.
    const QString lines = answered(u"x <- readLines(stdin()); print(x)"_qs, RInputRequest::Kind::Lines,
                                   {u"first"_qs, u"zweite Zeile ü"_qs, QString()})
                              .output;
    EXPECT_TRUE(lines.contains(u"[1] \"first\" "_qs)) << text(lines);
    EXPECT_TRUE(lines.endsWith(u" \"zweite Zeile ü\"\n"_qs)) << text(lines);
    const QString only =
        answered(u"print(readLines(\"stdin\", n = 1))"_qs, RInputRequest::Kind::Line, {u"only"_qs}).output;
    EXPECT_TRUE(only.endsWith(u"[1] \"only\"\n"_qs)) << text(only);
    const ExecResult scanned =
        answered(u"sum(scan())"_qs, RInputRequest::Kind::Lines, {u"1 2"_qs, u"3"_qs, QString()});
    EXPECT_TRUE(scanned.ok);
    EXPECT_TRUE(scanned.output.endsWith(u"[1] 6\n"_qs)) << text(scanned.output);

    // A wrong answer to menu() asks again, announcing the new read.
    k.enqueue(u"menu(c(\"apple\", \"pear\"), title = \"Fruit\")"_qs, result);
    ASSERT_TRUE(waitingFor(RInputRequest::Kind::Line));
    k.session.sendRaw(u"plum"_qs);
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Busy));
    ASSERT_TRUE(waitingFor(RInputRequest::Kind::Line));
    k.session.sendRaw(u"2"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return result.has_value(); }));
    EXPECT_TRUE(result->output.contains(u"Enter an item from the menu"_qs));
    EXPECT_TRUE(result->output.endsWith(u"[1] 2\n"_qs)) << text(result->output);
    EXPECT_EQ(k.session.status().kind, RSessionStatus::Kind::Idle);
}

// Interrupts, the browser (requests overtake executions, raw lines run ahead), and q().
TEST(KernelContract, InterruptDebugAndQuit)
{
    KernelSession k;
    ASSERT_TRUE(k.start());

    std::optional<ExecResult> sleeping, queued;
    std::optional<RRequestResult> queuedRequest;
    k.enqueue(u"cat(\"before\\n\"); Sys.sleep(60)"_qs, sleeping);
    k.enqueue(u"cat(\"queued\")"_qs, queued);
    k.session.request(u"inspect"_qs, {RArgument("1:3")}, {},
                      [&](const RRequestResult &r) { queuedRequest = r; });
    ASSERT_TRUE(TestSupport::waitUntil([&] {
        return k.eventsSince(0, Kind::Output).size() > 0 &&
               k.eventsSince(0, Kind::Output).last().text.contains(u"before"_qs);
    }));
    const qsizetype mark = k.events.size();
    k.session.interrupt();
    ASSERT_TRUE(queued.has_value()) << "queued executions are cancelled at once";
    EXPECT_EQ(*queued, ExecResult::cancelled());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return sleeping.has_value(); }));
    EXPECT_TRUE(sleeping->interrupted);
    EXPECT_FALSE(sleeping->ok);
    EXPECT_EQ(sleeping->output, u"before\n"_qs);
    EXPECT_EQ(k.eventsSince(mark, Kind::Interrupted).size(), 1);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return queuedRequest.has_value(); }));
    ASSERT_TRUE(queuedRequest->ok()) << "queued requests still run";
    EXPECT_EQ(queuedRequest->value()[u"class"][0].stringValue(), u"integer"_qs);
    EXPECT_TRUE(k.run(u"1"_qs).ok);

    // In the browser: executions wait while requests (evaluated in the paused frame) and raw lines
    // overtake them, in their own order.
    std::optional<ExecResult> paused, waiting;
    std::optional<RRequestResult> first, second;
    QStringList order;
    qsizetype secondAt = -1;
    k.enqueue(u"f <- function() {\n  local <- 5\n  browser()\n  local + 1\n}\nf()"_qs, paused,
              u"/tmp/debugged.R"_qs);
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Debugging));
    k.session.enqueueExec(u"cat(\"afterwards\\n\")"_qs, ExecOrigin::console(), std::nullopt, 1,
                          [&](const ExecResult &r) {
                              waiting = r;
                              order.append(u"exec"_qs);
                          });
    k.session.request(u"inspect"_qs, {RArgument("local")}, {}, [&](const RRequestResult &r) {
        first = r;
        order.append(u"first"_qs);
    });
    const qsizetype rawMark = k.events.size();
    k.session.sendRaw(u"cat(\"raw\", local, \"\\n\")"_qs);
    k.session.request(u"inspect"_qs, {RArgument("local * 2")}, {}, [&](const RRequestResult &r) {
        second = r;
        secondAt = k.events.size();
        order.append(u"second"_qs);
    });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return second.has_value(); }));
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Debugging));
    EXPECT_EQ(order, QStringList({"first", "second"}));
    EXPECT_FALSE(waiting.has_value());
    ASSERT_TRUE(first->ok());
    EXPECT_EQ(first->value()[u"str"].stringValue(), u" num 5"_qs);
    EXPECT_EQ(second->value()[u"str"].stringValue(), u" num 10"_qs);
    // The raw line ran between the two requests.
    qsizetype rawAt = -1;
    QString rawOutput;
    for (qsizetype i = rawMark; i < k.events.size(); ++i) {
        if (k.events[i].kind != Kind::Output)
            continue;
        if (rawAt < 0)
            rawAt = i;
        rawOutput += k.events[i].text;
    }
    EXPECT_EQ(rawOutput, u"raw 5 \n"_qs);
    EXPECT_LT(rawAt, secondAt);
    k.session.sendRaw(u"c"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return waiting.has_value(); }));
    EXPECT_EQ(order, QStringList({"first", "second", "exec"}));
    ASSERT_TRUE(paused.has_value());
    EXPECT_TRUE(paused->ok);
    EXPECT_TRUE(paused->output.contains(u"[1] 6"_qs)) << text(paused->output);
    EXPECT_EQ(waiting->output, u"afterwards\n"_qs);

    // Leaving the browser with Q ends the run as interrupted; the session stays usable.
    k.enqueue(u"g <- function() { browser(); 1 }\ng()"_qs, paused);
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Debugging));
    k.session.sendRaw(u"Q"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return paused.has_value(); }));
    EXPECT_TRUE(paused->interrupted);
    EXPECT_EQ(k.session.status().kind, RSessionStatus::Kind::Idle);

    // q() says so before R goes.
    std::optional<ExecResult> quit;
    k.enqueue(u"q()"_qs, quit);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !k.eventsSince(0, Kind::Exited).isEmpty(); }));
    EXPECT_TRUE(k.eventsSince(0, Kind::Exited).first().byQuitting);
    ASSERT_TRUE(quit.has_value());
    EXPECT_FALSE(quit->interrupted);
    EXPECT_EQ(k.session.status().kind, RSessionStatus::Kind::Stopped);
}

// A second start while R runs: the old process's work fails, and nothing of it comes through.
TEST(KernelContract, RestartKeepsTheOldProcessOut)
{
    KernelSession k;
    ASSERT_TRUE(k.start());
    const qint32 oldPid = k.session.info()->pid;
    std::optional<ExecResult> chatty;
    k.enqueue(u"for (i in 1:200) { cat(\"OLD\\n\"); Sys.sleep(0.02) }"_qs, chatty);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !k.eventsSince(0, Kind::Output).isEmpty(); }));

    k.session.start(TestSupport::rExecutable(), QDir::tempPath(), TestSupport::kernelScript());
    ASSERT_TRUE(chatty.has_value());
    EXPECT_TRUE(chatty->interrupted);
    const qsizetype mark = k.events.size();
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Idle));
    TestSupport::spin(300ms);
    for (qsizetype i = mark; i < k.events.size(); ++i) {
        EXPECT_NE(k.events[i].kind, Kind::Exited);
        EXPECT_FALSE(k.events[i].text.contains(u"OLD"_qs));
    }
    const QList<SessionEvent> ready = k.eventsSince(mark, Kind::Ready);
    ASSERT_EQ(ready.size(), 1);
    EXPECT_NE(ready[0].info.pid, oldPid);
    EXPECT_EQ(k.run(u"cat(\"new\")"_qs).output, u"new"_qs);

    // Work sent after shutdown is refused at once.
    k.session.shutDown();
    std::optional<ExecResult> refused;
    k.enqueue(u"1"_qs, refused);
    ASSERT_TRUE(refused.has_value());
    EXPECT_EQ(*refused, ExecResult::cancelled());
}

// The warnings of the last run that had any are R's last.warning, so warnings() shows them as R
// does; a run without warnings keeps them.
TEST(KernelContract, WarningsOfTheLastRunStayForWarnings)
{
    KernelSession k;
    ASSERT_TRUE(k.start());
    EXPECT_TRUE(k.run(u"f <- function(x) warning(\"w1\")\nf(1)\nwarning(\"w2\")"_qs).ok);
    EXPECT_TRUE(k.run(u"1 + 1"_qs).ok);
    const ExecResult shown = k.run(u"print(warnings())"_qs);
    EXPECT_EQ(shown.output, u"Warning messages:\n1: In f(1) : w1\n2: w2\n"_qs);
}
