#include "PlotThumbnails.h"

#include "App/Views/Appearance.h"
#include "Plots/PlotStore.h"

#include <QPaintDevice>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace {

constexpr qsizetype cacheLimit = 48;
// Room above and below a thumbnail, so that two in a row stay apart.
constexpr qreal gap = 3;

} // namespace

PlotThumbnails::PlotThumbnails(QObject *parent) : QObject(parent) {}

void PlotThumbnails::setPlots(PlotStore *plots)
{
    if (m_plots)
        disconnect(m_plots, nullptr, this, nullptr);
    m_plots = plots;
    m_cache.clear();
    m_hadPages = plots && !plots->pages().isEmpty();
    if (!plots)
        return;
    connect(plots, &PlotStore::changed, this, [this] {
        const bool hasPages = !m_plots->pages().isEmpty();
        if (m_hadPages && !hasPages) {
            ++m_generation;
            m_cache.clear();
        }
        m_hadPages = hasPages;
    });
}

QTextCharFormat PlotThumbnails::format(int page, int generation) const
{
    QTextCharFormat format;
    format.setProperty(sizeProperty, size(page));
    format.setObjectType(objectType);
    format.setProperty(pageProperty, page);
    format.setProperty(generationProperty, generation);
    return format;
}

std::optional<int> PlotThumbnails::pageOf(const QTextFormat &format)
{
    if (format.objectType() != objectType || !format.hasProperty(pageProperty))
        return std::nullopt;
    return format.intProperty(pageProperty);
}

std::optional<int> PlotThumbnails::livePage(const QTextFormat &format) const
{
    const auto page = pageOf(format);
    if (!page || format.intProperty(generationProperty) != m_generation || !m_plots || !m_plots->page(*page))
        return std::nullopt;
    return page;
}

QSizeF PlotThumbnails::size(int page) const
{
    const PlotStore::Page *p = m_plots ? m_plots->page(page) : nullptr;
    const QSize picture = p ? p->imageSize : QSize();
    if (picture.isEmpty())
        return QSizeF(maxHeight * 4.0 / 3.0, maxHeight);
    const double aspect = double(picture.width()) / picture.height();
    const double width = std::clamp(maxHeight * aspect, 48.0, double(maxWidth));
    return QSizeF(std::round(width), std::round(std::clamp(width / aspect, 32.0, double(maxHeight))));
}

QSizeF PlotThumbnails::intrinsicSize(QTextDocument *, int, const QTextFormat &format)
{
    const auto page = pageOf(format);
    if (!page)
        return {};
    const QSizeF kept = format.property(sizeProperty).toSizeF();
    return (kept.isEmpty() ? size(*page) : kept) + QSizeF(0, 2 * gap);
}

QImage PlotThumbnails::thumbnail(int page, QSize pixels, qreal ratio)
{
    const PlotStore::Page *p = m_plots ? m_plots->page(page) : nullptr;
    if (!p || !p->hasImage() || pixels.isEmpty())
        return {};
    auto found = m_cache.find(page);
    if (found != m_cache.end() && found->revision == p->revision && found->pixels == pixels)
        return found->image;
    QImage image = QImage::fromData(p->imageData);
    if (image.isNull())
        return {};
    image = image.scaled(pixels, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    image.setDevicePixelRatio(ratio);
    if (m_cache.size() >= cacheLimit && !m_cache.contains(page))
        m_cache.clear();
    m_cache.insert(page, {p->revision, pixels, image});
    return image;
}

void PlotThumbnails::drawObject(QPainter *painter, const QRectF &rect, QTextDocument *, int,
                                const QTextFormat &format)
{
    const auto page = pageOf(format);
    if (!page)
        return;
    const bool live = livePage(format).has_value();
    const ConsoleColors &colors = Appearance::consoleColors();
    const QRectF box = rect.adjusted(0.5, gap + 0.5, -0.5, -gap - 0.5);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    QPainterPath outline;
    outline.addRoundedRect(box, 4, 4);
    const qreal ratio = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
    const QImage image = live ? thumbnail(*page, (box.size() * ratio).toSize(), ratio) : QImage();
    if (!image.isNull()) {
        painter->fillPath(outline, Qt::white);
        const QSizeF shown = image.deviceIndependentSize();
        const QRectF target(box.center() - QPointF(shown.width() / 2, shown.height() / 2), shown);
        painter->setClipPath(outline);
        painter->drawImage(target, image);
        painter->setClipping(false);
        painter->setPen(QPen(colors.muted, 1));
        painter->setOpacity(0.5);
        painter->drawPath(outline);
    } else {
        // A page that is gone (removed, cleared, from an earlier R, or a picture that couldn't be
        // read): its number only.
        painter->fillPath(outline, colors.codeBackground);
        painter->setPen(QPen(colors.muted, 1, Qt::DashLine));
        painter->drawPath(outline);
        painter->drawText(box, Qt::AlignCenter, QStringLiteral("Plot %1").arg(*page));
    }
    painter->restore();
}
