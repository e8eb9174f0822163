#include "RSession.h"

#include "RLiteral.h"
#include "RProcess.h"
#include "TextUnits.h"

#include <QDir>
#include <QSaveFile>
#include <QUuid>

namespace {

bool acceptsWork(const RSessionStatus &status)
{
    switch (status.kind) {
    case RSessionStatus::Kind::Starting:
    case RSessionStatus::Kind::Idle:
    case RSessionStatus::Kind::Busy:
    case RSessionStatus::Kind::WaitingForInput:
    case RSessionStatus::Kind::Debugging:
        return true;
    case RSessionStatus::Kind::NotStarted:
    case RSessionStatus::Kind::Stopped:
        return false;
    }
    return false;
}

} // namespace

QString RSessionStatus::label() const
{
    switch (kind) {
    case Kind::NotStarted:
        return QStringLiteral("R is not running");
    case Kind::Starting:
        return QStringLiteral("Starting R…");
    case Kind::Idle:
        return QStringLiteral("Ready");
    case Kind::Busy:
        return QStringLiteral("Running");
    case Kind::WaitingForInput:
        return QStringLiteral("Waiting for input");
    case Kind::Debugging:
        return QStringLiteral("Debugging");
    case Kind::Stopped:
        return reason;
    }
    return {};
}

QString RSessionError::description() const
{
    switch (kind) {
    case Kind::RError:
        return text;
    case Kind::NotRunning:
        return QStringLiteral("R is not running.");
    case Kind::NoResponse:
        return QStringLiteral("R did not answer.");
    }
    return text;
}

bool RSession::RequestAwaiter::await_suspend(std::coroutine_handle<> handle)
{
    // A request refused at once completes synchronously: then the caller does not suspend at all.
    bool suspended = false;
    auto completedInline = std::make_shared<bool>(true);
    session->request(name, args, named, [this, handle, completedInline](const RRequestResult &r) {
        result = r;
        if (!*completedInline)
            handle.resume();
    });
    if (result)
        return false;
    *completedInline = false;
    suspended = true;
    return suspended;
}

RSession::RSession(QObject *parent) : QObject(parent), m_startupWatchdog(new QTimer(this))
{
    m_startupWatchdog->setSingleShot(true);
    m_startupWatchdog->setInterval(startupWatchdogSeconds * 1000);
    connect(m_startupWatchdog, &QTimer::timeout, this, [this] {
        if (m_status.kind == RSessionStatus::Kind::Starting) {
            SessionEvent event;
            event.kind = SessionEvent::Kind::StartupStalled;
            event.text = m_startupOutput;
            emitEvent(event);
        }
    });
}

RSession::~RSession()
{
    onEvent = nullptr;
    shutDown();
}

QString RSession::makeID()
{
    return QStringLiteral("r%1").arg(++m_nextID);
}

void RSession::emitEvent(const SessionEvent &event)
{
    if (onEvent)
        onEvent(event);
}

void RSession::updateQueueCount()
{
    int count = 0;
    for (const Pending &pending : m_queue)
        if (pending.kind == Pending::Kind::Exec)
            ++count;
    if (count != m_queuedExecutions) {
        m_queuedExecutions = count;
        emit queuedExecutionsChanged();
    }
}

void RSession::setStatus(const RSessionStatus &status)
{
    if (status == m_status)
        return;
    m_status = status;
    emit statusChanged();
}

void RSession::setInfo(const std::optional<RInfo> &info)
{
    if (info == m_info)
        return;
    m_info = info;
    emit infoChanged();
}

void RSession::setExecutingOrigin(const std::optional<ExecOrigin> &origin)
{
    if (origin == m_executingOrigin)
        return;
    m_executingOrigin = origin;
    emit executingOriginChanged();
}

void RSession::setExecutionStarted(const std::optional<QDateTime> &started)
{
    if (started == m_executionStarted)
        return;
    m_executionStarted = started;
    emit executionStartedChanged();
}

