// The kernel's data and profile requests against a real R, through RSession and the client's own
// decoding: pages of datasets, sorts that equal R's radix order(), filters, odd frames and
// strings, and arrangements that follow the object bound to a name without holding it.
#include "../VeskCore/QStringPrinting.h"
#include "DataPage.h"
#include "DataQuery.h"
#include "LiveSession.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

struct DataSession : LiveSession {
    Result<DataPage> page(const QString &expr, const DataQuery &query)
    {
        const RRequestResult answer = request(u"data"_qs, {RArgument(expr)}, query.namedArguments());
        if (!answer.ok())
            return Failure{answer.error().description()};
        return DataPage::fromJSON(answer.value());
    }
    DataPage rows(const QString &expr, qint64 offset, qint64 limit,
                  std::optional<qsizetype> sort = std::nullopt, bool descending = false,
                  const QString &filter = {})
    {
        Result<DataPage> got = page(expr, DataQuery(offset, limit, sort, descending, filter));
        EXPECT_TRUE(got.ok()) << expr.toStdString() << ": " << got.error().toStdString();
        return got.ok() ? got.value() : DataPage{};
    }
    // What R prints for `code`, which must succeed.
    QString output(const QString &code)
    {
        const ExecResult result = run(code);
        EXPECT_TRUE(result.ok) << code.toStdString() << "\n"
                               << (result.error ? result.error->message.toStdString() : std::string());
        return result.output.trimmed();
    }
    // Integers R prints with cat(..., sep = ",").
    QList<qint64> integers(const QString &code)
    {
        QList<qint64> out;
        for (const QString &item :
             output(u"cat("_qs + code + u", sep = \",\")"_qs).split(u',', Qt::SkipEmptyParts))
            out.append(item.toLongLong());
        return out;
    }
};

std::optional<QString> text(const char *utf8)
{
    return QString::fromUtf8(utf8);
}

} // namespace

