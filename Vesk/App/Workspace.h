// The central object of one window: owns the R session and the console, keeps R running (start,
// crash limit, restart), dispatches session events, and holds the history of run code.
#pragma once

#include "Console/ConsoleModel.h"
#include "Console/HistoryStore.h"
#include "Plots/PlotStore.h"
#include "Session/RSession.h"

#include <QColor>
#include <QDateTime>
#include <QObject>
#include <QSize>
#include <QTimer>

#include <functional>
#include <optional>

class CodeEditorController;
enum class EditorCommand : std::uint8_t;
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

    // A question for the user; the view shows it and reports the index of the chosen button.
    struct Alert {
        QString title;
        QString text;
        QStringList buttons;
        std::function<void(int)> onChoice;
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
    PlotStore &plots() { return m_plots; }
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

    // Editor run commands (WorkspaceEditor.cpp): they turn an editor's position into code for R.
    void perform(EditorCommand command, CodeEditorController &editor);
    void runLineOrSelection(CodeEditorController &editor);
    void runSection(CodeEditorController &editor);
    void runToCursor(CodeEditorController &editor);
    void runAll(CodeEditorController &editor);
    void source(CodeEditorController &editor);
    void knit(CodeEditorController &editor);

    void openProject(const QString &path);
    void confirmProjectSwitch(const QString &path);
    void switchProject(const QString &path);
    void chooseWorkingDirectory();
    void confirmClearWorkspace();

    void refreshROptions(bool startup);
    void refreshPlotSize();
    void refreshConsoleWidth();
    void plotAreaResized(QSize size);

    // Plots (bodies in WorkspacePlots.cpp).
    enum class InspectorTab { Plots, Help, Viewer };
    using PlotExportCompletion = std::function<void(bool ok)>;
    void renderPlot(int page);
    void zoomPlot(int page, std::optional<PlotZoom> zoom);
    void removePlot(int page);
    void clearPlots();
    // Selects a page still in the store and brings the Plots tab forward: a click on a console thumbnail.
    void showPlot(int page);
    void exportPlot(int page, const QString &path, const QString &format, QSizeF points, int dpi,
                    PlotExportCompletion completion = {});
    // The kernel's export of a page at its zoom, alone: no setting stored and no alert.
    void requestPlotExport(int page, const QString &path, const QString &format, QSizeF points, double scale,
                           std::function<void(const RRequestResult &)> answer);
    void refreshPlotTheme();
    const QStringList &appliedPlotTheme() const { return m_appliedPlotTheme; }
    // The backing scale of rendered plots: the main screen's, or 2 without one.
    double plotScale() const;
    // The window's accent colour for the plot theme; without it, the application palette's highlight.
    std::function<QColor()> plotAccent;
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
    QSize lastPlotSize() const { return m_lastPlotSize; }
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
    void handlePlotEvent(const SessionEvent &event);
    void plotResizeSettled();

    Settings &m_settings;
    RSession m_session;
    ConsoleModel m_console;
    PlotStore m_plots;

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
    QSize m_lastPlotSize;

    std::optional<QString> m_historyProjectPath;
    bool m_historyLoaded = false;
    QTimer m_historySaveTimer;
    QStringList m_appliedROptions;
    std::optional<QDateTime> m_sessionReadyAt;
    QList<QDateTime> m_automaticRestarts;
    std::optional<qsizetype> m_historyCursor;
    QString m_historyDraft;
    QTimer m_plotResizeTimer;
    QStringList m_appliedPlotTheme;
    std::optional<InspectorTab> m_inspectorTab;
    QTimer m_consoleWidthTimer;
    int m_consoleColumns = 100;
    bool m_sessionUsed = false;
    DocumentStore *m_documents = nullptr; // children: they go with the workspace
    FileTreeModel *m_files = nullptr;
};
