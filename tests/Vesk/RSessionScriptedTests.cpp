// RSession driven without R: the process is scripted with the bytes R and the kernel print (frames,
// prompt markers, echoed lines), so every status and the paths a live R rarely takes are covered.
// The integration tests prove the same session against a real R.
#include "ScriptedProcess.h"
#include "Session/RSession.h"

#include <QCoreApplication>
#include <QDir>
#include <QPointer>

#include <gtest/gtest.h>

namespace {

using Kind = RSessionStatus::Kind;

struct ScriptedSession {
    RSession session;
    QPointer<ScriptedProcess> r;
    QString launchError;
    QList<SessionEvent> events;

    ScriptedSession()
    {
        session.processFactory = [this](const QString &, const QString &, const QString &) {
            auto process = std::make_unique<ScriptedProcess>(launchError);
            r = process.get();
            return process;
        };
        session.onEvent = [this](const SessionEvent &e) { events.append(e); };
    }
    void start() { session.start(u"R"_qs, QDir::tempPath(), u"kernel.R"_qs); }
    // What R prints from its start to the first framed prompt.
    void startReady()
    {
        start();
        r->print("R version 4.2.2\n> source(\"kernel.R\")\n" +
                 ScriptedProcess::frame(R"({"type":"ready","version":"4.2.2","pid":42})"));
        r->print(ScriptedProcess::frame(R"({"type":"state","state":{"wd":"/tmp","env":[]}})") +
                 ScriptedProcess::readyPrompt());
    }
    // A run R has read, with its result in `result` once the session reports it.
    void run(const QString &code, std::optional<ExecResult> &result)
    {
        session.enqueueExec(code, ExecOrigin::console(), std::nullopt, 1,
                            [&result](const ExecResult &r) { result = r; });
        r->readLine();
    }
    QList<SessionEvent> of(SessionEvent::Kind kind) const
    {
        QList<SessionEvent> out;
        for (const SessionEvent &e : events)
            if (e.kind == kind)
                out.append(e);
        return out;
    }
};

QByteArray done(bool ok = true)
{
    return ScriptedProcess::frame(ok ? R"({"type":"done","ok":true})" : R"({"type":"done","ok":false})");
}

} // namespace

