# Object inspection: str(), summary() and head() of an object, with quick paths for the common cases.

# Evaluates a call on `x` from the global environment, so that the user's S3 methods apply.
withUserMethods <- function(call, x) eval(call, list2env(list(x = x), parent = globalenv()))

# ---- Quick formatting ----------------------------------------------------------------------
# R's print(), format() and summary() spend most of their time in argument handling and dispatch;
# for plain values the kernel lays the text out itself, byte for byte as R would, under the
# session's width, digits, scipen and OutDec. Every quick path returns NULL for what it does not
# know, and the caller takes R's own functions.

# Padding to a display width (sprintf pads by bytes in some locales).
padLeft <- function(s, w) paste0(strrep(" ", pmax(0L, w - nchar(s, "w"))), s)
padRight <- function(s, w) paste0(s, strrep(" ", pmax(0L, w - nchar(s, "w"))))

plainNumbers <- function(x) is.null(attributes(x)) && (is.double(x) || is.integer(x))

# format(column, digits = digits) of each of a list of plain double or integer vectors (or of the
# columns of a matrix), as one vector of texts, column after column. format.info() gives the
# common width, decimals and notation that R's formatReal() chooses, and sprintf() writes the
# digits as R's encodeReal() does. Frames have many columns: one sprintf() serves them all.
formatNumberColumns <- function(columns, digits) {
  if (is.matrix(columns)) {
    k <- ncol(columns)
    sizes <- rep.int(nrow(columns), k)
  } else {
    k <- length(columns)
    sizes <- lengths(columns)
  }
  # Width, decimals and whether in scientific notation; integers have only a width.
  w <- d <- e <- integer(k)
  for (j in seq_len(k)) {
    info <- format.info(if (is.matrix(columns)) columns[, j] else columns[[j]], digits = digits)
    w[j] <- info[1L]
    if (length(info) == 3L) {
      d[j] <- info[2L]
      e[j] <- info[3L]
    }
  }
  formats <- paste0("%", c("", "#")[(e > 0L & d > 0L) + 1L], w, ".", d, c("f", "e")[(e > 0L) + 1L])
  values <- as.double(unlist(columns, use.names = FALSE))
  values[!is.na(values) & values == 0] <- 0 # R never prints a negative zero
  s <- sprintf(rep.int(formats, sizes), values)
  dec <- getOption("OutDec")
  if (!identical(dec, ".")) s <- sub(".", dec, s, fixed = TRUE)
  s
}

formatLogical <- function(x) {
  s <- c("FALSE", "TRUE")[x + 1L]
  s[is.na(x)] <- "NA"
  padLeft(s, max(nchar(s)))
}

# As str() writes numbers: format(x, digits = 3, trim = TRUE, drop0trailing = TRUE) per column.
formatNumberColumnsTrimmed <- function(columns) {
  s <- sub("^ +", "", formatNumberColumns(columns, 3L))
  dec <- getOption("OutDec")
  hasDec <- grepl(dec, s, fixed = TRUE)
  if (!any(hasDec)) return(s)
  at <- regexpr(dec, s[hasDec], fixed = TRUE)
  before <- substr(s[hasDec], 1L, at - 1L)
  after <- substring(s[hasDec], at + 1L)
  # Like prettyNum(): a number with an exponent only loses an "e+00", the others their trailing
  # zeros.
  hasE <- grepl("e", after, fixed = TRUE)
  after[hasE] <- sub("e[+-]0+$", "", after[hasE])
  after[!hasE] <- sub("0+$", "", after[!hasE])
  s[hasDec] <- paste0(before, ifelse(nzchar(after), dec, ""), after)
  s
}

