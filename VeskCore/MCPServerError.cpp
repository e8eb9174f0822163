#include "MCPServerError.h"

QString MCPServerError::description() const
{
    switch (kind) {
    case Kind::ListenFailed:
        return QStringLiteral("The MCP server could not listen: %1").arg(detail);
    case Kind::AlreadyStarting:
        return QStringLiteral("The MCP server is already starting.");
    case Kind::Stopped:
        return QStringLiteral("The MCP server was stopped.");
    }
    return {};
}
