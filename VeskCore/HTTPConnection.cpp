#include "HTTPConnection.h"

#include "SerialQueue.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

// What other threads hand to the connection: a finished response or a shutdown request. The eventfd
// wakes the connection's poll; it lives as long as a completion may still hold the mailbox.
struct HTTPConnection::Mailbox {
    std::mutex mutex;
    std::optional<HTTPResponse> response;
    quint64 serial = 0; // the request the response answers
    bool shutDown = false;
    int wakeFd = -1;
    // The connection's own thread. A completion that runs there runs inside dispatch(), which
    // looks into the mailbox right after, so it needs no wake-up.
    std::thread::id owner;

    Mailbox() : wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~Mailbox()
    {
        if (wakeFd >= 0)
            ::close(wakeFd);
    }
    void wake() const
    {
        const uint64_t one = 1;
        [[maybe_unused]] ssize_t n = ::write(wakeFd, &one, sizeof one);
    }
    void drain() const
    {
        uint64_t value;
        [[maybe_unused]] ssize_t n = ::read(wakeFd, &value, sizeof value);
    }
};

namespace {
constexpr qsizetype receiveChunk = 256 * 1024;
}

HTTPConnection::HTTPConnection(int fd, qint64 maxBodyBytes, Handler handler,
                               std::function<void(HTTPConnection *)> onClose)
    : m_fd(fd), m_handler(std::move(handler)), m_onClose(std::move(onClose)), m_parser(maxBodyBytes),
      m_mailbox(std::make_shared<Mailbox>())
{
}

HTTPConnection::~HTTPConnection()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

void HTTPConnection::shutDown()
{
    {
        std::lock_guard lock(m_mailbox->mutex);
        m_mailbox->shutDown = true;
    }
    m_mailbox->wake();
}

bool HTTPConnection::wantsInput() const
{
    if (m_closed || m_peerClosed)
        return false;
    if (m_busy && !m_closing && m_parser.unconsumedBytes() >= maxReadAhead)
        return false;
    return true;
}

void HTTPConnection::run()
{
    setCurrentThreadName("vesk.mcp.connection");
    m_mailbox->owner = std::this_thread::get_id();
    if (m_mailbox->wakeFd < 0) {
        close();
        return;
    }
    while (!m_closed) {
        // A socket left out of the poll (negative fd) is not read at all: that is the back-pressure.
        pollfd fds[2] = {{m_mailbox->wakeFd, POLLIN, 0}, {wantsInput() ? m_fd : -1, POLLIN, 0}};
        int timeout = -1;
        if (m_lingerUntil) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                *m_lingerUntil - std::chrono::steady_clock::now());
            timeout = int(qMax<qint64>(0, left.count()));
        }
        const int ready = ::poll(fds, 2, timeout);
        if (ready < 0 && errno != EINTR) {
            close();
            break;
        }
        if (fds[0].revents) {
            m_mailbox->drain();
            takeMail();
        }
        if (!m_closed && (fds[1].revents & (POLLIN | POLLHUP | POLLERR)))
            receive();
        if (!m_closed && m_lingerUntil && std::chrono::steady_clock::now() >= *m_lingerUntil)
            close();
    }
}

void HTTPConnection::takeMail()
{
    std::optional<HTTPResponse> response;
    bool shutDown = false;
    {
        std::lock_guard lock(m_mailbox->mutex);
        shutDown = m_mailbox->shutDown;
        if (m_mailbox->response && m_mailbox->serial == m_serial)
            response = std::move(m_mailbox->response);
        m_mailbox->response.reset();
    }
    if (shutDown) {
        close();
        return;
    }
    if (response && m_busy)
        finish(std::move(*response));
}