# A character matrix printed as print.default() prints it with quote = FALSE: blocks of columns
# that fit the width, row labels on the left, NA as <NA>.
printedMatrix <- function(cells, colLabels, rowLabels, right) {
  width <- getOption("width")
  nr <- nrow(cells)
  nc <- ncol(cells)
  cells[is.na(cells)] <- "<NA>"
  cw <- nchar(cells, "w")
  dim(cw) <- dim(cells)
  w <- nchar(colLabels, "w")
  for (i in seq_len(nr)) w <- pmax(w, cw[i, ])
  gaps <- strrep(" ", w[col(cells)] - cw)
  cells[] <- if (right) paste0(" ", gaps, cells) else paste0(" ", cells, gaps)
  colLabels <- paste0(" ", (if (right) padLeft else padRight)(colLabels, w))
  rowWidth <- max(0L, nchar(rowLabels, "w"))
  rowText <- padRight(rowLabels, rowWidth)
  lines <- character()
  first <- 1L
  while (first <= nc) {
    last <- first
    used <- rowWidth + w[first] + 1L
    while (last < nc && used + w[last + 1L] + 1L < width) {
      last <- last + 1L
      used <- used + w[last] + 1L
    }
    block <- first:last
    # The block's rows: its cells row after row, cut at the ends of the rows.
    byRow <- t(cells[, block, drop = FALSE])
    ends <- rep.int("", length(byRow))
    ends[seq.int(length(block), length(byRow), by = length(block))] <- "\001"
    lines <- c(lines, paste0(strrep(" ", rowWidth), paste(colLabels[block], collapse = "")),
               paste0(rowText, strsplit(paste0(byRow, ends, collapse = ""), "\001", fixed = TRUE)[[1L]]))
    first <- last + 1L
  }
  lines
}

# An unnamed vector's elements, already formatted, printed after index labels as printVector().
printedVector <- function(cells, pad) {
  width <- getOption("width")
  n <- length(cells)
  w <- max(nchar(cells, "w"))
  cells <- pad(cells, w)
  labelWidth <- nchar(n) + 2L
  # Each line holds as many as fit after its label, at least one.
  perLine <- max(1L, (width - labelWidth) %/% (w + 1L))
  starts <- seq(1L, n, by = perLine)
  vapply(starts, function(i) {
    paste0(padLeft(paste0("[", i, "]"), labelWidth),
           paste0(" ", cells[i:min(n, i + perLine - 1L)], collapse = ""))
  }, "")
}

# A named vector of texts printed as printNamedVector(): names above values, both right-aligned.
printedNamedVector <- function(cells, labels) {
  width <- getOption("width")
  w <- max(nchar(cells, "w"), nchar(labels, "w"))
  perLine <- max(1L, width %/% (w + 1L))
  lines <- character()
  for (i in seq(1L, length(cells), by = perLine)) {
    k <- i:min(length(cells), i + perLine - 1L)
    lines <- c(lines, paste0(padLeft(labels[k], w), " ", collapse = ""),
               paste0(padLeft(cells[k], w), " ", collapse = ""))
  }
  lines
}

# Texts of the cells of a data frame column that is not plain numbers, as format.data.frame()
# writes them (NA for a missing string), or NULL.
columnCells <- function(column, rows) {
  if (is.logical(column) && is.null(attributes(column))) return(formatLogical(column[rows]))
  if (is.character(column) && is.null(attributes(column))) {
    cells <- column[rows]
  } else if (plainFactor(column)) {
    cells <- levels(column)[column[rows]]
  } else if (identical(class(column), "Date") && identical(names(attributes(column)), "class")) {
    return(format(column[rows]))
  } else {
    return(NULL)
  }
  # Text that print() would escape, and invalid text, are left to R.
  if (!all(validUTF8(cells[!is.na(cells)])) || !identical(encodeString(cells, na.encode = FALSE), cells))
    return(NULL)
  cells
}

plainFactor <- function(x) {
  is.factor(x) && identical(names(attributes(x)), c("levels", "class")) &&
    (identical(class(x), "factor") || identical(class(x), c("ordered", "factor")))
}

plainFrame <- function(x) {
  identical(class(x), "data.frame") &&
    all(names(attributes(x)) %in% c("names", "row.names", "class"))
}

