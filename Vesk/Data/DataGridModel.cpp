#include "DataGridModel.h"

#include "DataFormat.h"

#include <QColor>
#include <QGuiApplication>
#include <QPalette>
#include <QPointer>

#include <algorithm>
#include <limits>

DataGridModel::DataGridModel(QString title, PageFetch fetch, ProfileFetch profiles, QObject *parent)
    : QAbstractTableModel(parent), m_title(std::move(title)), m_fetch(std::move(fetch)),
      m_fetchProfiles(std::move(profiles))
{
    m_filterTimer.setSingleShot(true);
    m_filterTimer.setInterval(filterDelayMs);
    connect(&m_filterTimer, &QTimer::timeout, this, [this] {
        m_appliedFilter = m_filter;
        applyView();
    });
}

DataGridModel *DataGridModel::forExpression(const QString &expr, const QString &title, KernelRequest request,
                                            QObject *parent)
{
    PageFetch fetch = [expr, request](const DataQuery &query, PageCompletion done) {
        request(QStringLiteral("data"), {RArgument(expr)}, query.namedArguments(),
                [done = std::move(done)](Result<JSONValue> answer) {
                    if (!answer)
                        done(Failure{answer.error()});
                    else
                        done(DataPage::fromJSON(answer.value()));
                });
    };
    ProfileFetch profiles = [expr, request](ProfileCompletion done) {
        request(QStringLiteral("profile"), {RArgument(expr)}, {},
                [done = std::move(done)](Result<JSONValue> answer) {
                    if (!answer)
                        done(Failure{answer.error()});
                    else
                        done(ColumnProfile::list(answer.value()));
                });
    };
    return new DataGridModel(title, std::move(fetch), std::move(profiles), parent);
}

// ---- The table

int DataGridModel::rowCount(const QModelIndex &parent) const
{
    // A view's rows are ints; beyond that the grid shows the first two billion.
    return parent.isValid() ? 0 : int(std::min<qint64>(m_filteredRows, std::numeric_limits<int>::max()));
}

int DataGridModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_columns.size());
}

QVariant DataGridModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.column() >= m_columns.size())
        return {};
    switch (role) {
    case Qt::DisplayRole: {
        const CellState state = m_cache.cell(index.row(), index.column());
        if (state.kind == CellState::Kind::Value)
            return DataFormat::singleLine(state.text, displayLimit);
        return state.kind == CellState::Kind::NA ? QStringLiteral("NA") : QStringLiteral("…");
    }
    case Qt::ToolTipRole: {
        const CellState state = m_cache.cell(index.row(), index.column());
        if (state.kind == CellState::Kind::Value && state.text.size() > 60)
            return DataFormat::singleLine(state.text, 4000);
        return {};
    }
    case Qt::ForegroundRole:
        if (m_cache.cell(index.row(), index.column()).kind != CellState::Kind::Value)
            return QGuiApplication::palette().color(QPalette::PlaceholderText);
        return {};
    case Qt::TextAlignmentRole:
        return m_columns[index.column()].kind().isNumeric() ? int(Qt::AlignRight | Qt::AlignVCenter)
                                                            : int(Qt::AlignLeft | Qt::AlignVCenter);
    case CellKindRole:
        return int(m_cache.cell(index.row(), index.column()).kind);
    default:
        return {};
    }
}

QVariant DataGridModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation == Qt::Vertical) {
        if (role == Qt::DisplayRole)
            return rowLabel(section).value_or(QString());
        if (role == Qt::TextAlignmentRole)
            return int(Qt::AlignRight | Qt::AlignVCenter);
        return {};
    }
    if (section < 0 || section >= m_columns.size())
        return {};
    const DataColumnInfo &column = m_columns[section];
    const int sort = m_sortColumn == section ? (m_sortDescending ? 2 : 1) : 0;
    switch (role) {
    case Qt::DisplayRole: {
        const QString arrow = sort == 1 ? QStringLiteral(" ▲") : sort == 2 ? QStringLiteral(" ▼") : QString();
        return DataFormat::singleLine(column.name, 200) + arrow + u'\n' + column.kind().shortLabel();
    }
    case Qt::ToolTipRole:
        return QStringLiteral("%1 (%2)").arg(column.name, column.kind().displayName());
    case KindLabelRole:
        return column.kind().shortLabel();
    case SortRole:
        return sort;
    case SparklineRole: {
        const std::optional<ColumnProfile> columnProfile = profile(section);
        return QVariant::fromValue(columnProfile ? columnProfile->sparkline() : QList<double>());
    }
    default:
        return {};
    }
}

