// Finding `claude` and reading its version: the search order, what a login shell's output means,
// fake login shells and fake CLIs (noisy, silent, hung), and the pinned real CLI.
#include "ClaudeCLILocator.h"
#include "ClaudeCLIVersion.h"
#include "QStringPrinting.h"
#include "TestSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;

namespace {

const QString home = QStringLiteral("/home/u");

QString writeScript(const QString &folder, const QString &name, const QByteArray &body)
{
    const QString path = TestSupport::writeFile(folder, name, "#!/bin/sh\n" + body);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return path;
}

} // namespace

TEST(ClaudeCLILocator, SearchesTheSettingThenTheCandidatesInOrder)
{
    const QStringList candidates = ClaudeCLILocator::candidates(home);
    ASSERT_EQ(candidates.size(), 9);
    EXPECT_EQ(candidates.first(), home + u"/.local/bin/claude"_qs);
    EXPECT_EQ(candidates.last(), u"/usr/local/bin/claude"_qs);

    struct Case {
        std::optional<QString> preferred;
        QStringList executables;
        std::optional<QString> found;
    };
    const Case cases[] = {
        {u"  ~/bin/claude\t"_qs, {home + u"/bin/claude"_qs}, home + u"/bin/claude"_qs},
        {u"/x/claude"_qs, {u"/x/claude"_qs, candidates[0]}, u"/x/claude"_qs},
        {u" \t "_qs, {candidates[3]}, candidates[3]},
        // A setting that is not executable falls through to the candidates.
        {u"/missing/claude"_qs, {candidates[8], candidates[4]}, candidates[4]},
        {std::nullopt, {}, std::nullopt},
    };
    for (const Case &c : cases) {
        QStringList probed;
        const auto found = ClaudeCLILocator::locate(c.preferred, home, [&](const QString &path) {
            probed.append(path);
            return c.executables.contains(path);
        });
        EXPECT_EQ(found, c.found) << c.preferred.value_or(u"(none)"_qs).toStdString();
        EXPECT_EQ(probed.last(), c.found.value_or(candidates.last()));
    }
}

TEST(ClaudeCLILocator, ReadsTheLastMarkerLineOfAShell)
{
    const std::pair<QString, std::optional<QString>> cases[] = {
        {u"noise\n__vesk_claude__=/a/claude\nmore\n__vesk_claude__=/b/claude\n"_qs, u"/b/claude"_qs},
        {u"__vesk_claude__=alias claude='/opt/x/claude'"_qs, u"/opt/x/claude"_qs},
        {u"__vesk_claude__=alias claude=\"/opt/x/claude\""_qs, u"/opt/x/claude"_qs},
        {u"__vesk_claude__=alias claude=~/x/claude"_qs, home + u"/x/claude"_qs},
        {u"__vesk_claude__=~/.local/bin/claude\r\n"_qs, home + u"/.local/bin/claude"_qs},
        {u"__vesk_claude__=claude"_qs, std::nullopt},
        {u"__vesk_claude__="_qs, std::nullopt},
        // The last marker line decides, even when an earlier one had a path.
        {u"__vesk_claude__=/a/claude\n__vesk_claude__=\n"_qs, std::nullopt},
        {u"/usr/bin/claude\n"_qs, std::nullopt},
        {u""_qs, std::nullopt},
    };
    for (const auto &[output, path] : cases)
        EXPECT_EQ(ClaudeCLILocator::parseShellOutput(output, home), path) << output.toStdString();
}

TEST(ClaudeCLILocator, TriesTheUsersZshOrBashThenTheSystemShells)
{
    const std::pair<QString, QStringList> cases[] = {
        {u"/opt/homebrew/bin/fish"_qs, {u"/bin/zsh"_qs, u"/bin/bash"_qs}},
        {u"/bin/zsh"_qs, {u"/bin/zsh"_qs, u"/bin/bash"_qs}},
        {u"/bin/bash"_qs, {u"/bin/bash"_qs, u"/bin/zsh"_qs}},
        {u"/usr/local/bin/zsh"_qs, {u"/usr/local/bin/zsh"_qs, u"/bin/zsh"_qs, u"/bin/bash"_qs}},
        {u""_qs, {u"/bin/zsh"_qs, u"/bin/bash"_qs}},
    };
    for (const auto &[shell, shells] : cases)
        EXPECT_EQ(ClaudeCLILocator::loginShells(shell), shells) << shell.toStdString();
}

