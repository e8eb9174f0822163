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
    touch(root + QStringLiteral("/Plot.R"));

    EXPECT_EQ(FileTreeModel::suggestedName(root, QStringLiteral("untitled"), QStringLiteral("R")),
              QStringLiteral("untitled.R"));
    QString created;
    EXPECT_EQ(files.createFile(root, QStringLiteral("  notes.R \n"), &created), std::nullopt);
    EXPECT_EQ(created, root + QStringLiteral("/notes.R"));
    EXPECT_EQ(files.createFile(root, QStringLiteral("NOTES.r")),
              std::optional<QString>(QStringLiteral("“NOTES.r” already exists. Choose a different name.")));
    EXPECT_EQ(files.createFolder(root, QStringLiteral("a/b")),
              std::optional<QString>(QStringLiteral("Names can’t contain “/” or “:”.")));
    EXPECT_EQ(files.createFolder(root, QStringLiteral("data")), std::nullopt);
    EXPECT_TRUE(QFileInfo(root + QStringLiteral("/data")).isDir());

    // Only the case changes: allowed, though the name is "taken".
    QString renamed;
    EXPECT_EQ(files.rename(root + QStringLiteral("/Plot.R"), QStringLiteral("plot.r"), &renamed),
              std::nullopt);
    EXPECT_TRUE(QFile::exists(root + QStringLiteral("/plot.r")));
    EXPECT_FALSE(QFile::exists(root + QStringLiteral("/Plot.R")));
    EXPECT_EQ(files.rename(renamed, QStringLiteral("notes.R")),
              std::optional<QString>(QStringLiteral("“notes.R” already exists. Choose a different name.")));
    EXPECT_EQ(files.rename(renamed, QString()), std::optional<QString>(QStringLiteral("Enter a name.")));
    EXPECT_TRUE(QFile::exists(renamed)) << "a refused rename changes nothing";
}

TEST(FileTreeModel, TheTreeFollowsTheDisk)
{
    QTemporaryDir dir;
    FileTreeModel files;
    touch(dir.filePath(QStringLiteral("first.R")));
    files.setRootPath(dir.path());
    QFileSystemModel *model = files.model();
    auto rows = [&] {
        const QModelIndex root = files.rootIndex();
        while (model->canFetchMore(root))
            model->fetchMore(root);
        return model->rowCount(root);
    };
    ASSERT_TRUE(TestSupport::waitUntil([&] { return rows() == 1; }));
    touch(dir.filePath(QStringLiteral("second.R")));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return rows() == 2; }))
        << "a file made by another program shows";
    touch(dir.filePath(QStringLiteral(".hidden")));
    ASSERT_TRUE(QFile::remove(dir.filePath(QStringLiteral("first.R"))));
    EXPECT_TRUE(TestSupport::waitUntil([&] { return rows() == 1; })) << "hidden files stay out";
}

TEST(WorkspaceDocuments, RenamesAndTrashReachOpenDocuments)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    QTemporaryDir project;
    const QString folder = project.filePath(QStringLiteral("R"));
    ASSERT_TRUE(QDir().mkpath(folder));
    touch(folder + QStringLiteral("/a.R"));
    touch(project.filePath(QStringLiteral("b.R")));
    w.documents().open(folder + QStringLiteral("/a.R"));
    w.documents().open(project.filePath(QStringLiteral("b.R")));
    w.documents().scripts().first()->setText(QStringLiteral("unsaved"));

    ASSERT_EQ(w.files().rename(folder, QStringLiteral("scripts")), std::nullopt);
    EditorDocument *moved = w.documents().scripts().first();
    EXPECT_EQ(moved->path(), std::optional<QString>(project.filePath(QStringLiteral("scripts/a.R"))));
    EXPECT_EQ(moved->text(), QStringLiteral("unsaved")) << "the text stays with the document";
    EXPECT_EQ(moved->title(), QStringLiteral("a.R"));

    if (const auto problem = w.files().moveToTrash(project.filePath(QStringLiteral("b.R"))))
        GTEST_SKIP() << "no trash here: " << problem->toStdString();
    EXPECT_EQ(w.documents().scripts().last()->diskState(), DiskState::deleted);
}

TEST(WorkspaceDocuments, ViewAndOpenFileEventsOpenTabs)
{
    IsolatedWorkspace f;
    Workspace &w = *f.workspace;
    QTemporaryDir dir;
    touch(dir.filePath(QStringLiteral("report.Rmd")), "# Title\n");

    SessionEvent view;
    view.kind = SessionEvent::Kind::View;
    view.expr = QStringLiteral(".vesk$views[[\"v1\"]]");
    view.title = QStringLiteral("mtcars");
    w.handle(view);
    w.handle(view);
    ASSERT_EQ(w.documents().items().size(), 1) << "a second view of the same value selects the first";
    ASSERT_NE(w.documents().items()[0].data, nullptr);
    EXPECT_EQ(w.documents().items()[0].title(), QStringLiteral("mtcars"));

    SessionEvent open;
    open.kind = SessionEvent::Kind::OpenFile;
    open.url = QUrl::fromLocalFile(dir.filePath(QStringLiteral("report.Rmd")));
    w.handle(open);
    ASSERT_EQ(w.documents().scripts().size(), 1);
    EXPECT_EQ(w.documents().scripts()[0]->language(), CodeLanguage::rMarkdown);
    EXPECT_EQ(w.documents().selected()->id(), w.documents().scripts()[0]->id());

    // A data file is read into R, under a name made from the file's, and viewed.
    touch(dir.filePath(QStringLiteral("sales 2024.csv")), "a\n1\n");
    w.documents().open(dir.filePath(QStringLiteral("sales 2024.csv")));
    ASSERT_FALSE(w.history().isEmpty());
    EXPECT_EQ(w.history().last().code, QStringLiteral("sales_2024 <- read.csv(\"%1\")\nView(sales_2024)")
                                           .arg(dir.filePath(QStringLiteral("sales 2024.csv"))));
    EXPECT_EQ(w.documents().scripts().size(), 1);
}
