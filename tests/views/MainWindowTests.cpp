#include "App/Views/MainWindow.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QStatusBar>

#include <gtest/gtest.h>

TEST(MainWindowView, ShowsConsoleAndStatusLine)
{
    MainWindow window;
    window.show();
    window.setStatusText(QStringLiteral("R 4.2 · pid 1"));
    ASSERT_NE(window.console(), nullptr);
    EXPECT_TRUE(window.console()->isReadOnly());
    const QList<QLabel *> labels = window.statusBar()->findChildren<QLabel *>();
    bool found = false;
    for (QLabel *label : labels)
        found = found || label->text() == QStringLiteral("R 4.2 · pid 1");
    EXPECT_TRUE(found);
    const QPixmap shot = window.grab();
    EXPECT_FALSE(shot.isNull());
}
