// One response of the tool server, and its serialization as HTTP/1.1 bytes.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

struct HTTPResponse {
    int status = 200;
    // Content-Length and Connection are written by serialized(), never listed here.
    QList<std::pair<QString, QString>> headers;
    QByteArray body;
    bool closeConnection = false;

    // Status line, headers, Content-Length (the body's real size even without the body, as HEAD
    // needs), Connection, blank line, then the body if includeBody.
    QByteArray serialized(bool keepAlive, bool includeBody = true) const;

    static QByteArray reasonPhrase(int status);
    // The interim answer owed to a client that sent "expect: 100-continue".
    static QByteArray continueLine();

    // A plain-text response, as the connection sends for refused requests.
    static HTTPResponse plainText(int status, const QString &text);
};
