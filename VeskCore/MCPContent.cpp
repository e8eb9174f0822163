#include "MCPContent.h"

JSONValue MCPContent::json() const
{
    if (const QString *t = textValue())
        return JSONValue{{QStringLiteral("type"), "text"}, {QStringLiteral("text"), *t}};
    const Image &i = *imageValue();
    return JSONValue{{QStringLiteral("type"), "image"},
                     {QStringLiteral("data"), QString::fromLatin1(i.data.toBase64())},
                     {QStringLiteral("mimeType"), i.mimeType}};
}
