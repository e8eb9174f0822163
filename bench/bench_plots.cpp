// Plots against a real R: from the end of a run that draws a 10,000-point scatter to its picture
// decoded (the kernel's recording, PNG rendering and geometry, the event, the client's decoding), and
// a re-render after a resize. Also the client's per-pointer-move hit test over those points.
#include "BenchFigures.h"
#include "PlotGeometry.h"
#include "Session/RSession.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QImage>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

namespace {

double msSince(const QElapsedTimer &timer)
{
    return timer.nsecsElapsed() / 1e6;
}

struct Bench {
    RSession session;
    QElapsedTimer clock;
    std::optional<double> plotShownAt; // when the last plot's picture and geometry were decoded
    int lastPage = 0;
    std::optional<PlotGeometry> lastGeometry;
    QByteArray lastGeometryJSON;
    double eventAt = 0;
    std::vector<double> imageDecodeMs, geometryDecodeMs;

    Bench()
    {
        clock.start();
        session.onEvent = [this](const SessionEvent &e) {
            if (e.kind != SessionEvent::Kind::Plot)
                return;
            eventAt = msSince(clock);
            const QImage image(e.file);
            imageDecodeMs.push_back(msSince(clock) - eventAt);
            const double geometryStart = msSince(clock);
            lastGeometry = PlotGeometry::fromJSON(e.geometry);
            lastGeometryJSON = e.geometry.serialized();
            geometryDecodeMs.push_back(msSince(clock) - geometryStart);
            if (!image.isNull())
                plotShownAt = msSince(clock);
            lastPage = e.page;
        };
    }

    // The run's duration to its "done", and when its plot was shown (relative to the start).
    std::pair<double, double> run(const QString &code)
    {
        bool done = false;
        plotShownAt.reset();
        const double start = msSince(clock);
        double finished = 0;
        session.enqueueExec(code, ExecOrigin::system(), std::nullopt, 1, [&](const ExecResult &) {
            finished = msSince(clock);
            done = true;
        });
        TestSupport::waitForEvents([&] { return done; });
        return {finished - start, plotShownAt ? *plotShownAt - start : -1};
    }

    RRequestResult request(const QString &name, const QList<RArgument> &args)
    {
        std::optional<RRequestResult> result;
        session.request(name, args, {}, [&](const RRequestResult &r) { result = r; });
        TestSupport::waitForEvents([&] { return result.has_value(); });
        return result.value_or(RRequestResult(RSessionError::noResponse()));
    }
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    Bench b;
    b.session.start(TestSupport::rExecutable(), QDir::tempPath(), TestSupport::kernelScript());
    if (!TestSupport::waitForEvents([&] { return b.session.status().kind == RSessionStatus::Kind::Idle; })) {
        std::fprintf(stderr, "R did not start\n");
        return 1;
    }
    b.request(QStringLiteral("setPlotSize"), {504.0, 400.0, 2.0});
    b.run(QStringLiteral("set.seed(1); x <- rnorm(10000); y <- x + rnorm(10000)"));
    b.run(QStringLiteral("plot(x, y)")); // warm-up: packages, fonts

    // The same drawing on a device of the user's own is not captured: its run time is R's drawing
    // alone, so the difference is the cost after the run's code has finished.
    std::vector<double> shown, drawOnly;
    for (int i = 0; i < 7; ++i) {
        const auto [duration, plotAt] = b.run(QStringLiteral("plot(x, y)"));
        if (plotAt >= 0)
            shown.push_back(plotAt);
        drawOnly.push_back(b.run(QStringLiteral("pdf(NULL); plot(x, y); invisible(dev.off())")).first);
        (void)duration;
    }
    const double shownMs = median(shown);
    const double drawMs = median(drawOnly);
    std::printf("plot_scatter10k_run_to_shown: %.1f ms\n", shownMs);
    std::printf("plot_scatter10k_drawing_alone: %.1f ms\n", drawMs);
    std::printf("plot_scatter10k_after_run_to_shown: %.1f ms\n", std::max(0.0, shownMs - drawMs));
    std::printf("plot_scatter10k_image_decode: %.1f ms\n", median(b.imageDecodeMs));
    std::printf("plot_scatter10k_geometry_decode: %.1f ms\n", median(b.geometryDecodeMs));

    // The same with 100 points: what the picture costs without a large geometry to carry.
    std::vector<double> small;
    for (int i = 0; i < 7; ++i) {
        const double plotAt = b.run(QStringLiteral("plot(x[1:100], y[1:100])")).second;
        if (plotAt >= 0)
            small.push_back(plotAt);
    }
    std::printf("plot_scatter100_run_to_shown: %.1f ms\n", median(small));
    b.run(QStringLiteral("plot(x, y)"));

    // A resize settles: one renderPlot at the new size, its picture and geometry decoded.
    std::vector<double> rerender;
    const int page = b.lastPage;
    for (int i = 0; i < 7; ++i) {
        QElapsedTimer timer;
        timer.start();
        const double width = i % 2 ? 640.0 : 560.0;
        const RRequestResult r = b.request(QStringLiteral("renderPlot"), {page, width, 400.0, 2.0});
        if (!r.ok())
            continue;
        const QImage image(r.value()[u"file"].stringValue().value_or(QString()));
        const std::optional<PlotGeometry> g = PlotGeometry::fromJSON(r.value()[u"info"]);
        if (!image.isNull() && g)
            rerender.push_back(msSince(timer));
    }
    std::printf("plot_rerender_after_resize: %.1f ms\n", median(rerender));

    // The client's share of the event: reading the geometry's JSON text (a few hundred kilobytes).
    if (b.lastGeometryJSON.size() > 0) {
        std::vector<double> parse;
        for (int i = 0; i < 5; ++i) {
            QElapsedTimer timer;
            timer.start();
            const std::optional<JSONValue> json = JSONValue::parse(QByteArrayView(b.lastGeometryJSON));
            if (json)
                parse.push_back(msSince(timer));
        }
        std::printf("plot_scatter10k_geometry_json_parse: %.1f ms\n", median(parse));
        std::printf("plot_scatter10k_geometry_json_size: %.0f kB\n", b.lastGeometryJSON.size() / 1024.0);
    }

    if (b.lastGeometry) {
        const QRectF image(0, 0, 504, 400);
        const int moves = 200;
        QElapsedTimer timer;
        timer.start();
        int hits = 0;
        for (int i = 0; i < moves; ++i)
            hits += b.lastGeometry->hit(QPointF(40 + i * 2, 60 + i), image, 12).has_value();
        std::printf("plot_hit_test_10k_points: %.1f us\n", msSince(timer) * 1000 / moves);
        (void)hits;
    }
    b.session.shutDown();
    return 0;
}
