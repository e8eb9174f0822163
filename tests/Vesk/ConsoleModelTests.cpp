// ConsoleModel: cells, batching into bounded stretches, notes, changes and transcripts.
#include "Console/ConsoleModel.h"
#include "TestSupport.h"
#include "WorkspaceTestSupport.h"

#include <QLocale>

#include <gtest/gtest.h>

using Item = ConsoleModel::Item;
using Kind = ConsoleModel::Item::Kind;
using State = ConsoleModel::Cell::State;

namespace {

QList<Kind> kinds(const ConsoleModel::Cell &cell)
{
    QList<Kind> result;
    for (const Item &item : cell.items)
        result.append(item.kind);
    return result;
}

ExecResult failed(const QString &message)
{
    ExecResult result;
    result.error = RErrorInfo{message, std::nullopt, {}, false};
    return result;
}

} // namespace

TEST(ConsoleModelStreams, BatchesOutputUntilFlushAndKeepsOrderAroundOtherItems)
{
    ConsoleModel model;
    model.begin(QStringLiteral("r1"), QStringLiteral("f()"), ExecOrigin::console());
    model.append(Item::output(QStringLiteral("a\n")));
    model.append(Item::output(QStringLiteral("b\n")));
    EXPECT_TRUE(model.cells().last().items.isEmpty()) << "stream text waits for the flush";

    // A message flushes first, then ends the stretch: output after it is a new first chunk.
    model.append(Item::message(QStringLiteral("note\n")));
    model.append(Item::output(QStringLiteral("c\n")));
    model.flush();
    const ConsoleModel::Cell &cell = model.cells().last();
    ASSERT_EQ(kinds(cell), (QList<Kind>{Kind::Output, Kind::Message, Kind::Output}));
    EXPECT_EQ(cell.items[0].text, QStringLiteral("a\nb\n"));
    EXPECT_EQ(cell.items[2].text, QStringLiteral("c\n"));
    EXPECT_NE(cell.items[0].id, cell.items[2].id);

    // The timer flushes by itself.
    model.append(Item::stderrText(QStringLiteral("oops\n")));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model.cells().last().items.size() == 4; },
                                       std::chrono::seconds(2)));
    EXPECT_EQ(model.cells().last().items.last().kind, Kind::Stderr);
}

TEST(ConsoleModelStreams, FloodKeepsHeadMarkerAndTailWithStableIDs)
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    ConsoleModel model;
    model.begin(QStringLiteral("r1"), QStringLiteral("print(1:1e6)"), ExecOrigin::console());
    for (int i = 0; i < 20000; ++i)
        model.append(Item::output(QStringLiteral("line %1\n").arg(i)));
    model.flush();
    const ConsoleModel::Cell &cell = model.cells().last();
    ASSERT_GE(cell.items.size(), 3);
    EXPECT_TRUE(cell.items[0].text.startsWith(QStringLiteral("line 0\n")));
    ASSERT_EQ(cell.items[1].kind, Kind::Omitted);
    EXPECT_GT(cell.items[1].lines, 10000);
    EXPECT_TRUE(cell.items.last().text.contains(QStringLiteral("line 19999\n")));
    EXPECT_LE(cell.items.size(), 21);
    const QUuid head = cell.items[0].id;
    const QUuid marker = cell.items[1].id;

    // More output keeps the head and the marker's identity; the count only grows.
    const qint64 before = cell.items[1].lines;
    for (int i = 0; i < 2000; ++i)
        model.append(Item::output(QStringLiteral("more %1\n").arg(i)));
    model.flush();
    const ConsoleModel::Cell &after = model.cells().last();
    EXPECT_EQ(after.items[0].id, head);
    EXPECT_EQ(after.items[1].id, marker);
    EXPECT_GT(after.items[1].lines, before);

    const QString transcript = model.transcript(1, 1'000'000);
    EXPECT_TRUE(transcript.contains(QStringLiteral(" lines not shown …")))
        << transcript.left(200).toStdString();
    EXPECT_EQ(ConsoleModel::omittedText(1), QStringLiteral("… 1 line not shown …"));
    EXPECT_EQ(ConsoleModel::omittedText(12345), QStringLiteral("… 12,345 lines not shown …"));
}

