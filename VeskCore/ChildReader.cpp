#include "ChildReader.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// Milliseconds until `until` for poll(), rounded up so that a wake is never early.
int msUntil(Clock::time_point until)
{
    return int(
        std::max<qint64>(0, std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count()));
}

} // namespace

ChildReader::ChildReader(pid_t pid, int stdoutFd, int stderrFd, int exitFd)
    : reap([pid] { return PosixChild::wait(pid); }), m_pid(pid), m_stdout(stdoutFd), m_stderr(stderrFd),
      m_exit(exitFd), m_chunk(64 * 1024, Qt::Uninitialized)
{
}

void ChildReader::paceFloods()
{
    m_pacing = true;
    // Best effort: the system may refuse the size.
    for (const int fd : {m_stdout, m_stderr})
        if (fd >= 0)
            ::fcntl(fd, F_SETPIPE_SZ, 1 << 20);
}

void ChildReader::endFlood()
{
    m_flooding = false;
    m_quickReads = 0;
}

void ChildReader::readFrom(int &fd, bool isStdout)
{
    constexpr auto burstGap = std::chrono::microseconds(500);
    constexpr int burstReads = 16;
    const ssize_t n = ::read(fd, m_chunk.data(), size_t(m_chunk.size()));
    if (n > 0) {
        m_chunkFilled = n == m_chunk.size();
        const auto now = Clock::now();
        m_quickReads = now - m_lastRead < burstGap ? m_quickReads + 1 : 0;
        m_lastRead = now;
        if (m_pacing && m_quickReads >= burstReads)
            m_flooding = true;
        if (const auto &hook = isStdout ? onStdout : onStderr)
            hook(QByteArrayView(m_chunk.constData(), n));
    } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
        ::close(fd);
        fd = -1;
    }
}

void ChildReader::sawExit()
{
    m_exited = true;
    if (reapOnExit)
        m_reaped = reap();
    // Output still in the pipes comes before the exit; a descendant that holds them open does not
    // hold the exit back for longer than this.
    m_drainUntil = Clock::now() + drain;
}

void ChildReader::closeAll()
{
    for (int *fd : {&m_stdout, &m_stderr, &m_exit}) {
        if (*fd >= 0)
            ::close(*fd);
        *fd = -1;
    }
}

std::optional<PosixExit> ChildReader::run()
{
    constexpr auto floodPause = std::chrono::milliseconds(2);
    bool overran = false;
    for (;;) {
        if (m_exited && (Clock::now() >= m_drainUntil || (m_stdout < 0 && m_stderr < 0)))
            break;
        if (!m_exited && m_stdout < 0 && m_stderr < 0 && !deadline)
            break; // nothing left to read: the reap below waits for the exit
        if (!m_exited && deadline && Clock::now() >= *deadline) {
            overran = true;
            break;
        }
        pollfd fds[3];
        nfds_t count = 0;
        int outIndex = -1, errIndex = -1, exitIndex = -1;
        if (m_stdout >= 0) {
            outIndex = int(count);
            fds[count++] = {m_stdout, POLLIN, 0};
        }
        if (m_stderr >= 0) {
            errIndex = int(count);
            fds[count++] = {m_stderr, POLLIN, 0};
        }
        if (!m_exited && m_exit >= 0) {
            exitIndex = int(count);
            fds[count++] = {m_exit, POLLIN, 0};
        }
        int timeout = -1;
        if (m_exited)
            timeout = msUntil(m_drainUntil);
        else if (m_exit < 0)
            timeout = 50; // no exit descriptor: look for the exit now and then
        if (!m_exited && deadline)
            timeout = timeout < 0 ? msUntil(*deadline) : std::min(timeout, msUntil(*deadline));
        if (m_flooding && !m_exited && !m_chunkFilled) {
            std::this_thread::sleep_for(floodPause);
            // Nothing came during the pause: the flood is over, and the next wake is immediate again.
            if (::poll(fds, count, 0) == 0)
                endFlood();
        }
        const int ready = ::poll(fds, count, timeout);
        if (ready < 0 && errno != EINTR)
            break;
        if (ready > 0) {
            if (outIndex >= 0 && fds[outIndex].revents)
                readFrom(m_stdout, true);
            if (errIndex >= 0 && fds[errIndex].revents)
                readFrom(m_stderr, false);
        }
        if (!m_exited && ((exitIndex >= 0 && ready > 0 && fds[exitIndex].revents) ||
                          (m_exit < 0 && PosixChild::hasExited(m_pid))))
            sawExit();
    }
    if (!overran && !m_reaped)
        m_reaped = reap();
    closeAll();
    return overran ? std::nullopt : m_reaped;
}
