// The child-process layer under RProcess, the Claude process and CommandOutput: spawn with three
// pipes, signal, and reap with the exit status or the signal that ended the child. A child does not
// outlive Vesk: the kernel kills it when Vesk ends, even by SIGKILL or a crash.
#pragma once

#include <QString>
#include <QStringList>

#include <sys/types.h>

struct PosixExit {
    bool signaled = false;
    int code = 0; // exit status, or the signal number when signaled
};

class PosixChild {
public:
    struct Options {
        QString program;
        QStringList arguments; // without the program itself
        QString workingDirectory;
        QStringList environment;   // "KEY=value"
        bool pipeStdin = true;     // else /dev/null
        bool endWithParent = true; // false only for a watcher that must act once Vesk is gone
    };

    PosixChild() = default;
    ~PosixChild();
    PosixChild(const PosixChild &) = delete;
    PosixChild &operator=(const PosixChild &) = delete;

    // Launches the child; on failure returns false and a description in *error.
    bool start(const Options &options, QString *error);

    pid_t pid() const { return m_pid; }
    // The parent's ends of the pipes; -1 once closed or when not piped.
    int stdinFd() const { return m_stdin; }
    int stdoutFd() const { return m_stdout; }
    int stderrFd() const { return m_stderr; }
    // A descriptor that polls readable when the child has exited; -1 where the kernel has none.
    int exitFd() const { return m_pidfd; }

    void closeStdin();
    // Ownership of the descriptors passes to the caller.
    void releaseDescriptors();

    // Blocking reap; only one thread may reap.
    static PosixExit wait(pid_t pid);
    // Whether the child has exited, without reaping it.
    static bool hasExited(pid_t pid);

    // SIGPIPE is ignored once per process, so that a write to a dead child fails with EPIPE.
    static void ignoreSigpipe();
    // The parent environment as "KEY=value" entries.
    static QStringList systemEnvironment();

private:
    pid_t m_pid = -1;
    int m_stdin = -1;
    int m_stdout = -1;
    int m_stderr = -1;
    int m_pidfd = -1;
};
