#include "PlotFormat.h"
#include "PlotGeometry.h"
#include "QStringPrinting.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

JSONValue parsed(const QString &text)
{
    std::optional<JSONValue> value = JSONValue::parse(QStringView(text));
    EXPECT_TRUE(value.has_value()) << text.toStdString();
    return value.value_or(JSONValue());
}

// A panel of usr x 0..10, y 0..100 over the region x 0.1..0.9, y 0.2..0.8; drawn in a 200 x 100 image at
// the origin, the plot rectangle is x 20..180, y 20..80.
QString panel(const QString &extra = {}, const QString &panelExtra = {})
{
    return QStringLiteral(R"({"panel":{"usr":[0,10,0,100],"region":[0.1,0.9,0.2,0.8],"xlim":[0,10],)"
                          R"("ylim":[0,100]%1},"xaxis":{"kind":"numeric"},"yaxis":{"kind":"numeric"},)"
                          R"("zoomable":true%2})")
        .arg(panelExtra, extra);
}

PlotGeometry geometry(const QString &extra = {}, const QString &panelExtra = {})
{
    std::optional<PlotGeometry> g = PlotGeometry::fromJSON(parsed(panel(extra, panelExtra)));
    EXPECT_TRUE(g.has_value());
    return g.value_or(PlotGeometry());
}

const QRectF image(0, 0, 200, 100);

void expectNear(QPointF a, QPointF b)
{
    EXPECT_NEAR(a.x(), b.x(), 1e-9);
    EXPECT_NEAR(a.y(), b.y(), 1e-9);
}

} // namespace

TEST(PlotGeometryJSON, RequiredPanelAndTolerantRegion)
{
    EXPECT_FALSE(PlotGeometry::fromJSON(JSONValue()));
    EXPECT_FALSE(PlotGeometry::fromJSON(parsed(u"[1,2]"_qs)));
    EXPECT_FALSE(PlotGeometry::fromJSON(parsed(QStringLiteral(R"({"points":{}})"))));
    const auto decodes = [](const char *usr, const char *region, const char *xlim = "[0,1]") {
        return PlotGeometry::fromJSON(
                   parsed(QStringLiteral(R"({"panel":{"usr":%1,"region":%2,"xlim":%3,)"
                                         R"("ylim":[0,1]}})")
                              .arg(QLatin1String(usr), QLatin1String(region), QLatin1String(xlim))))
            .has_value();
    };
    EXPECT_TRUE(decodes("[0,1,0,1]", "[0,1,0,1]"));
    EXPECT_FALSE(decodes("[1,1,0,1]", "[0,1,0,1]"));         // empty span
    EXPECT_FALSE(decodes("[0,1,0,1,2]", "[0,1,0,1]"));       // wrong length
    EXPECT_FALSE(decodes("[0,1,0,\"1\"]", "[0,1,0,1]"));     // not all numbers
    EXPECT_FALSE(decodes("[0,1,0,1]", "[0,1.02,0,1]"));      // beyond the tolerance
    EXPECT_TRUE(decodes("[0,1,0,1]", "[-0.005,1.005,0,1]")); // rounding in the kernel
    EXPECT_FALSE(decodes("[0,1,0,1]", "[0.5,0.5,0,1]"));     // no width
    EXPECT_FALSE(decodes("[0,1,0,1]", "[0,1,0,1]", "[0]"));

    const PlotGeometry g = geometry({}, QStringLiteral(R"(,"xlog":1,"ylog":true)"));
    EXPECT_FALSE(g.xLog); // only JSON true counts
    EXPECT_TRUE(g.yLog);
    EXPECT_EQ(g.window, (PlotZoom{{0, 10}, {0, 100}}));
    EXPECT_TRUE(g.zoomable);
}

TEST(PlotGeometryJSON, OptionalSectionsDegradeAlone)
{
    PlotGeometry g = geometry(QStringLiteral(R"(,"points":{"x":[1,2],"y":[3]},"bars":{"x0":[0,1],"x1":[1,2],)"
                                             R"("y0":[0,0],"y1":[5,6],"labels":["a"]})"));
    EXPECT_TRUE(g.points.isEmpty());
    ASSERT_EQ(g.bars.size(), 2);
    EXPECT_EQ(g.bars[0].label, u"a"_qs);
    EXPECT_FALSE(g.bars[1].label.has_value());
    EXPECT_EQ(g.bars[1].index, 1);

    g = geometry(QStringLiteral(R"(,"points":{"x":[1,2,3],"y":[4,5,6],"index":[7],"series":[1,2],)"
                                R"("truncated":true},"bars":{"x0":[0],"x1":[1],"y0":[0]})"));
    ASSERT_EQ(g.points.size(), 3);
    EXPECT_EQ(g.points[0].index, 7);
    EXPECT_EQ(g.points[2].index, 3); // missing entries count by position
    EXPECT_EQ(g.points[2].series, 1);
    EXPECT_EQ(g.seriesCount, 2);
    EXPECT_TRUE(g.pointsTruncated);
    EXPECT_TRUE(g.bars.isEmpty());

    g = geometry(QStringLiteral(R"(,"points":{"x":[1,null],"y":[1,2]})"));
    EXPECT_TRUE(g.points.isEmpty());
}