void RSession::setIsExecuting(bool executing)
{
    if (executing == m_isExecuting)
        return;
    m_isExecuting = executing;
    emit isExecutingChanged();
}

// ---- Accepting work --------------------------------------------------------------------------

bool RSession::fitsConsoleLine(const QString &line)
{
    return TextUnits::fitsUTF8(line, consoleLineLimit);
}

QString RSession::writeTemporaryCode(const QString &code)
{
    // The session never deletes this file: R may still read it after the run was given up. The
    // kernel deletes it once read.
    const QString path =
        QDir(QDir::tempPath())
            .filePath(QStringLiteral("vesk-%1.R").arg(QUuid::createUuid().toString(QUuid::WithoutBraces)));
    QSaveFile out(path);
    if (out.open(QIODevice::WriteOnly)) {
        out.write(code.toUtf8());
        out.commit();
    }
    return path;
}

void RSession::enqueueExec(const QString &code, const ExecOrigin &origin, const std::optional<QString> &file,
                           int line, ExecCompletion completion)
{
    if (!acceptsWork(m_status)) {
        if (completion)
            completion(ExecResult::cancelled());
        return;
    }
    Pending pending;
    pending.id = makeID();
    pending.kind = Pending::Kind::Exec;
    pending.origin = origin;
    pending.code = code;
    pending.execCompletion = std::move(completion);
    const NamedArguments where = {{QStringLiteral("file"), RArgument::optional(file)},
                                  {QStringLiteral("line"), RArgument(qint64(line))}};
    if (TextUnits::fitsUTF8(code, inlineCodeLimit)) {
        pending.line =
            RLiteral::call(QStringLiteral(".vesk$exec"), {RArgument(pending.id), RArgument(code)}, where);
    }
    // R reads a console line of at most 4094 bytes; escaping can push short code over it.
    if (pending.line.isEmpty() || !fitsConsoleLine(pending.line)) {
        const QString path = writeTemporaryCode(code);
        pending.line =
            RLiteral::call(QStringLiteral(".vesk$execFile"), {RArgument(pending.id), RArgument(path)}, where);
    }
    m_queue.push_back(std::move(pending));
    updateQueueCount();
    pump();
}

void RSession::request(const QString &name, const QList<RArgument> &args, const NamedArguments &named,
                       RequestCompletion completion)
{
    if (!acceptsWork(m_status)) {
        if (completion)
            completion(RSessionError::notRunning());
        return;
    }
    Pending pending;
    pending.id = makeID();
    pending.kind = Pending::Kind::Request;
    QList<RArgument> positional = {RArgument(pending.id)};
    positional.append(args);
    pending.line = RLiteral::call(QStringLiteral(".vesk$") + name, positional, named);
    if (!fitsConsoleLine(pending.line)) {
        pending.line = RLiteral::call(QStringLiteral(".vesk$callFile"),
                                      {RArgument(writeTemporaryCode(pending.line))}, {});
    }
    pending.completion = std::move(completion);
    m_queue.push_back(std::move(pending));
    updateQueueCount();
    pump();
}

void RSession::pump()
{
    if (!m_process || m_requestSlot || m_queue.empty())
        return;
    if (m_status.kind == RSessionStatus::Kind::Debugging) {
        // In the browser, requests and raw lines overtake executions.
        for (auto it = m_queue.begin(); it != m_queue.end(); ++it) {
            if (it->kind != Pending::Kind::Exec) {
                Pending pending = std::move(*it);
                m_queue.erase(it);
                updateQueueCount();
                send(std::move(pending));
                return;
            }
        }
        return;
    }
    if (m_status.kind == RSessionStatus::Kind::Idle && !m_execSlot) {
        Pending pending = std::move(m_queue.front());
        m_queue.pop_front();
        updateQueueCount();
        send(std::move(pending));
    }
}

