// The version of a `claude` executable, and whether Vesk can drive it: older CLIs lack options and
// stream events the agent runtime relies on. Stateless; any thread.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

namespace ClaudeCLIVersion {

using Version = QList<int>;

inline const Version minimum = {2, 1, 76};
QString minimumText();

// The first "major.minor.patch" anywhere in the text; nothing without one.
std::optional<Version> parse(const QString &text);
QString format(const Version &version);
// At least `minimum`, compared component by component; a shorter list that ties so far is not.
bool isSupported(const Version &version);

// What `executable --version` prints, or nothing when it cannot be run or overruns `timeout`.
// Blocking: call it off the main thread.
std::optional<QString> read(const QString &executable, std::chrono::milliseconds timeout);
// The environment of that run: `inherited` with PATH led by the executable's own folder, so a
// script's interpreter installed beside it (node) is found.
QStringList readEnvironment(const QString &executable, const QStringList &inherited);

} // namespace ClaudeCLIVersion
