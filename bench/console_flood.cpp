// Flooding scripts through the console (a workspace with its session, kernel and console model, in
// this process), through `vesk --batch` and through Rscript: wall-time ratios, and peak resident
// memory, also with ten times the output. And a trivial script through `vesk --batch` and Rscript.
#include "App/Workspace.h"
#include "Base/Settings.h"
#include "BenchFigures.h"
#include "TestSupport.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char **environ;

namespace {

struct Outcome {
    double seconds = 0;
    double peakMB = 0;
    int status = -1;
};

// Runs a program with its output thrown away; its wall time and peak resident size.
Outcome runProgram(const QStringList &arguments)
{
    std::vector<QByteArray> storage;
    for (const QString &argument : arguments)
        storage.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &argument : storage)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
        posix_spawn_file_actions_destroy(&actions);
        return outcome;
    }
    posix_spawn_file_actions_destroy(&actions);
    // The high-water mark of the process itself, read while it lives: the rusage of a reaped child
    // would also count R, its own child.
    const QString statusFile = QStringLiteral("/proc/%1/status").arg(pid);
    double peakKB = 0;
    int status = 0;
    for (;;) {
        QFile file(statusFile);
        if (file.open(QIODevice::ReadOnly)) {
            for (const QByteArray &line : file.readAll().split('\n'))
                if (line.startsWith("VmHWM:"))
                    peakKB = std::max(peakKB, line.mid(6).trimmed().split(' ').value(0).toDouble());
        }
        const pid_t done = waitpid(pid, &status, WNOHANG);
        if (done == pid || done < 0)
            break;
        usleep(10000);
    }
    outcome.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    outcome.peakMB = peakKB / 1024.0;
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

// This process's own high-water mark of resident memory.
double ownPeakMB()
{
    QFile file(QStringLiteral("/proc/self/status"));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : file.readAll().split('\n'))
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    return 0;
}

// Seconds from submitting code at the console until its run has finished and every line of its
// output is in the console model.
double consoleRun(Workspace &workspace, const QString &code)
{
    bool done = false;
    QElapsedTimer timer;
    timer.start();
    workspace.run(code, ExecOrigin::console(), std::nullopt, 1, [&](const ExecResult &) { done = true; });
    TestSupport::waitForEvents([&] { return done; }, std::chrono::minutes(10));
    workspace.console().flush();
    return timer.nsecsElapsed() / 1e9;
}

