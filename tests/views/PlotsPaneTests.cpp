// The plots pane offscreen, fed through the store without R: page count and stepping, hover texts
// over a known point and the empty plot area, drag to zoom and double click to reset, the pane's
// size reported to the workspace, the pane brought forward by a new page, and the page window.
#include "App/Views/WorkspacePane.h"
#include "JSONValue.h"
#include "OffscreenWorkspace.h"
#include "Plots/Views/PlotInteractionOverlay.h"
#include "Plots/Views/PlotWindow.h"
#include "Plots/Views/PlotsPane.h"

#include <QApplication>
#include <QBuffer>
#include <QImage>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPdfWriter>
#include <QTabWidget>
#include <QToolButton>

#include <gtest/gtest.h>

namespace {

// Data 0..10 on both axes over the middle 80% of the picture; two points.
const char *geometryJSON = R"({"panel": {"usr": [0, 10, 0, 10], "region": [0.1, 0.9, 0.1, 0.9],
    "xlim": [0, 10], "ylim": [0, 10]},
    "points": {"x": [2.5, 5], "y": [5, 7.5]},
    "xaxis": {"kind": "numeric"}, "yaxis": {"kind": "numeric"}, "zoomable": true})";

struct PaneFixture : OffscreenWorkspace {
    std::unique_ptr<PlotsPane> pane;

    PaneFixture()
    {
        pane = std::make_unique<PlotsPane>(*workspace);
        pane->resize(440, 360);
        pane->show();
        QApplication::processEvents();
    }
    void addPage(int id)
    {
        QImage image(400, 300, QImage::Format_RGB32);
        image.fill(Qt::white);
        const QString file = dir.filePath(u"plot-%1.png"_qs.arg(id));
        image.save(file);
        workspace->plots().store().update(id, file, true,
                                          PlotGeometry::fromJSON(*JSONValue::parse(geometryJSON)));
    }
    PlotInteractionOverlay *overlay() const { return pane->overlay(); }
    QPointF viewPoint(double x, double y) const
    {
        return *workspace->plots()
                    .store()
                    .page(*workspace->plots().store().selectedPage())
                    ->geometry->viewPoint(x, y, overlay()->imageRect());
    }
    void mouse(QEvent::Type type, QPointF at, Qt::MouseButton button = Qt::NoButton,
               Qt::MouseButtons buttons = Qt::NoButton)
    {
        QMouseEvent event(type, at, overlay()->mapToGlobal(at), button, buttons, Qt::NoModifier);
        QApplication::sendEvent(overlay(), &event);
    }
};

} // namespace

TEST(PlotsPaneView, PagesHoverZoomAndSize)
{
    PaneFixture f;
    EXPECT_EQ(f.pane->pageLabel()->text(), QString());
    EXPECT_FALSE(f.pane->canvas()->isVisible()) << "the empty state shows instead";

    f.addPage(1);
    f.addPage(2);
    QApplication::processEvents();
    EXPECT_EQ(f.pane->pageLabel()->text(), u"2 / 2"_qs);
    EXPECT_FALSE(f.pane->nextButton()->isEnabled());
    f.pane->previousButton()->click();
    EXPECT_EQ(f.pane->pageLabel()->text(), u"1 / 2"_qs);
    EXPECT_FALSE(f.pane->previousButton()->isEnabled());
    EXPECT_TRUE(f.pane->nextButton()->isEnabled());

    // The canvas's size reaches the workspace, rounded.
    const QSize canvas = f.pane->canvas()->size();
    EXPECT_EQ(f.workspace->plots().lastSize(),
              QSize(qRound(canvas.width() / 8.0) * 8, qRound(canvas.height() / 8.0) * 8));

    // Near a point: its values. Elsewhere in the plot: the coordinates under the pointer.
    f.mouse(QEvent::MouseMove, f.viewPoint(5, 7.5) + QPointF(3, -2));
    EXPECT_EQ(f.overlay()->calloutLines(), (QStringList{"#2", "x  5", "y  7.5"}));
    f.mouse(QEvent::MouseMove, f.viewPoint(8, 2));
    const QStringList readout = f.overlay()->calloutLines();
    ASSERT_EQ(readout.size(), 2);
    EXPECT_TRUE(readout[0].startsWith(u"x  8"_qs)) << readout[0].toStdString();
    EXPECT_TRUE(readout[1].startsWith(u"y  2"_qs)) << readout[1].toStdString();
    QEvent leave(QEvent::Leave);
    QApplication::sendEvent(f.overlay(), &leave);
    EXPECT_TRUE(f.overlay()->calloutLines().isEmpty());

    // A drag zooms the page; a double click returns to the whole plot.
    const int page = *f.workspace->plots().store().selectedPage();
    EXPECT_FALSE(f.pane->resetZoomButton()->isVisible());
    f.mouse(QEvent::MouseButtonPress, f.viewPoint(2, 2), Qt::LeftButton, Qt::LeftButton);
    f.mouse(QEvent::MouseMove, f.viewPoint(4, 4), Qt::NoButton, Qt::LeftButton);
    f.mouse(QEvent::MouseMove, f.viewPoint(6, 6), Qt::NoButton, Qt::LeftButton);
    EXPECT_TRUE(f.overlay()->calloutLines().isEmpty()) << "no hover while dragging";
    f.mouse(QEvent::MouseButtonRelease, f.viewPoint(6, 6), Qt::LeftButton, Qt::NoButton);
    const auto zoom = f.workspace->plots().store().page(page)->zoom;
    ASSERT_TRUE(zoom);
    EXPECT_NEAR(zoom->x.from, 2, 0.1);
    EXPECT_NEAR(zoom->x.to, 6, 0.1);
    EXPECT_NEAR(zoom->y.from, 2, 0.1);
    EXPECT_TRUE(f.pane->resetZoomButton()->isVisible());
    f.mouse(QEvent::MouseButtonDblClick, f.viewPoint(5, 5), Qt::LeftButton, Qt::LeftButton);
    EXPECT_FALSE(f.workspace->plots().store().page(page)->zoom);
    EXPECT_FALSE(f.pane->resetZoomButton()->isVisible());

    // A short click is no drag.
    f.mouse(QEvent::MouseButtonPress, f.viewPoint(2, 2), Qt::LeftButton, Qt::LeftButton);
    f.mouse(QEvent::MouseMove, f.viewPoint(2, 2) + QPointF(2, 1), Qt::NoButton, Qt::LeftButton);
    f.mouse(QEvent::MouseButtonRelease, f.viewPoint(2, 2) + QPointF(2, 1), Qt::LeftButton, Qt::NoButton);
    EXPECT_FALSE(f.workspace->plots().store().page(page)->zoom);

    f.workspace->plots().remove(page);
    EXPECT_EQ(f.pane->pageLabel()->text(), u"1 / 1"_qs);
    f.workspace->plots().clear();
    EXPECT_FALSE(f.pane->canvas()->isVisible());
}

