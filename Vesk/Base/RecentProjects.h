// The lists of recently opened project folders ("recentProjects") and files ("recentFiles"),
// newest first.
#pragma once

#include "Settings.h"

#include <QStringList>

namespace RecentList {

// `item` moved to the front, any equal entry removed, cut to `limit` (a negative limit counts as 0).
QStringList adding(const QString &item, QStringList list, int limit);
// Menu titles: the last path component; entries that share it are told apart by the folders
// above them, as many as it takes.
QStringList titles(const QStringList &paths);

// The list stored under a settings key.
void add(Settings &settings, const QString &key, const QString &item, int limit);
inline QStringList all(const Settings &settings, const QString &key)
{
    return settings.stringListValue(key);
}
inline void clear(Settings &settings, const QString &key)
{
    settings.setValue(key, QStringList());
}

} // namespace RecentList

namespace RecentProjects {

inline constexpr int limit = 10;

inline void add(Settings &settings, const QString &path)
{
    RecentList::add(settings, Settings::recentProjects, path, limit);
}
inline QStringList all(const Settings &settings)
{
    return RecentList::all(settings, Settings::recentProjects);
}
inline void clear(Settings &settings)
{
    RecentList::clear(settings, Settings::recentProjects);
}

} // namespace RecentProjects

namespace RecentFiles {

inline constexpr int limit = 12;

inline void add(Settings &settings, const QString &path)
{
    RecentList::add(settings, Settings::recentFiles, path, limit);
}
inline QStringList all(const Settings &settings)
{
    return RecentList::all(settings, Settings::recentFiles);
}
inline void clear(Settings &settings)
{
    RecentList::clear(settings, Settings::recentFiles);
}

} // namespace RecentFiles
