// The window of one workspace: the console, the workspace pane, the menus and the status line.
#pragma once

#include <QMainWindow>

class ConsoleView;
class QLabel;
class QMenu;
class Settings;
class Workspace;
class WorkspacePane;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(Workspace &workspace, Settings &settings, QWidget *parent = nullptr);

    ConsoleView *console() const { return m_console; }
    WorkspacePane *workspacePane() const { return m_pane; }
    QLabel *statusLabel() const { return m_status; }

    // Asks whether to close while R is busy; a view test answers instead of a user.
    std::function<bool()> confirmClose;

signals:
    void settingsRequested();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void buildMenus();
    void updateRecentProjects();
    void updateStatus();
    void updateTitle();

    Workspace &m_workspace;
    Settings &m_settings;
    ConsoleView *m_console = nullptr;
    WorkspacePane *m_pane = nullptr;
    QLabel *m_status = nullptr;
    QLabel *m_directory = nullptr;
    QMenu *m_recent = nullptr;
};
