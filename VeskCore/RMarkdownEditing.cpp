#include "RMarkdownEditing.h"

#include "RLineIndex.h"
#include "RMarkdownScanner.h"

namespace RMarkdownEditing {

namespace {

bool isBlank(QStringView s)
{
    for (QChar c : s) {
        if (c != u' ' && c != u'\t' && c != u'\r')
            return false;
    }
    return true;
}

} // namespace

RTextEdit insertChunk(const QString &text, RTextRange selection, const QString &header)
{
    const QString fence = QStringLiteral("```");
    const QString templ = header + QStringLiteral("\n\n") + fence;
    const qsizetype caretInTemplate = header.size() + 1;
    const qsizetype loc = qBound<qsizetype>(0, selection.location, text.size());
    const qsizetype selEnd = qBound<qsizetype>(loc, selection.end(), text.size());
    const RLineIndex lines(text);
    const qsizetype line = lines.line(loc);
    auto contentEnd = [&](qsizetype l) { return lines.range(l, false).end(); };
    const RMarkdownOutline outline = RMarkdownScanner::scan(text);

    if (const RMarkdownChunk *chunk = outline.chunk(line)) {
        if (line == chunk->firstLine) {
            const qsizetype at = lines.start(line);
            return RTextEdit{at, 0, templ + QStringLiteral("\n\n"), at + caretInTemplate, 0};
        }
        if (chunk->isR && line >= chunk->codeStart && line < chunk->codeEnd) {
            const qsizetype lineStart = lines.start(line);
            qsizetype boundary = isBlank(QStringView(text).mid(lineStart, loc - lineStart)) ? line : line + 1;
            boundary = qMin(boundary, chunk->codeEnd);
            QString insertion = fence + QStringLiteral("\n\n") + header + QStringLiteral("\n");
            const bool atCodeEnd = boundary == chunk->codeEnd;
            if (atCodeEnd)
                insertion += u'\n';
            qsizetype at;
            if (boundary >= lines.lineCount()) {
                at = text.size();
                insertion.prepend(u'\n');
            } else {
                at = lines.start(boundary);
            }
            return RTextEdit{at, 0, insertion, at + insertion.size() - (atCodeEnd ? 1 : 0), 0};
        }
        const qsizetype at = contentEnd(chunk->lastLine);
        const QString insertion = QStringLiteral("\n\n") + templ;
        return RTextEdit{at, 0, insertion, at + 2 + caretInTemplate, 0};
    }

    if (selEnd == loc) {
        const qsizetype lineStart = lines.start(line);
        const QStringView before = QStringView(text).mid(lineStart, loc - lineStart);
        const QStringView after = QStringView(text).mid(loc, contentEnd(line) - loc);
        const QString tail = isBlank(after) ? QString() : QStringLiteral("\n");
        if (isBlank(before))
            return RTextEdit{lineStart, loc - lineStart, templ + tail, lineStart + caretInTemplate, 0};
        return RTextEdit{loc, 0, QStringLiteral("\n") + templ + tail, loc + 1 + caretInTemplate, 0};
    }

    qsizetype last = lines.line(selEnd);
    if (last > line && lines.start(last) == selEnd)
        --last;
    const qsizetype from = lines.start(line);
    const qsizetype to = contentEnd(last);
    const QString body = text.mid(from, to - from);
    const QString replacement = header + QStringLiteral("\n") + body + QStringLiteral("\n") + fence;
    return RTextEdit{from, to - from, replacement, from + header.size() + 1, body.size()};
}

} // namespace RMarkdownEditing
