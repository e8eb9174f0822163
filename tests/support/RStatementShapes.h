// Continuation shapes for Run Line: a statement spread over lines in each way R reads on (a line
// inside an open bracket that starts with an operator, a line under a trailing operator or keyword,
// with blank and comment lines between), at the top level and inside a function body. The unit
// tests check the statement finder on them; the integration tests check the spans with R.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <utility>

namespace RStatementShapes {

struct Shape {
    QStringList lines;
    // For each line, the first and last line of the statement that Run Line sends from it.
    QList<std::pair<int, int>> spans;

    QString text() const { return lines.join(u'\n') + u'\n'; }
};

// Blank and comment lines that R skips between a line and its continuation; brackets and operators
// in comments must not count.
inline QList<QStringList> gaps()
{
    return {{}, {QString()}, {u"  # note ("_qs}, {QString(), u"  # a +"_qs, QString()}};
}

// `statement` between two one-line statements; in a function body too.
inline QList<Shape> placed(const QStringList &statement)
{
    Shape top;
    top.lines << u"before <- 1"_qs << statement << u"after <- 2"_qs;
    const int last = int(statement.size());
    top.spans.append({0, 0});
    for (int i = 1; i <= last; ++i)
        top.spans.append({1, last});
    top.spans.append({last + 1, last + 1});

    Shape body;
    body.lines << u"g <- function() {"_qs;
    for (const QString &line : top.lines)
        body.lines << (line.isEmpty() ? line : u"  "_qs + line);
    body.lines << u"}"_qs;
    const int end = int(body.lines.size()) - 1;
    body.spans.append({0, end});
    for (const auto &[first, lastLine] : top.spans)
        body.spans.append({first + 1, lastLine + 1});
    body.spans.append({0, end});
    return {top, body};
}

inline QList<Shape> shapes()
{
    QList<Shape> out;
    // Inside parentheses and brackets a line may start with an operator or a comma.
    const QStringList leading = {u","_qs,   u"%in%"_qs, u"%if_next_isnt%"_qs,
                                 u"&&"_qs,  u"||"_qs,   u"&"_qs,
                                 u"|"_qs,   u"="_qs,    u"=="_qs,
                                 u"!="_qs,  u"<"_qs,    u">="_qs,
                                 u"+"_qs,   u"-"_qs,    u"*"_qs,
                                 u"/"_qs,   u"^"_qs,    u"<-"_qs,
                                 u"<<-"_qs, u"->"_qs,   u"|>"_qs,
                                 u"~"_qs,   u":"_qs,    u"?"_qs};
    const std::pair<QString, QString> brackets[] = {
        {u"f("_qs, u")"_qs}, {u"x["_qs, u"]"_qs}, {u"x[["_qs, u"]]"_qs}};
    for (const auto &[open, close] : brackets) {
        for (const QString &op : leading) {
            for (const QStringList &gap : gaps())
                out += placed(QStringList{u"res <- "_qs + open + u"df,"_qs, u"  a"_qs} + gap +
                              QStringList{u"  "_qs + op + u" g(y)"_qs, close});
        }
    }
    // Anywhere, a line that ends in a binary operator goes on.
    QStringList trailing = leading.mid(1);
    trailing << u"$"_qs << u"@"_qs << u"->>"_qs;
    for (const QString &op : trailing) {
        for (const QStringList &gap : gaps())
            out += placed(QStringList{u"x <- a "_qs + op} + gap + QStringList{u"  g(y)"_qs});
    }
    // Keywords and headers that want a body or an operand.
    const QList<std::pair<QString, QString>> heads = {
        {u"for (i in"_qs, u"  1:3) print(i)"_qs},
        {u"for (i in 1:3)"_qs, u"  print(i)"_qs},
        {u"if (a)"_qs, u"  b"_qs},
        {u"if (a) b else"_qs, u"  c"_qs},
        {u"x <- if (a) b else if (c)"_qs, u"  d"_qs},
        {u"while (a)"_qs, u"  b()"_qs},
        {u"repeat"_qs, u"  break"_qs},
        {u"f <- function(x)"_qs, u"  x"_qs},
        {u"f <- function(x,"_qs, u"  y) x"_qs},
        {u"f <- \\(x)"_qs, u"  x"_qs},
        {u"f <- \\"_qs, u"  (x) x"_qs},
        {u"f <- function"_qs, u"  (x) x"_qs},
    };
    for (const auto &[head, tail] : heads) {
        for (const QStringList &gap : gaps())
            out += placed(QStringList{head} + gap + QStringList{tail});
    }
    // `else` on a line of its own continues an `if` inside braces.
    for (const QStringList &gap : gaps()) {
        Shape s =
            placed(QStringList{u"if (a) {"_qs, u"  b"_qs, u"}"_qs} + gap + QStringList{u"else c"_qs})[1];
        // The lines inside the braces run alone.
        s.spans[3] = {3, 3};
        out.append(s);
    }
    return out;
}

} // namespace RStatementShapes
