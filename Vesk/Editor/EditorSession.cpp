#include "EditorSession.h"

#include "RIndenter.h"
#include "RMarkdownEditing.h"
#include "RSyntax.h"
#include "RTokenizer.h"
#include "RTyping.h"

#include <QAbstractTextDocumentLayout>
#include <QElapsedTimer>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextLayout>

#include <algorithm>
#include <limits>

namespace {

bool isCommentKind(RTokenKind kind)
{
    return kind == RTokenKind::comment || kind == RTokenKind::roxygen || kind == RTokenKind::roxygenTag ||
           kind == RTokenKind::sectionMarker;
}

RTyping::Surroundings surroundings(const EditorSession &session, RTextRange range, TextContext context)
{
    return RTyping::Surroundings{session.text(), range, context,
                                 [&session](qsizetype at) { return session.token(at); }};
}

// The document keeps block breaks as paragraph separators; the model reads line feeds.
void toLineFeeds(QString &text)
{
    text.replace(QChar::ParagraphSeparator, u'\n');
}

// Shown lines this far below the first dirty line are styled from a lexed copy of the model: lexing
// alone is about four times cheaper than lexing and styling every line above them.
constexpr qsizetype aheadLimit = 2000;

// Whether a styling pass that began at `timer` may go on at `line`; the clock is read every 32 lines.
bool withinSlice(const QElapsedTimer &timer, qsizetype line)
{
    return (line & 31) != 0 || timer.nsecsElapsed() < qint64(EditorSession::sliceMilliseconds) * 1000000;
}

constexpr qint64 sliceNanoseconds = qint64(EditorSession::sliceMilliseconds) * 1000000;

// Line feeds for every break the document makes: CR LF and CR, and the units a QTextCursor breaks
// blocks at (the paragraph separator and the frame marks). A text without them is not copied.
QString withLineFeeds(const QString &text)
{
    const auto isBreak = [](char16_t c) { return c == u'\r' || c == 0x2029 || c == 0xFDD0 || c == 0xFDD1; };
    const char16_t *units = reinterpret_cast<const char16_t *>(text.utf16());
    const qsizetype size = text.size();
    qsizetype i = 0;
    while (i < size && !isBreak(units[i]))
        ++i;
    if (i == size)
        return text;
    QString result;
    result.reserve(size);
    result.append(QStringView(text).left(i));
    for (; i < size; ++i) {
        const char16_t c = units[i];
        if (!isBreak(c)) {
            result.append(QChar(c));
            continue;
        }
        if (c == u'\r' && i + 1 < size && units[i + 1] == u'\n')
            ++i;
        result.append(u'\n');
    }
    return result;
}

// The offset just past the `lines`-th line feed from `from`, or the text's end.
qsizetype afterLines(const QString &text, qsizetype from, qsizetype lines)
{
    for (; lines > 0; --lines) {
        const qsizetype feed = text.indexOf(u'\n', from);
        if (feed < 0)
            return text.size();
        from = feed + 1;
    }
    return from;
}

// Lines a fill puts in between two looks at the clock.
constexpr qsizetype fillPieceLines = 256;

} // namespace

EditorSession::EditorSession(QTextDocument *document, EditorMode mode, QObject *parent)
    : QObject(parent), m_document(document), m_mode(mode), m_theme(EditorTheme::light()),
      m_ownCursor(document)
{
    m_text = m_document->toRawText();
    toLineFeeds(m_text);
    m_lastSyncedText = m_text;
    m_model.reset(m_text);
    // A document tells of edits only once it has a layout; a view brings its own, a bare document
    // gets the default one here.
    m_document->documentLayout();
    connect(m_document, &QTextDocument::contentsChange, this, &EditorSession::contentsChanged);
    m_styleSlice.setSingleShot(true);
    m_styleSlice.setInterval(0);
    connect(&m_styleSlice, &QTimer::timeout, this, &EditorSession::styleSlice);
    m_fillSlice.setSingleShot(true);
    m_fillSlice.setInterval(0);
    connect(&m_fillSlice, &QTimer::timeout, this, [this] { fillSlice(sliceNanoseconds); });
    restyleDirtyLines();
}

EditorSession::~EditorSession() = default;

void EditorSession::setLanguage(RSourceLanguage language)
{
    if (language == m_model.language())
        return;
    m_model.reset(m_text, language);
    restyleDirtyLines();
    emit reloaded();
}

