#include "HTTPRequest.h"

#include <QStringList>

QString HTTPRequest::header(QStringView lowerCaseName) const
{
    const auto it = headers.find(lowerCaseName);
    return it == headers.end() ? QString() : it->second;
}

bool HTTPRequest::hasHeader(QStringView lowerCaseName) const
{
    return headers.find(lowerCaseName) != headers.end();
}

bool HTTPRequest::keepAlive() const
{
    if (mustClose)
        return false;
    bool close = false;
    bool keep = false;
    for (const QString &token : header(u"connection").toLower().split(u',')) {
        const QString trimmed = token.trimmed();
        close = close || trimmed == u"close";
        keep = keep || trimmed == u"keep-alive";
    }
    return version == u"HTTP/1.1" ? !close : keep;
}
