// Helpers shared by the test suites: where the sources and R are, and waiting on the event loop.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>

namespace TestSupport {

QString sourcePath(const QString &relative);
// The kernel script of the source tree (or VESK_TEST_KERNEL).
QString kernelScript();
// The R executable the tests run against (VESK_TEST_R or the usual locations).
QString rExecutable();
// Writes `content` to `name` in `folder`; its path.
QString writeFile(const QString &folder, const QString &name, const QByteArray &content);
// The bytes of the file at `path`; empty if it cannot be read.
QByteArray readFile(const QString &path);

// Rscript beside the tests' R.
QString rscriptExecutable();

// A finished program: what it wrote, and how it ended.
struct ProgramRun {
    QByteArray out;
    QByteArray err;
    int status = -1;       // exit status; -1 if it did not exit normally
    bool timedOut = false; // killed after the time limit
};
// Standard input of a program run: closed (no descriptor 0), empty, or holding the given bytes.
enum class Input { Closed, Empty, Bytes };
// Runs a program to its end or for at most `timeout`, then kills it.
ProgramRun runProgram(const QString &program, const QStringList &arguments, Input input = Input::Empty,
                      const QByteArray &bytes = {},
                      std::chrono::milliseconds timeout = std::chrono::seconds(60),
                      const QString &workingDirectory = {});

// Spins the event loop until `done` is true or `timeout` runs out; returns `done()`.
bool waitUntil(const std::function<bool()> &done,
               std::chrono::milliseconds timeout = std::chrono::seconds(20));
// Like waitUntil, but sleeps in the event loop until something arrives instead of polling, so that
// what a handler does is timed to its event; for benchmarks, where `done` changes only in handlers.
bool waitForEvents(const std::function<bool()> &done,
                   std::chrono::milliseconds timeout = std::chrono::seconds(60));
// Spins the event loop for the given time.
void spin(std::chrono::milliseconds duration);

// Whether a process runs: it exists and is no zombie (an orphan's zombie may wait for a reaper).
bool processRuns(qint64 pid);
// The processes the given one started, from /proc (all its threads').
QList<qint64> childProcesses(qint64 pid);

} // namespace TestSupport