void RSession::send(Pending pending)
{
    const QString line = pending.line;
    if (pending.kind == Pending::Kind::Exec) {
        ExecAccumulator accumulator;
        accumulator.id = pending.id;
        m_exec = std::move(accumulator);
        SessionEvent event;
        event.kind = SessionEvent::Kind::ExecStarted;
        event.id = pending.id;
        event.code = pending.code;
        event.origin = pending.origin;
        const ExecOrigin origin = pending.origin;
        m_execSlot = std::move(pending);
        setIsExecuting(true);
        setExecutingOrigin(origin);
        setExecutionStarted(QDateTime::currentDateTime());
        emitEvent(event);
    } else {
        m_requestSlot = std::move(pending);
    }
    setStatus(RSessionStatus::busy());
    if (m_process)
        m_process->send(line);
}

void RSession::sendRaw(const QString &line)
{
    switch (m_status.kind) {
    case RSessionStatus::Kind::WaitingForInput:
        if (m_process)
            m_process->send(line);
        if (!(m_inputRequest && m_inputRequest->readsSeveralLines()))
            setStatus(RSessionStatus::busy());
        return;
    case RSessionStatus::Kind::Debugging: {
        Pending pending;
        pending.id = makeID();
        pending.kind = Pending::Kind::Raw;
        pending.line = line;
        if (!m_requestSlot) {
            send(std::move(pending));
        } else {
            m_queue.push_front(std::move(pending));
            updateQueueCount();
        }
        return;
    }
    default: {
        Pending pending;
        pending.id = makeID();
        pending.kind = Pending::Kind::Raw;
        pending.line = line;
        m_queue.push_back(std::move(pending));
        updateQueueCount();
        pump();
        return;
    }
    }
}

void RSession::interrupt()
{
    std::deque<Pending> cancelled, kept;
    for (Pending &pending : m_queue)
        (pending.kind == Pending::Kind::Exec ? cancelled : kept).push_back(std::move(pending));
    m_queue = std::move(kept);
    updateQueueCount();
    for (Pending &pending : cancelled)
        if (pending.execCompletion)
            pending.execCompletion(ExecResult::cancelled());
    if (m_process)
        m_process->interrupt();
}

// ---- Lifecycle -----------------------------------------------------------------------------

void RSession::start(const QString &executable, const QString &workingDirectory, const QString &kernel,
                     bool loadInitFile)
{
    shutDown();
    ++m_generation;
    m_quitting = false;
    setStatus(RSessionStatus::starting());
    m_startupOutput.clear();
    m_lineBuffer.clear();
    m_pendingDebugLocation.reset();
    m_browserPrepared = false;
    m_state = RSessionState();

    m_process = processFactory ? processFactory(executable, workingDirectory, kernel)
                               : std::make_unique<RProcess>(executable, workingDirectory, kernel);
    const quint64 generation = m_generation;
    connect(m_process.get(), &KernelProcess::eventReceived, this,
            [this, generation](const RProcessEvent &event) {
                if (generation != m_generation)
                    return;
                const bool outer = !m_handlingEvent;
                m_handlingEvent = true;
                handle(event);
                if (outer)
                    m_handlingEvent = false;
            });
    QString error;
    // Progress bars of the cli package redraw one line with carriage returns, which the console
    // applies in place; on a pipe cli would print every step on a line of its own.
    QMap<QString, QString> environment = extraEnvironment;
    environment.insert(QStringLiteral("R_CLI_DYNAMIC"), QStringLiteral("true"));
    if (!m_process->start(environment, loadInitFile, &error)) {
        m_process.reset();
        setStatus(RSessionStatus::stopped(QStringLiteral("Could not start R: ") + error));
        return;
    }
    m_startupWatchdog->start();
}

void RSession::shutDown()
{
    ++m_generation;
    m_startupWatchdog->stop();
    if (m_process) {
        m_process->terminate();
        releaseProcess();
    }
    failAll();
    setStatus(RSessionStatus::notStarted());
}

