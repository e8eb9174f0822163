#include "AppShell.h"

#include "App/Workspace.h"
#include "Appearance.h"
#include "Base/RecentProjects.h"
#include "Base/Settings.h"
#include "Console/Views/ConsoleView.h"
#include "Documents/DocumentStore.h"
#include "MainWindow.h"
#include "SettingsWindow.h"

#include <QFileInfo>

AppShell::AppShell(Settings &settings, QObject *parent) : QObject(parent), m_settings(settings)
{
    Appearance::apply(m_settings.appearanceValue());
    connect(&m_settings, &Settings::changed, this, [this](const QString &key) {
        if (key != Settings::appearance)
            return;
        Appearance::apply(m_settings.appearanceValue());
        for (const Window &window : m_windows)
            if (window.window)
                window.window->console()->applyLook();
    });
}

AppShell::~AppShell()
{
    for (Window &window : m_windows) {
        delete window.window.data();
        window.workspace->shutDown();
    }
}

MainWindow *AppShell::openWindow(const std::optional<QString> &projectPath)
{
    Window entry;
    entry.workspace = std::make_unique<Workspace>(m_settings);
    auto *window = new MainWindow(*entry.workspace, m_settings);
    window->setAttribute(Qt::WA_DeleteOnClose, false);
    entry.window = window;
    connect(window, &MainWindow::settingsRequested, this, &AppShell::showSettings);
    Workspace &workspace = *entry.workspace;
    m_windows.push_back(std::move(entry));
    window->show();
    if (projectPath && QFileInfo(*projectPath).isDir()) {
        workspace.openProject(QFileInfo(*projectPath).absoluteFilePath());
    } else {
        workspace.loadHistory();
        workspace.beginDocumentSession();
        workspace.startR(true);
    }
    return window;
}

MainWindow *AppShell::openAtLaunch(const QStringList &paths)
{
    std::optional<QString> project;
    QStringList files;
    for (const QString &path : paths) {
        const QFileInfo info(path);
        if (info.isDir() && !project)
            project = info.absoluteFilePath();
        else if (info.isFile())
            files.append(info.absoluteFilePath());
    }
    if (!project && paths.isEmpty() && m_settings.boolValue(Settings::restoreProject)) {
        const QStringList recent = RecentProjects::all(m_settings);
        if (!recent.isEmpty() && QFileInfo(recent.first()).isDir())
            project = recent.first();
    }
    MainWindow *window = openWindow(project);
    for (const QString &file : files)
        m_windows.back().workspace->documents().open(file);
    return window;
}

void AppShell::showSettings()
{
    if (!m_settingsWindow)
        m_settingsWindow = new SettingsWindow(m_settings);
    m_settingsWindow->show();
    m_settingsWindow->raise();
    m_settingsWindow->activateWindow();
}
