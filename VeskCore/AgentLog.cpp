#include "AgentLog.h"

Q_LOGGING_CATEGORY(vsAgents, "vesk.agents")
