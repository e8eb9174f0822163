// The command history of a project on disk: a JSON array of entries, oldest first, in the
// "History" folder of the application data folder.
#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

struct HistoryEntry {
    QUuid id; // made fresh on load, never stored
    QString code;
    QDateTime date;
    std::optional<QString> origin;
};

namespace HistoryStore {

// The folder that holds the history files.
QString folder();
// The file of a project; without a project the "no-project" file.
QString filePath(const std::optional<QString> &projectPath);
// A missing or unreadable file gives an empty list; records that do not decode are skipped.
QList<HistoryEntry> load(const std::optional<QString> &projectPath);
// Failures are ignored: a lost history write must never disturb the user.
void save(const QList<HistoryEntry> &entries, const std::optional<QString> &projectPath);

} // namespace HistoryStore
