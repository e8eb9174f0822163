// What a file or folder name typed in Vesk may be: the checks of new-file and rename prompts.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>

namespace FileNameRules {

// Without surrounding white space and line breaks.
QString cleaned(const QString &name);
// The message that tells why the cleaned name can't be used, or nothing. Names compare without
// regard to case, so that no folder gets two names a case-insensitive file system would confuse;
// renaming `current` to itself in another case passes.
std::optional<QString> problem(const QString &name, const QStringList &existing,
                               const std::optional<QString> &current = std::nullopt);
// "notes.R", then "notes 2.R", "notes 3.R", ...: the first whose lower-case form is not taken.
QString uniqueName(const QString &base, const std::optional<QString> &extension, const QStringList &existing);

} // namespace FileNameRules
