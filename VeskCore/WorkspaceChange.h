#pragma once

#include "RSessionTypes.h"

#include <QHash>
#include <QList>
#include <QLocale>
#include <QString>

#include <optional>

// What one run did to one object of the global environment: the words of a console chip.
struct WorkspaceChange {
    enum class Kind { Added, Removed, Changed };

    Kind kind = Kind::Added;
    QString name;
    std::optional<QString> detail;
    bool isData = false;

    // Added and changed objects in the order of `now`, then removed ones in the order of `before`.
    static QList<WorkspaceChange> diff(const QList<REnvObject> &before, const QList<REnvObject> &now,
                                       const QLocale &locale = QLocale());

    bool operator==(const WorkspaceChange &) const = default;

private:
    static std::optional<QString> changeDetail(const REnvObject &from, const REnvObject &to,
                                               const QLocale &locale);
    static std::optional<QString> addedDetail(const REnvObject &object, const QLocale &locale);
    static QString signedCount(qint64 n, const QString &noun);
};

size_t qHash(const WorkspaceChange &change, size_t seed = 0);
