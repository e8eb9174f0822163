#include "CodeEditor.h"

#include "App/Views/Appearance.h"
#include "Base/Settings.h"

#include <QApplication>
#include <QFontDatabase>
#include <QKeyEvent>
#include <QPainter>
#include <QScrollBar>
#include <QTextBlock>

namespace {

class Gutter : public QWidget {
public:
    explicit Gutter(CodeEditor *editor) : QWidget(editor), m_editor(editor) { setObjectName("editorGutter"); }
    QSize sizeHint() const override { return {m_editor->gutterWidth(), 0}; }

protected:
    void paintEvent(QPaintEvent *event) override { m_editor->paintGutter(event); }
    void mousePressEvent(QMouseEvent *event) override { m_editor->gutterClicked(int(event->position().y())); }

private:
    CodeEditor *m_editor;
};

constexpr int breakpointSpace = 14;

} // namespace

CodeEditor::CodeEditor(EditorMode mode, QWidget *parent) : QPlainTextEdit(parent)
{
    setObjectName(QStringLiteral("codeEditor"));
    m_session = new EditorSession(document(), mode, this);
    m_session->cursorSource = [this] { return textCursor(); };
    m_session->cursorSink = [this](const QTextCursor &cursor) { setTextCursor(cursor); };
    m_session->isComposing = [this] { return m_composing; };
    m_session->revealCaret = [this] { centerCursor(); };
    m_session->visibleLines = [this] {
        // Rows of the viewport counted as blocks: with wrapped lines a few more than are shown.
        const qsizetype first = std::max(0, firstVisibleBlock().blockNumber());
        return std::pair{first, first + viewport()->height() / std::max(1, fontMetrics().lineSpacing()) + 1};
    };
    m_session->caretOnEdgeLine = [this](bool up) {
        const QTextCursor cursor = textCursor();
        const QTextBlock block = cursor.block();
        const QTextLayout *layout = block.layout();
        const int inBlock = cursor.position() - block.position();
        const int line =
            layout && layout->lineCount() > 0 ? layout->lineForTextPosition(inBlock).lineNumber() : 0;
        if (up)
            return block == document()->firstBlock() && line <= 0;
        const int last = layout && layout->lineCount() > 0 ? layout->lineCount() - 1 : 0;
        return block == document()->lastBlock() && (line < 0 || line >= last);
    };
    setTabChangesFocus(false);
    setReadOnly(mode == EditorMode::display);
    // The user edits a loading text only once all of it is in.
    connect(m_session, &EditorSession::loadingChanged, this,
            [this](bool loading) { setReadOnly(loading || m_session->mode() == EditorMode::display); });

    m_gutter = new Gutter(this);
    connect(this, &QPlainTextEdit::blockCountChanged, this, &CodeEditor::updateGutterWidth);
    connect(this, &QPlainTextEdit::updateRequest, this, &CodeEditor::updateGutter);
    connect(this, &QPlainTextEdit::cursorPositionChanged, m_session, &EditorSession::scheduleDeferredUpdate);
    // Lines scrolled into view while slices still style the file are styled at once.
    connect(verticalScrollBar(), &QScrollBar::valueChanged, m_session, &EditorSession::restyleDirtyLines);
    connect(m_session, &EditorSession::cursorStateChanged, this, &CodeEditor::updateExtraSelections);
    connect(m_session, &EditorSession::breakpointsChanged, m_gutter, qOverload<>(&QWidget::update));
    if (mode != EditorMode::document)
        m_configuration.showLineNumbers = false;
    applyTheme();
    applyConfiguration(m_configuration);
}

