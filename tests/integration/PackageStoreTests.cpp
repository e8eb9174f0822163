// The packages pane's store against a real R, without network: a package repository made in the
// test (two versions of a small package and one that fails to install), `repos` pointed at it by a
// file:// URL and a private library first on .libPaths(). Every change runs as console code.
#include "App/WorkspacePackages.h"
#include "LiveWorkspace.h"
#include "Panes/PackageStore.h"
#include "RLiteral.h"

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

// A source package in the repository, indexed again: %1 the test's folder, %2 the name, %3 the
// version, %4 whether its code fails to parse, %5 the repository.
const char publishCode[] = R"R(local({
  src <- file.path(%1, "src", paste0(%2, "_", %3))
  dir.create(file.path(src, %2, "R"), recursive = TRUE)
  writeLines(c(paste("Package:", %2), paste("Version:", %3), "Title: A Small Package Made by a Test",
               "Description: Says which version it is.", "License: MIT", "Author: Vesk",
               "Maintainer: Vesk <vesk@example.org>"), file.path(src, %2, "DESCRIPTION"))
  writeLines("export(hello)", file.path(src, %2, "NAMESPACE"))
  writeLines(if (%4) "hello <- function( {" else paste0("hello <- function() '", %3, "'"),
             file.path(src, %2, "R", "hello.R"))
  contrib <- file.path(%5, "src", "contrib")
  dir.create(contrib, recursive = TRUE, showWarnings = FALSE)
  old <- setwd(src)
  on.exit(setwd(old))
  utils::tar(file.path(contrib, paste0(%2, "_", %3, ".tar.gz")), %2, compression = "gzip")
  tools::write_PACKAGES(contrib, type = "source")
}))R";

struct PackageWorkspace : LiveWorkspace {
    QTemporaryDir root;
    PackageStore *store = nullptr;

    QString library() const { return root.filePath(u"library"_qs); }
    QString repository() const { return root.filePath(u"repo"_qs); }

    // Adds a source package to the repository and indexes it again.
    bool publish(const QString &name, const QString &version, bool broken = false)
    {
        return runQuietly(QString::fromUtf8(publishCode)
                              .arg(RLiteral::string(root.path()), RLiteral::string(name),
                                   RLiteral::string(version), broken ? u"TRUE"_qs : u"FALSE"_qs,
                                   RLiteral::string(repository())));
    }
    // Set-up code that is no part of what is tested: it runs as the system's, outside the history.
    bool runQuietly(const QString &code)
    {
        std::optional<ExecResult> result;
        workspace.run(code, ExecOrigin::system(), std::nullopt, 1, [&](const ExecResult &r) { result = r; });
        TestSupport::waitUntil([&] { return result.has_value(); }, 60s);
        return result && result->ok;
    }
    bool start()
    {
        if (!LiveWorkspace::start())
            return false;
        store = &workspacePackages(workspace);
        return runQuietly(
            QStringLiteral("dir.create(%1); .libPaths(%1); options(repos = c(Local = %2))")
                .arg(RLiteral::string(library()), RLiteral::string(u"file://"_qs + repository())));
    }
    // Waits for the store to settle after an operation that ends in a listing.
    bool settled(std::chrono::milliseconds timeout = 120s)
    {
        return TestSupport::waitUntil(
            [&] {
                return workspace.session().status().kind == RSessionStatus::Kind::Idle &&
                       workspace.session().queuedExecutions() == 0 && !store->isLoading() &&
                       !store->isCheckingUpdates() && !store->isLoadingAvailable();
            },
            timeout);
    }
    const RPackage *demo() const { return store->package(u"veskdemo"_qs); }
    // The console cells that ran exactly this code, and all they printed.
    QStringList consoleRuns(const QString &code)
    {
        workspace.console().flush();
        QStringList printed;
        for (const ConsoleModel::Cell &cell : workspace.console().cells()) {
            if (cell.code != code || cell.origin.kind != ExecOrigin::Kind::Console)
                continue;
            QString text;
            for (const ConsoleModel::Item &item : cell.items)
                text += item.kind == ConsoleModel::Item::Kind::Error ? item.error.message + u'\n'
                                                                     : item.text + u'\n';
            printed.append(text);
        }
        return printed;
    }
};

} // namespace

