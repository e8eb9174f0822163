// One request as the tool server's HTTP parser hands it over: head fields as sent, body decoded.
#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <map>

struct HTTPRequest {
    QString method;                                  // as sent, case kept
    QString target;                                  // as sent, no decoding
    QString version;                                 // "HTTP/1.1" or "HTTP/1.0"
    std::map<QString, QString, std::less<>> headers; // names in lower case
    QByteArray body;
    bool mustClose = false; // the framing was doubtful: the connection may not be reused

    // The value of a header by its lower-case name, or an empty string.
    QString header(QStringView lowerCaseName) const;
    bool hasHeader(QStringView lowerCaseName) const;
    // Whether the connection may carry another request after this one.
    bool keepAlive() const;

    bool operator==(const HTTPRequest &) const = default;
};
