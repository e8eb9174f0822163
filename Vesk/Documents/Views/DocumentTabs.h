// The document tabs of a window: one tab per open item of the store, in its order, with a dirty
// mark on scripts that need saving. Closing a tab goes through the store, which asks about unsaved
// text.
#pragma once

#include <QHash>
#include <QTabWidget>
#include <QUuid>

class DataDocument;
class DocumentStore;
class EditorDocument;
class Workspace;

class DocumentTabs : public QTabWidget {
    Q_OBJECT
public:
    // Scripts open in the R editor when there is a workspace to run their code, else as plain text.
    DocumentTabs(DocumentStore &store, Workspace *workspace, QWidget *parent = nullptr);

    // The widget of an open item's tab.
    QWidget *page(const QUuid &id) const { return m_pages.value(id); }
    // The editor view inside a script's tab.
    QWidget *editorView(const QUuid &id) const;

    static QString tabTitle(const EditorDocument &document);

private:
    // The one place an editor view is made, so the R code editor can take the plain one's place.
    QWidget *createEditorView(EditorDocument &document);
    QWidget *createDataView(DataDocument &data);

    void syncItems();
    void syncSelection();
    void updateTitle(EditorDocument *document);

    DocumentStore &m_store;
    Workspace *m_workspace;
    QHash<QUuid, QWidget *> m_pages;
    bool m_syncing = false;
};
