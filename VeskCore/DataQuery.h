// One request for rows of a frame: where they start in the view's order, how many, and the view.
// It writes itself as the kernel call or as the arguments of the session's `data` request.
#pragma once

#include "DataRowRange.h"
#include "DataViewKey.h"
#include "RArgument.h"

#include <QList>
#include <QString>

#include <optional>
#include <utility>

class DataQuery {
public:
    DataQuery() = default;
    DataQuery(qint64 offset, qint64 limit, std::optional<qsizetype> sort, bool descending, QString filter);
    DataQuery(qint64 offset, qint64 limit, const DataViewKey &view);

    qint64 offset() const { return m_offset; }
    qint64 limit() const { return m_limit; }
    const std::optional<qsizetype> &sort() const { return m_sort; }
    bool descending() const { return m_descending; }
    const QString &filter() const { return m_filter; }

    // offset ..< offset + max(limit, 0).
    DataRowRange rows() const;
    DataViewKey view() const;

    // The `sort` argument: the column 1-based, or NULL.
    RArgument sortArgument() const;
    // offset, limit, sort, desc and filter, in the order the kernel takes them.
    QList<std::pair<QString, RArgument>> namedArguments() const;
    // .vesk$data(<id>, <expression>, offset = ..., limit = ..., sort = ..., desc = ..., filter = ...)
    QString rCall(const QString &id, const QString &expression) const;
    // .vesk$profile(<id>, <expression>)
    static QString profileCall(const QString &id, const QString &expression);

    bool operator==(const DataQuery &) const = default;

private:
    qint64 m_offset = 0;
    qint64 m_limit = 0;
    std::optional<qsizetype> m_sort;
    bool m_descending = false;
    QString m_filter;
};
