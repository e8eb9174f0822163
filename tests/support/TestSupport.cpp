#include "TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QThread>

namespace TestSupport {

QString sourcePath(const QString &relative)
{
    return QStringLiteral(VESK_SOURCE_DIR "/") + relative;
}

QString kernelScript()
{
    // Another kernel (an older one, to compare benchmark figures) through VESK_TEST_KERNEL.
    const QString chosen = qEnvironmentVariable("VESK_TEST_KERNEL");
    return chosen.isEmpty() ? sourcePath(QStringLiteral("Resources/kernel.R")) : chosen;
}

QString rExecutable()
{
    const QString preferred = qEnvironmentVariable("VESK_TEST_R");
    if (!preferred.isEmpty())
        return preferred;
    for (const char *candidate : {"/usr/bin/R", "/usr/local/bin/R"}) {
        if (QFileInfo(QString::fromLatin1(candidate)).isExecutable())
            return QString::fromLatin1(candidate);
    }
    return QStringLiteral("R");
}

bool waitUntil(const std::function<bool()> &done, std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (!done()) {
        if (deadline.hasExpired())
            return done();
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        if (!done())
            QThread::msleep(1);
    }
    return true;
}

bool waitForEvents(const std::function<bool()> &done, std::chrono::milliseconds timeout)
{
    QDeadlineTimer deadline(timeout);
    while (!done() && !deadline.hasExpired())
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    return done();
}

void spin(std::chrono::milliseconds duration)
{
    QDeadlineTimer deadline(duration);
    while (!deadline.hasExpired()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(1);
    }
}

} // namespace TestSupport
