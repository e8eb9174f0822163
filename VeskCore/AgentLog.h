// The logging category of the agent runtime: QT_LOGGING_RULES="vesk.agents.debug=true" shows it.
#pragma once

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(vsAgents)
