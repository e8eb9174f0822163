// The data viewer's kernel requests on a 10,000,000 x 8 frame (numeric, integer, character,
// factor, Date, POSIXct, logical, list), each next to R doing the same work alone in the same
// session: the first page, a page far down, sorts against R's own order(), a filter against R's own
// grepl(), the profile, and R's memory held by a sorted view.
#include "BenchFigures.h"
#include "BenchSession.h"
#include "DataPage.h"
#include "DataQuery.h"
#include "Session/RSession.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>

#include <cstdio>
#include <vector>

namespace {

ExecResult run(RSession &session, const QString &code)
{
    return runInSession(session, code, std::chrono::minutes(10));
}

// What R prints for `code`, read as a number.
double rNumber(RSession &session, const QString &code)
{
    const ExecResult result = run(session, code);
    if (!result.ok)
        std::fprintf(stderr, "R failed: %s\n",
                     qPrintable(result.error ? result.error->message : result.output));
    return result.output.trimmed().toDouble();
}

// The median time R alone takes for `expr`, in milliseconds, over `runs` runs.
double rAloneMs(RSession &session, const QString &expr, int runs)
{
    return rNumber(session,
                   QStringLiteral("local({ t <- numeric(%2); for (i in seq_len(%2)) "
                                  "t[i] <- system.time(invisible(%1), gcFirst = FALSE)[[\"elapsed\"]];"
                                  " cat(median(t) * 1000) })")
                       .arg(expr)
                       .arg(runs));
}

// One data request through the session, decoded as the client decodes it; its time in ms.
double pageMs(RSession &session, const DataQuery &query, qsizetype *rows = nullptr)
{
    bool done = false;
    QElapsedTimer timer;
    timer.start();
    session.request(QStringLiteral("data"), {RArgument("big")}, query.namedArguments(),
                    [&](const RRequestResult &r) {
                        if (!r.ok()) {
                            std::fprintf(stderr, "data failed: %s\n", qPrintable(r.error().description()));
                        } else if (Result<DataPage> page = DataPage::fromJSON(r.value()); page && rows) {
                            *rows = page->rowCount();
                        }
                        done = true;
                    });
    TestSupport::waitForEvents([&] { return done; }, std::chrono::minutes(10));
    return timer.nsecsElapsed() / 1e6;
}

double medianPageMs(RSession &session, const DataQuery &query, int runs)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i)
        times.push_back(pageMs(session, query));
    return median(times);
}