void EditorSession::setConfiguration(const EditorConfiguration &configuration)
{
    m_configuration = configuration;
}

void EditorSession::setTheme(const EditorTheme &theme)
{
    if (theme == m_theme)
        return;
    m_theme = theme;
    restyleAll();
}

QTextCursor EditorSession::textCursor() const
{
    return cursorSource ? cursorSource() : m_ownCursor;
}

void EditorSession::setTextCursor(const QTextCursor &cursor)
{
    if (cursorSink)
        cursorSink(cursor);
    else
        m_ownCursor = cursor;
    scheduleDeferredUpdate();
}

RTextRange EditorSession::selection() const
{
    const QTextCursor cursor = textCursor();
    return {cursor.selectionStart(), cursor.selectionEnd() - cursor.selectionStart()};
}

void EditorSession::setSelection(qsizetype location, qsizetype length)
{
    const qsizetype end = m_text.size();
    location = std::clamp<qsizetype>(location, 0, end);
    length = std::clamp<qsizetype>(length, 0, end - location);
    QTextCursor cursor(m_document);
    cursor.setPosition(int(location));
    if (length > 0)
        cursor.setPosition(int(location + length), QTextCursor::KeepAnchor);
    setTextCursor(cursor);
}

// ---- styling and syncing

void EditorSession::contentsChanged(int position, int removed, int added)
{
    ++m_editGeneration;
    if (m_applyingExternalText)
        return;
    const qsizetype documentLength = m_document->characterCount() - 1;
    // Changes at the document's end may count its final paragraph separator, which the text lacks.
    const qsizetype excess = qsizetype(position) + removed - m_text.size();
    if (excess > 0 && excess <= added) {
        removed -= int(excess);
        added -= int(excess);
    }
    if (position < 0 || removed < 0 || added < 0 || position + removed > m_text.size() ||
        m_text.size() - removed + added != documentLength) {
        resync();
        return;
    }
    QTextCursor reader(m_document);
    reader.setPosition(position);
    reader.setPosition(position + added, QTextCursor::KeepAnchor);
    QString inserted = reader.selectedText();
    toLineFeeds(inserted);
    if (inserted.size() != added) {
        resync();
        return;
    }
    const qsizetype line = m_model.lines().line(position);
    const qsizetype removedLines = QStringView(m_text).mid(position, removed).count(u'\n');
    m_text.replace(position, removed, inserted);
    m_model.replaceCharacters({position, removed}, added, m_text);
    if (!m_breakpoints.empty())
        shiftBreakpoints(line, removedLines, inserted.count(u'\n'));
    m_textNeedsSync = true;
    restyleDirtyLines();
    // Handing the text out costs a copy of it at the next edit; a large text goes out once per
    // burst of keys instead, through the deferred update (and every command flushes first).
    if (m_text.size() <= immediateSyncLimit)
        syncTextToBinding();
    scheduleDeferredUpdate();
}

void EditorSession::resync()
{
    m_text = m_document->toRawText();
    toLineFeeds(m_text);
    m_model.reset(m_text);
    m_textNeedsSync = true;
    restyleDirtyLines();
    syncTextToBinding();
    scheduleDeferredUpdate();
}

void EditorSession::restyleDirtyLines()
{
    if (m_model.isClean() || m_styling || (isComposing && isComposing()))
        return;
    qsizetype mustReach = -1;
    if (visibleLines) {
        const auto [first, last] = visibleLines();
        if (m_model.dirty().front().first + aheadLimit < first)
            styleShownLinesAhead(first, last);
        else
            mustReach = last;
    }
    QElapsedTimer timer;
    timer.start();
    styleDirty([&](qsizetype line) { return line <= mustReach || withinSlice(timer, line); });
    if (!m_model.isClean())
        m_styleSlice.start();
}

void EditorSession::styleSlice()
{
    if (m_model.isClean() || m_styling || (isComposing && isComposing()))
        return;
    QElapsedTimer timer;
    timer.start();
    styleDirty([&](qsizetype line) { return withinSlice(timer, line); });
    if (!m_model.isClean())
        m_styleSlice.start();
}

void EditorSession::finishStyling()
{
    if (m_styling || (isComposing && isComposing()))
        return;
    finishLoading();
    styleDirty({});
    m_styleSlice.stop();
}

