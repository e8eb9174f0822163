#include "SocketTransport.h"

#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

SocketTransport::SocketTransport(int fd) : m_fd(fd), m_wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

SocketTransport::~SocketTransport()
{
    close();
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

HTTPTransport::Readiness SocketTransport::wait(bool wantInput,
                                               std::optional<std::chrono::milliseconds> timeout)
{
    Readiness ready;
    if (m_wakeFd < 0 || m_fd < 0) {
        ready.failed = true;
        return ready;
    }
    // A socket left out of the poll (negative fd) is not read at all: that is the back-pressure.
    pollfd fds[2] = {{m_wakeFd, POLLIN, 0}, {wantInput ? m_fd : -1, POLLIN, 0}};
    const int n = ::poll(fds, 2, timeout ? int(qMax<qint64>(0, timeout->count())) : -1);
    if (n < 0) {
        ready.failed = errno != EINTR;
        return ready;
    }
    ready.timedOut = n == 0 && timeout;
    if (fds[0].revents) {
        drain();
        ready.woken = true;
    }
    ready.input = fds[1].revents & (POLLIN | POLLHUP | POLLERR);
    return ready;
}

qsizetype SocketTransport::read(char *data, qsizetype capacity)
{
    const ssize_t n = ::recv(m_fd, data, size_t(capacity), 0);
    if (n < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? -1 : 0;
    return qsizetype(n);
}

bool SocketTransport::write(QByteArrayView bytes, const std::function<bool()> &abandon)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(m_fd, bytes.data() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
        if (n > 0) {
            sent += n;
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            // A client that does not read blocks only its own connection, and a shutdown still gets in.
            pollfd fds[2] = {{m_wakeFd, POLLIN, 0}, {m_fd, POLLOUT, 0}};
            if (::poll(fds, 2, -1) < 0 && errno != EINTR)
                return false;
            if (fds[0].revents) {
                drain();
                if (abandon())
                    return false;
            }
            if (fds[1].revents & (POLLERR | POLLHUP | POLLNVAL))
                return false;
            continue;
        }
        return false;
    }
    return true;
}

void SocketTransport::shutdownWrite()
{
    if (m_fd >= 0)
        ::shutdown(m_fd, SHUT_WR);
}

void SocketTransport::close()
{
    if (m_fd < 0)
        return;
    ::shutdown(m_fd, SHUT_RDWR);
    ::close(m_fd);
    m_fd = -1;
}

void SocketTransport::wake()
{
    const uint64_t one = 1;
    [[maybe_unused]] ssize_t n = ::write(m_wakeFd, &one, sizeof one);
}

void SocketTransport::drain() const
{
    uint64_t value;
    [[maybe_unused]] ssize_t n = ::read(m_wakeFd, &value, sizeof value);
}