TEST(RSessionScripted, StatusFollowsEachPromptFrameAndExit)
{
    std::optional<ExecResult> result;
    ScriptedSession s;
    struct Step {
        const char *what;
        std::function<void()> act;
        RSessionStatus expected;
    };
    const std::vector<Step> steps = {
        {"nothing started", [] {}, RSessionStatus::notStarted()},
        {"R launched", [&] { s.start(); }, RSessionStatus::starting()},
        {"banner before the kernel", [&] { s.r->print("R version 4.2.2\n"); }, RSessionStatus::starting()},
        {"the ready frame",
         [&] { s.r->print(ScriptedProcess::frame(R"({"type":"ready","version":"4.2.2","pid":42})")); },
         RSessionStatus::busy()},
        {"the first prompt", [&] { s.r->print(ScriptedProcess::readyPrompt()); }, RSessionStatus::idle()},
        {"a run that reads a line", [&] { s.run(u"x <- readline()"_qs, result); }, RSessionStatus::busy()},
        {"R asks for the line",
         [&] { s.r->print(ScriptedProcess::frame(R"({"type":"input","kind":"line"})")); },
         RSessionStatus::waitingForInput()},
        {"the user answers", [&] { s.session.sendRaw(u"Ada"_qs); }, RSessionStatus::busy()},
        {"R read it",
         [&] {
             s.r->readLine();
             s.r->print(ScriptedProcess::frame(R"({"type":"input_done"})"));
         },
         RSessionStatus::busy()},
        {"the run ends", [&] { s.r->print(done() + ScriptedProcess::readyPrompt()); },
         RSessionStatus::idle()},
        {"an unfinished line",
         [&] {
             s.session.sendRaw(u"1 +"_qs);
             s.r->readLine();
         },
         RSessionStatus::busy()},
        {"R continues it", [&] { s.r->print(ScriptedProcess::continuationPrompt()); },
         RSessionStatus::waitingForInput()},
        {"the rest of it", [&] { s.session.sendRaw(u"2"_qs); }, RSessionStatus::busy()},
        {"its value",
         [&] {
             s.r->readLine();
             s.r->print("[1] 3\n" + ScriptedProcess::readyPrompt());
         },
         RSessionStatus::idle()},
        {"a run that stops in the browser, where the session frames R's prompts first",
         [&] {
             s.run(u"f()"_qs, result);
             s.r->print("Called from: f()\n" + ScriptedProcess::browserPrompt(2));
         },
         RSessionStatus::busy()},
        {"the browser's prompt again",
         [&] {
             s.r->readLine();
             s.r->print(ScriptedProcess::browserPrompt(2));
         },
         RSessionStatus::debugging(2)},
        {"continue",
         [&] {
             s.session.sendRaw(u"c"_qs);
             s.r->readLine();
         },
         RSessionStatus::busy()},
        {"the run ends", [&] { s.r->print(done() + ScriptedProcess::readyPrompt()); },
         RSessionStatus::idle()},
        {"R dies", [&] { s.r->exit(9, u"R was killed"_qs); }, RSessionStatus::stopped(u"R was killed"_qs)},
        {"started again", [&] { s.startReady(); }, RSessionStatus::idle()},
        {"shut down", [&] { s.session.shutDown(); }, RSessionStatus::notStarted()},
        {"R cannot be launched",
         [&] {
             s.launchError = u"no such file"_qs;
             s.start();
         },
         RSessionStatus::stopped(u"Could not start R: no such file"_qs)},
    };
    for (const Step &step : steps) {
        SCOPED_TRACE(step.what);
        step.act();
        EXPECT_EQ(s.session.status().kind, step.expected.kind);
        EXPECT_EQ(s.session.status(), step.expected);
    }
    ASSERT_EQ(s.of(SessionEvent::Kind::Ready).size(), 2);
    EXPECT_EQ(s.of(SessionEvent::Kind::Ready)[0].info, (RInfo{u"4.2.2"_qs, 42, {}}));
    EXPECT_EQ(s.of(SessionEvent::Kind::Exited).size(), 1) << "a shutdown reports no exit";
}

TEST(RSessionScripted, TheSessionWritesOneLineAtATimeAndFramesTheBrowserFirst)
{
    std::optional<ExecResult> result;
    ScriptedSession s;
    s.startReady();
    s.run(u"f()"_qs, result);
    s.session.enqueueExec(u"later()"_qs, ExecOrigin::console());
    s.r->print("Called from: f()\n" + ScriptedProcess::browserPrompt(1));
    ASSERT_EQ(s.r->written.size(), 2);
    EXPECT_TRUE(s.r->written[0].startsWith(u".vesk$exec(\"r1\", \"f()\""_qs));
    EXPECT_EQ(s.r->written[1], u".vesk$browsing()"_qs) << "before any line of the user";
    s.r->readLine();
    s.r->print(ScriptedProcess::browserPrompt(1));
    EXPECT_EQ(s.session.status(), RSessionStatus::debugging(1));
    EXPECT_EQ(s.r->written.size(), 2) << "a queued run waits for the browser to end";
    s.session.request(u"ls"_qs, {}, {}, {});
    ASSERT_EQ(s.r->written.size(), 3) << "a request in the browser overtakes the queued run";
    EXPECT_EQ(s.r->written[2], u".vesk$ls(\"r4\")"_qs);
    EXPECT_EQ(s.session.queuedExecutions(), 1);
}

