#include "AgentLog.h"

// Debug lines only when asked for, since every start and exit of a claude logs one.
Q_LOGGING_CATEGORY(vsAgents, "vesk.agents", QtInfoMsg)
