// The open tabs of a project as stored in its session file: each tab's file or untitled number,
// the autosave file that holds its unsaved text, its breakpoints and stamp, and the selected tab.
#pragma once

#include "FileStamp.h"
#include "JSONValue.h"

#include <QList>
#include <QString>

#include <optional>

struct SessionState {
    struct Tab {
        std::optional<QString> path;     // absent for an untitled document
        std::optional<QString> autosave; // the autosave file that holds unsaved text
        int untitledIndex = 0;
        std::optional<QString> suggestedName;
        std::optional<QList<int>> breakpoints; // one-based lines
        std::optional<FileStamp> stamp;        // the file as last read

        bool operator==(const Tab &) const = default;
    };

    QList<Tab> tabs;
    std::optional<int> selectedIndex;

    JSONValue toJSON() const;
    // Lenient: a tab that can't be read is skipped, a field of the wrong kind dropped. Fails only
    // when the value is no object.
    static std::optional<SessionState> fromJSON(const JSONValue &value);

    bool operator==(const SessionState &) const = default;
};
