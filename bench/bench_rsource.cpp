// R source analysis figures: full tokenization throughput on real R code (and against R's own
// parse() + getParseData() on the same text), the cost of one keystroke in a 100,000-line file,
// the lines an opened and closed string repaints, and the line index edit cost by text size.
#include "RLineIndex.h"
#include "RSourceModel.h"
#include "RTokenizer.h"
#include "TestSupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <chrono>
#include <cstdio>

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

void tokenizerThroughput()
{
    QTemporaryDir dir;
    QProcess r;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    env.remove(QStringLiteral("DISPLAY"));
    r.setProcessEnvironment(env);
    r.start(TestSupport::rExecutable(),
            {QStringLiteral("--vanilla"), QStringLiteral("--no-echo"), QStringLiteral("-f"),
             QStringLiteral(VESK_SOURCE_DIR "/tests/integration/RParseCorpus.R"), QStringLiteral("--args"),
             dir.path(), QStringLiteral("1"), QStringLiteral("0")});
    QFile corpusFile(dir.filePath(QStringLiteral("corpus.R")));
    if (!r.waitForFinished(300000) || r.exitCode() != 0 || !corpusFile.open(QIODevice::ReadOnly)) {
        std::printf("rtokenize_corpus: 0 MB (R did not write the corpus)\n");
        return;
    }
    const QByteArray bytes = corpusFile.readAll();
    const QString text = QString::fromUtf8(bytes);
    double rSeconds = 0;
    QFile summary(dir.filePath(QStringLiteral("summary.txt")));
    if (summary.open(QIODevice::ReadOnly)) {
        for (const QByteArray &line : summary.readAll().split('\n')) {
            if (line.startsWith("parse_seconds: "))
                rSeconds = line.mid(15).toDouble();
        }
    }
    qsizetype tokens = 0;
    int rounds = 0;
    const Clock::time_point start = Clock::now();
    while (rounds < 5 || secondsSince(start) < 2.0) {
        tokens += RTokenizer::tokenize(text).size();
        ++rounds;
    }
    const double seconds = secondsSince(start) / rounds;
    const double mb = bytes.size() / 1e6;
    std::printf("rtokenize_corpus: %.2f MB\n", mb);
    std::printf("rtokenize_tokens: %lld tokens\n", static_cast<long long>(tokens / rounds));
    std::printf("rtokenize_throughput: %.0f MB/s\n", mb / seconds);
    if (rSeconds > 0) {
        std::printf("r_parse_getparsedata_throughput: %.2f MB/s\n", mb / rSeconds);
        std::printf("rtokenize_speedup_over_r_parse: %.0f x\n", rSeconds / seconds);
    }
}

QString scriptOfLines(int count)
{
    const char *lines[] = {
        "summary_by <- function(df, group, value = \"x\") {\n",
        "  df |> dplyr::group_by(.data[[group]]) |> dplyr::summarise(m = mean(.data[[value]], na.rm = "
        "TRUE))\n",
        "}\n",
        "# Load data ----\n",
        "x <- c(1.5e-3, 0x1F, 2L, NA_real_) # numbers\n",
        "if (length(x) > 2 && !is.null(names(x))) print(x[-1]) else message('short')\n",
    };
    QString text;
    text.reserve(count * 60);
    for (int i = 0; i < count; ++i)
        text += QString::fromLatin1(lines[i % 6]);
    return text;
}

void keystrokes()
{
    QString text = scriptOfLines(100000);
    RSourceModel model(RSourceLanguage::r);
    model.reset(text);
    Clock::time_point start = Clock::now();
    const qsizetype all = model.relex(text);
    std::printf("relex_full_100k_lines: %.1f ms (%lld lines)\n", secondsSince(start) * 1e3,
                static_cast<long long>(all));

    // Type in the middle of the file, a character at a time, as the editor reports it.
    const qsizetype middleLine = 50000 + 4; // a code line, not a comment
    qsizetype at = model.lines().start(middleLine) + 2;
    const int keys = 2000;
    qsizetype visited = 0;
    double modelSeconds = 0;
    for (int i = 0; i < keys; ++i) {
        // The text store's own edit is not the model's cost.
        text.insert(at, QChar(u'a' + i % 26));
        start = Clock::now();
        model.replaceCharacters(RTextRange{at, 0}, 1, text);
        visited += model.relex(text);
        modelSeconds += secondsSince(start);
        ++at;
    }
    const double perKey = modelSeconds / keys;
    std::printf("relex_keystroke_100k_lines: %.2f us\n", perKey * 1e6);
    std::printf("relex_keystroke_lines_visited: %.2f lines\n", double(visited) / keys);

    // An opened string repaints to the end of the file; closing it repaints the same lines.
    text.insert(0, u'"');
    model.replaceCharacters(RTextRange{0, 0}, 1, text);
    start = Clock::now();
    const qsizetype opened = model.relex(text);
    const double openedSeconds = secondsSince(start);
    text.insert(1, u'"');
    model.replaceCharacters(RTextRange{1, 0}, 1, text);
    start = Clock::now();
    const qsizetype closed = model.relex(text);
    const double closedSeconds = secondsSince(start);
    std::printf("open_quote_at_top_lines_visited: %lld lines\n", static_cast<long long>(opened));
    std::printf("open_quote_at_top_relex: %.1f ms\n", openedSeconds * 1e3);
    std::printf("close_quote_at_top_lines_visited: %lld lines\n", static_cast<long long>(closed));
    std::printf("close_quote_at_top_relex: %.1f ms\n", closedSeconds * 1e3);
}

void lineIndexEdits(int lines)
{
    const QString text = scriptOfLines(lines);
    RLineIndex index(text);
    const qsizetype at = index.start(lines / 2) + 3;
    const int keys = 1000000;
    // Type a character, then delete it. The index reads the text only around the edit, and the
    // unit at `at` is no line break either way, so one unchanged text serves both edits.
    const Clock::time_point start = Clock::now();
    for (int i = 0; i < keys; ++i) {
        if (i % 2 == 0)
            index.replaceCharacters(RTextRange{at, 0}, 1, text);
        else
            index.replaceCharacters(RTextRange{at, 1}, 0, text);
    }
    std::printf("rlineindex_edit_%d_lines: %.0f ns\n", lines, secondsSince(start) / keys * 1e9);
}

} // namespace

int main()
{
    tokenizerThroughput();
    keystrokes();
    lineIndexEdits(1000);
    lineIndexEdits(1000000);
    return 0;
}
