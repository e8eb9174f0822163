// The examples of every help page of R's base package, run through the console's session and
// through R itself at an interactive console (from the same folder, each after set.seed(1)): what
// they print on standard output must be the same bytes. The pages whose output differs for a
// reason that is not the session's are listed with that reason; any other difference fails.
#include "LiveSession.h"
#include "TestSupport.h"

#include <QFile>
#include <QMap>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

struct Page {
    QString name;
    QString line; // the line that runs its examples
};

QList<Page> basePages(const QString &folder)
{
    const TestSupport::ProgramRun run = TestSupport::runProgram(
        TestSupport::rscriptExecutable(),
        {QStringLiteral("-e"),
         QStringLiteral("a <- readRDS(system.file('help', 'aliases.rds', package = 'base')); "
                        "p <- tapply(names(a), a, function(x) x[1]); "
                        "cat(paste(names(p), encodeString(p, quote = '\"')), sep = '\\n')")},
        TestSupport::Input::Empty, {}, 60s, folder);
    QList<Page> pages;
    for (const QByteArray &entry : run.out.split('\n')) {
        // The page's name, then its first topic as an R string literal.
        const qsizetype space = entry.indexOf(' ');
        if (space <= 0)
            continue;
        const QString name = QString::fromUtf8(entry.left(space));
        const QString topic = QString::fromUtf8(entry.mid(space + 1));
        // Its examples wait for an answer at the console, which would take the next page's line.
        if (name == u"readline")
            continue;
        // The end marker shows where the page's output ends and R's echo of the next line begins.
        pages.append(
            {name, QStringLiteral("cat(\"\\n@@@ %1\\n\"); set.seed(1); tryCatch(example(%2, package = "
                                  "\"base\", ask = FALSE), error = function(e) cat(\"\\n!!! error\\n\")); "
                                  "cat(\"\\n### end\\n\")")
                       .arg(name, topic)});
    }
    return pages;
}

// Pages whose examples print what differs from one R process to the next, or between two devices.
const QMap<QString, const char *> &explainedDifferences()
{
    static const QMap<QString, const char *> reasons = {
        {QStringLiteral("Sys.time"), "prints the current time or times relative to it"},
        {QStringLiteral("date"), "prints the current time or times relative to it"},
        {QStringLiteral("difftime"), "prints the current time or times relative to it"},
        {QStringLiteral("as.POSIXlt"), "prints the current time or times relative to it"},
        {QStringLiteral("DateTimeClasses"), "prints the current time or times relative to it"},
        {QStringLiteral("strptime"), "prints the current time or times relative to it"},
        {QStringLiteral("format.Date"), "prints the current time or times relative to it"},
        {QStringLiteral("proc.time"), "prints timings, memory or stack use"},
        {QStringLiteral("system.time"), "prints timings, memory or stack use"},
        {QStringLiteral("gc"), "prints timings, memory or stack use"},
        {QStringLiteral("memory.profile"), "prints timings, memory or stack use"},
        {QStringLiteral("Memory-limits"), "prints timings, memory or stack use"},
        {QStringLiteral("Rprof"), "prints timings, memory or stack use"},
        {QStringLiteral("NA"), "prints timings, memory or stack use"},
        {QStringLiteral("order"), "prints timings, memory or stack use"},
        {QStringLiteral("Sys.sleep"), "prints timings, memory or stack use"},
        {QStringLiteral("Cstack_info"), "prints timings, memory or stack use"},
        {QStringLiteral("Sys.getpid"), "prints the process id, temporary names or the environment"},
        {QStringLiteral("tempfile"), "prints the process id, temporary names or the environment"},
        {QStringLiteral("normalizePath"), "prints the process id, temporary names or the environment"},
        {QStringLiteral("Sys.getenv"), "prints the process id, temporary names or the environment"},
        {QStringLiteral("Sys.setenv"), "prints the process id, temporary names or the environment"},
        {QStringLiteral("formatDL"), "prints the process id, temporary names or the environment"},
        {QStringLiteral("commandArgs"), "prints the process id, temporary names or the environment"},
        {QStringLiteral("environment"), "prints addresses of bytecode or environments"},
        {QStringLiteral("chkDots"), "prints addresses of bytecode or environments"},
        {QStringLiteral("get"), "prints addresses of bytecode or environments"},
        {QStringLiteral("identical"), "prints addresses of bytecode or environments"},
        {QStringLiteral("library.dynam"), "prints addresses of bytecode or environments"},
        {QStringLiteral("match"), "prints addresses of bytecode or environments"},
        {QStringLiteral("match.fun"), "prints addresses of bytecode or environments"},
        {QStringLiteral("ns-dblcolon"), "prints addresses of bytecode or environments"},
        {QStringLiteral("list2env"), "prints addresses of bytecode or environments"},
        {QStringLiteral("ns-internal"), "prints addresses of bytecode or environments"},
        {QStringLiteral("Random"), "seeds from the clock after removing .Random.seed"},
        {QStringLiteral("file.access"), "lists files that earlier pages left, with their sizes and times"},
        {QStringLiteral("file.info"), "lists files that earlier pages left, with their sizes and times"},
        {QStringLiteral("save"), "lists files that earlier pages left, with their sizes and times"},
        {QStringLiteral("autoload"), "the session's tools:vesk on the search path"},
        {QStringLiteral("exists"), "the session's tools:vesk on the search path"},
        {QStringLiteral("library"), "the session's tools:vesk on the search path"},
        {QStringLiteral("search"), "the session's tools:vesk on the search path"},
        {QStringLiteral("startsWith"), "the session's tools:vesk on the search path"},
        {QStringLiteral("sys.source"), "the session's tools:vesk on the search path"},
        {QStringLiteral("c"), "the session's browser and viewer options"},
        {QStringLiteral("unlist"), "the session's browser and viewer options"},
        {QStringLiteral("mode"), "the session's browser and viewer options"},
        {QStringLiteral("length"), "the session's browser and viewer options"},
        {QStringLiteral("options"), "the session's browser and viewer options"},
        {QStringLiteral("sys.parent"), "the session's stack frames under the user's code"},
        {QStringLiteral("connections"), "the session's connection to standard output"},
        {QStringLiteral("getLoadedDLLs"), "the shared libraries the session's plot device loaded"},
        {QStringLiteral("funprog"),
         "warnings of connections closed by the garbage collector, whose timing differs"},
        {QStringLiteral("warnings"),
         "warnings of connections closed by the garbage collector, whose timing differs"},
        {QStringLiteral("taskCallback"), "the session's task callback; R calls callbacks after each "
                                         "expression of a line, the session after the whole run"},
        {QStringLiteral("taskCallbackManager"), "the session's task callback; R calls callbacks after each "
                                                "expression of a line, the session after the whole run"},
        {QStringLiteral("taskCallbackNames"), "the session's task callback; R calls callbacks after each "
                                              "expression of a line, the session after the whole run"},
    };
    return reasons;
}

} // namespace

