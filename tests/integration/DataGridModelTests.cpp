// The data grid's model against a real R through the kernel's data and profile requests: the first
// page, paging far into a large frame, sorting and filtering, a frame of no rows, a frame replaced
// and removed under an open grid, and copying a selection as tab-separated text.
#include "../VeskCore/QStringPrinting.h"
#include "Data/DataGridModel.h"
#include "LiveSession.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

namespace {

struct GridSession : LiveSession {
    std::unique_ptr<DataGridModel> grid(const QString &expr)
    {
        auto request = [this](const QString &name, const QList<RArgument> &args,
                              const QList<std::pair<QString, RArgument>> &named,
                              DataGridModel::KernelCompletion done) {
            session.request(name, args, named, [done](const RRequestResult &result) {
                if (result.ok())
                    done(result.value());
                else
                    done(Failure{result.error().description()});
            });
        };
        return std::unique_ptr<DataGridModel>(DataGridModel::forExpression(expr, expr, request));
    }
    void define(const QString &code)
    {
        const ExecResult result = run(code);
        ASSERT_TRUE(result.ok) << code.toStdString();
    }
};

QString cell(const DataGridModel &model, int row, int column)
{
    return model.data(model.index(row, column)).toString();
}

// Waits until the model's cell shows `text` (its page arrived).
bool shows(const DataGridModel &model, int row, int column, const QString &text,
           std::chrono::milliseconds timeout = std::chrono::seconds(20))
{
    return TestSupport::waitUntil([&] { return model.rowCount() > row && cell(model, row, column) == text; },
                                  timeout);
}

Result<QString> copy(DataGridModel &model, QList<qint64> rows, QList<qsizetype> columns)
{
    std::optional<Result<QString>> got;
    model.tsv(rows, columns, [&](Result<QString> text) { got = std::move(text); });
    TestSupport::waitUntil([&] { return got.has_value(); });
    return got.value_or(Failure{u"no answer"_qs});
}

} // namespace

// mtcars: the first page with its row names, kinds in the headers, the profile; the sort cycle on
// a column; a filter after its pause, and one that matches nothing.
TEST(DataGridModel, FirstPageSortAndFilter)
{
    GridSession r;
    ASSERT_TRUE(r.start());
    auto model = r.grid(u"mtcars"_qs);
    model->setVisibleRows({0, 20});
    EXPECT_EQ(model->rowCount(), 0) << "nothing is asked before the grid starts";
    model->reload();
    ASSERT_TRUE(shows(*model, 0, 0, u"21"_qs));
    EXPECT_EQ(model->rowCount(), 32);
    EXPECT_EQ(model->columnCount(), 11);
    EXPECT_TRUE(model->hasRowNames());
    EXPECT_EQ(model->rowLabel(0), u"Mazda RX4"_qs);
    EXPECT_EQ(model->headerData(0, Qt::Horizontal).toString(), u"mpg\nnum"_qs);
    EXPECT_EQ(model->message(), QString());
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model->profile(0).has_value(); }));
    EXPECT_EQ(model->profile(0)->n, 32);
    EXPECT_FALSE(
        model->headerData(0, Qt::Horizontal, DataGridModel::SparklineRole).value<QList<double>>().isEmpty());

    model->cycleSort(0);
    EXPECT_EQ(model->headerData(0, Qt::Horizontal).toString(), u"mpg ▲\nnum"_qs)
        << "the header shows the sort at once";
    ASSERT_TRUE(shows(*model, 0, 0, u"10.4"_qs));
    EXPECT_EQ(model->rowLabel(0), u"Cadillac Fleetwood"_qs) << "row names follow their rows";
    model->cycleSort(0);
    ASSERT_TRUE(shows(*model, 0, 0, u"33.9"_qs));
    model->cycleSort(0);
    ASSERT_TRUE(shows(*model, 0, 0, u"21"_qs));
    EXPECT_EQ(model->sortColumn(), std::nullopt);
    EXPECT_FALSE(model->sortDescending());

    // cyl is 6 in seven rows, and carb in one of them.
    model->setFilter(u"6"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model->rowCount() == 7; }));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model->rowLabel(6) == u"Ferrari Dino"_qs; }));
    EXPECT_EQ(model->rowLabel(0), u"Mazda RX4"_qs);
    EXPECT_EQ(model->totalRows(), 32);
    model->setFilter(u"no such car"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model->rowCount() == 0 && !model->isLoading(); }));
    EXPECT_EQ(model->message(), u"No matching rows"_qs);
    EXPECT_EQ(model->totalRows(), 32);
}