void EditorSession::styleDirty(const RSourceModel::Proceed &proceed)
{
    if (m_model.isClean() || !m_document)
        return;
    m_styling = true;
    QTextBlock block;
    qsizetype blockLine = -1;
    qsizetype dirtyFrom = -1;
    qsizetype dirtyTo = -1;
    const auto visit = [&](qsizetype line, RTextRange, const QList<RToken> &tokens) {
        block = (blockLine >= 0 && line == blockLine + 1) ? block.next()
                                                          : m_document->findBlockByNumber(int(line));
        blockLine = line;
        if (!block.isValid())
            return;
        styleBlock(block, tokens);
        if (dirtyFrom < 0)
            dirtyFrom = block.position();
        dirtyTo = block.position() + block.length();
    };
    m_model.relex(m_text, visit, proceed);
    // One notice to the layout for the whole stretch: a block relaid per line would cost a layout
    // pass per line when a whole file is styled.
    if (dirtyFrom >= 0)
        m_document->markContentsDirty(int(dirtyFrom), int(dirtyTo - dirtyFrom));
    m_styling = false;
}

void EditorSession::styleShownLinesAhead(qsizetype first, qsizetype last)
{
    // The model keeps these lines dirty; the slice that reaches them gives them the same formats.
    RSourceModel copy = m_model;
    copy.relex(m_text, {}, [last](qsizetype line) { return line <= last; });
    first = std::clamp<qsizetype>(first, 0, copy.lineCount() - 1);
    last = std::clamp<qsizetype>(last, first, copy.lineCount() - 1);
    QTextBlock block = m_document->findBlockByNumber(int(first));
    const qsizetype from = block.position();
    qsizetype to = from;
    for (qsizetype line = first; line <= last && block.isValid(); ++line, block = block.next()) {
        styleBlock(block, copy.tokens(line, m_text));
        to = block.position() + block.length();
    }
    if (to > from)
        m_document->markContentsDirty(int(from), int(to - from));
}

void EditorSession::styleBlock(const QTextBlock &block, const QList<RToken> &tokens)
{
    QList<QTextLayout::FormatRange> ranges;
    ranges.reserve(tokens.size());
    const qsizetype start = block.position();
    const qsizetype end = start + block.length() - 1; // without the separator
    for (const RToken &token : tokens) {
        const QTextCharFormat &format = m_theme.format(token.kind);
        if (!format.isValid() || format.properties().isEmpty())
            continue;
        const qsizetype from = std::max(token.location, start);
        const qsizetype to = std::min(token.end(), end);
        if (to <= from)
            continue;
        ranges.append({int(from - start), int(to - from), format});
    }
    block.layout()->setFormats(ranges);
}

void EditorSession::restyleAll()
{
    m_model.reset(m_text);
    restyleDirtyLines();
}

void EditorSession::loadText(const QString &text)
{
    const bool wasLoading = isLoading();
    cancelFill();
    QString normalized = withLineFeeds(text);
    // Setting a text costs mostly per block (the document's and its layout's); a long text shows its
    // first lines at once and takes the rest in slices.
    const qsizetype firstPiece = afterLines(normalized, 0, fillThreshold) < normalized.size()
                                     ? afterLines(normalized, 0, fillFirstLines)
                                     : normalized.size();
    m_applyingExternalText = true;
    if (firstPiece < normalized.size()) {
        m_text = normalized.left(firstPiece);
        m_document->setPlainText(m_text);
        // Undo stays off until the fill ends, so that no piece of the file becomes an undo step.
        m_document->setUndoRedoEnabled(false);
        m_text.reserve(normalized.size());
        m_fill = Fill{normalized, firstPiece};
    } else {
        m_document->setPlainText(normalized);
        m_document->clearUndoRedoStacks();
        m_text = normalized;
    }
    m_document->setModified(false);
    m_applyingExternalText = false;
    // The outside text is the whole text from the start; a fill only catches the document up with it.
    m_lastSyncedText = std::move(normalized);
    m_textNeedsSync = false;
    m_breakpoints.clear();
    m_model.reset(m_text);
    restyleDirtyLines();
    setSelection(0);
    if (m_fill)
        m_fillSlice.start();
    else
        emit reloaded();
    if (wasLoading != isLoading())
        emit loadingChanged(isLoading());
}

void EditorSession::finishLoading()
{
    fillSlice(std::numeric_limits<qint64>::max());
}