TEST(PackageStoreLive, InstallAttachDetachUpdateAndRemoveRunInTheConsole)
{
    PackageWorkspace f;
    ASSERT_TRUE(f.start());
    PackageStore &store = *f.store;
    ASSERT_TRUE(f.publish(u"veskdemo"_qs, u"1.0"_qs));

    store.refresh();
    ASSERT_TRUE(f.settled());
    EXPECT_FALSE(store.error()) << store.error()->toStdString();
    const RPackage *stats = store.package(u"stats"_qs);
    ASSERT_TRUE(stats);
    EXPECT_TRUE(stats->attached);
    EXPECT_TRUE(stats->loaded);
    EXPECT_EQ(stats->priority, u"base"_qs);
    EXPECT_TRUE(stats->library && !stats->library->isEmpty());
    EXPECT_TRUE(stats->title && stats->title->contains(u"Stats"));
    EXPECT_FALSE(f.demo());
    // The listing is a read: nothing of it reaches the console.
    const qsizetype cellsBefore = f.workspace.console().cells().size();

    store.loadAvailable();
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(store.available(), QStringList{u"veskdemo"_qs});
    EXPECT_EQ(f.workspace.console().cells().size(), cellsBefore);

    store.install({u"veskdemo"_qs});
    ASSERT_TRUE(TestSupport::waitUntil([&] { return f.demo() != nullptr; }, 120s))
        << "listed after the install";
    ASSERT_TRUE(f.settled());
    EXPECT_EQ(f.consoleRuns(u"install.packages(\"veskdemo\")"_qs).size(), 1);
    EXPECT_EQ(f.demo()->version, u"1.0"_qs);
    EXPECT_EQ(f.demo()->library, QDir(f.library()).canonicalPath());
    EXPECT_FALSE(f.demo()->attached);
    EXPECT_FALSE(f.demo()->loaded);
    EXPECT_EQ(f.workspace.history().last().code, u"install.packages(\"veskdemo\")"_qs);

    store.setAttached(u"veskdemo"_qs, true);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return f.demo()->attached; }, 30s));
    EXPECT_EQ(f.consoleRuns(u"library(veskdemo)"_qs).size(), 1);
    EXPECT_EQ(f.store->visible().first().attached, true) << "attached packages come first";
    EXPECT_EQ(f.run(u"hello()"_qs).output.trimmed(), u"[1] \"1.0\""_qs);

    store.setAttached(u"veskdemo"_qs, false);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !f.demo()->attached; }, 30s));
    EXPECT_EQ(f.consoleRuns(u"detach(\"package:veskdemo\", unload = FALSE)"_qs).size(), 1);
    EXPECT_TRUE(f.demo()->loaded) << "a detach keeps the namespace";
    // Attached by the user's own code, the checkbox follows as well.
    ASSERT_TRUE(f.run(u"library(veskdemo)"_qs).ok);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return f.demo()->attached; }, 30s));
    ASSERT_TRUE(f.run(u"detach(\"package:veskdemo\", unload = TRUE)"_qs).ok);
    EXPECT_TRUE(TestSupport::waitUntil([&] { return !f.demo()->attached; }, 30s));

    // A newer version in the repository.
    store.checkUpdates();
    ASSERT_TRUE(f.settled());
    EXPECT_TRUE(store.hasCheckedUpdates());
    EXPECT_TRUE(store.outdated().empty());
    EXPECT_EQ(store.statusLine(), u"All packages are up to date."_qs);
    ASSERT_TRUE(f.publish(u"veskdemo"_qs, u"1.1"_qs));
    store.checkUpdates();
    ASSERT_TRUE(f.settled());
    ASSERT_FALSE(store.updateError()) << store.updateError()->toStdString();
    EXPECT_EQ(store.outdated(), (std::map<QString, QString>{{u"veskdemo"_qs, u"1.1"_qs}}));
    EXPECT_EQ(store.statusLine(), u"1 update available."_qs);
    store.updateAll();
    EXPECT_TRUE(store.outdated().empty()) << "nothing is shown pending once the update runs";
    ASSERT_TRUE(TestSupport::waitUntil([&] { return f.demo() && f.demo()->version == u"1.1"_qs; }, 120s));
    EXPECT_EQ(f.consoleRuns(u"install.packages(\"veskdemo\")"_qs).size(), 2);
    EXPECT_EQ(f.run(u"veskdemo::hello()"_qs).output.trimmed(), u"[1] \"1.1\""_qs);

    const auto [title, text] = store.removalQuestion(u"veskdemo"_qs);
    EXPECT_EQ(title, u"Remove the package “veskdemo”?"_qs);
    EXPECT_TRUE(text.endsWith(QDir(f.library()).canonicalPath() + u'.'));
    const QString removal = PackageStore::removeCode(u"veskdemo"_qs, f.demo()->library);
    store.remove(u"veskdemo"_qs);
    ASSERT_TRUE(TestSupport::waitUntil([&] { return f.demo() == nullptr; }, 60s)) << "gone from the list";
    EXPECT_EQ(f.consoleRuns(removal).size(), 1);
    EXPECT_FALSE(QDir(f.library()).exists(u"veskdemo"_qs));
}

