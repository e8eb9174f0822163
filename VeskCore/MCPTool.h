// One tool of the MCP server: what tools/list shows of it, and the handler that runs a call.
#pragma once

#include "JSONValue.h"
#include "MCPRequestContext.h"
#include "MCPToolResult.h"

#include <QString>

#include <functional>
#include <optional>
#include <stop_token>

struct MCPTool {
    using Completion = std::function<void(MCPToolResult)>;
    // Runs on a server thread and must not block: long work goes elsewhere (the main thread, a
    // worker) and ends by calling `done` exactly once, from any thread. `cancelled` fires when the
    // client cancels the call, goes away, or the session or server ends; the handler should then
    // finish soon.
    using Handler = std::function<void(const JSONValue &arguments, const MCPRequestContext &context,
                                       std::stop_token cancelled, Completion done)>;

    QString name;
    std::optional<QString> title;
    QString description;
    JSONValue inputSchema;
    std::optional<JSONValue> annotations;
    Handler handler;
};
