// The objects of R's global environment with class, dimensions and size, and what the last run
// changed.
#pragma once

#include "RSessionTypes.h"

#include <QWidget>

class QLabel;
class QListWidget;
class QTreeWidget;
class QTreeWidgetItem;
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
    static void fill(QTreeWidgetItem *row, const REnvObject &object);

    Workspace &m_workspace;
    QTreeWidget *m_objects = nullptr;
    QListWidget *m_changes = nullptr;
    QLabel *m_lastRun = nullptr;
    QList<REnvObject> m_shown; // what the rows show, in their order
};
