// Kernel plot descriptions of any shape through PlotGeometry: decoding, then every query the overlay
// makes, at pointer positions and image rectangles the input chooses. Besides crashes it checks that
// answers stay inside what the overlay can draw: hits and selections within the plot rectangle.
#include "JSONValue.h"
#include "PlotFormat.h"
#include "PlotGeometry.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "check failed: %s (line %d)\n", #condition, __LINE__);                      \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

// Doubles from the input's tail, for positions and sizes.
struct Numbers {
    const std::uint8_t *data;
    size_t size;
    size_t at = 0;
    double next(double scale)
    {
        if (size == 0)
            return 0;
        const double v = data[at % size] * 256.0 + data[(at + 1) % size];
        at += 2;
        return v / 65535.0 * scale - scale / 4;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, size_t size)
{
    // The first 16 bytes drive the geometry queries; the rest is the JSON.
    const size_t head = size < 16 ? size : 16;
    Numbers numbers{data, head};
    const std::optional<JSONValue> json =
        JSONValue::parse(QByteArrayView(reinterpret_cast<const char *>(data + head), qsizetype(size - head)));
    if (!json)
        return 0;
    const std::optional<PlotGeometry> g = PlotGeometry::fromJSON(*json);
    if (!g)
        return 0;
    const QRectF image(numbers.next(100), numbers.next(100), 1 + std::fabs(numbers.next(800)),
                       1 + std::fabs(numbers.next(800)));
    const QRectF plot = g->plotRect(image);
    const QPointF pointer(numbers.next(1000), numbers.next(1000));
    if (const std::optional<PlotGeometry::Hit> hit = g->hit(pointer, image, 12)) {
        const PlotGeometry::Tooltip tip = g->tooltip(*hit);
        CHECK(!tip.title.isEmpty());
        if (hit->kind == PlotGeometry::Hit::Kind::Bar)
            CHECK(hit->rect.left() >= plot.left() - 1e-6 && hit->rect.right() <= plot.right() + 1e-6);
    }
    if (const std::optional<PlotGeometry::Readout> r = g->readout(pointer, image))
        CHECK(r->x || r->y);
    const QPointF other(numbers.next(1000), numbers.next(1000));
    if (const std::optional<QRectF> selected = g->selection(pointer, other, image, 6)) {
        CHECK(selected->left() >= plot.left() - 1e-6 && selected->right() <= plot.right() + 1e-6);
        if (const std::optional<PlotZoom> z = g->zoom(*selected, image)) {
            CHECK(std::isfinite(z->x.from) && std::isfinite(z->x.to) && std::isfinite(z->y.from) &&
                  std::isfinite(z->y.to));
            CHECK(!(*z == g->window));
        }
    }
    for (const PlotGeometry::Bar &bar : g->bars)
        (void)g->viewRect(bar, image);
    (void)PlotFormat::coordinate(pointer.x(), other.y());
    (void)PlotFormat::value(pointer.y());
    return 0;
}
