#include "Workspace.h"

#include "Base/AppPaths.h"
#include "Base/RecentProjects.h"
#include "Base/Settings.h"
#include "Documents/DocumentStore.h"
#include "RLiteral.h"
#include "ToolLocator.h"
#include "WorkspaceChange.h"

#include <QDir>
#include <QFileInfo>
#include <QFont>
#include <QFontDatabase>
#include <QFontMetricsF>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>

#include <cmath>

namespace {

std::optional<QString> originLabel(const ExecOrigin &origin)
{
    switch (origin.kind) {
    case ExecOrigin::Kind::Editor:
    case ExecOrigin::Kind::Agent:
        return origin.name;
    case ExecOrigin::Kind::Console:
    case ExecOrigin::Kind::System:
        break;
    }
    return std::nullopt;
}

QString trimmedCode(const QString &code)
{
    return code.trimmed();
}

} // namespace

Workspace::Workspace(Settings &settings, QObject *parent)
    : QObject(parent), m_settings(settings), m_workingDirectory(QDir::homePath())
{
    m_session.onEvent = [self = QPointer<Workspace>(this)](const SessionEvent &event) {
        if (self)
            self->handle(event);
    };
    connect(&m_session, &RSession::statusChanged, this, &Workspace::statusChanged);
    connect(&m_session, &RSession::queuedExecutionsChanged, this, &Workspace::statusChanged);
    connect(&m_session, &RSession::isExecutingChanged, this, &Workspace::statusChanged);
    connect(&m_settings, &Settings::changed, this, &Workspace::settingChanged);

    m_historySaveTimer.setSingleShot(true);
    m_historySaveTimer.setInterval(1000);
    connect(&m_historySaveTimer, &QTimer::timeout, this, &Workspace::saveHistory);
    m_consoleWidthTimer.setSingleShot(true);
    m_consoleWidthTimer.setInterval(250);
    connect(&m_consoleWidthTimer, &QTimer::timeout, this, &Workspace::refreshConsoleWidth);
    setUpPlots();
    setUpDocuments();
}

Workspace::~Workspace()
{
    m_session.onEvent = nullptr;
}

bool Workspace::sessionIsLive() const
{
    switch (m_session.status().kind) {
    case RSessionStatus::Kind::Idle:
    case RSessionStatus::Kind::Busy:
    case RSessionStatus::Kind::WaitingForInput:
    case RSessionStatus::Kind::Debugging:
        return true;
    default:
        return false;
    }
}

void Workspace::setUpPlots()
{
    m_plots.presentAlert = [this](const Alert &alert) {
        if (presentAlert)
            presentAlert(alert);
    };
    connect(&m_plots, &WorkspacePlots::showRequested, this, [this] { setInspectorTab(InspectorTab::Plots); });
    connect(&m_plots, &WorkspacePlots::paletteChanged, this, [this] {
        if (sessionIsLive() && m_sessionReadyAt)
            m_plots.refreshTheme();
    });
}

void Workspace::setInspectorTab(std::optional<InspectorTab> tab)
{
    if (tab == m_inspectorTab)
        return;
    m_inspectorTab = tab;
    emit inspectorTabChanged();
}

void Workspace::settingChanged(const QString &key)
{
    if (sessionIsLive() && m_sessionReadyAt) {
        m_plots.refreshTheme();
        refreshROptions(false);
    }
}

void Workspace::setStartupProblem(const std::optional<QString> &problem)
{
    if (problem == m_startupProblem)
        return;
    m_startupProblem = problem;
    emit startupProblemChanged();
}

void Workspace::startR(bool loadInitFile)
{
    m_environmentIsCurrent = false;
    const QString preferred = m_settings.stringValue(Settings::rPath);
    const auto executable =
        RLocator::find(preferred.isEmpty() ? std::nullopt : std::optional<QString>(preferred));
    if (!executable) {
        setStartupProblem(QStringLiteral("R is not installed. Install it from CRAN, then restart Vesk."));
        return;
    }
    setStartupProblem(std::nullopt);
    m_sessionReadyAt.reset();
    m_sessionUsed = false;
    const QString directory = m_projectPath.value_or(m_workingDirectory);
    const QString kernel = kernelPath.isEmpty() ? AppPaths::kernelScript() : kernelPath;
    m_session.start(*executable, directory, kernel, loadInitFile);
}

