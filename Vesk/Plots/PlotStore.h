// The client's list of the kernel's plot pages, sorted by page number, with the selected one. The
// kernel numbers pages and owns their files; a page keeps its picture's encoded bytes (read when it
// is updated, so that a later deletion doesn't blank it) and is decoded on demand, so a long history
// costs file-sized memory rather than full bitmaps. Main thread.
#pragma once

#include "PlotGeometry.h"
#include "PlotZoom.h"

#include <QByteArray>
#include <QImage>
#include <QList>
#include <QObject>
#include <QSize>
#include <QString>

#include <optional>

class PlotStore : public QObject {
    Q_OBJECT
public:
    struct Page {
        int id = 0;
        QString file;
        int revision = 0;     // raised at each update: a view notices a new picture in the same path
        QByteArray imageData; // the encoded picture; empty when the file couldn't be read
        QSize imageSize;
        std::optional<PlotGeometry> geometry;
        std::optional<PlotZoom> zoom; // none at full extent

        bool hasImage() const { return !imageData.isEmpty(); }
    };

    explicit PlotStore(QObject *parent = nullptr);

    const QList<Page> &pages() const { return m_pages; }
    std::optional<int> selectedPage() const { return m_selected; }
    std::optional<qsizetype> selectedIndex() const;
    const Page *page(int id) const;
    // The decoded picture of a page; a null image when there is none. The last one is kept.
    QImage image(int id) const;

    void update(int page, const QString &file, bool isNew, std::optional<PlotGeometry> geometry);
    void setZoom(std::optional<PlotZoom> zoom, int page);
    void remove(int page);
    void reset();
    // Moves the selection `by` places; at the ends nothing moves.
    void step(int by);
    void select(int page);

signals:
    void changed();

private:
    qsizetype indexOf(int id) const;

    QList<Page> m_pages;
    std::optional<int> m_selected;
    mutable int m_decodedId = 0;
    mutable int m_decodedRevision = -1;
    mutable QImage m_decoded;
};
