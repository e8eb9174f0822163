// An agent: a named persona with its part of the system prompt, its rights in the user's session,
// suggested questions and an optional model and effort. Five are built in; a hidden one serves the
// inline assist. Stored conversations keep the profile in its JSON form.
#pragma once

#include "JSONValue.h"
#include "Result.h"

#include <QFlags>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// What an agent may do in the user's session; stored as "runCode", "editScripts",
// "installPackages" and "web".
enum class AgentCapability { RunCode = 0x1, EditScripts = 0x2, InstallPackages = 0x4, Web = 0x8 };
Q_DECLARE_FLAGS(AgentCapabilities, AgentCapability)
Q_DECLARE_OPERATORS_FOR_FLAGS(AgentCapabilities)

QString agentCapabilityName(AgentCapability capability);
std::optional<AgentCapability> agentCapabilityNamed(QStringView name);

// The agent settings the prompt and the model choice depend on, read by the caller.
struct AgentPreferences {
    QString language = QStringLiteral("auto"); // agentLanguage
    QString instructions;                      // agentInstructions
    QString model;                             // agentModel
    QString effort;                            // agentEffort
};

struct AgentProfile {
    QString id;
    QString name;
    QString symbol;
    QString tagline;
    QString instructions;
    std::optional<QString> model;
    std::optional<QString> effort;
    AgentCapabilities capabilities;
    QStringList starters;
    bool isBuiltIn = false;

    // The Analyst, the Tutor, the Plot Designer, the Reviewer and the Reporter, in that order.
    static const QList<AgentProfile> &builtIn();
    // The inline assist's profile ("inline"): not among the built-in agents, never stored.
    static const AgentProfile &inlineAssist();

    // The settings' additions to every agent's prompt: empty, or "\n\n" before the pieces.
    static QString extraInstructions(const AgentPreferences &preferences);
    // The whole system prompt of a launch.
    QString systemPrompt(const QString &extraInstructions) const;

    JSONValue toJSON() const;
    static Result<AgentProfile> fromJSON(const JSONValue &json);

    bool operator==(const AgentProfile &) const = default;
};
