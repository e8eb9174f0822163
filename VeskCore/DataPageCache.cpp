#include "DataPageCache.h"

#include <algorithm>

namespace {

// The visible pages, first and last included, after the visible rows are held inside the frame;
// an empty view stands for row 0, so that the first request learns the frame's size.
std::optional<std::pair<qint64, qint64>> visiblePages(DataRowRange visible, qint64 totalRows, qint64 pageSize)
{
    if (visible.isEmpty()) {
        visible = {0, 1};
    } else {
        const qint64 limit = std::max<qint64>(totalRows, 1);
        visible.lower = std::clamp<qint64>(visible.lower, 0, limit);
        visible.upper = std::clamp<qint64>(visible.upper, 0, limit);
        if (visible.lower == visible.upper)
            return std::nullopt;
    }
    const qint64 first = visible.lower / pageSize;
    const qint64 last = std::max<qint64>(visible.upper - 1, 0) / pageSize;
    if (last < first)
        return std::nullopt;
    return std::pair{first, last};
}

} // namespace

DataPageCache::DataPageCache(qint64 pageSize, qsizetype capacity, DataViewKey view)
    : m_pageSize(std::max<qint64>(pageSize, 1)), m_capacity(std::max<qsizetype>(capacity, 1)),
      m_view(std::move(view))
{
}

void DataPageCache::setCapacity(qsizetype capacity)
{
    m_capacity = std::max<qsizetype>(capacity, 1);
    evict(nullptr);
}

DataRowRange DataPageCache::pages(DataRowRange rows) const
{
    if (rows.isEmpty())
        return {};
    return {std::max<qint64>(rows.lower, 0) / m_pageSize,
            std::max<qint64>(rows.upper - 1, 0) / m_pageSize + 1};
}

QList<qint64> DataPageCache::cachedPages() const
{
    QList<qint64> out;
    out.reserve(qsizetype(m_pages.size()));
    for (const auto &entry : m_pages)
        out.append(entry.first);
    return out;
}

QList<qint64> DataPageCache::pendingPages() const
{
    return QList<qint64>(m_pending.begin(), m_pending.end());
}

bool DataPageCache::isFresh(qint64 page) const
{
    const auto it = m_pages.find(page);
    return it != m_pages.end() && !it->second.stale;
}

const DataPageCache::Page *DataPageCache::pageFor(qint64 row, qint64 *place) const
{
    if (row < 0)
        return nullptr;
    const qint64 number = page(row);
    const auto it = m_pages.find(number);
    if (it == m_pages.end())
        return nullptr;
    *place = row - number * m_pageSize;
    return &it->second;
}

CellState DataPageCache::cell(qint64 row, qsizetype column) const
{
    qint64 place = 0;
    const Page *page = column < 0 ? nullptr : pageFor(row, &place);
    if (!page)
        return CellState::loading();
    if (place >= page->rows.size() || column >= page->cells.size())
        return page->stale ? CellState::loading() : CellState::value(QString());
    const std::optional<QString> &value = page->cells[column][place];
    return value ? CellState::value(*value) : CellState::na();
}

std::optional<qint64> DataPageCache::rowNumber(qint64 row) const
{
    qint64 place = 0;
    const Page *page = pageFor(row, &place);
    if (!page || place >= page->rows.size())
        return std::nullopt;
    return page->rows[place];
}

std::optional<QString> DataPageCache::rowName(qint64 row) const
{
    qint64 place = 0;
    const Page *page = pageFor(row, &place);
    if (!page || !page->rowNames || place >= page->rowNames->size())
        return std::nullopt;
    return page->rowNames->at(place);
}

void DataPageCache::touch(DataRowRange visibleRows)
{
    const DataRowRange range = pages(visibleRows);
    for (auto it = m_pages.lower_bound(range.lower); it != m_pages.end() && it->first < range.upper; ++it)
        it->second.lastUse = ++m_clock;
}

QList<qint64> DataPageCache::missingPages(DataRowRange visibleRows, qint64 totalRows,
                                          DataScrollDirection direction) const
{
    const auto visible = visiblePages(visibleRows, totalRows, m_pageSize);
    if (!visible)
        return {};
    const auto [first, last] = *visible;
    QList<qint64> order;
    order.reserve(last - first + 2);
    if (direction == DataScrollDirection::Forward) {
        for (qint64 p = first; p <= last; ++p)
            order.append(p);
        if (const qint64 next = last + 1; next * m_pageSize < totalRows)
            order.append(next);
    } else {
        for (qint64 p = last; p >= first; --p)
            order.append(p);
        if (const qint64 previous = first - 1; previous >= 0 && previous * m_pageSize < totalRows)
            order.append(previous);
    }
    QList<qint64> out;
    for (qint64 p : std::as_const(order)) {
        // A stale page is shown until its replacement comes, but it is asked for again.
        if (isFresh(p) || m_pending.count(p) || m_failed.count(p))
            continue;
        out.append(p);
    }
    return out;
}