// ---- State

QString DataGridModel::message() const
{
    if (m_error)
        return *m_error;
    if (m_filteredRows > 0)
        return {};
    if (m_hasLoaded)
        return m_totalRows < 1 ? QStringLiteral("No rows") : QStringLiteral("No matching rows");
    return isLoading() ? QStringLiteral("Loading…") : QString();
}

std::optional<QString> DataGridModel::rowLabel(qint64 row) const
{
    if (m_hasRowNames)
        if (std::optional<QString> name = m_cache.rowName(row))
            return name;
    if (const std::optional<qint64> number = m_cache.rowNumber(row))
        return QString::number(*number);
    return std::nullopt;
}

std::optional<ColumnProfile> DataGridModel::profile(qsizetype column) const
{
    if (column < 0 || column >= m_profiles.size() || column >= m_columns.size())
        return std::nullopt;
    if (m_profiles[column].name != m_columns[column].name)
        return std::nullopt;
    return m_profiles[column];
}

void DataGridModel::setError(std::optional<QString> error)
{
    if (m_error == error)
        return;
    m_error = std::move(error);
    emit messageChanged();
}

void DataGridModel::setSelectedColumn(std::optional<qsizetype> column)
{
    if (column && (*column < 0 || *column >= m_columns.size()))
        column.reset();
    if (m_selectedColumn == column)
        return;
    m_selectedColumn = column;
    emit selectedColumnChanged();
}

// ---- Fetching

void DataGridModel::setVisibleRows(DataRowRange rows)
{
    if (rows.lower != m_visibleRows.lower)
        m_direction =
            rows.lower > m_visibleRows.lower ? DataScrollDirection::Forward : DataScrollDirection::Backward;
    m_visibleRows = rows;
    m_cache.touch(rows);
    schedule();
}

void DataGridModel::schedule()
{
    if (!m_started)
        return;
    while (m_inFlight.size() < size_t(fetchLimit)) {
        std::optional<DataPageRequest> request =
            m_cache.nextRequest(m_visibleRows, m_filteredRows, m_direction, pagesPerFetch);
        if (!request)
            return;
        start(*request);
    }
}

void DataGridModel::start(const DataPageRequest &request)
{
    const quint64 id = ++m_requestCounter;
    const bool wasLoading = isLoading();
    m_inFlight[id] = Fetch{request};
    if (!wasLoading)
        emit messageChanged();
    QPointer<DataGridModel> self(this);
    m_fetch(request.query, [self, id, request](Result<DataPage> result) {
        // The document may be gone by the time R answers.
        if (self)
            self->finish(id, request, std::move(result));
    });
}

void DataGridModel::finish(quint64 id, const DataPageRequest &request, Result<DataPage> result)
{
    // An answer to a cancelled fetch finds no entry and changes nothing.
    if (m_inFlight.erase(id) == 0)
        return;
    if (result) {
        apply(result.value(), request);
    } else if (m_cache.isCurrent(request)) {
        m_cache.fail(request);
        // The object was replaced by one with fewer columns than the sort's: its pages come unsorted
        // and the columns they bring decide again.
        if (request.query.sort() && result.error().contains(QStringLiteral("There is no column")))
            setSort(std::nullopt, false);
        else
            setError(result.error());
    }
    if (!isLoading())
        emit messageChanged();
    schedule();
}

