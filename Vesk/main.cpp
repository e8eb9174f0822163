#include "App/BatchRunner.h"
#include "App/Views/AppShell.h"
#include "Base/SessionFiles.h"
#include "Base/Settings.h"

#include <QApplication>
#include <QCoreApplication>

#include <signal.h>

int main(int argc, char **argv)
{
    // No organisation name: with one, the data folder would be ".../Vesk/Vesk". The settings name
    // both themselves.
    QCoreApplication::setApplicationName(QStringLiteral("Vesk"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VESK_VERSION));
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));

    // A batch run, help and the version need no display and no window.
    const BatchCommand command = BatchCommand::parse(arguments);
    if (command.kind != BatchCommand::Kind::Window)
        return BatchRunner::run(command, Settings::shared().stringValue(Settings::rPath));

    // A write to a dead R must fail with EPIPE, not end Vesk.
    ::signal(SIGPIPE, SIG_IGN);
    QApplication app(argc, argv);
    // Earlier versions kept their data one folder deeper; unsaved text and history move up.
    AutosaveStore::adoptFormerFolder(AutosaveStore::base() + QStringLiteral("/Vesk"));
    AppShell shell(Settings::shared());
    shell.openAtLaunch(arguments);
    return app.exec();
}
