// The editor's typing rules for R: a typed bracket or quote brings its closer (or wraps the
// selection), typing a closer steps over the one already there, and Backspace takes an empty pair or
// the spaces back to the last tab stop. Pure functions of the text around the caret, beside the
// indenter that gives Return and a closing bracket their indentation; the editor applies the result.
#pragma once

#include "RTextEdit.h"
#include "RTextSpan.h"
#include "RToken.h"
#include "TextContext.h"

#include <QStringView>

#include <functional>
#include <optional>

namespace RTyping {

struct Surroundings {
    QStringView text;
    RTextRange selection;
    // What the lexer says of the selection's start.
    TextContext context = TextContext::code;
    // The token covering an offset; asked only when a rule needs it.
    std::function<std::optional<RToken>(qsizetype)> tokenAt;
};

// The edit for typing `c` when brackets and quotes pair; none when it goes in as typed. An edit that
// replaces nothing only moves the caret (over a closer).
std::optional<RTextEdit> typedCharacter(char16_t c, const Surroundings &around);
// What Backspace deletes when it is more than the character before the caret.
std::optional<RTextRange> backwardDeletion(const Surroundings &around, bool pairs, int tabWidth);

bool isCloser(char16_t unit);

} // namespace RTyping