TEST(PlotGeometryJSON, Axes)
{
    std::optional<PlotGeometry> g = PlotGeometry::fromJSON(parsed(
        QStringLiteral(R"({"panel":{"usr":[0,4,0,1],"region":[0,1,0,1],"xlim":[0,4],"ylim":[0,1]},)"
                       R"("xaxis":{"kind":"category","at":[1,2,3],"labels":["a",2,"c"],"discrete":true},)"
                       R"("yaxis":{"kind":"category","at":[1,2],"labels":["a"]}})")));
    ASSERT_TRUE(g);
    EXPECT_EQ(g->xAxis.kind, PlotGeometry::Axis::Kind::Category);
    EXPECT_EQ(g->xAxis.labels, (QStringList{"a", "", "c"}));
    EXPECT_TRUE(g->xAxis.discrete);
    EXPECT_EQ(g->yAxis.kind, PlotGeometry::Axis::Kind::None);
}

TEST(PlotGeometryMapping, FitAndRoundTrip)
{
    EXPECT_EQ(PlotGeometry::aspectFit(QSizeF(200, 100), QRectF(0, 0, 100, 100)), QRectF(0, 25, 100, 50));
    EXPECT_EQ(PlotGeometry::aspectFit(QSizeF(0, 100), QRectF(0, 0, 100, 100)), QRectF(0, 0, 100, 100));

    const PlotGeometry g = geometry();
    EXPECT_EQ(g.plotRect(image), QRectF(20, 20, 160, 60));
    expectNear(*g.viewPoint(0, 0, image), QPointF(20, 80));
    expectNear(*g.viewPoint(10, 100, image), QPointF(180, 20));
    expectNear(*g.dataPoint(QPointF(100, 50), image), QPointF(5, 50));
    EXPECT_TRUE(g.dataPoint(QPointF(180.4, 50), image)); // half a point of slack
    EXPECT_FALSE(g.dataPoint(QPointF(180.6, 50), image));
}

TEST(PlotGeometryMapping, LogAxes)
{
    std::optional<PlotGeometry> g = PlotGeometry::fromJSON(parsed(QStringLiteral(
        R"({"panel":{"usr":[0,2,0,1],"region":[0,1,0,1],"xlim":[1,100],"ylim":[0,1],"xlog":true},)"
        R"("points":{"x":[-1,10],"y":[0.5,0.5]},"bars":{"x0":[0],"x1":[10],"y0":[0],"y1":[1]}})")));
    ASSERT_TRUE(g);
    const QRectF r(0, 0, 100, 100);
    EXPECT_FALSE(g->viewPoint(-1, 0.5, r));
    expectNear(*g->viewPoint(10, 0.5, r), QPointF(50, 50));
    EXPECT_NEAR(g->dataPoint(QPointF(50, 50), r)->x(), 10, 1e-9);
    // The negative point can't be hit; pointing at it reaches no other point either.
    EXPECT_FALSE(g->hit(QPointF(0, 50), r, 3) &&
                 g->hit(QPointF(0, 50), r, 3)->kind == PlotGeometry::Hit::Kind::Point);
    // A non-positive bar edge goes to the region's edge.
    EXPECT_EQ(g->viewRect(g->bars[0], r), QRectF(0, 0, 50, 100));
}

