#include "PosixChild.h"

#include "SerialQueue.h"

#include <QFileInfo>
#include <QProcessEnvironment>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <future>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

QString errnoText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

void closeFd(int &fd)
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

PosixExit fromStatus(int status)
{
    if (WIFSIGNALED(status))
        return {true, WTERMSIG(status)};
    if (WIFEXITED(status))
        return {false, WEXITSTATUS(status)};
    return {false, status};
}

} // namespace

PosixChild::~PosixChild()
{
    closeFd(m_stdin);
    closeFd(m_stdout);
    closeFd(m_stderr);
    closeFd(m_pidfd);
}

void PosixChild::ignoreSigpipe()
{
    static std::once_flag once;
    std::call_once(once, [] { ::signal(SIGPIPE, SIG_IGN); });
}

QStringList PosixChild::systemEnvironment()
{
    return QProcessEnvironment::systemEnvironment().toStringList();
}

namespace {

// Everything the child needs, prepared before the fork: after it, the child may only make
// async-signal-safe calls (another thread of Vesk may hold the allocator's lock).
struct ChildPlan {
    const char *program = nullptr;
    char *const *argv = nullptr;
    char *const *envp = nullptr;
    const char *workingDirectory = nullptr; // null: stay
    int stdinFd = -1;                       // -1: /dev/null
    int stdoutFd = -1;
    int stderrFd = -1;
    int errorFd = -1; // written with errno when the child cannot exec
    pid_t parent = -1;
    bool endWithParent = true;
};

bool moveTo(int fd, int target)
{
    if (fd == target)
        return ::fcntl(fd, F_SETFD, 0) == 0; // dup2 onto itself would keep close-on-exec
    return ::dup2(fd, target) == target;
}

[[noreturn]] void reportAndExit(int errorFd)
{
    const int error = errno;
    while (::write(errorFd, &error, sizeof error) < 0 && errno == EINTR) {
    }
    ::_exit(127);
}

[[noreturn]] void runChild(const ChildPlan &plan)
{
    const auto fail = [&] { reportAndExit(plan.errorFd); };
    // Default handling for every signal before any is unblocked, so no handler of Vesk runs here.
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigemptyset(&standard.sa_mask);
    for (int signal = 1; signal < NSIG; ++signal)
        if (signal != SIGKILL && signal != SIGSTOP)
            ::sigaction(signal, &standard, nullptr); // glibc's own signals refuse: fine
    // A process group of its own: a Ctrl+C in the terminal that started Vesk does not reach R.
    if (::setpgid(0, 0) != 0)
        fail();
    // The child must not outlive Vesk, however Vesk ends. Vesk may have died before this line, and
    // then the child belongs to another parent already.
    if (plan.endWithParent) {
        if (::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
            fail();
        if (::getppid() != plan.parent)
            ::_exit(127);
    }
    if (plan.stdinFd >= 0) {
        if (!moveTo(plan.stdinFd, 0))
            fail();
    } else {
        const int null = ::open("/dev/null", O_RDONLY);
        if (null < 0 || !moveTo(null, 0))
            fail();
        if (null != 0)
            ::close(null);
    }
    if (!moveTo(plan.stdoutFd, 1) || !moveTo(plan.stderrFd, 2))
        fail();
    if (plan.workingDirectory && ::chdir(plan.workingDirectory) != 0)
        fail();
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::execve(plan.program, plan.argv, plan.envp);
    reportAndExit(plan.errorFd);
}

// Forks and execs; on failure returns -1 with the error number in *error.
pid_t forkChild(ChildPlan plan, int *error)
{
    int report[2] = {-1, -1};
    if (::pipe2(report, O_CLOEXEC) != 0) {
        *error = errno;
        return -1;
    }
    plan.errorFd = report[1];
    plan.parent = ::getpid();
    // Signals stay blocked across the fork, until the child has reset their handlers.
    sigset_t all, saved;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &saved);
    const pid_t pid = ::fork();
    if (pid == 0)
        runChild(plan);
    const int forkError = errno;
    ::pthread_sigmask(SIG_SETMASK, &saved, nullptr);
    ::close(report[1]);
    if (pid < 0) {
        ::close(report[0]);
        *error = forkError;
        return -1;
    }
    // The report pipe closes at the exec; an errno arrives instead when the child could not get there.
    int childError = 0;
    ssize_t n;
    do
        n = ::read(report[0], &childError, sizeof childError);
    while (n < 0 && errno == EINTR);
    ::close(report[0]);
    if (n == sizeof childError) {
        PosixChild::wait(pid);
        *error = childError;
        return -1;
    }
    return pid;
}

// PR_SET_PDEATHSIG follows the thread that forked, not the process: a child forked on a thread that
// ends would be killed with it. The main thread lasts as long as the process; other threads fork
// on one that is never ended either.
pid_t forkOnLastingThread(const ChildPlan &plan, int *error)
{
    if (::syscall(SYS_gettid) == ::getpid())
        return forkChild(plan, error);
    static SerialQueue *const forker = new SerialQueue("vesk.fork");
    std::promise<pid_t> result;
    forker->submit([&] { result.set_value(forkChild(plan, error)); });
    return result.get_future().get();
}

} // namespace

