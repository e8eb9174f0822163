#include "FileTreeModel.h"

#include "FileNameRules.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

QString failure(const QString &verb, const QString &name)
{
    return QStringLiteral("“%1” couldn’t be %2.").arg(name, verb);
}

} // namespace

FileTreeModel::FileTreeModel(QObject *parent) : QObject(parent)
{
    // Hidden files (.Rhistory, .git) stay out of the tree, as in the file manager.
    m_model.setFilter(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::AllDirs);
    m_model.setReadOnly(true);
}

void FileTreeModel::setRootPath(const std::optional<QString> &path)
{
    const std::optional<QString> clean =
        path ? std::optional<QString>(QDir::cleanPath(QFileInfo(*path).absoluteFilePath())) : std::nullopt;
    if (clean == m_rootPath)
        return;
    m_rootPath = clean;
    // With no project nothing is watched.
    m_model.setRootPath(clean.value_or(QString()));
    emit rootChanged();
}

QModelIndex FileTreeModel::rootIndex() const
{
    return m_rootPath ? m_model.index(*m_rootPath) : QModelIndex();
}

QStringList FileTreeModel::entryNames(const QString &folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}

QString FileTreeModel::suggestedName(const QString &folder, const QString &base,
                                     const std::optional<QString> &extension)
{
    return FileNameRules::uniqueName(base, extension, entryNames(folder));
}

std::optional<QString> FileTreeModel::createFile(const QString &folder, const QString &name, QString *created)
{
    const QString clean = FileNameRules::cleaned(name);
    if (const auto problem = FileNameRules::problem(clean, entryNames(folder)))
        return problem;
    const QString path = QDir(folder).filePath(clean);
    QFile file(path);
    // NewOnly: a file that appeared since the check is never truncated.
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return failure(QStringLiteral("created"), clean) + u' ' + file.errorString();
    file.close();
    if (created)
        *created = path;
    return std::nullopt;
}

std::optional<QString> FileTreeModel::createFolder(const QString &folder, const QString &name,
                                                   QString *created)
{
    const QString clean = FileNameRules::cleaned(name);
    if (const auto problem = FileNameRules::problem(clean, entryNames(folder)))
        return problem;
    if (!QDir(folder).mkdir(clean))
        return failure(QStringLiteral("created"), clean);
    if (created)
        *created = QDir(folder).filePath(clean);
    return std::nullopt;
}

std::optional<QString> FileTreeModel::rename(const QString &path, const QString &name, QString *renamed)
{
    const QFileInfo info(path);
    const QString folder = info.absolutePath();
    const QString clean = FileNameRules::cleaned(name);
    if (const auto problem = FileNameRules::problem(clean, entryNames(folder), info.fileName()))
        return problem;
    const QString target = QDir(folder).filePath(clean);
    if (clean == info.fileName()) {
        if (renamed)
            *renamed = target;
        return std::nullopt;
    }
    bool ok = false;
    if (clean.compare(info.fileName(), Qt::CaseInsensitive) == 0) {
        // A change of case only: through a temporary name, for file systems that ignore case.
        const QString step = QDir(folder).filePath(
            FileNameRules::uniqueName(QStringLiteral(".vesk-rename"), std::nullopt, entryNames(folder)));
        ok = QFile::rename(path, step) && QFile::rename(step, target);
    } else {
        ok = QFile::rename(path, target);
    }
    if (!ok)
        return failure(QStringLiteral("renamed"), info.fileName());
    emit fileMoved(info.absoluteFilePath(), target);
    if (renamed)
        *renamed = target;
    return std::nullopt;
}

std::optional<QString> FileTreeModel::moveToTrash(const QString &path)
{
    if (!QFile::moveToTrash(path))
        return failure(QStringLiteral("moved to the trash"), QFileInfo(path).fileName());
    emit trashed(path);
    return std::nullopt;
}
