// One column of a frame as the kernel describes it: its name and R's class word. A change of
// either makes a new column set.
#pragma once

#include "DataColumnKind.h"
#include "JSONValue.h"

#include <QList>
#include <QString>

#include <optional>

struct DataColumnInfo {
    QString name;
    QString type;

    DataColumnKind kind() const { return DataColumnKind(type); }

    // Each field is read alone: a missing or unreadable name is empty, a missing type "unknown".
    static DataColumnInfo fromJSON(const JSONValue &value);
    // Where a remembered column is among new columns: the same index if it still has that name,
    // else the first column of that name; none when the name is gone.
    static std::optional<qsizetype> remap(std::optional<qsizetype> index, const QList<DataColumnInfo> &from,
                                          const QList<DataColumnInfo> &to);

    bool operator==(const DataColumnInfo &) const = default;
};
