#include "RProcess.h"

#include "ChildReader.h"
#include "PosixChild.h"
#include "QueuedDelivery.h"
#include "RLiteral.h"
#include "SerialQueue.h"
#include "TextUnits.h"
#include "ToolLocator.h"

#include <QMetaObject>
#include <QPointer>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <mutex>
#include <optional>
#include <thread>

#include <cerrno>
#include <unistd.h>

// What the reader thread, the writer queue and the delayed kill share with the object. They hold
// it, not the object, so a dropped RProcess can go away while its child winds down.
struct RProcess::Shared {
    // Guards stdinClosed and the stdin descriptor.
    std::mutex lock;
    bool stdinClosed = false;
    int stdinFd = -1;

    // Guards the child's identity against reuse after reaping.
    std::mutex reapLock;
    pid_t pid = -1;
    bool reaped = false;

    explicit Shared(RProcess *owner) : delivery(owner) {}
    QueuedDelivery<RProcess> delivery;

    SerialQueue writeQueue{"vesk.rprocess.stdin"};

    bool running()
    {
        std::lock_guard guard(reapLock);
        return pid > 0 && !reaped;
    }

    void deliver(QList<RProcessEvent> events)
    {
        delivery.post(std::move(events),
                      [](RProcess *owner, const RProcessEvent &event) { emit owner->eventReceived(event); });
    }
};

namespace {

QList<RProcessEvent> asStdout(QList<RStreamEvent> events)
{
    QList<RProcessEvent> result;
    result.reserve(events.size());
    for (RStreamEvent &event : events)
        result.append(RProcessEvent::makeStdout(std::move(event)));
    return result;
}

QString exitReason(const PosixExit &exit)
{
    if (exit.signaled)
        return QStringLiteral("R was terminated by signal %1.").arg(exit.code);
    if (exit.code == 0)
        return QStringLiteral("R quit.");
    return QStringLiteral("R exited with status %1.").arg(exit.code);
}

// What R starts (system()) is in R's process group, but unlike R it is not bound to Vesk's life. A
// watcher outside the group kills the group once its standard input ends, which happens when Vesk
// ends, however it ends; a line on it instead stands the watcher down. Its pid and that input's
// descriptor, or nothing when no shell could start.
std::optional<std::pair<pid_t, int>> startGroupWatcher(pid_t group)
{
    PosixChild watcher;
    PosixChild::Options options;
    options.program = QStringLiteral("/bin/sh");
    options.arguments = {QStringLiteral("-c"), QStringLiteral("read line || kill -9 -$0 2>/dev/null"),
                         QString::number(group)};
    options.endWithParent = false;
    if (!watcher.start(options, nullptr))
        return std::nullopt;
    const int lifeline = watcher.stdinFd();
    for (const int fd : {watcher.stdoutFd(), watcher.stderrFd(), watcher.exitFd()})
        if (fd >= 0)
            ::close(fd);
    watcher.releaseDescriptors();
    return std::pair{watcher.pid(), lifeline};
}

void standDown(const std::optional<std::pair<pid_t, int>> &watcher)
{
    if (!watcher)
        return;
    const auto [pid, lifeline] = *watcher;
    while (::write(lifeline, "\n", 1) < 0 && errno == EINTR) {
    }
    ::close(lifeline);
    PosixChild::wait(pid);
}

// The "vesk.rprocess" context: reads both pipes, owns the parser, reaps the child.
void readLoop(std::shared_ptr<RProcess::Shared> shared, int outFd, int errFd, int exitFd, pid_t pid,
              QString token, std::optional<std::pair<pid_t, int>> watcher)
{
    setCurrentThreadName("vesk.rprocess");
    RStreamParser parser(token);
    ChildReader reader(pid, outFd, errFd, exitFd);
    reader.drain = std::chrono::milliseconds(150);
    // R flushes every piece it prints: during a flood the pipes fill for a moment, so that R
    // writes as if into a file.
    reader.paceFloods();
    reader.onStdout = [&](QByteArrayView bytes) {
        QList<RStreamEvent> events = parser.feed(bytes);
        // A prompt means R waits for us: no flood, and the next answer must not wait.
        if (std::any_of(events.cbegin(), events.cend(),
                        [](const RStreamEvent &e) { return e.kind == RStreamEvent::Kind::Prompt; }))
            reader.endFlood();
        shared->deliver(asStdout(std::move(events)));
    };
    reader.onStderr = [&](QByteArrayView bytes) {
        shared->deliver({RProcessEvent::makeStderr(TextUnits::decodeUTF8(bytes))});
    };
    reader.reap = [&] {
        // R is gone: what it left running lives on, as it would after R quit in a terminal.
        standDown(watcher);
        std::lock_guard guard(shared->reapLock);
        const PosixExit exit = PosixChild::wait(pid);
        shared->reaped = true;
        return exit;
    };
    const PosixExit exit = reader.run().value_or(PosixExit{});
    {
        std::lock_guard guard(shared->lock);
        shared->stdinClosed = true;
    }
    QList<RProcessEvent> last = asStdout(parser.flush());
    last.append(RProcessEvent::makeExited(exit.code, exitReason(exit)));
    shared->deliver(std::move(last));
    shared->writeQueue.submit([shared] {
        std::lock_guard guard(shared->lock);
        if (shared->stdinFd >= 0)
            ::close(shared->stdinFd);
        shared->stdinFd = -1;
    });
}

} // namespace

