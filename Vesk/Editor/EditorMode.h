// What an editor session serves: a script, the console input, or a read-only snippet.
#pragma once

#include <cstdint>

enum class EditorMode : std::uint8_t { document, console, display };
