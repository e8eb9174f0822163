// R's prompt options inside the session: user code sees R's own prompts, or the ones the user set,
// never the kernel's framed ones; so the functions that echo code with them (source with echo,
// example, demo, withAutoprint) print what R prints. Each case is checked against the standard
// output of R at an interactive console for the same line.
#include "LiveSession.h"
#include "TestSupport.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

using Kind = SessionEvent::Kind;

struct PromptSession : LiveSession {
    QTemporaryDir dir;

    // What a run printed on standard output (messages and conditions are events of their own).
    QString stdoutOf(const QString &code, ExecResult *result = nullptr)
    {
        const qsizetype mark = events.size();
        const ExecResult r = run(code);
        if (result)
            *result = r;
        QString out;
        for (const SessionEvent &event : eventsSince(mark, Kind::Output))
            out += event.text;
        return out;
    }
    QString write(const QString &name, const QByteArray &content)
    {
        return TestSupport::writeFile(dir.path(), name, content);
    }
    // What R itself prints at an interactive console for one line of code: R reads it from
    // standard input, echoes it, and prints its output (prompts off).
    QString interactiveR(const QString &line)
    {
        const TestSupport::ProgramRun run = TestSupport::runProgram(
            TestSupport::rExecutable(),
            {u"--interactive"_qs, u"--no-echo"_qs, u"--no-restore"_qs, u"--no-save"_qs},
            TestSupport::Input::Bytes, line.toUtf8() + "\n", std::chrono::seconds(60), dir.path());
        EXPECT_FALSE(run.timedOut);
        const QByteArray echo = line.toUtf8() + "\n";
        EXPECT_TRUE(run.out.startsWith(echo)) << run.out.left(200).toStdString();
        return QString::fromUtf8(run.out.mid(echo.size()));
    }
};

} // namespace

TEST(RPrompts, EchoingFunctionsPrintWhatRPrints)
{
    PromptSession k;
    ASSERT_TRUE(k.start(k.dir.path()));
    const QString sourced = k.write(u"echoed.R"_qs, "x <- 1:3\n"
                                                    "print(x)\n"
                                                    "warning(\"careful\")\n"
                                                    "if (TRUE) {\n"
                                                    "  y <- x * 2\n"
                                                    "  y\n"
                                                    "}\n"
                                                    "f <- function(a,\n"
                                                    "              b) a + b\n"
                                                    "f(1, 2)\n"
                                                    "stop(\"boom\")\n"
                                                    "print(\"never\")\n");
    struct Case {
        const char *name;
        QString code;
        bool ok;
    };
    const Case cases[] = {
        {"source with echo, a warning and an error", u"source(\"%1\", echo = TRUE)"_qs.arg(sourced), false},
        {"example(mean)", u"example(mean, ask = FALSE)"_qs, true},
        {"example(lm)", u"example(lm, ask = FALSE)"_qs, true},
        {"example(plot)", u"example(plot, ask = FALSE)"_qs, true},
        {"demo(graphics)", u"devAskNewPage(FALSE); demo(graphics, ask = FALSE)"_qs, true},
        {"withAutoprint", u"withAutoprint({ x <- 1; x })"_qs, true},
        {"the prompt options", u"print(options()[c(\"prompt\", \"continue\")])"_qs, true},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ExecResult result;
        const QString console = k.stdoutOf(c.code, &result);
        EXPECT_EQ(result.ok, c.ok) << (result.error ? result.error->message.toStdString() : std::string());
        EXPECT_FALSE(result.interrupted);
        EXPECT_FALSE(console.contains(QChar(0x02))) << "no framed prompt in what user code printed";
        EXPECT_EQ(console.toStdString(), k.interactiveR(c.code).toStdString());
    }
    // The session goes on at R's ready prompt after all of it.
    EXPECT_EQ(k.run(u"cat(1)"_qs).output, u"1"_qs);
}

