// A page in a window of its own: the pane's picture at once, then R's vector drawing of the page, which
// stays sharp at any window size. Without the vector drawing the picture stays.
#pragma once

#include <QBuffer>
#include <QImage>
#include <QWidget>

#include <memory>

class QPdfDocument;

class PlotWindow : public QWidget {
    Q_OBJECT
public:
    PlotWindow(int page, const QImage &image, QSize points, QWidget *parent = nullptr);
    ~PlotWindow() override;

    int page() const { return m_page; }
    // Replaces the picture by R's PDF drawing of the page; false, and the picture kept, when it
    // doesn't load.
    bool showVector(const QByteArray &pdf);
    bool showsVector() const { return m_vector != nullptr; }

signals:
    // The vector drawing arrived or was given up: the window shows what it will keep showing.
    void settled();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QRectF pictureRect(QSizeF picture) const;

    int m_page = 0;
    QImage m_image;
    QBuffer m_pdf;
    std::unique_ptr<QPdfDocument> m_vector;
    // The drawing rendered for the window's present size, redone when that changes.
    QImage m_rendered;
};
