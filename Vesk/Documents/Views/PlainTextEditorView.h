// A plain-text editor bound to an EditorDocument: what the user types becomes the document's text,
// and text put in from outside (a reload, a restore) replaces what it shows.
#pragma once

#include <QPlainTextEdit>
#include <QPointer>

class EditorDocument;

class PlainTextEditorView : public QPlainTextEdit {
    Q_OBJECT
public:
    PlainTextEditorView(EditorDocument &document, QWidget *parent = nullptr);

    // Puts the cursor on the one-based line, centred, with a short highlight.
    void revealLine(int line);

private:
    void takeDocumentText();

    QPointer<EditorDocument> m_document;
    bool m_applying = false;
};
