#include "CodeEditorController.h"

#include "RSyntax.h"
#include "RmdChunks.h"

CodeEditorController::CodeEditorController(QObject *parent) : QObject(parent) {}

void CodeEditorController::setSession(EditorSession *session)
{
    disconnect(m_cursorConnection);
    m_session = session;
    if (!session)
        return;
    m_cursorConnection = connect(session, &EditorSession::cursorStateChanged, this, [this] {
        m_cursorLine = int(m_session->cursorLine()) + 1;
        m_cursorColumn = int(m_session->cursorColumn()) + 1;
        emit cursorChanged();
    });
}

QString CodeEditorController::text() const
{
    return m_session ? m_session->text() : QString();
}

RSourceLanguage CodeEditorController::language() const
{
    return m_session ? m_session->language() : RSourceLanguage::plain;
}

CodeEditorController::Code CodeEditorController::currentStatement() const
{
    if (!m_session)
        return {};
    const auto snap = m_session->snapshot();
    const qsizetype caret = m_session->textCursor().position();
    const qsizetype line = snap->line(caret);
    if (snap->language() == RSourceLanguage::plain)
        return {snap->lineText(line), int(line) + 1, snap->lineRange(line, false)};
    if (!snap->isCode(line))
        return {QString(), int(line) + 1, {caret, 0}};
    const RTextSpan span = RSyntax::statementRange(*snap, line);
    return {snap->string(span.range), int(span.firstLine) + 1, span.range};
}

void CodeEditorController::moveCursorToNextStatement()
{
    if (!m_session)
        return;
    const auto snap = m_session->snapshot();
    const qsizetype caretLine = snap->line(m_session->textCursor().position());
    qsizetype last = caretLine;
    if (snap->language() != RSourceLanguage::plain && snap->isCode(caretLine))
        last = RSyntax::statementRange(*snap, caretLine).lastLine;
    qsizetype target = snap->length();
    for (qsizetype line = last + 1; line < snap->lineCount(); ++line) {
        if (snap->isCode(line) && !snap->significantTokens(line).isEmpty()) {
            target = snap->lineStart(line) + snap->leadingWhitespace(line).size();
            break;
        }
    }
    m_session->setSelection(target);
    if (m_session->revealCaret)
        m_session->revealCaret();
}

CodeEditorController::Code CodeEditorController::currentSection() const
{
    if (!m_session)
        return {};
    const QString &text = m_session->text();
    switch (m_session->language()) {
    case RSourceLanguage::r: {
        const auto snap = m_session->snapshot();
        const RSection section =
            RSyntax::currentSection(*snap, snap->line(m_session->textCursor().position()));
        return {snap->string(section.range), int(section.firstLine) + 1, section.range};
    }
    case RSourceLanguage::rMarkdown: {
        const int line = int(m_session->model().lines().line(m_session->textCursor().position())) + 1;
        if (const auto chunk = RmdChunks::chunk(line, text))
            return {chunk->code, chunk->startLine, {}};
        return {QString(), line, {}};
    }
    case RSourceLanguage::plain:
        return {text, 1, {0, text.size()}};
    }
    return {};
}

CodeEditorController::Code CodeEditorController::textUpToCursor() const
{
    if (!m_session)
        return {};
    const QString &text = m_session->text();
    const RLineIndex &lines = m_session->model().lines();
    const qsizetype caretLine = lines.line(m_session->textCursor().position());
    if (m_session->language() != RSourceLanguage::rMarkdown) {
        const qsizetype end = lines.range(caretLine, false).end();
        return {text.left(end), 1, {0, end}};
    }
    const int line = int(caretLine) + 1;
    QStringList pieces;
    int startLine = 1;
    for (const RmdChunks::Chunk &chunk : RmdChunks::all(text)) {
        // The header stands on the line before the first code line.
        if (chunk.startLine - 1 > line)
            break;
        if (pieces.isEmpty())
            startLine = chunk.startLine;
        if (line <= chunk.endLine) {
            const qsizetype keep = std::max(0, line - chunk.startLine + 1);
            pieces.append(chunk.code.split(u'\n').mid(0, keep).join(u'\n'));
            break;
        }
        pieces.append(chunk.code);
    }
    return {pieces.join(u'\n'), startLine, {}};
}

CodeEditorController::Code CodeEditorController::selectedCode() const
{
    if (!m_session)
        return {};
    const RTextRange range = m_session->selection();
    if (range.length == 0)
        return {QString(), 1, range};
    return {m_session->text().mid(range.location, range.length),
            int(m_session->model().lines().line(range.location)) + 1, range};
}

void CodeEditorController::toggleComment()
{
    if (m_session)
        m_session->toggleComment();
}

void CodeEditorController::shiftLines(bool inward)
{
    if (m_session)
        m_session->shiftLines(inward);
}

void CodeEditorController::reindentLines()
{
    if (m_session)
        m_session->reindentLines();
}

bool CodeEditorController::insertChunk()
{
    return m_session && m_session->insertChunk();
}

void CodeEditorController::focus()
{
    if (focusView)
        focusView();
}

void CodeEditorController::reloadText(const QString &text)
{
    if (m_session)
        m_session->loadText(text);
}

void CodeEditorController::revealLine(int line, int column)
{
    if (!m_session)
        return;
    // A line of the whole text, not of the part loaded so far.
    m_session->finishLoading();
    const RLineIndex &lines = m_session->model().lines();
    const qsizetype index = std::clamp<qsizetype>(line - 1, 0, lines.lineCount() - 1);
    const qsizetype start = lines.start(index);
    const qsizetype end = index + 1 < lines.lineCount() ? lines.start(index + 1) - 1 : lines.length();
    m_session->setSelection(start + std::clamp<qsizetype>(column - 1, 0, end - start));
    if (m_session->revealCaret)
        m_session->revealCaret();
}