RProcess::RProcess(QString executable, QString workingDirectory, QString kernelScript, QObject *parent)
    : KernelProcess(parent), m_executable(std::move(executable)),
      m_workingDirectory(std::move(workingDirectory)), m_kernelScript(std::move(kernelScript)),
      m_token(RStreamParser::makeToken()), m_shared(std::make_shared<Shared>(this))
{
}

RProcess::~RProcess()
{
    m_shared->delivery.release();
    terminate();
}

QStringList RProcess::arguments(bool loadInitFile)
{
    QStringList arguments = {QStringLiteral("--interactive"), QStringLiteral("--no-save"),
                             QStringLiteral("--no-restore"), QStringLiteral("--quiet"),
                             QStringLiteral("--no-readline")};
    if (!loadInitFile)
        arguments.append(QStringLiteral("--no-init-file"));
    return arguments;
}

QStringList RProcess::childEnvironment(const QStringList &parent, const QMap<QString, QString> &extra,
                                       const QString &token)
{
    // Ordered map of the parent's entries; later entries of a name win, as in the C library.
    QList<std::pair<QString, QString>> entries;
    auto indexOf = [&](const QString &key) -> qsizetype {
        for (qsizetype i = 0; i < entries.size(); ++i)
            if (entries[i].first == key)
                return i;
        return -1;
    };
    auto set = [&](const QString &key, const QString &value) {
        const qsizetype i = indexOf(key);
        if (i >= 0)
            entries[i].second = value;
        else
            entries.append({key, value});
    };
    auto get = [&](const QString &key) -> std::optional<QString> {
        const qsizetype i = indexOf(key);
        return i >= 0 ? std::optional<QString>(entries[i].second) : std::nullopt;
    };
    for (const QString &entry : parent) {
        const qsizetype eq = entry.indexOf(u'=');
        if (eq > 0)
            set(entry.left(eq), entry.mid(eq + 1));
    }

    const QString lang = get(QStringLiteral("LANG")).value_or(QString());
    if (!lang.toUpper().contains(QStringLiteral("UTF-8")))
        set(QStringLiteral("LANG"), QStringLiteral("en_US.UTF-8"));
    set(QStringLiteral("LC_CTYPE"), get(QStringLiteral("LANG")).value_or(QString()));

    QString path = get(QStringLiteral("PATH")).value_or(QStringLiteral("/usr/bin:/bin:/usr/sbin:/sbin"));
    QStringList missing;
    for (const QString &directory : {QStringLiteral("/usr/local/bin"), QStringLiteral("/opt/homebrew/bin"),
                                     QStringLiteral("/Library/TeX/texbin")})
        if (!path.contains(directory))
            missing.append(directory);
    if (!missing.isEmpty())
        path = (QStringList{path} + missing).join(u':');
    set(QStringLiteral("PATH"), path);
    set(QStringLiteral("R_CLI_NUM_COLORS"), QStringLiteral("256"));
    if (const qsizetype i = indexOf(QStringLiteral("RSTUDIO")); i >= 0)
        entries.removeAt(i);
    set(QStringLiteral("TERM"), QStringLiteral("dumb"));
    if (!get(QStringLiteral("RSTUDIO_PANDOC"))) {
        if (const auto pandoc = ToolLocator::bundledPandocDirectory())
            set(QStringLiteral("RSTUDIO_PANDOC"), *pandoc);
    }
    for (auto it = extra.cbegin(); it != extra.cend(); ++it)
        set(it.key(), it.value());
    set(tokenVariable, token);

    QStringList result;
    result.reserve(entries.size());
    for (const auto &[key, value] : entries)
        result.append(key + u'=' + value);
    return result;
}

