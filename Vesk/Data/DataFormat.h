// The one place the data viewer turns values into short text: numbers to a count of significant
// digits, counts with grouped digits, shares of a whole, one-line cell text and tab-separated rows.
// Pure functions; only singleLine runs per visible cell, the rest for the inspector and copies.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace DataFormat {

// NaN, Inf and -Inf by name; otherwise `significantDigits` digits, never rounding the integer part,
// in scientific form from 1e15 up and below 0.0001, with trailing zeros dropped.
QString number(double value, int significantDigits);
// Digits grouped in threes by a narrow no-break space from five digits on.
QString count(qint64 value);
// `part` of `whole` as a percentage; exact zero and exact all are never shown as "<" or ">".
QString percent(qint64 part, qint64 whole);
// The text unchanged when short and clean; else tabs and line breaks become spaces and the text is
// cut to `limit` characters with an ellipsis.
QString singleLine(const QString &text, qsizetype limit);
// Header first, one line a row, cells by tab, no final line feed; tabs and line breaks inside a
// cell become spaces and an absent value is NA.
QString tsv(const QStringList &header, const QList<QList<std::optional<QString>>> &rows);

} // namespace DataFormat
