// Lies on a plot's picture: hover reads a point's or bar's values (or the coordinates under the
// pointer), a drag selects a window to zoom to, a double click is passed on. All mathematics is
// PlotGeometry's; this widget only feeds it pointer positions and draws its answers.
#pragma once

#include "PlotGeometry.h"

#include <QWidget>

#include <functional>
#include <optional>

class PlotInteractionOverlay : public QWidget {
    Q_OBJECT
public:
    static constexpr double hitRadius = 12;
    static constexpr double dragThreshold = 3;
    static constexpr double minimumSelection = 6;

    explicit PlotInteractionOverlay(QWidget *parent = nullptr);

    // A picture without geometry is static: no hover, no zoom.
    void setPlot(std::optional<PlotGeometry> geometry, QSizeF imageSize);
    // Where the picture is drawn in this widget.
    QRectF imageRect() const;

    std::function<void(const PlotZoom &)> onZoom;
    std::function<void()> onDoubleClick;

    // What the callout shows now, one line each; empty when nothing is shown.
    QStringList calloutLines() const { return m_callout; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    void updateHover();
    std::optional<QRectF> currentSelection() const;

    std::optional<PlotGeometry> m_geometry;
    QSizeF m_imageSize;
    std::optional<QPointF> m_pointer;
    std::optional<QPointF> m_dragStart;
    std::optional<QPointF> m_dragEnd;
    std::optional<PlotGeometry::Hit> m_hit;
    QStringList m_callout;
};
