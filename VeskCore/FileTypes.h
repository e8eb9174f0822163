// Which kind of pane a file opens in, judged by its extension alone.
#pragma once

#include <QSet>
#include <QString>
#include <QStringView>

#include <cstdint>

// In the order the tables are consulted; `sniff` means that the extension says nothing.
enum class FileOpenRoute : std::uint8_t { editor, viewer, importData, external, sniff };

namespace FileTypes {

// The extension tables, in lower case without the dot.
const QSet<QString> &data();
const QSet<QString> &viewer();
const QSet<QString> &text();
const QSet<QString> &external();

// The extension is compared in lower case; a data extension wins over a viewer one, and so on.
FileOpenRoute route(QStringView extension);

// The route's name as written in code, for messages and test output.
QString routeName(FileOpenRoute route);

} // namespace FileTypes
