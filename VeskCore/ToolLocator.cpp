#include "ToolLocator.h"

#include <QFileInfo>

namespace {

std::optional<QString> firstExecutable(const QStringList &paths)
{
    for (const QString &path : paths)
        if (ToolLocator::isExecutableFile(path))
            return path;
    return std::nullopt;
}

std::optional<QString> firstWithPandoc(const QStringList &directories)
{
    for (const QString &directory : directories)
        if (ToolLocator::isExecutableFile(directory + QStringLiteral("/pandoc")))
            return directory;
    return std::nullopt;
}

} // namespace

namespace RLocator {

QStringList candidates()
{
    return {QStringLiteral("/Library/Frameworks/R.framework/Resources/bin/R"),
            QStringLiteral("/usr/local/bin/R"), QStringLiteral("/opt/homebrew/bin/R"),
            QStringLiteral("/usr/bin/R"),
            // Linux
            QStringLiteral("/usr/lib/R/bin/R"), QStringLiteral("/usr/lib64/R/bin/R"),
            QStringLiteral("/opt/R/current/bin/R")};
}

std::optional<QString> find(const std::optional<QString> &preferred)
{
    if (preferred && !preferred->isEmpty() && ToolLocator::isExecutableFile(*preferred))
        return *preferred;
    return firstExecutable(candidates());
}

} // namespace RLocator

namespace ToolLocator {

bool isExecutableFile(const QString &path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

QStringList pathDirectories()
{
    return {QStringLiteral("/opt/homebrew/bin"), QStringLiteral("/usr/local/bin"), QStringLiteral("/usr/bin"),
            // Linux
            QStringLiteral("/bin"), QStringLiteral("/snap/bin")};
}

QStringList bundledPandocDirectories()
{
    return {QStringLiteral("/Applications/RStudio.app/Contents/Resources/app/quarto/bin/tools/aarch64"),
            QStringLiteral("/Applications/RStudio.app/Contents/Resources/app/quarto/bin/tools"),
            QStringLiteral("/Applications/quarto/bin/tools/aarch64"),
            QStringLiteral("/Applications/quarto/bin/tools"),
            QStringLiteral("/Applications/Positron.app/Contents/Resources/app/quarto/bin/tools/aarch64"),
            // Linux
            QStringLiteral("/usr/lib/rstudio/resources/app/quarto/bin/tools/x86_64"),
            QStringLiteral("/usr/lib/rstudio/resources/app/quarto/bin/tools"),
            QStringLiteral("/opt/quarto/bin/tools/x86_64"), QStringLiteral("/opt/quarto/bin/tools")};
}

std::optional<QString> pandocDirectory()
{
    return firstWithPandoc(pathDirectories() + bundledPandocDirectories());
}

std::optional<QString> bundledPandocDirectory()
{
    if (firstWithPandoc(pathDirectories()))
        return std::nullopt;
    return firstWithPandoc(bundledPandocDirectories());
}

std::optional<QString> quarto()
{
    return firstExecutable({QStringLiteral("/opt/homebrew/bin/quarto"),
                            QStringLiteral("/usr/local/bin/quarto"),
                            QStringLiteral("/Applications/quarto/bin/quarto"),
                            // Linux
                            QStringLiteral("/opt/quarto/bin/quarto"), QStringLiteral("/usr/bin/quarto")});
}

std::optional<QString> homebrew()
{
    return firstExecutable({QStringLiteral("/opt/homebrew/bin/brew"), QStringLiteral("/usr/local/bin/brew"),
                            // Linux
                            QStringLiteral("/home/linuxbrew/.linuxbrew/bin/brew")});
}

} // namespace ToolLocator
