#include "LoopbackHTTPServer.h"

#include "SerialQueue.h"
#include "SocketTransport.h"

#include <QString>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits.h>
#include <map>
#include <memory>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// A connection's thread: joinable like std::thread, but with a stack size of our choosing, and a
// failure to create it is an error code rather than an exception.
class ServingThread {
public:
    ServingThread() = default;
    ServingThread(ServingThread &&other) noexcept
        : m_id(other.m_id), m_joinable(std::exchange(other.m_joinable, false))
    {
    }
    ServingThread &operator=(ServingThread &&other) noexcept
    {
        if (this != &other) {
            detach();
            m_id = other.m_id;
            m_joinable = std::exchange(other.m_joinable, false);
        }
        return *this;
    }
    ~ServingThread() { detach(); }

    // 0, or the error of pthread_create (EAGAIN when there is no room for another thread).
    int start(std::size_t stackBytes, std::function<void()> body)
    {
        pthread_attr_t attributes;
        if (const int error = pthread_attr_init(&attributes))
            return error;
        int error =
            stackBytes
                ? pthread_attr_setstacksize(&attributes, std::max<std::size_t>(stackBytes, PTHREAD_STACK_MIN))
                : 0;
        auto *task = new std::function<void()>(std::move(body));
        if (!error)
            error = pthread_create(
                &m_id, &attributes,
                [](void *argument) -> void * {
                    const std::unique_ptr<std::function<void()>> body(
                        static_cast<std::function<void()> *>(argument));
                    (*body)();
                    return nullptr;
                },
                task);
        pthread_attr_destroy(&attributes);
        if (error)
            delete task;
        m_joinable = !error;
        return error;
    }
    bool isCurrent() const { return m_joinable && pthread_equal(m_id, pthread_self()); }
    void join()
    {
        if (std::exchange(m_joinable, false))
            pthread_join(m_id, nullptr);
    }
    void detach()
    {
        if (std::exchange(m_joinable, false))
            pthread_detach(m_id);
    }

private:
    pthread_t m_id{};
    bool m_joinable = false;
};

} // namespace

struct LoopbackHTTPServer::State : std::enable_shared_from_this<State> {
    struct Entry {
        std::shared_ptr<HTTPConnection> connection;
        ServingThread thread;
    };

    qint64 maxBodyBytes = 0;
    Handler handler;
    std::atomic<std::size_t> stackBytes{0};

    // The lock guards exactly these; no socket call is made under it.
    mutable std::mutex mutex;
    int listenFd = -1;
    int wakeFd = -1;
    bool started = false;
    bool stopped = false;
    std::thread listener;
    std::map<HTTPConnection *, Entry> connections;
    std::vector<ServingThread> finished; // threads of closed connections, joined by the listener or stop()

    void listen(int fd, int wake);
    void accept(int fd);
    void onClose(HTTPConnection *connection);
    void joinFinished();
};

namespace {

QString errnoText(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

void joinOrDetach(std::thread &thread)
{
    if (!thread.joinable())
        return;
    // A handler that stops the server from a connection's own thread cannot wait for itself.
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach();
    else
        thread.join();
}

void joinOrDetach(ServingThread &thread)
{
    if (thread.isCurrent())
        thread.detach();
    else
        thread.join();
}

} // namespace

LoopbackHTTPServer::LoopbackHTTPServer(qint64 maxBodyBytes, Handler handler)
    : m_state(std::make_shared<State>())
{
    m_state->maxBodyBytes = maxBodyBytes;
    m_state->handler = std::move(handler);
}

LoopbackHTTPServer::~LoopbackHTTPServer()
{
    stop();
}

std::variant<quint16, MCPServerError> LoopbackHTTPServer::start(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return MCPServerError::listenFailed(errnoText(errno));
    const int one = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || ::listen(fd, 128) != 0) {
        const int error = errno;
        ::close(fd);
        return MCPServerError::listenFailed(errnoText(error));
    }
    socklen_t length = sizeof address;
    if (::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) {
        const int error = errno;
        ::close(fd);
        return MCPServerError::listenFailed(errnoText(error));
    }
    const int wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0) {
        const int error = errno;
        ::close(fd);
        return MCPServerError::listenFailed(errnoText(error));
    }

    std::lock_guard lock(m_state->mutex);
    std::optional<MCPServerError> refusal;
    if (m_state->stopped)
        refusal = MCPServerError::stopped();
    else if (m_state->started)
        refusal = MCPServerError::alreadyStarting();
    if (refusal) {
        ::close(fd);
        ::close(wake);
        return *refusal;
    }
    m_state->started = true;
    m_state->listenFd = fd;
    m_state->wakeFd = wake;
    try {
        m_state->listener = std::thread([state = m_state, fd, wake] { state->listen(fd, wake); });
    } catch (const std::system_error &e) {
        m_state->listenFd = -1;
        m_state->wakeFd = -1;
        ::close(fd);
        ::close(wake);
        return MCPServerError::listenFailed(errnoText(e.code().value()));
    }
    return quint16(ntohs(address.sin_port));
}

