// The application around the windows: one workspace per window, the look that follows the
// "appearance" setting, and the settings window.
#pragma once

#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>
#include <vector>

class MainWindow;
class Settings;
class SettingsWindow;
class Workspace;

class AppShell : public QObject {
    Q_OBJECT
public:
    explicit AppShell(Settings &settings, QObject *parent = nullptr);
    ~AppShell() override;

    // A new window with its own workspace; R starts in `projectPath` when it is a folder.
    MainWindow *openWindow(const std::optional<QString> &projectPath);
    // The first window at launch: a folder among `paths` is the project, files open as documents.
    // With neither, the last project comes back when the "restoreProject" setting is on.
    MainWindow *openAtLaunch(const QStringList &paths);
    void showSettings();

private:
    struct Window {
        std::unique_ptr<Workspace> workspace;
        QPointer<MainWindow> window;
    };
    Settings &m_settings;
    std::vector<Window> m_windows;
    QPointer<SettingsWindow> m_settingsWindow;
};
