// Tells a plain object path (`mtcars$mpg`, `stats::lm`, `x[["a"]]`) from arbitrary code, so that
// the agent tools can read an object without evaluating an expression.
#pragma once

#include <QString>

namespace RReference {

bool isPlainReference(const QString &text);

} // namespace RReference