void LoopbackHTTPServer::State::listen(int fd, int wake)
{
    setCurrentThreadName("vesk.mcp.listener");
    for (;;) {
        pollfd fds[2] = {{wake, POLLIN, 0}, {fd, POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0 && errno != EINTR)
            return;
        if (fds[0].revents)
            return; // stopped
        joinFinished();
        if (!(fds[1].revents & POLLIN))
            continue;
        const int client = ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (client < 0) {
            if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
                ::poll(nullptr, 0, 10); // out of descriptors: let connections close before trying again
            continue;
        }
        const int one = 1;
        ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        accept(client);
    }
}

void LoopbackHTTPServer::State::accept(int fd)
{
    std::weak_ptr<State> weak = weak_from_this();
    auto connection = std::make_shared<HTTPConnection>(std::make_shared<SocketTransport>(fd), maxBodyBytes,
                                                       handler, [weak](HTTPConnection *c) {
                                                           if (const auto state = weak.lock())
                                                               state->onClose(c);
                                                       });
    std::lock_guard lock(mutex);
    if (stopped)
        return; // the connection's destructor closes the socket
    // A connection that gets no thread (none left, or no room for its stack) is refused: dropping it
    // closes the socket.
    ServingThread thread;
    if (thread.start(stackBytes, [connection] { connection->run(); }) != 0)
        return;
    Entry &entry = connections[connection.get()];
    entry.connection = connection;
    entry.thread = std::move(thread);
}

void LoopbackHTTPServer::State::onClose(HTTPConnection *connection)
{
    std::lock_guard lock(mutex);
    const auto it = connections.find(connection);
    if (it == connections.end())
        return;
    finished.push_back(std::move(it->second.thread));
    connections.erase(it);
}

void LoopbackHTTPServer::State::joinFinished()
{
    std::vector<ServingThread> threads;
    {
        std::lock_guard lock(mutex);
        threads.swap(finished);
    }
    for (ServingThread &thread : threads)
        joinOrDetach(thread);
}

void LoopbackHTTPServer::stop()
{
    std::thread listener;
    std::map<HTTPConnection *, State::Entry> connections;
    int listenFd = -1;
    int wakeFd = -1;
    {
        std::lock_guard lock(m_state->mutex);
        m_state->stopped = true;
        listener = std::move(m_state->listener);
        connections.swap(m_state->connections);
        std::swap(listenFd, m_state->listenFd);
        std::swap(wakeFd, m_state->wakeFd);
    }
    if (wakeFd >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] ssize_t n = ::write(wakeFd, &one, sizeof one);
    }
    joinOrDetach(listener);
    if (listenFd >= 0)
        ::close(listenFd);
    if (wakeFd >= 0)
        ::close(wakeFd);
    for (auto &[key, entry] : connections)
        entry.connection->shutDown();
    for (auto &[key, entry] : connections)
        joinOrDetach(entry.thread);
    m_state->joinFinished();
}

int LoopbackHTTPServer::connectionCount() const
{
    std::lock_guard lock(m_state->mutex);
    return int(m_state->connections.size());
}

void LoopbackHTTPServer::setConnectionStackSize(std::size_t bytes)
{
    m_state->stackBytes = bytes;
}
