// What a file was on disk when Vesk last read or wrote it: enough to tell an outside change.
#pragma once

#include "JSONValue.h"

#include <QDateTime>
#include <QString>

#include <optional>

struct FileStamp {
    enum class Change { unchanged, modified, deleted };

    // The content modification date, to the millisecond (what QDateTime holds, and what the stored
    // form keeps exactly).
    std::optional<QDateTime> modified;
    // The size in bytes.
    std::optional<qint64> size;

    // Absent when the attributes can't be read or the item is not a regular file. Links are
    // followed: the stamp is that of the file a link leads to.
    static std::optional<FileStamp> read(const QString &filePath);
    // A file with no earlier stamp can't be said to have changed. Dates compare exactly, so a file
    // rewritten with the same bytes counts as modified.
    static Change change(const std::optional<FileStamp> &from, const std::optional<FileStamp> &to);

    // {"modified": seconds since 2001-01-01 UTC, "size": bytes}; absent fields are left out.
    JSONValue toJSON() const;
    // Lenient: a field of the wrong kind is dropped. An ISO 8601 date string is read as well. Fails
    // only when the value is no object.
    static std::optional<FileStamp> fromJSON(const JSONValue &value);

    bool operator==(const FileStamp &) const = default;
};
