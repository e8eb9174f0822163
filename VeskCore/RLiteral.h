// The one way Vesk writes R source from a path, a name or a value, so no quoting rule is told
// twice and no user text can break out of a literal.
#pragma once

#include "RArgument.h"

#include <QList>
#include <QString>

#include <utility>

namespace RLiteral {

// `text` wrapped in `quote`, with backslashes, the quote and control characters escaped.
QString quoted(const QString &text, QChar quote);
// An R string literal in double quotes.
QString string(const QString &text);
// The text itself if it is a syntactic name, else backtick-quoted.
QString name(const QString &text);
// object[["key"]], the object written as a name.
QString element(const QString &object, const QString &key);
bool isSyntacticName(const QString &text);
// name(arg, arg, key = value); an empty key gives the value alone.
QString call(const QString &name, const QList<RArgument> &args,
             const QList<std::pair<QString, RArgument>> &named = {});

// "%.17g" in the C locale; NaN, Inf and -Inf for the non-finite values.
QString doubleLiteral(double value);

} // namespace RLiteral
