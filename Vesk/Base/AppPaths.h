// Where the application finds what travels with it.
#pragma once

#include <QString>

namespace AppPaths {

// Resources/kernel.R beside the executable, in the build tree or in an installed prefix;
// an empty string when none is there.
QString kernelScript();

} // namespace AppPaths
