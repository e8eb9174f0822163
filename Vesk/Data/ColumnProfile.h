// A column's one-look summary as the kernel's `profile` request computes it, decoded field by field
// so that no bad field loses the rest; and what the column inspector and the header's small chart
// make of it. The client never computes or re-buckets the statistics.
#pragma once

#include "DataColumnKind.h"
#include "JSONValue.h"
#include "Result.h"

#include <QList>
#include <QString>

#include <optional>
#include <variant>

struct ColumnProfile {
    // A number, or a date's extreme as R formatted it.
    struct Value {
        std::variant<double, QString> value;
        QString description() const;
        std::optional<double> number() const;
        bool operator==(const Value &) const = default;
    };
    struct TopValue {
        QString value = QStringLiteral("NA");
        qint64 count = 0;
        bool operator==(const TopValue &) const = default;
    };
    // One titled part of the inspector: rows of a label and its figure.
    struct Section {
        QString title;
        QList<std::pair<QString, QString>> rows;
    };

    QString name;
    QString type = QStringLiteral("unknown");
    qint64 n = 0;
    qint64 missing = 0;
    std::optional<qint64> unique;
    std::optional<Value> min;
    std::optional<Value> max;
    std::optional<double> mean;
    std::optional<double> median;
    std::optional<double> sd;
    QList<qint64> histogram;
    QList<TopValue> top;

    DataColumnKind kind() const { return DataColumnKind(type); }

    // Only the top level must be an object.
    static Result<ColumnProfile> fromJSON(const JSONValue &value);
    // An object is a list of one (R unboxes a single column); anything else must be an array.
    static Result<QList<ColumnProfile>> list(const JSONValue &value);

    // The inspector's figures below its heading: values, missing and unique; the statistics or the
    // date range; the most frequent values.
    QList<Section> inspectorSections() const;
    // The histogram's bins when it can be drawn on a finite range; empty otherwise.
    QList<qint64> drawableHistogram() const;
    // The range the histogram's bins split, widened by a half each way for a single value.
    std::pair<double, double> histogramRange() const;
    // The note under everything, or empty.
    QString note() const;
    // Bar heights in 0...1 for the column header: the histogram, else the shares of the first eight
    // most frequent values; empty when there is neither.
    QList<double> sparkline() const;
};
