# Writes R's own reading of real R code for the differential tests and the tokenizer benchmark:
# the deparsed functions of the installed base packages plus the R files R ships, as corpus.R; the
# terminal tokens of getParseData() (tokens.tsv); the lines of each top-level expression (exprs.tsv);
# the statements inside each pair of braces (blocks.tsv: the braces' id, first line and column, last
# line and column); when asked, whether each line-cut prefix of each top-level chunk parses
# (prefixes.tsv); and the same reading of a CRLF copy of every n-th chunk (corpus-crlf.R and
# *-crlf.tsv).
# Arguments: output folder, keep every n-th chunk, keep prefixes of every n-th kept chunk (0: none),
# CRLF copy of every n-th kept chunk (0: none), and optionally a file that lists the R files to read
# instead of the installed packages. Prefixes cost R a parse each, so chunks over 150 lines are left
# out of them.
args <- commandArgs(TRUE)
out <- args[[1]]
step <- as.integer(args[[2]])
prefixStep <- as.integer(args[[3]])
crlfStep <- if (length(args) >= 4) as.integer(args[[4]]) else 0L
fileList <- if (length(args) >= 5) args[[5]] else ""
readChunk <- function(f) paste(readLines(f, warn = FALSE, encoding = "UTF-8"), collapse = "\n")
chunks <- character()
if (nzchar(fileList)) {
  chunks <- vapply(readLines(fileList, warn = FALSE), readChunk, "")
} else {
  pkgs <- c("base", "stats", "utils", "methods", "tools", "graphics", "grDevices", "grid", "splines",
            "parallel", "compiler", "stats4", "tcltk")
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
    chunks <- c(chunks, readChunk(f))
}
ok <- vapply(chunks, function(ch) validUTF8(ch) && !grepl("\r", ch, fixed = TRUE) &&
               !inherits(tryCatch(parse(text = ch, keep.source = FALSE), error = identity), "error"), TRUE)
read <- length(chunks)
chunks <- chunks[ok]
chunks <- chunks[seq(1, length(chunks), by = step)]
if (!nzchar(fileList)) {
  # Every character that R's parser takes for a blank, wherever a blank can stand.
  codes <- c(0x09, 0x0B, 0x0C, 0x85, 0xA0, 0x1680, 0x180E, 0x2000:0x200F, 0x2028:0x202F, 0x205F:0x2060,
             0x3000, 0xFEFF)
  blanks <- Filter(function(b) {
    e <- tryCatch(parse(text = paste0("a", b, "+", b, "b"), keep.source = TRUE), error = function(e) NULL)
    !is.null(e) && sum(getParseData(e)$terminal) == 3L
  }, intToUtf8(codes, multiple = TRUE))
  chunks <- c(chunks, paste(sprintf("%sx%d <- f(a,%sb)%s+%s`c d`%s# U+%04X", blanks, seq_along(blanks), blanks,
                                    blanks, blanks, blanks, utf8ToInt(paste(blanks, collapse = ""))),
                            collapse = "\n"))
}
describe <- function(name, suffix, eol) {
  path <- file.path(out, paste0(name, ".R"))
  con <- file(path, "wb")
  writeLines(enc2utf8(chunks), con, sep = eol, useBytes = TRUE)
  close(con)
  t0 <- proc.time()[["elapsed"]]
  exprs <- parse(path, keep.source = TRUE, encoding = "UTF-8")
  pd <- getParseData(exprs)
  seconds <- proc.time()[["elapsed"]] - t0
  tsv <- function(x, file) write.table(x, file.path(out, paste0(file, suffix, ".tsv")), sep = "\t", quote = FALSE,
                                       row.names = FALSE, col.names = FALSE)
  tsv(pd[pd$terminal, c("line1", "col1", "line2", "col2", "token")], "tokens")
  sr <- attr(exprs, "srcref")
  tsv(data.frame(vapply(sr, `[`, 1L, 1L), vapply(sr, `[`, 1L, 3L)), "exprs")
  # After a `;` the statements of a block hang from nested exprlists; each takes the braces' id.
  lists <- pd$token == "exprlist"
  top <- setNames(pd$parent[lists], pd$id[lists])
  repeat {
    nested <- as.character(top) %in% names(top)
    if (!any(nested)) break
    top[nested] <- top[as.character(top[nested])]
  }
  inList <- as.character(pd$parent) %in% names(top)
  pd$parent[inList] <- top[as.character(pd$parent[inList])]
  inner <- pd[!pd$terminal & !lists & pd$parent %in% pd$parent[pd$token == "'{'"],
              c("parent", "line1", "col1", "line2", "col2")]
  tsv(inner[order(inner$line1, inner$col1), ], "blocks")
  seconds
}
parseSeconds <- describe("corpus", "", "\n")
if (crlfStep > 0) {
  all <- chunks
  chunks <- chunks[seq(1, length(chunks), by = crlfStep)]
  describe("corpus-crlf", "-crlf", "\r\n")
  chunks <- all
}
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
cat(sprintf("chunks: %d of %d\nparse_seconds: %.3f\n", length(chunks), read, parseSeconds),
    file = file.path(out, "summary.txt"))