// Pages of datasets decode with their columns, row names, kinds and NA; the profile comes too.
TEST(DataKernel, PagesOfDatasets)
{
    DataSession r;
    ASSERT_TRUE(r.start());

    const DataPage cars = r.rows(u"mtcars"_qs, 0, 10);
    EXPECT_EQ(cars.total, 32);
    EXPECT_EQ(cars.filtered, 32);
    ASSERT_EQ(cars.columns.size(), 11);
    EXPECT_EQ(cars.columns[0], (DataColumnInfo{u"mpg"_qs, u"numeric"_qs}));
    EXPECT_EQ(cars.rows, (QList<qint64>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    ASSERT_TRUE(cars.rowNames);
    EXPECT_EQ(cars.rowNames->at(0), u"Mazda RX4"_qs);
    EXPECT_EQ(cars.cells[5][0], text("2.62"));
    EXPECT_EQ(cars.cells[6][1], text("17.02"));

    const DataPage iris = r.rows(u"iris"_qs, 140, 20);
    EXPECT_EQ(iris.rows, (QList<qint64>{141, 142, 143, 144, 145, 146, 147, 148, 149, 150}));
    EXPECT_EQ(iris.offset, 140);
    EXPECT_FALSE(iris.rowNames) << "automatic row names are not sent";
    EXPECT_EQ(iris.columns[4], (DataColumnInfo{u"Species"_qs, u"factor"_qs}));
    EXPECT_EQ(iris.cells[4][0], text("virginica"));
    EXPECT_EQ(iris.cells[0][9], text("5.9"));
    EXPECT_EQ(r.rows(u"iris"_qs, 150, 200).rowCount(), 0);

    const DataPage air = r.rows(u"airquality"_qs, 0, 6);
    EXPECT_EQ(air.columns[4], (DataColumnInfo{u"Month"_qs, u"integer"_qs}));
    EXPECT_EQ(air.cells[0][4], std::nullopt) << "Ozone is NA in row 5";
    EXPECT_EQ(air.cells[1][4], std::nullopt);
    EXPECT_EQ(air.cells[0][0], text("41"));

    const RRequestResult profile = r.request(u"profile"_qs, {RArgument("airquality")});
    ASSERT_TRUE(profile.ok()) << profile.error().description().toStdString();
    const JSONValue ozone = profile.value()[0];
    EXPECT_EQ(ozone[u"name"].stringValue(), u"Ozone"_qs);
    EXPECT_EQ(ozone[u"n"].intValue(), 153);
    EXPECT_EQ(ozone[u"missing"].intValue(), 37);
    EXPECT_EQ(ozone[u"min"].doubleValue(), 1.0);
    EXPECT_EQ(ozone[u"max"].doubleValue(), 168.0);
    qint64 counted = 0;
    for (const JSONValue &bin : *ozone[u"histogram"].arrayValue())
        counted += bin.intValue().value_or(-1000);
    EXPECT_EQ(counted, 116) << "the bins count every value that is there";
    const RRequestResult species = r.request(u"profile"_qs, {RArgument("iris")});
    ASSERT_TRUE(species.ok());
    EXPECT_EQ(species.value()[4][u"unique"].intValue(), 3);
    EXPECT_EQ(species.value()[4][u"top"][0][u"count"].intValue(), 50);
}

// Sorting equals R's order(method = "radix") over the whole object, across pages, with NA last in
// both directions; a filter finds text ignoring case, numbers by value, and sorts within itself.
TEST(DataKernel, SortAndFilterFollowR)
{
    DataSession r;
    ASSERT_TRUE(r.start());
    r.output(u"local({ set.seed(7); n <- 5000\n"
             u"  big <- data.frame(num = round(rnorm(n), 1), chr = sample(c(letters, LETTERS, \"\u00e9\", "
             u"NA), n, TRUE),\n"
             u"                    int = sample(c(1:20, NA), n, TRUE))\n"
             u"  assign(\"big\", big, globalenv()) })"_qs);
    for (qsizetype column : {0, 1, 2}) {
        for (bool descending : {false, true}) {
            SCOPED_TRACE(testing::Message() << "column " << column << (descending ? " descending" : ""));
            const QList<qint64> expected =
                r.integers(u"order(big[[%1]], method = \"radix\", decreasing = %2)"_qs.arg(column + 1)
                               .arg(descending ? u"TRUE"_qs : u"FALSE"_qs));
            ASSERT_EQ(expected.size(), 5000);
            QList<qint64> got = r.rows(u"big"_qs, 0, 3000, column, descending).rows;
            got += r.rows(u"big"_qs, 3000, 3000, column, descending).rows;
            EXPECT_EQ(got, expected);
        }
    }
    const DataPage byText = r.rows(u"big"_qs, 0, 3, 1);
    EXPECT_EQ(byText.cells[1], (QList<std::optional<QString>>{text("A"), text("A"), text("A")}));

    const DataPage setosa = r.rows(u"iris"_qs, 0, 200, std::nullopt, false, u"SETosa"_qs);
    EXPECT_EQ(setosa.total, 150);
    EXPECT_EQ(setosa.filtered, 50);
    EXPECT_EQ(setosa.rows.last(), 50);
    const DataPage value = r.rows(u"iris"_qs, 0, 200, 1, true, u"5.1"_qs);
    EXPECT_EQ(value.rows,
              r.integers(u"local({ k <- which(rowSums(iris[1:4] == 5.1) > 0);"
                         u" k[order(iris[[2]][k], decreasing = TRUE, method = \"radix\")] })"_qs));
    const DataPage none = r.rows(u"iris"_qs, 0, 200, std::nullopt, false, u"no such flower"_qs);
    EXPECT_EQ(none.filtered, 0);
    EXPECT_EQ(none.total, 150);
    EXPECT_EQ(none.rowCount(), 0);
    EXPECT_EQ(none.columns.size(), 5);
    const DataPage dates =
        r.rows(u"data.frame(d = as.Date(\"2024-01-30\") + 0:3, s = c(\"a\", \"b\", \"x.y\", \"c\"))"_qs, 0,
               10, std::nullopt, false, u"2024-01-31"_qs);
    EXPECT_EQ(dates.rows, (QList<qint64>{2}));
    EXPECT_EQ(
        r.rows(u"data.frame(s = c(\"a\", \"b\", \"x.y\", \"a.\"))"_qs, 0, 10, std::nullopt, false, u"."_qs)
            .rows,
        (QList<qint64>{3, 4}))
        << "the filter is literal text, not a pattern";

    const Result<DataPage> listSort =
        r.page(u"data.frame(a = 1:2, l = I(list(1, 2)))"_qs, DataQuery(0, 10, 1, false, {}));
    EXPECT_FALSE(listSort.ok());
}

// A 0-row frame, list columns, dates and times, NaN beside NA, strings with tabs, newlines and
// bytes that are no UTF-8, matrices, vectors, lists, and columns and objects named like the
// kernel's own variables.
TEST(DataKernel, OddFramesAndStrings)
{
    DataSession r;
    ASSERT_TRUE(r.start());

    const DataPage empty = r.rows(u"mtcars[0, ]"_qs, 0, 200);
    EXPECT_EQ(empty.total, 0);
    EXPECT_EQ(empty.rowCount(), 0);
    EXPECT_EQ(empty.columns.size(), 11);
    EXPECT_EQ(r.rows(u"mtcars[0, ]"_qs, 0, 200, 0).rowCount(), 0);

    r.output(QString::fromUtf8(R"(local({
      odd <- data.frame(n = c(1.5, NA, NaN, -Inf), i = c(1L, NA, 3L, 123456789L),
                        d = as.Date("2024-02-29") + c(0, NA, 1, 2),
                        t = as.POSIXct("2024-03-01 12:34:56", tz = "UTC") + c(0, NA, 0.5, 60),
                        f = factor(c("lo", "hi", NA, "lo"), levels = c("lo", "hi")),
                        s = c("tab\there", "line\nbreak", NA, "plain"))
      odd$l <- list(1:3, NULL, NA, mtcars)
      latin <- "caf\xe9"; Encoding(latin) <- "latin1"
      odd$e <- c("ok\xff", latin, "\x01\x1e\x1f", "\u00e9\U0001F600")
      assign("odd", odd, globalenv())
      assign("expr", data.frame(x = c(2, 1, 3), expr = c("b", "c", "a"), id = 3:1, shape = TRUE), globalenv())
    }))"));
    const DataPage page = r.rows(u"odd"_qs, 0, 10);
    ASSERT_EQ(page.columns.size(), 8);
    EXPECT_EQ(page.columns[3].type, u"POSIXct"_qs);
    EXPECT_EQ(page.columns[6], (DataColumnInfo{u"l"_qs, u"list"_qs}));
    EXPECT_EQ(page.cells[0],
              (QList<std::optional<QString>>{text("1.5"), std::nullopt, text("NaN"), text("-Inf")}));
    EXPECT_EQ(page.cells[1][3], text("123456789"));
    EXPECT_EQ(page.cells[2], (QList<std::optional<QString>>{text("2024-02-29"), std::nullopt,
                                                            text("2024-03-01"), text("2024-03-02")}));
    EXPECT_EQ(page.cells[3][0], text("2024-03-01 12:34:56"));
    EXPECT_EQ(page.cells[3][1], std::nullopt);
    EXPECT_EQ(page.cells[4],
              (QList<std::optional<QString>>{text("lo"), text("hi"), std::nullopt, text("lo")}));
    EXPECT_EQ(page.cells[5], (QList<std::optional<QString>>{text("tab\there"), text("line\nbreak"),
                                                            std::nullopt, text("plain")}));
    EXPECT_EQ(page.cells[6], (QList<std::optional<QString>>{text("1, 2, 3"), text("NULL"), std::nullopt,
                                                            text("<data.frame [32 × 11]>")}));
    EXPECT_EQ(page.cells[7], (QList<std::optional<QString>>{text("ok<ff>"), text("café"),
                                                            text("\x01\x1e\x1f"), text("é😀")}));
    EXPECT_EQ(r.rows(u"odd"_qs, 0, 10, 0).rows, r.integers(u"order(odd$n, method = \"radix\")"_qs));
    EXPECT_EQ(r.rows(u"odd"_qs, 0, 10, 3, true).rows,
              r.integers(u"order(odd$t, method = \"radix\", decreasing = TRUE)"_qs));
    EXPECT_EQ(r.rows(u"odd"_qs, 0, 10, std::nullopt, false, u"BREAK"_qs).rows, (QList<qint64>{2}));
    EXPECT_EQ(r.rows(u"odd"_qs, 0, 10, std::nullopt, false, u"\u00e9"_qs).rows, (QList<qint64>{2, 4}));

    // An object and columns named like the variables of the kernel's handlers.
    const DataPage named = r.rows(u"expr"_qs, 0, 10, 1);
    EXPECT_EQ(named.rows, (QList<qint64>{3, 1, 2}));
    EXPECT_EQ(named.columns[1].name, u"expr"_qs);
    EXPECT_EQ(named.cells[3], (QList<std::optional<QString>>{text("TRUE"), text("TRUE"), text("TRUE")}));
    EXPECT_EQ(r.rows(u"expr"_qs, 0, 10, std::nullopt, false, u"c"_qs).rows, (QList<qint64>{2}));

    const DataPage matrix = r.rows(u"VADeaths"_qs, 0, 2, 3, true);
    EXPECT_EQ(matrix.columns[3], (DataColumnInfo{u"Urban Female"_qs, u"numeric"_qs}));
    EXPECT_EQ(matrix.rowNames, (QStringList{u"70-74"_qs, u"65-69"_qs}));
    const DataPage vector = r.rows(u"c(b = 2L, a = NA, c = 1L)"_qs, 0, 10, 0);
    EXPECT_EQ(vector.columns, (QList<DataColumnInfo>{{u"value"_qs, u"integer"_qs}}));
    EXPECT_EQ(vector.rowNames, (QStringList{u"c"_qs, u"b"_qs, u"a"_qs}));
    const DataPage list = r.rows(u"list(a = 1, b = \"x\")"_qs, 0, 10);
    EXPECT_EQ(list.cells[0], (QList<std::optional<QString>>{text("1"), text("x")}));

    // View() opens what it can page and refuses the rest, as R's own View() does.
    const qsizetype mark = r.events.size();
    EXPECT_TRUE(r.run(u"View(odd)"_qs).ok);
    EXPECT_FALSE(r.run(u"View(sum)"_qs).ok);
    const QList<SessionEvent> views = r.eventsSince(mark, SessionEvent::Kind::View);
    ASSERT_EQ(views.size(), 1);
    EXPECT_EQ(views[0].expr, u"odd"_qs);
    EXPECT_FALSE(r.page(u"sum"_qs, DataQuery(0, 10, std::nullopt, false, {})).ok());
}

// An arrangement is made once for a view and used for every page; it goes when the object bound
// to the name changes, when the object is removed, when the sort is cleared and when the view is
// dropped; reading pages never makes R copy the user's values afterwards.
TEST(DataKernel, ArrangementsFollowTheObject)
{
    DataSession r;
    ASSERT_TRUE(r.start());
    r.output(u"local(assign(\"scores\", data.frame(a = c(3, 1, 2)), globalenv()))"_qs);
    const QString held =
        u"local({ a <- .vesk$arrangements[[\"scores\"]]$rows;"
        u" if (is.null(a)) cat(\"none\") else cat(sub(\" .*\", \"\", capture.output(.Internal(inspect(a, 0L, 0L)))[1L])) })"_qs;
    EXPECT_EQ(r.rows(u"scores"_qs, 0, 2, 0).rows, (QList<qint64>{2, 3}));
    const QString first = r.output(held);
    EXPECT_TRUE(first.startsWith(u'@')) << first.toStdString();
    EXPECT_EQ(r.rows(u"scores"_qs, 2, 2, 0).rows, (QList<qint64>{1}));
    EXPECT_EQ(r.output(held), first) << "the next page uses the same arrangement";

    // Replaced by a frame of the same shape, then of another size: each is sorted afresh.
    r.output(u"local(assign(\"scores\", data.frame(a = c(1, 2, 3)), globalenv()))"_qs);
    EXPECT_EQ(r.rows(u"scores"_qs, 0, 10, 0).rows, (QList<qint64>{1, 2, 3}));
    r.output(u"local(assign(\"scores\", data.frame(a = c(10, 30, 20, 0)), globalenv()))"_qs);
    const DataPage replaced = r.rows(u"scores"_qs, 0, 10, 0);
    EXPECT_EQ(replaced.rows, (QList<qint64>{4, 1, 3, 2}));
    EXPECT_EQ(replaced.total, 4);
    EXPECT_EQ(replaced.cells[0][0], text("0"));
    r.output(u"scores$a[4] <- 40"_qs);
    EXPECT_EQ(r.rows(u"scores"_qs, 0, 10, 0).rows, (QList<qint64>{1, 3, 2, 4}));

    r.rows(u"scores"_qs, 0, 10);
    EXPECT_EQ(r.output(held), u"none"_qs) << "a view without sort or filter keeps nothing";
    r.rows(u"scores"_qs, 0, 10, 0, true);
    ASSERT_TRUE(r.request(u"dropView"_qs, {RArgument("scores")}).ok());
    EXPECT_EQ(r.output(held), u"none"_qs);
    r.rows(u"scores"_qs, 0, 10, 0, true);
    r.output(u"rm(scores)"_qs);
    const Result<DataPage> removed = r.page(u"scores"_qs, DataQuery(0, 10, 0, true, {}));
    ASSERT_FALSE(removed.ok());
    EXPECT_TRUE(removed.error().contains(u"'scores' not found"_qs)) << removed.error().toStdString();
    EXPECT_EQ(r.output(held), u"none"_qs);

    // Copies R makes when the values are modified after pages, profiles and sorts, against the
    // copies it makes of the same after runs without them. (Made inside local(): a top-level
    // assignment's value stays in .Last.value.)
    const QString make =
        u"local({ g <- globalenv(); assign(\"v\", runif(1e5), g);"
        u" assign(\"m\", matrix(runif(2e5), ncol = 2), g);"
        u" assign(\"s\", as.character(1:1e5), g);"
        u" assign(\"f\", data.frame(a = runif(1e5), d = Sys.Date() + 1:1e5), g); invisible() })\n"_qs;
    const QString trace =
        u"invisible(tracemem(v)); invisible(tracemem(m)); invisible(tracemem(s)); invisible(tracemem(f))\n"_qs;
    const QString modify = u"v[1] <- 0; m[1, 1] <- 0; s[1] <- \"x\"; f$a[1] <- 0; f[2, 2] <- Sys.Date()"_qs;
    const auto copies = [&](const QString &code) { return r.output(code).count(u"tracemem["_qs); };
    r.output(make);
    r.output(u"invisible(1)"_qs);
    const qsizetype alone = copies(trace + modify);
    r.output(make);
    for (const QString &name : {u"v"_qs, u"m"_qs, u"s"_qs, u"f"_qs}) {
        SCOPED_TRACE(name.toStdString());
        r.rows(name, 5000, 200);
        r.rows(name, 0, 200, 0, true);
        r.rows(name, 0, 200, std::nullopt, false, u"12"_qs);
        EXPECT_TRUE(r.request(u"profile"_qs, {RArgument(name)}).ok());
    }
    EXPECT_EQ(copies(trace + modify), alone);
}