std::optional<DataPageRequest> DataPageCache::nextRequest(DataRowRange visibleRows, qint64 totalRows,
                                                          DataScrollDirection direction, qint64 maxPages)
{
    const QList<qint64> missing = missingPages(visibleRows, totalRows, direction);
    if (missing.isEmpty())
        return std::nullopt;
    const auto visible = visiblePages(visibleRows, totalRows, m_pageSize);
    auto isVisible = [&](qint64 p) { return visible && p >= visible->first && p <= visible->second; };
    qint64 first = missing.first();
    qint64 end = first + 1;
    // A prefetch page goes alone; visible pages join into one contiguous run.
    if (isVisible(first)) {
        for (qsizetype i = 1; i < missing.size(); ++i) {
            const qint64 p = missing[i];
            if (!isVisible(p))
                continue;
            if (end - first >= maxPages)
                break;
            if (p == end)
                ++end;
            else if (p == first - 1)
                --first;
            else
                break;
        }
    }
    return request({first, end});
}

DataPageRequest DataPageCache::request(DataRowRange pages)
{
    for (qint64 p = pages.lower; p < pages.upper; ++p)
        m_pending.insert(p);
    return {DataQuery(pages.lower * m_pageSize, pages.count() * m_pageSize, m_view), pages, m_generation};
}

bool DataPageCache::isCurrent(const DataPageRequest &request) const
{
    return request.generation == m_generation && request.query.view() == m_view;
}

std::optional<DataRowRange> DataPageCache::receive(const DataPage &page, const DataPageRequest &request)
{
    if (!isCurrent(request))
        return std::nullopt;
    const qint64 first = request.pages.lower;
    const qint64 rowCount = page.rows.size();
    for (qint64 p = request.pages.lower; p < request.pages.upper; ++p) {
        m_pending.erase(p);
        m_failed.erase(p);
        const qint64 start = std::min(p * m_pageSize - first * m_pageSize, rowCount);
        const qint64 end = std::min(start + m_pageSize, rowCount);
        Page slice;
        slice.rows = page.rows.mid(start, end - start);
        if (page.rowNames)
            slice.rowNames = page.rowNames->mid(start, end - start);
        slice.cells.reserve(page.cells.size());
        for (const auto &column : page.cells)
            slice.cells.append(column.mid(start, end - start));
        slice.lastUse = ++m_clock;
        m_pages[p] = std::move(slice);
    }
    evict(&request.pages);
    return DataRowRange{first * m_pageSize, request.pages.upper * m_pageSize};
}

void DataPageCache::evict(const DataRowRange *keep)
{
    // One answer is never evicted in part, even when it alone passes the bound.
    while (qsizetype(m_pages.size()) > m_capacity) {
        auto oldest = m_pages.end();
        for (auto it = m_pages.begin(); it != m_pages.end(); ++it) {
            if (keep && keep->contains(it->first))
                continue;
            if (oldest == m_pages.end() || it->second.lastUse < oldest->second.lastUse)
                oldest = it;
        }
        if (oldest == m_pages.end())
            return;
        m_pages.erase(oldest);
    }
}

void DataPageCache::fail(const DataPageRequest &request)
{
    if (!isCurrent(request))
        return;
    for (qint64 p = request.pages.lower; p < request.pages.upper; ++p) {
        m_pending.erase(p);
        m_failed.insert(p);
    }
}

void DataPageCache::cancel(const DataPageRequest &request)
{
    if (!isCurrent(request))
        return;
    for (qint64 p = request.pages.lower; p < request.pages.upper; ++p)
        m_pending.erase(p);
}

bool DataPageCache::setView(const DataViewKey &view)
{
    if (view == m_view)
        return false;
    m_view = view;
    ++m_generation;
    m_pages.clear();
    m_pending.clear();
    m_failed.clear();
    return true;
}

void DataPageCache::reset(bool keepingStaleValues)
{
    ++m_generation;
    m_pending.clear();
    m_failed.clear();
    if (!keepingStaleValues) {
        m_pages.clear();
        return;
    }
    for (auto &entry : m_pages)
        entry.second.stale = true;
}

void DataPageCache::removeStalePages()
{
    std::erase_if(m_pages, [](const auto &entry) { return entry.second.stale; });
}
