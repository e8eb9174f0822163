#include "RMarkdownOutline.h"

const RMarkdownChunk *RMarkdownOutline::chunk(qsizetype containingLine) const
{
    for (const RMarkdownChunk &c : chunks) {
        if (c.containsLine(containingLine))
            return &c;
    }
    return nullptr;
}
