// The user's choice of model and effort per agent, kept as JSON in the `agentOverrides` setting.
#pragma once

#include "JSONValue.h"
#include "Result.h"

#include <QString>

#include <map>

struct AgentOverrides {
    // Either text empty when the agent's default stands.
    struct Entry {
        QString model;
        QString effort;
        bool operator==(const Entry &) const = default;
    };

    // By agent id.
    std::map<QString, Entry> entries;

    // The agent's entry, or an empty one.
    Entry entry(const QString &agentID) const;

    // {"entries":{"<id>":{"model":"…","effort":"…"}}}
    QByteArray encode() const;
    static Result<AgentOverrides> decode(QByteArrayView json);

    bool operator==(const AgentOverrides &) const = default;
};
