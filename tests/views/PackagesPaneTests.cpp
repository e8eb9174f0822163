// The packages pane offscreen over a store with scripted answers: the empty state without R, the
// rows and their order, the filter, a checkbox click as console code, and the removal question that
// runs remove.packages() only when answered yes.
#include "Panes/Views/PackagesPane.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTreeWidget>

#include <gtest/gtest.h>

namespace {

QStringList rowNames(QTreeWidget *list)
{
    QStringList names;
    for (int i = 0; i < list->topLevelItemCount(); ++i)
        names.append(list->topLevelItem(i)->text(0));
    return names;
}

} // namespace

TEST(PackagesPane, ShowsFiltersAttachesAndAsksBeforeRemoving)
{
    PackageStore store;
    bool live = false;
    QList<PackageStore::Answer> answers;
    QStringList runs;
    store.hasSession = [&] { return live; };
    store.request = [&](const QString &, PackageStore::Answer answer) { answers.append(std::move(answer)); };
    store.runInConsole = [&](const QString &code, std::function<void()>) { runs.append(code); };

    PackagesPane pane(store);
    pane.resize(320, 480);
    pane.show();
    EXPECT_TRUE(answers.isEmpty()) << "nothing is asked without R";
    EXPECT_FALSE(pane.list()->isVisible());
    EXPECT_FALSE(pane.installButton()->isEnabled());

    live = true;
    store.refresh();
    ASSERT_EQ(answers.size(), 1);
    answers.takeFirst()(*JSONValue::parse(QByteArrayView(
        R"([{"name":"zoo","version":"1.8","library":"/lib"},{"name":"stats","version":"4.2.2","attached":true},
            {"name":"ggplot2","version":"3.4.1","title":"Create Elegant Data Visualisations","library":"/lib"}])")));
    EXPECT_TRUE(pane.list()->isVisible());
    EXPECT_EQ(rowNames(pane.list()), (QStringList{u"stats"_qs, u"ggplot2"_qs, u"zoo"_qs}));
    EXPECT_EQ(pane.list()->topLevelItem(0)->checkState(0), Qt::Checked);

    pane.filterField()->setText(u"elegant"_qs);
    EXPECT_EQ(rowNames(pane.list()), QStringList{u"ggplot2"_qs});
    pane.filterField()->clear();

    // A click on the checkbox runs library() in the console; the box follows R, not the click.
    pane.list()->topLevelItem(1)->setCheckState(0, Qt::Checked);
    EXPECT_EQ(runs, QStringList{u"library(ggplot2)"_qs});
    EXPECT_EQ(pane.list()->topLevelItem(1)->checkState(0), Qt::Unchecked);
    store.markAttached({u"package:stats"_qs, u"package:ggplot2"_qs});
    EXPECT_EQ(rowNames(pane.list()), (QStringList{u"ggplot2"_qs, u"stats"_qs, u"zoo"_qs}));
    EXPECT_TRUE(runs.size() == 1) << "rebuilding the rows runs nothing";

    EXPECT_FALSE(pane.removeButton()->isEnabled()) << "nothing selected";
    pane.list()->topLevelItem(2)->setSelected(true);
    EXPECT_TRUE(pane.removeButton()->isEnabled());
    QString asked;
    bool answer = false;
    pane.confirmRemoval = [&](const QString &title, const QString &text) {
        asked = title + u'|' + text;
        return answer;
    };
    pane.removeSelected();
    EXPECT_EQ(asked, u"Remove the package “zoo”?|This runs remove.packages() and deletes it from /lib."_qs);
    EXPECT_EQ(runs.size(), 1) << "declined";
    answer = true;
    pane.removeSelected();
    EXPECT_EQ(runs.last(), u"remove.packages(\"zoo\", lib = \"/lib\")"_qs);
}
