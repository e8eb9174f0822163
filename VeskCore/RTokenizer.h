// The one lexer of R source: a whole text at once, or a range of units from a carried state so that
// an edit re-lexes only the lines it changes. Builds no tree and never fails.
#pragma once

#include "RToken.h"

#include <QHashFunctions>
#include <QList>
#include <QString>

#include <cstdint>

namespace RTokenizer {

struct State {
    // Everything a line end can leave open.
    enum class Mode : std::uint8_t { string, rawString, code, backtick };

    Mode mode = Mode::code;
    // The opening quote of a string or raw string; the raw string's closing bracket and dash count.
    char16_t quote = 0;
    char16_t closer = 0;
    int dashes = 0;
    // The next name could be an argument name in a call.
    bool argumentPosition = false;

    static State initial() { return State(); }
    static State string(char16_t quote);
    static State rawString(char16_t quote, char16_t closer, int dashes);
    static State backtick();
    bool isInsideLiteral() const { return mode != Mode::code; }
    bool operator==(const State &) const = default;
};

size_t qHash(const State &state, size_t seed = 0);

QList<RToken> tokenize(const QString &text);
QList<RToken> tokenize(const char16_t *units, qsizetype count);

// Scans units[from, to) from `state`, leaves the final state there and appends to `into`; `base` is
// added to every location. Units before `from` are read only to tell a standing comment.
void scan(const char16_t *units, qsizetype from, qsizetype to, qsizetype base, State &state,
          QList<RToken> &into);

bool isSpace(char16_t unit);
bool isIdentifierStart(char16_t unit);
bool isIdentifierPart(char16_t unit);
// U+2010..U+205E, guillemets, ideographic comma and full stops: never part of a name.
bool isNonASCIIPunctuation(char16_t unit);

// Reserved kind of a name (keyword or constant), if it is one.
bool reservedKind(const char16_t *name, qsizetype length, RTokenKind &kind);

} // namespace RTokenizer
