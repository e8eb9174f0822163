// A small one-pass colourer for short read-only code snippets in cards and lists. Its vocabulary is
// smaller than the tokenizer's on purpose; the two are not meant to agree.
#pragma once

#include <QList>
#include <QString>

#include <cstdint>

namespace RHighlight {

enum class Role : std::uint8_t { string, number, keyword, constant, function, operator_, secondary, text };

struct Span {
    qsizetype location = 0;
    qsizetype length = 0;
    Role role = Role::text;
    // Keywords are set in the font's semibold weight.
    bool semibold = false;

    bool operator==(const Span &) const = default;
};

// The snippet with its spans, all in one monospaced font of `fontSize`; the view maps roles to colours.
struct StyledText {
    QString text;
    double fontSize = 12;
    QList<Span> spans;
};

QList<Span> spans(const QString &code);
StyledText attributed(const QString &code, double fontSize);

} // namespace RHighlight
