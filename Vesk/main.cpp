#include "App/AppPaths.h"
#include "App/Views/MainWindow.h"
#include "RProcess.h"
#include "ToolLocator.h"

#include <QApplication>
#include <QDir>
#include <QPlainTextEdit>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Vesk"));
    QCoreApplication::setApplicationName(QStringLiteral("Vesk"));

    MainWindow window;
    const QString folder = QDir::currentPath();
    window.setWindowTitle(QStringLiteral("Vesk — %1").arg(QDir(folder).dirName()));
    window.show();

    // Until the workspace takes this over, the window shows R's start and its plain output.
    const QString kernel = AppPaths::kernelScript();
    const auto r = RLocator::find();
    std::unique_ptr<RProcess> process;
    if (kernel.isEmpty()) {
        window.setStatusText(QStringLiteral("The kernel script kernel.R was not found beside Vesk."));
    } else if (!r) {
        window.setStatusText(QStringLiteral("R was not found. Install R to use Vesk."));
    } else {
        process = std::make_unique<RProcess>(*r, folder, kernel);
        QObject::connect(process.get(), &RProcess::eventReceived, &window, [&window](const RProcessEvent &e) {
            switch (e.kind) {
            case RProcessEvent::Kind::Stdout:
                if (e.stream.kind == RStreamEvent::Kind::Event &&
                    e.stream.value[u"type"].stringValue() == QStringLiteral("ready")) {
                    window.setStatusText(
                        QStringLiteral("R %1 · pid %2")
                            .arg(e.stream.value[u"version"].stringValue().value_or(QStringLiteral("R")))
                            .arg(e.stream.value[u"pid"].intValue().value_or(0)));
                }
                break;
            case RProcessEvent::Kind::Stderr:
                break;
            case RProcessEvent::Kind::Exited:
                window.setStatusText(e.text);
                break;
            }
        });
        window.setStatusText(QStringLiteral("Starting R…"));
        QString error;
        if (!process->start({}, true, &error))
            window.setStatusText(QStringLiteral("Could not start R: %1").arg(error));
    }
    const int status = app.exec();
    if (process)
        process->terminate();
    return status;
}
