// Turns one line-oriented R console into a service: user-visible executions and silent named
// requests, queued and sent one line at a time as R's prompts allow. Lives on the main thread.
#pragma once

#include "HeadTailText.h"
#include "JSONValue.h"
#include "KernelEvent.h"
#include "KernelProcess.h"
#include "RArgument.h"
#include "RSessionTypes.h"

#include <QDateTime>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QUrl>

#include <coroutine>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <variant>

struct RSessionStatus {
    enum class Kind { NotStarted, Starting, Idle, Busy, WaitingForInput, Debugging, Stopped };
    Kind kind = Kind::NotStarted;
    int level = 0;  // Debugging
    QString reason; // Stopped

    static RSessionStatus notStarted() { return {Kind::NotStarted, 0, {}}; }
    static RSessionStatus starting() { return {Kind::Starting, 0, {}}; }
    static RSessionStatus idle() { return {Kind::Idle, 0, {}}; }
    static RSessionStatus busy() { return {Kind::Busy, 0, {}}; }
    static RSessionStatus waitingForInput() { return {Kind::WaitingForInput, 0, {}}; }
    static RSessionStatus debugging(int level) { return {Kind::Debugging, level, {}}; }
    static RSessionStatus stopped(QString reason) { return {Kind::Stopped, 0, std::move(reason)}; }
    // The few words the window shows for this status.
    QString label() const;
    bool operator==(const RSessionStatus &) const = default;
};

// The failure of a named request.
struct RSessionError {
    enum class Kind { RError, NotRunning, NoResponse };
    Kind kind = Kind::NoResponse;
    QString text; // RError

    static RSessionError rError(QString text) { return {Kind::RError, std::move(text)}; }
    static RSessionError notRunning() { return {Kind::NotRunning, {}}; }
    static RSessionError noResponse() { return {Kind::NoResponse, {}}; }
    QString description() const;
    bool operator==(const RSessionError &) const = default;
};

// A request's answer: the kernel's JSON result, or why there is none.
class RRequestResult {
public:
    RRequestResult(JSONValue value) : m_value(std::move(value)) {}
    RRequestResult(RSessionError error) : m_value(std::move(error)) {}
    bool ok() const { return std::holds_alternative<JSONValue>(m_value); }
    const JSONValue &value() const { return std::get<JSONValue>(m_value); }
    const RSessionError &error() const { return std::get<RSessionError>(m_value); }

private:
    std::variant<JSONValue, RSessionError> m_value;
};

// What the session tells its owner, one event at a time, in the order things happened.
struct SessionEvent {
    enum class Kind {
        Ready,
        ExecStarted,
        Output,
        Stderr,
        Echo,
        Message,
        Warning,
        Error,
        Plot,
        State,
        View,
        OpenFile,
        Browse,
        Viewer,
        Debug,
        DebugLocation,
        ExecFinished,
        Exited,
        StartupStalled,
        Interrupted,
        Prompted
    };
    Kind kind = Kind::Prompted;
    RInfo info;                  // Ready
    QString id;                  // ExecStarted, ExecFinished
    QString code;                // ExecStarted
    ExecOrigin origin;           // ExecStarted
    QString text;                // Output, Stderr, Echo, Message, Warning, StartupStalled, Exited (reason)
    std::optional<QString> call; // Warning
    RErrorInfo error;            // Error
    int page = 0;                // Plot
    QString file;                // Plot (path), DebugLocation
    bool isNew = false;          // Plot
    JSONValue geometry;          // Plot: the kernel's plot information, null when absent
    RSessionState state;         // State
    QString expr, title;         // View
    QUrl url;                    // OpenFile, Browse, Viewer
    QList<RFrame> frames;        // Debug
    QList<REnvObject> variables; // Debug
    int line = 0;                // DebugLocation
    ExecResult result;           // ExecFinished
    bool byQuitting = false;     // Exited
};

class RSession : public QObject {
    Q_OBJECT
public:
    using ExecCompletion = std::function<void(const ExecResult &)>;
    using RequestCompletion = std::function<void(const RRequestResult &)>;
    using NamedArguments = QList<std::pair<QString, RArgument>>;
    using ProcessFactory = std::function<std::unique_ptr<KernelProcess>(
        const QString &executable, const QString &workingDirectory, const QString &kernel)>;

    // Code up to this many UTF-8 bytes goes inline; longer code goes through a file.
    static constexpr qsizetype inlineCodeLimit = 2000;
    // The longest line R's console reads, without its newline.
    static constexpr qsizetype consoleLineLimit = 4094;
    static constexpr int startupWatchdogSeconds = 20;

    explicit RSession(QObject *parent = nullptr);
    ~RSession() override;

