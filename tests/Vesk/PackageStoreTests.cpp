// PackageStore on scripted answers: the code it writes for the console, the order and filter of the
// list, the reading of the kernel's answers and the runs it starts or holds back.
#include "Panes/PackageStore.h"

#include <gtest/gtest.h>

namespace {

struct ScriptedStore {
    PackageStore store;
    QList<std::pair<QString, PackageStore::Answer>> requests;
    QList<std::pair<QString, std::function<void()>>> runs;

    ScriptedStore()
    {
        store.hasSession = [] { return true; };
        store.request = [this](const QString &name, PackageStore::Answer answer) {
            requests.append({name, std::move(answer)});
        };
        store.runInConsole = [this](const QString &code, std::function<void()> finished) {
            runs.append({code, std::move(finished)});
        };
    }
    void answer(const char *json)
    {
        auto [name, reply] = requests.takeFirst();
        reply(*JSONValue::parse(QByteArrayView(json)));
    }
    QStringList visibleNames() const
    {
        QStringList names;
        for (const RPackage &package : store.visible())
            names.append(package.name);
        return names;
    }
};

} // namespace

TEST(PackageStore, WritesConsoleCodeAsRWouldReadIt)
{
    EXPECT_EQ(PackageStore::attachCode(u"data.table"_qs, true), u"library(data.table)"_qs);
    EXPECT_EQ(PackageStore::attachCode(u"R6 test"_qs, true), u"library(\"R6 test\")"_qs);
    EXPECT_EQ(PackageStore::attachCode(u"ggplot2"_qs, false),
              u"detach(\"package:ggplot2\", unload = FALSE)"_qs);
    EXPECT_EQ(PackageStore::installCode({u"a"_qs}), u"install.packages(\"a\")"_qs);
    EXPECT_EQ(PackageStore::installCode({u"a"_qs, u"b\"c"_qs}), u"install.packages(c(\"a\", \"b\\\"c\"))"_qs);
    EXPECT_EQ(PackageStore::removeCode(u"a"_qs, u"/lib/R"_qs),
              u"remove.packages(\"a\", lib = \"/lib/R\")"_qs);
    EXPECT_EQ(PackageStore::removeCode(u"a"_qs, std::nullopt), u"remove.packages(\"a\")"_qs);
    EXPECT_EQ(PackageStore::splitNames(u" ggplot2, dplyr,,tidyr\n"_qs),
              (QStringList{u"ggplot2"_qs, u"dplyr"_qs, u"tidyr"_qs}));
    EXPECT_TRUE(PackageStore::splitNames(u" , "_qs).isEmpty());
}

TEST(PackageStore, ListsFiltersAndFollowsTheSearchPath)
{
    ScriptedStore s;
    s.store.refresh();
    s.store.refresh(); // asked again while the first runs: one more listing follows it
    ASSERT_EQ(s.requests.size(), 1);
    EXPECT_TRUE(s.store.isLoading());
    s.answer(R"([{"name":"zoo","version":"1.8","attached":false,"loaded":false},
                 {"name":"ggplot2","version":"3.4","title":"Create Elegant Data Visualisations","attached":false},
                 {"name":"Matrix","version":"1.5","priority":"recommended","attached":true,"loaded":true},
                 {"version":"9"},
                 {"name":"base","version":"4.2.2","attached":true,"library":"/usr/lib/R/library"}])");
    ASSERT_EQ(s.store.packages().size(), 4) << "an entry without a name is dropped";
    ASSERT_EQ(s.requests.size(), 1);
    EXPECT_EQ(s.requests.first().first, u"packages"_qs);
    s.answer("[]");
    EXPECT_TRUE(s.store.packages().isEmpty());
    s.store.refresh();
    s.answer(R"([{"name":"zoo","version":"1.8"},{"name":"ggplot2","version":"3.4","title":"Elegant Graphics"},
                 {"name":"Matrix","version":"1.5","attached":true},{"name":"base","version":"4.2.2","attached":true}])");
    EXPECT_EQ(s.visibleNames(), (QStringList{u"base"_qs, u"Matrix"_qs, u"ggplot2"_qs, u"zoo"_qs}));
    s.store.setFilter(u" GG "_qs);
    EXPECT_EQ(s.visibleNames(), QStringList{u"ggplot2"_qs});
    s.store.setFilter(u"graphics"_qs);
    EXPECT_EQ(s.visibleNames(), QStringList{u"ggplot2"_qs}) << "the title matches too";
    s.store.setFilter({});

    int changes = 0;
    QObject::connect(&s.store, &PackageStore::changed, [&] { ++changes; });
    s.store.markAttached({u".GlobalEnv"_qs, u"package:zoo"_qs, u"package:base"_qs, u"Autoloads"_qs});
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(s.visibleNames(), (QStringList{u"base"_qs, u"zoo"_qs, u"ggplot2"_qs, u"Matrix"_qs}));
    EXPECT_TRUE(s.store.package(u"zoo"_qs)->loaded);
    EXPECT_TRUE(s.store.package(u"Matrix"_qs)->loaded) << "a detached namespace stays loaded";
    s.store.markAttached({u"package:zoo"_qs, u"package:base"_qs});
    EXPECT_EQ(changes, 1) << "nothing differs, nothing is told";

    // A failed listing keeps the list it had.
    s.store.refresh();
    s.requests.takeFirst().second(Failure{u"R stopped."_qs});
    EXPECT_EQ(s.store.error(), u"R stopped."_qs);
    EXPECT_EQ(s.store.packages().size(), 4);
}

