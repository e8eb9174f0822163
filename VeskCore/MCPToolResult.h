// What a tool gives back. A failure is a result with isError set, worded for the model to act on,
// never a protocol error.
#pragma once

#include "JSONValue.h"
#include "MCPContent.h"

#include <QList>

struct MCPToolResult {
    QList<MCPContent> content;
    bool isError = false;

    static MCPToolResult text(const QString &text, bool isError = false)
    {
        return MCPToolResult{{MCPContent::text(text)}, isError};
    }
    static MCPToolResult error(const QString &text) { return MCPToolResult::text(text, true); }

    // {"content":[…],"isError":…}
    JSONValue json() const;

    bool operator==(const MCPToolResult &) const = default;
};
