// One answer of the kernel's `data` request: some rows of a view of a frame, with the frame's
// columns and the cells as R formatted them (column-major; none is R's NA).
#pragma once

#include "DataColumnInfo.h"
#include "JSONValue.h"
#include "Result.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

struct DataPage {
    qint64 total = 0;    // rows before the filter
    qint64 filtered = 0; // rows after it
    qint64 offset = 0;
    QList<qint64> rows;                  // 1-based row numbers in the unsorted, unfiltered frame
    std::optional<QStringList> rowNames; // none when the frame has automatic row names
    QList<DataColumnInfo> columns;
    QList<QList<std::optional<QString>>> cells;

    qsizetype rowCount() const { return rows.size(); }

    // Decodes tolerantly and normalises: every column of `cells` has one value a row, and there are
    // as many as `columns`. Fails only for an answer that is no object or a column that is none.
    static Result<DataPage> fromJSON(const JSONValue &value);

    bool operator==(const DataPage &) const = default;
};