TEST(PackageStore, InstallsRemovesAndUpdatesThroughTheConsole)
{
    ScriptedStore s;
    s.store.install({});
    EXPECT_TRUE(s.runs.isEmpty());
    s.store.install({u"a"_qs});
    ASSERT_EQ(s.runs.size(), 1);
    EXPECT_EQ(s.runs.first().first, u"install.packages(\"a\")"_qs);
    EXPECT_TRUE(s.requests.isEmpty()) << "the listing waits for the run";
    s.runs.takeFirst().second();
    ASSERT_EQ(s.requests.size(), 1);
    s.answer(R"([{"name":"a","version":"1","library":"/home/u/R"}])");

    EXPECT_EQ(s.store.removalQuestion(u"a"_qs).second,
              u"This runs remove.packages() and deletes it from /home/u/R."_qs);
    EXPECT_EQ(s.store.removalQuestion(u"b"_qs).second,
              u"This runs remove.packages() and deletes it from its library."_qs);
    s.store.remove(u"a"_qs);
    ASSERT_EQ(s.runs.size(), 1);
    EXPECT_EQ(s.runs.first().first, u"remove.packages(\"a\", lib = \"/home/u/R\")"_qs);
    s.runs.takeFirst().second();
    EXPECT_EQ(s.requests.size(), 1);
    s.answer("[]");

    s.store.updateAll();
    EXPECT_TRUE(s.runs.isEmpty()) << "nothing outdated, nothing runs";
    s.store.checkUpdates();
    s.store.checkUpdates();
    ASSERT_EQ(s.requests.size(), 1);
    EXPECT_EQ(s.store.statusLine(), u"Checking CRAN for updates…"_qs);
    s.answer(
        R"([{"name":"a","available":"2"},{"name":"b"},{"name":"c","available":"3"},{"name":"d","available":"1.1"}])");
    EXPECT_EQ(s.store.outdated().size(), 3) << "an element without a version is skipped";
    EXPECT_EQ(s.store.statusLine(), u"3 updates available."_qs);
    s.store.updateAll();
    EXPECT_TRUE(s.store.outdated().empty());
    ASSERT_EQ(s.runs.size(), 1);
    EXPECT_EQ(s.runs.first().first, u"install.packages(c(\"a\", \"c\", \"d\"))"_qs);

    s.store.checkUpdates();
    s.requests.takeFirst().second(Failure{u"cannot open URL"_qs});
    EXPECT_EQ(s.store.statusLine(), u"Couldn’t check for updates: cannot open URL"_qs);

    s.store.loadAvailable();
    s.requests.takeFirst().second(Failure{u"offline"_qs});
    EXPECT_TRUE(s.store.available().isEmpty());
    s.store.loadAvailable();
    ASSERT_EQ(s.requests.size(), 1) << "tried again after a failure";
    s.answer(R"({"names":["a","b",3]})");
    EXPECT_EQ(s.store.available(), (QStringList{u"a"_qs, u"b"_qs}));
    s.store.loadAvailable();
    EXPECT_TRUE(s.requests.isEmpty()) << "loaded once";
}
