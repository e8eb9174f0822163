// Line classes of R Markdown and Quarto documents: which lines are front matter, headings, chunk
// fences and chunk code. No Markdown parser: only fences, front matter and headings are recognised.
#pragma once

#include "RMarkdownOutline.h"

#include <QHashFunctions>
#include <QString>

#include <cstdint>
#include <utility>

namespace RMarkdownScanner {

struct LineState {
    enum class Case : std::uint8_t { chunk, documentStart, frontMatter, text };

    Case state = Case::documentStart;
    // Backticks of the opening fence and whether the chunk holds R; only meaningful in `chunk`.
    int fence = 0;
    bool isR = false;

    static LineState chunk(int fence, bool isR) { return LineState{Case::chunk, fence, isR}; }
    static LineState documentStart() { return LineState{Case::documentStart, 0, false}; }
    static LineState frontMatter() { return LineState{Case::frontMatter, 0, false}; }
    static LineState text() { return LineState{Case::text, 0, false}; }
    bool isChunk() const { return state == Case::chunk; }
    bool operator==(const LineState &) const = default;
};

size_t qHash(const LineState &state, size_t seed = 0);

struct LineKind {
    enum class Case : std::uint8_t { heading, chunkHeader, code, frontMatter, chunkFence, text };

    Case kind = Case::text;
    int level = 0;    // heading
    bool isR = false; // chunkHeader, code

    static LineKind heading(int level) { return LineKind{Case::heading, level, false}; }
    static LineKind chunkHeader(bool isR) { return LineKind{Case::chunkHeader, 0, isR}; }
    static LineKind code(bool isR) { return LineKind{Case::code, 0, isR}; }
    static LineKind frontMatter() { return LineKind{Case::frontMatter, 0, false}; }
    static LineKind chunkFence() { return LineKind{Case::chunkFence, 0, false}; }
    static LineKind text() { return LineKind{Case::text, 0, false}; }
    bool operator==(const LineKind &) const = default;
};

// Kind of the line units[from, to) and the state for the next line.
std::pair<LineKind, LineState> classify(const char16_t *units, qsizetype from, qsizetype to,
                                        const LineState &state);
RMarkdownOutline scan(const QString &text);

// The engine word and label of a chunk header line.
void parseHeader(const QString &header, QString &engine, std::optional<QString> &label);
// Whether the header text after "{" names R.
bool engineIsR(const char16_t *units, qsizetype from, qsizetype to);

} // namespace RMarkdownScanner