void CodeEditor::followSettings(Settings &settings)
{
    const auto read = [this, &settings] {
        EditorConfiguration configuration = EditorConfiguration::fromSettings(settings);
        if (m_session->mode() != EditorMode::document) {
            // The console input keeps its own font and shows neither gutter nor current line.
            configuration.fontSize = font().pointSizeF();
            configuration.showLineNumbers = false;
            configuration.highlightCurrentLine = false;
            configuration.wrapLines = true;
        }
        applyConfiguration(configuration);
    };
    connect(&settings, &Settings::changed, this, [read](const QString &key) {
        static const QStringList keys{Settings::editorFontSize,    Settings::tabWidth,
                                      Settings::showLineNumbers,   Settings::highlightCurrentLine,
                                      Settings::autoCloseBrackets, Settings::wrapLines,
                                      Settings::appearance};
        if (keys.contains(key))
            read();
    });
    read();
}

void CodeEditor::applyConfiguration(const EditorConfiguration &configuration)
{
    const bool restyle = configuration.fontSize != m_configuration.fontSize ||
                         configuration.tabWidth != m_configuration.tabWidth;
    m_configuration = configuration;
    m_session->setConfiguration(configuration);
    if (m_session->mode() == EditorMode::document) {
        QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        font.setPointSizeF(configuration.fontSize);
        setFont(font);
    }
    setTabStopDistance(fontMetrics().horizontalAdvance(QString(std::max(1, configuration.tabWidth), u' ')));
    setLineWrapMode(configuration.wrapLines ? QPlainTextEdit::WidgetWidth : QPlainTextEdit::NoWrap);
    if (restyle)
        m_session->restyleAll();
    updateGutterWidth();
    updateExtraSelections();
}

void CodeEditor::applyTheme()
{
    const EditorTheme theme = Appearance::isDark() ? EditorTheme::dark() : EditorTheme::light();
    QPalette palette = this->palette();
    palette.setColor(QPalette::Base, theme.background);
    palette.setColor(QPalette::Text, theme.text);
    setPalette(palette);
    m_session->setTheme(theme);
    updateExtraSelections();
    m_gutter->update();
}

void CodeEditor::setSearchMatches(const QList<QTextEdit::ExtraSelection> &matches)
{
    m_searchMatches = matches;
    updateExtraSelections();
}

// ---- gutter

int CodeEditor::gutterWidth() const
{
    if (!m_configuration.showLineNumbers)
        return m_session->mode() == EditorMode::document ? breakpointSpace + 4 : 0;
    const int digits = QString::number(std::max(1, blockCount())).size();
    return breakpointSpace + 8 + fontMetrics().horizontalAdvance(u'9') * std::max(2, digits);
}

void CodeEditor::updateGutterWidth()
{
    const bool shown = m_session->mode() == EditorMode::document;
    setViewportMargins(shown ? gutterWidth() : 0, 0, 0, 0);
    m_gutter->setVisible(shown);
    const QRect rect = contentsRect();
    m_gutter->setGeometry(QRect(rect.left(), rect.top(), shown ? gutterWidth() : 0, rect.height()));
}

void CodeEditor::updateGutter(const QRect &rect, int dy)
{
    if (dy)
        m_gutter->scroll(0, dy);
    else
        m_gutter->update(0, rect.y(), m_gutter->width(), rect.height());
}

void CodeEditor::resizeEvent(QResizeEvent *event)
{
    QPlainTextEdit::resizeEvent(event);
    updateGutterWidth();
    m_session->restyleDirtyLines();
}