void Workspace::restartR()
{
    if (m_settings.boolValue(Settings::clearConsoleOnRestart))
        m_console.clear();
    m_console.note(QStringLiteral("Restarting R…"));
    resetSessionState();
    startR(true);
}

void Workspace::resetSessionState()
{
    m_environment.clear();
    m_attachedPackages.clear();
    ++m_stateRevision;
    m_lastRun.reset();
    m_plots.store().reset();
    emit environmentChanged();
    emit lastRunChanged();
}

void Workspace::shutDown()
{
    endDocumentSession();
    saveHistory();
    m_session.shutDown();
}

void Workspace::interrupt()
{
    m_session.interrupt();
}

void Workspace::handle(const SessionEvent &event)
{
    using Kind = SessionEvent::Kind;
    using Item = ConsoleModel::Item;
    switch (event.kind) {
    case Kind::Ready:
        m_sessionReadyAt = now();
        m_console.note(QStringLiteral("R %1 is ready.").arg(event.info.version));
        m_environmentIsCurrent = true;
        m_appliedROptions.clear();
        // R is busy until the prompt that ends the start-up, so these queue and go first.
        m_plots.refreshSize();
        refreshConsoleWidth();
        // A new R has no theme yet, whatever the last one had.
        m_plots.forgetTheme();
        m_plots.refreshTheme();
        refreshROptions(true);
        emit sessionReady();
        break;
    case Kind::ExecStarted:
        if (event.origin.kind != ExecOrigin::Kind::System)
            m_sessionUsed = true;
        m_console.begin(event.id, event.code, event.origin);
        break;
    case Kind::Output:
        m_console.append(Item::output(event.text));
        break;
    case Kind::Stderr:
        m_console.append(Item::stderrText(event.text));
        break;
    case Kind::Echo:
        m_console.append(Item::echo(event.text));
        break;
    case Kind::Message:
        m_console.append(Item::message(event.text));
        break;
    case Kind::Warning:
        m_console.append(Item::warning(event.text, event.call));
        break;
    case Kind::Error:
        m_console.append(Item::errorItem(event.error));
        break;
    case Kind::Plot:
        m_plots.handleEvent(event);
        m_console.append(Item::plot(event.page));
        // A redraw of an existing page doesn't pull the user away from another tab.
        if (event.isNew)
            setInspectorTab(InspectorTab::Plots);
        break;
    case Kind::State:
        applyState(event.state);
        break;
    case Kind::ExecFinished: {
        if (const ConsoleModel::Cell *cell = m_console.cell(event.id)) {
            const ExecOrigin origin = cell->origin;
            const QDateTime started = cell->started;
            m_console.finish(event.id, event.result);
            LastRun run;
            run.finished = QDateTime::currentDateTime();
            run.duration = started.msecsTo(run.finished) / 1000.0;
            run.ok = event.result.ok;
            if (origin.kind == ExecOrigin::Kind::Editor || origin.kind == ExecOrigin::Kind::Agent)
                run.origin = origin.name;
            m_lastRun = run;
            emit lastRunChanged();
        } else {
            m_console.finish(event.id, event.result);
        }
        break;
    }
    case Kind::Exited:
        sessionEnded(event.text, event.byQuitting);
        break;
    case Kind::StartupStalled:
        startupStalled(event.text);
        break;
    case Kind::View:
    case Kind::OpenFile:
        handleDocumentEvent(event);
        break;
    case Kind::Browse:
    case Kind::Viewer:
        if (openExternally && event.url.isValid())
            openExternally(event.url);
        break;
    case Kind::Debug:
    case Kind::DebugLocation:
    case Kind::Interrupted:
    case Kind::Prompted:
        break;
    }
}

