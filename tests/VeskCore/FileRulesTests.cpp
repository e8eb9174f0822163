#include "FileNameRules.h"
#include "FileStamp.h"
#include "FileTypes.h"
#include "LineTarget.h"
#include "QStringPrinting.h"
#include "TextFilePrinting.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

bool setModified(const QString &path, qint64 seconds, long nanoseconds)
{
    const struct timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    return ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0) == 0;
}

} // namespace

TEST(FileStamp, TellsModifiedDeletedAndUnchanged)
{
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(u"a.R"_qs);
    ASSERT_TRUE(writeFile(path, "x <- 1\n"));
    ASSERT_TRUE(setModified(path, 1700000000, 250000000));
    const std::optional<FileStamp> first = FileStamp::read(path);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->size, 7);
    ASSERT_TRUE(first->modified);
    EXPECT_EQ(first->modified->toMSecsSinceEpoch(), 1700000000250);
    EXPECT_EQ(FileStamp::change(first, FileStamp::read(path)), FileStamp::Change::unchanged);

    // Same bytes, new date: modified. Deleted and created again: modified by its date.
    ASSERT_TRUE(setModified(path, 1700000001, 0));
    EXPECT_EQ(FileStamp::change(first, FileStamp::read(path)), FileStamp::Change::modified);
    ASSERT_TRUE(QFile::remove(path));
    EXPECT_EQ(FileStamp::change(first, FileStamp::read(path)), FileStamp::Change::deleted);
    EXPECT_EQ(FileStamp::change(std::nullopt, std::nullopt), FileStamp::Change::deleted);
    ASSERT_TRUE(writeFile(path, "x <- 1\n"));
    ASSERT_TRUE(setModified(path, 1700000002, 0));
    EXPECT_EQ(FileStamp::change(first, FileStamp::read(path)), FileStamp::Change::modified);
    // A file never stamped has not changed.
    EXPECT_EQ(FileStamp::change(std::nullopt, FileStamp::read(path)), FileStamp::Change::unchanged);

    // A directory in the file's place is no file.
    ASSERT_TRUE(QFile::remove(path));
    ASSERT_TRUE(QDir(dir.path()).mkdir(u"a.R"_qs));
    EXPECT_FALSE(FileStamp::read(path));
    EXPECT_EQ(FileStamp::change(first, FileStamp::read(path)), FileStamp::Change::deleted);
    const QString fifo = dir.filePath(u"fifo"_qs);
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    EXPECT_FALSE(FileStamp::read(fifo));

    // A link stamps the file it leads to; a dangling one is gone.
    const QString target = dir.filePath(u"target.R"_qs);
    const QString link = dir.filePath(u"link.R"_qs);
    ASSERT_TRUE(writeFile(target, "abc"));
    ASSERT_TRUE(QFile::link(target, link));
    ASSERT_TRUE(FileStamp::read(link));
    EXPECT_EQ(FileStamp::read(link)->size, 3);
    ASSERT_TRUE(QFile::remove(target));
    EXPECT_FALSE(FileStamp::read(link));
}

TEST(FileStamp, StoredFormKeepsTheStampExactly)
{
    // A restored stamp must compare equal to a fresh read of the unchanged file, or every restored
    // document would look changed on disk.
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString path = dir.filePath(u"b.R"_qs);
    ASSERT_TRUE(writeFile(path, "y"));
    for (const auto &[seconds, nanoseconds] : {std::pair{1700000000LL, 999999999L},
                                               {978307199LL, 1000000L},
                                               {4102444800LL, 123456789L},
                                               {0LL, 1L}}) {
        ASSERT_TRUE(setModified(path, seconds, nanoseconds));
        const std::optional<FileStamp> stamp = FileStamp::read(path);
        ASSERT_TRUE(stamp);
        const std::optional<JSONValue> stored =
            JSONValue::parse(QByteArrayView(stamp->toJSON().serialized()));
        ASSERT_TRUE(stored);
        EXPECT_EQ(FileStamp::fromJSON(*stored), stamp) << stamp->toJSON().serialized().constData();
        EXPECT_EQ(FileStamp::change(FileStamp::fromJSON(*stored), FileStamp::read(path)),
                  FileStamp::Change::unchanged);
    }

    EXPECT_EQ(FileStamp().toJSON().serialized(), QByteArray("{}"));
    EXPECT_EQ(FileStamp::fromJSON(*JSONValue::parse(QByteArrayView("{}"))), FileStamp());
    EXPECT_FALSE(FileStamp::fromJSON(JSONValue(1.0)));
    // Fields of the wrong kind or out of range are dropped, not fatal.
    const std::optional<FileStamp> odd =
        FileStamp::fromJSON(*JSONValue::parse(QByteArrayView(R"({"modified":"soon","size":"big"})")));
    EXPECT_EQ(odd, FileStamp());
    EXPECT_EQ(FileStamp::fromJSON(*JSONValue::parse(QByteArrayView(R"({"modified":1e300})")))->modified,
              std::nullopt);
    const std::optional<FileStamp> iso = FileStamp::fromJSON(
        *JSONValue::parse(QByteArrayView(R"({"modified":"2001-01-01T00:00:01.5Z","size":4})")));
    ASSERT_TRUE(iso && iso->modified);
    EXPECT_EQ(iso->modified->toMSecsSinceEpoch(), 978307201500);
    EXPECT_EQ(iso->size, 4);
    EXPECT_EQ((FileStamp{iso->modified, std::nullopt}).toJSON().serialized(),
              QByteArray(R"({"modified":1.5})"));
}