void DataGridModel::apply(const DataPage &page, const DataPageRequest &request)
{
    if (!m_cache.isCurrent(request))
        return;
    const bool columnsChanged = page.columns != m_columns;
    if (columnsChanged) {
        beginResetModel();
        m_cache.removeAllPages();
        const QList<DataColumnInfo> old = std::exchange(m_columns, page.columns);
        if (!old.isEmpty()) {
            m_selectedColumn = DataColumnInfo::remap(m_selectedColumn, old, m_columns);
            const std::optional<qsizetype> sort = DataColumnInfo::remap(m_sortColumn, old, m_columns);
            if (sort != m_sortColumn) {
                m_sortColumn = sort;
                if (!sort)
                    m_sortDescending = false;
                // The rows in hand are of the old arrangement; the new one is asked for below.
                m_viewUpdatePending = true;
                QMetaObject::invokeMethod(
                    this, [this] { applyView(); }, Qt::QueuedConnection);
            }
        }
        m_cache.setCapacity(std::clamp<qsizetype>(
            cellBudget / (m_cache.pageSize() * std::max<qsizetype>(1, m_columns.size())), 8,
            DataPageCache::defaultCapacity));
    }
    if (page.rowCount() > 0)
        m_hasRowNames = page.rowNames.has_value();
    const qint64 oldRows = rowCount();
    m_totalRows = page.total;
    m_filteredRows = page.filtered;
    const qint64 newRows = rowCount();
    if (!columnsChanged && newRows != oldRows) {
        if (newRows > oldRows) {
            beginInsertRows({}, int(oldRows), int(newRows - 1));
            endInsertRows();
        } else {
            beginRemoveRows({}, int(newRows), int(oldRows - 1));
            endRemoveRows();
        }
    }
    const std::optional<DataRowRange> range = m_cache.receive(page, request);
    const bool firstLoad = !m_hasLoaded;
    m_hasLoaded = true;
    if (columnsChanged)
        endResetModel();
    if (m_error) {
        m_error.reset();
        emit messageChanged();
    } else if (firstLoad || newRows != oldRows) {
        emit messageChanged();
    }
    if (range && !columnsChanged && newRows > 0 && !m_columns.isEmpty()) {
        const int first = int(std::min<qint64>(range->lower, newRows - 1));
        const int last = int(std::min<qint64>(range->upper, newRows) - 1);
        if (first <= last) {
            emit dataChanged(index(first, 0), index(last, int(m_columns.size()) - 1));
            emit headerDataChanged(Qt::Vertical, first, last);
        }
    }
}

void DataGridModel::cancelRequests()
{
    for (const auto &entry : m_inFlight)
        m_cache.cancel(entry.second.request);
    const bool wasLoading = isLoading();
    m_inFlight.clear();
    if (wasLoading)
        emit messageChanged();
}

// ---- Sorting and filtering

void DataGridModel::cycleSort(qsizetype column)
{
    if (m_sortColumn != column)
        setSort(column, false);
    else if (!m_sortDescending)
        setSort(column, true);
    else
        setSort(std::nullopt, false);
}

void DataGridModel::setSort(std::optional<qsizetype> column, bool descending)
{
    if (column && (*column < 0 || *column >= m_columns.size()))
        column.reset();
    descending = descending && column;
    if (column == m_sortColumn && descending == m_sortDescending)
        return;
    m_sortColumn = column;
    m_sortDescending = descending;
    if (!m_columns.isEmpty())
        emit headerDataChanged(Qt::Horizontal, 0, int(m_columns.size()) - 1);
    // Both fields may change together (a direct sort from a menu): one view change for both.
    if (!m_viewUpdatePending) {
        m_viewUpdatePending = true;
        QMetaObject::invokeMethod(
            this, [this] { applyView(); }, Qt::QueuedConnection);
    }
}

void DataGridModel::setFilter(const QString &text)
{
    if (text == m_filter)
        return;
    m_filter = text;
    m_filterTimer.start();
}

void DataGridModel::applyView()
{
    m_viewUpdatePending = false;
    if (!m_cache.setView(DataViewKey(m_sortColumn, m_sortDescending && m_sortColumn, m_appliedFilter)))
        return;
    ++m_copyGeneration;
    cancelRequests();
    m_visibleRows = {0, m_visibleRows.count()};
    m_direction = DataScrollDirection::Forward;
    if (m_filteredRows > 0 && !m_columns.isEmpty())
        emit dataChanged(index(0, 0), index(rowCount() - 1, int(m_columns.size()) - 1));
    emit viewReset();
    schedule();
}

// ---- Reloading

void DataGridModel::reload()
{
    // A first fetch still waiting is answered after the run that sent this state (R reads requests
    // only between runs), so it is already fresh; asking again would double the first page's wait.
    if (m_started && !m_hasLoaded && isLoading())
        return;
    m_started = true;
    ++m_copyGeneration;
    cancelRequests();
    m_cache.reset(true);
    setError(std::nullopt);
    if (std::optional<DataPageRequest> request =
            m_cache.nextRequest(m_visibleRows, m_filteredRows, m_direction, pagesPerFetch))
        start(*request);
    schedule();
    fetchProfiles();
}

