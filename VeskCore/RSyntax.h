// Questions about R code that need more than one line of tokens and no parse tree: the statement at
// a line, the bracket matching a bracket, whether console input is complete, the section around a
// line. Token-based and tolerant: broken code gets a best answer.
#pragma once

#include "RMarkdownOutline.h"
#include "RSection.h"
#include "RSourceSnapshot.h"

#include <QList>
#include <QString>

#include <optional>
#include <utility>

namespace RSyntax {

RTextSpan statementRange(const RSourceSnapshot &snapshot, qsizetype cursorLine);
RTextSpan statementRange(const QString &code, qsizetype cursorLine);
std::optional<qsizetype> matchingBracket(qsizetype at, const RSourceSnapshot &snapshot, qsizetype lineLimit);
// Whether Return in the console submits `code`.
bool isLikelyComplete(const QString &code);
// The chunk of an R Markdown text around an offset.
std::optional<RMarkdownChunk> chunk(qsizetype at, const QString &text);

std::optional<QString> sectionTitle(QStringView marker);
// Line and title of each section marker.
QList<std::pair<qsizetype, std::optional<QString>>> sections(const RSourceSnapshot &snapshot);
RSection currentSection(const RSourceSnapshot &snapshot, qsizetype lineIndex);
RSection currentSection(const QString &text, qsizetype lineIndex);

} // namespace RSyntax