TEST(RSessionScripted, DebugLocationComesFromTheLastDebugLineBeforeTheBrowser)
{
    struct Case {
        QList<QByteArray> chunks;
        std::optional<std::pair<QString, int>> location;
    };
    const Case cases[] = {
        {{"debug at /tmp/a.R#3: x <- 1\n"}, std::pair(u"/tmp/a.R"_qs, 3)},
        {{"debug at /tmp/a", ".R#1", "2: y\n"}, std::pair(u"/tmp/a.R"_qs, 12)},
        {{"output\ndebug at /tmp/b#c.R#4: z\n"}, std::pair(u"/tmp/b#c.R"_qs, 4)},
        {{"debug at /tmp/a.R#3: f()\n", "debug at /tmp/a.R#4: g()\n"}, std::pair(u"/tmp/a.R"_qs, 4)},
        {{"debug at /tmp/grüße.R#7: x\n"}, std::pair(u"/tmp/grüße.R"_qs, 7)},
        {{"  debug at /tmp/a.R#3: x\n"}, std::nullopt},
        {{"debug at /tmp/a.R#x: x\n"}, std::nullopt},
        {{"debug: x <- 1\n"}, std::nullopt},
        // A line too long to hold is dropped, with any debug line it began.
        {{"debug at /tmp/a.R" + QByteArray(5000, 'x'), "#3: x\n"}, std::nullopt},
        {{QByteArray(5000, 'y'), "debug at /tmp/a.R#3: x\n"}, std::pair(u"/tmp/a.R"_qs, 3)},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.chunks.join('|').left(60).toStdString());
        std::optional<ExecResult> result;
        ScriptedSession s;
        s.startReady();
        s.run(u"f()"_qs, result);
        for (const QByteArray &chunk : k.chunks)
            s.r->print(chunk);
        s.r->print(ScriptedProcess::browserPrompt(1));
        s.r->readLine(); // the session's `.vesk$browsing()`
        s.r->print(ScriptedProcess::browserPrompt(1));
        const QList<SessionEvent> located = s.of(SessionEvent::Kind::DebugLocation);
        ASSERT_EQ(located.size(), k.location ? 1 : 0) << "once per stop, not at each prompt";
        if (!located.isEmpty()) {
            EXPECT_EQ(located[0].file, k.location->first);
            EXPECT_EQ(located[0].line, k.location->second);
        }
    }
}

TEST(RSessionScripted, AnExitEndsTheRunAndSaysWhetherRWasAskedToQuit)
{
    struct Case {
        const char *what;
        bool quitFrame;
        qint32 status;
        bool byQuitting;
        bool interrupted;
    };
    const Case cases[] = {
        {"q(status = 1)", true, 1, true, false},
        {"q()", true, 0, true, false},
        {"a crash", false, 1, false, true},
        {"an end without the quit frame", false, 0, true, true},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.what);
        std::optional<ExecResult> result, queued;
        ScriptedSession s;
        s.startReady();
        std::optional<RRequestResult> request;
        s.run(u"q(status = 1)"_qs, result);
        s.session.enqueueExec(u"1"_qs, ExecOrigin::console(), std::nullopt, 1,
                              [&](const ExecResult &r) { queued = r; });
        s.session.request(u"ls"_qs, {}, {}, [&](const RRequestResult &r) { request = r; });
        if (k.quitFrame)
            s.r->print(ScriptedProcess::frame(R"({"type":"quit"})"));
        s.r->exit(k.status, u"R exited"_qs);

        EXPECT_EQ(s.session.status(), RSessionStatus::stopped(u"R exited"_qs));
        ASSERT_EQ(s.of(SessionEvent::Kind::Exited).size(), 1);
        EXPECT_EQ(s.of(SessionEvent::Kind::Exited)[0].byQuitting, k.byQuitting);
        ASSERT_TRUE(result);
        EXPECT_EQ(result->interrupted, k.interrupted);
        EXPECT_EQ(result->ok, !k.interrupted);
        EXPECT_EQ(s.of(SessionEvent::Kind::Interrupted).size(), k.interrupted ? 1 : 0);
        EXPECT_EQ(queued, ExecResult::cancelled());
        ASSERT_TRUE(request);
        EXPECT_EQ(request->error(), RSessionError::notRunning());
        EXPECT_FALSE(s.session.isExecuting());
        EXPECT_TRUE(s.r) << "the process that reported its exit outlives its own report";
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_FALSE(s.r) << "and is released after it";
    }
}

