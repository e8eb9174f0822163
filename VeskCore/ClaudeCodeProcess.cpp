#include "ClaudeCodeProcess.h"

#include "AgentLog.h"
#include "AgentStreamParser.h"
#include "ChildReader.h"
#include "ClaudeCLILocator.h"
#include "PosixChild.h"
#include "QueuedDelivery.h"
#include "SerialQueue.h"
#include "TextUnits.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMetaObject>
#include <QPointer>
#include <QUuid>

#include <chrono>
#include <csignal>
#include <cstring>
#include <mutex>
#include <thread>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

// What the reader thread, the parsing queue and the object share. They hold it, not the object, so a
// dropped process can go away while its child winds down.
struct ClaudeCodeProcess::Shared : std::enable_shared_from_this<ClaudeCodeProcess::Shared> {
    // Guards stdin writing and the configuration file.
    std::mutex lock;
    int stdinFd = -1;
    std::optional<QString> mcpConfigFile;

    // Guards the child's identity against reuse after reaping.
    mutable std::mutex reapLock;
    pid_t pid = -1;
    bool reaped = false;
    bool killScheduled = false;

    explicit Shared(ClaudeCodeProcess *owner) : delivery(owner) {}
    QueuedDelivery<ClaudeCodeProcess> delivery;

    SerialQueue queue{"vesk.claude"};
    // Bytes of an unfinished line; touched only on the queue.
    QByteArray lineBuffer;

    bool running() const
    {
        std::lock_guard guard(reapLock);
        return pid > 0 && !reaped;
    }

    // Asks the child to end, and kills it a while later if it has not.
    void endChild()
    {
        std::lock_guard guard(reapLock);
        if (pid <= 0 || reaped)
            return;
        ::kill(pid, SIGTERM);
        if (killScheduled)
            return;
        killScheduled = true;
        std::thread([shared = shared_from_this()] {
            std::this_thread::sleep_for(std::chrono::seconds(3));
            shared->sendSignal(SIGKILL);
        }).detach();
    }

    void sendSignal(int number)
    {
        std::lock_guard guard(reapLock);
        if (pid > 0 && !reaped)
            ::kill(pid, number);
    }

    void removeConfigFile()
    {
        std::optional<QString> file;
        {
            std::lock_guard guard(lock);
            file.swap(mcpConfigFile);
        }
        if (file)
            QFile::remove(*file);
    }

    void deliver(QList<AgentStreamEvent> events, bool end = false)
    {
        const auto each = [](ClaudeCodeProcess *owner, const AgentStreamEvent &event) {
            emit owner->event(event);
        };
        if (end)
            delivery.post(std::move(events), each, [](ClaudeCodeProcess *owner) { emit owner->finished(); });
        else
            delivery.post(std::move(events), each);
    }

    // On the queue. Each pass of the loop scans only bytes not scanned before: what stays in the
    // buffer between calls holds no newline.
    void consume(QByteArrayView data)
    {
        qsizetype from = lineBuffer.size();
        lineBuffer.append(data);
        QList<AgentStreamEvent> events;
        qsizetype start = 0;
        for (qsizetype newline; (newline = lineBuffer.indexOf('\n', from)) >= 0; from = start) {
            events.append(
                AgentStreamParser::parse(QByteArrayView(lineBuffer).sliced(start, newline - start)));
            start = newline + 1;
        }
        lineBuffer.remove(0, start);
        deliver(std::move(events));
    }
};

