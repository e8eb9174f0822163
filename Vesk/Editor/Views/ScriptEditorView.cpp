#include "ScriptEditorView.h"

#include "App/Workspace.h"
#include "CodeEditor.h"
#include "Documents/DocumentStore.h"
#include "Documents/EditorDocument.h"
#include "Editor/CodeEditorController.h"

#include <QTextBlock>
#include <QTimer>

ScriptEditorView::ScriptEditorView(Workspace &workspace, EditorDocument &document, QWidget *parent)
    : CodeEditorPane(&workspace, parent), m_document(&document)
{
    EditorSession *session = editor()->session();
    session->setLanguage(document.language());
    takeDocumentText();
    takeDocumentState();
    session->textBinding = [this](const QString &text) {
        if (m_document)
            m_document->setText(text);
    };
    connect(&document, &EditorDocument::textReplaced, this, &ScriptEditorView::takeDocumentText);
    connect(&document, &EditorDocument::stateChanged, this, &ScriptEditorView::takeDocumentState);
    connect(session, &EditorSession::breakpointsChanged, this, [this, session] {
        if (!m_document || m_syncingBreakpoints)
            return;
        QSet<int> lines;
        for (const qsizetype line : session->breakpoints())
            lines.insert(int(line) + 1);
        m_document->setBreakpoints(lines);
    });

    DocumentStore *store = &workspace.documents();
    QPointer<EditorDocument> target(&document);
    controller()->isModified = [target] { return !target || target->needsSave(); };
    controller()->save = [store, target](std::function<void(bool)> done) {
        if (!target) {
            done(false);
            return;
        }
        store->save(target, false, std::move(done));
    };
    connect(store, &DocumentStore::revealRequested, this, [this](EditorDocument *which, int line) {
        if (which == m_document)
            revealLine(line);
    });
}

void ScriptEditorView::takeDocumentText()
{
    if (!m_document)
        return;
    EditorSession *session = editor()->session();
    if (session->text() == m_document->text())
        return;
    const qsizetype caret = session->selection().location;
    const std::set<qsizetype> breakpoints = session->breakpoints();
    session->loadText(m_document->text());
    session->setSelection(std::min(caret, session->text().size()));
    // A caret below the part of a reloaded text that is in so far goes back once all of it is.
    disconnect(m_caretAfterLoad);
    if (session->isLoading() && caret > session->text().size())
        m_caretAfterLoad = connect(session, &EditorSession::loadingChanged, this, [this, session, caret] {
            disconnect(m_caretAfterLoad);
            session->setSelection(std::min(caret, session->text().size()));
        });
    m_syncingBreakpoints = true;
    session->setBreakpoints(breakpoints);
    m_syncingBreakpoints = false;
}

void ScriptEditorView::takeDocumentState()
{
    if (!m_document)
        return;
    controller()->title = m_document->title();
    controller()->filePath = m_document->path();
    controller()->encodingName = m_document->encoding().rName();
    EditorSession *session = editor()->session();
    session->setLanguage(m_document->language());
    std::set<qsizetype> lines;
    for (const int line : m_document->breakpoints())
        lines.insert(line - 1);
    if (lines != session->breakpoints()) {
        m_syncingBreakpoints = true;
        session->setBreakpoints(lines);
        m_syncingBreakpoints = false;
    }
}

void ScriptEditorView::revealLine(int line)
{
    controller()->revealLine(line);
    CodeEditor *view = editor();
    QTextEdit::ExtraSelection flash;
    flash.cursor = view->textCursor();
    flash.format.setBackground(view->palette().highlight().color().lighter(160));
    flash.format.setProperty(QTextFormat::FullWidthSelection, true);
    view->setSearchMatches({flash});
    QTimer::singleShot(900, view, [view] { view->setSearchMatches({}); });
    view->setFocus();
}
