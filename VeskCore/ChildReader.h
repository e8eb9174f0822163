// The loop of a child's reader thread, shared by RProcess, the Claude process and CommandOutput:
// reads the child's standard output and error as they come, notices its exit, and reads on for a
// short while after it, so the last output comes before the exit even when a descendant holds the
// pipes open. Runs on the calling thread; the hooks are called there too.
#pragma once

#include "PosixChild.h"

#include <QByteArrayView>

#include <chrono>
#include <functional>
#include <optional>

class ChildReader {
public:
    // Takes over the descriptors (any may be -1); they are closed when run() returns.
    ChildReader(pid_t pid, int stdoutFd, int stderrFd, int exitFd);
    ChildReader(const ChildReader &) = delete;
    ChildReader &operator=(const ChildReader &) = delete;

    std::function<void(QByteArrayView)> onStdout;
    std::function<void(QByteArrayView)> onStderr;
    // Reaps the child (blocking); by default PosixChild::wait. A hook lets the owner reap under
    // its own lock, so that it never signals a reused process id.
    std::function<PosixExit()> reap;

    // How long to read on after the exit.
    std::chrono::milliseconds drain{200};
    // Reap when the exit is seen rather than after the drain.
    bool reapOnExit = false;
    // Give up waiting for the exit at this time; run() then returns nothing, the child unreaped.
    std::optional<std::chrono::steady_clock::time_point> deadline;

    // A child that flushes every small piece it prints would cost itself a context switch per
    // write and this thread a wake per read. Once reads come quickly one after another, pause
    // before each poll so that the pipes fill for a moment; a pause after which nothing has
    // arrived ends it. Enlarges the pipes so the child does not block meanwhile.
    void paceFloods();
    // From onStdout: the child waits for input, so the next answer must not wait.
    void endFlood();

    // Reads until the child has exited and its pipes are drained; its exit, reaped.
    std::optional<PosixExit> run();

private:
    void readFrom(int &fd, bool isStdout);
    void sawExit();
    void closeAll();

    pid_t m_pid;
    int m_stdout;
    int m_stderr;
    int m_exit;
    QByteArray m_chunk;
    std::optional<PosixExit> m_reaped;
    bool m_exited = false;
    std::chrono::steady_clock::time_point m_drainUntil;

    bool m_pacing = false;
    bool m_flooding = false;
    bool m_chunkFilled = false; // more is waiting: read on without a pause
    int m_quickReads = 0;
    std::chrono::steady_clock::time_point m_lastRead;
};
