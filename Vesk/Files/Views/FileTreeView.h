// The project's files as a tree beside the editor: double-click opens a file by its route, and the
// context menu makes new files and folders, renames and moves to the trash.
#pragma once

#include <QWidget>

#include <functional>
#include <optional>

class FileTreeModel;
class QLabel;
class QModelIndex;
class QTreeView;
class Workspace;

class FileTreeView : public QWidget {
    Q_OBJECT
public:
    explicit FileTreeView(Workspace &workspace, QWidget *parent = nullptr);

    QTreeView *tree() const { return m_tree; }

    // Asks for a name: prompt, proposed text; nothing when cancelled. A view test answers instead.
    std::function<std::optional<QString>(const QString &prompt, const QString &proposed)> askName;
    // Shows why a name was refused.
    std::function<void(const QString &message)> showRefusal;

    void newFile();
    void newFolder();
    void renameSelected();
    void trashSelected();
    void openSelected(bool asText = false);

private:
    QString selectedPath() const;
    QString targetFolder() const;
    // Prompts until the operation takes the name or the user cancels.
    void promptUntilAccepted(const QString &prompt, const QString &proposed,
                             const std::function<std::optional<QString>(const QString &)> &attempt);
    void updateRoot();
    void showMenu(const QPoint &position);

    Workspace &m_workspace;
    FileTreeModel &m_files;
    QTreeView *m_tree = nullptr;
    QLabel *m_placeholder = nullptr;
};