# print(head(x, 6L)) of a plain data frame or an unnamed plain vector.
quickHead <- function(x) {
  if (plainFrame(x)) {
    p <- length(x)
    n <- .row_names_info(x, 2L)
    nms <- names(x)
    if (p == 0L || n == 0L || p * 6L > getOption("max.print") || anyNA(nms) || any(!nzchar(nms)))
      return(NULL)
    rows <- seq_len(min(6L, n))
    rn <- .row_names_info(x, 0L)
    rowLabels <- if (is.integer(rn) && length(rn) == 2L && is.na(rn[1L])) as.character(rows)
                 else as.character(rn[rows])
    cells <- matrix(NA_character_, length(rows), p)
    numbers <- vapply(x, plainNumbers, NA, USE.NAMES = FALSE)
    if (any(numbers))
      cells[, numbers] <- formatNumberColumns(lapply(unclass(x)[numbers], `[`, rows), getOption("digits"))
    for (j in which(!numbers)) {
      column <- columnCells(x[[j]], rows)
      if (is.null(column)) return(NULL)
      cells[, j] <- column
    }
    return(printedMatrix(cells, nms, rowLabels, right = TRUE))
  }
  if (!is.null(attributes(x)) || length(x) < 1L) return(NULL)
  head <- x[seq_len(min(6L, length(x)))]
  if (is.character(x)) {
    if (!all(validUTF8(head[!is.na(head)]))) return(NULL)
    return(printedVector(encodeString(head, quote = "\""), padRight))
  }
  if (is.logical(x)) return(printedVector(formatLogical(head), padLeft))
  if (!plainNumbers(x)) return(NULL)
  printedVector(formatNumberColumns(list(head), getOption("digits")), padLeft)
}

summaryLabels <- c("Min.   ", "1st Qu.", "Median ", "Mean   ", "3rd Qu.", "Max.   ", "NA's   ")

# The texts of format(summary(column, digits = significant)) for columns of plain numbers, as
# summary.default() and format.summaryDefault() write them, across all the columns at once:
# quantile(type = 7) on one sort of every column, signif(), zapsmall() per column and the count
# of NAs as is. A matrix of a column's 6 texts, and a 7th row of counts of NAs (NA where there are
# none) if any column has NAs; NULL if a column has nothing but NAs.
numberSummaries <- function(columns, digits, significant = NULL) {
  k <- length(columns)
  n <- length(columns[[1L]])
  values <- as.double(unlist(columns, use.names = FALSE))
  group <- rep(seq_len(k), each = n)
  nas <- tabulate(group[is.na(values)], k)
  valid <- n - nas
  if (any(valid == 0L)) return(NULL)
  sorted <- values[order(group, values, na.last = TRUE)]
  index <- 1 + outer(c(0, 0.25, 0.5, 0.75, 1), valid - 1)
  lo <- floor(index)
  hi <- ceiling(index)
  offset <- rep((seq_len(k) - 1L) * n, each = 5L)
  qs <- sorted[lo + offset]
  upper <- sorted[hi + offset]
  i <- which(index > lo & upper != qs)
  h <- (index - lo)[i]
  qs[i] <- (1 - h) * qs[i] + h * upper[i]
  dim(qs) <- c(5L, k)
  means <- vapply(columns, mean, 0, na.rm = TRUE, USE.NAMES = FALSE)
  qq <- rbind(qs[1:3, , drop = FALSE], means, qs[4:5, , drop = FALSE])
  if (!is.null(significant)) qq <- signif(qq, significant)
  finite <- is.finite(qq)
  # zapsmall() per column, which sees the count of NAs beside the figures.
  a <- abs(qq)
  a[!finite] <- -Inf
  mx <- pmax(a[1L, ], a[2L, ], a[3L, ], a[4L, ], a[5L, ], a[6L, ], nas)
  zdigits <- getOption("digits")
  places <- ifelse(mx > 0, pmax(0, zdigits - log10(mx)), zdigits)
  if (any(finite)) qq[finite] <- round(qq[finite], rep(places, each = 6L)[finite])
  texts <- matrix(formatNumberColumns(qq, digits), 6L, k)
  # The count is a double by then, as R writes it (1e+05 NAs).
  if (any(nas > 0L)) texts <- rbind(texts, ifelse(nas > 0L, as.character(as.double(nas)), NA_character_))
  texts
}

