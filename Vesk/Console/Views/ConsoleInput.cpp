#include "ConsoleInput.h"

#include <QKeyEvent>
#include <QTextBlock>

ConsoleInput::ConsoleInput(QWidget *parent) : QPlainTextEdit(parent)
{
    setObjectName(QStringLiteral("consoleInput"));
    setTabChangesFocus(false);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
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
    QPlainTextEdit::changeEvent(event);
    if (event->type() == QEvent::FontChange)
        fitHeight();
}

void ConsoleInput::keyPressEvent(QKeyEvent *event)
{
    const bool shift = event->modifiers() & Qt::ShiftModifier;
    const bool control = event->modifiers() & Qt::ControlModifier;
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (!shift) {
            emit submitted();
            return;
        }
        break;
    case Qt::Key_Up:
        if (textCursor().blockNumber() == 0 && !shift) {
            emit historyBack();
            return;
        }
        break;
    case Qt::Key_Down:
        if (textCursor().blockNumber() == document()->blockCount() - 1 && !shift) {
            emit historyForward();
            return;
        }
        break;
    case Qt::Key_Escape:
        emit interruptRequested();
        return;
    case Qt::Key_C:
        // Ctrl+C copies a selection, and interrupts R otherwise.
        if (control && !textCursor().hasSelection()) {
            emit interruptRequested();
            return;
        }
        break;
    default:
        break;
    }
    QPlainTextEdit::keyPressEvent(event);
}
