// The console's plot items: an inline text object that draws a small picture of its page. The page is
// looked up in the store when painted, so a re-rendered page shows its new picture and a removed one
// an empty frame, without touching the document.
#pragma once

#include "Plots/PlotStore.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QTextObjectInterface>

#include <optional>

class PlotThumbnails : public QObject, public QTextObjectInterface {
    Q_OBJECT
    Q_INTERFACES(QTextObjectInterface)
public:
    static constexpr int objectType = QTextFormat::UserObject + 8;
    static constexpr int pageProperty = QTextFormat::UserProperty + 8;
    static constexpr int generationProperty = QTextFormat::UserProperty + 9;
    // The largest thumbnail, in device-independent pixels.
    static constexpr int maxHeight = 96;
    static constexpr int maxWidth = 176;

    explicit PlotThumbnails(QObject *parent = nullptr);

    void setPlots(PlotStore *plots);
    PlotStore *plots() const { return m_plots; }
    static constexpr int sizeProperty = QTextFormat::UserProperty + 10;
    // The format of the replacement character that stands for a page drawn in a generation. Its
    // size is the page's shape at that time and stays, so that a re-render never moves the text.
    QTextCharFormat format(int page, int generation) const;
    static std::optional<int> pageOf(const QTextFormat &format);
    // Raised each time the store is emptied: R numbers pages from 1 again after a restart, so a
    // thumbnail made before must not show the new page of the same number.
    int generation() const { return m_generation; }
    // The page a thumbnail stands for, when it is still in the store.
    std::optional<int> livePage(const QTextFormat &format) const;
    // The size a page's thumbnail takes: its picture's shape, or 4:3 without one.
    QSizeF size(int page) const;

    QSizeF intrinsicSize(QTextDocument *document, int position, const QTextFormat &format) override;
    void drawObject(QPainter *painter, const QRectF &rect, QTextDocument *document, int position,
                    const QTextFormat &format) override;

private:
    QImage thumbnail(int page, QSize pixels, qreal ratio);

    struct Cached {
        int revision = -1;
        QSize pixels;
        QImage image;
    };
    QPointer<PlotStore> m_plots;
    int m_generation = 0;
    bool m_hadPages = false;
    // Decoded only when painted, and bounded: a long history of plots keeps a handful of small images.
    QHash<int, Cached> m_cache;
};
