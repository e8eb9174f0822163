#include "RmdChunks.h"

#include "RMarkdownScanner.h"

namespace RmdChunks {

QList<Chunk> all(const QString &text)
{
    // The highlighting's line scan decides where chunks open and close, so Run All runs what is shown
    // as R code.
    using Kind = RMarkdownScanner::LineKind::Case;
    QList<Chunk> chunks;
    const QStringList lines = text.split(u'\n');
    auto state = RMarkdownScanner::LineState::documentStart();
    std::optional<int> open; // zero-based index of the first code line of an R chunk
    for (int i = 0; i < lines.size(); ++i) {
        const auto *units = reinterpret_cast<const char16_t *>(lines[i].constData());
        const auto [kind, next] = RMarkdownScanner::classify(units, 0, lines[i].size(), state);
        state = next;
        if (kind.kind == Kind::chunkHeader && kind.isR) {
            open = i + 1;
        } else if (kind.kind == Kind::chunkFence && open) {
            QStringList code;
            for (int j = *open; j < i; ++j)
                code.append(lines[j]);
            // An empty chunk ends a line before it starts, so that it holds no line.
            chunks.append(Chunk{code.join(u'\n'), *open + 1, i});
            open.reset();
        }
    }
    return chunks;
}

std::optional<Chunk> chunk(int containingLine, const QString &text)
{
    for (const Chunk &chunk : all(text))
        if (containingLine >= chunk.startLine && containingLine <= chunk.endLine)
            return chunk;
    return std::nullopt;
}

} // namespace RmdChunks
