# Object inspection: str(), summary() and head() of an object, with quick paths for the common cases.

# Evaluates a call on `x` from the global environment, so that the user's S3 methods apply.
withUserMethods <- function(call, x) eval(call, list2env(list(x = x), parent = globalenv()))

# str() of plain vectors and plain data frames without str()'s per-column dispatch, which costs
# about 0.4 ms a column; anything else returns NULL and goes to utils::str.
plainStr <- local({
  vectorLine <- function(x, nestLev, giveLength, width) {
    if (!is.null(attributes(x))) return(NULL)
    le <- length(x)
    if (le < 2L) return(NULL)
    mod <- switch(typeof(x), double = "num", integer = "int", logical = "logi",
                  character = "chr", return(NULL))
    head <- paste0(" ", mod, " ", if (giveLength) paste0("[1:", le, "]"))
    if (mod == "chr") {
      maxLen <- max(100L, width %/% 3L + 1L)
      if (le > maxLen) x <- x[seq_len(maxLen)]
      enc <- encodeString(strtrim(x, 128L), quote = "\"", na.encode = FALSE)
      nc <- nchar(enc, type = "w", allowNA = TRUE)
      if (anyNA(nc) || any(nc > 128L)) return(NULL)
      # Inside a list or frame, str() passes vec.len on explicitly and no longer fits to the width.
      vLen <- if (nestLev > 0L) 4L else
        max(1L, sum(cumsum(1L + nc) < width - (4L + 5L * nestLev + nchar(head, type = "w"))))
      shown <- paste(enc[seq_len(min(length(enc), vLen))], collapse = " ")
    } else {
      vLen <- if (mod == "logi") 6L else if (mod == "int") 10L else {
        ob <- x[seq_len(min(le, 10L))]
        ao <- abs(ob <- ob[!is.na(ob)])
        if (all(ao > 1e-10 | ao == 0) && all(ao < 1e+10 | ao == 0) &&
            all(abs(ob - signif(ob, 3L)) <= 9e-16 * ao)) 10L else 5L
      }
      shown <- paste(format(x[seq_len(min(le, vLen))], digits = 3L, trim = TRUE, drop0trailing = TRUE),
                     collapse = " ")
      if (nchar(shown, type = "w") > 128L) return(NULL)
    }
    paste0(head, " ", shown, if (le > vLen) " ...")
  }
  function(x) {
    width <- getOption("width")
    if (is.data.frame(x)) {
      if (!identical(class(x), "data.frame") ||
          !all(names(attributes(x)) %in% c("names", "row.names", "class"))) return(NULL)
      p <- length(x)
      if (p == 0L || p > 99L || nrow(x) < 2L) return(NULL)
      nms <- names(x)
      if (is.null(nms) || anyNA(nms)) return(NULL)
      nc <- nchar(nms, type = "w", allowNA = TRUE)
      if (anyNA(nc)) return(NULL)
      padded <- format(nms, width = max(nc), justify = "left")
      lines <- character(p)
      for (i in seq_len(p)) {
        line <- vectorLine(x[[i]], 1L, FALSE, width)
        if (is.null(line)) return(NULL)
        lines[i] <- paste0(" $ ", padded[i], ":", line)
      }
      c(paste0("'data.frame':\t", nrow(x), " obs. of  ", p, " variable", if (p != 1L) "s", ":"), lines)
    } else {
      vectorLine(x, 0L, TRUE, width)
    }
  }
})

# summary() of a data frame through R's own summary.data.frame, with the per-column summary of
# plain numbers done without quantile()'s argument handling (most of its cost).
plainSummary <- local({
  columnSummary <- function(object, maxsum = 7L, digits, ...) {
    if (!is.null(attributes(object)) || !(is.double(object) || is.integer(object)) || length(list(...)))
      return(base::summary(object, maxsum = maxsum, digits = digits, ...))
    nas <- is.na(object)
    x <- object[!nas]
    n <- length(x)
    if (n == 0L) return(base::summary(object, maxsum = maxsum, digits = digits))
    # quantile(type = 7) at 0, 1/4, 1/2, 3/4, 1.
    index <- 1 + (n - 1) * c(0, 0.25, 0.5, 0.75, 1)
    lo <- floor(index)
    hi <- ceiling(index)
    x <- sort(x, partial = unique(c(lo, hi)))
    qs <- as.double(x[lo])
    i <- which(index > lo & x[hi] != qs)
    h <- (index - lo)[i]
    qs[i] <- (1 - h) * qs[i] + h * x[hi[i]]
    qq <- signif(c(qs[1L:3L], mean(object[!nas]), qs[4L:5L]), digits)
    names(qq) <- c("Min.", "1st Qu.", "Median", "Mean", "3rd Qu.", "Max.")
    if (any(nas)) qq <- c(qq, `NA's` = sum(nas))
    class(qq) <- c("summaryDefault", "table")
    qq
  }
  frameSummary <- base::summary.data.frame
  environment(frameSummary) <- list2env(list(summary = columnSummary), parent = asNamespace("base"))
  frameSummary
})

request("inspect", function(expr) {
  x <- evalRequestExpression(expr)
  # The quick paths stand aside when the user has methods of their own for these generics.
  userDefines <- function(names) any(vapply(names, exists, NA, envir = globalenv(), inherits = FALSE))
  strLines <- if (!userDefines(c("str", "str.default", "str.data.frame"))) plainStr(x)
  if (is.null(strLines)) strLines <- withUserMethods(quote(utils::capture.output(utils::str(x))), x)
  out <- list(class = I(class(x)), str = boundedText(strLines))
  plainFrame <- identical(class(x), "data.frame") &&
    !userDefines(c("summary", "summary.data.frame", "summary.default", "summary.numeric", "summary.double",
                   "summary.integer", "format", "format.summaryDefault", "print", "print.table"))
  summaryText <- tryCatch(
    boundedText(if (plainFrame) utils::capture.output(print(plainSummary(x)))
                else withUserMethods(quote(utils::capture.output(print(summary(x)))), x)),
    error = function(e) NULL)
  if (!is.null(summaryText)) out$summaryText <- summaryText
  if (is.data.frame(x) || is.matrix(x) || (is.atomic(x) && length(x) > 1L) ||
      (is.list(x) && !is.environment(x))) {
    head <- tryCatch(
      boundedText(withUserMethods(quote(utils::capture.output(print(utils::head(x, 6L)))), x)),
      error = function(e) NULL)
    if (!is.null(head)) out$head <- head
  }
  out
})
