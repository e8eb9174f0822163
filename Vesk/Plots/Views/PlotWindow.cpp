#include "PlotWindow.h"

#include <QPainter>
#include <QSvgRenderer>

PlotWindow::PlotWindow(int page, const QImage &image, QSize points, QWidget *parent)
    : QWidget(parent, Qt::Window), m_page(page), m_image(image)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("Plot %1").arg(page));
    resize(points.isEmpty() ? QSize(504, 504) : points);
}

PlotWindow::~PlotWindow() = default;

bool PlotWindow::showVector(const QByteArray &svg)
{
    // Cairo writes text as glyph <symbol>s that this Qt Svg doesn't draw; as groups inside <defs>
    // they are drawn by their <use> the same way.
    QByteArray drawable = svg;
    drawable.replace("<symbol ", "<g ").replace("</symbol>", "</g>");
    auto renderer = std::make_unique<QSvgRenderer>(drawable);
    if (!renderer->isValid() || renderer->defaultSize().isEmpty())
        return false;
    renderer->setAspectRatioMode(Qt::KeepAspectRatio);
    m_vector = std::move(renderer);
    update();
    return true;
}

QRectF PlotWindow::pictureRect(QSizeF picture) const
{
    if (picture.isEmpty())
        return rect();
    const QSizeF shown = picture.scaled(size(), Qt::KeepAspectRatio);
    return QRectF(QPointF((width() - shown.width()) / 2, (height() - shown.height()) / 2), shown);
}

void PlotWindow::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), Qt::white);
    if (m_vector) {
        painter.setRenderHint(QPainter::Antialiasing);
        m_vector->render(&painter, pictureRect(m_vector->defaultSize()));
    } else if (!m_image.isNull()) {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(pictureRect(m_image.size()), m_image);
    }
}