void EditorSession::fillSlice(qint64 budgetNanoseconds)
{
    // Not from inside a slice (from a handler of the document's change notice).
    if (!m_fill || !m_document || m_applyingExternalText)
        return;
    QElapsedTimer timer;
    timer.start();
    const QString &source = m_fill->text;
    const qsizetype from = m_fill->done;
    // Appended at the end, so that an edit made meanwhile (by code; the views are read-only while a
    // text loads) keeps its place: m_text follows the document.
    const qsizetype position = m_text.size();
    QTextCursor cursor(m_document);
    cursor.setPosition(int(position));
    m_applyingExternalText = true;
    // One edit block: the document and its layout hear of the slice once.
    cursor.beginEditBlock();
    qsizetype at = from;
    do {
        const qsizetype end = afterLines(source, at, fillPieceLines);
        cursor.insertText(source.mid(at, end - at));
        at = end;
    } while (at < source.size() && timer.nsecsElapsed() < budgetNanoseconds);
    cursor.endEditBlock();
    m_applyingExternalText = false;
    m_text.append(QStringView(source).mid(from, at - from));
    m_model.replaceCharacters({position, 0}, at - from, m_text);
    m_fill->done = at;
    if (at < source.size()) {
        // Styled by the slices; lines scrolled into view are styled as the view asks.
        if (!m_model.isClean())
            m_styleSlice.start();
        m_fillSlice.start();
        return;
    }
    m_fill.reset();
    m_fillSlice.stop();
    m_document->setUndoRedoEnabled(true);
    m_document->setModified(false);
    emit loadingChanged(false);
    restyleDirtyLines();
    // Only an edit made during the fill has anything to write out.
    syncTextToBinding();
    scheduleDeferredUpdate();
    emit reloaded();
}

void EditorSession::cancelFill()
{
    if (!m_fill)
        return;
    m_fill.reset();
    m_fillSlice.stop();
    m_document->setUndoRedoEnabled(true);
}

void EditorSession::syncTextToBinding()
{
    // Until a fill ends the outside text is the whole text, and the document only part of it.
    if (!m_textNeedsSync || m_fill)
        return;
    m_textNeedsSync = false;
    m_lastSyncedText = m_text;
    if (textBinding)
        textBinding(m_text);
    emit textSynced();
}

void EditorSession::flushPendingChanges()
{
    finishLoading();
    restyleDirtyLines();
    syncTextToBinding();
}

std::unique_ptr<RSourceSnapshot> EditorSession::snapshot()
{
    restyleDirtyLines();
    return m_model.snapshot(m_text);
}

void EditorSession::scheduleDeferredUpdate()
{
    if (m_deferredUpdateScheduled)
        return;
    m_deferredUpdateScheduled = true;
    QMetaObject::invokeMethod(this, &EditorSession::performDeferredUpdate, Qt::QueuedConnection);
}

void EditorSession::performDeferredUpdate()
{
    m_deferredUpdateScheduled = false;
    syncTextToBinding();
    const RTextRange range = selection();
    const QTextCursor cursor = textCursor();
    m_cursorLine = m_model.lines().line(cursor.position());
    m_cursorColumn = cursor.position() - m_model.lines().start(m_cursorLine);
    m_selectedLines = m_model.lines().lines(range);
    m_bracketPair = range.length == 0 ? matchingBracketPair(range.location) : std::nullopt;
    emit cursorStateChanged();
}

// ---- queries

std::optional<RToken> EditorSession::token(qsizetype at) const
{
    if (at < 0 || at >= m_text.size())
        return std::nullopt;
    const qsizetype line = m_model.lines().line(at);
    for (const RToken &token : m_model.tokens(line, m_text))
        if (token.location <= at && at < token.end())
            return token;
    return std::nullopt;
}

TextContext EditorSession::context(qsizetype at) const
{
    if (m_model.language() == RSourceLanguage::plain)
        return TextContext::notApplicable;
    at = std::clamp<qsizetype>(at, 0, m_text.size());
    const qsizetype line = m_model.lines().line(at);
    const auto [tokens, isCode] = m_model.lexLine(line, m_text);
    if (!isCode)
        return TextContext::notApplicable;
    const qsizetype lineStart = m_model.lines().start(line);
    for (const RToken &token : tokens) {
        if (token.kind == RTokenKind::string) {
            if (token.location < at && at < token.end())
                return TextContext::string;
            if (at == lineStart && token.location == lineStart &&
                m_model.startState(line).r.isInsideLiteral())
                return TextContext::string;
        } else if (isCommentKind(token.kind) && token.location < at && at <= token.end()) {
            return TextContext::comment;
        }
    }
    return TextContext::code;
}

