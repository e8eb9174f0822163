// The data tab on a real R: View() at the console opens it, its headers carry the kinds, a header
// click sorts, the filter field filters, copying gives the cells, and the inspector shows the column profile.
#include "../VeskCore/QStringPrinting.h"
#include "Data/DataGridModel.h"
#include "Data/Views/DataGridView.h"
#include "Documents/DocumentStore.h"
#include "Documents/Views/DocumentTabs.h"
#include "LiveWorkspace.h"

#include <QApplication>
#include <QClipboard>
#include <QHeaderView>
#include <QLineEdit>
#include <QTableView>

#include <gtest/gtest.h>

TEST(DataGridView, ViewAtTheConsoleOpensAGridWithKindsInItsHeaders)
{
    LiveWorkspace live;
    ASSERT_TRUE(live.start());
    DocumentTabs tabs(live.workspace.documents(), &live.workspace);
    tabs.resize(1000, 600);
    tabs.show();
    ASSERT_TRUE(live.run(u"View(iris)"_qs).ok);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return tabs.count() == 1; }));
    auto *view = qobject_cast<DataGridView *>(tabs.widget(0));
    ASSERT_NE(view, nullptr);
    DataGridModel &model = view->model();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model.hasLoaded() && !model.isLoading(); }));
    QAbstractItemModel *shown = view->table()->model();
    EXPECT_EQ(shown->rowCount(), 150);
    EXPECT_EQ(shown->headerData(0, Qt::Horizontal).toString(), u"Sepal.Length\nnum"_qs);
    EXPECT_EQ(shown->headerData(4, Qt::Horizontal).toString(), u"Species\nfct"_qs);
    EXPECT_EQ(shown->index(0, 4).data().toString(), u"setosa"_qs);

    // A header click sorts, and the inspector shows that column.
    emit view->table()->horizontalHeader()->sectionClicked(0);
    EXPECT_EQ(shown->headerData(0, Qt::Horizontal).toString(), u"Sepal.Length ▲\nnum"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return shown->index(0, 0).data().toString() == u"4.3"_qs; }));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return model.profile(0).has_value(); }));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return view->inspector()->text().contains(u"Statistics"_qs); }));
    EXPECT_TRUE(view->inspector()->text().contains(u"5.8433"_qs)) << view->inspector()->text().toStdString();

    // Typing in the filter field filters after the pause.
    view->filterField()->setText(u"virginica"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return shown->rowCount() == 50; }));
    ASSERT_TRUE(
        TestSupport::waitUntil([&] { return shown->index(0, 4).data().toString() == u"virginica"_qs; }));

    // Copying a selection puts the text of its cells on the clipboard, as they show.
    view->table()->selectionModel()->select(QItemSelection(shown->index(0, 3), shown->index(1, 4)),
                                            QItemSelectionModel::Select);
    QApplication::clipboard()->clear();
    view->copySelection();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !QApplication::clipboard()->text().isEmpty(); }));
    EXPECT_EQ(QApplication::clipboard()->text(),
              u"Petal.Width\tSpecies\n"_qs + shown->index(0, 3).data().toString() + u"\tvirginica\n"_qs +
                  shown->index(1, 3).data().toString() + u"\tvirginica"_qs);

    const QImage shot = view->grab().toImage();
    EXPECT_FALSE(shot.isNull());
}