// The user's own prompt holds across runs and is what the state reports; the framed prompts come
// back after every way a run can end, and are never what user code reads.
TEST(RPrompts, UserPromptsHoldAndFramedOnesComeBack)
{
    PromptSession k;
    ASSERT_TRUE(k.start(k.dir.path()));
    const QString read = u"cat(getOption(\"prompt\"), getOption(\"continue\"), sep = \"|\")"_qs;

    EXPECT_TRUE(k.run(u"options(prompt = \"R> \")"_qs).ok);
    EXPECT_EQ(k.run(read).output, u"R> |+ "_qs);
    std::optional<RSessionState> state;
    for (const SessionEvent &event : k.events)
        if (event.kind == Kind::State)
            state = event.state;
    ASSERT_TRUE(state.has_value());
    EXPECT_EQ(state->prompt, u"R> "_qs);
    EXPECT_EQ(state->continuation, u"+ "_qs);
    EXPECT_EQ(k.stdoutOf(u"withAutoprint({ x <- 2; x })"_qs).toStdString(),
              k.interactiveR(u"options(prompt = \"R> \"); withAutoprint({ x <- 2; x })"_qs).toStdString());
    EXPECT_TRUE(k.run(u"options(prompt = \"> \")"_qs).ok);

    // After an error, an interrupt, a cancelled q() and a request, the next run still sees R's own
    // prompts, and the session still reads the next line (the framed prompt is back).
    EXPECT_FALSE(k.run(u"stop(\"no\")"_qs).ok);
    EXPECT_EQ(k.run(read).output, u"> |+ "_qs);
    std::optional<ExecResult> sleeping;
    k.session.enqueueExec(u"Sys.sleep(30)"_qs, ExecOrigin::console(), std::nullopt, 1,
                          [&](const ExecResult &r) { sleeping = r; });
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Busy));
    TestSupport::spin(std::chrono::milliseconds(200));
    k.session.interrupt();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return sleeping.has_value(); }));
    EXPECT_TRUE(sleeping->interrupted);
    EXPECT_EQ(k.run(read).output, u"> |+ "_qs);
    const ExecResult cancelled = k.run(u".Last <- function() stop(\"not now\")\nq(\"no\")"_qs);
    EXPECT_FALSE(cancelled.ok);
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Idle)) << "a cancelled q() leaves R running";
    EXPECT_TRUE(k.run(u"rm(.Last)"_qs).ok);
    EXPECT_TRUE(k.request(u"inspect"_qs, {RArgument(u"getOption(\"prompt\")"_qs)}).ok());
    EXPECT_EQ(k.run(read).output, u"> |+ "_qs);
    const RRequestResult seen = k.request(u"inspect"_qs, {RArgument(u"getOption(\"continue\")"_qs)});
    ASSERT_TRUE(seen.ok());
    EXPECT_EQ(seen.value()[u"str"].stringValue(), u" chr \"+ \""_qs);
}

// In the browser a line can be continued: R reads it at a framed continuation prompt again.
TEST(RPrompts, BrowserReadsContinuedLines)
{
    PromptSession k;
    ASSERT_TRUE(k.start(k.dir.path()));
    std::optional<ExecResult> paused;
    k.session.enqueueExec(u"f <- function() { v <- 7; browser(); v }\nf()"_qs, ExecOrigin::console(),
                          std::nullopt, 1, [&](const ExecResult &r) { paused = r; });
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Debugging));
    const qsizetype mark = k.events.size();
    k.session.sendRaw(u"cat(\"in the browser\","_qs);
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::WaitingForInput)) << "the continuation prompt is framed";
    k.session.sendRaw(u"    v,"_qs);
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::WaitingForInput));
    k.session.sendRaw(u"    \"\\n\")"_qs);
    ASSERT_TRUE(k.waitFor(RSessionStatus::Kind::Debugging));
    QString out;
    for (const SessionEvent &event : k.eventsSince(mark, Kind::Output))
        out += event.text;
    EXPECT_EQ(out, u"in the browser 7 \n"_qs);
    k.session.sendRaw(u"c"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return paused.has_value(); }));
    EXPECT_TRUE(paused->ok);
    EXPECT_EQ(k.run(u"cat(getOption(\"continue\"))"_qs).output, u"+ "_qs);
}
