// The document store on large and many files: opening a 20 MB script, autosaving a 1 MB and a 20 MB
// one once dirty (the main thread's part, and until on disk), restoring the 20 MB one from the
// session, and one check of 200 open files against the disk.
#include "Base/SessionFiles.h"
#include "Base/Settings.h"
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
    auto fresh = [&](const QString &session) {
        store = std::make_unique<DocumentStore>(settings);
        store->beginSession(session);
    };

    const double open = medianMilliseconds(
        5, [&] { fresh(key); }, [&] { store->open(big); });
    std::printf("document_open_20mb: %.1f ms\n", open);
    std::printf("document_open_throughput: %.0f MB/s\n", megabytes / (open / 1000.0));

    // The main thread's share of an autosave of one dirty document, and the time until it is on disk.
    const QString small = dir.filePath(QStringLiteral("small.R"));
    writeFile(small, script.left(1'000'000));
    for (const auto &[path, label] : {std::pair{small, "1mb"}, std::pair{big, "20mb"}}) {
        // A session of its own, so that only this document comes back in each fresh store.
        auto dirty = [&, path = path, label = label] {
            fresh(key + QLatin1String(label));
            store->open(path);
            EditorDocument *document = store->scripts().first();
            document->setText(document->text() + QStringLiteral("x <- 1\n"));
        };
        const double flush = medianMilliseconds(15, dirty, [&] { store->flushAutosave(); });
        std::printf("autosave_flush_%s: %.2f ms\n", label, flush);
        const double written = medianMilliseconds(5, dirty, [&] {
            store->flushAutosave();
            store->finishAutosaves();
        });
        std::printf("autosave_written_%s: %.1f ms\n", label, written);
    }
    fresh(key);
    store->open(big);
    store->scripts().first()->setText(store->scripts().first()->text() + QStringLiteral("x <- 1\n"));
    store->endSession();

    const double restore = medianMilliseconds(
        5,
        [&] {
            store.reset();
            store = std::make_unique<DocumentStore>(settings);
        },
        [&] { store->beginSession(key); });
    std::printf("session_restore_20mb_dirty: %.1f ms\n", restore);
    store->close(store->scripts().first()->id());

    fresh(key);
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