# print(summary(x)) of a plain data frame (R's own summary() for columns that are not plain
# numbers) or of plain numbers.
quickSummary <- function(x) {
  digits <- max(3L, getOption("digits") - 3L)
  if (!plainFrame(x)) {
    if (!plainNumbers(x) || length(x) == 0L) return(NULL)
    texts <- numberSummaries(list(x), digits)
    if (is.null(texts)) return(NULL)
    return(printedNamedVector(texts[, 1L], trimws(summaryLabels[seq_len(nrow(texts))])))
  }
  nv <- length(x)
  nm <- names(x)
  if (nv == 0L || is.null(nm) || anyNA(nm) || .row_names_info(x, 2L) == 0L) return(NULL)
  ncw <- nchar(nm, "w", allowNA = TRUE)
  if (anyNA(ncw)) return(NULL)
  lw <- rep.int(7L, nv)
  numbers <- vapply(x, plainNumbers, NA, USE.NAMES = FALSE)
  texts <- if (any(numbers)) numberSummaries(unclass(x)[numbers], digits, 12L)
  if (is.null(texts)) numbers[] <- FALSE
  others <- vector("list", nv)
  for (i in which(!numbers)) {
    sms <- summary(x[[i]], maxsum = 7L, digits = 12L)
    if (is.matrix(sms)) return(NULL)
    sms <- format(sms, digits = digits)
    lbs <- format(names(sms))
    # Text that print() would escape is left to R.
    if (any(grepl("[\001-\037\177]", c(sms, lbs), useBytes = TRUE))) return(NULL)
    lw[i] <- nchar(lbs[1L], "w")
    others[[i]] <- paste0(lbs, ":", sms, "  ")
  }
  nr <- max(if (any(numbers)) nrow(texts), lengths(others))
  cells <- matrix("", nr, nv)
  if (any(numbers)) {
    numberCells <- paste0(summaryLabels[seq_len(nrow(texts))], ":", texts, "  ")
    numberCells[is.na(texts)] <- ""
    cells[seq_len(nrow(texts)), numbers] <- numberCells
  }
  for (i in which(!numbers)) cells[seq_along(others[[i]]), i] <- others[[i]]
  labels <- paste0(strrep(" ", pmax(0, floor(lw - ncw / 2))), nm)
  printedMatrix(cells, labels, rep.int("", nr), right = FALSE)
}

