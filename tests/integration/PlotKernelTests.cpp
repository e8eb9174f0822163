// The kernel's plot device against a real R: pages and their events, the geometry it reports for base
// graphics and ggplot2, re-renders at another size and zoom, removal, and exports to PDF and SVG.
#include "LiveSession.h"
#include "PlotGeometry.h"
#include "Session/RSession.h"
#include "TestSupport.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

namespace {

using Kind = SessionEvent::Kind;

struct PlotSession : LiveSession {
    PlotSession() { timeout = std::chrono::seconds(60); }
    // The plot events of one run.
    QList<SessionEvent> plotsOf(const QString &code)
    {
        const qsizetype from = events.size();
        const ExecResult result = run(code);
        EXPECT_TRUE(result.ok) << code.toStdString() << " " << result.output.toStdString();
        return eventsSince(from, Kind::Plot);
    }
};

std::optional<PlotGeometry> geometryOf(const SessionEvent &e)
{
    return PlotGeometry::fromJSON(e.geometry);
}

} // namespace

TEST(PlotKernel, PagesEventsAndGeometryOfBaseGraphics)
{
    PlotSession k;
    ASSERT_TRUE(k.start());
    ASSERT_TRUE(k.request(u"setPlotSize"_qs, {400.0, 300.0, 2.0}).ok());

    QList<SessionEvent> events = k.plotsOf(u"plot(mtcars$wt, mtcars$mpg)"_qs);
    ASSERT_EQ(events.size(), 1);
    EXPECT_EQ(events[0].page, 1);
    EXPECT_TRUE(events[0].isNew);
    EXPECT_EQ(QImage(events[0].file).size(), QSize(800, 600)); // the pane's size at its backing scale
    std::optional<PlotGeometry> g = geometryOf(events[0]);
    ASSERT_TRUE(g);
    ASSERT_EQ(g->points.size(), 32);
    EXPECT_EQ(g->points[0].x, 2.62);
    EXPECT_EQ(g->points[0].y, 21.0);
    EXPECT_EQ(g->points[31].index, 32);
    EXPECT_TRUE(g->zoomable);
    EXPECT_EQ(g->window.x, (PlotSpan{1.513, 5.424}));
    // The first point is drawn where the geometry says, and hovering there finds it.
    const QRectF image(0, 0, 400, 300);
    std::optional<QPointF> at = g->viewPoint(2.62, 21, image);
    ASSERT_TRUE(at);
    std::optional<PlotGeometry::Hit> hit = g->hit(*at + QPointF(2, 2), image, 12);
    ASSERT_TRUE(hit);
    EXPECT_EQ(g->tooltip(*hit).lines[0].value, u"2.62"_qs);

    // Adding to the page in a later run redraws it; it isn't new.
    events = k.plotsOf(u"abline(h = 20)"_qs);
    ASSERT_EQ(events.size(), 1);
    EXPECT_EQ(events[0].page, 1);
    EXPECT_FALSE(events[0].isNew);
    // A run that draws nothing sends nothing.
    EXPECT_TRUE(k.plotsOf(u"x <- 1"_qs).isEmpty());

    events = k.plotsOf(QStringLiteral("hist(c(1, 2, 2, 3, 3, 3))\nbarplot(table(mtcars$cyl))\n"
                                      "par(mfrow = c(1, 2)); plot(1:3); plot(3:1); par(mfrow = c(1, 1))"));
    ASSERT_EQ(events.size(), 3);
    g = geometryOf(events[0]);
    ASSERT_TRUE(g);
    EXPECT_TRUE(g->isHistogram);
    ASSERT_FALSE(g->bars.isEmpty());
    PlotGeometry::Hit barHit;
    barHit.kind = PlotGeometry::Hit::Kind::Bar;
    barHit.bar = g->bars.last();
    EXPECT_EQ(g->tooltip(barHit).lines[0], (PlotGeometry::Tooltip::Line{"Count", "3"}));
    g = geometryOf(events[1]);
    ASSERT_TRUE(g);
    ASSERT_EQ(g->bars.size(), 3);
    EXPECT_EQ(g->bars[1].label, u"6"_qs);
    EXPECT_EQ(g->bars[1].y1, 7);
    EXPECT_EQ(g->xAxis.kind, PlotGeometry::Axis::Kind::Category);
    // Two panels on one page: one page, a plain picture.
    EXPECT_EQ(events[2].page, 4);
    EXPECT_FALSE(geometryOf(events[2]));

    // A device the user opens is theirs: nothing is captured from it.
    const QString file = QDir::temp().filePath(u"vesk-own-plot.png"_qs);
    EXPECT_TRUE(
        k.plotsOf(u"png(%1); plot(1); invisible(dev.off())"_qs.arg(RArgument(file).literal())).isEmpty());
    QFile::remove(file);

    // Nothing of the device shows among the user's objects.
    EXPECT_EQ(k.run(u"cat(ls(all.names = TRUE))"_qs).output.trimmed(), u"x"_qs);
}

