// A request the HTTP parser refuses: the status and the one-line message the connection answers with
// before it closes.
#pragma once

#include <QString>

struct HTTPParseError {
    int status = 400;
    QString message;

    bool operator==(const HTTPParseError &) const = default;
};
