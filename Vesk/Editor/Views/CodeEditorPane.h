// A script editor as a tab shows it: the jump bar, the code editor and the find bar, with the
// controller that the run commands reach it through.
#pragma once

#include <QWidget>

class CodeEditor;
class CodeEditorController;
class EditorFindBar;
class EditorJumpBar;
class QLabel;
class Workspace;

class CodeEditorPane : public QWidget {
    Q_OBJECT
public:
    // Runs go to `workspace`; without one the editor only edits.
    explicit CodeEditorPane(Workspace *workspace, QWidget *parent = nullptr);

    CodeEditor *editor() const { return m_editor; }
    CodeEditorController *controller() const { return m_controller; }
    EditorFindBar *findBar() const { return m_findBar; }
    EditorJumpBar *jumpBar() const { return m_jumpBar; }

private:
    CodeEditor *m_editor = nullptr;
    CodeEditorController *m_controller = nullptr;
    EditorFindBar *m_findBar = nullptr;
    EditorJumpBar *m_jumpBar = nullptr;
    // Shown while a long text is still going into the editor.
    QLabel *m_loading = nullptr;
};