// A new view's first page: the arrangement is made, then the page is read. Each run changes the
// view (the direction, or the filter's last character) so that every one makes its arrangement
// afresh.
double arrangedMs(RSession &session, std::optional<qsizetype> sort, const QString &filter, int runs)
{
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const QString text = filter.isEmpty() ? filter : filter + QString::number(i);
        times.push_back(pageMs(session, DataQuery(0, 200, sort, sort && i % 2 == 1, text)));
    }
    return median(times);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    RSession session;
    session.start(TestSupport::rExecutable(), QDir::tempPath(), TestSupport::kernelScript());
    if (!TestSupport::waitForEvents([&] { return session.status().kind == RSessionStatus::Kind::Idle; })) {
        std::fprintf(stderr, "R did not start\n");
        return 1;
    }
    // The requests a workspace makes when R is ready, so that the kernel's request path is as warm
    // as in the application.
    for (const auto &[name, args] : QList<std::pair<QString, QList<RArgument>>>{
             {u"configure"_qs, {RArgument(""), RArgument(7), RArgument("")}},
             {u"setWidth"_qs, {RArgument(80)}},
             {u"setPlotSize"_qs, {RArgument(500.0), RArgument(400.0), RArgument(1.0)}},
             {u"setWidth"_qs, {RArgument(100)}}}) {
        bool answered = false;
        session.request(name, args, {}, [&](const RRequestResult &) { answered = true; });
        TestSupport::waitForEvents([&] { return answered; });
    }
    // Made inside local(): a top-level assignment's value would stay in .Last.value.
    const ExecResult made = run(session, QStringLiteral(R"(local({
      set.seed(1); n <- 1e7
      words <- paste0(sample(c("alpha", "Beta", "gamma", "delta", "eps"), 1e5, TRUE), sample(1e6, 1e5))
      big <- data.frame(num = runif(n), int = sample.int(1e6, n, TRUE), chr = sample(words, n, TRUE),
                        fct = factor(sample(month.name, n, TRUE)), date = as.Date("2000-01-01") + sample.int(9000, n, TRUE),
                        dttm = as.POSIXct("2020-01-01", tz = "UTC") + runif(n, 0, 1e8), lgl = sample(c(TRUE, FALSE, NA), n, TRUE))
      big$lst <- rep(list(1:3, "a", NULL), length.out = n)
      assign("big", big, globalenv())
      invisible(gc())
    }))"));
    if (!made.ok) {
        std::fprintf(stderr, "making the frame failed: %s\n",
                     qPrintable(made.error ? made.error->message : QString()));
        return 1;
    }

    // As the application does it: View() sends its event, then the first page is asked for.
    run(session, QStringLiteral("View(big)"));
    qsizetype rows = 0;
    printFigure("data_first_page_ms", pageMs(session, DataQuery(0, 200, std::nullopt, false, {}), &rows),
                "ms");
    // The first scroll: the next three pages.
    printFigure("data_second_page_ms", pageMs(session, DataQuery(200, 600, std::nullopt, false, {})), "ms");
    printFigure("data_page_ms", medianPageMs(session, DataQuery(0, 200, std::nullopt, false, {}), 15), "ms");
    printFigure("r_head_200_format_ms", rAloneMs(session, QStringLiteral("format(big[1:200, ])"), 15), "ms");
    printFigure("data_far_page_ms",
                medianPageMs(session, DataQuery(9999900, 200, std::nullopt, false, {}), 15), "ms");
    printFigure("r_far_200_format_ms",
                rAloneMs(session, QStringLiteral("format(big[9999901:10000000, ])"), 15), "ms");

    // Interleaved with R's own order(), in the same direction, so that the machine's load falls on both.
    auto sortAndOrder = [&](qsizetype column, const QString &name, double *kernel, double *alone) {
        std::vector<double> mine, rs;
        for (int i = 0; i < 4; ++i) {
            const bool descending = i % 2 == 1;
            mine.push_back(pageMs(session, DataQuery(0, 200, column, descending, {})));
            rs.push_back(rAloneMs(session,
                                  QStringLiteral("order(big$%1, method = \"radix\", decreasing = %2)")
                                      .arg(name, descending ? u"TRUE"_qs : u"FALSE"_qs),
                                  1));
        }
        *kernel = median(mine);
        *alone = median(rs);
    };
    double sortNum = 0, orderNum = 0;
    sortAndOrder(0, u"num"_qs, &sortNum, &orderNum);
    printFigure("data_sort_numeric_ms", sortNum, "ms");
    printFigure("r_order_numeric_ms", orderNum, "ms");
    printFigure("data_sort_numeric_ratio", sortNum / orderNum, "x");
    printFigure("data_sorted_far_page_ms", medianPageMs(session, DataQuery(9999900, 200, 0, true, {}), 15),
                "ms");

    double sortChr = 0, orderChr = 0;
    sortAndOrder(2, u"chr"_qs, &sortChr, &orderChr);
    printFigure("data_sort_character_ms", sortChr, "ms");
    printFigure("r_order_character_radix_ms", orderChr, "ms");
    printFigure("data_sort_character_ratio", sortChr / orderChr, "x");
    // R's default order() of text collates by the locale: a million strings, for scale.
    printFigure("r_order_character_locale_1e6_ms",
                rAloneMs(session, QStringLiteral("order(big$chr[1:1e6])"), 1), "ms");

    // R's memory held by one sorted view, beyond what the frame takes: one integer a row is 40 MB.
    pageMs(session, DataQuery(0, 200, std::nullopt, false, {}));
    const QString used = QStringLiteral("cat(sum(gc()[, 2]))");
    const double before = rNumber(session, used);
    pageMs(session, DataQuery(0, 200, 0, false, {}));
    const double after = rNumber(session, used);
    printFigure("r_memory_per_sorted_view_mb", after - before, "MB");

    // Filters "pha10", "pha11", "pha12": text with letters, matched ignoring case.
    const double filterTime = arrangedMs(session, std::nullopt, QStringLiteral("pha1"), 3);
    printFigure("data_filter_ms", filterTime, "ms");
    const double grepCase =
        rAloneMs(session, QStringLiteral("grepl(\"pha12\", big$chr, ignore.case = TRUE)"), 3);
    const double grepFixed = rAloneMs(session, QStringLiteral("grepl(\"pha12\", big$chr, fixed = TRUE)"), 3);
    printFigure("r_grepl_ignore_case_ms", grepCase, "ms");
    printFigure("r_grepl_fixed_ms", grepFixed, "ms");
    printFigure("data_filter_ratio_ignore_case", filterTime / grepCase, "x");
    printFigure("data_filter_ratio_fixed", filterTime / grepFixed, "x");
    printFigure("data_filtered_page_ms",
                medianPageMs(session, DataQuery(1000, 200, std::nullopt, false, u"pha12"_qs), 15), "ms");

    bool done = false;
    QElapsedTimer timer;
    timer.start();
    session.request(QStringLiteral("profile"), {RArgument("big")}, {},
                    [&](const RRequestResult &) { done = true; });
    TestSupport::waitForEvents([&] { return done; }, std::chrono::minutes(10));
    printFigure("data_profile_first_ms", timer.nsecsElapsed() / 1e6, "ms");
    done = false;
    timer.restart();
    session.request(QStringLiteral("profile"), {RArgument("big")}, {},
                    [&](const RRequestResult &) { done = true; });
    TestSupport::waitForEvents([&] { return done; }, std::chrono::minutes(10));
    printFigure("data_profile_unchanged_ms", timer.nsecsElapsed() / 1e6, "ms");

    session.shutDown();
    return rows == 200 ? 0 : 1;
}
