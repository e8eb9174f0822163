// One connection of the loopback HTTP server, served strictly one request at a time on its own
// thread: parse, hand the request to the handler, write the answer, and keep reading only as far as
// the back-pressure limit allows. Pipelined requests are taken by a loop, never by recursion, so no
// number of them can exhaust the thread's stack.
#pragma once

#include "HTTPRequestParser.h"
#include "HTTPResponse.h"
#include "HTTPTransport.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>

class HTTPConnection : public std::enable_shared_from_this<HTTPConnection> {
public:
    using Completion = std::function<void(HTTPResponse)>;
    // Called on the connection's thread. It must not block: it answers through the completion, exactly
    // once, from any thread. The stop token fires when the client goes away before the answer.
    using Handler = std::function<void(HTTPRequest, std::stop_token, Completion)>;

    // Read-ahead while a request is at the handler; past it the client waits in the socket buffer.
    static constexpr qsizetype maxReadAhead = 1 << 20;
    static constexpr std::chrono::milliseconds lingerTime{2000};

    HTTPConnection(std::shared_ptr<HTTPTransport> transport, qint64 maxBodyBytes, Handler handler,
                   std::function<void(HTTPConnection *)> onClose);
    ~HTTPConnection();
    HTTPConnection(const HTTPConnection &) = delete;
    HTTPConnection &operator=(const HTTPConnection &) = delete;

    // The connection's loop; returns once it is closed.
    void run();
    // From any thread: the same shutdown as a failed socket.
    void shutDown();

private:
    struct Mailbox;

    void receive();
    void process();
    void dispatch(HTTPRequest request);
    void finish(HTTPResponse response);
    bool send(QByteArrayView bytes);
    void sendFinal(const QByteArray &bytes);
    void close();
    bool wantsInput() const;
    void takeMail();

    std::shared_ptr<HTTPTransport> m_transport;
    Handler m_handler;
    std::function<void(HTTPConnection *)> m_onClose;
    HTTPRequestParser m_parser;
    std::shared_ptr<Mailbox> m_mailbox;
    QByteArray m_readBuffer;

    bool m_busy = false;
    bool m_peerClosed = false;
    bool m_closing = false;
    bool m_closed = false;
    std::optional<std::chrono::steady_clock::time_point> m_lingerUntil;
    std::optional<HTTPRequest> m_current; // the request at the handler
    std::optional<std::stop_source> m_inFlight;
    quint64 m_serial = 0;
};
