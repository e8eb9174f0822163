// The workspace's plot operations against a real R: events into the store and the console, resize
// with its debounce, zoom and its re-renders, removal, export and the theme sent to the kernel; the
// pane's suggestions and its page window with R's vector drawing.
#include "App/Workspace.h"
#include "Base/Settings.h"
#include "LiveWorkspace.h"
#include "Plots/Views/PlotWindow.h"
#include "Plots/Views/PlotsPane.h"
#include "TestSupport.h"

#include <QApplication>
#include <QDir>
#include <QImage>
#include <QPushButton>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

struct PlotWorkspace : LiveWorkspace {
    // What R answers to a line of code, trimmed.
    QString printed(const QString &code) { return run(code).output.trimmed(); }
    const PlotStore::Page *page(int id) { return workspace.plots().store().page(id); }
    // Waits for the page's picture to change from `revision`.
    bool redrawn(int id, int revision)
    {
        return TestSupport::waitUntil([&] { return page(id) && page(id)->revision > revision; }, 30s);
    }
    QSize pixels(int id) { return page(id) ? workspace.plots().store().image(id).size() : QSize(); }
    QList<int> consolePlots()
    {
        QList<int> pages;
        workspace.console().flush();
        for (const ConsoleModel::Cell &cell : workspace.console().cells())
            for (const ConsoleModel::Item &item : cell.items)
                if (item.kind == ConsoleModel::Item::Kind::Plot)
                    pages.append(item.page);
        return pages;
    }
};

QSize scaled(QSize points, double scale)
{
    return QSize(qRound(points.width() * scale), qRound(points.height() * scale));
}

} // namespace

TEST(WorkspacePlots, EventsResizeAndZoom)
{
    PlotWorkspace f;
    Workspace &w = f.workspace;
    ASSERT_TRUE(f.start());
    // Rounded to multiples of 8; the debounce then tells R the size.
    w.plots().areaResized(QSize(403, 301));
    EXPECT_EQ(w.plots().lastSize(), QSize(400, 304));
    TestSupport::spin(400ms);
    ASSERT_TRUE(f.idle());

    ASSERT_TRUE(f.run(u"plot(mtcars$wt, mtcars$mpg)"_qs).ok);
    ASSERT_EQ(w.plots().store().pages().size(), 1);
    EXPECT_EQ(w.plots().store().selectedPage(), 1);
    EXPECT_EQ(f.pixels(1), scaled(QSize(400, 304), w.plots().scale())) << "drawn at the pane's size";
    ASSERT_TRUE(f.page(1)->geometry);
    EXPECT_EQ(f.page(1)->geometry->points.size(), 32);
    EXPECT_EQ(f.consolePlots(), QList<int>{1});
    EXPECT_EQ(w.inspectorTab(), Workspace::InspectorTab::Plots);

    // A redraw of the page from R's side doesn't pull the inspector away from another pane.
    w.setInspectorTab(std::nullopt);
    ASSERT_TRUE(f.run(u"abline(h = 20)"_qs).ok);
    EXPECT_EQ(f.page(1)->revision, 1);
    EXPECT_FALSE(w.inspectorTab());
    const PlotZoom full = f.page(1)->geometry->window;

    // Zoom: the page is drawn again within the window.
    const PlotZoom zoom{{2, 4}, {15, 25}};
    int revision = f.page(1)->revision;
    w.plots().zoom(1, zoom);
    EXPECT_EQ(f.page(1)->zoom, zoom);
    ASSERT_TRUE(f.redrawn(1, revision));
    ASSERT_TRUE(f.page(1)->geometry);
    EXPECT_EQ(f.page(1)->geometry->window, zoom);
    w.plots().zoom(1, zoom);
    EXPECT_TRUE(f.idle());
    EXPECT_EQ(f.page(1)->revision, revision + 1) << "the same zoom draws nothing";

    // R adds to the zoomed page: the kept zoom is drawn again rather than lost.
    revision = f.page(1)->revision;
    ASSERT_TRUE(f.run(u"points(3, 20, col = \"red\")"_qs).ok);
    ASSERT_TRUE(f.redrawn(1, revision));
    ASSERT_TRUE(f.idle());
    EXPECT_EQ(f.page(1)->zoom, zoom);
    EXPECT_EQ(f.page(1)->geometry->window, zoom);
    EXPECT_EQ(f.page(1)->geometry->points.size(), 33);

    // Two zooms in quick succession: the first answer is dropped, only the second counts.
    revision = f.page(1)->revision;
    const PlotZoom narrower{{2.5, 3.5}, {18, 22}};
    w.plots().zoom(1, PlotZoom{{2, 5}, {12, 30}});
    w.plots().zoom(1, narrower);
    ASSERT_TRUE(f.redrawn(1, revision));
    ASSERT_TRUE(f.idle());
    TestSupport::spin(100ms);
    EXPECT_EQ(f.page(1)->revision, revision + 1);
    EXPECT_EQ(f.page(1)->geometry->window, narrower);

    // Reset returns to the figure's own limits.
    revision = f.page(1)->revision;
    w.plots().zoom(1, std::nullopt);
    ASSERT_TRUE(f.redrawn(1, revision));
    EXPECT_EQ(f.page(1)->geometry->window, full);

    // A live drag of the pane costs one render at its settled size; collapsed sizes are ignored.
    ASSERT_TRUE(f.idle());
    revision = f.page(1)->revision;
    for (int width : {420, 450, 500, 560})
        w.plots().areaResized(QSize(width, 400));
    w.plots().areaResized(QSize(100, 500));
    EXPECT_EQ(w.plots().lastSize(), QSize(560, 400));
    ASSERT_TRUE(f.redrawn(1, revision));
    TestSupport::spin(500ms);
    ASSERT_TRUE(f.idle());
    EXPECT_EQ(f.page(1)->revision, revision + 1);
    EXPECT_EQ(f.pixels(1), scaled(QSize(560, 400), w.plots().scale()));
}