TEST(PlotGeometryHit, PointsWinByStrictDistanceAndReachBeyondTheRegion)
{
    // (5, 50) and (6, 50) lie at view x 100 and 116, y 50.
    const PlotGeometry g =
        geometry(QStringLiteral(R"(,"points":{"x":[5,6,5],"y":[50,50,50],"index":[1,2,3]})"));
    std::optional<PlotGeometry::Hit> h = g.hit(QPointF(108, 50), image, 12);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->point.index, 1); // a tie keeps the earlier point
    h = g.hit(QPointF(109, 50), image, 12);
    EXPECT_EQ(h->point.index, 2);
    EXPECT_FALSE(g.hit(QPointF(140, 50), image, 12));

    // Outside the plot rectangle by 5 points, 3 points from a point at its edge.
    const PlotGeometry edge = geometry(QStringLiteral(R"(,"points":{"x":[10],"y":[50]})"));
    EXPECT_TRUE(edge.hit(QPointF(183, 50), image, 12));
    EXPECT_FALSE(edge.hit(QPointF(193, 50), image, 12));
    const PlotGeometry onlyBars =
        geometry(QStringLiteral(R"(,"bars":{"x0":[9],"x1":[10],"y0":[0],"y1":[50]})"));
    EXPECT_FALSE(onlyBars.hit(QPointF(183, 50), image, 12));
}

TEST(PlotGeometryHit, BarsByContainmentThenByColumn)
{
    // Bars over x 1..2 (view 36..52) with heights 20 and 80, and 3..4 (view 68..84) with height 10.
    const PlotGeometry g = geometry(
        QStringLiteral(R"(,"bars":{"x0":[1,3],"x1":[2,4],"y0":[0,0],"y1":[20,10],"labels":["a","b"]})"));
    std::optional<PlotGeometry::Hit> h = g.hit(QPointF(40, 75), image, 12);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->kind, PlotGeometry::Hit::Kind::Bar);
    EXPECT_EQ(h->bar.label, u"a"_qs);
    EXPECT_EQ(h->rect, QRectF(QPointF(36, 68), QPointF(52, 80)));
    // Far above the short bar, but in its column: still that bar.
    h = g.hit(QPointF(70, 25), image, 12);
    ASSERT_TRUE(h);
    EXPECT_EQ(h->bar.index, 1);
    EXPECT_FALSE(g.hit(QPointF(60, 25), image, 12));

    const PlotGeometry horizontal =
        geometry(QStringLiteral(R"(,"bars":{"x0":[0],"x1":[2],"y0":[40],"y1":[60],"horizontal":true})"));
    EXPECT_TRUE(horizontal.hit(QPointF(170, 50), image, 12));
    EXPECT_FALSE(horizontal.hit(QPointF(170, 30), image, 12));

    // A zoom that leaves a bar outside the window clips it away entirely.
    const PlotGeometry outside =
        geometry(QStringLiteral(R"(,"bars":{"x0":[20],"x1":[30],"y0":[0],"y1":[5]})"));
    EXPECT_TRUE(outside.viewRect(outside.bars[0], image).isNull());
    EXPECT_FALSE(outside.hit(QPointF(100, 50), image, 12));
}

TEST(PlotGeometryText, Tooltips)
{
    PlotGeometry g =
        geometry(QStringLiteral(R"(,"points":{"x":[1.5,2],"y":[3,4],"index":[12,13],"series":[1,2]})"));
    PlotGeometry::Hit h;
    h.point = g.points[0];
    PlotGeometry::Tooltip t = g.tooltip(h);
    EXPECT_EQ(t.title, u"Series 1 · #12"_qs);
    EXPECT_EQ(t.lines, (QList<PlotGeometry::Tooltip::Line>{{"x", "1.5"}, {"y", "3"}}));

    // On a category axis the exact value names its tick.
    std::optional<PlotGeometry> cat = PlotGeometry::fromJSON(parsed(
        QStringLiteral(R"({"panel":{"usr":[0.5,3.5,0,10],"region":[0,1,0,1],"xlim":[0.5,3.5],"ylim":[0,10]},)"
                       R"("xaxis":{"kind":"category","at":[1,2,3],"labels":["OJ","VC","X"],"discrete":true},)"
                       R"("points":{"x":[2,2.5],"y":[1,1]}})")));
    ASSERT_TRUE(cat);
    h.point = cat->points[0];
    EXPECT_EQ(cat->tooltip(h).title, u"#1"_qs);
    EXPECT_EQ(cat->tooltip(h).lines[0].value, u"VC"_qs);
    h.point = cat->points[1];
    EXPECT_EQ(cat->tooltip(h).lines[0].value, u"2.5"_qs);

    h.kind = PlotGeometry::Hit::Kind::Bar;
    g = geometry(QStringLiteral(R"(,"bars":{"x0":[0.5,1],"x1":[0,1.5],"y0":[0,0],"y1":[0.2,0.8],)"
                                R"("labels":["",null],"histogram":true})"));
    h.bar = g.bars[0];
    t = g.tooltip(h);
    EXPECT_EQ(t.title, u"0 – 0.5"_qs);
    EXPECT_EQ(t.lines, (QList<PlotGeometry::Tooltip::Line>{{"Density", "0.2"}}));

    g = geometry(QStringLiteral(R"(,"bars":{"x0":[0,1],"x1":[1,2],"y0":[0,0],"y1":[3,4],"histogram":true})"));
    h.bar = g.bars[1];
    EXPECT_EQ(g.tooltip(h).lines[0].label, u"Count"_qs);

    // Stacked bars read their own share; a plain bar without label is numbered from 1.
    g = geometry(QStringLiteral(R"(,"bars":{"x0":[0],"x1":[1],"y0":[5],"y1":[12]})"));
    h.bar = g.bars[0];
    t = g.tooltip(h);
    EXPECT_EQ(t.title, u"Bar 1"_qs);
    EXPECT_EQ(t.lines, (QList<PlotGeometry::Tooltip::Line>{{"Value", "7"}}));
}

