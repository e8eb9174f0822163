// Launch: from starting an RSession's process to the kernel's "ready" (the session idle), next to
// R's own start and quit (`R --quiet -e 'q()'`), as medians of several runs, and their ratio.
#include "BenchFigures.h"
#include "Session/RSession.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>

#include <cstdio>
#include <vector>

namespace {

// Milliseconds from start() to the idle status, or a negative figure if R never got there.
double sessionLaunchMs()
{
    RSession session;
    bool ready = false;
    QObject::connect(&session, &RSession::statusChanged, [&] {
        if (session.status().kind == RSessionStatus::Kind::Idle)
            ready = true;
    });
    QElapsedTimer timer;
    timer.start();
    session.start(TestSupport::rExecutable(), QDir::tempPath(), TestSupport::kernelScript());
    if (!TestSupport::waitForEvents([&] { return ready; }, std::chrono::seconds(30)))
        return -1;
    const double ms = timer.nsecsElapsed() / 1e6;
    session.shutDown();
    return ms;
}

double plainRMs()
{
    QElapsedTimer timer;
    timer.start();
    const TestSupport::ProgramRun run = TestSupport::runProgram(
        TestSupport::rExecutable(), {QStringLiteral("--quiet"), QStringLiteral("-e"), QStringLiteral("q()")});
    return run.status == 0 ? timer.nsecsElapsed() / 1e6 : -1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int runs = 9;
    std::vector<double> session;
    std::vector<double> plain;
    plainRMs(); // warm-up: R's files into the page cache
    for (int i = 0; i < runs; ++i) {
        // Interleaved, so that a busy moment of the machine weighs on both alike.
        const double s = sessionLaunchMs();
        const double p = plainRMs();
        if (s < 0 || p < 0) {
            std::fprintf(stderr, "R did not start\n");
            return 1;
        }
        session.push_back(s);
        plain.push_back(p);
    }
    printFigure("launch_session_ready_median", median(session), "ms");
    printFigure("launch_r_quiet_q_median", median(plain), "ms");
    printFigure("launch_ratio_session_to_r", median(session) / median(plain), "x");
    return 0;
}
