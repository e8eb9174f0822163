// How one `claude` child is run: its executable, folder, prompt and options, and the command line
// they make.
#pragma once

#include "JSONValue.h"

#include <QString>
#include <QStringList>

#include <optional>

struct ClaudeCodeConfiguration {
    QString executable;
    QString workingDirectory;
    QString systemPrompt;          // passed whole on the command line
    std::optional<QString> model;  // absent or empty: not passed
    std::optional<QString> effort; // absent or empty: not passed
    std::optional<JSONValue> mcpConfig;
    QStringList allowedTools; // run without claude asking
    QStringList builtInTools; // the built-in tools left on; empty turns them all off
    std::optional<QString> resumeSessionID;
    std::optional<QString> name; // the session's name

    // The command line with the MCP configuration inline, if there is one.
    QStringList arguments() const { return arguments(std::nullopt); }
    // The command line pointing at the configuration's private file when one is given.
    QStringList arguments(const std::optional<QString> &mcpConfigFile) const;

    bool operator==(const ClaudeCodeConfiguration &) const = default;
};