TEST(FileTypes, RoutesByLowerCasedExtension)
{
    using R = FileOpenRoute;
    const std::pair<const char16_t *, R> routes[] = {
        {u"R", R::editor},         {u"CSV", R::importData},   {u"RData", R::importData}, {u"SVG", R::viewer},
        {u"gitignore", R::editor}, {u"parquet", R::external}, {u"unknownext", R::sniff}, {u"", R::sniff},
        {u".r", R::sniff}}; // an extension comes without its dot
    for (const auto &[extension, route] : routes)
        EXPECT_EQ(FileTypes::route(extension), route) << QString::fromUtf16(extension).toStdString();
    // The tables don't overlap, so their order can't hide an entry.
    for (const QSet<QString> *table : {&FileTypes::viewer(), &FileTypes::text(), &FileTypes::external()})
        EXPECT_FALSE(table->intersects(FileTypes::data()));
    EXPECT_FALSE(FileTypes::text().intersects(FileTypes::viewer()));
    EXPECT_FALSE(FileTypes::text().intersects(FileTypes::external()));
}

TEST(FileNameRules, ProblemsInTheirOrder)
{
    const QStringList existing{u"Plot.R"_qs, u"data"_qs};
    EXPECT_EQ(FileNameRules::cleaned(u" \t notes.R\n"_qs), u"notes.R"_qs);
    EXPECT_EQ(FileNameRules::problem(u" \n"_qs, existing), u"Enter a name."_qs);
    EXPECT_EQ(FileNameRules::problem(u" .. "_qs, existing), u"“..” is reserved by the system."_qs);
    EXPECT_EQ(FileNameRules::problem(u"."_qs, existing), u"“.” is reserved by the system."_qs);
    EXPECT_EQ(FileNameRules::problem(u"a/b"_qs, existing), u"Names can’t contain “/” or “:”."_qs);
    EXPECT_EQ(FileNameRules::problem(u"a:b"_qs, existing), u"Names can’t contain “/” or “:”."_qs);
    EXPECT_EQ(FileNameRules::problem(QString(255, u'x'), existing), std::nullopt);
    EXPECT_EQ(FileNameRules::problem(QString(256, u'x'), existing), u"The name is too long."_qs);
    EXPECT_EQ(FileNameRules::problem(QString(100, u'€'), existing), u"The name is too long."_qs);
    EXPECT_EQ(FileNameRules::problem(QString(85, u'€'), existing), std::nullopt); // 255 bytes
    // Padding doesn't count toward the length.
    EXPECT_EQ(FileNameRules::problem(u"  "_qs + QString(255, u'x') + u"  "_qs, existing), std::nullopt);

    EXPECT_EQ(FileNameRules::problem(u"plot.r"_qs, existing),
              u"“plot.r” already exists. Choose a different name."_qs);
    EXPECT_EQ(FileNameRules::problem(u"plot.r"_qs, existing, u"Plot.R"_qs), std::nullopt);
    EXPECT_EQ(FileNameRules::problem(u"DATA"_qs, existing, u"Plot.R"_qs),
              u"“DATA” already exists. Choose a different name."_qs);
    EXPECT_EQ(FileNameRules::problem(u"Plot2.R"_qs, existing), std::nullopt);
}

TEST(FileNameRules, UniqueNameCountsUpPastTakenNames)
{
    EXPECT_EQ(FileNameRules::uniqueName(u"notes"_qs, u"R"_qs, {}), u"notes.R"_qs);
    EXPECT_EQ(FileNameRules::uniqueName(u"notes"_qs, u"R"_qs, {u"NOTES.r"_qs}), u"notes 2.R"_qs);
    EXPECT_EQ(
        FileNameRules::uniqueName(u"notes"_qs, u"R"_qs, {u"notes.R"_qs, u"Notes 2.R"_qs, u"notes 4.R"_qs}),
        u"notes 3.R"_qs);
    EXPECT_EQ(FileNameRules::uniqueName(u"folder"_qs, std::nullopt, {u"folder"_qs}), u"folder 2"_qs);
    EXPECT_EQ(FileNameRules::uniqueName(u"folder"_qs, u""_qs, {u"folder"_qs, u"folder."_qs}), u"folder 2"_qs);
}

TEST(LineTarget, ParsesLineAndOptionalColumn)
{
    EXPECT_EQ(LineTarget::parse(u"12:5"), (LineTarget{12, 5}));
    EXPECT_EQ(LineTarget::parse(u"12"), (LineTarget{12, std::nullopt}));
    EXPECT_EQ(LineTarget::parse(u"  7 : 3 \n"), (LineTarget{7, 3}));
    EXPECT_EQ(LineTarget::parse(u"+4"), (LineTarget{4, std::nullopt}));
    for (const char16_t *bad : {u"0", u"x", u":5", u"1:2:3", u"12:", u"12:0", u"-3", u"3:-1", u"", u"1 2",
                                u"1e3", u"99999999999999999999", u"١٢", u"12\n:5", u"+"})
        EXPECT_EQ(LineTarget::parse(bad), std::nullopt) << QString::fromUtf16(bad).toStdString();
    EXPECT_EQ(LineTarget::parse(u"9223372036854775807"), (LineTarget{9223372036854775807LL, std::nullopt}));
}