# str() of plain vectors and plain data frames without str()'s per-column dispatch, which costs
# about 0.4 ms a column; anything else returns NULL and goes to utils::str.
plainStr <- local({
  # The lines of the columns after their names (or of one vector), each kind of column at once.
  vectorLines <- function(columns, nested, width) {
    n <- length(columns[[1L]])
    if (n < 2L) return(NULL)
    types <- vapply(columns, typeof, "", USE.NAMES = FALSE)
    if (!is.null(unlist(lapply(columns, attributes)))) {
      factors <- vapply(columns, plainFactor, NA, USE.NAMES = FALSE)
      plain <- vapply(columns, function(x) is.null(attributes(x)), NA, USE.NAMES = FALSE)
      if (!all(factors | plain)) return(NULL)
      types[factors] <- "factor"
    }
    mods <- c(double = "num", integer = "int", logical = "logi", character = "chr", factor = "factor")[types]
    if (anyNA(mods)) return(NULL)
    k <- length(columns)
    heads <- paste0(" ", mods, " ", if (!nested) paste0("[1:", n, "]"))
    shown <- character(k)
    vLen <- rep.int(10L, k)
    m <- min(n, 10L)
    # The first values of each column, one column of a matrix each, written per column.
    firstValues <- function(kind, template) {
      at <- mods == kind
      if (!any(at)) return(NULL)
      vapply(columns[at], `[`, template, seq_len(m), USE.NAMES = FALSE)
    }
    # The texts of each column joined by spaces, the columns' texts one after the other.
    joined <- function(texts, sizes) {
      sep <- rep.int(" ", length(texts))
      sep[cumsum(sizes)] <- "\001"
      strsplit(paste0(texts, sep, collapse = ""), "\001", fixed = TRUE)[[1L]]
    }
    if (!is.null(h <- firstValues("num", numeric(m)))) {
      a <- abs(h)
      exact <- is.na(h) | ((a > 1e-10 | a == 0) & (a < 1e+10 | a == 0) & abs(h - signif(h, 3L)) <= 9e-16 * a)
      vLen[mods == "num"] <- ifelse(colSums(!exact) == 0, 10L, 5L)
      take <- row(h) <= vLen[mods == "num"][col(h)]
      texts <- formatNumberColumnsTrimmed(split(h[take], col(h)[take]))
      shown[mods == "num"] <- joined(texts, colSums(take))
    }
    if (!is.null(h <- firstValues("int", integer(m)))) {
      texts <- as.character(h)
      texts[is.na(texts)] <- "NA"
      shown[mods == "int"] <- joined(texts, rep.int(m, ncol(h)))
    }
    if (!is.null(h <- firstValues("logi", logical(m)))) {
      vLen[mods == "logi"] <- 6L
      take <- row(h) <= 6L
      texts <- c("FALSE", "TRUE")[h[take] + 1L]
      texts[is.na(texts)] <- "NA"
      shown[mods == "logi"] <- joined(texts, colSums(take))
    }
    for (j in which(mods == "factor")) {
      x <- columns[[j]]
      levels <- levels(x)
      nl <- length(levels)
      if (nl == 0L) return(NULL)
      levels <- encodeString(levels[seq_len(min(nl, min(max(width / 2, 10), 1000)))],
                             na.encode = FALSE, quote = "\"")
      # As many levels as reach past 13 columns.
      lenl <- cumsum(1L + nchar(levels, "w"))
      ml <- if (length(levels) <= 1L || lenl[length(levels)] <= 13L) length(levels) else which.max(lenl > 13L)
      levels <- levels[seq_len(ml)]
      if (any(nchar(levels, "w") > 128L)) return(NULL)
      sep <- if (is.ordered(x)) "<" else ","
      heads[j] <- paste0(if (is.ordered(x)) " Ord.factor" else " Factor", " w/ ", nl, " level",
                         if (nl != 1L) "s", " ", paste(levels, collapse = sep), if (ml < nl) paste0(sep, ".."), ":")
      codes <- as.character(unclass(x)[seq_len(m)])
      codes[is.na(codes)] <- "NA"
      shown[j] <- paste(codes, collapse = " ")
    }
    for (j in which(mods == "chr")) {
      x <- columns[[j]]
      maxLen <- max(100L, width %/% 3L + 1L)
      if (n > maxLen) x <- x[seq_len(maxLen)]
      enc <- encodeString(strtrim(x, 128L), quote = "\"", na.encode = FALSE)
      nc <- nchar(enc, type = "w", allowNA = TRUE)
      if (anyNA(nc) || any(nc > 128L)) return(NULL)
      # Inside a list or frame, str() passes vec.len on explicitly and no longer fits to the width.
      vLen[j] <- if (nested) 4L else
        max(1L, sum(cumsum(1L + nc) < width - (4L + nchar(heads[j], type = "w"))))
      shown[j] <- paste(enc[seq_len(min(length(enc), vLen[j]))], collapse = " ")
    }
    if (any(nchar(shown[mods != "chr"], type = "w") > 128L)) return(NULL)
    paste0(heads, " ", shown, ifelse(n > vLen, " ...", ""))
  }
  function(x) {
    width <- getOption("width")
    if (!is.data.frame(x)) return(vectorLines(list(x), FALSE, width))
    if (!plainFrame(x)) return(NULL)
    p <- length(x)
    n <- .row_names_info(x, 2L)
    if (p == 0L || p > 99L || n < 2L) return(NULL)
    nms <- names(x)
    if (is.null(nms) || anyNA(nms)) return(NULL)
    nc <- nchar(nms, type = "w", allowNA = TRUE)
    if (anyNA(nc)) return(NULL)
    lines <- vectorLines(unclass(x), TRUE, width)
    if (is.null(lines)) return(NULL)
    c(paste0("'data.frame':\t", n, " obs. of  ", p, " variable", if (p != 1L) "s", ":"),
      paste0(" $ ", padRight(nms, max(nc)), ":", lines))
  }
})

