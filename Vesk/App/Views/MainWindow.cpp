#include "MainWindow.h"

#include <QFontDatabase>
#include <QLabel>
#include <QPlainTextEdit>
#include <QStatusBar>

MainWindow::MainWindow(QWidget *parent) : QMainWindow(parent)
{
    setWindowTitle(QStringLiteral("Vesk"));
    resize(1100, 720);

    m_console = new QPlainTextEdit(this);
    m_console->setReadOnly(true);
    m_console->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_console->setObjectName(QStringLiteral("console"));
    setCentralWidget(m_console);

    m_status = new QLabel(this);
    statusBar()->addWidget(m_status, 1);
}

void MainWindow::setStatusText(const QString &text)
{
    m_status->setText(text);
}
