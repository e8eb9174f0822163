// The data grid's page cache: which pages a scroll asks for and how they join, what late answers
// may change, and which page goes when the bound is passed.
#include "DataPageCache.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

namespace {

// An answer to `request` whose cells tell their view row: column 0 holds "r<row>", column 1 is NA.
DataPage answer(const DataPageRequest &request, qint64 totalRows)
{
    DataPage page;
    page.total = page.filtered = totalRows;
    page.offset = request.query.offset();
    page.columns = {{u"a"_qs, u"character"_qs}, {u"b"_qs, u"numeric"_qs}};
    page.cells.resize(2);
    for (qint64 row = page.offset; row < std::min(request.query.rows().upper, totalRows); ++row) {
        page.rows.append(row + 1);
        page.cells[0].append(u"r%1"_qs.arg(row));
        page.cells[1].append(std::nullopt);
    }
    return page;
}

QList<qint64> requested(DataPageCache &cache, DataRowRange visible, qint64 total,
                        DataScrollDirection direction, qint64 maxPages = 3)
{
    const auto request = cache.nextRequest(visible, total, direction, maxPages);
    if (!request)
        return {};
    return {request->query.offset(), request->query.limit()};
}

} // namespace

// The first request learns the frame's size; visible pages join in runs of at most three; the
// prefetch page goes alone; nothing pending, fresh or failed is asked twice.
TEST(DataPageCache, PlansRequestsForTheRowsInView)
{
    DataPageCache fresh;
    EXPECT_EQ(fresh.missingPages({}, 0, DataScrollDirection::Forward), (QList<qint64>{0}));
    EXPECT_EQ(fresh.missingPages({}, 201, DataScrollDirection::Forward), (QList<qint64>{0, 1}));
    EXPECT_EQ(fresh.missingPages({5000, 5000}, 0, DataScrollDirection::Forward), (QList<qint64>{0}));
    EXPECT_TRUE(fresh.missingPages({500, 900}, 300, DataScrollDirection::Forward).isEmpty())
        << "rows beyond the frame clamp to nothing";

    DataPageCache cache;
    const DataRowRange visible{150, 900};
    EXPECT_EQ(requested(cache, visible, 5000, DataScrollDirection::Forward), (QList<qint64>{0, 600}));
    EXPECT_EQ(requested(cache, visible, 5000, DataScrollDirection::Forward), (QList<qint64>{600, 400}));
    EXPECT_EQ(requested(cache, visible, 5000, DataScrollDirection::Forward), (QList<qint64>{1000, 200}));
    EXPECT_EQ(requested(cache, visible, 5000, DataScrollDirection::Forward), QList<qint64>{});
    EXPECT_EQ(cache.pendingPages(), (QList<qint64>{0, 1, 2, 3, 4, 5}));

    // Backward: the run starts at the highest visible page and grows down; its offset is the lowest.
    DataPageCache back;
    EXPECT_EQ(requested(back, {1000, 1900}, 5000, DataScrollDirection::Backward), (QList<qint64>{1400, 600}));
    EXPECT_EQ(requested(back, {1000, 1900}, 5000, DataScrollDirection::Backward), (QList<qint64>{1000, 400}));
    EXPECT_EQ(requested(back, {1000, 1900}, 5000, DataScrollDirection::Backward), (QList<qint64>{800, 200}));

    // A run stops at a gap: a fresh page between two missing ones.
    DataPageCache gap;
    gap.receive(answer(gap.request({1, 2}), 5000), gap.request({1, 2}));
    EXPECT_EQ(requested(gap, {0, 600}, 5000, DataScrollDirection::Forward), (QList<qint64>{0, 200}));
    EXPECT_EQ(requested(gap, {0, 600}, 5000, DataScrollDirection::Forward), (QList<qint64>{400, 200}));

    // A failed page is not asked for again until the cache is reset.
    DataPageCache failing;
    const DataPageRequest first = *failing.nextRequest({0, 100}, 100, DataScrollDirection::Forward, 3);
    failing.fail(first);
    EXPECT_TRUE(failing.missingPages({0, 100}, 100, DataScrollDirection::Forward).isEmpty());
    failing.reset(true);
    EXPECT_EQ(failing.missingPages({0, 100}, 100, DataScrollDirection::Forward), (QList<qint64>{0}));
}