bool RProcess::start(const QMap<QString, QString> &extraEnvironment, bool loadInitFile, QString *error)
{
    if (m_started) {
        if (error)
            *error = QStringLiteral("The R process was started already.");
        return false;
    }
    PosixChild child;
    PosixChild::Options options;
    options.program = m_executable;
    options.arguments = arguments(loadInitFile);
    options.workingDirectory = m_workingDirectory;
    options.environment = childEnvironment(PosixChild::systemEnvironment(), extraEnvironment, m_token);
    if (!child.start(options, error))
        return false;
    m_started = true;

    {
        std::lock_guard guard(m_shared->reapLock);
        m_shared->pid = child.pid();
    }
    {
        std::lock_guard guard(m_shared->lock);
        m_shared->stdinFd = child.stdinFd();
    }
    std::thread(readLoop, m_shared, child.stdoutFd(), child.stderrFd(), child.exitFd(), child.pid(), m_token,
                startGroupWatcher(child.pid()))
        .detach();
    child.releaseDescriptors();

    // Without source references the kernel parses in half the time; its frames need none.
    send(QStringLiteral("source(%1, encoding = \"UTF-8\", keep.source = FALSE)")
             .arg(RLiteral::string(m_kernelScript)));
    return true;
}

void RProcess::send(const QString &line)
{
    if (!m_started)
        return;
    QByteArray bytes = line.toUtf8();
    bytes.append('\n');
    m_shared->writeQueue.submit([shared = m_shared, bytes = std::move(bytes)] {
        // Only this queue closes the descriptor, so it stays valid outside the lock; the lock is not
        // held across a write that may block on a full pipe.
        int fd = -1;
        {
            std::lock_guard guard(shared->lock);
            if (shared->stdinClosed)
                return;
            fd = shared->stdinFd;
        }
        if (fd < 0)
            return;
        qsizetype written = 0;
        while (written < bytes.size()) {
            const ssize_t n = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0) {
                std::lock_guard guard(shared->lock);
                shared->stdinClosed = true;
                return;
            }
            written += n;
        }
    });
}

void RProcess::interrupt()
{
    std::lock_guard guard(m_shared->reapLock);
    if (m_shared->pid > 0 && !m_shared->reaped)
        ::kill(m_shared->pid, SIGINT);
}

void RProcess::terminate()
{
    if (!isRunning())
        return;
    {
        std::lock_guard guard(m_shared->lock);
        m_shared->stdinClosed = true;
    }
    // The whole process group: what R started with system() goes too. Only while R is unreaped is
    // its process id sure to still name its group.
    {
        std::lock_guard guard(m_shared->reapLock);
        if (m_shared->pid > 0 && !m_shared->reaped)
            ::kill(-m_shared->pid, SIGTERM);
    }
    m_shared->writeQueue.submit([shared = m_shared] {
        std::lock_guard guard(shared->lock);
        if (shared->stdinFd >= 0)
            ::close(shared->stdinFd);
        shared->stdinFd = -1;
    });
    std::thread([shared = m_shared] {
        std::this_thread::sleep_for(std::chrono::seconds(2));
        std::lock_guard guard(shared->reapLock);
        if (shared->pid > 0 && !shared->reaped && ::kill(shared->pid, 0) == 0)
            ::kill(-shared->pid, SIGKILL);
    }).detach();
}

qint32 RProcess::processIdentifier() const
{
    std::lock_guard guard(m_shared->reapLock);
    return m_shared->pid;
}

bool RProcess::isRunning() const
{
    return m_shared->running();
}