TEST(ClaudeCLILocator, AsksFakeLoginShellsInTurn)
{
    QTemporaryDir dir;
    const QString folder = dir.path();
    ASSERT_TRUE(QDir().mkpath(folder + u"/bin"_qs));
    const QString claude = writeScript(folder + u"/bin"_qs, u"claude"_qs, "exit 0\n");
    TestSupport::writeFile(folder, u"plain"_qs, "not executable");
    // A profile that talks, then the script the lookup sends, run with a PATH that has `claude`.
    const QString talking =
        writeScript(folder, u"talking"_qs,
                    "echo 'Welcome back'; echo '__vesk_claude__=/motd/claude'\n[ \"$1\" = -lic ] || exit 1\n"
                    "PATH=" +
                        folder.toUtf8() + "/bin:/usr/bin:/bin exec /bin/sh -c \"$2\"\n");
    const QString silent = writeScript(folder, u"silent"_qs, "exit 0\n");
    const QString notExecutable =
        writeScript(folder, u"elsewhere"_qs, "echo '__vesk_claude__=" + folder.toUtf8() + "/plain'\n");
    const QString hanging = writeScript(folder, u"hanging"_qs, "exec sleep 30\n");

    EXPECT_EQ(ClaudeCLILocator::loginShellLookup(5s, {talking}, folder), claude);
    EXPECT_EQ(ClaudeCLILocator::loginShellLookup(
                  5s, {folder + u"/missing"_qs, silent, notExecutable, talking}, folder),
              claude)
        << "a missing shell, no output and a non-executable answer each move to the next shell";
    EXPECT_EQ(ClaudeCLILocator::loginShellLookup(5s, {silent}, folder), std::nullopt);

    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(ClaudeCLILocator::loginShellLookup(300ms, {hanging}, folder), std::nullopt);
    EXPECT_LT(clock.elapsed(), 10000) << "a shell that hangs is given up at the time-out";
}

TEST(ClaudeCLIVersion, ParsesTheFirstVersionAndComparesWithTheMinimum)
{
    using Version = ClaudeCLIVersion::Version;
    const std::pair<QString, std::optional<Version>> texts[] = {
        {u"2.1.76 (Claude Code)\n"_qs, Version{2, 1, 76}},
        {u"claude v10.0.3-beta, node 22.1.0"_qs, Version{10, 0, 3}},
        {u"2.1"_qs, std::nullopt},
        {u"99999999999.1.1"_qs, std::nullopt},
        {u""_qs, std::nullopt},
    };
    for (const auto &[text, version] : texts)
        EXPECT_EQ(ClaudeCLIVersion::parse(text), version) << text.toStdString();

    const std::pair<Version, bool> versions[] = {
        {{2, 1, 76}, true},  {{2, 1, 77}, true},   {{2, 2, 0}, true}, {{3, 0, 0}, true}, {{2, 2}, true},
        {{2, 1, 75}, false}, {{1, 99, 99}, false}, {{2, 1}, false},   {{}, false},
    };
    for (const auto &[version, supported] : versions)
        EXPECT_EQ(ClaudeCLIVersion::isSupported(version), supported)
            << ClaudeCLIVersion::format(version).toStdString();
    EXPECT_EQ(ClaudeCLIVersion::minimumText(), u"2.1.76"_qs);
}

TEST(ClaudeCLIVersion, ReadsFakeCLIsWithinTheTimeOut)
{
    QTemporaryDir dir;
    const QString old =
        writeScript(dir.path(), u"old"_qs, "[ \"$1\" = --version ] && echo '2.1.75 (Claude Code)'\n");
    const QString path = writeScript(dir.path(), u"path"_qs, "echo \"$PATH\"\n");
    const QString hanging = writeScript(dir.path(), u"hanging"_qs, "exec sleep 30\n");
    const QString plain = TestSupport::writeFile(dir.path(), u"plain"_qs, "#!/bin/sh\necho 2.1.80\n");

    const std::optional<QString> output = ClaudeCLIVersion::read(old, 5s);
    ASSERT_TRUE(output);
    EXPECT_EQ(ClaudeCLIVersion::parse(*output), (ClaudeCLIVersion::Version{2, 1, 75}));
    // The CLI's own folder leads PATH, so an interpreter installed beside it is found.
    EXPECT_TRUE(ClaudeCLIVersion::read(path, 5s).value_or(QString()).startsWith(dir.path() + u':'));
    EXPECT_EQ(ClaudeCLIVersion::read(plain, 5s), std::nullopt);
    EXPECT_EQ(ClaudeCLIVersion::read(dir.path() + u"/missing"_qs, 5s), std::nullopt);

    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(ClaudeCLIVersion::read(hanging, 300ms), std::nullopt);
    EXPECT_LT(clock.elapsed(), 10000);
}

TEST(ClaudeCLIVersion, ThePinnedCLIIsSupported)
{
    const QString claude = TestSupport::sourcePath(u"tests/agents/node_modules/.bin/claude"_qs);
    const std::optional<QString> output = ClaudeCLIVersion::read(claude, 30s);
    ASSERT_TRUE(output) << "run scripts/setup.sh to install the pinned CLI";
    const auto version = ClaudeCLIVersion::parse(*output);
    ASSERT_TRUE(version) << output->toStdString();
    EXPECT_TRUE(ClaudeCLIVersion::isSupported(*version)) << output->toStdString();
}