// An answer is cut into pages; cells read as values, NA or loading; a page past the end is stored
// empty and fresh; a stale page keeps its values until replaced.
TEST(DataPageCache, StoresAnswersAndReadsCells)
{
    DataPageCache cache(200, 40);
    const DataPageRequest request = cache.request({0, 3});
    const auto redraw = cache.receive(answer(request, 450), request);
    EXPECT_EQ(redraw, (DataRowRange{0, 600}));
    EXPECT_EQ(cache.cachedPages(), (QList<qint64>{0, 1, 2}));
    EXPECT_TRUE(cache.pendingPages().isEmpty());
    EXPECT_EQ(cache.cell(399, 0), CellState::value(u"r399"_qs));
    EXPECT_EQ(cache.cell(449, 1), CellState::na());
    EXPECT_EQ(cache.cell(450, 0), CellState::value(QString())) << "a fresh page past the data is empty";
    EXPECT_EQ(cache.cell(10, 2), CellState::value(QString()));
    EXPECT_EQ(cache.cell(600, 0), CellState::loading());
    EXPECT_EQ(cache.cell(-1, 0), CellState::loading());
    EXPECT_EQ(cache.rowNumber(201), 202);
    EXPECT_EQ(cache.rowNumber(500), std::nullopt);
    EXPECT_EQ(cache.rowName(0), std::nullopt);
    EXPECT_TRUE(cache.missingPages({400, 600}, 450, DataScrollDirection::Forward).isEmpty())
        << "the empty tail page is not asked for again";

    cache.reset(true);
    EXPECT_FALSE(cache.isFresh(1));
    EXPECT_EQ(cache.cell(250, 0), CellState::value(u"r250"_qs)) << "a reload does not blank the grid";
    EXPECT_EQ(cache.cell(500, 0), CellState::loading());
    EXPECT_EQ(cache.missingPages({0, 300}, 450, DataScrollDirection::Forward), (QList<qint64>{0, 1, 2}));
    EXPECT_FALSE(cache.receive(answer(request, 450), request)) << "an answer of the old generation";
    cache.removeStalePages();
    EXPECT_EQ(cache.count(), 0);

    // Row names are cut with the rows.
    DataPageCache named(2, 10);
    const DataPageRequest both = named.request({0, 2});
    DataPage page = answer(both, 4);
    page.rowNames = QStringList{u"a"_qs, u"b"_qs, u"c"_qs, u"d"_qs};
    named.receive(page, both);
    EXPECT_EQ(named.rowName(2), u"c"_qs);
    EXPECT_EQ(named.cell(3, 0), CellState::value(u"r3"_qs));
}

// An answer that arrives after the view changed is ignored by receive, fail and cancel alike.
TEST(DataPageCache, LateAnswersChangeNothing)
{
    DataPageCache cache;
    const DataPageRequest old = *cache.nextRequest({0, 50}, 1000, DataScrollDirection::Forward, 3);
    EXPECT_TRUE(cache.setView(DataViewKey(1, true, u"x"_qs)));
    EXPECT_FALSE(cache.setView(DataViewKey(1, true, u"x"_qs)));
    const DataPageRequest current = *cache.nextRequest({0, 50}, 1000, DataScrollDirection::Forward, 3);
    EXPECT_EQ(current.query.sort(), 1);
    EXPECT_TRUE(current.query.descending());
    EXPECT_EQ(current.query.filter(), u"x"_qs);
    EXPECT_FALSE(cache.isCurrent(old));
    EXPECT_FALSE(cache.receive(answer(old, 1000), old));
    cache.fail(old);
    cache.cancel(old);
    EXPECT_EQ(cache.pendingPages(), (QList<qint64>{0})) << "the current request is still pending";
    EXPECT_EQ(cache.count(), 0);
    cache.cancel(current);
    EXPECT_EQ(cache.missingPages({0, 50}, 1000, DataScrollDirection::Forward), (QList<qint64>{0, 1}))
        << "a cancelled page is asked for again";
}

// The least recently used page goes first; an answer is never evicted in part; lowering the bound
// evicts at once.
TEST(DataPageCache, EvictsTheLeastRecentlyUsedPage)
{
    DataPageCache cache(10, 3);
    for (qint64 p : {0, 1, 2}) {
        const DataPageRequest r = cache.request({p, p + 1});
        cache.receive(answer(r, 1000), r);
    }
    cache.touch({0, 5}); // page 0 is now the most recent
    const DataPageRequest r3 = cache.request({3, 4});
    cache.receive(answer(r3, 1000), r3);
    EXPECT_EQ(cache.cachedPages(), (QList<qint64>{0, 2, 3}));
    cache.touch({});
    const DataPageRequest r4 = cache.request({4, 5});
    cache.receive(answer(r4, 1000), r4);
    EXPECT_EQ(cache.cachedPages(), (QList<qint64>{0, 3, 4}));

    const DataPageRequest wide = cache.request({10, 15});
    cache.receive(answer(wide, 1000), wide);
    EXPECT_EQ(cache.cachedPages(), (QList<qint64>{10, 11, 12, 13, 14})) << "all of one answer stays";
    cache.touch({100, 110}); // page 10 most recent
    cache.setCapacity(2);
    EXPECT_EQ(cache.cachedPages(), (QList<qint64>{10, 14}));
    cache.setCapacity(0);
    EXPECT_EQ(cache.capacity(), 1);
    EXPECT_EQ(cache.cachedPages(), (QList<qint64>{10}));
}
