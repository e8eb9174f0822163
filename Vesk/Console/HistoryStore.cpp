#include "HistoryStore.h"

#include "Base/SessionFiles.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <cmath>

namespace {

// Dates are seconds since the first instant of 2001 (UTC), as the history files have always held them.
QDateTime referenceDate()
{
    return QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
}

QDateTime dateFromJSON(const QJsonValue &value)
{
    // Beyond some thousands of years a number is no date; it must not overflow either.
    if (value.isDouble() && std::abs(value.toDouble()) < 1e11)
        return referenceDate().addMSecs(qint64(value.toDouble() * 1000.0));
    if (value.isString())
        return QDateTime::fromString(value.toString(), Qt::ISODate);
    return {};
}

} // namespace

namespace HistoryStore {

QString folder()
{
    return AutosaveStore::base() + QStringLiteral("/History");
}

QString filePath(const std::optional<QString> &projectPath)
{
    return folder() + u'/' + SessionFiles::key(projectPath) + QStringLiteral(".json");
}

QList<HistoryEntry> load(const std::optional<QString> &projectPath)
{
    QFile file(filePath(projectPath));
    // A history file is small; one far beyond any real history is not read at all.
    if (!file.open(QIODevice::ReadOnly) || file.size() > 64 * 1024 * 1024)
        return {};
    const QJsonDocument document = QJsonDocument::fromJson(file.readAll());
    if (!document.isArray())
        return {};
    QList<HistoryEntry> entries;
    for (const QJsonValue &value : document.array()) {
        const QJsonObject record = value.toObject();
        const QJsonValue code = record.value(QStringLiteral("code"));
        if (!code.isString())
            continue;
        HistoryEntry entry;
        entry.id = QUuid::createUuid();
        entry.code = code.toString();
        entry.date = dateFromJSON(record.value(QStringLiteral("date")));
        const QJsonValue origin = record.value(QStringLiteral("origin"));
        if (origin.isString())
            entry.origin = origin.toString();
        entries.append(std::move(entry));
    }
    return entries;
}

void save(const QList<HistoryEntry> &entries, const std::optional<QString> &projectPath)
{
    QDir().mkpath(folder());
    QJsonArray array;
    for (const HistoryEntry &entry : entries) {
        QJsonObject record;
        record.insert(QStringLiteral("code"), entry.code);
        record.insert(QStringLiteral("date"), referenceDate().msecsTo(entry.date) / 1000.0);
        if (entry.origin)
            record.insert(QStringLiteral("origin"), *entry.origin);
        array.append(record);
    }
    QSaveFile file(filePath(projectPath));
    if (!file.open(QIODevice::WriteOnly))
        return;
    file.write(QJsonDocument(array).toJson(QJsonDocument::Compact));
    file.commit();
}

} // namespace HistoryStore