TEST(PlotsPaneView, ANewPageBringsThePlotsTabForward)
{
    OffscreenWindow f;
    Workspace &workspace = *f.workspace;
    MainWindow &window = *f.window;
    window.show();
    EXPECT_NE(window.inspector()->currentWidget(), window.plotsPane());

    SessionEvent event;
    event.kind = SessionEvent::Kind::Plot;
    event.page = 1;
    event.file = f.dir.filePath(u"missing.png"_qs);
    event.isNew = true;
    workspace.handle(event);
    EXPECT_EQ(window.inspector()->currentWidget(), window.plotsPane());

    // A redraw of the page while the user reads the workspace list leaves them there.
    window.inspector()->setCurrentWidget(window.workspacePane());
    event.isNew = false;
    workspace.handle(event);
    EXPECT_EQ(window.inspector()->currentWidget(), window.workspacePane());
    EXPECT_EQ(workspace.plots().store().pages().size(), 1) << "an unreadable picture still makes a page";
}

TEST(PlotsPaneView, WindowSwapsItsPictureForAVectorDrawing)
{
    QImage picture(200, 200, QImage::Format_RGB32);
    picture.fill(QColor(0, 0, 255));
    PlotWindow window(3, picture, QSize(200, 200));
    window.show();
    EXPECT_EQ(window.windowTitle(), u"Plot 3"_qs);
    const auto shown = [&](int x, int y) { return window.grab().toImage().pixelColor(x, y); };
    const auto near = [](QColor a, QColor b) {
        return std::abs(a.red() - b.red()) + std::abs(a.green() - b.green()) + std::abs(a.blue() - b.blue()) <
               12;
    };
    const auto middle = [&] { return shown(100, 100); };
    EXPECT_EQ(middle(), QColor(0, 0, 255));

    EXPECT_FALSE(window.showVector("%PDF-1.4 not really"));
    EXPECT_FALSE(window.showsVector());
    EXPECT_EQ(middle(), QColor(0, 0, 255)) << "a failure keeps the picture";

    // A page as R's pdf device makes one: white, with a red square in the middle.
    QByteArray pdf;
    {
        QBuffer buffer(&pdf);
        buffer.open(QIODevice::WriteOnly);
        QPdfWriter writer(&buffer);
        writer.setPageSize(QPageSize(QSizeF(100, 100), QPageSize::Point));
        writer.setPageMargins(QMarginsF());
        writer.setResolution(72);
        QPainter painter(&writer);
        painter.fillRect(QRectF(0, 0, 100, 100), Qt::white);
        painter.fillRect(QRectF(20, 20, 60, 60), Qt::red);
    }
    ASSERT_TRUE(window.showVector(pdf));
    EXPECT_TRUE(window.showsVector());
    EXPECT_TRUE(near(middle(), Qt::red)) << middle().name().toStdString();
    EXPECT_TRUE(near(shown(5, 100), Qt::white)) << shown(5, 100).name().toStdString();
    // Drawn again for a larger window, not scaled up from the first rendering.
    window.resize(400, 400);
    EXPECT_TRUE(near(shown(200, 200), Qt::red));
    EXPECT_TRUE(near(shown(60, 200), Qt::white)) << shown(60, 200).name().toStdString();
}
