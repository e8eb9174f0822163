// The window of one workspace: the console area and the status line.
#pragma once

#include <QMainWindow>

class QLabel;
class QPlainTextEdit;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(QWidget *parent = nullptr);

    QPlainTextEdit *console() const { return m_console; }
    void setStatusText(const QString &text);

private:
    QPlainTextEdit *m_console = nullptr;
    QLabel *m_status = nullptr;
};
