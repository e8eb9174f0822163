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
    model.begin(u"r1"_qs, u"f()"_qs, ExecOrigin::console());
    model.append(Item::output(u"a\n"_qs));
    model.append(Item::output(u"b\n"_qs));
    EXPECT_TRUE(model.cells().last().items.isEmpty()) << "stream text waits for the flush";

    // A message flushes first, then ends the stretch: output after it is a new first chunk.
    model.append(Item::message(u"note\n"_qs));
    model.append(Item::output(u"c\n"_qs));
    model.flush();
    const ConsoleModel::Cell &cell = model.cells().last();
    ASSERT_EQ(kinds(cell), (QList<Kind>{Kind::Output, Kind::Message, Kind::Output}));
    EXPECT_EQ(cell.items[0].text, u"a\nb\n"_qs);
    EXPECT_EQ(cell.items[2].text, u"c\n"_qs);
    EXPECT_NE(cell.items[0].id, cell.items[2].id);

    // The timer flushes by itself.
    model.append(Item::stderrText(u"oops\n"_qs));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model.cells().last().items.size() == 4; },
                                       std::chrono::seconds(2)));
    EXPECT_EQ(model.cells().last().items.last().kind, Kind::Stderr);
}

TEST(ConsoleModelStreams, FloodKeepsHeadMarkerAndTailWithStableIDs)
{
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    ConsoleModel model;
    model.begin(u"r1"_qs, u"print(1:1e6)"_qs, ExecOrigin::console());
    for (int i = 0; i < 20000; ++i)
        model.append(Item::output(u"line %1\n"_qs.arg(i)));
    model.flush();
    const ConsoleModel::Cell &cell = model.cells().last();
    ASSERT_GE(cell.items.size(), 3);
    EXPECT_TRUE(cell.items[0].text.startsWith(u"line 0\n"_qs));
    ASSERT_EQ(cell.items[1].kind, Kind::Omitted);
    EXPECT_GT(cell.items[1].lines, 10000);
    EXPECT_TRUE(cell.items.last().text.contains(u"line 19999\n"_qs));
    EXPECT_LE(cell.items.size(), 21);
    const QUuid head = cell.items[0].id;
    const QUuid marker = cell.items[1].id;

    // More output keeps the head and the marker's identity; the count only grows.
    const qint64 before = cell.items[1].lines;
    for (int i = 0; i < 2000; ++i)
        model.append(Item::output(u"more %1\n"_qs.arg(i)));
    model.flush();
    const ConsoleModel::Cell &after = model.cells().last();
    EXPECT_EQ(after.items[0].id, head);
    EXPECT_EQ(after.items[1].id, marker);
    EXPECT_GT(after.items[1].lines, before);

    const QString transcript = model.transcript(1, 1'000'000);
    EXPECT_TRUE(transcript.contains(u" lines not shown …"_qs)) << transcript.left(200).toStdString();
    EXPECT_EQ(ConsoleModel::omittedText(1), u"… 1 line not shown …"_qs);
    EXPECT_EQ(ConsoleModel::omittedText(12345), u"… 12,345 lines not shown …"_qs);
}

TEST(ConsoleModelStreams, CarriageReturnsRedrawOneLineInPlace)
{
    ConsoleModel model;
    model.begin(u"r1"_qs, u"progress()"_qs, ExecOrigin::console());
    for (int i = 0; i <= 100; i += 10) {
        model.append(Item::output(u"\r[%1%]"_qs.arg(i)));
        model.flush();
    }
    ASSERT_EQ(model.cells().last().items.size(), 1);
    EXPECT_EQ(model.cells().last().items[0].text, u"[100%]"_qs);

    // Messages redraw theirs too, without a flush.
    model.begin(u"r2"_qs, u"fit()"_qs, ExecOrigin::console());
    for (int i = 0; i <= 100; i += 25)
        model.append(Item::message(u"\rFitting %1%"_qs.arg(i)));
    model.append(Item::message(u"\r\x1b[K"_qs));
    model.append(Item::message(u"Done\n"_qs));
    model.append(Item::message(u"next\n"_qs));
    const ConsoleModel::Cell &cell = model.cells().last();
    ASSERT_EQ(cell.items.size(), 2);
    EXPECT_EQ(cell.items[0].text, u"Done\n"_qs);
    EXPECT_EQ(cell.items[1].text, u"next\n"_qs);

    // A message line without end does not grow one item without bound.
    for (int i = 0; i < 2000; ++i)
        model.append(Item::message(u"xxxxxxxx"_qs));
    for (const Item &item : model.cells().last().items)
        EXPECT_LE(item.text.size(), ConsoleModel::maxMessageBytes);
}

