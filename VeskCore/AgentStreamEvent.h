// What one line of `claude`'s stream-json output (or the process around it) means to Vesk.
#pragma once

#include "JSONValue.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <map>
#include <optional>
#include <variant>

struct AgentStreamEvent {
    struct Block {
        enum class Kind { Text, Thinking, ToolUse };
        Kind kind = Kind::Text;
        QString text; // the text or the thinking
        QString id;   // tool use only
        QString name; // tool use only
        JSONValue input;

        static Block makeText(QString text) { return {Kind::Text, std::move(text), {}, {}, {}}; }
        static Block makeThinking(QString text) { return {Kind::Thinking, std::move(text), {}, {}, {}}; }
        static Block makeToolUse(QString id, QString name, JSONValue input)
        {
            return {Kind::ToolUse, {}, std::move(id), std::move(name), std::move(input)};
        }
        bool operator==(const Block &) const = default;
    };

    struct Initialized {
        QString sessionID;
        QString model;
        std::map<QString, QString> mcpServers; // server name to status
        bool operator==(const Initialized &) const = default;
    };
    struct TextDelta {
        QString text;
        bool operator==(const TextDelta &) const = default;
    };
    struct ThinkingDelta {
        QString text;
        bool operator==(const ThinkingDelta &) const = default;
    };
    struct ToolUseStarted {
        QString id;
        QString name;
        bool operator==(const ToolUseStarted &) const = default;
    };
    struct Assistant {
        QList<Block> blocks;
        bool operator==(const Assistant &) const = default;
    };
    struct ToolResult {
        QString toolUseID;
        bool isError = false;
        QString text;
        bool operator==(const ToolResult &) const = default;
    };
    struct Result {
        bool isError = true;
        std::optional<QString> text;
        std::optional<double> costUSD;
        std::optional<qint64> durationMS;
        std::optional<QString> sessionID;
        bool operator==(const Result &) const = default;
    };
    struct Status {
        QString status;
        bool operator==(const Status &) const = default;
    };
    struct Usage {
        std::optional<double> fiveHour;
        std::optional<double> sevenDay;
        std::optional<QDateTime> fiveHourResets;
        bool operator==(const Usage &) const = default;
    };
    struct Stderr {
        QString text;
        bool operator==(const Stderr &) const = default;
    };
    struct Exited {
        qint32 status = 0;
        bool operator==(const Exited &) const = default;
    };
    struct MessageStarted {
        bool operator==(const MessageStarted &) const = default;
    };

    using Payload = std::variant<Initialized, TextDelta, ThinkingDelta, ToolUseStarted, Assistant, ToolResult,
                                 Result, Status, Usage, Stderr, Exited, MessageStarted>;
    Payload payload;

    template <typename T> const T *as() const { return std::get_if<T>(&payload); }
    bool operator==(const AgentStreamEvent &) const = default;
};
