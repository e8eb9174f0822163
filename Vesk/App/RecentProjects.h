// The list of recently opened project folders, newest first, under the setting "recentProjects".
#pragma once

#include <QStringList>

class Settings;

namespace RecentProjects {

inline constexpr int limit = 10;

// `item` moved to the front, any equal entry removed, cut to `limit` (a negative limit counts as 0).
QStringList adding(const QString &item, QStringList list, int limit);
void add(Settings &settings, const QString &path);
QStringList all(const Settings &settings);
void clear(Settings &settings);

} // namespace RecentProjects
