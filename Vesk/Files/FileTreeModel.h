// The project folder as a tree that follows changes on disk, and the file operations of the
// project's file tree: new file, new folder, rename and move to trash. Names are checked by
// FileNameRules; a refused operation gives the message to show and changes nothing.
#pragma once

#include <QFileSystemModel>
#include <QObject>
#include <QStringList>

#include <optional>

class FileTreeModel : public QObject {
    Q_OBJECT
public:
    explicit FileTreeModel(QObject *parent = nullptr);

    // The tree a view shows; the folder's entries load as the view asks for them.
    QFileSystemModel *model() { return &m_model; }
    const std::optional<QString> &rootPath() const { return m_rootPath; }
    void setRootPath(const std::optional<QString> &path);
    // The index of the project folder in `model()`, the root a view shows.
    QModelIndex rootIndex() const;

    // The names in `folder`, what the name checks compare against.
    static QStringList entryNames(const QString &folder);
    // A free name for a new item in `folder`: "untitled.R", "untitled 2.R", ...
    static QString suggestedName(const QString &folder, const QString &base,
                                 const std::optional<QString> &extension);

    // Each gives the message that refused it, or nothing; `created` receives the new path.
    std::optional<QString> createFile(const QString &folder, const QString &name, QString *created = nullptr);
    std::optional<QString> createFolder(const QString &folder, const QString &name,
                                        QString *created = nullptr);
    std::optional<QString> rename(const QString &path, const QString &name, QString *renamed = nullptr);
    std::optional<QString> moveToTrash(const QString &path);

signals:
    void rootChanged();
    // A file or folder renamed here: open documents follow it.
    void fileMoved(const QString &from, const QString &to);
    // Something went to the trash: open documents check their files.
    void trashed(const QString &path);

private:
    QFileSystemModel m_model;
    std::optional<QString> m_rootPath;
};
