// The agent settings as the pure agent code takes them: the four preferences the prompt and the
// model choice read, and the per-agent overrides stored as JSON.
#pragma once

#include "AgentOverrides.h"
#include "AgentProfile.h"

class Settings;

namespace AgentSettings {

AgentPreferences preferences(const Settings &settings);

// An absent or unreadable setting gives no overrides.
AgentOverrides loadOverrides(const Settings &settings);
void saveOverrides(Settings &settings, const AgentOverrides &overrides);

} // namespace AgentSettings
