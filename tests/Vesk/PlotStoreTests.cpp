#include "Base/Settings.h"
#include "Plots/PlotExportOptions.h"
#include "Plots/PlotStore.h"

#include <QImage>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

struct PlotFiles {
    QTemporaryDir dir;
    PlotStore store;
    QString png(const QString &name, QSize size = QSize(40, 30))
    {
        QImage image(size, QImage::Format_RGB32);
        image.fill(Qt::white);
        const QString path = dir.filePath(name);
        image.save(path, "PNG");
        return path;
    }
    // A first drawing of the page, from a fresh picture file.
    void add(int id, bool isNew) { store.update(id, png(u"%1.png"_qs.arg(id)), isNew, std::nullopt); }
};

QList<int> ids(const PlotStore &store)
{
    QList<int> out;
    for (const PlotStore::Page &page : store.pages())
        out.append(page.id);
    return out;
}

} // namespace

TEST(PlotStore, PagesStaySortedAndTheNewestIsSelected)
{
    PlotFiles files;
    PlotStore &store = files.store;
    int changed = 0;
    QObject::connect(&store, &PlotStore::changed, [&] { ++changed; });
    files.add(3, true);
    files.add(2, true);
    EXPECT_EQ(ids(store), (QList<int>{2, 3}));
    EXPECT_EQ(store.selectedPage(), 2);
    EXPECT_EQ(store.selectedIndex(), 0);
    EXPECT_EQ(changed, 2);

    // A redraw of a known page keeps the selection where it is and the zoom it had.
    store.setZoom(PlotZoom{{1, 2}, {3, 4}}, 3);
    store.update(3, files.png("3b.png", QSize(80, 60)), false, std::nullopt);
    const PlotStore::Page *three = store.page(3);
    ASSERT_NE(three, nullptr);
    EXPECT_EQ(three->revision, 1);
    EXPECT_EQ(three->imageSize, QSize(80, 60));
    EXPECT_EQ(three->zoom, (PlotZoom{{1, 2}, {3, 4}}));
    EXPECT_EQ(store.selectedPage(), 2);
    EXPECT_EQ(store.image(3).size(), QSize(80, 60));
}

TEST(PlotStore, PicturesOutliveTheirFilesAndBadFilesStaySelectable)
{
    PlotFiles files;
    PlotStore &store = files.store;
    const QString path = files.png("1.png");
    store.update(1, path, true, std::nullopt);
    QFile::remove(path);
    EXPECT_TRUE(store.page(1)->hasImage());
    EXPECT_FALSE(store.image(1).isNull());

    QFile junk(files.dir.filePath("junk.png"));
    ASSERT_TRUE(junk.open(QIODevice::WriteOnly));
    junk.write("not a picture");
    junk.close();
    store.update(2, junk.fileName(), true, std::nullopt);
    store.update(3, files.dir.filePath("missing.png"), true, std::nullopt);
    EXPECT_FALSE(store.page(2)->hasImage());
    EXPECT_TRUE(store.image(3).isNull());
    store.select(2);
    EXPECT_EQ(store.selectedPage(), 2);
}

TEST(PlotStore, RemovalMovesTheSelectionToItsNeighbour)
{
    PlotFiles files;
    PlotStore &store = files.store;
    for (int id : {1, 2, 3, 4})
        files.add(id, true);
    store.remove(4); // the selected last page: the one before it
    EXPECT_EQ(store.selectedPage(), 3);
    store.select(2);
    store.remove(2); // the page now at the same index
    EXPECT_EQ(store.selectedPage(), 3);
    store.remove(1); // unselected: selection kept
    EXPECT_EQ(store.selectedPage(), 3);
    store.remove(99);
    store.remove(3);
    EXPECT_TRUE(store.pages().isEmpty());
    EXPECT_FALSE(store.selectedPage());
}

TEST(PlotStore, StepDoesNotWrapAndResetEmpties)
{
    PlotFiles files;
    PlotStore &store = files.store;
    store.step(1); // nothing selected
    for (int id : {1, 2, 3})
        files.add(id, id == 1);
    EXPECT_EQ(store.selectedPage(), 1);
    store.step(-1);
    EXPECT_EQ(store.selectedPage(), 1);
    store.step(2);
    EXPECT_EQ(store.selectedPage(), 3);
    store.step(1);
    EXPECT_EQ(store.selectedPage(), 3);
    store.reset();
    EXPECT_TRUE(store.pages().isEmpty());
    EXPECT_FALSE(store.selectedIndex());

    // A page R did not call new is selected only when nothing is.
    files.add(5, false);
    EXPECT_EQ(store.selectedPage(), 5);
    files.add(6, false);
    EXPECT_EQ(store.selectedPage(), 5);
}

TEST(PlotExportOptions, SidesAndResolution)
{
    const QLocale saved;
    QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
    EXPECT_EQ(PlotExportOptions::pointsFromInches(u"7,5"_qs), 540);
    QLocale::setDefault(QLocale::c());
    EXPECT_EQ(PlotExportOptions::pointsFromInches(u" 7,5 "_qs), 540);
    EXPECT_EQ(PlotExportOptions::pointsFromInches(u"abc"_qs), 504);
    EXPECT_EQ(PlotExportOptions::pointsFromInches(u"0.5"_qs), 72);
    EXPECT_EQ(PlotExportOptions::pointsFromInches(u"100"_qs), 3600);

    QTemporaryDir dir;
    Settings settings(dir.filePath(u"settings.ini"_qs));
    settings.setValue(Settings::plotExportDPI, 150);
    PlotExportOptions options(QSizeF(504, 360), settings);
    EXPECT_EQ(options.dpi, 144);
    EXPECT_EQ(options.width, u"7"_qs);
    EXPECT_EQ(options.points(), QSizeF(504, 360));
    settings.setValue(Settings::plotExportDPI, 300);
    EXPECT_EQ(PlotExportOptions(QSizeF(72, 72), settings).scale(), 300.0 / 72);
    QLocale::setDefault(saved);
}
