#include "SessionFiles.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>

namespace {

// Session and autosave files are small; anything far larger is damaged and not read.
constexpr qint64 sessionFileLimit = 16 * 1024 * 1024;
constexpr qint64 autosaveFileLimit = 256 * 1024 * 1024;

bool writeAtomically(const QString &folder, const QString &name, const QByteArray &bytes)
{
    if (!QDir().mkpath(folder))
        return false;
    QSaveFile file(folder + u'/' + name);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    if (file.write(bytes) != bytes.size()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

void mergeInto(const QString &from, const QString &to)
{
    if (!QDir().mkpath(to))
        return;
    const QFileInfoList entries =
        QDir(from).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo &entry : entries) {
        const QString target = to + u'/' + entry.fileName();
        const QFileInfo existing(target);
        // A rename within one parent folder: no copy, and atomic for each entry.
        if (!existing.exists() && !existing.isSymLink())
            QDir().rename(entry.filePath(), target);
        else if (entry.isDir() && !entry.isSymLink() && existing.isDir() && !existing.isSymLink())
            mergeInto(entry.filePath(), target);
    }
    QDir().rmdir(from);
}

std::optional<QByteArray> readSmall(const QString &path, qint64 limit)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() > limit)
        return std::nullopt;
    return file.readAll();
}

} // namespace

namespace SessionFiles {

QString key(const std::optional<QString> &projectPath)
{
    if (!projectPath || projectPath->isEmpty())
        return noProjectKey;
    QString path = QDir::cleanPath(*projectPath);
    if (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    const QString last = path.section(u'/', -1);
    QString name;
    for (char32_t scalar : last.toUcs4()) {
        const bool keep = QChar::isLetterOrNumber(scalar) || scalar == U'-' || scalar == U'_';
        name += keep ? QString::fromUcs4(&scalar, 1) : QStringLiteral("-");
    }
    if (name.isEmpty())
        name = QStringLiteral("project");
    quint64 hash = 0xcbf29ce484222325ULL;
    for (const char byte : path.toUtf8()) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 0x100000001b3ULL;
    }
    return name + u'-' + QString::number(hash, 16);
}

QString autosaveName(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces) + QStringLiteral(".txt");
}

bool isAutosaveName(const QString &name)
{
    if (!name.endsWith(QStringLiteral(".txt")))
        return false;
    const QString stem = name.chopped(4);
    // Only the plain 36-character form: braces or other spellings could name a different file.
    return stem.size() == 36 && !QUuid::fromString(stem).isNull();
}

} // namespace SessionFiles

namespace AutosaveStore {

QString base()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation);
}

void adoptFormerFolder(const QString &former)
{
    const QString to = base();
    if (QDir::cleanPath(former) == QDir::cleanPath(to) || !QFileInfo(former).isDir())
        return;
    mergeInto(former, to);
}

QString autosaves()
{
    return base() + QStringLiteral("/Autosave");
}

QString sessions()
{
    return base() + QStringLiteral("/Sessions");
}

QString conversations()
{
    return base() + QStringLiteral("/Conversations");
}

bool write(const QString &text, const QString &name)
{
    if (!SessionFiles::isAutosaveName(name))
        return false;
    return writeAtomically(autosaves(), name, text.toUtf8());
}

std::optional<QString> read(const QString &name)
{
    if (!SessionFiles::isAutosaveName(name))
        return std::nullopt;
    const auto bytes = readSmall(autosaves() + u'/' + name, autosaveFileLimit);
    if (!bytes)
        return std::nullopt;
    return QString::fromUtf8(*bytes);
}

void remove(const QString &name)
{
    if (SessionFiles::isAutosaveName(name))
        QFile::remove(autosaves() + u'/' + name);
}

QStringList names()
{
    QStringList result;
    const QStringList entries = QDir(autosaves()).entryList(QDir::Files);
    for (const QString &entry : entries)
        if (SessionFiles::isAutosaveName(entry))
            result.append(entry);
    return result;
}

bool writeSession(const SessionState &state, const QString &key)
{
    return writeAtomically(sessions(), key + QStringLiteral(".json"), state.toJSON().serialized());
}

std::optional<SessionState> readSession(const QString &key)
{
    const auto bytes = readSmall(sessions() + u'/' + key + QStringLiteral(".json"), sessionFileLimit);
    if (!bytes)
        return std::nullopt;
    const std::optional<JSONValue> value = JSONValue::parse(QByteArrayView(*bytes));
    if (!value)
        return std::nullopt;
    return SessionState::fromJSON(*value);
}

} // namespace AutosaveStore
