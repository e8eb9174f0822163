// One lexed span of R source: what the highlighter, the source model and every syntax query read.
#pragma once

#include <QString>

#include <cstdint>

enum class RTokenKind : std::uint8_t {
    comment,
    roxygen,
    roxygenTag,
    sectionMarker,
    string,
    number,
    keyword,
    constant,
    operator_,
    functionCall,
    argumentName,
    identifier,
    bracket,
    punctuation,
    markdownHeading,
    yamlFrontMatter,
    chunkHeader,
};

struct RToken {
    RTokenKind kind = RTokenKind::identifier;
    qsizetype location = 0;
    qsizetype length = 0;

    qsizetype end() const { return location + length; }
    bool operator==(const RToken &) const = default;
};

// A token with the line it stands on.
struct RLineToken {
    RToken token;
    qsizetype line = 0;
    bool operator==(const RLineToken &) const = default;
};

// What a line of an editor's text means to the lexer.
enum class RSourceLanguage : std::uint8_t { r, rMarkdown, plain };

// The kind's name as written in code, for messages and test output.
QString rTokenKindName(RTokenKind kind);
