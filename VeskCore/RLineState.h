// The lexer state at a line's start: the Markdown class state and the R tokenizer state.
#pragma once

#include "RMarkdownScanner.h"
#include "RTokenizer.h"

struct RLineState {
    RMarkdownScanner::LineState markdown = RMarkdownScanner::LineState::documentStart();
    RTokenizer::State r;

    static RLineState initial() { return RLineState(); }
    bool isInsideChunk() const { return markdown.isChunk(); }
    bool operator==(const RLineState &) const = default;
};

size_t qHash(const RLineState &state, size_t seed = 0);
