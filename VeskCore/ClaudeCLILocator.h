// Finds the `claude` executable. An application started from the desktop does not inherit the
// user's shell PATH, so the search tries the setting, the usual install locations, and last what a
// login shell's `command -v claude` says. Stateless; any thread.
#pragma once

#include "ToolLocator.h"

#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

namespace ClaudeCLILocator {

// What the login shell's script prints before the path it found.
inline const QString shellMarker = QStringLiteral("__vesk_claude__=");

// The fixed install locations, in the order they are tried.
QStringList candidates(const QString &home);

// The trimmed, tilde-expanded `preferred` path first, then the candidates: the first executable one.
// A preferred path that is not executable falls through silently.
std::optional<QString>
locate(const std::optional<QString> &preferred, const QString &home,
       const std::function<bool(const QString &)> &isExecutable = ToolLocator::isExecutableFile);

// The shells a lookup tries for the given value of SHELL: that shell when it is a zsh or a bash,
// then /bin/zsh and /bin/bash, each once.
QStringList loginShells(const QString &shellVariable);

// Asks each shell in turn (as a login, interactive shell) where `claude` is; each run is bounded by
// `timeout`. The first executable answer wins. Blocking: call it off the main thread.
std::optional<QString> loginShellLookup(std::chrono::milliseconds timeout, const QStringList &shells,
                                        const QString &home);
// The same for this process's SHELL and the user's home.
std::optional<QString> loginShellLookup(std::chrono::milliseconds timeout);

// The path on the last marker line of a shell's output: an alias is unwrapped and a leading "~/"
// expanded; anything that is not an absolute path gives nothing.
std::optional<QString> parseShellOutput(const QString &output, const QString &home);

} // namespace ClaudeCLILocator
