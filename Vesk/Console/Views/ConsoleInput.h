// The console's input field: an editor session in console mode. Enter runs once the input is
// complete R (otherwise it adds an indented line), Shift+Enter always adds a line, the arrow keys
// walk the history at the first and last line, Escape and Ctrl+C interrupt R.
#pragma once

#include "Editor/Views/CodeEditor.h"

#include <functional>
#include <optional>

class ConsoleInput : public CodeEditor {
    Q_OBJECT
public:
    explicit ConsoleInput(QWidget *parent = nullptr);

    QSize sizeHint() const override;
    // The history entry before (`back`) or after the one shown, if there is one.
    std::function<std::optional<QString>(bool back)> history;

signals:
    void submitted();
    void interruptRequested();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void fitHeight();
};
