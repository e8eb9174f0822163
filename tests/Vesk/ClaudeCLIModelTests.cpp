// The application's `claude` against a folder of fake CLIs: the setting and the candidates decide,
// the login shell is asked once, and version reads are cached per file and its modification time.
#include "Agents/AgentSettings.h"
#include "Agents/ClaudeCLI.h"
#include "Base/Settings.h"
#include "TestSupport.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThread>

#include <qcoro/qcorotask.h>

#include <gtest/gtest.h>

#include <atomic>

namespace {

struct ClaudeCLIFixture {
    QTemporaryDir dir;
    QString home = dir.filePath(u"home"_qs);
    Settings settings{dir.filePath(u"settings.ini"_qs)};
    std::atomic<int> lookups = 0;

    ClaudeCLIFixture() { QDir().mkpath(home); }

    // Only files of the test's folder count, whatever the machine has installed.
    ClaudeCLI::System system(std::function<std::optional<QString>()> lookup = [] { return std::nullopt; })
    {
        const QString root = dir.path();
        return {home,
                [root](const QString &path) {
                    return path.startsWith(root + u'/') && QFileInfo(path).isExecutable() &&
                           QFileInfo(path).isFile();
                },
                [this, lookup] {
                    ++lookups;
                    return lookup();
                }};
    }

