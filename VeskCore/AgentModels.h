// The models an agent can run on, the effort levels offered, and how an agent's model and effort
// are chosen from its override, the settings and its own defaults.
#pragma once

#include "AgentOverrides.h"
#include "AgentProfile.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace AgentModels {

struct Option {
    QString id;
    QString label;
    QString shortName;
};

inline const QString defaultModel = QStringLiteral("claude-opus-5-5");

// In the order they are offered.
const QList<Option> &options();
// What `claude --effort` accepts, lowest first.
QStringList efforts();

// A known model's short name; an unknown "claude…" id as words and version digits without its
// date ("claude-opus-4-1-20250805" reads "Opus 4.1"); anything else as it is.
QString displayName(const QString &id);

struct Resolved {
    QString model;
    std::optional<QString> effort; // nothing: no "--effort" is passed
    bool operator==(const Resolved &) const = default;
};
// The agent's override first, then the settings, then the profile's own default.
Resolved resolved(const AgentProfile &profile, const AgentOverrides &overrides,
                  const AgentPreferences &preferences);

} // namespace AgentModels
