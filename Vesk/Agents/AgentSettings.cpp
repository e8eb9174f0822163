#include "AgentSettings.h"

#include "AgentLog.h"
#include "Base/Settings.h"

namespace AgentSettings {

AgentPreferences preferences(const Settings &settings)
{
    return {settings.stringValue(Settings::agentLanguage), settings.stringValue(Settings::agentInstructions),
            settings.stringValue(Settings::agentModel), settings.stringValue(Settings::agentEffort)};
}

AgentOverrides loadOverrides(const Settings &settings)
{
    const QString stored = settings.stringValue(Settings::agentOverrides);
    if (stored.isEmpty())
        return {};
    Result<AgentOverrides> overrides = AgentOverrides::decode(stored.toUtf8());
    if (!overrides) {
        qCWarning(vsAgents) << "ignoring the agent overrides:" << overrides.error();
        return {};
    }
    return std::move(overrides).value();
}

void saveOverrides(Settings &settings, const AgentOverrides &overrides)
{
    settings.setValue(Settings::agentOverrides, QString::fromUtf8(overrides.encode()));
}

} // namespace AgentSettings
