// A blocking HTTP/1.1 client on one keep-alive socket, for talking to the local servers from tests and
// benchmarks without an event loop: it sends bytes as given and reads Content-Length-framed responses.
#pragma once

#include "JSONValue.h"

#include <QByteArray>
#include <QString>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <map>

struct HTTPTestReply {
    int status = 0;
    std::map<QString, QString> headers; // lower-case names
    QByteArray body;
    QString header(const char *name) const
    {
        const auto it = headers.find(QString::fromLatin1(name));
        return it == headers.end() ? QString() : it->second;
    }
    JSONValue json() const { return JSONValue::parse(QByteArrayView(body)).value_or(JSONValue()); }
};

class HTTPTestClient {
public:
    explicit HTTPTestClient(quint16 port, const char *address = "127.0.0.1")
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        // Small requests go out at once rather than waiting on the previous one's acknowledgement.
        const int one = 1;
        ::setsockopt(m_fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        timeval timeout{10, 0};
        ::setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        ::inet_pton(AF_INET, address, &to.sin_addr);
        m_connected = ::connect(m_fd, reinterpret_cast<sockaddr *>(&to), sizeof to) == 0;
    }
    ~HTTPTestClient() { ::close(m_fd); }
    HTTPTestClient(const HTTPTestClient &) = delete;
    HTTPTestClient &operator=(const HTTPTestClient &) = delete;

    bool connected() const { return m_connected; }
    // Whether all of `bytes` went out.
    bool send(QByteArrayView bytes)
    {
        return m_connected &&
               ::send(m_fd, bytes.data(), size_t(bytes.size()), MSG_NOSIGNAL) == ssize_t(bytes.size());
    }
    void shutdownWrite() { ::shutdown(m_fd, SHUT_WR); }

    // Reads one response framed by Content-Length; status 0 if the server closed first.
    // A response to HEAD has its Content-Length but no body.
    HTTPTestReply read(bool head = false)
    {
        HTTPTestReply reply;
        qsizetype end;
        while ((end = m_in.indexOf("\r\n\r\n")) < 0) {
            if (!fill())
                return reply;
        }
        const QList<QByteArray> lines = m_in.left(end).split('\n');
        reply.status = lines.front().split(' ').value(1).toInt();
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(':');
            reply.headers[QString::fromUtf8(lines[i].left(colon)).toLower()] =
                QString::fromUtf8(lines[i].mid(colon + 1).trimmed());
        }
        m_in.remove(0, end + 4);
        const qsizetype length = head ? 0 : reply.header("content-length").toLongLong();
        while (m_in.size() < length) {
            if (!fill())
                return HTTPTestReply{};
        }
        reply.body = m_in.left(length);
        m_in.remove(0, length);
        return reply;
    }

    // Whether the server closed the connection within `timeout`, with nothing more sent.
    bool closedWithin(std::chrono::milliseconds timeout, QByteArray *rest = nullptr)
    {
        const auto until = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < until) {
            pollfd p{m_fd, POLLIN, 0};
            if (::poll(&p, 1, 50) <= 0)
                continue;
            char buffer[4096];
            const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
            if (n <= 0)
                return true;
            if (rest)
                rest->append(buffer, n);
        }
        return false;
    }

    QByteArray pending() const { return m_in; }

private:
    bool fill()
    {
        char buffer[65536];
        const ssize_t n = ::recv(m_fd, buffer, sizeof buffer, 0);
        if (n <= 0)
            return false;
        m_in.append(buffer, n);
        return true;
    }

    int m_fd = -1;
    bool m_connected = false;
    QByteArray m_in;
};