TEST(RSessionScripted, ARequestsPrintsAreHiddenAndALostAnswerIsNoResponse)
{
    struct Case {
        const char *what;
        QByteArray answer;
        RRequestResult expected;
    };
    const Case cases[] = {
        {"a result", ScriptedProcess::frame(R"({"type":"response","id":"r1","result":{"n":1}})"),
         RRequestResult(*JSONValue::parse(QByteArrayView(R"({"n":1})")))},
        {"an R error", ScriptedProcess::frame(R"({"type":"response","id":"r1","error":"boom"})"),
         RSessionError::rError(u"boom"_qs)},
        {"an error without text", ScriptedProcess::frame(R"({"type":"response","id":"r1","error":true})"),
         RSessionError::rError(u"error"_qs)},
        {"a null error", ScriptedProcess::frame(R"({"type":"response","id":"r1","error":null,"result":2})"),
         RRequestResult(*JSONValue::parse(QByteArrayView("2")))},
        {"another request's answer", ScriptedProcess::frame(R"({"type":"response","id":"r9","result":1})"),
         RSessionError::noResponse()},
        {"no answer at all", {}, RSessionError::noResponse()},
    };
    for (const Case &k : cases) {
        SCOPED_TRACE(k.what);
        ScriptedSession s;
        s.startReady();
        s.events.clear();
        std::optional<RRequestResult> result;
        s.session.request(u"inspect"_qs, {RArgument(u"x"_qs)}, {},
                          [&](const RRequestResult &r) { result = r; });
        EXPECT_EQ(s.r->readLine(), u".vesk$inspect(\"r1\", \"x\")"_qs);
        s.r->print("[1] printed by the handler\n");
        s.r->printError(u"Warning: said on stderr\n"_qs);
        s.r->print(k.answer);
        EXPECT_FALSE(result) << "answered at the prompt, not before";
        s.r->print(ScriptedProcess::readyPrompt());
        ASSERT_TRUE(result);
        ASSERT_EQ(result->ok(), k.expected.ok());
        if (k.expected.ok()) {
            EXPECT_EQ(result->value(), k.expected.value());
        } else {
            EXPECT_EQ(result->error(), k.expected.error());
        }
        EXPECT_TRUE(s.of(SessionEvent::Kind::Output).isEmpty());
        EXPECT_TRUE(s.of(SessionEvent::Kind::Stderr).isEmpty());
        EXPECT_EQ(s.session.status(), RSessionStatus::idle());
    }
}

TEST(RSessionScripted, TwoRequestsAtAnIdlePromptGoOneAfterTheOther)
{
    ScriptedSession s;
    s.startReady();
    std::optional<RRequestResult> first, second;
    s.session.request(u"a"_qs, {}, {}, [&](const RRequestResult &r) { first = r; });
    s.session.request(u"b"_qs, {}, {}, [&](const RRequestResult &r) { second = r; });
    ASSERT_EQ(s.r->written.size(), 1) << "R reads one line at a prompt";
    EXPECT_EQ(s.r->readLine(), u".vesk$a(\"r1\")"_qs);
    EXPECT_EQ(s.session.status(), RSessionStatus::busy());
    s.r->print(ScriptedProcess::frame(R"({"type":"response","id":"r1","result":"A"})") +
               ScriptedProcess::readyPrompt());
    ASSERT_TRUE(first);
    EXPECT_EQ(first->value().stringValue(), u"A"_qs);
    EXPECT_FALSE(second);
    ASSERT_EQ(s.r->written.size(), 2);
    EXPECT_EQ(s.r->readLine(), u".vesk$b(\"r2\")"_qs);
    s.r->print(ScriptedProcess::frame(R"({"type":"response","id":"r2","result":"B"})") +
               ScriptedProcess::readyPrompt());
    ASSERT_TRUE(second);
    EXPECT_EQ(second->value().stringValue(), u"B"_qs);
    EXPECT_EQ(s.session.status(), RSessionStatus::idle());
}