TEST(RExamplesAgreement, BasePackageExamplesPrintWhatRPrints)
{
    QTemporaryDir folder;
    const QList<Page> pages = basePages(folder.path());
    ASSERT_GT(pages.size(), 300);

    QByteArray script;
    for (const Page &page : pages)
        script += page.line.toUtf8() + '\n';
    const TestSupport::ProgramRun reference =
        TestSupport::runProgram(TestSupport::rExecutable(),
                                {QStringLiteral("--interactive"), QStringLiteral("--no-echo"),
                                 QStringLiteral("--no-restore"), QStringLiteral("--no-save")},
                                TestSupport::Input::Bytes, script, 600s, folder.path());
    ASSERT_FALSE(reference.timedOut);
    // R echoes each line it reads; what a page printed lies between its two markers.
    const QByteArray endMarker = "\n### end\n";
    QMap<QString, QByteArray> expected;
    qsizetype from = 0;
    for (const Page &page : pages) {
        const QByteArray marker = "\n@@@ " + page.name.toUtf8() + "\n";
        const qsizetype at = reference.out.indexOf(marker, from);
        ASSERT_GE(at, 0) << page.name.toStdString();
        from = at + marker.size();
        const qsizetype end = reference.out.indexOf(endMarker, from);
        ASSERT_GE(end, 0) << page.name.toStdString();
        expected.insert(page.name, reference.out.mid(from, end - from));
        from = end + endMarker.size();
    }

    LiveSession k;
    k.timeout = 120s;
    ASSERT_TRUE(k.start(folder.path()));
    int identical = 0;
    QStringList unexplained, explained;
    for (const Page &page : pages) {
        const qsizetype mark = k.events.size();
        k.run(page.line);
        if (k.session.status().kind != RSessionStatus::Kind::Idle) {
            unexplained.append(page.name + QStringLiteral(": the session did not come back"));
            k.session.shutDown();
            ASSERT_TRUE(k.start(folder.path()));
            continue;
        }
        QByteArray out;
        for (const SessionEvent &event : k.eventsSince(mark, SessionEvent::Kind::Output))
            out += event.text.toUtf8();
        const QByteArray marker = "\n@@@ " + page.name.toUtf8() + "\n";
        if (out.startsWith(marker))
            out.remove(0, marker.size());
        if (out.endsWith(endMarker))
            out.chop(endMarker.size());
        if (out == expected.value(page.name)) {
            ++identical;
            continue;
        }
        if (explainedDifferences().contains(page.name)) {
            explained.append(page.name);
            continue;
        }
        // The first line that differs, for the report.
        const QList<QByteArray> got = out.split('\n'), want = expected.value(page.name).split('\n');
        qsizetype line = 0;
        while (line < got.size() && line < want.size() && got[line] == want[line])
            ++line;
        unexplained.append(QStringLiteral("%1 (line %2): session \"%3\", R \"%4\"")
                               .arg(page.name)
                               .arg(line + 1)
                               .arg(QString::fromUtf8(got.value(line)), QString::fromUtf8(want.value(line))));
    }
    std::printf("base examples identical: %d of %lld pages (%.1f%%); explained differences: %s\n", identical,
                static_cast<long long>(pages.size()), 100.0 * identical / double(pages.size()),
                qPrintable(explained.join(QStringLiteral(", "))));
    EXPECT_TRUE(unexplained.isEmpty()) << unexplained.join(u'\n').toStdString();
}
