// A column's one-look summary as the kernel computes it (counts, range, moments, a histogram and
// the most frequent values), decoded so that no bad field loses the rest: it feeds the header's
// sparkline, the column inspector and the hover's column facts.
#pragma once

#include "DataColumnKind.h"
#include "JSONValue.h"
#include "Result.h"

#include <QList>
#include <QString>

#include <optional>
#include <variant>

// An extreme of a column: a number, or text R formatted (a date's).
struct ProfileValue {
    std::variant<double, QString> value;

    // A number with 5 significant digits; text as it is.
    QString description() const;
    std::optional<double> number() const;
    bool operator==(const ProfileValue &) const = default;
};

struct TopValue {
    QString value = QStringLiteral("NA");
    qint64 count = 0;
    bool operator==(const TopValue &) const = default;
};

struct ColumnProfile {
    QString name;
    QString type = QStringLiteral("unknown");
    qint64 n = 0;
    qint64 missing = 0;
    std::optional<qint64> unique;
    std::optional<ProfileValue> min;
    std::optional<ProfileValue> max;
    std::optional<double> mean;
    std::optional<double> median;
    std::optional<double> sd;
    QList<qint64> histogram; // bin counts over min ..< max, equal widths
    QList<TopValue> top;     // in the kernel's order

    DataColumnKind kind() const { return DataColumnKind(type); }
    // missing / n; 0 for an empty column.
    double missingFraction() const;

    // Each field alone; only a value that is no object fails.
    static Result<ColumnProfile> fromJSON(const JSONValue &value);
    // An object is one profile (the kernel's writer unboxes a single column); else an array.
    static Result<QList<ColumnProfile>> list(const JSONValue &value);

    bool operator==(const ColumnProfile &) const = default;
};
