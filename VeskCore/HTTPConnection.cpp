#include "HTTPConnection.h"

#include "SerialQueue.h"

#include <thread>

// What other threads hand to the connection: a finished response or a shutdown request. It holds the
// transport for its wake-ups, as long as a completion may still hold the mailbox.
struct HTTPConnection::Mailbox {
    std::mutex mutex;
    std::optional<HTTPResponse> response;
    quint64 serial = 0; // the request the response answers
    bool shutDown = false;
    std::shared_ptr<HTTPTransport> transport;
    // A completion that runs on the connection's own thread inside the handler needs no wake-up:
    // dispatch() looks into the mailbox right after. Both are touched on that thread only.
    std::thread::id owner;
    bool dispatching = false;
};

namespace {
constexpr qsizetype receiveChunk = 256 * 1024;
}

HTTPConnection::HTTPConnection(std::shared_ptr<HTTPTransport> transport, qint64 maxBodyBytes, Handler handler,
                               std::function<void(HTTPConnection *)> onClose)
    : m_transport(std::move(transport)), m_handler(std::move(handler)), m_onClose(std::move(onClose)),
      m_parser(maxBodyBytes), m_mailbox(std::make_shared<Mailbox>())
{
    m_mailbox->transport = m_transport;
}

HTTPConnection::~HTTPConnection()
{
    // A completion may keep the transport alive; the peer should not wait for it.
    if (!m_closed)
        m_transport->close();
}

void HTTPConnection::shutDown()
{
    {
        std::lock_guard lock(m_mailbox->mutex);
        m_mailbox->shutDown = true;
    }
    m_mailbox->transport->wake();
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
    while (!m_closed) {
        std::optional<std::chrono::milliseconds> timeout;
        if (m_lingerUntil)
            timeout = std::chrono::duration_cast<std::chrono::milliseconds>(*m_lingerUntil -
                                                                            std::chrono::steady_clock::now());
        const HTTPTransport::Readiness ready = m_transport->wait(wantsInput(), timeout);
        if (ready.failed) {
            close();
            break;
        }
        if (ready.woken)
            takeMail();
        if (!m_closed && ready.input)
            receive();
        if (!m_closed && m_lingerUntil &&
            (ready.timedOut || std::chrono::steady_clock::now() >= *m_lingerUntil))
            close();
        // Requests that wait in the buffer are served here, once the previous answer has gone out.
        process();
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
    const qsizetype n = m_transport->read(m_readBuffer.data(), m_readBuffer.size());
    if (n < 0)
        return;
    if (n == 0)
        m_peerClosed = true;
    if (m_closing) {
        // After the final response input is read and dropped; the peer's close ends the linger.
        if (m_peerClosed)
            close();
        return;
    }
    if (n > 0)
        m_parser.append(QByteArrayView(m_readBuffer.constData(), n));
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
            // A handler that answered at once left its response in the mailbox; it is written here,
            // and the loop goes on to the next request.
            takeMail();
            continue;
        }
        if (m_parser.continuePending()) {
            m_parser.clearContinuePending();
            if (!send(HTTPResponse::continueLine())) {
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
    m_mailbox->dispatching = true;
    m_handler(std::move(request), m_inFlight->get_token(), [weakMailbox, serial](HTTPResponse response) {
        const std::shared_ptr<Mailbox> mailbox = weakMailbox.lock();
        if (!mailbox)
            return;
        {
            std::lock_guard lock(mailbox->mutex);
            mailbox->response = std::move(response);
            mailbox->serial = serial;
        }
        if (std::this_thread::get_id() != mailbox->owner || !mailbox->dispatching)
            mailbox->transport->wake();
    });
    m_mailbox->dispatching = false;
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
    if (!send(bytes))
        close();
}

bool HTTPConnection::send(QByteArrayView bytes)
{
    // Nothing but a shutdown can be owed while no request is at the handler, which is when this runs.
    return m_transport->write(bytes, [this] {
        std::lock_guard lock(m_mailbox->mutex);
        return m_mailbox->shutDown;
    });
}

void HTTPConnection::sendFinal(const QByteArray &bytes)
{
    if (m_closing || m_closed)
        return;
    m_closing = true;
    if (!send(bytes) || m_peerClosed) {
        close();
        return;
    }
    m_transport->shutdownWrite();
    m_lingerUntil = std::chrono::steady_clock::now() + lingerTime;
}

void HTTPConnection::close()
{
    if (m_closed)
        return;
    m_closing = true;
    m_closed = true;
    m_inFlight.reset(); // dropped, not cancelled: a shutdown is not the client going away
    m_transport->close();
    if (m_onClose)
        m_onClose(this);
}
