#include "CommandOutput.h"

#include "PosixChild.h"
#include "TextUnits.h"

#include <QByteArray>

#include <cerrno>
#include <csignal>

#include <poll.h>
#include <unistd.h>

namespace CommandOutput {

std::optional<QString> run(const QStringList &arguments, const std::optional<QStringList> &environment,
                           std::chrono::milliseconds timeout)
{
    if (arguments.isEmpty())
        return std::nullopt;
    PosixChild child;
    PosixChild::Options options;
    options.program = arguments.first();
    options.arguments = arguments.mid(1);
    options.environment = environment.value_or(PosixChild::systemEnvironment());
    options.pipeStdin = false;
    if (!child.start(options, nullptr))
        return std::nullopt;

    const auto deadline = std::chrono::steady_clock::now() + timeout;
    QByteArray output;
    char buffer[16384];
    int out = child.stdoutFd(), err = child.stderrFd();
    bool overran = false;
    while (out >= 0 || err >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            overran = true;
            break;
        }
        pollfd fds[2];
        int count = 0;
        if (out >= 0)
            fds[count++] = {out, POLLIN, 0};
        if (err >= 0)
            fds[count++] = {err, POLLIN, 0};
        const int ready = ::poll(fds, nfds_t(count), int(left.count()));
        if (ready < 0 && errno != EINTR)
            break;
        for (int i = 0; i < count && ready > 0; ++i) {
            if (!fds[i].revents)
                continue;
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                if (fds[i].fd == out)
                    output.append(buffer, n);
                continue;
            }
            if (n < 0 && errno == EINTR)
                continue;
            // End of file (or a dead pipe): stop watching this one.
            if (fds[i].fd == out)
                out = -1;
            else
                err = -1;
        }
    }
    if (overran)
        ::kill(child.pid(), SIGKILL);
    PosixChild::wait(child.pid());
    if (overran)
        return std::nullopt;
    return TextUnits::decodeUTF8(output);
}

} // namespace CommandOutput
