// The editor of a script's tab: a code editor pane bound to an EditorDocument. What is typed becomes
// the document's text at once; text put in from outside replaces what it shows;
// breakpoints, title, file and encoding follow the document.
#pragma once

#include "CodeEditorPane.h"

#include <QPointer>

class EditorDocument;

class ScriptEditorView : public CodeEditorPane {
    Q_OBJECT
public:
    ScriptEditorView(Workspace &workspace, EditorDocument &document, QWidget *parent = nullptr);

    // Puts the caret on a one-based line, centred, with a short highlight.
    void revealLine(int line);

private:
    void takeDocumentText();
    void takeDocumentState();

    QPointer<EditorDocument> m_document;
    bool m_syncingBreakpoints = false;
    QMetaObject::Connection m_caretAfterLoad;
};
