// The tab of a script: the bar that tells of an outside change, the editor, and the line that tells
// the file's format.
#pragma once

#include <QPointer>
#include <QWidget>

class DocumentStore;
class EditorDocument;
class QLabel;
class QPushButton;

class ScriptPane : public QWidget {
    Q_OBJECT
public:
    ScriptPane(DocumentStore &store, EditorDocument &document, QWidget *editor, QWidget *parent = nullptr);

    QWidget *editor() const { return m_editor; }
    QWidget *changedBar() const { return m_changedBar; }
    QLabel *deletedWarning() const { return m_deleted; }
    QLabel *formatLabel() const { return m_format; }
    QPushButton *keepMineButton() const { return m_keepMine; }
    QPushButton *reloadButton() const { return m_reload; }

private:
    void update();

    DocumentStore &m_store;
    QPointer<EditorDocument> m_document;
    QWidget *m_editor = nullptr;
    QWidget *m_changedBar = nullptr;
    QLabel *m_changedText = nullptr;
    QPushButton *m_keepMine = nullptr;
    QPushButton *m_reload = nullptr;
    QLabel *m_deleted = nullptr;
    QLabel *m_format = nullptr;
};
