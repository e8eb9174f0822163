#include "HTTPResponse.h"

QByteArray HTTPResponse::reasonPhrase(int status)
{
    switch (status) {
    case 100:
        return "Continue";
    case 200:
        return "OK";
    case 202:
        return "Accepted";
    case 204:
        return "No Content";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 405:
        return "Method Not Allowed";
    case 413:
        return "Content Too Large";
    case 431:
        return "Request Header Fields Too Large";
    case 500:
        return "Internal Server Error";
    case 501:
        return "Not Implemented";
    case 503:
        return "Service Unavailable";
    case 505:
        return "HTTP Version Not Supported";
    default:
        return "Status " + QByteArray::number(status);
    }
}

QByteArray HTTPResponse::continueLine()
{
    return QByteArrayLiteral("HTTP/1.1 100 Continue\r\n\r\n");
}

HTTPResponse HTTPResponse::plainText(int status, const QString &text)
{
    HTTPResponse response;
    response.status = status;
    response.headers.append({QStringLiteral("Content-Type"), QStringLiteral("text/plain; charset=utf-8")});
    response.body = text.toUtf8();
    return response;
}

QByteArray HTTPResponse::serialized(bool keepAlive, bool includeBody) const
{
    QByteArray out;
    out.reserve(128 + headers.size() * 48 + (includeBody ? body.size() : 0));
    out += "HTTP/1.1 ";
    out += QByteArray::number(status);
    out += ' ';
    out += reasonPhrase(status);
    out += "\r\n";
    for (const auto &[name, value] : headers) {
        // A stray line break in a value would let it forge further headers.
        QByteArray v = value.toUtf8();
        v.removeIf([](char c) { return c == '\r' || c == '\n'; });
        out += name.toUtf8();
        out += ": ";
        out += v;
        out += "\r\n";
    }
    out += "Content-Length: ";
    out += QByteArray::number(body.size());
    out += "\r\nConnection: ";
    out += keepAlive ? "keep-alive" : "close";
    out += "\r\n\r\n";
    if (includeBody)
        out += body;
    return out;
}
