// The console's input field: Enter runs, Shift+Enter adds a line, the arrow keys walk the
// history at the first and last line, Escape and Ctrl+C interrupt R.
#pragma once

#include <QPlainTextEdit>

class ConsoleInput : public QPlainTextEdit {
    Q_OBJECT
public:
    explicit ConsoleInput(QWidget *parent = nullptr);

    QSize sizeHint() const override;

signals:
    void submitted();
    void historyBack();
    void historyForward();
    void interruptRequested();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void fitHeight();
};