TEST(ConsoleModelStreams, CarriageReturnUpdatesOneLineInPlace)
{
    ConsoleModel model;
    model.begin(QStringLiteral("r1"), QStringLiteral("progress()"), ExecOrigin::console());
    for (int i = 0; i <= 100; i += 10) {
        model.append(Item::output(QStringLiteral("\r[%1%]").arg(i)));
        model.flush();
    }
    ASSERT_EQ(model.cells().last().items.size(), 1);
    EXPECT_EQ(model.cells().last().items[0].text, QStringLiteral("[100%]"));
}

TEST(ConsoleModelStreams, ProgressMessagesRedrawTheirLine)
{
    ConsoleModel model;
    model.begin(QStringLiteral("r1"), QStringLiteral("fit()"), ExecOrigin::console());
    for (int i = 0; i <= 100; i += 25)
        model.append(Item::message(QStringLiteral("\rFitting %1%").arg(i)));
    model.append(Item::message(QStringLiteral("\r\x1b[K")));
    model.append(Item::message(QStringLiteral("Done\n")));
    model.append(Item::message(QStringLiteral("next\n")));
    const ConsoleModel::Cell &cell = model.cells().last();
    ASSERT_EQ(cell.items.size(), 2);
    EXPECT_EQ(cell.items[0].text, QStringLiteral("Done\n"));
    EXPECT_EQ(cell.items[1].text, QStringLiteral("next\n"));

    // A message line without end does not grow one item without bound.
    for (int i = 0; i < 2000; ++i)
        model.append(Item::message(QStringLiteral("xxxxxxxx")));
    for (const Item &item : model.cells().last().items)
        EXPECT_LE(item.text.size(), ConsoleModel::maxMessageBytes);
}

TEST(ConsoleModelCells, StrayOutputPlaceholderAndCap)
{
    ConsoleModel model;
    // Output with no running cell opens a stray cell, which a note settles.
    model.append(Item::output(QStringLiteral("stray\n")));
    model.flush();
    ASSERT_EQ(model.cells().size(), 1);
    EXPECT_FALSE(model.cells()[0].execID.has_value());
    EXPECT_FALSE(model.cells()[0].code.has_value());
    EXPECT_EQ(model.cells()[0].origin.kind, ExecOrigin::Kind::System);
    model.note(QStringLiteral("R 4.2.2 is ready."));
    EXPECT_EQ(model.cells()[0].state, State::Done);
    EXPECT_TRUE(model.cells()[0].finished.has_value());

    // An empty stray cell is a placeholder that `begin` removes.
    model.flush();
    model.append(Item::output(QString()));
    model.flush();
    model.begin(QStringLiteral("r1"), QStringLiteral("1"), ExecOrigin::console());
    EXPECT_EQ(model.cells().size(), 3);

    for (int i = 2; i <= 502; ++i)
        model.begin(QStringLiteral("r%1").arg(i), QStringLiteral("x"), ExecOrigin::console());
    EXPECT_EQ(model.cells().size(), ConsoleModel::maxCells);
    EXPECT_EQ(model.cells().first().execID, QStringLiteral("r3"));
}

TEST(ConsoleModelCells, FinishStatesAndPlots)
{
    ConsoleModel model;
    model.begin(QStringLiteral("r1"), QStringLiteral("plot(1)"), ExecOrigin::console());
    model.append(Item::plot(1));
    model.append(Item::plot(1));
    EXPECT_EQ(model.cells().last().items.size(), 1) << "the same page once per cell";

    model.finish(QStringLiteral("r9"), ExecResult{});
    EXPECT_EQ(model.cells().last().state, State::Running) << "an unknown id changes nothing";

    ExecResult notOK;
    notOK.ok = false;
    model.finish(QStringLiteral("r1"), notOK);
    EXPECT_EQ(model.cells().last().state, State::Done) << "not ok without an error is done";

    model.begin(QStringLiteral("r2"), QStringLiteral("plot(1)"), ExecOrigin::console());
    model.append(Item::plot(1));
    EXPECT_EQ(model.cells().last().items.size(), 1) << "a new cell shows the page again";
    model.finish(QStringLiteral("r2"), failed(QStringLiteral("boom")));
    EXPECT_EQ(model.cells().last().state, State::Failed);

    model.begin(QStringLiteral("r3"), QStringLiteral("Sys.sleep(9)"), ExecOrigin::console());
    ExecResult interrupted = failed(QStringLiteral("x"));
    interrupted.interrupted = true;
    model.finish(QStringLiteral("r3"), interrupted);
    EXPECT_EQ(model.cells().last().state, State::Interrupted);
}