Outcome median(std::vector<Outcome> outcomes)
{
    std::sort(outcomes.begin(), outcomes.end(),
              [](const Outcome &a, const Outcome &b) { return a.seconds < b.seconds; });
    return outcomes[outcomes.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString vesk = QStringLiteral(VESK_BINARY_DIR "/vesk");
    const QString rscript = QStringLiteral("/usr/bin/Rscript");
    if (!QFile::exists(vesk) || !QFile::exists(rscript)) {
        std::fprintf(stderr, "console_flood needs %s and %s\n", qPrintable(vesk), qPrintable(rscript));
        return 1;
    }
    QTemporaryDir dir;
    QStandardPaths::setTestModeEnabled(true);
    Settings settings(dir.filePath(QStringLiteral("settings.ini")));
    settings.setValue(Settings::rPath, TestSupport::rExecutable());
    Workspace workspace(settings);
    workspace.persistsHistory = false;
    workspace.kernelPath = TestSupport::kernelScript();
    workspace.startR(false);
    if (!TestSupport::waitForEvents(
            [&] { return workspace.session().status().kind == RSessionStatus::Kind::Idle; },
            std::chrono::seconds(30))) {
        std::fprintf(stderr, "R did not start\n");
        return 1;
    }
    struct Script {
        const char *name;
        QString code;
    };
    const Script scripts[] = {
        {"print", QStringLiteral("print(1:1e6)\n")},
        {"cat", QStringLiteral("for (i in 1:200000) cat(\"line\", i, \"\\n\")\n")},
    };
    double peak = 0;
    for (const Script &script : scripts) {
        const QString path = TestSupport::writeFile(
            dir.path(), QString::fromLatin1(script.name) + QStringLiteral(".R"), script.code.toUtf8());
        // One warm-up each, so that both start from the same file cache; then interleaved runs whose
        // medians count, since the machine is shared and single runs are noisy.
        runProgram({rscript, path});
        runProgram({vesk, QStringLiteral("--batch"), path});
        // Rscript writing into a pipe, as R's output reaches vesk, for comparison.
        const QStringList piped = {QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                                   QStringLiteral("'%1' '%2' | cat > /dev/null").arg(rscript, path)};
        std::vector<Outcome> rs, ps, vs;
        for (int i = 0; i < 3; ++i) {
            rs.push_back(runProgram({rscript, path}));
            ps.push_back(runProgram(piped));
            vs.push_back(runProgram({vesk, QStringLiteral("--batch"), path}));
        }
        const Outcome r = median(rs);
        const Outcome p = median(ps);
        const Outcome v = median(vs);
        double runPeak = 0;
        for (const Outcome &each : vs)
            runPeak = std::max(runPeak, each.peakMB);
        const QByteArray prefix = QByteArray(script.name);
        printFigure((prefix + "_rscript_wall").constData(), r.seconds, "s");
        printFigure((prefix + "_vesk_wall").constData(), v.seconds, "s");
        printFigure((prefix + "_wall_ratio").constData(), r.seconds > 0 ? v.seconds / r.seconds : 0, "x");
        printFigure((prefix + "_rscript_piped_wall").constData(), p.seconds, "s");
        printFigure((prefix + "_wall_ratio_vs_piped").constData(), p.seconds > 0 ? v.seconds / p.seconds : 0,
                    "x");
        printFigure((prefix + "_vesk_peak_rss").constData(), runPeak, "MB");
        if (v.status != 0)
            std::fprintf(stderr, "vesk --batch exited with %d on %s\n", v.status, script.name);
        peak = std::max(peak, runPeak);

        std::vector<double> console;
        for (int i = 0; i < 3; ++i)
            console.push_back(consoleRun(workspace, script.code));
        const double c = ::median(console);
        printFigure((prefix + "_console_wall").constData(), c, "s");
        printFigure((prefix + "_console_wall_ratio").constData(), r.seconds > 0 ? c / r.seconds : 0, "x");
    }
    printFigure("vesk_peak_rss", peak, "MB");
    printFigure("console_peak_rss", ownPeakMB(), "MB");

    const Script large[] = {
        {"print10x", QStringLiteral("print(1:1e7)\n")},
        {"cat10x", QStringLiteral("for (i in 1:2000000) cat(\"line\", i, \"\\n\")\n")},
    };
    double largePeak = 0;
    for (const Script &script : large) {
        const QString path = TestSupport::writeFile(
            dir.path(), QString::fromLatin1(script.name) + QStringLiteral(".R"), script.code.toUtf8());
        const Outcome v = runProgram({vesk, QStringLiteral("--batch"), path});
        printFigure((QByteArray(script.name) + "_vesk_wall").constData(), v.seconds, "s");
        printFigure((QByteArray(script.name) + "_vesk_peak_rss").constData(), v.peakMB, "MB");
        largePeak = std::max(largePeak, v.peakMB);
        printFigure((QByteArray(script.name) + "_console_wall").constData(),
                    consoleRun(workspace, script.code), "s");
    }
    printFigure("vesk_peak_rss_10x", largePeak, "MB");
    printFigure("console_peak_rss_10x", ownPeakMB(), "MB");
    workspace.shutDown();

    // A script that does almost nothing: what starting through vesk costs over Rscript.
    const QString trivial = TestSupport::writeFile(dir.path(), QStringLiteral("trivial.R"), "x <- 1\n");
    runProgram({rscript, trivial});
    runProgram({vesk, QStringLiteral("--batch"), trivial});
    std::vector<Outcome> rs, vs;
    for (int i = 0; i < 9; ++i) {
        rs.push_back(runProgram({rscript, trivial}));
        vs.push_back(runProgram({vesk, QStringLiteral("--batch"), trivial}));
    }
    const double r = median(rs).seconds;
    const double v = median(vs).seconds;
    printFigure("trivial_rscript_wall", r, "s");
    printFigure("trivial_vesk_wall", v, "s");
    printFigure("trivial_wall_ratio", r > 0 ? v / r : 0, "x");
    return 0;
}