    // Variables R is started with, besides those of Vesk's own environment.
    QMap<QString, QString> extraEnvironment;
    // Makes the process `start` drives; unset, a real R (`RProcess`).
    ProcessFactory processFactory;

    void start(const QString &executable, const QString &workingDirectory, const QString &kernel,
               bool loadInitFile = true);
    void shutDown();

    void enqueueExec(const QString &code, const ExecOrigin &origin,
                     const std::optional<QString> &file = std::nullopt, int line = 1,
                     ExecCompletion completion = {});
    void request(const QString &name, const QList<RArgument> &args, const NamedArguments &named,
                 RequestCompletion completion);
    void sendRaw(const QString &line);
    void interrupt();

    // Awaitable form of `request` for QCoro tasks on the main thread.
    struct RequestAwaiter {
        RSession *session;
        QString name;
        QList<RArgument> args;
        NamedArguments named;
        std::optional<RRequestResult> result;
        bool await_ready() const noexcept { return false; }
        bool await_suspend(std::coroutine_handle<> handle);
        RRequestResult await_resume() { return std::move(*result); }
    };
    RequestAwaiter requestAsync(const QString &name, QList<RArgument> args = {}, NamedArguments named = {})
    {
        return RequestAwaiter{this, name, std::move(args), std::move(named), std::nullopt};
    }

    // The owner's handler; called on the main thread for every event.
    std::function<void(const SessionEvent &)> onEvent;

    const RSessionStatus &status() const { return m_status; }
    const std::optional<RInfo> &info() const { return m_info; }
    const std::optional<ExecOrigin> &executingOrigin() const { return m_executingOrigin; }
    const std::optional<QDateTime> &executionStarted() const { return m_executionStarted; }
    int queuedExecutions() const { return m_queuedExecutions; }
    bool isExecuting() const { return m_isExecuting; }
    quint64 generation() const { return m_generation; }
    const std::optional<RInputRequest> &inputRequest() const { return m_inputRequest; }
    KernelProcess *process() const { return m_process.get(); }

signals:
    void statusChanged();
    void infoChanged();
    void executingOriginChanged();
    void executionStartedChanged();
    void queuedExecutionsChanged();
    void isExecutingChanged();

private:
    static bool fitsConsoleLine(const QString &line);
    static QString writeTemporaryCode(const QString &code);
    struct Pending {
        enum class Kind { Exec, Request, Raw };
        QString id;
        QString line;
        Kind kind = Kind::Raw;
        ExecOrigin origin;
        QString code;
        RequestCompletion completion;
        ExecCompletion execCompletion;
    };
    struct ExecAccumulator {
        QString id;
        HeadTailText output{20000, 60000};
        std::optional<RErrorInfo> error;
        QStringList warnings;
        QList<int> plots;
        bool done = false;
        bool ok = true;
        bool interrupted = false;
    };

    QString makeID();
    void pump();
    void send(Pending pending);
    void handle(const RProcessEvent &event);
    void handleStdout(const RStreamEvent &event);
    void handleKernelEvent(const KernelEvent &event);
    void handlePrompt(const RPrompt &prompt);
    void resolveRequestSlot();
    void finishExec(bool forcedInterrupt);
    void failAll();
    void scanForDebugLocation(const QString &text);
    void recordStartupOutput(const QString &text);
    void emitEvent(const SessionEvent &event);
    void updateQueueCount();

    void setStatus(const RSessionStatus &status);
    void setInfo(const std::optional<RInfo> &info);
    void setExecutingOrigin(const std::optional<ExecOrigin> &origin);
    void setExecutionStarted(const std::optional<QDateTime> &started);
    void setIsExecuting(bool executing);

    RSessionStatus m_status;
    std::optional<RInfo> m_info;
    std::optional<ExecOrigin> m_executingOrigin;
    std::optional<QDateTime> m_executionStarted;
    int m_queuedExecutions = 0;
    bool m_isExecuting = false;

    std::unique_ptr<KernelProcess> m_process;
    QTimer *m_startupWatchdog = nullptr;
    std::deque<Pending> m_queue;
    std::optional<Pending> m_execSlot;
    std::optional<Pending> m_requestSlot;
    quint64 m_nextID = 0;
    std::map<QString, RRequestResult> m_responses;
    std::optional<ExecAccumulator> m_exec;
    std::optional<RInputRequest> m_inputRequest;
    quint64 m_generation = 0;
    QString m_lineBuffer;
    std::optional<std::pair<QString, int>> m_pendingDebugLocation;
    bool m_browserPrepared = false;
    bool m_quitting = false;
    // The environment as the kernel's states tell it, partial ones merged in.
    RSessionState m_state;
    // True while an event of the process is handled: the process must then outlive the call.
    bool m_handlingEvent = false;
    void releaseProcess();
    QString m_startupOutput;
};