TEST(PlotKernel, RenderZoomRemoveAndClear)
{
    PlotSession k;
    ASSERT_TRUE(k.start());
    QList<SessionEvent> events = k.plotsOf(u"plot(1:10, (1:10)^2, log = \"y\")"_qs);
    ASSERT_EQ(events.size(), 1);
    const int page = events[0].page;

    RRequestResult r = k.request(u"renderPlot"_qs, {page, 300.0, 200.0, 1.0},
                                 {{u"xlim"_qs, QList<double>{2, 5}}, {u"ylim"_qs, QList<double>{10, 50}}});
    ASSERT_TRUE(r.ok());
    const QString file = r.value()[u"file"].stringValue().value_or(QString());
    EXPECT_EQ(QImage(file).size(), QSize(300, 200));
    std::optional<PlotGeometry> g = PlotGeometry::fromJSON(r.value()[u"info"]);
    ASSERT_TRUE(g);
    EXPECT_EQ(g->window, (PlotZoom{{2, 5}, {10, 50}}));
    EXPECT_TRUE(g->yLog);
    EXPECT_NEAR(g->usrY.from, std::log10(10.0) - 0.04 * std::log10(5.0), 1e-6);

    // Back to full extent with null limits; a zoom computed from it keeps to powers of ten.
    r = k.request(u"renderPlot"_qs, {page, 300.0, 200.0, 1.0},
                  {{u"xlim"_qs, RArgument()}, {u"ylim"_qs, RArgument()}});
    ASSERT_TRUE(r.ok());
    g = PlotGeometry::fromJSON(r.value()[u"info"]);
    ASSERT_TRUE(g);
    EXPECT_EQ(g->window.y, (PlotSpan{1, 100}));

    EXPECT_FALSE(k.request(u"renderPlot"_qs, {999, 300.0, 200.0, 1.0}).ok());
    // Sizes that make no sense fall back rather than fail.
    ASSERT_TRUE(k.request(u"setPlotSize"_qs, {-1.0, std::nan(""), 0.0}).ok());
    EXPECT_EQ(k.plotsOf(u"plot(1)"_qs).size(), 1);

    ASSERT_TRUE(k.request(u"removePlot"_qs, {page}).ok());
    EXPECT_FALSE(QFileInfo::exists(file));
    EXPECT_FALSE(k.request(u"renderPlot"_qs, {page, 300.0, 200.0, 1.0}).ok());
}

TEST(PlotKernel, GGPlotPointsAndBars)
{
    PlotSession k;
    ASSERT_TRUE(k.start());
    ASSERT_EQ(k.run(u"cat(requireNamespace(\"ggplot2\", quietly = TRUE))"_qs).output, u"TRUE"_qs)
        << "ggplot2 is installed where the tests run";
    QList<SessionEvent> events =
        k.plotsOf(QStringLiteral("library(ggplot2)\nggplot(mtcars, aes(wt, mpg)) + geom_point()\n"
                                 "ggplot(mtcars, aes(factor(cyl))) + geom_bar()\nggplot(mtcars, aes(mpg)) + "
                                 "geom_histogram(bins = 5)"));
    ASSERT_EQ(events.size(), 3);
    std::optional<PlotGeometry> g = geometryOf(events[0]);
    ASSERT_TRUE(g);
    ASSERT_EQ(g->points.size(), 32);
    const QRectF image(0, 0, 504, 504);
    std::optional<QPointF> at = g->viewPoint(g->points[5].x, g->points[5].y, image);
    ASSERT_TRUE(at);
    EXPECT_EQ(g->hit(*at, image, 12)->point.index, 6);
    EXPECT_TRUE(image.contains(g->plotRect(image)));

    g = geometryOf(events[1]);
    ASSERT_TRUE(g);
    ASSERT_EQ(g->bars.size(), 3);
    EXPECT_EQ(g->bars[2].label, u"8"_qs);
    EXPECT_EQ(g->bars[2].y1, 14);
    EXPECT_FALSE(g->isHistogram);
    g = geometryOf(events[2]);
    ASSERT_TRUE(g);
    EXPECT_TRUE(g->isHistogram);
    EXPECT_EQ(g->bars.size(), 5);

    // A zoom redraws the ggplot within the asked limits.
    RRequestResult r = k.request(u"renderPlot"_qs, {events[0].page, 400.0, 300.0, 1.0},
                                 {{u"xlim"_qs, QList<double>{2, 4}}, {u"ylim"_qs, QList<double>{15, 25}}});
    ASSERT_TRUE(r.ok());
    g = PlotGeometry::fromJSON(r.value()[u"info"]);
    ASSERT_TRUE(g);
    EXPECT_EQ(g->usrX, (PlotSpan{2, 4}));
    EXPECT_EQ(g->window.y, (PlotSpan{15, 25}));
}

