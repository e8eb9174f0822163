#include "RecentProjects.h"

#include "Settings.h"

#include <QDir>

#include <algorithm>

namespace RecentList {

QStringList adding(const QString &item, QStringList list, int limit)
{
    list.removeAll(item);
    list.prepend(item);
    const qsizetype keep = std::max(0, limit);
    if (list.size() > keep)
        list.resize(keep);
    return list;
}

QStringList titles(const QStringList &paths)
{
    QList<QStringList> parts;
    for (const QString &path : paths)
        parts.append(QDir::cleanPath(path).split(u'/', Qt::SkipEmptyParts));
    auto titleOf = [&](qsizetype index, qsizetype depth) {
        const QStringList &components = parts[index];
        if (components.isEmpty())
            return QStringLiteral("/");
        const qsizetype shown = std::min(depth, components.size());
        QString title = components.last();
        if (shown > 1)
            title += QStringLiteral(" — ") + components.mid(components.size() - shown, shown - 1).join(u'/');
        return title;
    };
    QStringList result;
    for (qsizetype i = 0; i < paths.size(); ++i) {
        // Deepen until no other entry of the list shows the same title, or the path runs out.
        qsizetype depth = 1;
        while (depth < parts[i].size()) {
            bool clash = false;
            for (qsizetype j = 0; j < paths.size() && !clash; ++j)
                clash = j != i && parts[j] != parts[i] && titleOf(j, depth) == titleOf(i, depth);
            if (!clash)
                break;
            ++depth;
        }
        result.append(titleOf(i, depth));
    }
    return result;
}

void add(Settings &settings, const QString &key, const QString &item, int limit)
{
    settings.setValue(key, adding(item, all(settings, key), limit));
}

} // namespace RecentList