TEST(RSessionScripted, InterruptCancelsQueuedRunsOnlyAndAlwaysSignalsR)
{
    std::optional<ExecResult> running, queued;
    ScriptedSession s;
    s.startReady();
    s.events.clear();
    s.session.interrupt();
    EXPECT_EQ(s.r->interrupts, 1) << "an empty queue still interrupts what R does";
    EXPECT_EQ(s.session.status(), RSessionStatus::idle());
    EXPECT_TRUE(s.events.isEmpty());
    EXPECT_EQ(s.r->written.size(), 0);

    std::optional<RRequestResult> request;
    s.run(u"Sys.sleep(10)"_qs, running);
    s.session.enqueueExec(u"2"_qs, ExecOrigin::console(), std::nullopt, 1,
                          [&](const ExecResult &r) { queued = r; });
    s.session.request(u"ls"_qs, {}, {}, [&](const RRequestResult &r) { request = r; });
    s.session.interrupt();
    EXPECT_EQ(s.r->interrupts, 2);
    EXPECT_EQ(queued, ExecResult::cancelled());
    EXPECT_EQ(s.session.queuedExecutions(), 0);
    EXPECT_FALSE(running) << "the running one ends when R says so";

    s.r->print(ScriptedProcess::frame(R"({"type":"interrupted"})") + done(false) +
               ScriptedProcess::readyPrompt());
    ASSERT_TRUE(running);
    EXPECT_TRUE(running->interrupted);
    EXPECT_FALSE(running->ok);
    EXPECT_EQ(s.of(SessionEvent::Kind::Interrupted).size(), 1)
        << "the kernel's, not one more of the session's";
    EXPECT_EQ(s.r->readLine(), u".vesk$ls(\"r3\")"_qs) << "the request was kept";
}

TEST(RSessionScripted, ARunCollectsWhatTheKernelReports)
{
    std::optional<ExecResult> result;
    ScriptedSession s;
    s.startReady();
    s.run(u"f()"_qs, result);
    s.r->print("out\n" + ScriptedProcess::frame(R"({"type":"message","text":"note\n"})"));
    s.r->print(ScriptedProcess::frame(R"j({"type":"warning","text":"careful","call":"f()"})j"));
    s.r->print(ScriptedProcess::frame(R"({"type":"plot","page":1,"file":"/tmp/p1.png","new":true})"));
    s.r->print(ScriptedProcess::frame(R"({"type":"plot","page":1,"file":"/tmp/p1.png"})"));
    s.r->print(
        ScriptedProcess::frame(R"j({"type":"error","text":"bad","call":"g()","traceback":{"call":"g()"}})j"));
    s.r->print(ScriptedProcess::frame(R"({"type":"newer_kind"})"));
    s.r->print(done(false) + ScriptedProcess::readyPrompt());

    ASSERT_TRUE(result);
    EXPECT_FALSE(result->ok);
    EXPECT_FALSE(result->interrupted);
    EXPECT_EQ(result->output, u"out\nnote\n"_qs);
    EXPECT_EQ(result->warnings, QStringList{u"careful"_qs});
    EXPECT_EQ(result->plots, QList<int>{1});
    ASSERT_TRUE(result->error);
    EXPECT_EQ(result->error->message, u"bad"_qs);
    EXPECT_EQ(result->error->traceback.size(), 1);
    QList<SessionEvent::Kind> kinds;
    for (const SessionEvent &e : s.events)
        if (e.kind != SessionEvent::Kind::Echo && e.kind != SessionEvent::Kind::Prompted &&
            e.kind != SessionEvent::Kind::State && e.kind != SessionEvent::Kind::Ready)
            kinds.append(e.kind);
    using K = SessionEvent::Kind;
    EXPECT_EQ(kinds, (QList<K>{K::ExecStarted, K::Output, K::Message, K::Warning, K::Plot, K::Plot, K::Error,
                               K::ExecFinished}));
}