void CodeEditor::paintGutter(QPaintEvent *event)
{
    const EditorTheme &theme = m_session->theme();
    QPainter painter(m_gutter);
    painter.fillRect(event->rect(), theme.gutterBackground);
    painter.setFont(font());
    QTextBlock block = firstVisibleBlock();
    int top = qRound(blockBoundingGeometry(block).translated(contentOffset()).top());
    const int lineHeight = fontMetrics().height();
    const int currentLine = textCursor().blockNumber();
    while (block.isValid() && top <= event->rect().bottom()) {
        const int height = qRound(blockBoundingRect(block).height());
        if (block.isVisible() && top + height >= event->rect().top()) {
            const int number = block.blockNumber();
            if (m_session->breakpoints().count(number)) {
                painter.setRenderHint(QPainter::Antialiasing);
                painter.setPen(Qt::NoPen);
                painter.setBrush(theme.breakpoint);
                const int size = std::min(10, lineHeight - 4);
                painter.drawEllipse(QRect(3, top + (lineHeight - size) / 2, size, size));
            }
            if (m_configuration.showLineNumbers) {
                painter.setPen(number == currentLine ? theme.text : theme.gutterText);
                painter.drawText(0, top, m_gutter->width() - 6, lineHeight, Qt::AlignRight | Qt::AlignVCenter,
                                 QString::number(number + 1));
            }
        }
        block = block.next();
        top += height;
    }
}

void CodeEditor::gutterClicked(int y)
{
    const QTextCursor cursor = cursorForPosition(QPoint(0, y));
    m_session->toggleBreakpoint(cursor.blockNumber());
}

// ---- decorations

void CodeEditor::updateExtraSelections()
{
    const EditorTheme &theme = m_session->theme();
    QList<QTextEdit::ExtraSelection> selections;
    if (m_configuration.highlightCurrentLine && !textCursor().hasSelection()) {
        QTextEdit::ExtraSelection line;
        line.format.setBackground(theme.currentLine);
        line.format.setProperty(QTextFormat::FullWidthSelection, true);
        line.cursor = textCursor();
        line.cursor.clearSelection();
        selections.append(line);
    }
    selections.append(m_searchMatches);
    if (const auto &pair = m_session->bracketPair()) {
        for (const qsizetype offset : {pair->first, pair->second}) {
            QTextEdit::ExtraSelection bracket;
            bracket.format.setBackground(theme.bracketMatch);
            bracket.cursor = QTextCursor(document());
            bracket.cursor.setPosition(int(offset));
            bracket.cursor.setPosition(int(offset) + 1, QTextCursor::KeepAnchor);
            selections.append(bracket);
        }
    }
    setExtraSelections(selections);
    m_gutter->update();
}

// ---- keys

bool CodeEditor::handleKeyEquivalent(QKeyEvent *event, bool dryRun)
{
    const Qt::KeyboardModifiers modifiers =
        event->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier | Qt::AltModifier | Qt::MetaModifier);
    const int key = event->key();
    const bool control = modifiers & Qt::ControlModifier;
    const bool shift = modifiers & Qt::ShiftModifier;
    const bool alt = modifiers & Qt::AltModifier;
    const bool document = m_session->mode() == EditorMode::document;
    const bool console = m_session->mode() == EditorMode::console;
    const bool editable = !isReadOnly();
    std::function<void()> action;

    if (alt && !control && key == Qt::Key_Minus && editable)
        action = [this] { m_session->insertOperator(QStringLiteral("<-")); };
    else if (control && (key == Qt::Key_Return || key == Qt::Key_Enter)) {
        if (!shift && !alt)
            action = [this, console] {
                m_session->perform(console ? EditorCommand::submit : EditorCommand::runLineOrSelection);
            };
        else if (shift && !alt && document)
            action = [this] { m_session->perform(EditorCommand::runAll); };
        else if (alt && !shift && document)
            action = [this] { m_session->perform(EditorCommand::runSection); };
    } else if (control && alt && !shift && key == Qt::Key_B && document)
        action = [this] { m_session->perform(EditorCommand::runToCursor); };
    else if (control && shift && !alt && key == Qt::Key_S && document)
        action = [this] { m_session->perform(EditorCommand::source); };
    else if (control && !shift && !alt && key == Qt::Key_I)
        action = [this] { m_session->perform(EditorCommand::inlineAssist); };
    else if (control && shift && !alt && key == Qt::Key_M && editable)
        action = [this] { m_session->insertOperator(QStringLiteral("|>")); };
    else if (editable && control && !alt &&
             ((key == Qt::Key_Slash && !shift) || (key == Qt::Key_C && shift) || key == Qt::Key_Question))
        action = [this] { m_session->toggleComment(); };
    else if (editable && control && !alt && !shift &&
             (key == Qt::Key_BracketRight || key == Qt::Key_BracketLeft))
        action = [this, key] { m_session->shiftLines(key == Qt::Key_BracketRight); };
    else if (document && control && !shift && key == Qt::Key_F)
        action = [this, alt] { emit findRequested(alt); };
    else if (document && control && !alt && key == Qt::Key_G)
        action = [this, shift] { emit findNextRequested(shift); };
    else if (document && control && !alt && !shift && key == Qt::Key_E)
        action = [this] { emit useSelectionForFind(); };

    if (!action)
        return false;
    if (!dryRun) {
        m_session->flushPendingChanges();
        action();
    }
    return true;
}

