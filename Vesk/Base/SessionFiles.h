// What ties per-project files to a project folder, and the folders under the application data
// folder that hold autosaved text and the stored sessions.
#pragma once

#include "SessionState.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

namespace SessionFiles {

inline const QString noProjectKey = QStringLiteral("no-project");

// The folder's name made safe for a file name, "-", and a hash of its standardised path, so two
// folders of one name get two keys.
QString key(const std::optional<QString> &projectPath);

// "<uuid>.txt", without braces.
QString autosaveName(const QUuid &id);
// Only such names are ever deleted from the autosave folder, so a stored name can't reach elsewhere.
bool isAutosaveName(const QString &name);

} // namespace SessionFiles

// The "Autosave" and "Sessions" folders. Writes are atomic; failures are reported by the result
// only, since a lost autosave must never disturb the user.
namespace AutosaveStore {

// The application data folder ("Vesk").
QString base();
// Moves what a former data folder holds into base(), entry by entry: an entry base() has already
// stays where it was, so nothing is overwritten. The former folder goes once it is empty.
void adoptFormerFolder(const QString &former);
QString autosaves();
QString sessions();
QString conversations();

bool write(const QString &text, const QString &name);
// The autosaved text, or nothing for a missing file or a name that is no autosave name.
std::optional<QString> read(const QString &name);
void remove(const QString &name);
QStringList names();

bool writeSession(const SessionState &state, const QString &key);
// A missing or damaged file gives nothing.
std::optional<SessionState> readSession(const QString &key);

} // namespace AutosaveStore
