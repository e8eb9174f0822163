// The byte stream one HTTP connection is served over: a socket in the server (SocketTransport), memory
// in the fuzz target. Every call but wake() comes from the connection's own thread.
#pragma once

#include <QByteArrayView>

#include <chrono>
#include <functional>
#include <optional>

class HTTPTransport {
public:
    struct Readiness {
        bool input = false;    // read() has something: bytes, the end of input or an error
        bool woken = false;    // wake() was called since the last wait
        bool timedOut = false; // the timeout passed with nothing else
        bool failed = false;   // the transport cannot wait any more
    };

    virtual ~HTTPTransport() = default;

    // Waits for input (looked for only if `wantInput`), a wake-up, or the end of `timeout` (none if
    // empty).
    virtual Readiness wait(bool wantInput, std::optional<std::chrono::milliseconds> timeout) = 0;
    // Up to `capacity` bytes: how many were read, 0 at the end of input or on an error, -1 when there
    // is nothing just now.
    virtual qsizetype read(char *data, qsizetype capacity) = 0;
    // Writes all of `bytes`; false on failure. While the peer does not take them it waits, and when
    // woken meanwhile gives up if `abandon` says so.
    virtual bool write(QByteArrayView bytes, const std::function<bool()> &abandon) = 0;
    // No more output; input may still arrive.
    virtual void shutdownWrite() = 0;
    // No more input or output. wake() still works.
    virtual void close() = 0;
    // From any thread: ends a wait, or a write waiting on the peer.
    virtual void wake() = 0;
};