TEST(PlotKernel, Exports)
{
    PlotSession k;
    ASSERT_TRUE(k.start());
    // The theme's accent draws single-series points.
    ASSERT_TRUE(k.request(u"setTheme"_qs, {true, u"#FF0000"_qs, QStringList{"#FF0000", "#00FF00"}}).ok());
    QList<SessionEvent> events = k.plotsOf(u"plot(cars, cex = 2)"_qs);
    ASSERT_EQ(events.size(), 1);
    const int page = events[0].page;
    const QImage shown(events[0].file);
    EXPECT_EQ(shown.size(), QSize(504, 504)) << "7 inches square until the pane tells its size";
    int red = 0;
    for (int y = 0; y < shown.height(); ++y)
        for (int x = 0; x < shown.width(); ++x)
            red += shown.pixel(x, y) == qRgb(255, 0, 0);
    EXPECT_GT(red, 100);
    QTemporaryDir dir;
    const auto exportAs = [&](const QString &name) {
        const QString path = dir.filePath(name);
        const RRequestResult r =
            k.request(u"exportPlot"_qs, {page, path, QFileInfo(name).suffix(), 504.0, 360.0},
                      {{u"xlim"_qs, RArgument()}, {u"ylim"_qs, RArgument()}, {u"scale"_qs, 1.0}});
        EXPECT_TRUE(r.ok()) << (r.ok() ? "" : r.error().text.toStdString());
        return path;
    };

    QFile svgFile(exportAs(u"plot.svg"_qs));
    ASSERT_TRUE(svgFile.open(QIODevice::ReadOnly));
    QXmlStreamReader svg(&svgFile);
    ASSERT_TRUE(svg.readNextStartElement());
    EXPECT_EQ(svg.name(), u"svg"_qs);
    EXPECT_EQ(svg.attributes().value(u"width"_qs), u"504pt"_qs);
    EXPECT_EQ(svg.attributes().value(u"height"_qs), u"360pt"_qs);
    while (!svg.atEnd())
        svg.readNext();
    EXPECT_FALSE(svg.hasError()) << svg.errorString().toStdString();

    const QString pdf = exportAs(u"plot.pdf"_qs);
    EXPECT_TRUE(QFileInfo(pdf).size() > 0);

    EXPECT_FALSE(
        k.request(u"exportPlot"_qs, {page, dir.filePath(u"x.bmp"_qs), u"bmp"_qs, 504.0, 360.0}).ok());

    const QString pdfinfo = QStandardPaths::findExecutable(u"pdfinfo"_qs);
    ASSERT_FALSE(pdfinfo.isEmpty()) << "pdfinfo (poppler-utils) is installed where the tests run";
    QProcess info;
    info.start(pdfinfo, {pdf});
    ASSERT_TRUE(info.waitForFinished(20000));
    EXPECT_EQ(info.exitCode(), 0);
    const QString out = QString::fromUtf8(info.readAllStandardOutput());
    EXPECT_TRUE(out.contains(QRegularExpression(u"Pages:\\s+1\\n"_qs))) << out.toStdString();
    EXPECT_TRUE(out.contains(u"504 x 360 pts"_qs)) << out.toStdString();
}
