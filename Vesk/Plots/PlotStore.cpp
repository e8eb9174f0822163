#include "PlotStore.h"

#include <QBuffer>
#include <QFile>
#include <QImageReader>

#include <algorithm>

namespace {

// The file's bytes when they hold a picture Qt can read, else empty. Only the header is decoded.
QByteArray readPicture(const QString &path, QSize *size)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // A rendered plot is a few hundred kilobytes; anything far larger is not ours to hold.
    constexpr qint64 limit = 64 * 1024 * 1024;
    if (file.size() > limit)
        return {};
    QByteArray data = file.readAll();
    QBuffer buffer(&data);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    if (!reader.canRead())
        return {};
    *size = reader.size();
    return data;
}

} // namespace

PlotStore::PlotStore(QObject *parent) : QObject(parent) {}

qsizetype PlotStore::indexOf(int id) const
{
    for (qsizetype i = 0; i < m_pages.size(); ++i)
        if (m_pages[i].id == id)
            return i;
    return -1;
}

std::optional<qsizetype> PlotStore::selectedIndex() const
{
    if (!m_selected)
        return std::nullopt;
    const qsizetype i = indexOf(*m_selected);
    return i < 0 ? std::nullopt : std::optional<qsizetype>(i);
}

const PlotStore::Page *PlotStore::page(int id) const
{
    const qsizetype i = indexOf(id);
    return i < 0 ? nullptr : &m_pages[i];
}

QImage PlotStore::image(int id) const
{
    const Page *p = page(id);
    if (!p || !p->hasImage())
        return {};
    if (m_decodedId != id || m_decodedRevision != p->revision) {
        m_decoded = QImage::fromData(p->imageData);
        m_decodedId = id;
        m_decodedRevision = p->revision;
    }
    return m_decoded;
}

void PlotStore::update(int id, const QString &file, bool isNew, std::optional<PlotGeometry> geometry)
{
    QSize size;
    QByteArray data = readPicture(file, &size);
    const qsizetype i = indexOf(id);
    if (i >= 0) {
        Page &p = m_pages[i];
        p.file = file;
        p.revision += 1;
        p.imageData = std::move(data);
        p.imageSize = size;
        p.geometry = std::move(geometry);
    } else {
        Page p;
        p.id = id;
        p.file = file;
        p.imageData = std::move(data);
        p.imageSize = size;
        p.geometry = std::move(geometry);
        const auto at = std::lower_bound(m_pages.begin(), m_pages.end(), id,
                                         [](const Page &page, int value) { return page.id < value; });
        m_pages.insert(at, std::move(p));
    }
    if (isNew || !m_selected)
        m_selected = id;
    emit changed();
}

void PlotStore::setZoom(std::optional<PlotZoom> zoom, int id)
{
    const qsizetype i = indexOf(id);
    if (i < 0)
        return;
    m_pages[i].zoom = zoom;
    emit changed();
}

void PlotStore::remove(int id)
{
    const qsizetype i = indexOf(id);
    if (i < 0)
        return;
    m_pages.removeAt(i);
    if (m_decodedId == id) {
        m_decoded = QImage();
        m_decodedRevision = -1;
    }
    if (m_selected == id) {
        if (m_pages.isEmpty())
            m_selected.reset();
        else
            m_selected = m_pages[std::min(i, m_pages.size() - 1)].id;
    }
    emit changed();
}

void PlotStore::reset()
{
    m_pages.clear();
    m_selected.reset();
    m_decoded = QImage();
    m_decodedRevision = -1;
    emit changed();
}

void PlotStore::step(int by)
{
    const std::optional<qsizetype> i = selectedIndex();
    if (!i)
        return;
    const qsizetype target = *i + by;
    if (target < 0 || target >= m_pages.size() || target == *i)
        return;
    m_selected = m_pages[target].id;
    emit changed();
}

void PlotStore::select(int id)
{
    if (indexOf(id) < 0 || m_selected == id)
        return;
    m_selected = id;
    emit changed();
}