TEST(WorkspacePlots, RemovalClearingAndHundredPages)
{
    PlotWorkspace f;
    Workspace &w = f.workspace;
    ASSERT_TRUE(f.start());
    ASSERT_TRUE(f.run(u"for (i in 1:100) plot(i, main = i)"_qs).ok);
    ASSERT_EQ(w.plots().store().pages().size(), 100);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(w.plots().store().pages()[i].id, i + 1);
    EXPECT_EQ(w.plots().store().selectedPage(), 100);
    EXPECT_EQ(f.consolePlots().size(), 100);

    // Removing the selected last page selects the one before it, here and in the kernel.
    w.plots().remove(100);
    EXPECT_EQ(w.plots().store().selectedPage(), 99);
    ASSERT_TRUE(f.idle());
    EXPECT_EQ(f.printed(u"cat(exists(\"100\", envir = .vesk$plotPages))"_qs), u"FALSE"_qs);
    w.plots().store().step(-1);
    w.plots().remove(50);
    EXPECT_EQ(w.plots().store().selectedPage(), 98) << "removing another page keeps the selection";

    w.plots().clear();
    EXPECT_TRUE(w.plots().store().pages().isEmpty());
    EXPECT_FALSE(w.plots().store().selectedPage());
    ASSERT_TRUE(f.run(u"plot(1)"_qs).ok);
    ASSERT_EQ(w.plots().store().pages().size(), 1);
    EXPECT_EQ(w.plots().store().pages()[0].id, 101) << "the kernel never gives a number out twice";
    EXPECT_EQ(f.printed(u"cat(ls(.vesk$plotPages))"_qs), u"101"_qs);

    // A restart starts a new history.
    w.restartR();
    EXPECT_TRUE(w.plots().store().pages().isEmpty());
    ASSERT_TRUE(f.idle());
    ASSERT_TRUE(f.run(u"plot(1)"_qs).ok);
    EXPECT_EQ(w.plots().store().selectedPage(), 1);
}

