// Settings: defaults for an empty store, typed reads of stored text, and the change notification.
#include "Base/RecentProjects.h"
#include "Base/Settings.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

TEST(SettingsStore, EmptyStoreGivesEveryDefault)
{
    QTemporaryDir dir;
    Settings settings(dir.filePath(u"s.ini"_qs));
    EXPECT_EQ(settings.intValue(Settings::tabWidth), 2);
    EXPECT_EQ(settings.intValue(Settings::hoverDelay), 250);
    EXPECT_EQ(settings.intValue(Settings::digits), 7);
    EXPECT_DOUBLE_EQ(settings.doubleValue(Settings::consoleFontSize), 12.5);
    EXPECT_EQ(settings.stringValue(Settings::cranMirror), u"https://cloud.r-project.org"_qs);
    EXPECT_EQ(settings.stringValue(Settings::agentModel), u"claude-opus-5-5"_qs);
    EXPECT_TRUE(settings.boolValue(Settings::showWorkspaceChanges));
    EXPECT_FALSE(settings.boolValue(Settings::clearConsoleOnRestart));
    EXPECT_DOUBLE_EQ(settings.doubleValue(Settings::consoleHeightFraction), 0.36);
    EXPECT_EQ(settings.appearanceValue(), u"system"_qs);
    EXPECT_TRUE(settings.stringListValue(Settings::recentProjects).isEmpty());
}

TEST(SettingsStore, StoredValuesReadBackTypedAndNotify)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(u"s.ini"_qs);
    {
        Settings settings(path);
        QStringList told;
        QObject::connect(&settings, &Settings::changed, [&](const QString &key) { told.append(key); });
        settings.setValue(Settings::digits, 4);
        settings.setValue(Settings::digits, 4);
        EXPECT_EQ(told, QStringList{Settings::digits}) << "an unchanged write is silent";
        settings.setValue(Settings::showWorkspaceChanges, false);
        settings.setValue(Settings::appearance, u"sepia"_qs);
        settings.setValue(Settings::plotExportDPI, 150);
        RecentProjects::add(settings, u"/a"_qs);
    }
    // A fresh store reads the text of the file back as the default's type.
    Settings settings(path);
    EXPECT_EQ(settings.value(Settings::digits).metaType().id(), QMetaType::Int);
    EXPECT_EQ(settings.intValue(Settings::digits), 4);
    EXPECT_FALSE(settings.boolValue(Settings::showWorkspaceChanges));
    EXPECT_EQ(settings.appearanceValue(), u"system"_qs) << "an unknown appearance";
    EXPECT_EQ(settings.plotExportDPIValue(), 144);
    EXPECT_EQ(RecentProjects::all(settings), QStringList{u"/a"_qs});
    settings.remove(Settings::digits);
    EXPECT_EQ(settings.intValue(Settings::digits), 7);
}

TEST(SettingsStore, RecentListsMoveToTheFrontAndKeepTheirLimit)
{
    const QStringList list = {u"a"_qs, u"b"_qs, u"c"_qs};
    EXPECT_EQ(RecentList::adding(u"c"_qs, list, 3), (QStringList{u"c"_qs, u"a"_qs, u"b"_qs}));
    EXPECT_EQ(RecentList::adding(u"d"_qs, list, 2), (QStringList{u"d"_qs, u"a"_qs}));
    EXPECT_TRUE(RecentList::adding(u"d"_qs, list, -1).isEmpty());
}
