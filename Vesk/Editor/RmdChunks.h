// The R chunks of an R Markdown document as the run commands take them: their code and where it
// stands, found by the same line scan as the highlighting's (RMarkdownScanner).
#pragma once

#include <QList>
#include <QString>

#include <optional>

namespace RmdChunks {

struct Chunk {
    QString code;
    // One-based lines of the first and last code line.
    int startLine = 1;
    int endLine = 1;
    bool operator==(const Chunk &) const = default;
};

QList<Chunk> all(const QString &text);
// The chunk whose code lines hold the one-based `line`.
std::optional<Chunk> chunk(int containingLine, const QString &text);

} // namespace RmdChunks
