#include "PlainTextEditorView.h"

#include "Documents/EditorDocument.h"

#include <QFontDatabase>
#include <QTextBlock>
#include <QTimer>

PlainTextEditorView::PlainTextEditorView(EditorDocument &source, QWidget *parent)
    : QPlainTextEdit(parent), m_document(&source)
{
    setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    setLineWrapMode(QPlainTextEdit::NoWrap);
    setFrameShape(QFrame::NoFrame);
    takeDocumentText();
    // The editor's own undo history starts at the text as opened.
    document()->clearUndoRedoStacks();
    connect(this, &QPlainTextEdit::textChanged, this, [this] {
        if (m_applying || !m_document)
            return;
        // toRawText keeps non-breaking spaces, which toPlainText would turn into blanks.
        QString text = document()->toRawText();
        text.replace(QChar::ParagraphSeparator, u'\n');
        m_document->setText(text);
    });
    connect(&source, &EditorDocument::textReplaced, this, &PlainTextEditorView::takeDocumentText);
}

void PlainTextEditorView::takeDocumentText()
{
    if (!m_document)
        return;
    const int position = textCursor().position();
    m_applying = true;
    setPlainText(m_document->text());
    m_applying = false;
    QTextCursor cursor = textCursor();
    cursor.setPosition(std::min(position, document()->characterCount() - 1));
    setTextCursor(cursor);
}

void PlainTextEditorView::revealLine(int line)
{
    const QTextBlock block = document()->findBlockByNumber(std::max(0, line - 1));
    if (!block.isValid())
        return;
    QTextCursor cursor(block);
    setTextCursor(cursor);
    centerCursor();
    QTextEdit::ExtraSelection flash;
    flash.cursor = cursor;
    flash.format.setBackground(palette().highlight().color().lighter(160));
    flash.format.setProperty(QTextFormat::FullWidthSelection, true);
    setExtraSelections({flash});
    QTimer::singleShot(900, this, [this] { setExtraSelections({}); });
    setFocus();
}