bool CodeEditor::event(QEvent *event)
{
    // The editor's own keys win over menu shortcuts while it has the focus.
    if (event->type() == QEvent::ShortcutOverride && !m_composing &&
        handleKeyEquivalent(static_cast<QKeyEvent *>(event), true)) {
        event->accept();
        return true;
    }
    return QPlainTextEdit::event(event);
}

void CodeEditor::keyPressEvent(QKeyEvent *event)
{
    if (m_composing || isReadOnly()) {
        QPlainTextEdit::keyPressEvent(event);
        return;
    }
    if (handleKeyEquivalent(event, false))
        return;
    const Qt::KeyboardModifiers modifiers = event->modifiers();
    const bool command = modifiers & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier);
    const bool shift = modifiers & Qt::ShiftModifier;
    bool handled = false;
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (!command)
            handled = m_session->handleReturn(shift);
        break;
    case Qt::Key_Tab:
        if (!command)
            handled = m_session->handleTab(false);
        break;
    case Qt::Key_Backtab:
        if (!(modifiers & (Qt::ControlModifier | Qt::AltModifier)))
            handled = m_session->handleTab(true);
        break;
    case Qt::Key_Backspace:
        if (!command)
            handled = m_session->handleBackspace();
        break;
    case Qt::Key_Up:
    case Qt::Key_Down:
        if (!command && !shift)
            handled = m_session->handleVerticalArrow(event->key() == Qt::Key_Up);
        break;
    case Qt::Key_Escape:
        handled = m_session->handleEscape();
        break;
    default: {
        const QString text = event->text();
        if (!command && text.size() == 1 && text.at(0).isPrint())
            handled = m_session->handleTypedCharacter(text.at(0));
        break;
    }
    }
    if (handled) {
        ensureCursorVisible();
        return;
    }
    QPlainTextEdit::keyPressEvent(event);
}

void CodeEditor::mouseDoubleClickEvent(QMouseEvent *event)
{
    QPlainTextEdit::mouseDoubleClickEvent(event);
    if (event->button() != Qt::LeftButton)
        return;
    const int at = cursorForPosition(event->position().toPoint()).position();
    const RTextRange name = m_session->nameRange(at);
    if (name.length > 0)
        m_session->setSelection(name.location, name.length);
}

void CodeEditor::inputMethodEvent(QInputMethodEvent *event)
{
    m_composing = !event->preeditString().isEmpty();
    QPlainTextEdit::inputMethodEvent(event);
    if (!m_composing)
        m_session->restyleDirtyLines();
}

void CodeEditor::changeEvent(QEvent *event)
{
    QPlainTextEdit::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::ApplicationPaletteChange) {
        const EditorTheme wanted = Appearance::isDark() ? EditorTheme::dark() : EditorTheme::light();
        if (!(wanted == m_session->theme()))
            applyTheme();
    } else if (event->type() == QEvent::FontChange) {
        updateGutterWidth();
    }
}