TEST(PlotGeometryText, Readouts)
{
    const PlotGeometry g = geometry();
    std::optional<PlotGeometry::Readout> r = g.readout(QPointF(100, 50), image);
    ASSERT_TRUE(r);
    // 10 units over 160 points: 1 decimal; 100 over 60 points: none.
    EXPECT_EQ(r->x, u"5.0"_qs);
    EXPECT_EQ(r->y, u"50"_qs);
    EXPECT_FALSE(g.readout(QPointF(5, 50), image));

    std::optional<PlotGeometry> cat = PlotGeometry::fromJSON(parsed(QStringLiteral(
        R"({"panel":{"usr":[0.5,3.5,0,10],"region":[0,1,0,1],"xlim":[0.5,3.5],"ylim":[0,10]},)"
        R"("xaxis":{"kind":"category","at":[1,2,3],"labels":["a","b","c"],"discrete":true}})")));
    ASSERT_TRUE(cat);
    r = cat->readout(QPointF(55, 50), QRectF(0, 0, 100, 100)); // x = 2.15
    ASSERT_TRUE(r);
    EXPECT_EQ(r->x, u"b"_qs);
    EXPECT_FALSE(r->y); // no y axis described
}

TEST(PlotGeometryZoom, Selections)
{
    const PlotGeometry g = geometry();
    EXPECT_EQ(g.selection(QPointF(50, 40), QPointF(150, 42), image, 6), QRectF(50, 20, 100, 60));
    EXPECT_EQ(g.selection(QPointF(50, 30), QPointF(52, 70), image, 6), QRectF(20, 30, 160, 40));
    EXPECT_FALSE(g.selection(QPointF(50, 40), QPointF(54, 44), image, 6));
    EXPECT_EQ(g.selection(QPointF(0, 0), QPointF(60, 50), image, 6), QRectF(20, 20, 40, 30));
    EXPECT_FALSE(g.selection(QPointF(0, 0), QPointF(10, 10), image, 6));
}

