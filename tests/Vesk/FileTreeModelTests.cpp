// The project's file tree and the workspace's document events: file operations checked by the
// name rules, open documents that follow renames and trashing, and a tree that follows the disk.
#include "Documents/DocumentStore.h"
#include "Files/FileTreeModel.h"
#include "TestSupport.h"
#include "WorkspaceTestSupport.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

namespace {

void touch(const QString &path, const QByteArray &bytes = "x\n")
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

} // namespace

TEST(FileTreeModel, NewItemsAndRenamesAreCheckedByTheNameRules)
{
    QTemporaryDir dir;
    FileTreeModel files;
    const QString root = dir.path();
    touch(root + u"/Plot.R"_qs);

    QString created;
    EXPECT_EQ(files.createFile(root, u"  notes.R \n"_qs, &created), std::nullopt);
    EXPECT_EQ(created, root + u"/notes.R"_qs);
    EXPECT_EQ(files.createFolder(root, u"a/b"_qs),
              std::optional<QString>(u"Names can’t contain “/” or “:”."_qs));
    EXPECT_EQ(files.createFolder(root, u"data"_qs), std::nullopt);
    EXPECT_TRUE(QFileInfo(root + u"/data"_qs).isDir());

    // Only the case changes: allowed, though the name is "taken".
    QString renamed;
    EXPECT_EQ(files.rename(root + u"/Plot.R"_qs, u"plot.r"_qs, &renamed), std::nullopt);
    EXPECT_TRUE(QFile::exists(root + u"/plot.r"_qs));
    EXPECT_FALSE(QFile::exists(root + u"/Plot.R"_qs));
    EXPECT_EQ(files.rename(renamed, u"notes.R"_qs),
              std::optional<QString>(u"“notes.R” already exists. Choose a different name."_qs));
    EXPECT_TRUE(QFile::exists(renamed)) << "a refused rename changes nothing";
}

TEST(FileTreeModel, TheTreeFollowsTheDisk)
{
    QTemporaryDir dir;
    FileTreeModel files;
    touch(dir.filePath(u"first.R"_qs));
    files.setRootPath(dir.path());
    QFileSystemModel *model = files.model();
    auto rows = [&] {
        const QModelIndex root = files.rootIndex();
        while (model->canFetchMore(root))
            model->fetchMore(root);
        return model->rowCount(root);
    };
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 1; }));
    touch(dir.filePath(u"second.R"_qs));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return rows() == 2; }))
        << "a file made by another program shows";
    touch(dir.filePath(u".hidden"_qs));
    ASSERT_TRUE(QFile::remove(dir.filePath(u"first.R"_qs)));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return rows() == 1; })) << "hidden files stay out";
}

TEST(WorkspaceDocuments, RenamesAndTrashReachOpenDocuments)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    QTemporaryDir project;
    const QString folder = project.filePath(u"R"_qs);
    ASSERT_TRUE(QDir().mkpath(folder));
    touch(folder + u"/a.R"_qs);
    touch(project.filePath(u"b.R"_qs));
    w.documents().open(folder + u"/a.R"_qs);
    w.documents().open(project.filePath(u"b.R"_qs));
    w.documents().scripts().first()->setText(u"unsaved"_qs);

    ASSERT_EQ(w.files().rename(folder, u"scripts"_qs), std::nullopt);
    EditorDocument *moved = w.documents().scripts().first();
    EXPECT_EQ(moved->path(), std::optional<QString>(project.filePath(u"scripts/a.R"_qs)));
    EXPECT_EQ(moved->text(), u"unsaved"_qs) << "the text stays with the document";
    EXPECT_EQ(moved->title(), u"a.R"_qs);

    ASSERT_EQ(w.files().moveToTrash(project.filePath(u"b.R"_qs)), std::nullopt);
    EXPECT_EQ(w.documents().scripts().last()->diskState(), DiskState::deleted);
}

TEST(WorkspaceDocuments, ViewAndOpenFileEventsOpenTabs)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    QTemporaryDir dir;
    touch(dir.filePath(u"report.Rmd"_qs), "# Title\n");

    SessionEvent view;
    view.kind = SessionEvent::Kind::View;
    view.expr = u".vesk$views[[\"v1\"]]"_qs;
    view.title = u"mtcars"_qs;
    w.handle(view);
    w.handle(view);
    ASSERT_EQ(w.documents().items().size(), 1) << "a second view of the same value selects the first";
    ASSERT_NE(w.documents().items()[0].data, nullptr);
    EXPECT_EQ(w.documents().items()[0].title(), u"mtcars"_qs);

    SessionEvent open;
    open.kind = SessionEvent::Kind::OpenFile;
    open.url = QUrl::fromLocalFile(dir.filePath(u"report.Rmd"_qs));
    w.handle(open);
    ASSERT_EQ(w.documents().scripts().size(), 1);
    EXPECT_EQ(w.documents().scripts()[0]->language(), RSourceLanguage::rMarkdown);
    EXPECT_EQ(w.documents().selected()->id(), w.documents().scripts()[0]->id());

    // A data file is read into R, under a name made from the file's, and viewed.
    touch(dir.filePath(u"sales 2024.csv"_qs), "a\n1\n");
    w.documents().open(dir.filePath(u"sales 2024.csv"_qs));
    ASSERT_FALSE(w.history().isEmpty());
    EXPECT_EQ(w.history().last().code,
              u"sales_2024 <- read.csv(\"%1\")\nView(sales_2024)"_qs.arg(dir.filePath(u"sales 2024.csv"_qs)));
    EXPECT_EQ(w.documents().scripts().size(), 1);
}
