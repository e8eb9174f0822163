#include "PlotWindow.h"

#include <QPainter>
#include <QPdfDocument>

PlotWindow::PlotWindow(int page, const QImage &image, QSize points, QWidget *parent)
    : QWidget(parent, Qt::Window), m_page(page), m_image(image)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(QStringLiteral("Plot %1").arg(page));
    resize(points.isEmpty() ? QSize(504, 504) : points);
}

PlotWindow::~PlotWindow() = default;

bool PlotWindow::showVector(const QByteArray &pdf)
{
    auto document = std::make_unique<QPdfDocument>();
    m_pdf.close();
    m_pdf.setData(pdf);
    m_pdf.open(QIODevice::ReadOnly);
    document->load(&m_pdf);
    if (document->status() != QPdfDocument::Status::Ready || document->pageCount() < 1 ||
        document->pagePointSize(0).isEmpty()) {
        m_pdf.close();
        return false;
    }
    m_vector = std::move(document);
    m_rendered = QImage();
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
        const QRectF target = pictureRect(m_vector->pagePointSize(0));
        const QSize pixels = (target.size() * devicePixelRatioF()).toSize();
        if (m_rendered.size() != pixels && !pixels.isEmpty()) {
            m_rendered = m_vector->render(0, pixels);
            m_rendered.setDevicePixelRatio(devicePixelRatioF());
        }
        painter.drawImage(target.topLeft(), m_rendered);
    } else if (!m_image.isNull()) {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(pictureRect(m_image.size()), m_image);
    }
}
