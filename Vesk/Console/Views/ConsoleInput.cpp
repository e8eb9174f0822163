#include "ConsoleInput.h"

#include <QKeyEvent>
#include <QTextBlock>

ConsoleInput::ConsoleInput(QWidget *parent) : CodeEditor(EditorMode::console, parent)
{
    setObjectName(QStringLiteral("consoleInput"));
    EditorConfiguration configuration = session()->configuration();
    configuration.showLineNumbers = false;
    configuration.highlightCurrentLine = false;
    configuration.wrapLines = true;
    applyConfiguration(configuration);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    session()->onCommand = [this](EditorCommand command) {
        if (command == EditorCommand::submit)
            emit submitted();
    };
    session()->onHistory = [this](bool up) -> std::optional<QString> {
        return history ? history(up) : std::nullopt;
    };
    connect(document(), &QTextDocument::blockCountChanged, this, &ConsoleInput::fitHeight);
    fitHeight();
}

QSize ConsoleInput::sizeHint() const
{
    return {400, height()};
}

void ConsoleInput::fitHeight()
{
    const int lines = std::clamp(document()->blockCount(), 1, 8);
    setVerticalScrollBarPolicy(document()->blockCount() > 8 ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
    const QMargins margins = contentsMargins();
    const int height = fontMetrics().lineSpacing() * lines + 2 * int(document()->documentMargin()) +
                       margins.top() + margins.bottom() + 2 * frameWidth() + 4;
    setFixedHeight(height);
}

void ConsoleInput::changeEvent(QEvent *event)
{
    CodeEditor::changeEvent(event);
    if (event->type() == QEvent::FontChange)
        fitHeight();
}

void ConsoleInput::keyPressEvent(QKeyEvent *event)
{
    const bool control = event->modifiers() & Qt::ControlModifier;
    if (event->key() == Qt::Key_Escape && !session()->handleEscape()) {
        emit interruptRequested();
        return;
    }
    // Ctrl+C copies a selection, and interrupts R otherwise.
    if (event->key() == Qt::Key_C && control && !(event->modifiers() & Qt::ShiftModifier) &&
        !textCursor().hasSelection()) {
        emit interruptRequested();
        return;
    }
    CodeEditor::keyPressEvent(event);
}