void RSession::releaseProcess()
{
    if (!m_process)
        return;
    m_process->disconnect(this);
    // The process may be the sender of the event being handled: then it goes when control returns.
    if (m_handlingEvent)
        m_process.release()->deleteLater();
    else
        m_process.reset();
}

void RSession::failAll()
{
    if (m_requestSlot) {
        Pending pending = std::move(*m_requestSlot);
        m_requestSlot.reset();
        if (pending.completion)
            pending.completion(RSessionError::notRunning());
    }
    if (m_execSlot)
        finishExec(!m_quitting);
    std::deque<Pending> queue = std::move(m_queue);
    m_queue.clear();
    for (Pending &pending : queue) {
        if (pending.completion)
            pending.completion(RSessionError::notRunning());
        if (pending.execCompletion)
            pending.execCompletion(ExecResult::cancelled());
    }
    updateQueueCount();
    m_responses.clear();
    m_inputRequest.reset();
}

void RSession::finishExec(bool forcedInterrupt)
{
    if (!m_execSlot || !m_exec)
        return;
    Pending pending = std::move(*m_execSlot);
    ExecAccumulator accumulator = std::move(*m_exec);
    m_execSlot.reset();
    m_exec.reset();
    setIsExecuting(false);
    setExecutingOrigin(std::nullopt);
    setExecutionStarted(std::nullopt);

    if (!accumulator.interrupted && !accumulator.done) {
        SessionEvent event;
        event.kind = SessionEvent::Kind::Interrupted;
        emitEvent(event);
    }
    ExecResult result;
    result.interrupted = accumulator.interrupted || forcedInterrupt || !accumulator.done;
    result.ok = accumulator.ok && accumulator.done && !result.interrupted;
    result.output = accumulator.output.text();
    result.error = accumulator.error;
    result.warnings = accumulator.warnings;
    result.plots = accumulator.plots;

    SessionEvent event;
    event.kind = SessionEvent::Kind::ExecFinished;
    event.id = pending.id;
    event.result = result;
    emitEvent(event);
    if (pending.execCompletion)
        pending.execCompletion(result);
}

// ---- Process events ------------------------------------------------------------------------

void RSession::recordStartupOutput(const QString &text)
{
    m_startupOutput += text;
    if (!TextUnits::fitsUTF8(m_startupOutput, 6000))
        m_startupOutput = m_startupOutput.right(4000);
}

void RSession::handle(const RProcessEvent &event)
{
    if (m_status.kind == RSessionStatus::Kind::Starting) {
        if (event.kind == RProcessEvent::Kind::Stdout && event.stream.kind == RStreamEvent::Kind::Text)
            recordStartupOutput(event.stream.text);
        else if (event.kind == RProcessEvent::Kind::Stdout && event.stream.kind == RStreamEvent::Kind::Echo)
            recordStartupOutput(event.stream.text + u'\n');
        else if (event.kind == RProcessEvent::Kind::Stderr)
            recordStartupOutput(event.text);
    }
    switch (event.kind) {
    case RProcessEvent::Kind::Stderr:
        if (m_requestSlot && m_requestSlot->kind == Pending::Kind::Request)
            return; // it belongs to a silent call
        {
            SessionEvent out;
            out.kind = SessionEvent::Kind::Stderr;
            out.text = event.text;
            emitEvent(out);
        }
        return;
    case RProcessEvent::Kind::Exited: {
        failAll();
        m_startupWatchdog->stop();
        releaseProcess();
        setStatus(RSessionStatus::stopped(event.text));
        SessionEvent out;
        out.kind = SessionEvent::Kind::Exited;
        out.text = event.text;
        out.byQuitting = m_quitting || event.status == 0;
        emitEvent(out);
        return;
    }
    case RProcessEvent::Kind::Stdout:
        handleStdout(event.stream);
        return;
    }
}

