#include "FileTreeView.h"

#include "App/Workspace.h"
#include "Documents/DocumentStore.h"
#include "Files/FileTreeModel.h"

#include <QFileInfo>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QTreeView>
#include <QVBoxLayout>

FileTreeView::FileTreeView(Workspace &workspace, QWidget *parent)
    : QWidget(parent), m_workspace(workspace), m_files(workspace.files())
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_tree = new QTreeView(this);
    m_tree->setModel(m_files.model());
    m_tree->setHeaderHidden(true);
    for (int column = 1; column < m_files.model()->columnCount(); ++column)
        m_tree->hideColumn(column);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_tree->setFrameShape(QFrame::NoFrame);
    m_tree->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_placeholder = new QLabel(QStringLiteral("No project folder.\nUse File › Open Project…"), this);
    m_placeholder->setAlignment(Qt::AlignCenter);
    m_placeholder->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(m_tree);
    layout->addWidget(m_placeholder);

    askName = [this](const QString &prompt, const QString &proposed) -> std::optional<QString> {
        bool ok = false;
        const QString text = QInputDialog::getText(this, prompt, prompt, QLineEdit::Normal, proposed, &ok);
        return ok ? std::optional<QString>(text) : std::nullopt;
    };
    showRefusal = [this](const QString &message) { QMessageBox::warning(this, QString(), message); };

    connect(m_tree, &QTreeView::doubleClicked, this, [this](const QModelIndex &index) {
        if (!m_files.model()->isDir(index))
            m_workspace.documents().open(m_files.model()->filePath(index));
    });
    connect(m_tree, &QWidget::customContextMenuRequested, this, &FileTreeView::showMenu);
    connect(&m_files, &FileTreeModel::rootChanged, this, &FileTreeView::updateRoot);
    updateRoot();
}

void FileTreeView::updateRoot()
{
    const bool hasRoot = m_files.rootPath().has_value();
    m_tree->setVisible(hasRoot);
    m_placeholder->setVisible(!hasRoot);
    if (hasRoot)
        m_tree->setRootIndex(m_files.rootIndex());
}

QString FileTreeView::selectedPath() const
{
    const QModelIndex index = m_tree->currentIndex();
    return index.isValid() ? m_files.model()->filePath(index) : QString();
}

QString FileTreeView::targetFolder() const
{
    const QModelIndex index = m_tree->currentIndex();
    if (!index.isValid())
        return m_files.rootPath().value_or(QString());
    const QString path = m_files.model()->filePath(index);
    return m_files.model()->isDir(index) ? path : QFileInfo(path).absolutePath();
}

void FileTreeView::promptUntilAccepted(const QString &prompt, const QString &proposed,
                                       const std::function<std::optional<QString>(const QString &)> &attempt)
{
    QString text = proposed;
    while (true) {
        const std::optional<QString> name = askName ? askName(prompt, text) : std::nullopt;
        if (!name)
            return;
        const std::optional<QString> problem = attempt(*name);
        if (!problem)
            return;
        if (showRefusal)
            showRefusal(*problem);
        text = *name;
    }
}

void FileTreeView::newFile()
{
    const QString folder = targetFolder();
    if (folder.isEmpty())
        return;
    promptUntilAccepted(QStringLiteral("New File"),
                        FileTreeModel::suggestedName(folder, QStringLiteral("untitled"), QStringLiteral("R")),
                        [&](const QString &name) {
                            QString created;
                            const auto problem = m_files.createFile(folder, name, &created);
                            if (!problem)
                                m_workspace.documents().open(created);
                            return problem;
                        });
}

void FileTreeView::newFolder()
{
    const QString folder = targetFolder();
    if (folder.isEmpty())
        return;
    promptUntilAccepted(QStringLiteral("New Folder"),
                        FileTreeModel::suggestedName(folder, QStringLiteral("untitled folder"), std::nullopt),
                        [&](const QString &name) { return m_files.createFolder(folder, name); });
}

void FileTreeView::renameSelected()
{
    const QString path = selectedPath();
    if (path.isEmpty())
        return;
    promptUntilAccepted(QStringLiteral("Rename"), QFileInfo(path).fileName(),
                        [&](const QString &name) { return m_files.rename(path, name); });
}

void FileTreeView::trashSelected()
{
    const QString path = selectedPath();
    if (path.isEmpty())
        return;
    if (const auto problem = m_files.moveToTrash(path); problem && showRefusal)
        showRefusal(*problem);
}

void FileTreeView::openSelected(bool asText)
{
    const QModelIndex index = m_tree->currentIndex();
    if (index.isValid() && !m_files.model()->isDir(index))
        m_workspace.documents().open(m_files.model()->filePath(index), asText);
}

void FileTreeView::showMenu(const QPoint &position)
{
    if (!m_files.rootPath())
        return;
    const QModelIndex index = m_tree->indexAt(position);
    m_tree->setCurrentIndex(index);
    const bool onFile = index.isValid() && !m_files.model()->isDir(index);
    QMenu menu(this);
    if (onFile) {
        connect(menu.addAction(QStringLiteral("Open")), &QAction::triggered, this,
                [this] { openSelected(); });
        connect(menu.addAction(QStringLiteral("Open as Text")), &QAction::triggered, this,
                [this] { openSelected(true); });
        menu.addSeparator();
    }
    connect(menu.addAction(QStringLiteral("New File…")), &QAction::triggered, this, &FileTreeView::newFile);
    connect(menu.addAction(QStringLiteral("New Folder…")), &QAction::triggered, this,
            &FileTreeView::newFolder);
    if (index.isValid()) {
        menu.addSeparator();
        connect(menu.addAction(QStringLiteral("Rename…")), &QAction::triggered, this,
                &FileTreeView::renameSelected);
        connect(menu.addAction(QStringLiteral("Move to Trash")), &QAction::triggered, this,
                &FileTreeView::trashSelected);
    }
    menu.exec(m_tree->viewport()->mapToGlobal(position));
}