    QString script(const QString &relative, const QByteArray &body)
    {
        const QString path = dir.filePath(relative);
        QDir().mkpath(QFileInfo(path).absolutePath());
        const QString written = TestSupport::writeFile(QFileInfo(path).absolutePath(),
                                                       QFileInfo(path).fileName(), "#!/bin/sh\n" + body);
        QFile::setPermissions(written, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return written;
    }
    // A CLI that says its version and counts its runs in `<path>.runs`.
    QString cli(const QString &relative, const char *version)
    {
        const QString path = dir.filePath(relative);
        return script(relative,
                      "echo run >> '" + path.toUtf8() + ".runs'\necho '" + version + " (Claude Code)'\n");
    }
    int runs(const QString &path)
    {
        QFile file(path + u".runs"_qs);
        return file.open(QIODevice::ReadOnly) ? int(file.readAll().count('\n')) : 0;
    }
};

std::optional<QString> problem(ClaudeCLI &cli, const QString &executable)
{
    return QCoro::waitFor(cli.versionProblem(executable));
}

} // namespace

TEST(ClaudeCLIModel, TheSettingAndTheCandidatesDecideAndTheShellIsAskedOnce)
{
    ClaudeCLIFixture f;
    const QString own = f.script(u"home/bin/claude"_qs, "exit 0\n");
    ClaudeCLI cli(f.settings, f.system());
    int changes = 0;
    QObject::connect(&cli, &ClaudeCLI::executableChanged, [&] { ++changes; });
    EXPECT_TRUE(cli.isSearching()) << "nothing found, so the login shell is asked";
    ASSERT_TRUE(TestSupport::waitUntil([&] { return !cli.isSearching(); }));
    ASSERT_TRUE(cli.loginShellResult());
    EXPECT_EQ(*cli.loginShellResult(), std::nullopt);
    EXPECT_EQ(cli.executable(), std::nullopt);

    f.settings.setValue(Settings::claudePath, u"  ~/bin/claude "_qs);
    EXPECT_EQ(cli.executable(), own);
    EXPECT_EQ(changes, 1);
    f.settings.setValue(Settings::claudePath, QString());
    EXPECT_EQ(cli.executable(), std::nullopt);

    const QString installed = f.script(u"home/.local/bin/claude"_qs, "exit 0\n");
    EXPECT_EQ(cli.executable(), std::nullopt) << "found at the next activation, not before";
    cli.refresh();
    EXPECT_EQ(cli.executable(), installed);
    EXPECT_EQ(QCoro::waitFor(cli.resolve()), installed);
    QFile::remove(installed);
    EXPECT_EQ(QCoro::waitFor(cli.resolve()), std::nullopt);
    EXPECT_EQ(changes, 4);
    EXPECT_EQ(f.lookups, 1);
}

TEST(ClaudeCLIModel, ResolveWaitsForTheLoginShell)
{
    ClaudeCLIFixture f;
    const QString found = f.script(u"elsewhere/claude"_qs, "exit 0\n");
    ClaudeCLI cli(f.settings, f.system([found] {
        QThread::msleep(200);
        return std::optional<QString>(found);
    }));
    EXPECT_TRUE(cli.isSearching());
    EXPECT_EQ(QCoro::waitFor(cli.resolve()), found);
    EXPECT_FALSE(cli.isSearching());
    EXPECT_EQ(cli.executable(), found);
    EXPECT_EQ(f.lookups, 1);
}

TEST(ClaudeCLIModel, VersionReadsAreCachedUntilTheFileChanges)
{
    ClaudeCLIFixture f;
    ClaudeCLI cli(f.settings, f.system());
    const QString old = f.cli(u"old/claude"_qs, "2.1.75");
    const QString tooOld =
        u"Claude Code 2.1.75 is too old for Vesk, which needs 2.1.76 or later. Update it with "
        u"\u201Cclaude update\u201D in a terminal, then try again."_qs;
    EXPECT_EQ(problem(cli, old), tooOld);
    EXPECT_EQ(problem(cli, old), tooOld);
    EXPECT_EQ(f.runs(old), 1);

    // An update replaces the file: a new modification time, so a new read.
    const QDateTime before = QFileInfo(old).lastModified();
    f.cli(u"old/claude"_qs, "2.1.80");
    QFile file(old);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    ASSERT_TRUE(file.setFileTime(before.addSecs(5), QFileDevice::FileModificationTime));
    file.close();
    EXPECT_EQ(problem(cli, old), std::nullopt);
    EXPECT_EQ(f.runs(old), 2);

    // A symlink is read through to its target.
    const QString link = f.dir.filePath(u"claude-link"_qs);
    const QString older = f.cli(u"older/claude"_qs, "1.0.3");
    QFile olderFile(older);
    ASSERT_TRUE(olderFile.open(QIODevice::ReadWrite));
    ASSERT_TRUE(olderFile.setFileTime(before.addSecs(5), QFileDevice::FileModificationTime))
        << "the same time as the other target, so only the target's path tells them apart";
    olderFile.close();
    ASSERT_TRUE(QFile::link(older, link));
    EXPECT_TRUE(problem(cli, link).value_or(QString()).startsWith(u"Claude Code 1.0.3 is too old"_qs));
    ASSERT_TRUE(QFile::remove(link) && QFile::link(old, link));
    EXPECT_EQ(problem(cli, link), std::nullopt);

    // What cannot be read or parsed stops nothing.
    EXPECT_EQ(problem(cli, f.script(u"odd/claude"_qs, "echo 'Claude Code 2.1'\n")), std::nullopt);
    EXPECT_EQ(problem(cli, f.dir.filePath(u"missing/claude"_qs)), std::nullopt);
}

TEST(ClaudeCLIModel, AgentOverridesSurviveTheSettingsAndBadTextReadsAsNone)
{
    ClaudeCLIFixture f;
    AgentOverrides overrides;
    overrides.entries[u"tutor"_qs] = {u"claude-sonnet-5"_qs, u"low"_qs};
    AgentSettings::saveOverrides(f.settings, overrides);
    EXPECT_EQ(AgentSettings::loadOverrides(Settings(f.dir.filePath(u"settings.ini"_qs))), overrides);
    f.settings.setValue(Settings::agentOverrides, u"{not json"_qs);
    EXPECT_TRUE(AgentSettings::loadOverrides(f.settings).entries.empty());

    f.settings.setValue(Settings::agentLanguage, u"de"_qs);
    const AgentPreferences preferences = AgentSettings::preferences(f.settings);
    EXPECT_EQ(preferences.language, u"de"_qs);
    EXPECT_EQ(preferences.model, u"claude-opus-5-5"_qs);
}
