// Finds R and the outside tools a session or the editor needs (Pandoc, Quarto, Homebrew). The
// macOS locations come first, the Linux ones are appended to each list.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace RLocator {

QStringList candidates();
// `preferred` when it names an executable file; else the first executable candidate.
std::optional<QString> find(const std::optional<QString> &preferred = std::nullopt);

} // namespace RLocator

namespace ToolLocator {

QStringList pathDirectories();
QStringList bundledPandocDirectories();
std::optional<QString> pandocDirectory();
// Nothing when Pandoc is on the usual PATH directories already.
std::optional<QString> bundledPandocDirectory();
std::optional<QString> quarto();
std::optional<QString> homebrew();

bool isExecutableFile(const QString &path);

} // namespace ToolLocator
