// What kind of text surrounds an offset, for deciding whether typing pairs brackets and quotes.
#pragma once

#include <cstdint>

enum class TextContext : std::uint8_t { code, string, comment, notApplicable };
