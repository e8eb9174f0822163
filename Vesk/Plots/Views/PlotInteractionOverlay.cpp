#include "PlotInteractionOverlay.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>

#include <cmath>

PlotInteractionOverlay::PlotInteractionOverlay(QWidget *parent) : QWidget(parent)
{
    setMouseTracking(true);
    setAttribute(Qt::WA_TranslucentBackground);
}

void PlotInteractionOverlay::setPlot(std::optional<PlotGeometry> geometry, QSizeF imageSize)
{
    m_geometry = std::move(geometry);
    m_imageSize = imageSize;
    m_dragStart.reset();
    m_dragEnd.reset();
    updateHover();
}

QRectF PlotInteractionOverlay::imageRect() const
{
    return PlotGeometry::aspectFit(m_imageSize, QRectF(rect()));
}

std::optional<QRectF> PlotInteractionOverlay::currentSelection() const
{
    if (!m_geometry || !m_dragStart || !m_dragEnd)
        return std::nullopt;
    return m_geometry->selection(*m_dragStart, *m_dragEnd, imageRect(), minimumSelection);
}

void PlotInteractionOverlay::updateHover()
{
    m_hit.reset();
    m_callout.clear();
    if (m_geometry && m_pointer && !m_dragEnd) {
        const QRectF image = imageRect();
        m_hit = m_geometry->hit(*m_pointer, image, hitRadius);
        if (m_hit) {
            const PlotGeometry::Tooltip tip = m_geometry->tooltip(*m_hit);
            m_callout.append(tip.title);
            for (const PlotGeometry::Tooltip::Line &line : tip.lines)
                m_callout.append(line.label + QStringLiteral("  ") + line.value);
        } else if (const auto readout = m_geometry->readout(*m_pointer, image)) {
            if (readout->x)
                m_callout.append(QStringLiteral("x  ") + *readout->x);
            if (readout->y)
                m_callout.append(QStringLiteral("y  ") + *readout->y);
        }
    }
    update();
}

void PlotInteractionOverlay::mouseMoveEvent(QMouseEvent *event)
{
    const QPointF at = event->position();
    m_pointer = at;
    if (m_dragStart && (event->buttons() & Qt::LeftButton)) {
        const QPointF moved = at - *m_dragStart;
        if (m_dragEnd || std::hypot(moved.x(), moved.y()) > dragThreshold)
            m_dragEnd = at;
    }
    updateHover();
}

void PlotInteractionOverlay::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_dragStart = event->position();
    m_dragEnd.reset();
}

void PlotInteractionOverlay::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton) {
        QWidget::mouseReleaseEvent(event);
        return;
    }
    const std::optional<QRectF> selected = currentSelection();
    m_dragStart.reset();
    m_dragEnd.reset();
    if (selected && m_geometry) {
        if (const auto zoom = m_geometry->zoom(*selected, imageRect()); zoom && onZoom)
            onZoom(*zoom);
    }
    updateHover();
}

void PlotInteractionOverlay::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && onDoubleClick)
        onDoubleClick();
}

void PlotInteractionOverlay::leaveEvent(QEvent *)
{
    m_pointer.reset();
    updateHover();
}

void PlotInteractionOverlay::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = palette().color(QPalette::Highlight);

    if (const auto selected = currentSelection()) {
        QColor fill = accent;
        fill.setAlphaF(0.15);
        painter.fillRect(*selected, fill);
        painter.setPen(QPen(accent, 1));
        painter.drawRect(*selected);
        return;
    }
    if (m_hit) {
        painter.setPen(QPen(Qt::white, 2));
        if (m_hit->kind == PlotGeometry::Hit::Kind::Point) {
            painter.setBrush(Qt::NoBrush);
            painter.drawEllipse(m_hit->at, 6, 6);
            painter.setPen(QPen(accent.darker(130), 1.5));
            painter.drawEllipse(m_hit->at, 6, 6);
        } else {
            QColor fill = accent;
            fill.setAlphaF(0.25);
            painter.setPen(QPen(accent.darker(120), 1.5));
            painter.setBrush(fill);
            painter.drawRect(m_hit->rect);
        }
    }
    if (m_callout.isEmpty() || !m_pointer)
        return;

    // The callout: 12 points right of and below its anchor, flipped when it would leave the picture.
    const QPointF anchor = (m_hit && m_hit->kind == PlotGeometry::Hit::Kind::Point) ? m_hit->at : *m_pointer;
    QFont bold = font();
    bold.setBold(true);
    const QFontMetricsF plain(font());
    const QFontMetricsF strong(bold);
    const bool titled = bool(m_hit);
    double width = 0;
    for (qsizetype i = 0; i < m_callout.size(); ++i)
        width = std::max(width, (titled && i == 0 ? strong : plain).horizontalAdvance(m_callout[i]));
    const double lineHeight = plain.height();
    const QSizeF size(width + 16, lineHeight * m_callout.size() + 10);
    const QRectF image = imageRect();
    constexpr double offset = 12, margin = 4;
    double x = anchor.x() + offset;
    if (x + size.width() > image.right() - margin)
        x = std::max(image.left() + margin, anchor.x() - offset - size.width());
    double y = anchor.y() + offset;
    if (y + size.height() > image.bottom() - margin)
        y = std::max(image.top() + margin, anchor.y() - offset - size.height());
    const QRectF box(QPointF(x, y), size);

    QPainterPath path;
    path.addRoundedRect(box, 6, 6);
    painter.setPen(QPen(QColor(0, 0, 0, 40), 1));
    painter.setBrush(QColor(255, 255, 255, 240));
    painter.drawPath(path);
    painter.setPen(QColor(0x1f, 0x23, 0x28));
    for (qsizetype i = 0; i < m_callout.size(); ++i) {
        painter.setFont(titled && i == 0 ? bold : font());
        painter.drawText(QPointF(box.left() + 8, box.top() + 5 + plain.ascent() + i * lineHeight),
                         m_callout[i]);
    }
}
