// The console's plot items offscreen, fed with plot events and picture files but no R: each shows
// a thumbnail of its page with its help text, a click selects that page and brings the Plots tab
// forward, and a page removed from the store, or from before the store was emptied, leaves an inert
// frame.
#include "App/Views/WorkspacePane.h"
#include "Console/Views/ConsoleTranscriptView.h"
#include "Console/Views/ConsoleView.h"
#include "OffscreenWorkspace.h"
#include "Plots/Views/PlotThumbnails.h"
#include "Plots/Views/PlotsPane.h"

#include <QApplication>
#include <QHelpEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QTabWidget>
#include <QTextBlock>
#include <QToolTip>

#include <gtest/gtest.h>

namespace {

struct ConsoleFixture : OffscreenWindow {
    ConsoleFixture()
    {
        window->resize(1100, 700);
        window->show();
        QApplication::processEvents();
    }
    ConsoleTranscriptView *transcript() const { return window->console()->transcript(); }
    // A page drawn in one flat colour, so that its thumbnail can be told apart from anything else.
    void draw(int page, QColor color)
    {
        QImage image(480, 360, QImage::Format_RGB32);
        image.fill(color);
        const QString file = dir.filePath(u"page-%1.png"_qs.arg(page));
        image.save(file);
        SessionEvent event;
        event.kind = SessionEvent::Kind::Plot;
        event.page = page;
        event.file = file;
        event.isNew = true;
        workspace->handle(event);
        workspace->console().flush();
        QApplication::processEvents();
    }
    // The middle of the page's first (or last) thumbnail, scrolled into the transcript's view.
    std::optional<QPoint> thumbnail(int page, bool last = false) const
    {
        std::optional<int> position;
        const QTextDocument *document = transcript()->document();
        for (QTextBlock block = document->begin(); block.isValid(); block = block.next())
            for (auto it = block.begin(); !it.atEnd(); ++it)
                if (PlotThumbnails::pageOf(it.fragment().charFormat()) == page && (last || !position))
                    position = it.fragment().position();
        if (!position)
            return std::nullopt;
        QTextCursor cursor(transcript()->document());
        cursor.setPosition(*position);
        transcript()->setTextCursor(cursor);
        transcript()->ensureCursorVisible();
        const QRect at = transcript()->cursorRect(cursor);
        return QPoint(at.left() + 20, at.center().y());
    }
    QColor shown(QPoint at) const { return transcript()->viewport()->grab().toImage().pixelColor(at); }
    void click(QPoint at) const
    {
        QWidget *viewport = transcript()->viewport();
        QMouseEvent press(QEvent::MouseButtonPress, at, viewport->mapToGlobal(at), Qt::LeftButton,
                          Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(viewport, &press);
        QMouseEvent release(QEvent::MouseButtonRelease, at, viewport->mapToGlobal(at), Qt::LeftButton,
                            Qt::NoButton, Qt::NoModifier);
        QApplication::sendEvent(viewport, &release);
    }
};

} // namespace

TEST(ConsolePlotItem, ThumbnailHelpTextAndClick)
{
    ConsoleFixture f;
    f.draw(1, QColor(200, 30, 30));
    f.draw(2, QColor(30, 30, 200));
    EXPECT_EQ(f.workspace->plots().store().selectedPage(), 2);
    EXPECT_FALSE(f.transcript()->toPlainText().contains(u"[plot"_qs)) << "no text stand-in";

    // Each shows its own page's picture.
    const auto second = f.thumbnail(2);
    ASSERT_TRUE(second);
    EXPECT_EQ(f.transcript()->plotAt(*second), 2);
    const QColor blue = f.shown(*second);
    EXPECT_GT(blue.blue(), 150);
    EXPECT_LT(blue.red(), 90);
    const auto first = f.thumbnail(1);
    ASSERT_TRUE(first);
    EXPECT_EQ(f.transcript()->plotAt(*first), 1);
    EXPECT_EQ(f.transcript()->plotAt(*first + QPoint(400, 0)), std::nullopt) << "beside it is text";
    const QColor red = f.shown(*first);
    EXPECT_GT(red.red(), 150);
    EXPECT_LT(red.blue(), 90);

    QHelpEvent help(QEvent::ToolTip, *first, f.transcript()->viewport()->mapToGlobal(*first));
    QApplication::sendEvent(f.transcript()->viewport(), &help);
    EXPECT_EQ(QToolTip::text(), u"Plot 1. Click to open it in the Plots pane."_qs);
    QToolTip::hideText();

    // A click on the first one while the user reads the workspace list: page 1, in front.
    f.window->inspector()->setCurrentWidget(f.window->workspacePane());
    f.click(*first);
    EXPECT_EQ(f.workspace->plots().store().selectedPage(), 1);
    EXPECT_EQ(f.window->inspector()->currentWidget(), f.window->plotsPane());
    EXPECT_EQ(f.window->plotsPane()->pageLabel()->text(), u"1 / 2"_qs);

    // A removed page: its item stays, as a frame that neither shows a picture nor selects anything.
    f.workspace->plots().remove(1);
    QApplication::processEvents();
    const auto removed = f.thumbnail(1);
    ASSERT_TRUE(removed);
    const QColor frame = f.shown(*removed);
    EXPECT_LT(frame.red() - frame.green(), 40) << "not the red picture";
    f.click(*removed);
    EXPECT_EQ(f.workspace->plots().store().selectedPage(), 2);

    // A redrawn page shows its new picture in the same place.
    f.draw(2, QColor(30, 160, 30));
    const QColor green = f.shown(*f.thumbnail(2));
    EXPECT_GT(green.green(), 120);
    EXPECT_LT(green.blue(), 90);

    // Emptied, as by a restart of R that numbers from 1 again: a new page 2 is not the old one's.
    f.workspace->plots().store().reset();
    f.workspace->console().begin(u"e1"_qs, u"plot(2)"_qs, ExecOrigin::console());
    f.draw(2, QColor(30, 160, 30));
    const auto before = f.thumbnail(2);
    ASSERT_TRUE(before);
    EXPECT_EQ(f.transcript()->plotAt(*before), std::nullopt);
    EXPECT_LT(f.shown(*before).green() - f.shown(*before).red(), 40) << "a frame, not the new picture";
    const auto now = f.thumbnail(2, true);
    ASSERT_TRUE(now);
    EXPECT_EQ(f.transcript()->plotAt(*now), 2);
    EXPECT_GT(f.shown(*now).green(), 120);

    // A redraw of the whole transcript keeps that apart.
    f.window->console()->applyLook();
    EXPECT_EQ(f.transcript()->plotAt(*f.thumbnail(2)), std::nullopt);
    EXPECT_EQ(f.transcript()->plotAt(*f.thumbnail(2, true)), 2);
}
