// The objects of R's global environment with class, dimensions and size, and what the last run
// changed.
#pragma once

#include <QWidget>

class QLabel;
class QListWidget;
class QTreeWidget;
class Workspace;

class WorkspacePane : public QWidget {
    Q_OBJECT
public:
    explicit WorkspacePane(Workspace &workspace, QWidget *parent = nullptr);

    QTreeWidget *objects() const { return m_objects; }
    QListWidget *changes() const { return m_changes; }

private:
    void updateObjects();
    void updateChanges();

    Workspace &m_workspace;
    QTreeWidget *m_objects = nullptr;
    QListWidget *m_changes = nullptr;
    QLabel *m_lastRun = nullptr;
};
