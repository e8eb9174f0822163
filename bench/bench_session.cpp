// Round trips through RSession and the kernel against a real R, and the kernel's cost of the
// "state" event: with many small objects, and with one large data frame (which must not matter).
#include "BenchFigures.h"
#include "BenchSession.h"
#include "Session/RSession.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

ExecResult run(RSession &session, const QString &code)
{
    return runInSession(session, code);
}

double execRoundTripMs(RSession &session, const QString &code, int runs)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        run(session, code);
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    return median(times);
}

double requestRoundTripMs(RSession &session, const QString &name, const QList<RArgument> &args, int runs)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        bool done = false;
        QElapsedTimer timer;
        timer.start();
        session.request(name, args, {}, [&](const RRequestResult &) { done = true; });
        TestSupport::waitForEvents([&] { return done; });
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    return median(times);
}

// The median over several calls of the kernel's own state function, measured inside R.
double stateCostInR(RSession &session)
{
    const ExecResult result = run(session, QStringLiteral("local({\n"
                                                          "  t <- vapply(1:25, function(i) {\n"
                                                          "    s <- Sys.time(); .vesk$stateJSON()\n"
                                                          "    as.numeric(Sys.time() - s, units = \"secs\")\n"
                                                          "  }, 0)\n"
                                                          "  cat(sprintf(\"%.3f\", median(t) * 1000))\n"
                                                          "})"));
    return result.output.trimmed().toDouble();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    RSession session;
    session.start(TestSupport::rExecutable(), QDir::tempPath(), TestSupport::kernelScript());
    bool ready = false;
    QObject::connect(&session, &RSession::statusChanged, [&] {
        if (session.status().kind == RSessionStatus::Kind::Idle)
            ready = true;
    });
    if (!TestSupport::waitForEvents([&] { return ready; }, std::chrono::seconds(30))) {
        std::fprintf(stderr, "R did not start\n");
        return 1;
    }

    execRoundTripMs(session, QStringLiteral("1+1"), 20); // warm-up: byte compilation of the kernel
    requestRoundTripMs(session, QStringLiteral("inspect"), {RArgument("mtcars")}, 20);
    printFigure("session_exec_roundtrip_median", execRoundTripMs(session, QStringLiteral("1+1"), 200), "ms");
    printFigure("session_request_roundtrip_median",
                requestRoundTripMs(session, QStringLiteral("setWidth"), {RArgument(80)}, 200), "ms");
    printFigure("session_inspect_roundtrip_median",
                requestRoundTripMs(session, QStringLiteral("inspect"), {RArgument("mtcars")}, 200), "ms");

    // 1,000 objects of the usual kinds: vectors, strings, data frames, functions, lists, scalars.
    run(session,
        QStringLiteral(
            "local({ set.seed(1); for (i in 1:1000) assign(sprintf(\"obj%04d\", i),\n"
            "  switch(i %% 6 + 1, runif(100), letters, data.frame(a = 1:10, b = letters[1:10]),\n"
            "         eval(bquote(function(x) x + .(i))), list(1, \"a\"), i), envir = globalenv()) })"));
    printFigure("kernel_state_1000_objects", stateCostInR(session), "ms");
    printFigure("session_exec_roundtrip_1000_objects_median",
                execRoundTripMs(session, QStringLiteral("1+1"), 50), "ms");

    // 10,000 objects of the same kinds.
    run(session,
        QStringLiteral(
            "local({ set.seed(1); for (i in 1001:10000) assign(sprintf(\"obj%05d\", i),\n"
            "  switch(i %% 6 + 1, runif(100), letters, data.frame(a = 1:10, b = letters[1:10]),\n"
            "         eval(bquote(function(x) x + .(i))), list(1, \"a\"), i), envir = globalenv()) })"));
    printFigure("session_exec_roundtrip_10000_objects_median",
                execRoundTripMs(session, QStringLiteral("1+1"), 30), "ms");

    // One large data frame and a long character vector: the cost must not follow their size.
    run(session,
        QStringLiteral("rm(list = ls()); big <- data.frame(x = runif(1e6), y = sample(letters, 1e6, TRUE),\n"
                       "  z = as.character(seq_len(1e6))); words <- as.character(seq_len(1e7))"));
    printFigure("kernel_state_large_frame_1e6_rows", stateCostInR(session), "ms");
    run(session, QStringLiteral("rm(list = ls())"));
    printFigure("kernel_state_empty", stateCostInR(session), "ms");

    // How long an interrupted Sys.sleep(60) takes to come back.
    std::vector<double> latencies;
    for (int i = 0; i < 5; ++i) {
        bool done = false;
        session.enqueueExec(QStringLiteral("Sys.sleep(60)"), ExecOrigin::system(), std::nullopt, 1,
                            [&](const ExecResult &) { done = true; });
        bool slept = false;
        QTimer::singleShot(200, [&] { slept = true; });
        TestSupport::waitForEvents([&] { return slept; });
        QElapsedTimer timer;
        timer.start();
        session.interrupt();
        TestSupport::waitForEvents([&] { return done; });
        latencies.push_back(timer.nsecsElapsed() / 1e6);
    }
    printFigure("session_interrupt_latency_median", median(latencies), "ms");
    session.shutDown();
    return 0;
}
