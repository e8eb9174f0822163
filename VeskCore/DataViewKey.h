// What makes one arrangement of a frame's rows: the sorted column (0-based), its direction and the
// filter text. Normalised at construction: only a sorted key can be descending.
#pragma once

#include <QString>

#include <optional>

class DataViewKey {
public:
    DataViewKey() = default;
    DataViewKey(std::optional<qsizetype> sort, bool descending, QString filter);

    const std::optional<qsizetype> &sort() const { return m_sort; }
    bool descending() const { return m_descending; }
    const QString &filter() const { return m_filter; }

    bool operator==(const DataViewKey &) const = default;

private:
    std::optional<qsizetype> m_sort;
    bool m_descending = false;
    QString m_filter;
};
