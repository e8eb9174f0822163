// An accepted, non-blocking socket as an HTTP connection's byte stream; an eventfd carries the
// wake-ups, so one poll waits for both.
#pragma once

#include "HTTPTransport.h"

class SocketTransport final : public HTTPTransport {
public:
    // Takes ownership of the non-blocking socket `fd`.
    explicit SocketTransport(int fd);
    ~SocketTransport() override;
    SocketTransport(const SocketTransport &) = delete;
    SocketTransport &operator=(const SocketTransport &) = delete;

    Readiness wait(bool wantInput, std::optional<std::chrono::milliseconds> timeout) override;
    qsizetype read(char *data, qsizetype capacity) override;
    bool write(QByteArrayView bytes, const std::function<bool()> &abandon) override;
    void shutdownWrite() override;
    void close() override;
    void wake() override;

private:
    void drain() const;

    int m_fd;
    const int m_wakeFd;
};