# What the quick paths stand in for: a user's own function of one of these names sends inspect
# through R's own functions, so that the user's methods apply.
quickStandsFor <- c(
  "str", "str.default", "str.data.frame", "summary", "summary.data.frame", "summary.default",
  "summary.numeric", "summary.double", "summary.integer", "summary.factor", "summary.Date",
  "summary.character", "summary.logical", "format", "format.default", "format.summaryDefault",
  "format.data.frame", "format.factor", "format.Date", "format.info", "print", "print.default",
  "print.table", "print.summaryDefault", "print.data.frame", "head", "head.data.frame",
  "head.default", "zapsmall", "quantile", "mean", "mean.default", "sort", "levels", "[")

# A text as a JSON string. The texts of inspect hold tabs and newlines, which send json() through
# its search for every rarer control character; without those this is the same encoding.
textJSON <- function(text) {
  text <- enc2utf8(text)
  if (!validUTF8(text) || grepl("[\x01-\x08\x0b-\x1f\x7f]", text, useBytes = TRUE)) return(text)
  text <- gsub("\\", "\\\\", text, fixed = TRUE, useBytes = TRUE)
  text <- gsub("\"", "\\\"", text, fixed = TRUE, useBytes = TRUE)
  text <- gsub("\n", "\\n", text, fixed = TRUE, useBytes = TRUE)
  text <- gsub("\t", "\\t", text, fixed = TRUE, useBytes = TRUE)
  jsonText(paste0("\"", text, "\""))
}

request("inspect", function(expr) {
  x <- evalRequestExpression(expr)
  userFunctions <- mget(quickStandsFor, envir = globalenv(), mode = "function", inherits = FALSE,
                        ifnotfound = list(NULL))
  quick <- all(vapply(userFunctions, is.null, NA, USE.NAMES = FALSE))
  strLines <- if (quick) tryCatch(plainStr(x), error = function(e) NULL)
  if (is.null(strLines)) strLines <- withUserMethods(quote(utils::capture.output(utils::str(x))), x)
  out <- list(class = I(class(x)), str = textJSON(boundedText(strLines)))
  summaryLines <- if (quick) tryCatch(quickSummary(x), error = function(e) NULL)
  summaryText <- tryCatch(
    boundedText(if (!is.null(summaryLines)) summaryLines
                else withUserMethods(quote(utils::capture.output(print(summary(x)))), x)),
    error = function(e) NULL)
  if (!is.null(summaryText)) out$summaryText <- textJSON(summaryText)
  if (is.data.frame(x) || is.matrix(x) || (is.atomic(x) && length(x) > 1L) ||
      (is.list(x) && !is.environment(x))) {
    headLines <- if (quick) tryCatch(quickHead(x), error = function(e) NULL)
    head <- tryCatch(
      boundedText(if (!is.null(headLines)) headLines
                  else withUserMethods(quote(utils::capture.output(print(utils::head(x, 6L)))), x)),
      error = function(e) NULL)
    if (!is.null(head)) out$head <- textJSON(head)
  }
  out
})