TEST(PlotGeometryZoom, Windows)
{
    const PlotGeometry g = geometry();
    // The x half 0..5 and the y band 25..75 of the data.
    std::optional<PlotZoom> z = g.zoom(QRectF(QPointF(20, 35), QPointF(100, 65)), image);
    ASSERT_TRUE(z);
    EXPECT_NEAR(z->x.from, 0, 1e-9);
    EXPECT_NEAR(z->x.to, 5, 1e-9);
    EXPECT_NEAR(z->y.from, 25, 1e-9);
    EXPECT_NEAR(z->y.to, 75, 1e-9);

    // A band over the whole height keeps y's window as it is.
    z = g.zoom(QRectF(60, 20, 40, 60), image);
    ASSERT_TRUE(z);
    EXPECT_EQ(z->y, g.window.y);
    EXPECT_FALSE(g.zoom(g.plotRect(image), image)); // all of it: nothing to redraw

    PlotGeometry fixed = g;
    fixed.zoomable = false;
    EXPECT_FALSE(fixed.zoom(QRectF(60, 30, 40, 40), image));

    // R's 4% margins: usr spans 1.08 times the window, so a zoom undoes them.
    std::optional<PlotGeometry> r = PlotGeometry::fromJSON(parsed(QStringLiteral(
        R"({"panel":{"usr":[-0.4,10.4,-0.4,10.4],"region":[0,1,0,1],"xlim":[0,10],"ylim":[0,10]},"zoomable":true})")));
    ASSERT_TRUE(r);
    z = r->zoom(QRectF(QPointF(0, 50), QPointF(50, 100)), QRectF(0, 0, 100, 100));
    ASSERT_TRUE(z);
    EXPECT_NEAR(z->x.from, 2.3 - 2.7 / 1.08, 1e-9); // the selection is usr -0.4 .. 5.0
    EXPECT_NEAR(z->x.to, 2.3 + 2.7 / 1.08, 1e-9);

    // A log y axis: limits come back as powers of ten, the margin corrected on logs.
    std::optional<PlotGeometry> log = PlotGeometry::fromJSON(parsed(QStringLiteral(
        R"({"panel":{"usr":[0,1,-0.08,2.08],"region":[0,1,0,1],"xlim":[0,1],"ylim":[1,100],"ylog":true},)"
        R"("zoomable":true})")));
    ASSERT_TRUE(log);
    z = log->zoom(QRectF(0, 0, 100, 50), QRectF(0, 0, 100, 100));
    ASSERT_TRUE(z);
    EXPECT_EQ(z->x, log->window.x);
    EXPECT_NEAR(z->y.from, std::pow(10.0, 1.54 - 0.54 / 1.08), 1e-9);
    EXPECT_NEAR(z->y.to, std::pow(10.0, 1.54 + 0.54 / 1.08), 1e-9);
    EXPECT_GT(z->y.from, 0);

    // A selection too narrow for floating point is refused.
    std::optional<PlotGeometry> tiny = PlotGeometry::fromJSON(parsed(QStringLiteral(
        R"({"panel":{"usr":[1e6,1.0000000000001e6,0,1],"region":[0,1,0,1],"xlim":[1e6,1.0000000000001e6],)"
        R"("ylim":[0,1]},"zoomable":true})")));
    ASSERT_TRUE(tiny);
    EXPECT_FALSE(tiny->zoom(QRectF(10, 0, 20, 100), QRectF(0, 0, 100, 100)));
}

TEST(PlotFormat, Coordinates)
{
    EXPECT_EQ(PlotFormat::coordinate(1234.5678, 0.01), u"1234.57"_qs);
    EXPECT_EQ(PlotFormat::coordinate(-0.001, 0.1), u"0.0"_qs);
    EXPECT_EQ(PlotFormat::coordinate(NAN, 1), u"–"_qs);
    EXPECT_EQ(PlotFormat::coordinate(12345678, 0), u"1.23e+07"_qs);
    EXPECT_EQ(PlotFormat::coordinate(12345678, 1000), u"1.2346e+07"_qs);
    EXPECT_EQ(PlotFormat::coordinate(0.00001234, 1e-12), u"1.23400e-05"_qs); // held at 6
    EXPECT_EQ(PlotFormat::coordinate(5, 1e-12), u"5.00000000"_qs);           // held at 8
    EXPECT_EQ(PlotFormat::coordinate(5, 100), u"5"_qs);
    EXPECT_EQ(PlotFormat::coordinate(1234567, -1), u"1235000"_qs);
    EXPECT_EQ(PlotFormat::coordinate(0.012345, NAN), u"0.01235"_qs);
    EXPECT_EQ(PlotFormat::scientific(1234, 0), u"1e+03"_qs);
}

TEST(PlotFormat, ValuesAndLabels)
{
    EXPECT_EQ(PlotFormat::value(NAN), u"NA"_qs);
    EXPECT_EQ(PlotFormat::value(-INFINITY), u"-Inf"_qs);
    EXPECT_EQ(PlotFormat::value(-0.0), u"0"_qs);
    EXPECT_EQ(PlotFormat::value(-42), u"-42"_qs);
    EXPECT_EQ(PlotFormat::value(1e15), u"1e+15"_qs);
    EXPECT_EQ(PlotFormat::value(3.14159265), u"3.14159"_qs);

    const QList<double> ticks{3, 1, 2};
    const QStringList labels{"c", "a", "b"};
    EXPECT_EQ(PlotFormat::nearestLabel(1.4, ticks, labels), u"a"_qs);
    EXPECT_EQ(PlotFormat::nearestLabel(1.5, ticks, labels), u"a"_qs); // a tie: the first nearest
    EXPECT_FALSE(PlotFormat::nearestLabel(3.6, ticks, labels));
    EXPECT_EQ(PlotFormat::nearestLabel(100, {7}, {"only"}), u"only"_qs);
    EXPECT_FALSE(PlotFormat::nearestLabel(1, {}, {}));
    EXPECT_FALSE(PlotFormat::nearestLabel(1, {1, 2}, {"a"}));
}