void Workspace::applyState(const RSessionState &state)
{
    ++m_stateRevision;
    // A run that changed nothing leaves the session's list shared with ours: comparing is free.
    const bool envChanged = !m_environmentIsCurrent || state.env != m_environment;
    if (m_settings.boolValue(Settings::showWorkspaceChanges) && m_environmentIsCurrent)
        m_console.attach(envChanged ? WorkspaceChange::diff(m_environment, state.env)
                                    : QList<WorkspaceChange>());
    m_environment = state.env;
    m_environmentIsCurrent = true;
    const bool directoryChanged = m_workingDirectory != state.wd && !state.wd.isEmpty();
    if (!state.wd.isEmpty())
        m_workingDirectory = state.wd;
    m_attachedPackages = state.attached;
    m_console.setPrompts(state.prompt, state.continuation);
    if (envChanged)
        emit environmentChanged();
    // R may have written a file that a tab shows.
    m_documents->refreshDataViews();
    if (directoryChanged)
        emit workingDirectoryChanged();
}

void Workspace::sessionEnded(const QString &reason, bool byQuitting)
{
    resetSessionState();
    if (!m_sessionReadyAt) {
        QString headline = byQuitting ? QStringLiteral("R quit") : reason;
        if (!byQuitting && headline.endsWith(u'.'))
            headline.chop(1);
        m_console.note(headline +
                       QStringLiteral(" while starting. Check the project’s .Rprofile, then use Session › "
                                      "Restart R."));
        return;
    }
    m_sessionReadyAt.reset();
    const QDateTime current = now();
    m_automaticRestarts.removeIf(
        [&](const QDateTime &date) { return date.secsTo(current) > automaticRestartWindowSeconds; });
    const QString headline = byQuitting ? QStringLiteral("R session ended.") : reason;
    if (m_automaticRestarts.size() >= automaticRestartLimit) {
        m_console.note(headline +
                       QStringLiteral(" R stopped several times in a minute, so Vesk did not start "
                                      "it again. Use Session › Restart R when you’re ready."));
        return;
    }
    m_automaticRestarts.append(current);
    m_console.note(headline + QStringLiteral(" Starting a new session…"));
    QTimer::singleShot(0, this, [this] {
        if (m_session.status().kind == RSessionStatus::Kind::Stopped)
            startR(true);
    });
}

void Workspace::startupStalled(const QString &output)
{
    const QString trimmed = output.trimmed();
    if (trimmed.isEmpty())
        m_console.note(QStringLiteral("R has not started after 20 seconds and printed nothing."));
    else
        m_console.note(QStringLiteral("R has not started after 20 seconds. It printed:\n") + trimmed);
    if (!presentAlert)
        return;
    Alert alert;
    alert.title = QStringLiteral("R hasn’t started after 20 seconds");
    alert.text =
        QStringLiteral("A startup file such as the project’s .Rprofile may be waiting for input or stuck.");
    if (!trimmed.isEmpty())
        alert.text += QStringLiteral("\n\nThe last thing R printed:\n") + trimmed;
    alert.buttons = {QStringLiteral("Restart Without .Rprofile"), QStringLiteral("Keep Waiting")};
    alert.onChoice = [self = QPointer<Workspace>(this)](int choice) {
        if (!self || choice != 0)
            return;
        self->m_console.note(QStringLiteral("Restarting R without .Rprofile…"));
        self->resetSessionState();
        self->startR(false);
    };
    presentAlert(alert);
}

void Workspace::run(const QString &code, const ExecOrigin &origin, const std::optional<QString> &file,
                    int line, RSession::ExecCompletion completion)
{
    const QString trimmed = trimmedCode(code);
    if (trimmed.isEmpty()) {
        if (completion)
            completion(ExecResult::cancelled());
        return;
    }
    if (origin.kind != ExecOrigin::Kind::System)
        addHistory(trimmed, originLabel(origin));
    m_session.enqueueExec(trimmed, origin, file, line, std::move(completion));
}

void Workspace::addHistory(const QString &code, const std::optional<QString> &origin)
{
    if (!m_history.isEmpty() && m_history.last().code == code)
        return;
    m_history.append({QUuid::createUuid(), code, QDateTime::currentDateTime(), origin});
    if (m_history.size() > historyLimit)
        m_history.remove(0, m_history.size() - historyLimit);
    emit historyChanged();
    scheduleHistorySave();
}

