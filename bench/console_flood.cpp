// The same flooding scripts through `vesk --batch` and through Rscript: the wall-time ratio, and
// the peak resident memory of vesk, also with ten times the output.
#include "BenchFigures.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
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

QString writeScript(const QTemporaryDir &dir, const QString &name, const QString &code)
{
    const QString path = dir.filePath(name);
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(code.toUtf8());
    return path;
}

Outcome median(std::vector<Outcome> outcomes)
{
    std::sort(outcomes.begin(), outcomes.end(),
              [](const Outcome &a, const Outcome &b) { return a.seconds < b.seconds; });
    return outcomes[outcomes.size() / 2];
}

} // namespace

int main()
{
    const QString vesk = QStringLiteral(VESK_BINARY_DIR "/vesk");
    const QString rscript = QStringLiteral("/usr/bin/Rscript");
    if (!QFile::exists(vesk) || !QFile::exists(rscript)) {
        std::fprintf(stderr, "console_flood needs %s and %s\n", qPrintable(vesk), qPrintable(rscript));
        return 1;
    }
    QTemporaryDir dir;
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
        const QString path =
            writeScript(dir, QString::fromLatin1(script.name) + QStringLiteral(".R"), script.code);
        // One warm-up each, so that both start from the same file cache; then interleaved runs whose
        // medians count, since the machine is shared and single runs are noisy.
        runProgram({rscript, path});
        runProgram({vesk, QStringLiteral("--batch"), path});
        // Rscript writing into a pipe, as R's output reaches vesk, for comparison.
        const QStringList piped = {QStringLiteral("/bin/sh"), QStringLiteral("-c"),
                                   QStringLiteral("'%1' '%2' | cat > /dev/null").arg(rscript, path)};
        std::vector<Outcome> rs, ps, vs;
        for (int i = 0; i < 5; ++i) {
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
    }
    printFigure("vesk_peak_rss", peak, "MB");

    const Script large[] = {
        {"print10x", QStringLiteral("print(1:1e7)\n")},
        {"cat10x", QStringLiteral("for (i in 1:2000000) cat(\"line\", i, \"\\n\")\n")},
    };
    double largePeak = 0;
    for (const Script &script : large) {
        const QString path =
            writeScript(dir, QString::fromLatin1(script.name) + QStringLiteral(".R"), script.code);
        const Outcome v = runProgram({vesk, QStringLiteral("--batch"), path});
        printFigure((QByteArray(script.name) + "_vesk_wall").constData(), v.seconds, "s");
        printFigure((QByteArray(script.name) + "_vesk_peak_rss").constData(), v.peakMB, "MB");
        largePeak = std::max(largePeak, v.peakMB);
    }
    printFigure("vesk_peak_rss_10x", largePeak, "MB");
    return 0;
}
