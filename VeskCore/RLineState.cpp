#include "RLineState.h"

size_t qHash(const RLineState &state, size_t seed)
{
    return RTokenizer::qHash(state.r, RMarkdownScanner::qHash(state.markdown, seed));
}
