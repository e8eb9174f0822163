#include "MCPToolResult.h"

JSONValue MCPToolResult::json() const
{
    JSONValue::Array items;
    items.reserve(content.size());
    for (const MCPContent &c : content)
        items.append(c.json());
    return JSONValue{{QStringLiteral("content"), std::move(items)}, {QStringLiteral("isError"), isError}};
}
