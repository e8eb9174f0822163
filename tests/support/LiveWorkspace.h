// A workspace that starts a real R with the kernel, on a private settings file, and the waits that
// tests against it need.
#pragma once

#include "App/Workspace.h"
#include "Base/Settings.h"
#include "TestSupport.h"

#include <QStandardPaths>
#include <QTemporaryDir>

struct LiveWorkspace {
    QTemporaryDir dir;
    Settings settings{dir.filePath(u"settings.ini"_qs)};
    Workspace workspace{settings};

    LiveWorkspace()
    {
        QStandardPaths::setTestModeEnabled(true);
        workspace.persistsHistory = false;
        workspace.kernelPath = TestSupport::kernelScript();
        settings.setValue(Settings::rPath, TestSupport::rExecutable());
    }
    bool start()
    {
        workspace.startR(true);
        return idle();
    }
    bool idle(std::chrono::milliseconds timeout = std::chrono::seconds(30))
    {
        return TestSupport::waitUntil(
            [&] {
                return workspace.session().status().kind == RSessionStatus::Kind::Idle &&
                       workspace.session().queuedExecutions() == 0;
            },
            timeout);
    }
    ExecResult run(const QString &code)
    {
        std::optional<ExecResult> result;
        workspace.run(code, ExecOrigin::console(), std::nullopt, 1, [&](const ExecResult &r) { result = r; });
        TestSupport::waitUntil([&] { return result.has_value(); }, std::chrono::seconds(60));
        return result.value_or(ExecResult{});
    }
    // The console's note items that end in `ending`.
    qsizetype notes(const QString &ending)
    {
        qsizetype count = 0;
        for (const ConsoleModel::Cell &cell : workspace.console().cells())
            for (const ConsoleModel::Item &item : cell.items)
                count += item.kind == ConsoleModel::Item::Kind::Note && item.text.endsWith(ending);
        return count;
    }
    QString lastNote()
    {
        for (qsizetype i = workspace.console().cells().size() - 1; i >= 0; --i)
            for (const ConsoleModel::Item &item : workspace.console().cells()[i].items)
                if (item.kind == ConsoleModel::Item::Kind::Note)
                    return item.text;
        return {};
    }
};
