// The one place that turns the data viewer's values into short text: numbers to a count of
// significant digits, counts with grouped digits, shares of a total, a cell on one line, rows as
// tab-separated text and a column's values as R source. Pure functions.
#pragma once

#include "DataColumnKind.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace DataFormat {

// 1234567.891 -> "1234568", 0.000123456 -> "0.00012346", 1e20 -> "1e+20" with 5 digits; the
// integer part is always whole.
QString number(double value, int significantDigits);
// Digits grouped in threes with a narrow no-break space from 5 digits on.
QString count(qint64 value);
// "33%", "0.5%", "<0.1%", ">99.9%"; exactly none and exactly all are never hidden behind < and >.
QString percent(qint64 part, qint64 whole);
// Tabs and line breaks as spaces, cut to `limit` characters with "…". Short clean text comes back
// untouched: this runs for every visible cell.
QString singleLine(const QString &text, int limit);
// Header and rows, cells joined by tabs and lines by line feeds, NA for an absent value.
QString tsv(const QStringList &header, const QList<QList<std::optional<QString>>> &rows);
// c(...) of the values written by the column's kind, wrapped in factor(), as.Date() or
// as.POSIXct() where the kind asks for it.
QString rVector(const QList<std::optional<QString>> &values, const DataColumnKind &kind);

} // namespace DataFormat
