// The R script the editor benchmarks open: ten lines of ordinary code (a section, a call with
// strings, a function, a pipe, an if) repeated.
#pragma once

#include <QLatin1StringView>
#include <QString>

#include <iterator>

inline QString benchScript(int lines)
{
    static const char *const pieces[] = {
        "# Load data ----",
        "data <- read.csv(\"data/input.csv\", stringsAsFactors = FALSE)",
        "summarise_by <- function(df, key, value = \"x\") {",
        "  out <- aggregate(df[[value]], by = list(df[[key]]), FUN = mean, na.rm = TRUE)",
        "  names(out) <- c(key, value) # rename",
        "  out[order(-out[[value]]), , drop = FALSE]",
        "}",
        "result <- data |> subset(year >= 2020L) |> summarise_by(\"region\")",
        "if (nrow(result) > 0) print(head(result, 10)) else message('empty')",
        "",
    };
    QString text;
    text.reserve(qsizetype(lines) * 48);
    for (int i = 0; i < lines; ++i) {
        text += QLatin1StringView(pieces[i % std::size(pieces)]);
        text += u'\n';
    }
    return text;
}
