#include "PosixChild.h"

#include <QFileInfo>
#include <QProcessEnvironment>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
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

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (options.pipeStdin)
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    else
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    const QByteArray cwd = options.workingDirectory.toLocal8Bit();
    if (!cwd.isEmpty())
        posix_spawn_file_actions_addchdir_np(&actions, cwd.constData());

    // The child starts with default signal handling, nothing blocked, and in a process group of its
    // own, so a Ctrl+C in the terminal that started Vesk does not reach R.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t all, none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);

    std::vector<QByteArray> storage;
    storage.reserve(options.arguments.size() + options.environment.size() + 1);
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

    pid_t pid = -1;
    const int result = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (result != 0) {
        closeAll();
        return fail(QStringLiteral("%1: %2").arg(options.program, errnoText(result)));
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

std::optional<PosixExit> PosixChild::tryWait(pid_t pid)
{
    int status = 0;
    for (;;) {
        const pid_t result = ::waitpid(pid, &status, WNOHANG);
        if (result == 0)
            return std::nullopt;
        if (result == pid)
            return fromStatus(status);
        if (result < 0 && errno != EINTR)
            return PosixExit{false, -1};
    }
}

bool PosixChild::hasExited(pid_t pid)
{
    siginfo_t info{};
    if (::waitid(P_PID, id_t(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return errno == ECHILD;
    return info.si_pid == pid;
}
