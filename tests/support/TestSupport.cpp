#include "TestSupport.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

#include <unistd.h>

namespace TestSupport {

QString sourcePath(const QString &relative)
{
    return QStringLiteral(VESK_SOURCE_DIR "/") + relative;
}

QString kernelScript()
{
    // Another kernel (an older one, to compare benchmark figures) through VESK_TEST_KERNEL.
    const QString chosen = qEnvironmentVariable("VESK_TEST_KERNEL");
    return chosen.isEmpty() ? sourcePath(u"Resources/kernel.R"_qs) : chosen;
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
    return u"R"_qs;
}

QString writeFile(const QString &folder, const QString &name, const QByteArray &content)
{
    const QString path = folder + u'/' + name;
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(content);
    return path;
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QString rscriptExecutable()
{
    const QFileInfo r(rExecutable());
    const QString sibling = r.absolutePath() + u"/Rscript"_qs;
    return QFileInfo(sibling).isExecutable() ? sibling : u"Rscript"_qs;
}

ProgramRun runProgram(const QString &program, const QStringList &arguments, Input input,
                      const QByteArray &bytes, std::chrono::milliseconds timeout,
                      const QString &workingDirectory)
{
    QProcess process;
    if (!workingDirectory.isEmpty())
        process.setWorkingDirectory(workingDirectory);
    if (input == Input::Closed)
        process.setChildProcessModifier([] { ::close(STDIN_FILENO); });
    process.start(program, arguments);
    ProgramRun run;
    if (!process.waitForStarted(10000))
        return run;
    if (input == Input::Bytes)
        process.write(bytes);
    if (input != Input::Closed)
        process.closeWriteChannel();
    if (!process.waitForFinished(int(timeout.count()))) {
        run.timedOut = true;
        process.kill();
        process.waitForFinished(5000);
    }
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    if (!run.timedOut && process.exitStatus() == QProcess::NormalExit)
        run.status = process.exitCode();
    return run;
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

bool processRuns(qint64 pid)
{
    QFile file(u"/proc/%1/stat"_qs.arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    // "pid (name) state ...": the name may hold spaces and parentheses, the state follows the last ')'.
    const QByteArray stat = file.readAll();
    const qsizetype close = stat.lastIndexOf(')');
    return close >= 0 && close + 2 < stat.size() && stat[close + 2] != 'Z' && stat[close + 2] != 'X';
}

QList<qint64> childProcesses(qint64 pid)
{
    QList<qint64> result;
    const QString tasks = u"/proc/%1/task"_qs.arg(pid);
    for (const QString &task : QDir(tasks).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile file(tasks + u'/' + task + u"/children"_qs);
        if (!file.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &word : file.readAll().split(' '))
            if (const qint64 child = word.trimmed().toLongLong(); child > 0)
                result.append(child);
    }
    return result;
}

} // namespace TestSupport
