// The key that ties per-project files (history, sessions) to a project folder.
#pragma once

#include <QString>

#include <optional>

namespace SessionFiles {

inline const QString noProjectKey = QStringLiteral("no-project");

// The folder's name made safe for a file name, "-", and a hash of its standardised path, so two
// folders of one name get two keys.
QString key(const std::optional<QString> &projectPath);

} // namespace SessionFiles