TEST(ConsoleModelCells, StrayOutputAndCap)
{
    ConsoleModel model;
    // Output with no running cell opens a stray cell, which a note settles.
    model.append(Item::output(u"stray\n"_qs));
    model.flush();
    ASSERT_EQ(model.cells().size(), 1);
    EXPECT_FALSE(model.cells()[0].execID.has_value());
    EXPECT_FALSE(model.cells()[0].code.has_value());
    EXPECT_EQ(model.cells()[0].origin.kind, ExecOrigin::Kind::System);
    model.note(u"R 4.2.2 is ready."_qs);
    EXPECT_EQ(model.cells()[0].state, State::Done);
    EXPECT_TRUE(model.cells()[0].finished.has_value());

    // Empty output opens no cell.
    model.append(Item::output(QString()));
    model.flush();
    EXPECT_EQ(model.cells().size(), 2);

    for (int i = 1; i <= 502; ++i)
        model.begin(u"r%1"_qs.arg(i), u"x"_qs, ExecOrigin::console());
    EXPECT_EQ(model.cells().size(), ConsoleModel::maxCells);
    EXPECT_EQ(model.cells().first().execID, u"r3"_qs);
}

TEST(ConsoleModelCells, FinishStatesAndPlots)
{
    ConsoleModel model;
    model.begin(u"r1"_qs, u"plot(1)"_qs, ExecOrigin::console());
    model.append(Item::plot(1));
    model.append(Item::plot(1));
    EXPECT_EQ(model.cells().last().items.size(), 1) << "the same page once per cell";

    model.finish(u"r9"_qs, ExecResult{});
    EXPECT_EQ(model.cells().last().state, State::Running) << "an unknown id changes nothing";

    ExecResult notOK;
    notOK.ok = false;
    model.finish(u"r1"_qs, notOK);
    EXPECT_EQ(model.cells().last().state, State::Done) << "not ok without an error is done";

    model.begin(u"r2"_qs, u"plot(1)"_qs, ExecOrigin::console());
    model.append(Item::plot(1));
    EXPECT_EQ(model.cells().last().items.size(), 1) << "a new cell shows the page again";
    model.finish(u"r2"_qs, failed(u"boom"_qs));
    EXPECT_EQ(model.cells().last().state, State::Failed);

    model.begin(u"r3"_qs, u"Sys.sleep(9)"_qs, ExecOrigin::console());
    ExecResult interrupted = failed(u"x"_qs);
    interrupted.interrupted = true;
    model.finish(u"r3"_qs, interrupted);
    EXPECT_EQ(model.cells().last().state, State::Interrupted);
}

TEST(ConsoleModelCells, AttachMergesChangesWithinOneRun)
{
    ConsoleModel model;
    model.note(u"note"_qs);
    model.attach({WorkspaceChange{WorkspaceChange::Kind::Added, u"x"_qs, {}, false}});
    EXPECT_TRUE(model.cells().last().changes.isEmpty()) << "only cells of an execution take changes";

    model.begin(u"r1"_qs, u"x <- 1; y <- 2; rm(y)"_qs, ExecOrigin::console());
    const auto added = WorkspaceChange::diff({}, {numericValue(u"x"_qs, 1), numericValue(u"y"_qs, 1)});
    model.attach(added);
    model.attach(WorkspaceChange::diff({numericValue(u"x"_qs, 1), numericValue(u"y"_qs, 1)},
                                       {numericValue(u"x"_qs, 3)}));
    const QList<WorkspaceChange> &changes = model.cells().last().changes;
    ASSERT_EQ(changes.size(), 1) << "y came and went";
    EXPECT_EQ(changes[0].name, u"x"_qs);
    EXPECT_EQ(changes[0].kind, WorkspaceChange::Kind::Added);
    EXPECT_EQ(changes[0].detail, u"length 1 → 3"_qs);
}

TEST(ConsoleModelText, TranscriptsLastErrorAndFailedCode)
{
    ConsoleModel model;
    model.begin(u"r1"_qs, u"f <- function() {\n1\n}"_qs, ExecOrigin::console());
    model.append(Item::echo(u"f <- function() {"_qs));
    model.append(Item::output(u"\x1b[31mred\x1b[0m "_qs));
    model.append(Item::output(u"text\n"_qs));
    model.append(Item::warning(u"careful"_qs, u"g()"_qs));
    model.append(Item::errorItem(RErrorInfo{u"boom"_qs, u"h(x)"_qs, {}, false}));
    model.finish(u"r1"_qs, failed(u"boom"_qs));
    model.begin(u"r2"_qs, u"1"_qs, ExecOrigin::console());
    model.append(Item::output(u"[1] 1\n"_qs));
    ExecResult ok;
    ok.ok = true;
    model.finish(u"r2"_qs, ok);

    const QString expected =
        QStringLiteral("> f <- function() {\n+ 1\n+ }\nred text\nWarning in g(): careful\n"
                       "Error in h(x): boom\n> 1\n[1] 1");
    EXPECT_EQ(model.transcript(10, 10000), expected);
    EXPECT_EQ(model.transcript(1, 10000), u"> 1\n[1] 1"_qs);
    EXPECT_EQ(model.transcript(10, 5), u"…\n[1] 1"_qs);
    EXPECT_EQ(model.transcript(model.cells().first().id), expected.section(u'\n', 0, 5));

    ASSERT_TRUE(model.lastError().has_value());
    EXPECT_EQ(model.lastError()->message, u"boom"_qs);
    EXPECT_EQ(model.lastFailedCode(), u"f <- function() {\n1\n}"_qs);

    model.clear();
    EXPECT_TRUE(model.cells().isEmpty());
    EXPECT_FALSE(model.lastError().has_value());
}
