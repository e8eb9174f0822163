// Runs a short outside command to completion and hands back what it printed.
#pragma once

#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace CommandOutput {

// `arguments` starts with the executable. Standard input is empty. Returns standard output as text
// (whatever the exit status), or nothing when the command could not be run or overran `timeout`,
// in which case it is killed. Blocking: call it off the main thread.
std::optional<QString> run(const QStringList &arguments, const std::optional<QStringList> &environment,
                           std::chrono::milliseconds timeout);

} // namespace CommandOutput
