# Writes R's own reading of real R code for the differential tests and the tokenizer benchmark:
# the deparsed functions of the installed base packages plus the R files R ships, as corpus.R; the
# terminal tokens of getParseData() (tokens.tsv); the lines of each top-level expression (exprs.tsv);
# and, when asked, whether each line-cut prefix of each top-level chunk parses (prefixes.tsv).
# Arguments: output folder, keep every n-th chunk, keep prefixes of every n-th kept chunk (0: none);
# prefixes cost R a parse each, so chunks over 150 lines are left out of them.
args <- commandArgs(TRUE)
out <- args[[1]]
step <- as.integer(args[[2]])
prefixStep <- as.integer(args[[3]])
pkgs <- c("base", "stats", "utils", "methods", "tools", "graphics", "grDevices", "grid", "splines",
          "parallel", "compiler", "stats4", "tcltk")
chunks <- character()
for (p in pkgs) {
  ns <- asNamespace(p)
  for (n in sort(ls(ns, all.names = TRUE))) {
    f <- get(n, envir = ns)
    if (!is.function(f) || is.primitive(f)) next
    txt <- tryCatch(paste(deparse(f), collapse = "\n"), error = function(e) NULL)
    if (is.null(txt)) next
    chunks <- c(chunks, paste0(deparse(as.name(n), backtick = TRUE), " <- ", txt))
  }
}
# The R files of the base packages, and an even sample of about 1.5 MB of those other installed
# packages ship (tests, demos, examples), so that the corpus stays the same size on any machine.
rFiles <- function(dirs) sort(unlist(lapply(dirs, list.files, pattern = "\\.[R]$", recursive = TRUE,
                                               full.names = TRUE)))
base <- rFiles(file.path(R.home(), "library"))
other <- setdiff(rFiles(.libPaths()), base)
if (length(other)) {
  every <- max(1L, ceiling(sum(file.size(other), na.rm = TRUE) / 1.5e6))
  other <- other[seq(1, length(other), by = every)]
}
for (f in c(base, other))
  chunks <- c(chunks, paste(readLines(f, warn = FALSE, encoding = "UTF-8"), collapse = "\n"))
ok <- vapply(chunks, function(ch) validUTF8(ch) && !grepl("\r", ch, fixed = TRUE) &&
               !inherits(tryCatch(parse(text = ch, keep.source = FALSE), error = identity), "error"), TRUE)
chunks <- chunks[ok]
chunks <- chunks[seq(1, length(chunks), by = step)]
con <- file(file.path(out, "corpus.R"), "w", encoding = "UTF-8")
writeLines(chunks, con)
close(con)
t0 <- proc.time()[["elapsed"]]
exprs <- parse(file.path(out, "corpus.R"), keep.source = TRUE, encoding = "UTF-8")
pd <- getParseData(exprs)
t1 <- proc.time()[["elapsed"]]
pd <- pd[pd$terminal, c("line1", "col1", "line2", "col2", "token")]
write.table(pd, file.path(out, "tokens.tsv"), sep = "\t", quote = FALSE, row.names = FALSE, col.names = FALSE)
sr <- attr(exprs, "srcref")
write.table(data.frame(vapply(sr, `[`, 1L, 1L), vapply(sr, `[`, 1L, 3L)), file.path(out, "exprs.tsv"),
            sep = "\t", quote = FALSE, row.names = FALSE, col.names = FALSE)
if (prefixStep > 0) {
  status <- function(text) {
    e <- tryCatch({ parse(text = text, keep.source = FALSE); NULL }, error = conditionMessage)
    if (is.null(e)) "complete" else if (grepl("unexpected end of input|INCOMPLETE_STRING", e)) "incomplete" else "error"
  }
  start <- 1L
  rows <- list()
  for (i in seq_along(chunks)) {
    n <- nchar(gsub("[^\n]", "", chunks[[i]])) + 1L
    lines <- strsplit(chunks[[i]], "\n", fixed = TRUE)[[1]]
    length(lines) <- n
    lines[is.na(lines)] <- ""
    if (n > 1 && n <= 150L && (i - 1L) %% prefixStep == 0L) {
      for (k in seq_len(n - 1))
        rows[[length(rows) + 1]] <- c(start, k, status(lines[seq_len(k)]))
    }
    start <- start + n
  }
  m <- if (length(rows)) do.call(rbind, rows) else matrix(character(), 0, 3)
  write.table(m, file.path(out, "prefixes.tsv"), sep = "\t", quote = FALSE, row.names = FALSE, col.names = FALSE)
}
cat(sprintf("chunks: %d\nparse_seconds: %.3f\n", length(chunks), t1 - t0),
    file = file.path(out, "summary.txt"))