TEST(ConsoleModelCells, AttachMergesChangesWithinOneRun)
{
    ConsoleModel model;
    model.note(QStringLiteral("note"));
    model.attach({WorkspaceChange{WorkspaceChange::Kind::Added, QStringLiteral("x"), {}, false}});
    EXPECT_TRUE(model.cells().last().changes.isEmpty()) << "only cells of an execution take changes";

    model.begin(QStringLiteral("r1"), QStringLiteral("x <- 1; y <- 2; rm(y)"), ExecOrigin::console());
    const auto added = WorkspaceChange::diff(
        {}, {numericValue(QStringLiteral("x"), 1), numericValue(QStringLiteral("y"), 1)});
    model.attach(added);
    model.attach(
        WorkspaceChange::diff({numericValue(QStringLiteral("x"), 1), numericValue(QStringLiteral("y"), 1)},
                              {numericValue(QStringLiteral("x"), 3)}));
    const QList<WorkspaceChange> &changes = model.cells().last().changes;
    ASSERT_EQ(changes.size(), 1) << "y came and went";
    EXPECT_EQ(changes[0].name, QStringLiteral("x"));
    EXPECT_EQ(changes[0].kind, WorkspaceChange::Kind::Added);
    EXPECT_EQ(changes[0].detail, QStringLiteral("length 1 → 3"));
}

TEST(ConsoleModelText, TranscriptsLastErrorAndFailedCode)
{
    ConsoleModel model;
    model.begin(QStringLiteral("r1"), QStringLiteral("f <- function() {\n1\n}"), ExecOrigin::console());
    model.append(Item::echo(QStringLiteral("f <- function() {")));
    model.append(Item::output(QStringLiteral("\x1b[31mred\x1b[0m ")));
    model.append(Item::output(QStringLiteral("text\n")));
    model.append(Item::warning(QStringLiteral("careful"), QStringLiteral("g()")));
    model.append(Item::errorItem(RErrorInfo{QStringLiteral("boom"), QStringLiteral("h(x)"), {}, false}));
    model.finish(QStringLiteral("r1"), failed(QStringLiteral("boom")));
    model.begin(QStringLiteral("r2"), QStringLiteral("1"), ExecOrigin::console());
    model.append(Item::output(QStringLiteral("[1] 1\n")));
    ExecResult ok;
    ok.ok = true;
    model.finish(QStringLiteral("r2"), ok);

    const QString expected =
        QStringLiteral("> f <- function() {\n+ 1\n+ }\nred text\nWarning in g(): careful\n"
                       "Error in h(x): boom\n> 1\n[1] 1");
    EXPECT_EQ(model.transcript(10, 10000), expected);
    EXPECT_EQ(model.transcript(1, 10000), QStringLiteral("> 1\n[1] 1"));
    EXPECT_EQ(model.transcript(10, 5), QStringLiteral("…\n[1] 1"));
    EXPECT_EQ(model.transcript(model.cells().first().id), expected.section(u'\n', 0, 5));

    ASSERT_TRUE(model.lastError().has_value());
    EXPECT_EQ(model.lastError()->message, QStringLiteral("boom"));
    EXPECT_EQ(model.lastFailedCode(), QStringLiteral("f <- function() {\n1\n}"));

    model.clear();
    EXPECT_TRUE(model.cells().isEmpty());
    EXPECT_FALSE(model.lastError().has_value());
}
