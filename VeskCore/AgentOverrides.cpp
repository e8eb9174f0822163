#include "AgentOverrides.h"

AgentOverrides::Entry AgentOverrides::entry(const QString &agentID) const
{
    const auto found = entries.find(agentID);
    return found == entries.end() ? Entry{} : found->second;
}

QByteArray AgentOverrides::encode() const
{
    JSONValue::Object agents;
    for (const auto &[id, entry] : entries)
        agents.emplace(
            id, JSONValue{{QStringLiteral("model"), entry.model}, {QStringLiteral("effort"), entry.effort}});
    return JSONValue{{QStringLiteral("entries"), std::move(agents)}}.serialized();
}

Result<AgentOverrides> AgentOverrides::decode(QByteArrayView json)
{
    JSONValue::ParseError error;
    const std::optional<JSONValue> document = JSONValue::parse(json, &error);
    if (!document)
        return Failure{error.message};
    const JSONValue::Object *agents = (*document)[u"entries"].objectValue();
    if (!agents)
        return Failure{QStringLiteral("agent overrides have no \"entries\" object")};
    AgentOverrides overrides;
    for (const auto &[id, value] : *agents) {
        const std::optional<QString> model = value[u"model"].stringValue();
        const std::optional<QString> effort = value[u"effort"].stringValue();
        if (!model || !effort)
            return Failure{QStringLiteral("the overrides of agent \"%1\" lack a model or an effort").arg(id)};
        overrides.entries[id] = {*model, *effort};
    }
    return overrides;
}