bool PosixChild::start(const Options &options, QString *error)
{
    ignoreSigpipe();
    auto fail = [&](const QString &text) {
        if (error)
            *error = text;
        return false;
    };
    if (!options.workingDirectory.isEmpty() && !QFileInfo(options.workingDirectory).isDir())
        return fail(QStringLiteral("The working directory %1 does not exist.").arg(options.workingDirectory));

    int in[2] = {-1, -1}, out[2] = {-1, -1}, err[2] = {-1, -1};
    auto closeAll = [&] {
        for (int *pair : {in, out, err})
            for (int i = 0; i < 2; ++i)
                if (pair[i] >= 0)
                    ::close(pair[i]);
    };
    if ((options.pipeStdin && ::pipe2(in, O_CLOEXEC) != 0) || ::pipe2(out, O_CLOEXEC) != 0 ||
        ::pipe2(err, O_CLOEXEC) != 0) {
        const int saved = errno;
        closeAll();
        return fail(errnoText(saved));
    }

    std::vector<QByteArray> storage;
    storage.reserve(options.arguments.size() + options.environment.size() + 2);
    std::vector<char *> argv, envp;
    storage.push_back(options.program.toLocal8Bit());
    argv.push_back(storage.back().data());
    for (const QString &argument : options.arguments) {
        storage.push_back(argument.toLocal8Bit());
        argv.push_back(storage.back().data());
    }
    argv.push_back(nullptr);
    for (const QString &entry : options.environment) {
        storage.push_back(entry.toLocal8Bit());
        envp.push_back(storage.back().data());
    }
    envp.push_back(nullptr);
    storage.push_back(options.workingDirectory.toLocal8Bit());
    const QByteArray &cwd = storage.back();

    ChildPlan plan;
    plan.program = argv[0];
    plan.argv = argv.data();
    plan.envp = envp.data();
    plan.workingDirectory = cwd.isEmpty() ? nullptr : cwd.constData();
    plan.stdinFd = options.pipeStdin ? in[0] : -1;
    plan.stdoutFd = out[1];
    plan.stderrFd = err[1];
    plan.endWithParent = options.endWithParent;
    int spawnError = 0;
    const pid_t pid = forkOnLastingThread(plan, &spawnError);
    if (pid < 0) {
        closeAll();
        return fail(QStringLiteral("%1: %2").arg(options.program, errnoText(spawnError)));
    }

    // The child's ends belong to the child now.
    for (int fd : {in[0], out[1], err[1]})
        if (fd >= 0)
            ::close(fd);
    m_pid = pid;
    m_stdin = options.pipeStdin ? in[1] : -1;
    m_stdout = out[0];
    m_stderr = err[0];
#ifdef SYS_pidfd_open
    m_pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (m_pidfd >= 0)
        ::fcntl(m_pidfd, F_SETFD, FD_CLOEXEC);
#endif
    return true;
}

void PosixChild::closeStdin()
{
    closeFd(m_stdin);
}

void PosixChild::releaseDescriptors()
{
    m_stdin = m_stdout = m_stderr = m_pidfd = -1;
}

PosixExit PosixChild::wait(pid_t pid)
{
    int status = 0;
    for (;;) {
        const pid_t result = ::waitpid(pid, &status, 0);
        if (result == pid)
            return fromStatus(status);
        if (result < 0 && errno != EINTR)
            return {false, -1};
    }
}

bool PosixChild::hasExited(pid_t pid)
{
    siginfo_t info{};
    if (::waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return errno == ECHILD;
    return info.si_pid == pid;
}