void Workspace::submitConsole()
{
    const QString text = m_consoleInput;
    const auto kind = m_session.status().kind;
    const bool answering =
        kind == RSessionStatus::Kind::WaitingForInput || kind == RSessionStatus::Kind::Debugging;
    QString stripped = text;
    while (!stripped.isEmpty() && (stripped.back() == u' ' || stripped.back() == u'\t'))
        stripped.chop(1);
    while (!stripped.isEmpty() && (stripped.front() == u' ' || stripped.front() == u'\t'))
        stripped.remove(0, 1);
    if (stripped.isEmpty() && !answering)
        return;
    // Ask mode goes to the agents, which this build does not have yet: the text stays.
    if (m_consoleAskMode)
        return;
    setConsoleInput(QString());
    m_historyCursor.reset();
    if (!answering) {
        run(text, ExecOrigin::console());
        return;
    }
    if (kind == RSessionStatus::Kind::Debugging && !stripped.isEmpty() &&
        (m_history.isEmpty() || m_history.last().code != stripped)) {
        m_history.append({QUuid::createUuid(), stripped, QDateTime::currentDateTime(), std::nullopt});
        if (m_history.size() > historyLimit)
            m_history.remove(0, m_history.size() - historyLimit);
        emit historyChanged();
        scheduleHistorySave();
    }
    m_session.sendRaw(text);
}

void Workspace::setConsoleInput(const QString &text)
{
    if (text == m_consoleInput)
        return;
    m_consoleInput = text;
    emit consoleInputChanged();
}

void Workspace::setConsoleAskMode(bool on)
{
    if (on == m_consoleAskMode)
        return;
    m_consoleAskMode = on;
    emit consoleAskModeChanged();
}

QString Workspace::consolePlaceholder() const
{
    if (m_consoleAskMode)
        return QStringLiteral("Ask the Analyst about your data…");
    switch (m_session.status().kind) {
    case RSessionStatus::Kind::Debugging:
        return QStringLiteral("Inspect variables, or type n, s, f, c or Q");
    case RSessionStatus::Kind::WaitingForInput:
        return QStringLiteral("R is waiting for your input");
    case RSessionStatus::Kind::Busy:
        return QStringLiteral("R is busy. Code you enter now will run next.");
    default:
        return QStringLiteral("Run R code");
    }
}

void Workspace::openProject(const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    RecentProjects::add(m_settings, clean);
    const auto kind = m_session.status().kind;
    if (kind == RSessionStatus::Kind::NotStarted || !m_sessionUsed) {
        m_projectPath = clean;
        m_workingDirectory = clean;
        emit projectChanged();
        emit workingDirectoryChanged();
        loadHistory();
        beginDocumentSession();
        resetSessionState();
        startR(true);
        return;
    }
    if (isBusy())
        confirmProjectSwitch(clean);
    else
        switchProject(clean);
}

void Workspace::confirmProjectSwitch(const QString &path)
{
    if (!presentAlert)
        return;
    Alert alert;
    alert.title = QStringLiteral("Switch to “%1” and restart R?").arg(QFileInfo(path).fileName());
    alert.text = isBusy()
                     ? QStringLiteral("R is still running. Switching stops it, and objects in the current "
                                      "session will be lost.")
                     : QStringLiteral("Objects in the current session will be lost.");
    alert.buttons = {QStringLiteral("Restart"), QStringLiteral("Cancel")};
    alert.onChoice = [self = QPointer<Workspace>(this), path](int choice) {
        if (self && choice == 0)
            self->switchProject(path);
    };
    presentAlert(alert);
}

void Workspace::switchProject(const QString &path)
{
    const QString clean = QDir::cleanPath(path);
    m_projectPath = clean;
    m_workingDirectory = clean;
    emit projectChanged();
    emit workingDirectoryChanged();
    RecentProjects::add(m_settings, clean);
    loadHistory();
    beginDocumentSession();
    if (m_settings.boolValue(Settings::clearConsoleOnRestart))
        m_console.clear();
    m_console.note(QStringLiteral("Restarting R in “%1”…").arg(QFileInfo(clean).fileName()));
    resetSessionState();
    startR(true);
}

void Workspace::chooseWorkingDirectory()
{
    if (!chooseFolder)
        return;
    const auto folder = chooseFolder(QStringLiteral("Choose"));
    if (!folder || folder->isEmpty())
        return;
    run(QStringLiteral("setwd(%1)").arg(RLiteral::string(*folder)), ExecOrigin::console());
}

