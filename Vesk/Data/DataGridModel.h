// The state behind one open data view: the page cache, the fetches in flight, the sort, the filter,
// the column profiles and copying. It never holds the frame and never talks to R itself: it is given
// the two fetches, so tests drive it with or without a session. Main thread only.
#pragma once

#include "ColumnProfile.h"
#include "DataPageCache.h"
#include "RArgument.h"

#include <QAbstractTableModel>
#include <QTimer>

#include <functional>
#include <map>
#include <optional>

class DataGridModel : public QAbstractTableModel {
    Q_OBJECT
public:
    using PageCompletion = std::function<void(Result<DataPage>)>;
    using PageFetch = std::function<void(const DataQuery &query, PageCompletion done)>;
    using ProfileCompletion = std::function<void(Result<QList<ColumnProfile>>)>;
    using ProfileFetch = std::function<void(ProfileCompletion done)>;
    // A named kernel request and its JSON answer; the session's request, adapted by its owner.
    using KernelCompletion = std::function<void(Result<JSONValue>)>;
    using KernelRequest =
        std::function<void(const QString &name, const QList<RArgument> &args,
                           const QList<std::pair<QString, RArgument>> &named, KernelCompletion done)>;

    enum Role {
        CellKindRole = Qt::UserRole + 1, // CellState::Kind of a cell, as an int
        KindLabelRole,                   // header: the column's short kind label
        SortRole,                        // header: 0 none, 1 ascending, 2 descending
        SparklineRole,                   // header: QList<double> bar heights in 0...1
    };

    static constexpr int fetchLimit = 2;
    static constexpr qint64 pagesPerFetch = 3;
    static constexpr int filterDelayMs = 250;
    static constexpr qsizetype cellBudget = 1500000;
    static constexpr qsizetype displayLimit = 500;
    // A copy fetches at most this many pages at once.
    static constexpr qint64 copyRunPages = 25;

    DataGridModel(QString title, PageFetch fetch, ProfileFetch profiles, QObject *parent = nullptr);
    // The fetches of the kernel's `data` and `profile` requests for an R expression.
    static DataGridModel *forExpression(const QString &expr, const QString &title, KernelRequest request,
                                        QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

    const QString &title() const { return m_title; }
    const QList<DataColumnInfo> &columns() const { return m_columns; }
    const QList<ColumnProfile> &profiles() const { return m_profiles; }
    qint64 totalRows() const { return m_totalRows; }
    qint64 filteredRows() const { return m_filteredRows; }
    std::optional<qsizetype> sortColumn() const { return m_sortColumn; }
    bool sortDescending() const { return m_sortDescending; }
    const QString &filter() const { return m_filter; }
    const QString &appliedFilter() const { return m_appliedFilter; }
    const std::optional<QString> &error() const { return m_error; }
    bool isLoading() const { return !m_inFlight.empty(); }
    bool hasLoaded() const { return m_hasLoaded; }
    bool hasRowNames() const { return m_hasRowNames; }
    std::optional<qsizetype> selectedColumn() const { return m_selectedColumn; }
    const DataPageCache &cache() const { return m_cache; }
    CellState cell(qint64 row, qsizetype column) const { return m_cache.cell(row, column); }

    // What the grid says over its rows when it has none to show (or an error); empty otherwise.
    QString message() const;
    std::optional<QString> rowLabel(qint64 row) const;
    // The profile of a column, only while it still describes a column of that name.
    std::optional<ColumnProfile> profile(qsizetype column) const;

    // The rows on screen (empty when none); fetches what they lack.
    void setVisibleRows(DataRowRange rows);
    // The header click: ascending, descending, none.
    void cycleSort(qsizetype column);
    void setSort(std::optional<qsizetype> column, bool descending);
    // Applied after a pause, so typing does not ask R for every key.
    void setFilter(const QString &text);
    void setSelectedColumn(std::optional<qsizetype> column);
    // The object may have changed in R: asks again, keeping the old cells on screen until the new
    // pages come. The first call starts the model.
    void reload();

    // Rows × columns (both ascending) as tab-separated text with the column names first, and the
    // row names when the frame has them; fetches rows that are not cached. Fails when the view
    // changes meanwhile, so a copy never mixes arrangements.
    void tsv(QList<qint64> rows, QList<qsizetype> columns, std::function<void(Result<QString>)> done);

signals:
    void messageChanged();
    void profilesChanged();
    void selectedColumnChanged();
    // Sort or filter changed: the view clears its selection and goes to the top.
    void viewReset();

private:
    struct Fetch {
        DataPageRequest request;
    };

    void schedule();
    void start(const DataPageRequest &request);
    void finish(quint64 id, const DataPageRequest &request, Result<DataPage> result);
    void apply(const DataPage &page, const DataPageRequest &request);
    void applyView();
    void cancelRequests();
    void fetchProfiles();
    void sortChanged();
    void setError(std::optional<QString> error);

    QString m_title;
    PageFetch m_fetch;
    ProfileFetch m_fetchProfiles;
    QList<DataColumnInfo> m_columns;
    QList<ColumnProfile> m_profiles;
    qint64 m_totalRows = 0;
    qint64 m_filteredRows = 0;
    std::optional<qsizetype> m_sortColumn;
    bool m_sortDescending = false;
    QString m_filter;
    QString m_appliedFilter;
    std::optional<qsizetype> m_selectedColumn;
    std::optional<QString> m_error;
    bool m_hasLoaded = false;
    bool m_hasRowNames = false;
    bool m_started = false;
    bool m_viewUpdatePending = false;
    DataPageCache m_cache;
    std::map<quint64, Fetch> m_inFlight;
    quint64 m_requestCounter = 0;
    DataRowRange m_visibleRows;
    DataScrollDirection m_direction = DataScrollDirection::Forward;
    QTimer m_filterTimer;
    quint64 m_profileGeneration = 0;
    // Raised by every view change and reload; a copy that sees it move gives up.
    quint64 m_copyGeneration = 0;
};
