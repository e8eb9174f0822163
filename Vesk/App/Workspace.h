// The central object of one window: owns the R session and the console, keeps R running (start,
// crash limit, restart), dispatches session events, and holds the history of run code.
#pragma once

#include "Base/Alert.h"
#include "Console/ConsoleModel.h"
#include "Console/HistoryStore.h"
#include "Session/RSession.h"
#include "WorkspacePlots.h"

#include <QColor>
#include <QDateTime>
#include <QObject>
#include <QSize>
#include <QTimer>

#include <functional>
#include <optional>

class DocumentStore;
class FileTreeModel;
class Settings;

class Workspace : public QObject {
    Q_OBJECT
public:
    struct LastRun {
        double duration = 0;
        QDateTime finished;
        bool ok = false;
        std::optional<QString> origin;
    };

    enum class HistoryDirection { Back, Forward };

    static constexpr int historyLimit = 2000;
    static constexpr int automaticRestartLimit = 3;
    static constexpr int automaticRestartWindowSeconds = 60;

    explicit Workspace(Settings &settings, QObject *parent = nullptr);
    ~Workspace() override;

    RSession &session() { return m_session; }
    const RSession &session() const { return m_session; }
    ConsoleModel &console() { return m_console; }
    DocumentStore &documents() { return *m_documents; }
    FileTreeModel &files() { return *m_files; }
    WorkspacePlots &plots() { return m_plots; }
    Settings &settings() { return m_settings; }

    // How alerts and folder choices reach the user; without them alerts are not shown.
    std::function<void(const Alert &)> presentAlert;
    std::function<std::optional<QString>(const QString &prompt)> chooseFolder;
    // Pages R asks to show (browseURL, the viewer option) while Vesk has no viewer of its own.
    std::function<void(const QUrl &)> openExternally;
    // The clock of the crash limit; replaceable so that a minute can pass in a test.
    std::function<QDateTime()> now = [] { return QDateTime::currentDateTime(); };
    // The kernel script; found beside the executable unless set.
    QString kernelPath;
    // Off for throw-away workspaces (batch runs): history is then neither read nor written.
    bool persistsHistory = true;

    void startR(bool loadInitFile = true);
    void restartR();
    void resetSessionState();
    void shutDown();
    void interrupt();

    void handle(const SessionEvent &event);

    void run(const QString &code, const ExecOrigin &origin, const std::optional<QString> &file = std::nullopt,
             int line = 1, RSession::ExecCompletion completion = {});
    void submitConsole();

    void openProject(const QString &path);
    void confirmProjectSwitch(const QString &path);
    void switchProject(const QString &path);
    void chooseWorkingDirectory();
    void confirmClearWorkspace();

    void refreshROptions(bool startup);
    void refreshConsoleWidth();

    enum class InspectorTab { Plots, Help, Viewer };
    // None while the inspector area shows a pane of its own (the workspace list).
    std::optional<InspectorTab> inspectorTab() const { return m_inspectorTab; }
    void setInspectorTab(std::optional<InspectorTab> tab);
    void consoleResized(double width, double fontSize);

    bool isBusy() const;

    // Documents and project files (bodies in WorkspaceDocuments.cpp). The open tabs of the project
    // come back from its stored session.
    void beginDocumentSession();
    // Reads a data file into R through the console and opens a view of it.
    void importData(const QString &path);

    void loadHistory();
    void saveHistory();
    void scheduleHistorySave();
    std::optional<QString> consoleHistory(HistoryDirection direction);

    // Observable state.
    const QList<REnvObject> &environment() const { return m_environment; }
    bool environmentIsCurrent() const { return m_environmentIsCurrent; }
    const QString &workingDirectory() const { return m_workingDirectory; }
    const QStringList &attachedPackages() const { return m_attachedPackages; }
    const std::optional<QString> &projectPath() const { return m_projectPath; }
    const QList<HistoryEntry> &history() const { return m_history; }
    const std::optional<LastRun> &lastRun() const { return m_lastRun; }
    int stateRevision() const { return m_stateRevision; }
    const QString &consoleInput() const { return m_consoleInput; }
    void setConsoleInput(const QString &text);
    bool consoleAskMode() const { return m_consoleAskMode; }
    void setConsoleAskMode(bool on);
    const std::optional<QString> &startupProblem() const { return m_startupProblem; }
    int consoleColumns() const { return m_consoleColumns; }
    // The input's placeholder for the current state.
    QString consolePlaceholder() const;

signals:
    void environmentChanged();
    void workingDirectoryChanged();
    void projectChanged();
    void historyChanged();
    void lastRunChanged();
    void consoleInputChanged();
    void consoleAskModeChanged();
    void startupProblemChanged();
    void statusChanged();
    // R is ready and the requests that bring it in line with the settings are queued.
    void sessionReady();
    void inspectorTabChanged();

private:
    void sessionEnded(const QString &reason, bool byQuitting);
    void startupStalled(const QString &output);
    void applyState(const RSessionState &state);
    void setStartupProblem(const std::optional<QString> &problem);
    void addHistory(const QString &code, const std::optional<QString> &origin);
    void settingChanged(const QString &key);
    void setUpDocuments();
    void handleDocumentEvent(const SessionEvent &event);
    void endDocumentSession();
    bool sessionIsLive() const;
    void setUpPlots();

    Settings &m_settings;
    RSession m_session;
    ConsoleModel m_console;
    WorkspacePlots m_plots{m_session, m_settings};

    QList<REnvObject> m_environment;
    bool m_environmentIsCurrent = false;
    QString m_workingDirectory;
    QStringList m_attachedPackages;
    std::optional<QString> m_projectPath;
    QList<HistoryEntry> m_history;
    std::optional<LastRun> m_lastRun;
    int m_stateRevision = 0;
    QString m_consoleInput;
    bool m_consoleAskMode = false;
    std::optional<QString> m_startupProblem;

    std::optional<QString> m_historyProjectPath;
    bool m_historyLoaded = false;
    QTimer m_historySaveTimer;
    QStringList m_appliedROptions;
    std::optional<QDateTime> m_sessionReadyAt;
    QList<QDateTime> m_automaticRestarts;
    std::optional<qsizetype> m_historyCursor;
    QString m_historyDraft;
    std::optional<InspectorTab> m_inspectorTab;
    QTimer m_consoleWidthTimer;
    int m_consoleColumns = 100;
    bool m_sessionUsed = false;
    DocumentStore *m_documents = nullptr; // children: they go with the workspace
    FileTreeModel *m_files = nullptr;
};