void HTTPConnection::receive()
{
    if (m_readBuffer.size() != receiveChunk)
        m_readBuffer.resize(receiveChunk);
    const ssize_t n = ::recv(m_fd, m_readBuffer.data(), size_t(m_readBuffer.size()), 0);
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        return;
    if (n <= 0)
        m_peerClosed = true;
    if (m_closing) {
        // After the final response input is read and dropped; the peer's close ends the linger.
        if (m_peerClosed)
            close();
        return;
    }
    if (n > 0)
        m_parser.append(QByteArrayView(m_readBuffer.constData(), n));
    process();
}

void HTTPConnection::process()
{
    while (!m_closed && !m_closing && !m_busy) {
        HTTPRequestParser::Next next = m_parser.next();
        if (auto *error = std::get_if<HTTPParseError>(&next)) {
            const HTTPResponse response = HTTPResponse::plainText(error->status, error->message + u'\n');
            sendFinal(response.serialized(false));
            return;
        }
        if (auto *request = std::get_if<HTTPRequest>(&next)) {
            dispatch(std::move(*request));
            // A handler that answered at once leaves its response in the mailbox.
            takeMail();
            continue;
        }
        if (m_parser.continuePending()) {
            m_parser.clearContinuePending();
            if (!sendAll(HTTPResponse::continueLine())) {
                close();
                return;
            }
        }
        break;
    }
    if (m_peerClosed && !m_closed) {
        if (!m_busy)
            close();
        else if (m_inFlight)
            m_inFlight->request_stop();
    }
}

void HTTPConnection::dispatch(HTTPRequest request)
{
    m_busy = true;
    const quint64 serial = ++m_serial;
    m_inFlight.emplace();
    m_current = request;
    std::weak_ptr<Mailbox> weakMailbox = m_mailbox;
    m_handler(std::move(request), m_inFlight->get_token(), [weakMailbox, serial](HTTPResponse response) {
        const std::shared_ptr<Mailbox> mailbox = weakMailbox.lock();
        if (!mailbox)
            return;
        {
            std::lock_guard lock(mailbox->mutex);
            mailbox->response = std::move(response);
            mailbox->serial = serial;
        }
        if (std::this_thread::get_id() != mailbox->owner)
            mailbox->wake();
    });
}

void HTTPConnection::finish(HTTPResponse response)
{
    m_busy = false;
    m_inFlight.reset();
    const HTTPRequest request = std::move(*m_current);
    m_current.reset();
    if (m_closing || m_closed)
        return;
    if (m_peerClosed) {
        // The client is gone and its task was cancelled: there is nobody to answer.
        close();
        return;
    }
    const bool keepAlive = request.keepAlive() && !response.closeConnection;
    const QByteArray bytes = response.serialized(keepAlive, request.method != u"HEAD");
    if (!keepAlive) {
        sendFinal(bytes);
        return;
    }
    if (!sendAll(bytes)) {
        close();
        return;
    }
    process(); // a pipelined request may be waiting in the buffer
}

bool HTTPConnection::sendAll(QByteArrayView bytes)
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
            pollfd fds[2] = {{m_mailbox->wakeFd, POLLIN, 0}, {m_fd, POLLOUT, 0}};
            if (::poll(fds, 2, -1) < 0 && errno != EINTR)
                return false;
            if (fds[0].revents) {
                // Nothing but a shutdown can be owed while no request is at the handler.
                m_mailbox->drain();
                std::lock_guard lock(m_mailbox->mutex);
                if (m_mailbox->shutDown)
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

void HTTPConnection::sendFinal(const QByteArray &bytes)
{
    if (m_closing || m_closed)
        return;
    m_closing = true;
    if (!sendAll(bytes) || m_peerClosed) {
        close();
        return;
    }
    ::shutdown(m_fd, SHUT_WR);
    m_lingerUntil = std::chrono::steady_clock::now() + lingerTime;
}

void HTTPConnection::close()
{
    if (m_closed)
        return;
    m_closing = true;
    m_closed = true;
    m_inFlight.reset(); // dropped, not cancelled: a shutdown is not the client going away
    ::shutdown(m_fd, SHUT_RDWR);
    ::close(m_fd);
    m_fd = -1;
    if (m_onClose)
        m_onClose(this);
}
