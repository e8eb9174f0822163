// OutputRun as the console uses it, fed a long stream of mixed output in writes of a few lines.
#include "OutputChunks.h"
#include "OutputRun.h"

#include <QRandomGenerator>
#include <QStringList>

#include <chrono>
#include <cstdio>

int main()
{
    constexpr int lineCount = 1000000;
    QRandomGenerator random(42);
    QStringList writes;
    qsizetype inputBytes = 0;
    QString pending;
    int linesInWrite = 1 + random.bounded(5);
    for (int i = 0; i < lineCount; ++i) {
        switch (random.bounded(10)) {
        case 0:
            pending += QStringLiteral("\x1b[3%1mWarning:\x1b[0m value %2 out of range\n")
                           .arg(random.bounded(8))
                           .arg(i);
            break;
        case 1:
            pending += QStringLiteral("\x1b[1;38;5;%1m%2\x1b[22;39m\n").arg(random.bounded(256)).arg(i);
            break;
        case 2:
            pending += QString(100 + random.bounded(400), u'-') + u'\n';
            break;
        case 3:
            pending += QStringLiteral("Größe: %1 µm\n").arg(random.bounded(1000));
            break;
        default:
            pending += QStringLiteral("[%1] %2\n").arg(i).arg(QString(random.bounded(60), u'x'));
            break;
        }
        if (--linesInWrite == 0) {
            inputBytes += OutputChunks::byteCount(pending);
            writes.append(pending);
            pending.clear();
            linesInWrite = 1 + random.bounded(5);
        }
    }
    if (!pending.isEmpty()) {
        inputBytes += OutputChunks::byteCount(pending);
        writes.append(pending);
    }

    OutputRun run(6000, 200, 20);
    const auto start = std::chrono::steady_clock::now();
    for (const QString &w : writes)
        run.write(w);
    const auto elapsed =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();

    qsizetype maxChunkBytes = 0;
    for (const OutputRun::Chunk &chunk : run.chunks())
        maxChunkBytes = std::max(maxChunkBytes, qsizetype(chunk.text.toUtf8().size()));
    std::printf("output_run_writes: %lld writes\n", static_cast<long long>(writes.size()));
    std::printf("output_run_input_bytes: %lld bytes\n", static_cast<long long>(inputBytes));
    std::printf("output_run_chunks: %lld chunks\n", static_cast<long long>(run.chunks().size()));
    std::printf("output_run_max_chunk_bytes: %lld bytes\n", static_cast<long long>(maxChunkBytes));
    std::printf("output_run_omitted_lines: %lld lines\n", static_cast<long long>(run.omittedLines()));
    std::printf("output_run_time: %.0f ms\n", elapsed);
    std::printf("output_run_throughput: %.1f MB/s\n", inputBytes / 1e6 / (elapsed / 1000.0));
    return 0;
}
