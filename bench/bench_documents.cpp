// The document store on large and many files: opening a 20 MB script, autosaving it once dirty,
// restoring it from the session, and one check of 200 open files against the disk.
#include "App/SessionFiles.h"
#include "App/Settings.h"
#include "Documents/DocumentStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace {

double medianMilliseconds(int runs, const std::function<void()> &setUp, const std::function<void()> &work)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        setUp();
        QElapsedTimer timer;
        timer.start();
        work();
        times.push_back(timer.nsecsElapsed() / 1e6);
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (file.open(QIODevice::WriteOnly))
        file.write(bytes);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);
    // The test-mode data folder of this program only: its autosave files are 20 MB each.
    QDir(AutosaveStore::base()).removeRecursively();
    QTemporaryDir dir;
    Settings settings(dir.filePath(QStringLiteral("settings.ini")));

    QByteArray script;
    const QByteArray line = "result <- summarise(group_by(data, kind), total = sum(value)) # café\n";
    while (script.size() < 20'000'000)
        script += line;
    const QString big = dir.filePath(QStringLiteral("big.R"));
    writeFile(big, script);
    const double megabytes = script.size() / 1e6;

    std::unique_ptr<DocumentStore> store;
    const QString key = SessionFiles::key(dir.path());
    auto fresh = [&] {
        store = std::make_unique<DocumentStore>(settings);
        store->beginSession(key);
    };

    const double open = medianMilliseconds(5, fresh, [&] { store->open(big); });
    std::printf("document_open_20mb: %.1f ms\n", open);
    std::printf("document_open_throughput: %.0f MB/s\n", megabytes / (open / 1000.0));

    const double flush = medianMilliseconds(
        5,
        [&] {
            fresh();
            store->open(big);
            EditorDocument *document = store->scripts().first();
            document->setText(document->text() + QStringLiteral("x <- 1\n"));
        },
        [&] { store->flushAutosave(); });
    std::printf("autosave_flush_20mb: %.1f ms\n", flush);

    const double restore = medianMilliseconds(
        5,
        [&] {
            store.reset();
            store = std::make_unique<DocumentStore>(settings);
        },
        [&] { store->beginSession(key); });
    std::printf("session_restore_20mb_dirty: %.1f ms\n", restore);
    store->close(store->scripts().first()->id());

    fresh();
    for (int i = 0; i < 200; ++i) {
        const QString path = dir.filePath(QStringLiteral("s%1.R").arg(i));
        writeFile(path, "x <- 1\n");
        store->open(path);
    }
    const double check = medianMilliseconds(
        5, [] {}, [&] { store->checkDisk(); });
    std::printf("check_disk_200_files: %.2f ms\n", check);
    store.reset();
    QDir(AutosaveStore::base()).removeRecursively();
    return 0;
}
