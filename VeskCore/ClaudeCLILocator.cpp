#include "ClaudeCLILocator.h"

#include "CommandOutput.h"

#include <QDir>

namespace ClaudeCLILocator {

namespace {

// Blanks only: a setting ending in a line break is not a path a user typed on purpose either way.
QString trimBlanks(const QString &text)
{
    qsizetype start = 0, end = text.size();
    while (start < end && (text[start] == u' ' || text[start] == u'\t'))
        ++start;
    while (end > start && (text[end - 1] == u' ' || text[end - 1] == u'\t'))
        --end;
    return text.mid(start, end - start);
}

QString expandTilde(const QString &path, const QString &home)
{
    if (path == u"~")
        return home;
    if (path.startsWith(u"~/"))
        return home + path.mid(1);
    return path;
}

QString trimmedOf(QString text, QStringView characters)
{
    while (!text.isEmpty() && characters.contains(text.front()))
        text.remove(0, 1);
    while (!text.isEmpty() && characters.contains(text.back()))
        text.chop(1);
    return text;
}

} // namespace

QStringList candidates(const QString &home)
{
    return {home + QStringLiteral("/.local/bin/claude"),
            home + QStringLiteral("/.claude/local/claude"),
            home + QStringLiteral("/.npm-global/bin/claude"),
            home + QStringLiteral("/.volta/bin/claude"),
            home + QStringLiteral("/.bun/bin/claude"),
            home + QStringLiteral("/Library/pnpm/claude"),
            home + QStringLiteral("/.local/share/pnpm/claude"),
            QStringLiteral("/opt/homebrew/bin/claude"),
            QStringLiteral("/usr/local/bin/claude")};
}

std::optional<QString> locate(const std::optional<QString> &preferred, const QString &home,
                              const std::function<bool(const QString &)> &isExecutable)
{
    QStringList paths;
    if (preferred) {
        const QString trimmed = trimBlanks(*preferred);
        if (!trimmed.isEmpty())
            paths.append(expandTilde(trimmed, home));
    }
    paths.append(candidates(home));
    for (const QString &path : paths)
        if (isExecutable(path))
            return path;
    return std::nullopt;
}

QStringList loginShells(const QString &shellVariable)
{
    QStringList shells;
    if (shellVariable.endsWith(u"/zsh") || shellVariable.endsWith(u"/bash"))
        shells.append(shellVariable);
    for (const QString &fallback : {QStringLiteral("/bin/zsh"), QStringLiteral("/bin/bash")})
        if (!shells.contains(fallback))
            shells.append(fallback);
    return shells;
}

std::optional<QString> loginShellLookup(std::chrono::milliseconds timeout, const QStringList &shells,
                                        const QString &home)
{
    const QString script = QStringLiteral("printf '\\n%1%s\\n' \"$(command -v claude)\"").arg(shellMarker);
    for (const QString &shell : shells) {
        if (!ToolLocator::isExecutableFile(shell))
            continue;
        const std::optional<QString> output =
            CommandOutput::run({shell, QStringLiteral("-lic"), script}, std::nullopt, timeout);
        if (!output || output->isEmpty())
            continue;
        const std::optional<QString> path = parseShellOutput(*output, home);
        if (path && ToolLocator::isExecutableFile(*path))
            return path;
    }
    return std::nullopt;
}

std::optional<QString> loginShellLookup(std::chrono::milliseconds timeout)
{
    return loginShellLookup(timeout, loginShells(qEnvironmentVariable("SHELL")), QDir::homePath());
}

std::optional<QString> parseShellOutput(const QString &output, const QString &home)
{
    const QStringList lines = output.split(u'\n');
    for (auto line = lines.crbegin(); line != lines.crend(); ++line) {
        const qsizetype at = line->indexOf(shellMarker);
        if (at < 0)
            continue;
        QString value = line->mid(at + shellMarker.size()).trimmed();
        if (value.startsWith(u"alias ")) {
            const qsizetype equals = value.indexOf(u'=');
            if (equals >= 0)
                value = trimmedOf(value.mid(equals + 1), u" '\"");
        }
        if (value.startsWith(u"~/"))
            value = home + value.mid(1);
        if (value.startsWith(u'/'))
            return value;
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace ClaudeCLILocator
