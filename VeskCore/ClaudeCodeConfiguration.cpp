#include "ClaudeCodeConfiguration.h"

QStringList ClaudeCodeConfiguration::arguments(const std::optional<QString> &mcpConfigFile) const
{
    // No user, project or local settings are read: the empty value after --setting-sources.
    QStringList result = {QStringLiteral("-p"),
                          QStringLiteral("--input-format"),
                          QStringLiteral("stream-json"),
                          QStringLiteral("--output-format"),
                          QStringLiteral("stream-json"),
                          QStringLiteral("--verbose"),
                          QStringLiteral("--include-partial-messages"),
                          QStringLiteral("--setting-sources"),
                          QStringLiteral(""),
                          QStringLiteral("--disable-slash-commands"),
                          QStringLiteral("--strict-mcp-config"),
                          QStringLiteral("--system-prompt"),
                          systemPrompt,
                          QStringLiteral("--tools"),
                          builtInTools.join(u',')};
    if (mcpConfigFile)
        result << QStringLiteral("--mcp-config") << *mcpConfigFile;
    else if (mcpConfig)
        result << QStringLiteral("--mcp-config") << mcpConfig->serializedString();
    if (!allowedTools.isEmpty())
        result << QStringLiteral("--allowedTools") << allowedTools.join(u',');
    if (model && !model->isEmpty())
        result << QStringLiteral("--model") << *model;
    if (effort && !effort->isEmpty())
        result << QStringLiteral("--effort") << *effort;
    // Only an absent session is left out: an empty one is still passed on.
    if (resumeSessionID)
        result << QStringLiteral("--resume") << *resumeSessionID;
    if (name)
        result << QStringLiteral("--name") << *name;
    return result;
}
