// A workspace without R for widget tests: a private settings file and application data folder, and
// no history written, so that nothing of the user's is read or changed.
#pragma once

#include "App/Views/MainWindow.h"
#include "App/Workspace.h"
#include "Base/Settings.h"

#include <QStandardPaths>
#include <QTemporaryDir>

#include <memory>

struct OffscreenWorkspace {
    QTemporaryDir dir;
    Settings settings{dir.filePath(u"settings.ini"_qs)};
    std::unique_ptr<Workspace> workspace;

    OffscreenWorkspace()
    {
        QStandardPaths::setTestModeEnabled(true);
        workspace = std::make_unique<Workspace>(settings);
        workspace->persistsHistory = false;
    }
};

// The main window around it, not shown yet: tests set up what must be in place before it shows.
struct OffscreenWindow : OffscreenWorkspace {
    std::unique_ptr<MainWindow> window = std::make_unique<MainWindow>(*workspace, settings);
};
