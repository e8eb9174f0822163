#include "AppShell.h"

#include "App/Settings.h"
#include "App/Workspace.h"
#include "Appearance.h"
#include "Console/Views/ConsoleView.h"
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
        workspace.startR(true);
    }
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
