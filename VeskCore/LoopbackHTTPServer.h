// A minimal HTTP/1.1 server on 127.0.0.1 only: one listener thread accepts, each connection is served
// on its own thread, and every finished request goes to the one handler. It knows nothing of MCP.
// A connection whose thread cannot be made is closed at once; the server goes on.
#pragma once

#include "HTTPConnection.h"
#include "MCPServerError.h"

#include <cstddef>
#include <memory>
#include <variant>

class LoopbackHTTPServer {
public:
    using Handler = HTTPConnection::Handler;

    LoopbackHTTPServer(qint64 maxBodyBytes, Handler handler);
    // Stops and waits for the listener and connection threads.
    ~LoopbackHTTPServer();
    LoopbackHTTPServer(const LoopbackHTTPServer &) = delete;
    LoopbackHTTPServer &operator=(const LoopbackHTTPServer &) = delete;

    // Binds 127.0.0.1:port (0: any free port) and starts accepting; returns the bound port.
    std::variant<quint16, MCPServerError> start(quint16 port = 0);
    // From any thread, once; final. Open connections are shut down.
    void stop();

    int connectionCount() const;

    // The stack size of the threads of connections accepted from now on; 0 (the default) is the
    // system's. Connections need little: their requests are served by a loop.
    void setConnectionStackSize(std::size_t bytes);

private:
    struct State;
    std::shared_ptr<State> m_state;
};