void RSession::handleStdout(const RStreamEvent &event)
{
    switch (event.kind) {
    case RStreamEvent::Kind::Text: {
        if (m_status.kind == RSessionStatus::Kind::Starting)
            return;
        if (m_requestSlot && m_requestSlot->kind == Pending::Kind::Request)
            return;
        if (m_exec)
            m_exec->output.append(event.text);
        SessionEvent out;
        out.kind = SessionEvent::Kind::Output;
        out.text = event.text;
        emitEvent(out);
        scanForDebugLocation(event.text);
        return;
    }
    case RStreamEvent::Kind::Event:
        if (const std::optional<KernelEvent> decoded = KernelEvent::decode(event.value))
            handleKernelEvent(*decoded);
        return;
    case RStreamEvent::Kind::Echo: {
        SessionEvent out;
        out.kind = SessionEvent::Kind::Echo;
        out.text = event.text;
        emitEvent(out);
        return;
    }
    case RStreamEvent::Kind::Malformed:
        return;
    case RStreamEvent::Kind::Prompt:
        handlePrompt(event.prompt);
        return;
    }
}

void RSession::handlePrompt(const RPrompt &prompt)
{
    m_inputRequest.reset();
    resolveRequestSlot();
    const auto location = std::exchange(m_pendingDebugLocation, std::nullopt);
    switch (prompt.kind) {
    case RPrompt::Kind::Browser:
        setStatus(RSessionStatus::debugging(prompt.level));
        if (!m_browserPrepared) {
            // User code runs with the user's prompts; a line continued in the browser is read at
            // R's continuation prompt, which must be framed again before the user's first line.
            m_browserPrepared = true;
            Pending pending;
            pending.id = makeID();
            pending.kind = Pending::Kind::Raw;
            pending.line = QStringLiteral(".vesk$browsing()");
            m_queue.push_front(std::move(pending));
            updateQueueCount();
        }
        if (location) {
            SessionEvent out;
            out.kind = SessionEvent::Kind::DebugLocation;
            out.file = location->first;
            out.line = location->second;
            emitEvent(out);
        }
        break;
    case RPrompt::Kind::Continuation:
        setStatus(RSessionStatus::waitingForInput());
        break;
    case RPrompt::Kind::Ready:
        m_browserPrepared = false;
        if (m_execSlot)
            finishExec(false);
        setStatus(RSessionStatus::idle());
        break;
    }
    SessionEvent out;
    out.kind = SessionEvent::Kind::Prompted;
    emitEvent(out);
    pump();
}

void RSession::resolveRequestSlot()
{
    if (!m_requestSlot)
        return;
    Pending pending = std::move(*m_requestSlot);
    m_requestSlot.reset();
    std::optional<RRequestResult> stored;
    if (auto it = m_responses.find(pending.id); it != m_responses.end())
        stored = it->second;
    m_responses.clear();
    if (pending.kind == Pending::Kind::Request && pending.completion)
        pending.completion(stored ? *stored : RRequestResult(RSessionError::noResponse()));
}

