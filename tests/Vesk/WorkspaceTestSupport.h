// A workspace on a private settings file and application data folder, never the user's, and the
// objects its environment list is fed with.
#pragma once

#include "App/Workspace.h"
#include "Base/Settings.h"

#include <QStandardPaths>
#include <QTemporaryDir>

#include <memory>

// A numeric vector of the given length, as the workspace list shows one.
inline REnvObject numericValue(const QString &name, double length)
{
    REnvObject object;
    object.name = name;
    object.kind = REnvObject::Kind::Value;
    object.classes = {u"numeric"_qs};
    object.length = length;
    return object;
}

struct IsolatedWorkspace {
    QTemporaryDir dir;
    std::unique_ptr<Settings> settings;
    std::unique_ptr<Workspace> workspace;

    IsolatedWorkspace()
    {
        QStandardPaths::setTestModeEnabled(true);
        settings = std::make_unique<Settings>(dir.filePath(u"settings.ini"_qs));
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
