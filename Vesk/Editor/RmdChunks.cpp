#include "RmdChunks.h"

#include <QRegularExpression>

namespace RmdChunks {

QList<Chunk> all(const QString &text)
{
    static const QRegularExpression opener(QStringLiteral("^```+\\s*\\{[rR][ ,}]"));
    QList<Chunk> chunks;
    const QStringList lines = text.split(u'\n');
    std::optional<int> open; // zero-based index of the first code line
    for (int i = 0; i < lines.size(); ++i) {
        const QString trimmed = lines[i].trimmed();
        if (!open) {
            if (opener.match(trimmed).hasMatch())
                open = i + 1;
        } else if (trimmed.startsWith(QStringLiteral("```"))) {
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