QString EditorSession::wordBeforeCaret() const
{
    const qsizetype caret = selection().location;
    qsizetype start = caret;
    while (start > 0 && RTokenizer::isIdentifierPart(m_text.at(start - 1).unicode()))
        --start;
    return m_text.mid(start, caret - start);
}

RTextRange EditorSession::nameRange(qsizetype at) const
{
    at = std::clamp<qsizetype>(at, 0, m_text.size());
    auto isPart = [this](qsizetype i) { return RTokenizer::isIdentifierPart(m_text.at(i).unicode()); };
    if (!(at < m_text.size() && isPart(at)) && !(at > 0 && isPart(at - 1)))
        return {at, 0};
    qsizetype start = at;
    while (start > 0 && isPart(start - 1))
        --start;
    qsizetype end = at;
    while (end < m_text.size() && isPart(end))
        ++end;
    return {start, end - start};
}

std::optional<std::pair<qsizetype, qsizetype>> EditorSession::matchingBracketPair(qsizetype at)
{
    static const QString brackets = QStringLiteral("()[]{}");
    for (const qsizetype offset : {at - 1, at}) {
        if (offset < 0 || offset >= m_text.size() || !brackets.contains(m_text.at(offset)))
            continue;
        const auto snap = snapshot();
        if (const auto partner = RSyntax::matchingBracket(offset, *snap, 1000))
            return std::pair{offset, *partner};
        return std::nullopt;
    }
    return std::nullopt;
}

// ---- editing

void EditorSession::apply(const RTextEdit &edit)
{
    // An edit on a text still loading would not be undoable (undo is off during a fill).
    finishLoading();
    const qsizetype length = m_text.size();
    const qsizetype from = std::clamp<qsizetype>(edit.location, 0, length);
    const qsizetype to = std::clamp<qsizetype>(edit.location + edit.length, from, length);
    QTextCursor cursor(m_document);
    cursor.beginEditBlock();
    cursor.setPosition(int(from));
    cursor.setPosition(int(to), QTextCursor::KeepAnchor);
    if (edit.replacement.isEmpty())
        cursor.removeSelectedText();
    else
        cursor.insertText(edit.replacement);
    cursor.endEditBlock();
    setSelection(edit.selectionLocation, edit.selectionLength);
}

bool EditorSession::applyIfChanged(const RTextEdit &edit)
{
    if (QStringView(m_text).mid(edit.location, edit.length) == edit.replacement) {
        setSelection(edit.selectionLocation, edit.selectionLength);
        return false;
    }
    apply(edit);
    return true;
}

void EditorSession::replace(RTextRange range, const QString &text)
{
    apply(RTextEdit{range.location, range.length, text, range.location + text.size(), 0});
}

bool EditorSession::handleTypedCharacter(QChar character)
{
    const char16_t c = character.unicode();
    if (m_mode == EditorMode::display || m_model.language() == RSourceLanguage::plain)
        return false;
    const RTextRange range = selection();
    const TextContext contextHere = context(range.location);
    if (contextHere == TextContext::notApplicable)
        return false;
    if (m_configuration.autoCloseBrackets) {
        if (const auto edit = RTyping::typedCharacter(c, surroundings(*this, range, contextHere))) {
            if (edit->length == 0 && edit->replacement.isEmpty())
                setSelection(edit->selectionLocation, edit->selectionLength);
            else
                apply(*edit);
            return true;
        }
    }
    if (RTyping::isCloser(c) && contextHere == TextContext::code && range.length == 0) {
        const auto snap = snapshot();
        if (const auto edit = RIndenter::closingBracket(character, *snap, range.location)) {
            apply(*edit);
            return true;
        }
    }
    return false;
}

std::optional<RTextRange> EditorSession::backwardDeletionRange() const
{
    if (m_model.language() == RSourceLanguage::plain || m_mode == EditorMode::display)
        return std::nullopt;
    return RTyping::backwardDeletion(surroundings(*this, selection(), TextContext::code),
                                     m_configuration.autoCloseBrackets, m_configuration.tabWidth);
}

bool EditorSession::handleBackspace()
{
    const auto range = backwardDeletionRange();
    if (!range)
        return false;
    apply(RTextEdit{range->location, range->length, QString(), range->location, 0});
    return true;
}

