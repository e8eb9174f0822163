// The window of one workspace: the console, the workspace pane, the menus and the status line.
#pragma once

#include <QMainWindow>
#include <QPointer>

class CodeEditorController;
class ConsoleView;
class DocumentTabs;
class FileTreeView;
class QInputDialog;
class QLabel;
class QMenu;
class Settings;
class Workspace;
class WorkspacePane;

class PlotsPane;
class QTabWidget;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(Workspace &workspace, Settings &settings, QWidget *parent = nullptr);

    ConsoleView *console() const { return m_console; }
    WorkspacePane *workspacePane() const { return m_pane; }
    PlotsPane *plotsPane() const { return m_plots; }
    QTabWidget *inspector() const { return m_inspector; }
    QLabel *statusLabel() const { return m_status; }
    DocumentTabs *documentTabs() const { return m_tabs; }
    FileTreeView *fileTree() const { return m_fileTree; }

    // Asks whether to close while R is busy; a view test answers instead of a user.
    std::function<bool()> confirmClose;
    // The open "Go to Line" dialog, if any; a view test types into it.
    QPointer<QInputDialog> goToLineDialog;

signals:
    void settingsRequested();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    // Documents and project files (bodies in MainWindowDocuments.cpp).
    QWidget *buildDocumentArea(QWidget *console);
    void addDocumentActions(QMenu *file);
    void addCodeMenu();
    void goToLine(CodeEditorController &editor);
    void bindDocumentDialogs();
    void updateRecentFiles();
    void updateRecentProjects();
    void updateStatus();
    void updateTitle();

    Workspace &m_workspace;
    Settings &m_settings;
    ConsoleView *m_console = nullptr;
    WorkspacePane *m_pane = nullptr;
    PlotsPane *m_plots = nullptr;
    QTabWidget *m_inspector = nullptr;
    QLabel *m_status = nullptr;
    QLabel *m_directory = nullptr;
    QMenu *m_recent = nullptr;
    DocumentTabs *m_tabs = nullptr;
    FileTreeView *m_fileTree = nullptr;
    QMenu *m_recentFiles = nullptr;
};