// A frame of no rows still sends its columns; its grid says so. An unviewable or missing object
// gives the kernel's words.
TEST(DataGridModel, NoRowsAndErrors)
{
    GridSession r;
    ASSERT_TRUE(r.start());
    r.define(u"empty <- mtcars[0, ]"_qs);
    auto model = r.grid(u"empty"_qs);
    model->reload();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model->hasLoaded(); }));
    EXPECT_EQ(model->rowCount(), 0);
    EXPECT_EQ(model->columnCount(), 11);
    EXPECT_EQ(model->message(), u"No rows"_qs);

    auto missing = r.grid(u"never_defined"_qs);
    missing->reload();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return missing->error().has_value(); }));
    EXPECT_TRUE(missing->message().contains(u"never_defined"_qs)) << missing->message().toStdString();
    EXPECT_FALSE(missing->hasLoaded());
}

// The grid follows the object bound to the name: a new frame under it brings its columns and cells
// on reload; once it is removed the grid shows the error and keeps its old cells.
TEST(DataGridModel, FrameReplacedAndRemovedWhileOpen)
{
    GridSession r;
    ASSERT_TRUE(r.start());
    r.define(u"frame_a <- data.frame(x = 1:3)"_qs);
    auto model = r.grid(u"frame_a"_qs);
    model->setVisibleRows({0, 10});
    model->reload();
    ASSERT_TRUE(shows(*model, 0, 0, u"1"_qs));
    model->setSelectedColumn(0);
    model->cycleSort(0);
    model->cycleSort(0);
    ASSERT_TRUE(shows(*model, 0, 0, u"3"_qs)) << "sorted descending";

    r.define(u"frame_a <- data.frame(y = c(\"a\", \"b\", \"c\", \"d\"), x = 4:7)"_qs);
    model->reload();
    ASSERT_TRUE(shows(*model, 0, 1, u"7"_qs)) << "the sort followed x to its new place";
    EXPECT_EQ(model->columnCount(), 2);
    EXPECT_EQ(model->rowCount(), 4);
    EXPECT_EQ(model->sortColumn(), 1);
    EXPECT_EQ(model->selectedColumn(), 1);
    EXPECT_EQ(cell(*model, 0, 0), u"d"_qs);
    EXPECT_EQ(model->headerData(0, Qt::Horizontal).toString(), u"y\nchr"_qs);

    r.define(u"frame_a$x[2] <- 100L"_qs);
    model->reload();
    ASSERT_TRUE(shows(*model, 0, 1, u"100"_qs)) << "a change in place is seen";

    r.define(u"rm(frame_a)"_qs);
    model->reload();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model->error().has_value(); }));
    EXPECT_TRUE(model->message().contains(u"frame_a"_qs)) << model->message().toStdString();
    EXPECT_EQ(cell(*model, 0, 1), u"100"_qs) << "old cells stay on screen";

    r.define(u"frame_a <- data.frame(z = 9)"_qs);
    model->reload();
    ASSERT_TRUE(shows(*model, 0, 0, u"9"_qs));
    EXPECT_EQ(model->error(), std::nullopt);
    EXPECT_EQ(model->sortColumn(), std::nullopt) << "the sorted column is gone";
}