TEST(PackageStoreLive, FailuresShowRsOwnWords)
{
    PackageWorkspace f;
    ASSERT_TRUE(f.start());
    PackageStore &store = *f.store;
    ASSERT_TRUE(f.publish(u"veskbroken"_qs, u"0.1"_qs, true));
    store.refresh();
    ASSERT_TRUE(f.settled());
    const qsizetype listed = store.packages().size();

    // R CMD INSTALL fails on the package's code: its error and R's warning land in the console, and
    // the list, listed again, shows what is there.
    store.install({u"veskbroken"_qs});
    ASSERT_TRUE(TestSupport::waitUntil(
        [&] { return !f.consoleRuns(u"install.packages(\"veskbroken\")"_qs).isEmpty(); }));
    ASSERT_TRUE(f.settled());
    const QStringList printed = f.consoleRuns(u"install.packages(\"veskbroken\")"_qs);
    ASSERT_EQ(printed.size(), 1);
    EXPECT_TRUE(printed.first().contains(u"ERROR:"_qs)) << printed.first().toStdString();
    EXPECT_TRUE(printed.first().contains(u"non-zero exit status"_qs)) << printed.first().toStdString();
    EXPECT_FALSE(store.package(u"veskbroken"_qs));
    EXPECT_EQ(store.packages().size(), listed);

    // A repository without an index: the update check fails with R's reason, the index stays empty.
    ASSERT_TRUE(f.runQuietly(QStringLiteral("options(repos = c(Local = %1))")
                                 .arg(RLiteral::string(u"file://"_qs + f.root.filePath(u"nowhere"_qs)))));
    store.checkUpdates();
    ASSERT_TRUE(f.settled());
    ASSERT_TRUE(store.updateError());
    EXPECT_TRUE(store.updateError()->startsWith(u"Couldn’t check for updates: "_qs));
    EXPECT_TRUE(store.updateError()->contains(u"nowhere"_qs)) << store.updateError()->toStdString();
    EXPECT_EQ(store.statusLine(), *store.updateError());
    EXPECT_FALSE(store.hasCheckedUpdates());
    store.loadAvailable();
    ASSERT_TRUE(f.settled());
    EXPECT_TRUE(store.available().isEmpty());
}
