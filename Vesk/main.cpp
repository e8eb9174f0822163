#include "App/BatchRunner.h"
#include "App/Settings.h"
#include "App/Views/AppShell.h"

#include <QApplication>
#include <QCoreApplication>

#include <cstdio>
#include <signal.h>

int main(int argc, char **argv)
{
    // A write to a dead R must fail with EPIPE, not end Vesk.
    ::signal(SIGPIPE, SIG_IGN);
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));

    if (BatchRunner::isBatchInvocation(arguments)) {
        // No window and no display: a core application is enough.
        QCoreApplication app(argc, argv);
        QCoreApplication::setOrganizationName(QStringLiteral("Vesk"));
        QCoreApplication::setApplicationName(QStringLiteral("Vesk"));
        QString error;
        const auto code = BatchRunner::codeFromArguments(arguments, &error);
        if (!code) {
            std::fprintf(stderr, "%s\n", error.toLocal8Bit().constData());
            return 2;
        }
        BatchRunner runner(Settings::shared(), *code);
        QObject::connect(
            &runner, &BatchRunner::finished, &app, [](int status) { QCoreApplication::exit(status); },
            Qt::QueuedConnection);
        runner.start();
        return app.exec();
    }

    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vesk"));
    QCoreApplication::setApplicationName(QStringLiteral("Vesk"));
    AppShell shell(Settings::shared());
    shell.openAtLaunch(arguments.mid(1));
    return app.exec();
}