// A copy is the cells' text with the header; tabs and line breaks inside a cell become spaces, NA
// is written NA, row names lead when the frame has them, and rows that were never on screen are
// fetched for it.
TEST(DataGridModel, CopiesSelectionsAsTabSeparatedText)
{
    GridSession r;
    ASSERT_TRUE(r.start());
    r.define(
        u"odd <- data.frame(a = c(\"x\\ty\", \"line\\nbreak\\r\", NA, \"plain\"), b = c(1.5, NA, 3, -2), "
        u"c = c(TRUE, FALSE, NA, TRUE))"_qs);
    auto odd = r.grid(u"odd"_qs);
    odd->setVisibleRows({0, 10});
    odd->reload();
    ASSERT_TRUE(shows(*odd, 0, 0, u"x y"_qs)) << "a cell shows one line";
    const Result<QString> text = copy(*odd, {2, 0, 1}, {1, 0});
    ASSERT_TRUE(text.ok()) << text.error().toStdString();
    EXPECT_EQ(text.value(), u"a\tb\nx y\t1.5\nline break \tNA\nNA\t3"_qs);

    auto cars = r.grid(u"mtcars"_qs);
    cars->setVisibleRows({0, 5});
    cars->reload();
    ASSERT_TRUE(shows(*cars, 0, 0, u"21"_qs));
    const Result<QString> named = copy(*cars, {0, 31}, {0, 1});
    ASSERT_TRUE(named.ok()) << named.error().toStdString();
    EXPECT_EQ(named.value(), u"\tmpg\tcyl\nMazda RX4\t21\t6\nVolvo 142E\t21.4\t4"_qs);

    r.define(u"long <- data.frame(k = seq_len(20000) * 2L)"_qs);
    auto longFrame = r.grid(u"long"_qs);
    longFrame->setVisibleRows({0, 10});
    longFrame->reload();
    ASSERT_TRUE(shows(*longFrame, 0, 0, u"2"_qs));
    const Result<QString> far = copy(*longFrame, {19999, 9000, 0}, {0});
    ASSERT_TRUE(far.ok()) << far.error().toStdString();
    EXPECT_EQ(far.value(), u"k\n2\n18002\n40000"_qs);
    EXPECT_FALSE(longFrame->cache().isCached(longFrame->cache().page(19999)))
        << "the grid's cache is left alone";

    // A sort while a copy waits for R gives up the copy.
    std::optional<Result<QString>> cancelled;
    longFrame->tsv({15000}, {0}, [&](Result<QString> got) { cancelled = std::move(got); });
    longFrame->cycleSort(0);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return cancelled.has_value(); }));
    EXPECT_FALSE(cancelled->ok());
}

// Ten million rows of eight kinds: the first page, then row 9,999,900, then a sort of the whole.
TEST(DataGridModel, PagesFarIntoTenMillionRows)
{
    GridSession r;
    r.timeout = std::chrono::seconds(120);
    ASSERT_TRUE(r.start());
    r.define(u"local({ n <- 1e7L; i <- seq_len(n)\n"
             u"  huge <<- data.frame(num = i / 2, int = i, chr = rep_len(c(\"a\", \"b\", \"c\"), n),\n"
             u"    fct = factor(rep_len(c(\"lo\", \"hi\"), n)), day = as.Date(\"2024-01-01\") + i %% 366L,\n"
             u"    at = as.POSIXct(i, origin = \"2024-01-01\", tz = \"UTC\"), ok = i %% 2L == 0L,\n"
             u"    lst = I(vector(\"list\", n))) })"_qs);
    auto model = r.grid(u"huge"_qs);
    model->setVisibleRows({0, 30});
    model->reload();
    ASSERT_TRUE(shows(*model, 0, 1, u"1"_qs, std::chrono::seconds(60)));
    EXPECT_EQ(model->rowCount(), 10000000);
    EXPECT_EQ(model->headerData(4, Qt::Horizontal, DataGridModel::KindLabelRole).toString(), u"date"_qs);
    EXPECT_EQ(model->headerData(7, Qt::Horizontal, DataGridModel::KindLabelRole).toString(), u"list"_qs);

    model->setVisibleRows({9999900, 9999930});
    ASSERT_TRUE(shows(*model, 9999900, 1, u"9999901"_qs, std::chrono::seconds(60)));
    EXPECT_EQ(cell(*model, 9999900, 0), u"4999950"_qs) << "seven digits, as R prints it";
    EXPECT_EQ(model->rowLabel(9999929), u"9999930"_qs);
    EXPECT_LE(model->cache().count(), model->cache().capacity());

    model->setVisibleRows({0, 30});
    model->cycleSort(1);
    model->cycleSort(1);
    ASSERT_TRUE(shows(*model, 0, 1, u"10000000"_qs, std::chrono::seconds(60)));
    EXPECT_EQ(cell(*model, 1, 1), u"9999999"_qs);
}