TEST(WorkspacePlots, ThemeAndExport)
{
    QList<Alert> alerts; // outlives the workspace that reports into it
    PlotWorkspace f;
    Workspace &w = f.workspace;
    w.presentAlert = [&](const Alert &alert) { alerts.append(alert); };
    // A graphite accent can't carry a chart: the kernel gets blue.
    w.plots().accent = [] { return QColor(0x8E, 0x8E, 0x93); };
    ASSERT_TRUE(f.start());
    ASSERT_GE(w.plots().appliedTheme().size(), 3);
    EXPECT_EQ(w.plots().appliedTheme()[1], u"#007AFF"_qs);
    EXPECT_EQ(f.printed(u"cat(.vesk$plotTheme$accent, .vesk$plotTheme$palette[1:2])"_qs),
              u"#007AFF #007AFF #007AFF"_qs);

    // Nothing changed: nothing is sent (what R was told meanwhile stays).
    ASSERT_TRUE(f.run(u".vesk$plotTheme$accent <- \"#123456\""_qs).ok);
    w.plots().refreshTheme();
    ASSERT_TRUE(f.idle());
    EXPECT_EQ(f.printed(u"cat(.vesk$plotTheme$accent)"_qs), u"#123456"_qs);

    // A setting change reaches R; so does a new accent.
    f.settings.setValue(Settings::modernPlots, false);
    ASSERT_TRUE(f.idle());
    EXPECT_EQ(f.printed(u"cat(.vesk$plotTheme$modern)"_qs), u"FALSE"_qs);
    w.plots().accent = [] { return QColor(0xE0, 0x10, 0x20); };
    f.settings.setValue(Settings::modernPlots, true);
    w.plots().refreshTheme();
    ASSERT_TRUE(f.idle());
    EXPECT_EQ(f.printed(u"cat(.vesk$plotTheme$modern, .vesk$plotTheme$accent)"_qs), u"TRUE #E01020"_qs);

    // Export of a zoomed page: the file has the pixels the resolution implies, and the resolution
    // becomes the setting.
    ASSERT_TRUE(f.run(u"plot(cars)"_qs).ok);
    const int page = *w.plots().store().selectedPage();
    w.plots().zoom(page, PlotZoom{{5, 15}, {0, 40}});
    ASSERT_TRUE(f.idle());
    std::optional<bool> exported;
    const QString png = f.dir.filePath(u"cars.png"_qs);
    w.plots().exportImage(page, png, u"png"_qs, QSizeF(504, 360), 300, [&](bool ok) { exported = ok; });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return exported.has_value(); }, 30s));
    EXPECT_TRUE(*exported);
    EXPECT_EQ(QImage(png).size(), QSize(2100, 1500)); // 7 by 5 inches at 300 DPI
    EXPECT_NEAR(QImage(png).dotsPerMeterX() * 0.0254, 300, 1);
    EXPECT_EQ(f.settings.plotExportDPIValue(), 300);
    EXPECT_TRUE(alerts.isEmpty());

    exported.reset();
    w.plots().exportImage(page, f.dir.filePath(u"missing/folder/cars.pdf"_qs), u"pdf"_qs, QSizeF(504, 360),
                          144, [&](bool ok) { exported = ok; });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return exported.has_value(); }, 30s));
    EXPECT_FALSE(*exported);
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_EQ(alerts[0].title, u"The plot could not be exported."_qs);
}

TEST(WorkspacePlots, PaneSuggestionAndWindowWithRsVectorDrawing)
{
    PlotWorkspace f;
    ASSERT_TRUE(f.start());
    PlotsPane pane(f.workspace);
    pane.resize(480, 400);
    pane.show();
    QApplication::processEvents();
    ASSERT_TRUE(pane.emptyState()->isVisible());

    // The labelled suggestion runs its longer code.
    QPushButton *boxplot = nullptr;
    for (QPushButton *button : pane.emptyState()->findChildren<QPushButton *>())
        if (button->text() == u"boxplot(len ~ supp, ToothGrowth)"_qs)
            boxplot = button;
    ASSERT_TRUE(boxplot);
    boxplot->click();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return f.page(1) != nullptr; }, 30s));
    ASSERT_TRUE(f.idle());
    const QList<ConsoleModel::Cell> &cells = f.workspace.console().cells();
    EXPECT_TRUE(std::any_of(cells.begin(), cells.end(), [](const ConsoleModel::Cell &cell) {
        return cell.code == u"boxplot(len ~ supp, data = ToothGrowth)"_qs;
    }));
    QApplication::processEvents();
    EXPECT_FALSE(pane.emptyState()->isVisible());

    const auto leftovers = [] { return QDir::temp().entryList({u"vesk-plot-*.pdf"_qs}, QDir::Files); };
    const QStringList before = leftovers();
    const auto open = [&](bool &settled) {
        PlotWindow *window = pane.openInWindow();
        if (window)
            QObject::connect(window, &PlotWindow::settled, [&settled] { settled = true; });
        return window;
    };
    bool settled = false;
    PlotWindow *window = open(settled);
    ASSERT_TRUE(window);
    EXPECT_EQ(window->windowTitle(), u"Plot 1"_qs);
    EXPECT_FALSE(window->showsVector()) << "the picture shows at once";
    ASSERT_TRUE(TestSupport::waitUntil([&] { return settled; }, 30s));
    EXPECT_TRUE(window->showsVector());
    EXPECT_EQ(leftovers(), before) << "the temporary file is gone";

    // R no longer knows the page: the export fails, the window keeps the picture, no file is left.
    bool removed = false;
    f.workspace.session().request(u"removePlot"_qs, {RArgument(1)}, {},
                                  [&](const RRequestResult &) { removed = true; });
    ASSERT_TRUE(TestSupport::waitUntil([&] { return removed; }, 30s));
    settled = false;
    window = open(settled);
    ASSERT_TRUE(window);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return settled; }, 30s));
    EXPECT_FALSE(window->showsVector());
    EXPECT_EQ(leftovers(), before);
}
