// Why the tool server could not start listening, or stopped under a caller that was starting it.
#pragma once

#include <QString>

struct MCPServerError {
    enum class Kind { ListenFailed, AlreadyStarting, Stopped };

    Kind kind = Kind::Stopped;
    QString detail; // the system's reason, for ListenFailed

    static MCPServerError listenFailed(const QString &detail) { return {Kind::ListenFailed, detail}; }
    static MCPServerError alreadyStarting() { return {Kind::AlreadyStarting, {}}; }
    static MCPServerError stopped() { return {Kind::Stopped, {}}; }

    QString description() const;

    bool operator==(const MCPServerError &) const = default;
};
