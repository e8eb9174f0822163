// Who is calling a tool: the MCP session and the client's name as it introduced itself.
#pragma once

#include <QString>

#include <optional>

struct MCPRequestContext {
    std::optional<QString> sessionID;
    std::optional<QString> clientName;
};
