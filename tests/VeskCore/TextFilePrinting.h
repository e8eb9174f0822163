// Lets GoogleTest show the text-file value types by their stored names.
#pragma once

#include "FileTypes.h"
#include "LineEnding.h"
#include "TextFileEncoding.h"

#include <ostream>

inline void PrintTo(const TextFileEncoding &encoding, std::ostream *os)
{
    *os << encoding.rawValue().toStdString();
}
inline void PrintTo(const LineEnding &ending, std::ostream *os)
{
    *os << ending.rawValue().toStdString();
}
inline void PrintTo(FileOpenRoute route, std::ostream *os)
{
    *os << FileTypes::routeName(route).toStdString();
}
