#include "RecentProjects.h"

#include "Settings.h"

#include <algorithm>

namespace RecentProjects {

QStringList adding(const QString &item, QStringList list, int limit)
{
    list.removeAll(item);
    list.prepend(item);
    const qsizetype keep = std::max(0, limit);
    if (list.size() > keep)
        list.resize(keep);
    return list;
}

void add(Settings &settings, const QString &path)
{
    settings.setValue(Settings::recentProjects, adding(path, all(settings), limit));
}

QStringList all(const Settings &settings)
{
    return settings.stringListValue(Settings::recentProjects);
}

void clear(Settings &settings)
{
    settings.setValue(Settings::recentProjects, QStringList());
}

} // namespace RecentProjects
