// The edits behind the editor's structural keys: Return, a closing bracket, comment toggling, line
// shifting, operator insertion and re-indenting. Each takes a snapshot and a selection and changes
// nothing itself. New indentation is blanks; kept indentation is copied as it stands.
#pragma once

#include "RSourceSnapshot.h"
#include "RTextEdit.h"
#include "RTextSpan.h"

#include <QString>

#include <optional>
#include <utility>

namespace RIndenter {

RTextEdit newline(const RSourceSnapshot &snapshot, RTextRange selection, int tabWidth);
std::optional<RTextEdit> closingBracket(QChar character, const RSourceSnapshot &snapshot, qsizetype caret);
RTextEdit toggleComment(const RSourceSnapshot &snapshot, RTextRange selection);
// `inward` true indents, false outdents.
RTextEdit shiftLines(const RSourceSnapshot &snapshot, RTextRange selection, bool inward, int tabWidth);
RTextEdit insertOperator(const QString &text, const RSourceSnapshot &snapshot, RTextRange selection);
std::optional<RTextEdit> reindentLines(const QString &text, RSourceLanguage language, RTextRange selection,
                                       int tabWidth);

// Indentation of the line after a break at `caret` on `afterLine`.
QString indentation(qsizetype afterLine, qsizetype caret, const RSourceSnapshot &snapshot, int tabWidth);
qsizetype statementStart(qsizetype line, const RSourceSnapshot &snapshot);
std::optional<QString> targetIndentation(qsizetype line, const RSourceSnapshot &snapshot, int tabWidth);
// First and last line of a selection; one that ends exactly at a line's start doesn't take that line.
std::pair<qsizetype, qsizetype> selectedLines(RTextRange range, const RSourceSnapshot &snapshot);

} // namespace RIndenter
