// Lexes one line of a script or R Markdown document from the state at its start: R tokens on R lines,
// one token for headings, front matter and chunk fences.
#pragma once

#include "RLineIndex.h"
#include "RLineState.h"
#include "RToken.h"

#include <QList>
#include <QString>

#include <optional>

namespace RLineLexer {

struct Line {
    QList<RToken> tokens;
    RLineState end;
    bool isCode = false;
    // Absent for R and plain text.
    std::optional<RMarkdownScanner::LineKind> markdownKind;
};

// units[0, count) is the whole line with its break; `base` is its offset in the document.
Line lex(const char16_t *units, qsizetype count, qsizetype base, RSourceLanguage language,
         const RLineState &state);
Line lex(qsizetype line, const RLineIndex &lines, const QString &text, RSourceLanguage language,
         const RLineState &state);

} // namespace RLineLexer
