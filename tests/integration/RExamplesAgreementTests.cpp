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
        {u"-e"_qs, QStringLiteral("a <- readRDS(system.file('help', 'aliases.rds', package = 'base')); "
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
        {u"Sys.time"_qs, "prints the current time or times relative to it"},
        {u"date"_qs, "prints the current time or times relative to it"},
        {u"difftime"_qs, "prints the current time or times relative to it"},
        {u"as.POSIXlt"_qs, "prints the current time or times relative to it"},
        {u"DateTimeClasses"_qs, "prints the current time or times relative to it"},
        {u"strptime"_qs, "prints the current time or times relative to it"},
        {u"format.Date"_qs, "prints the current time or times relative to it"},
        {u"proc.time"_qs, "prints timings, memory or stack use"},
        {u"system.time"_qs, "prints timings, memory or stack use"},
        {u"gc"_qs, "prints timings, memory or stack use"},
        {u"memory.profile"_qs, "prints timings, memory or stack use"},
        {u"Memory-limits"_qs, "prints timings, memory or stack use"},
        {u"Rprof"_qs, "prints timings, memory or stack use"},
        {u"NA"_qs, "prints timings, memory or stack use"},
        {u"order"_qs, "prints timings, memory or stack use"},
        {u"Sys.sleep"_qs, "prints timings, memory or stack use"},
        {u"Cstack_info"_qs, "prints timings, memory or stack use"},
        {u"Sys.getpid"_qs, "prints the process id, temporary names or the environment"},
        {u"tempfile"_qs, "prints the process id, temporary names or the environment"},
        {u"normalizePath"_qs, "prints the process id, temporary names or the environment"},
        {u"Sys.getenv"_qs, "prints the process id, temporary names or the environment"},
        {u"Sys.setenv"_qs, "prints the process id, temporary names or the environment"},
        {u"formatDL"_qs, "prints the process id, temporary names or the environment"},
        {u"commandArgs"_qs, "prints the process id, temporary names or the environment"},
        {u"environment"_qs, "prints addresses of bytecode or environments"},
        {u"chkDots"_qs, "prints addresses of bytecode or environments"},
        {u"get"_qs, "prints addresses of bytecode or environments"},
        {u"identical"_qs, "prints addresses of bytecode or environments"},
        {u"library.dynam"_qs, "prints addresses of bytecode or environments"},
        {u"match"_qs, "prints addresses of bytecode or environments"},
        {u"match.fun"_qs, "prints addresses of bytecode or environments"},
        {u"ns-dblcolon"_qs, "prints addresses of bytecode or environments"},
        {u"list2env"_qs, "prints addresses of bytecode or environments"},
        {u"ns-internal"_qs, "prints addresses of bytecode or environments"},
        {u"Random"_qs, "seeds from the clock after removing .Random.seed"},
        {u"file.access"_qs, "lists files that earlier pages left, with their sizes and times"},
        {u"file.info"_qs, "lists files that earlier pages left, with their sizes and times"},
        {u"save"_qs, "lists files that earlier pages left, with their sizes and times"},
        {u"autoload"_qs, "the session's tools:vesk on the search path"},
        {u"exists"_qs, "the session's tools:vesk on the search path"},
        {u"library"_qs, "the session's tools:vesk on the search path"},
        {u"search"_qs, "the session's tools:vesk on the search path"},
        {u"startsWith"_qs, "the session's tools:vesk on the search path"},
        {u"sys.source"_qs, "the session's tools:vesk on the search path"},
        {u"c"_qs, "the session's browser and viewer options"},
        {u"unlist"_qs, "the session's browser and viewer options"},
        {u"mode"_qs, "the session's browser and viewer options"},
        {u"length"_qs, "the session's browser and viewer options"},
        {u"options"_qs, "the session's browser and viewer options"},
        {u"sys.parent"_qs, "the session's stack frames under the user's code"},
        {u"connections"_qs, "the session's connection to standard output"},
        {u"getLoadedDLLs"_qs, "the shared libraries the session's plot device loaded"},
        {u"funprog"_qs, "warnings of connections closed by the garbage collector, whose timing differs"},
        {u"warnings"_qs, "warnings of connections closed by the garbage collector, whose timing differs"},
        {u"taskCallback"_qs, "the session's task callback; R calls callbacks after each "
                             "expression of a line, the session after the whole run"},
        {u"taskCallbackManager"_qs, "the session's task callback; R calls callbacks after each "
                                    "expression of a line, the session after the whole run"},
        {u"taskCallbackNames"_qs, "the session's task callback; R calls callbacks after each "
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
                                {u"--interactive"_qs, u"--no-echo"_qs, u"--no-restore"_qs, u"--no-save"_qs},
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
            unexplained.append(page.name + u": the session did not come back"_qs);
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
        unexplained.append(u"%1 (line %2): session \"%3\", R \"%4\""_qs.arg(page.name).arg(line + 1).arg(
            QString::fromUtf8(got.value(line)), QString::fromUtf8(want.value(line))));
    }
    std::printf("base examples identical: %d of %lld pages (%.1f%%); explained differences: %s\n", identical,
                static_cast<long long>(pages.size()), 100.0 * identical / double(pages.size()),
                qPrintable(explained.join(u", "_qs)));
    EXPECT_TRUE(unexplained.isEmpty()) << unexplained.join(u'\n').toStdString();
}