void RSession::handleKernelEvent(const KernelEvent &event)
{
    SessionEvent out;
    switch (event.kind) {
    case KernelEvent::Kind::Ready:
        setInfo(event.info);
        setStatus(RSessionStatus::busy());
        m_startupWatchdog->stop();
        out.kind = SessionEvent::Kind::Ready;
        out.info = event.info;
        break;
    case KernelEvent::Kind::Response:
        if (!m_requestSlot || m_requestSlot->id != event.id)
            return;
        m_responses.insert_or_assign(event.id, event.fault
                                                   ? RRequestResult(RSessionError::rError(*event.fault))
                                                   : RRequestResult(event.result));
        return;
    case KernelEvent::Kind::Message:
        if (m_exec)
            m_exec->output.append(event.text);
        out.kind = SessionEvent::Kind::Message;
        out.text = event.text;
        break;
    case KernelEvent::Kind::Warning:
        out.kind = SessionEvent::Kind::Warning;
        out.text = event.text;
        out.call = event.call;
        if (m_exec)
            m_exec->warnings.append(out.text);
        break;
    case KernelEvent::Kind::Error:
        if (m_exec) {
            m_exec->error = event.error;
            m_exec->ok = false;
        }
        out.kind = SessionEvent::Kind::Error;
        out.error = event.error;
        break;
    case KernelEvent::Kind::Interrupted:
        if (m_exec)
            m_exec->interrupted = true;
        out.kind = SessionEvent::Kind::Interrupted;
        break;
    case KernelEvent::Kind::Plot:
        if (m_exec && !m_exec->plots.contains(event.page))
            m_exec->plots.append(event.page);
        out.kind = SessionEvent::Kind::Plot;
        out.page = event.page;
        out.file = event.file;
        out.isNew = event.isNew;
        out.geometry = event.geometry;
        break;
    case KernelEvent::Kind::State:
        out.kind = SessionEvent::Kind::State;
        m_state.apply(event.state);
        out.state = m_state;
        break;
    case KernelEvent::Kind::Done:
        if (m_exec) {
            m_exec->done = true;
            if (event.failed)
                m_exec->ok = false;
        }
        return;
    case KernelEvent::Kind::View:
        out.kind = SessionEvent::Kind::View;
        out.expr = event.expr;
        out.title = event.title;
        break;
    case KernelEvent::Kind::OpenFile:
        out.kind = SessionEvent::Kind::OpenFile;
        out.url = event.url;
        break;
    case KernelEvent::Kind::Quit:
        m_quitting = true;
        if (m_exec)
            m_exec->done = true;
        return;
    case KernelEvent::Kind::Input:
        m_inputRequest = event.input;
        if (m_status.kind == RSessionStatus::Kind::Busy)
            setStatus(RSessionStatus::waitingForInput());
        return;
    case KernelEvent::Kind::InputDone:
        m_inputRequest.reset();
        if (m_status.kind == RSessionStatus::Kind::WaitingForInput)
            setStatus(RSessionStatus::busy());
        return;
    case KernelEvent::Kind::Browse:
    case KernelEvent::Kind::Viewer:
        out.kind =
            event.kind == KernelEvent::Kind::Browse ? SessionEvent::Kind::Browse : SessionEvent::Kind::Viewer;
        out.url = event.url;
        break;
    case KernelEvent::Kind::Debug:
        out.kind = SessionEvent::Kind::Debug;
        out.frames = event.frames;
        out.variables = event.variables;
        break;
    }
    emitEvent(out);
}

void RSession::scanForDebugLocation(const QString &text)
{
    static const QString marker = QStringLiteral("debug at ");
    m_lineBuffer += text;
    auto tooLong = [](const QString &s) { return !TextUnits::fitsUTF8(s, 4000); };
    if (!m_lineBuffer.contains(marker)) {
        const qsizetype lastBreak = m_lineBuffer.lastIndexOf(u'\n');
        if (lastBreak >= 0)
            m_lineBuffer.remove(0, lastBreak + 1);
        if (tooLong(m_lineBuffer))
            m_lineBuffer.clear();
        return;
    }
    if (!m_lineBuffer.contains(u'\n')) {
        if (tooLong(m_lineBuffer))
            m_lineBuffer.clear();
        return;
    }
    QStringList pieces = m_lineBuffer.split(u'\n');
    m_lineBuffer = pieces.takeLast();
    for (const QString &line : pieces) {
        if (!line.startsWith(marker))
            continue;
        const QString rest = line.mid(marker.size());
        const qsizetype hash = rest.lastIndexOf(u'#');
        if (hash < 0)
            continue;
        qsizetype end = hash + 1;
        while (end < rest.size() && rest[end].isDigit() && rest[end].unicode() < 128)
            ++end;
        bool ok = false;
        const int number = rest.mid(hash + 1, end - hash - 1).toInt(&ok);
        if (!ok)
            continue;
        m_pendingDebugLocation = std::make_pair(rest.left(hash), number);
    }
}
