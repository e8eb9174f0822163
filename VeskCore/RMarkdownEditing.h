// Structural edits of R Markdown documents.
#pragma once

#include "RTextEdit.h"
#include "RTextSpan.h"

#include <QString>

namespace RMarkdownEditing {

// A new chunk with `header` (such as "```{r}") at the selection: splits an R chunk at the caret,
// goes behind another chunk, or wraps the selected lines.
RTextEdit insertChunk(const QString &text, RTextRange selection, const QString &header);

} // namespace RMarkdownEditing