namespace {

// False with errno set when a write fails for another reason than a signal.
bool writeAll(int fd, QByteArrayView bytes)
{
    while (!bytes.isEmpty()) {
        const ssize_t n = ::write(fd, bytes.data(), size_t(bytes.size()));
        if (n < 0 && errno != EINTR)
            return false;
        if (n > 0)
            bytes = bytes.sliced(n);
    }
    return true;
}

qint32 terminationStatus(const PosixExit &exit)
{
    return exit.signaled ? ClaudeCodeProcess::signalStatusBase + exit.code : exit.code;
}

QStringList childEnvironment(const QString &executable)
{
    QStringList environment = PosixChild::systemEnvironment();
    QString inherited = QStringLiteral("/usr/bin:/bin");
    for (qsizetype i = environment.size() - 1; i >= 0; --i) {
        const QString &entry = environment[i];
        if (entry.startsWith(QLatin1String("PATH="))) {
            inherited = entry.mid(5);
            environment.removeAt(i);
        } else if (entry.startsWith(QLatin1String("CLAUDE_CODE_ENTRYPOINT="))) {
            environment.removeAt(i);
        }
    }
    const QStringList path = {QFileInfo(executable).absolutePath(), inherited,
                              QStringLiteral("/usr/local/bin"), QStringLiteral("/opt/homebrew/bin")};
    environment << QStringLiteral("PATH=") + path.join(u':')
                << QStringLiteral("CLAUDE_CODE_ENTRYPOINT=sdk-vesk");
    return environment;
}

// The "claude" reader: both pipes until the child is gone and its last output is read, then the end
// of the stream through the queue, so it follows every chunk read before it.
void readLoop(std::shared_ptr<ClaudeCodeProcess::Shared> shared, int outFd, int errFd, int exitFd, pid_t pid)
{
    setCurrentThreadName("vesk.claude.out");
    ChildReader reader(pid, outFd, errFd, exitFd);
    reader.onStdout = [&](QByteArrayView view) {
        shared->queue.submit([shared, bytes = view.toByteArray()] { shared->consume(bytes); });
    };
    reader.onStderr = [&](QByteArrayView view) {
        shared->queue.submit([shared, bytes = view.toByteArray()] {
            shared->deliver({AgentStreamEvent{AgentStreamEvent::Stderr{TextUnits::decodeUTF8(bytes)}}});
        });
    };
    reader.reapOnExit = true;
    reader.reap = [&] {
        PosixExit exit;
        {
            std::lock_guard guard(shared->reapLock);
            exit = PosixChild::wait(pid);
            shared->reaped = true;
        }
        shared->removeConfigFile();
        return exit;
    };
    const qint32 status = terminationStatus(reader.run().value_or(PosixExit{}));
    {
        std::lock_guard guard(shared->lock);
        if (shared->stdinFd >= 0)
            ::close(shared->stdinFd);
        shared->stdinFd = -1;
    }
    qCDebug(vsAgents) << "claude" << pid << "ended with status" << status;
    shared->queue.submit([shared, status] {
        // A last line without its newline still counts.
        shared->consume("\n");
        shared->deliver({AgentStreamEvent{AgentStreamEvent::Exited{status}}}, true);
    });
}

} // namespace

ClaudeCodeProcess::ClaudeCodeProcess(ClaudeCodeConfiguration configuration, QObject *parent)
    : QObject(parent), m_configuration(std::move(configuration)), m_shared(std::make_shared<Shared>(this))
{
    qRegisterMetaType<AgentStreamEvent>();
}

ClaudeCodeProcess::~ClaudeCodeProcess()
{
    m_shared->delivery.release();
    terminate();
}

bool ClaudeCodeProcess::isRunning() const
{
    return m_shared->running();
}

qint64 ClaudeCodeProcess::processIdentifier() const
{
    std::lock_guard guard(m_shared->reapLock);
    return m_shared->pid;
}

std::optional<QString> ClaudeCodeProcess::mcpConfigFile() const
{
    std::lock_guard guard(m_shared->lock);
    return m_shared->mcpConfigFile;
}

std::optional<QString> ClaudeCodeProcess::locate(const std::optional<QString> &preferred)
{
    return ClaudeCLILocator::locate(preferred, QDir::homePath());
}

