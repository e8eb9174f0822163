// ConsoleText: carriage-return progress updates, one per write with the cursor kept, should cost
// time linear in their number and independent of the output before the last line; plain appends
// should cost only the appended text.
#include "ConsoleText.h"

#include <QStringList>

#include <algorithm>
#include <chrono>
#include <cstdio>

namespace {

// One update per percent, the way a progress bar repeats itself; the same table serves every count,
// so that the runs differ only in their number of writes.
QStringList progressUpdates()
{
    QStringList updates;
    for (int percent = 0; percent <= 100; ++percent) {
        const int filled = percent / 10;
        updates.append(QStringLiteral("\r%1% [%2>%3]")
                           .arg(percent, 3)
                           .arg(QString(filled, u'='))
                           .arg(QString(10 - filled, u' ')));
    }
    return updates;
}

// Best of three, in milliseconds.
template <typename Run> double timed(Run run)
{
    double best = 1e300;
    for (int round = 0; round < 3; ++round) {
        const auto start = std::chrono::steady_clock::now();
        run();
        best = std::min(
            best,
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    return best;
}

double progress(int count, const QString &before, QString *result = nullptr)
{
    const QStringList updates = progressUpdates();
    return timed([&] {
        ConsoleText::Cursor cursor;
        QString text = before;
        for (int i = 0; i < count; ++i)
            text = ConsoleText::appending(updates[int(qint64(i) * 100 / count)], std::move(text), cursor);
        if (result)
            *result = text;
    });
}

} // namespace

int main()
{
    QString result;
    const double t10k = progress(10000, QString());
    const double t100k = progress(100000, QString(), &result);
    std::printf("console_text_cr_10k: %.1f ms\n", t10k);
    std::printf("console_text_cr_100k: %.1f ms\n", t100k);
    std::printf("console_text_cr_ratio_100k_over_10k: %.2f\n", t100k / t10k);
    std::printf("console_text_cr_100k_result_chars: %lld chars\n", static_cast<long long>(result.size()));

    // The same updates behind 4 MB of earlier output: only the last line may be touched.
    QString earlier;
    for (int i = 0; i < 100000; ++i)
        earlier += QStringLiteral("[%1] earlier output, a line of about forty\n").arg(i, 6);
    const double t100kBehind = progress(100000, earlier);
    std::printf("console_text_cr_100k_behind_4mb: %.1f ms\n", t100kBehind);

    // Plain appends: a million lines, a few per write.
    QStringList lines;
    qsizetype chars = 0;
    for (int i = 0; i < 250000; ++i) {
        lines.append(
            QStringLiteral("[%1] plain output line\n[%1] \x1b[32mok\x1b[0m\n[%1] more\n[%1] end\n").arg(i));
        chars += lines.last().size();
    }
    const double plain = timed([&] {
        ConsoleText::Cursor cursor;
        QString text;
        for (const QString &w : lines)
            text = ConsoleText::appending(w, std::move(text), cursor);
    });
    std::printf("console_text_plain_append_1m_lines: %.1f ms\n", plain);
    std::printf("console_text_plain_append_throughput: %.1f Mchars/s\n", chars / 1e6 / (plain / 1000.0));
    return 0;
}