bool EditorSession::handleReturn(bool shift)
{
    if (m_mode == EditorMode::display)
        return false;
    if (m_mode == EditorMode::console && !shift) {
        flushPendingChanges();
        if (RSyntax::isLikelyComplete(m_text)) {
            if (onCommand)
                onCommand(EditorCommand::submit);
            return true;
        }
    }
    const auto snap = snapshot();
    apply(RIndenter::newline(*snap, selection(), m_configuration.tabWidth));
    return true;
}

bool EditorSession::handleTab(bool backwards)
{
    if (m_mode == EditorMode::display)
        return false;
    const RTextRange range = selection();
    if (backwards) {
        shiftLines(false);
        return true;
    }
    if (QStringView(m_text).mid(range.location, range.length).contains(u'\n')) {
        shiftLines(true);
        return true;
    }
    insertSoftTab();
    return true;
}

void EditorSession::insertSoftTab()
{
    const RTextRange range = selection();
    const qsizetype lineStart = m_model.lines().start(m_model.lines().line(range.location));
    const int tabWidth = std::max(1, m_configuration.tabWidth);
    qsizetype column = 0;
    for (qsizetype i = lineStart; i < range.location; ++i)
        column = m_text.at(i) == u'\t' ? (column / tabWidth + 1) * tabWidth : column + 1;
    replace(range, QString(tabWidth - column % tabWidth, u' '));
}

bool EditorSession::handleVerticalArrow(bool up)
{
    if (m_mode != EditorMode::console || !onHistory)
        return false;
    const QTextCursor cursor = textCursor();
    const bool onEdge = caretOnEdgeLine ? caretOnEdgeLine(up)
                                        : (up ? cursor.blockNumber() == 0
                                              : cursor.blockNumber() == m_document->blockCount() - 1);
    if (!onEdge)
        return false;
    flushPendingChanges();
    const auto entry = onHistory(up);
    if (!entry)
        return false;
    if (*entry != m_text)
        apply(RTextEdit{0, m_text.size(), *entry, entry->size(), 0});
    setSelection(m_text.size());
    return true;
}

bool EditorSession::handleEscape()
{
    // Nothing transient is shown by the session yet (completion, hints and hover come later).
    return false;
}

void EditorSession::insertOperator(const QString &op)
{
    if (m_mode == EditorMode::display)
        return;
    const auto snap = snapshot();
    apply(RIndenter::insertOperator(op, *snap, selection()));
}

void EditorSession::toggleComment()
{
    if (m_mode == EditorMode::display)
        return;
    const auto snap = snapshot();
    applyIfChanged(RIndenter::toggleComment(*snap, selection()));
}

void EditorSession::shiftLines(bool inward)
{
    if (m_mode == EditorMode::display)
        return;
    const auto snap = snapshot();
    applyIfChanged(RIndenter::shiftLines(*snap, selection(), inward, m_configuration.tabWidth));
}

void EditorSession::reindentLines()
{
    if (m_mode == EditorMode::display)
        return;
    if (const auto edit =
            RIndenter::reindentLines(m_text, m_model.language(), selection(), m_configuration.tabWidth))
        apply(*edit);
}

bool EditorSession::insertChunk()
{
    if (m_mode == EditorMode::display || m_model.language() != RSourceLanguage::rMarkdown)
        return false;
    flushPendingChanges();
    apply(RMarkdownEditing::insertChunk(m_text, selection(), QStringLiteral("```{r}")));
    return true;
}

void EditorSession::perform(EditorCommand command)
{
    flushPendingChanges();
    if (onCommand)
        onCommand(command);
}

// ---- breakpoints

void EditorSession::toggleBreakpoint(qsizetype line)
{
    if (line < 0 || line >= m_model.lineCount())
        return;
    if (!m_breakpoints.erase(line))
        m_breakpoints.insert(line);
    emit breakpointsChanged();
}

void EditorSession::setBreakpoints(const std::set<qsizetype> &lines)
{
    m_breakpoints = lines;
    emit breakpointsChanged();
}

void EditorSession::shiftBreakpoints(qsizetype line, qsizetype removedLines, qsizetype insertedLines)
{
    if (removedLines == insertedLines)
        return;
    std::set<qsizetype> moved;
    for (const qsizetype mark : m_breakpoints) {
        if (mark <= line)
            moved.insert(mark);
        else if (mark > line + removedLines)
            moved.insert(mark + insertedLines - removedLines);
        // A mark on a removed line goes with it.
    }
    m_breakpoints = std::move(moved);
    emit breakpointsChanged();
}
