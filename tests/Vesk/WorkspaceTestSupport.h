// A workspace on a private settings file and application data folder, never the user's.
#pragma once

#include "App/Settings.h"
#include "App/Workspace.h"

#include <QStandardPaths>
#include <QTemporaryDir>

#include <memory>

struct IsolatedWorkspace {
    QTemporaryDir dir;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<Workspace> workspace;

    IsolatedWorkspace()
    {
        QStandardPaths::setTestModeEnabled(true);
        settings = std::make_unique<Settings>(dir.filePath(QStringLiteral("settings.ini")));
        workspace = std::make_unique<Workspace>(*settings);
    }
    QStringList notes() const
    {
        QStringList result;
        for (const ConsoleModel::Cell &cell : workspace->console().cells())
            for (const ConsoleModel::Item &item : cell.items)
                if (item.kind == ConsoleModel::Item::Kind::Note)
                    result.append(item.text);
        return result;
    }
};