void Workspace::confirmClearWorkspace()
{
    if (!presentAlert)
        return;
    const qsizetype count = m_environment.size();
    Alert alert;
    alert.title = QStringLiteral("Remove all objects from the workspace?");
    alert.text = QStringLiteral("This removes %1 %2 from the global environment. It can’t be undone.")
                     .arg(count)
                     .arg(count == 1 ? QStringLiteral("object") : QStringLiteral("objects"));
    alert.buttons = {QStringLiteral("Remove All"), QStringLiteral("Cancel")};
    alert.onChoice = [self = QPointer<Workspace>(this)](int choice) {
        if (self && choice == 0)
            self->run(QStringLiteral("rm(list = ls(all.names = TRUE))"), ExecOrigin::console());
    };
    presentAlert(alert);
}

void Workspace::refreshROptions(bool startup)
{
    const QString mirror = m_settings.stringValue(Settings::cranMirror);
    const int digits = m_settings.intValue(Settings::digits);
    const QStringList options = {mirror, QString::number(digits)};
    if (!startup && options == m_appliedROptions)
        return;
    m_appliedROptions = options;
    const QString startupCode = startup ? m_settings.stringValue(Settings::startupCode) : QString();
    m_session.request(
        QStringLiteral("configure"), {RArgument(mirror), RArgument(digits), RArgument(startupCode)}, {},
        [self = QPointer<Workspace>(this)](const RRequestResult &result) {
            if (!self)
                return;
            if (!result.ok()) {
                self->m_console.note(QStringLiteral("Startup code failed: ") + result.error().description());
                return;
            }
            const auto output = result.value()[u"output"].stringValue();
            if (output && !output->isEmpty())
                self->m_console.note(*output);
        });
}

void Workspace::refreshConsoleWidth()
{
    m_session.request(QStringLiteral("setWidth"), {RArgument(m_consoleColumns)}, {},
                      [](const RRequestResult &) {});
}

void Workspace::consoleResized(double width, double fontSize)
{
    if (!qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        return;
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setPointSizeF(fontSize);
    const double character = QFontMetricsF(font).horizontalAdvance(u'M');
    if (character <= 0)
        return;
    const int columns = std::max(30, int((width - 36) / character));
    if (columns == m_consoleColumns)
        return;
    m_consoleColumns = columns;
    m_consoleWidthTimer.start();
}

bool Workspace::isBusy() const
{
    const auto kind = m_session.status().kind;
    return m_session.isExecuting() || m_session.queuedExecutions() > 0 ||
           kind == RSessionStatus::Kind::WaitingForInput || kind == RSessionStatus::Kind::Debugging;
}

void Workspace::loadHistory()
{
    if (!persistsHistory)
        return;
    if (m_historyLoaded && m_historyProjectPath == m_projectPath)
        return;
    if (m_historyLoaded)
        saveHistory();
    m_historySaveTimer.stop();
    m_history = HistoryStore::load(m_projectPath);
    m_historyProjectPath = m_projectPath;
    m_historyLoaded = true;
    m_historyCursor.reset();
    emit historyChanged();
}

void Workspace::saveHistory()
{
    m_historySaveTimer.stop();
    if (!persistsHistory)
        return;
    HistoryStore::save(m_history, m_historyLoaded ? m_historyProjectPath : m_projectPath);
}

void Workspace::scheduleHistorySave()
{
    if (persistsHistory)
        m_historySaveTimer.start();
}

std::optional<QString> Workspace::consoleHistory(HistoryDirection direction)
{
    if (direction == HistoryDirection::Back) {
        if (m_history.isEmpty())
            return std::nullopt;
        if (!m_historyCursor) {
            m_historyDraft = m_consoleInput;
            m_historyCursor = m_history.size();
        }
        m_historyCursor = std::max<qsizetype>(0, std::min(*m_historyCursor, m_history.size()) - 1);
        return m_history[*m_historyCursor].code;
    }
    if (!m_historyCursor)
        return std::nullopt;
    const qsizetype next = *m_historyCursor + 1;
    if (next >= m_history.size()) {
        m_historyCursor.reset();
        return m_historyDraft;
    }
    m_historyCursor = next;
    return m_history[next].code;
}
