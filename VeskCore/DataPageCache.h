// The pages of one view of a frame that the data grid has read, bounded in count: which pages a
// scroll needs, how they join into requests, what a late answer may still change, and what goes
// when the bound is passed (the least recently used page). A plain value, changed by its owner on
// one thread; nothing here waits or talks to R.
#pragma once

#include "DataPage.h"
#include "DataQuery.h"
#include "DataRowRange.h"
#include "DataViewKey.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <map>
#include <optional>
#include <set>

// What the grid shows for a cell.
struct CellState {
    enum class Kind { Value, NA, Loading };
    Kind kind = Kind::Loading;
    QString text; // Value

    static CellState value(QString text) { return {Kind::Value, std::move(text)}; }
    static CellState na() { return {Kind::NA, {}}; }
    static CellState loading() { return {Kind::Loading, {}}; }
    bool operator==(const CellState &) const = default;
};

enum class DataScrollDirection { Forward, Backward };

// A fetch the cache planned: the query, the page numbers it covers and the generation it belongs to.
struct DataPageRequest {
    DataQuery query;
    DataRowRange pages;
    qint64 generation = 0;
};

class DataPageCache {
public:
    static constexpr qint64 defaultPageSize = 200;
    static constexpr qsizetype defaultCapacity = 40;

    explicit DataPageCache(qint64 pageSize = defaultPageSize, qsizetype capacity = defaultCapacity,
                           DataViewKey view = {});

    qint64 pageSize() const { return m_pageSize; }
    qsizetype capacity() const { return m_capacity; }
    // Lowering the bound below what is held evicts at once, least recently used first.
    void setCapacity(qsizetype capacity);
    const DataViewKey &view() const { return m_view; }
    qint64 generation() const { return m_generation; }

    qint64 page(qint64 row) const { return row / m_pageSize; }
    DataRowRange rows(qint64 page) const { return {page * m_pageSize, (page + 1) * m_pageSize}; }
    DataRowRange pages(DataRowRange rows) const;

    qsizetype count() const { return qsizetype(m_pages.size()); }
    QList<qint64> cachedPages() const;
    QList<qint64> pendingPages() const;
    bool isCached(qint64 page) const { return m_pages.count(page) > 0; }
    bool isFresh(qint64 page) const;

    CellState cell(qint64 row, qsizetype column) const;
    std::optional<qint64> rowNumber(qint64 row) const;
    std::optional<QString> rowName(qint64 row) const;

    // Marks the cached pages in view as just used.
    void touch(DataRowRange visibleRows);
    // Pages to fetch for what is in view, in fetch order, with one page of prefetch.
    QList<qint64> missingPages(DataRowRange visibleRows, qint64 totalRows,
                               DataScrollDirection direction) const;
    // One contiguous run of missing visible pages (at most maxPages), or a prefetch page alone;
    // its pages become pending.
    std::optional<DataPageRequest> nextRequest(DataRowRange visibleRows, qint64 totalRows,
                                               DataScrollDirection direction, qint64 maxPages);
    DataPageRequest request(DataRowRange pages);
    bool isCurrent(const DataPageRequest &request) const;
    // Stores the answer's rows page by page; the rows to redraw, or none for an answer that
    // belongs to an older view or generation.
    std::optional<DataRowRange> receive(const DataPage &page, const DataPageRequest &request);
    void fail(const DataPageRequest &request);
    void cancel(const DataPageRequest &request);

    // Whether the arrangement changed; a new one empties the cache.
    bool setView(const DataViewKey &view);
    // Invalidates everything; kept pages go stale and keep showing until their replacement comes.
    void reset(bool keepingStaleValues);
    void removeAllPages() { m_pages.clear(); }
    void removeStalePages();

private:
    struct Page {
        QList<qint64> rows;
        std::optional<QStringList> rowNames;
        QList<QList<std::optional<QString>>> cells;
        quint64 lastUse = 0;
        bool stale = false;
    };

    const Page *pageFor(qint64 row, qint64 *place) const;
    void evict(const DataRowRange *keep);

    qint64 m_pageSize;
    qsizetype m_capacity;
    DataViewKey m_view;
    qint64 m_generation = 0;
    std::map<qint64, Page> m_pages;
    std::set<qint64> m_pending;
    std::set<qint64> m_failed;
    quint64 m_clock = 0;
};
