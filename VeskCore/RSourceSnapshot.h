// An immutable text with its lines and line start states, for the readers that look at code
// (indenting, statement finding, completion). Lines are lexed on demand and kept; a snapshot is made
// for one query and used by one thread at a time.
#pragma once

#include "RBracketBalance.h"
#include "RLineIndex.h"
#include "RLineLexer.h"
#include "RLineState.h"
#include "RTextSpan.h"
#include "RToken.h"

#include <QList>
#include <QString>
#include <QStringView>

#include <initializer_list>
#include <optional>
#include <unordered_map>
#include <vector>

class RSourceSnapshot {
public:
    // Stand-alone: indexes and lexes the whole text.
    RSourceSnapshot(const QString &text, RSourceLanguage language);
    RSourceSnapshot(const QString &text, RSourceLanguage language, const RLineIndex &lines,
                    const QList<RLineState> &states);
    RSourceSnapshot(const RSourceSnapshot &) = delete;
    RSourceSnapshot &operator=(const RSourceSnapshot &) = delete;

    const QString &text() const { return m_text; }
    RSourceLanguage language() const { return m_language; }
    const RLineIndex &lines() const { return m_lines; }
    qsizetype lineCount() const { return m_lines.lineCount(); }
    qsizetype length() const { return m_text.size(); }

    qsizetype line(qsizetype containing) const { return m_lines.line(containing); }
    RTextRange lineRange(qsizetype line, bool includingNewline) const;
    qsizetype lineStart(qsizetype line) const { return qMin(m_lines.start(line), length()); }
    qsizetype contentEnd(qsizetype line) const;
    QString lineBreak(qsizetype nearLine) const;
    QString lineText(qsizetype line) const;
    QString string(RTextRange range) const;
    char16_t character(qsizetype at) const;
    QString text(const RToken &token) const { return string(RTextRange{token.location, token.length}); }
    QStringView view(const RToken &token) const;
    std::optional<RToken> token(qsizetype at) const;
    QList<RToken> tokens(qsizetype line) const;
    QList<RToken> significantTokens(qsizetype line) const;
    bool isCode(qsizetype line) const;
    std::optional<RMarkdownScanner::LineKind> markdownKind(qsizetype line) const;
    RLineState startState(qsizetype line) const;
    RLineState endState() const;
    bool startsInsideLiteral(qsizetype line) const;
    QString leadingWhitespace(qsizetype line) const;
    qsizetype column(qsizetype offset, int tabWidth) const;
    RTextSpan span(qsizetype from, qsizetype to) const;

    // Bracket and statement queries, safe on any line.
    bool isOpener(const RToken &token) const;
    bool isCloser(const RToken &token) const;
    bool isComma(const RToken &token) const;
    bool isLambda(const RToken &token) const;
    bool isKeyword(const RToken &token, std::initializer_list<const char *> words) const;
    std::optional<RLineToken> matchingOpener(qsizetype before, qsizetype line, qsizetype lineLimit) const;
    std::optional<RLineToken> matchingCloser(qsizetype after, qsizetype line, qsizetype lineLimit) const;
    std::optional<RLineToken> significantToken(qsizetype before, qsizetype line) const;
    std::optional<qsizetype> previousCodeLine(qsizetype before) const;
    std::optional<qsizetype> nextCodeLine(qsizetype after) const;
    qsizetype lastLineOfRegion(qsizetype from) const;
    bool continuesStatement(const RToken &token, qsizetype line) const;
    bool isControlHeaderEnd(const RToken &token, qsizetype line) const;
    // The innermost bracket left open before the line starts, counted from the top of its code region.
    std::optional<RLineToken> enclosingOpener(qsizetype line) const;
    std::optional<qsizetype> extendUp(qsizetype start, const RBracketBalance &balance) const;
    std::optional<qsizetype> extendDown(qsizetype start, qsizetype end, const RBracketBalance &balance) const;

    // A line limit that no search reaches.
    qsizetype unlimited() const { return lineCount() + 1; }

private:
    const RLineLexer::Line &lexed(qsizetype line) const;
    bool validLine(qsizetype line) const { return line >= 0 && line < lineCount(); }
    qsizetype clampLine(qsizetype line) const { return qBound<qsizetype>(0, line, lineCount() - 1); }

    QString m_text;
    RSourceLanguage m_language;
    RLineIndex m_lines;
    QList<RLineState> m_states;
    mutable std::unordered_map<qsizetype, RLineLexer::Line> m_cache;
    // enclosingOpener's answers so far (offset of the opener, or -1), and the brackets open after the
    // last line it has seen.
    mutable std::vector<qsizetype> m_openerAtStart;
    mutable std::vector<qsizetype> m_openBrackets;
};
