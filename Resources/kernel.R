# The Vesk kernel: sourced into the user's R process at start-up. It frames structured events on
# standard output with the session token and installs the prompts Vesk reads. Everything it defines
# lives in the environment `.vesk`, attached to the search path as "tools:vesk", so the global
# environment shows only the user's objects.
local({
  if ("tools:vesk" %in% search()) detach("tools:vesk")
  home <- attach(NULL, name = "tools:vesk")
  vesk <- new.env(parent = globalenv())
  assign(".vesk", vesk, envir = home)

  vesk$token <- Sys.getenv("VESK_KERNEL_TOKEN")
  if (!nzchar(vesk$token)) stop("VESK_KERNEL_TOKEN is not set")

  # ---- JSON ---------------------------------------------------------------
  # A small encoder: kernel payloads are built from lists, character, numeric and logical vectors.
  # A length-one atomic vector becomes a scalar unless wrapped in I().
  vesk$jsonString <- function(x) {
    x <- enc2utf8(as.character(x))
    x <- gsub("\\", "\\\\", x, fixed = TRUE)
    x <- gsub("\"", "\\\"", x, fixed = TRUE)
    x <- gsub("\n", "\\n", x, fixed = TRUE)
    x <- gsub("\r", "\\r", x, fixed = TRUE)
    x <- gsub("\t", "\\t", x, fixed = TRUE)
    # Other control characters (0x1E and 0x1F among them) must never reach the stream raw.
    if (any(grepl("[\x01-\x1f\x7f]", x, useBytes = TRUE))) {
      x <- vapply(x, function(s) {
        cps <- utf8ToInt(s)
        if (anyNA(cps)) return(s)
        ctl <- cps < 32L | cps == 127L
        if (!any(ctl)) return(s)
        parts <- ifelse(ctl, sprintf("\\u%04x", cps), vapply(cps, intToUtf8, ""))
        paste(parts, collapse = "")
      }, "", USE.NAMES = FALSE)
    }
    paste0("\"", x, "\"")
  }
  vesk$json <- function(x) {
    if (is.null(x)) return("null")
    if (is.list(x)) {
      keys <- names(x)
      items <- vapply(x, vesk$json, "", USE.NAMES = FALSE)
      if (!is.null(keys) && length(x) > 0) {
        return(paste0("{", paste0(vesk$jsonString(keys), ":", items, collapse = ","), "}"))
      }
      if (!is.null(keys)) return("{}")
      return(paste0("[", paste(items, collapse = ","), "]"))
    }
    asArray <- inherits(x, "AsIs") || length(x) != 1L
    if (is.factor(x)) x <- as.character(x)
    vals <- if (is.logical(x)) {
      ifelse(is.na(x), "null", ifelse(x, "true", "false"))
    } else if (is.numeric(x)) {
      ifelse(is.finite(x), formatC(as.numeric(x), digits = 15, format = "g", flag = ""), "null")
    } else {
      ifelse(is.na(x), "null", vesk$jsonString(x))
    }
    vals <- trimws(vals)
    if (asArray) paste0("[", paste(vals, collapse = ","), "]") else vals
  }

  # ---- Frames --------------------------------------------------------------
  vesk$send <- function(type, ...) {
    payload <- c(list(type = type), list(...))
    cat("\x1e", vesk$token, vesk$json(payload), "\x1f", sep = "")
    flush(stdout())
    invisible(NULL)
  }

  # ---- Prompts ---------------------------------------------------------------
  options(prompt = paste0("\x02VESK>", vesk$token, "\x03"),
          continue = paste0("\x02VESK+", vesk$token, "\x03"))

  vesk$send("ready",
            version = paste(R.version$major, R.version$minor, sep = "."),
            pid = Sys.getpid())
})
