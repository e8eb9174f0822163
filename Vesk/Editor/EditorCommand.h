// The commands an editor hands to its owner: the run commands, inline assist and the console's submit.
#pragma once

#include <cstdint>

enum class EditorCommand : std::uint8_t {
    runLineOrSelection,
    runSection,
    runAll,
    runToCursor,
    source,
    inlineAssist,
    submit,
};
