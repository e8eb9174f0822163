// The shared reader loop on shell children: a pipe that closes long before the exit, a descendant
// that keeps the pipes open after it, and a child that outlives the deadline with its pipes closed.
#include "ChildReader.h"

#include <gtest/gtest.h>

#include <csignal>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

struct Outcome {
    QByteArray out, err;
    std::optional<PosixExit> exit;
    int reaps = 0;
    std::chrono::steady_clock::time_point lastOutput, reapedAt, returnedAt;
    std::chrono::steady_clock::duration took{};
};

// Runs `script` in sh through a reader; without `withExitFd` the reader polls for the exit instead.
Outcome readChild(const char *script, bool withExitFd, const std::function<void(ChildReader &)> &setUp = {})
{
    PosixChild child;
    PosixChild::Options options;
    options.program = QStringLiteral("/bin/sh");
    options.arguments = {QStringLiteral("-c"), QString::fromUtf8(script)};
    options.pipeStdin = false;
    Outcome outcome;
    EXPECT_TRUE(child.start(options, nullptr));
    if (!withExitFd && child.exitFd() >= 0)
        ::close(child.exitFd());
    ChildReader reader(child.pid(), child.stdoutFd(), child.stderrFd(), withExitFd ? child.exitFd() : -1);
    child.releaseDescriptors();
    reader.onStdout = [&](QByteArrayView bytes) {
        outcome.out.append(bytes);
        outcome.lastOutput = std::chrono::steady_clock::now();
    };
    reader.onStderr = [&](QByteArrayView bytes) { outcome.err.append(bytes); };
    reader.reap = [&, pid = child.pid()] {
        ++outcome.reaps;
        outcome.reapedAt = std::chrono::steady_clock::now();
        return PosixChild::wait(pid);
    };
    if (setUp)
        setUp(reader);
    const auto start = std::chrono::steady_clock::now();
    outcome.exit = reader.run();
    outcome.returnedAt = std::chrono::steady_clock::now();
    outcome.took = outcome.returnedAt - start;
    if (!outcome.exit) {
        ::kill(-child.pid(), SIGKILL);
        PosixChild::wait(child.pid());
    }
    return outcome;
}

TEST(ChildReader, ReadsTheOtherPipeAfterOneClosesUntilTheExit)
{
    for (const bool withExitFd : {true, false}) {
        SCOPED_TRACE(withExitFd ? "exit descriptor" : "polling for the exit");
        const Outcome outcome = readChild("echo out; exec >&-; sleep 0.3; echo late >&2; exit 3", withExitFd);
        EXPECT_EQ(outcome.out, "out\n");
        EXPECT_EQ(outcome.err, "late\n");
        ASSERT_TRUE(outcome.exit);
        EXPECT_FALSE(outcome.exit->signaled);
        EXPECT_EQ(outcome.exit->code, 3);
        EXPECT_EQ(outcome.reaps, 1);
    }
}

TEST(ChildReader, ADescendantHoldingThePipesDoesNotHoldTheExitBack)
{
    for (const bool reapOnExit : {false, true}) {
        SCOPED_TRACE(reapOnExit ? "reaped on exit" : "reaped after the drain");
        // The sleep keeps both pipes open for seconds after its parent has exited.
        const Outcome outcome = readChild("sleep 3 & echo hi; exit 5", true, [&](ChildReader &reader) {
            reader.reapOnExit = reapOnExit;
            reader.drain = 100ms;
        });
        EXPECT_EQ(outcome.out, "hi\n");
        ASSERT_TRUE(outcome.exit);
        EXPECT_EQ(outcome.exit->code, 5);
        EXPECT_EQ(outcome.reaps, 1);
        EXPECT_LT(outcome.took, 2s);
        // The drain follows the reap, or the reap follows the drain.
        if (reapOnExit)
            EXPECT_GE(outcome.returnedAt - outcome.reapedAt, 100ms);
        else
            EXPECT_GE(outcome.reapedAt - outcome.lastOutput, 100ms);
    }
}

TEST(ChildReader, GivesUpAtTheDeadlineWhenTheChildClosedItsPipesButRuns)
{
    const Outcome outcome = readChild("exec >&- 2>&-; sleep 30", true, [](ChildReader &reader) {
        reader.deadline = std::chrono::steady_clock::now() + 200ms;
    });
    EXPECT_FALSE(outcome.exit);
    EXPECT_EQ(outcome.reaps, 0);
    EXPECT_LT(outcome.took, 10s);
}

} // namespace