Result<QString> ClaudeCodeProcess::writePrivateFile(const QString &name, const QByteArray &data)
{
    // An empty temporary path (TMPDIR names no folder) would put the file in the working directory.
    const QString folder = QDir::tempPath();
    if (folder.isEmpty())
        return Failure{
            QStringLiteral("The temporary folder %1 does not exist.").arg(qEnvironmentVariable("TMPDIR"))};
    const QString path = QDir(folder).filePath(name);
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0)
        return Failure{QStringLiteral("You don't have permission to write the file %1 (%2).")
                           .arg(path, QString::fromLocal8Bit(std::strerror(errno)))};
    if (!writeAll(fd, data)) {
        const int error = errno;
        ::close(fd);
        ::unlink(QFile::encodeName(path).constData());
        return Failure{QStringLiteral("The file %1 could not be written (%2).")
                           .arg(path, QString::fromLocal8Bit(std::strerror(error)))};
    }
    ::close(fd);
    return path;
}

Result<void> ClaudeCodeProcess::start()
{
    {
        std::lock_guard guard(m_shared->reapLock);
        if (m_shared->pid > 0)
            return Failure{QStringLiteral("The Claude Code process was started already.")};
    }
    std::optional<QString> configFile;
    if (m_configuration.mcpConfig) {
        const QString name = QStringLiteral("vesk-mcp-%1.json")
                                 .arg(QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper());
        Result<QString> written = writePrivateFile(name, m_configuration.mcpConfig->serialized());
        if (!written)
            return Failure{written.error()};
        configFile = written.value();
        std::lock_guard guard(m_shared->lock);
        m_shared->mcpConfigFile = configFile;
    }

    PosixChild child;
    PosixChild::Options options;
    options.program = m_configuration.executable;
    options.arguments = m_configuration.arguments(configFile);
    options.workingDirectory = m_configuration.workingDirectory;
    options.environment = childEnvironment(m_configuration.executable);
    QString error;
    if (!child.start(options, &error)) {
        m_shared->removeConfigFile();
        return Failure{QStringLiteral("Claude Code could not be started: %1").arg(error)};
    }
    qCDebug(vsAgents) << "claude started as" << child.pid();

    {
        std::lock_guard guard(m_shared->reapLock);
        m_shared->pid = child.pid();
    }
    {
        std::lock_guard guard(m_shared->lock);
        m_shared->stdinFd = child.stdinFd();
    }
    std::thread(readLoop, m_shared, child.stdoutFd(), child.stderrFd(), child.exitFd(), child.pid()).detach();
    child.releaseDescriptors();
    return {};
}

void ClaudeCodeProcess::send(const QString &text)
{
    send(JSONValue::array({JSONValue{{QStringLiteral("type"), "text"}, {QStringLiteral("text"), text}}}));
}

void ClaudeCodeProcess::send(const JSONValue &content)
{
    write(JSONValue{{QStringLiteral("type"), "user"},
                    {QStringLiteral("message"),
                     JSONValue{{QStringLiteral("role"), "user"}, {QStringLiteral("content"), content}}}});
}

void ClaudeCodeProcess::interrupt()
{
    write(JSONValue{{QStringLiteral("type"), "control_request"},
                    {QStringLiteral("request_id"), QUuid::createUuid().toString(QUuid::WithoutBraces)},
                    {QStringLiteral("request"), JSONValue{{QStringLiteral("subtype"), "interrupt"}}}});
}

void ClaudeCodeProcess::write(const JSONValue &value)
{
    QByteArray bytes = value.serialized();
    bytes.append('\n');
    std::lock_guard guard(m_shared->lock);
    if (m_shared->stdinFd < 0 || !m_shared->running())
        return;
    // A broken pipe is left to the child's exit to tell.
    if (!writeAll(m_shared->stdinFd, bytes))
        qCDebug(vsAgents) << "writing to claude failed:" << std::strerror(errno);
}

void ClaudeCodeProcess::terminate()
{
    {
        std::unique_lock guard(m_shared->lock, std::try_to_lock);
        if (!guard.owns_lock()) {
            // A write that a full pipe blocks holds the lock; the child's end breaks the pipe.
            m_shared->endChild();
            guard.lock();
        }
        if (m_shared->stdinFd >= 0)
            ::close(m_shared->stdinFd);
        m_shared->stdinFd = -1;
    }
    m_shared->endChild();
    m_shared->removeConfigFile();
}