void DataGridModel::fetchProfiles()
{
    const quint64 generation = ++m_profileGeneration;
    QPointer<DataGridModel> self(this);
    m_fetchProfiles([self, generation](Result<QList<ColumnProfile>> result) {
        // A failed profile is dropped quietly: it is an extra, not the data.
        if (!self || generation != self->m_profileGeneration || !result)
            return;
        self->m_profiles = std::move(result).value();
        if (!self->m_columns.isEmpty())
            emit self->headerDataChanged(Qt::Horizontal, 0, int(self->m_columns.size()) - 1);
        emit self->profilesChanged();
    });
}

// ---- Copying

namespace {

struct CopyJob {
    QList<qint64> rows;
    QList<qsizetype> columns;
    std::function<void(Result<QString>)> done;
    DataPageCache side;
    QList<DataRowRange> runs;
    qsizetype next = 0;
    quint64 generation = 0;
    DataViewKey view;
};

} // namespace

void DataGridModel::tsv(QList<qint64> rows, QList<qsizetype> columns,
                        std::function<void(Result<QString>)> done)
{
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    rows.removeIf([this](qint64 row) { return row < 0 || row >= m_filteredRows; });
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    columns.removeIf([this](qsizetype column) { return column < 0 || column >= m_columns.size(); });

    auto job = std::make_shared<CopyJob>(
        CopyJob{std::move(rows),
                std::move(columns),
                std::move(done),
                DataPageCache(m_cache.pageSize(), std::numeric_limits<int>::max(), m_cache.view()),
                {},
                0,
                m_copyGeneration,
                m_cache.view()});
    // The pages the model's cache lacks, in runs of consecutive pages of bounded length.
    qint64 last = -1;
    for (qint64 row : std::as_const(job->rows)) {
        const qint64 page = m_cache.page(row);
        if (page == last || m_cache.isFresh(page))
            continue;
        last = page;
        if (!job->runs.isEmpty() && job->runs.last().upper == page &&
            page - job->runs.last().lower < copyRunPages)
            job->runs.last().upper = page + 1;
        else
            job->runs.append({page, page + 1});
    }

    // Each fetch's completion keeps the next step alive; the step itself holds it weakly, so nothing
    // is left behind when the copy ends.
    QPointer<DataGridModel> self(this);
    auto step = std::make_shared<std::function<void()>>();
    std::weak_ptr<std::function<void()>> weakStep = step;
    *step = [self, job, weakStep] {
        if (!self) {
            job->done(Failure{QStringLiteral("The data view was closed.")});
            return;
        }
        if (job->next < job->runs.size()) {
            const DataPageRequest request = job->side.request(job->runs[job->next++]);
            self->m_fetch(request.query, [self, job, next = weakStep.lock(), request](Result<DataPage> page) {
                if (!self || self->m_copyGeneration != job->generation ||
                    !(self->m_cache.view() == job->view)) {
                    job->done(Failure{QStringLiteral("The view changed while the rows were copied.")});
                    return;
                }
                if (!page) {
                    job->done(Failure{page.error()});
                    return;
                }
                job->side.receive(page.value(), request);
                (*next)();
            });
            return;
        }
        const DataPageCache &own = self->m_cache;
        QStringList header;
        if (self->m_hasRowNames)
            header.append(QString());
        for (qsizetype column : std::as_const(job->columns))
            header.append(self->m_columns[column].name);
        QList<QList<std::optional<QString>>> lines;
        lines.reserve(job->rows.size());
        for (qint64 row : std::as_const(job->rows)) {
            const DataPageCache &from = own.isFresh(own.page(row)) ? own : job->side;
            QList<std::optional<QString>> line;
            if (self->m_hasRowNames)
                line.append(from.rowName(row).value_or(QString()));
            for (qsizetype column : std::as_const(job->columns)) {
                const CellState state = from.cell(row, column);
                if (state.kind == CellState::Kind::NA)
                    line.append(std::nullopt);
                else
                    line.append(state.text);
            }
            lines.append(std::move(line));
        }
        job->done(DataFormat::tsv(header, lines));
    };
    (*step)();
}
