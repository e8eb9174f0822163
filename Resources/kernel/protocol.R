# Handshake and framing: the JSON encoder, the frames of events, the prompts R's read loop prints,
# and the named requests.

# ---- JSON -----------------------------------------------------------------------------------
# Kernel payloads are built from lists and vectors: a named list is an object, an unnamed list an
# array; a length-one atomic vector is a scalar unless wrapped in I(); NA and non-finite numbers
# are null. `jsonText` marks an already encoded fragment.

# Vectorised string encoding. Control characters are escaped, so the frame markers 0x1E and 0x1F
# and the prompt markers 0x02 and 0x03 never reach the stream raw.
jsonString <- function(x) {
  x <- as.character(x)
  # paste0() would make one empty string of no strings.
  if (!length(x)) return(character())
  # Most strings are plain printable ASCII: quote those at once.
  plain <- !grepl("[^] !#-[^-~]", x, useBytes = TRUE)
  if (all(plain)) {
    out <- paste0("\"", x, "\"")
    out[is.na(x)] <- "null"
    return(out)
  }
  if (any(plain)) {
    out <- character(length(x))
    out[plain] <- paste0("\"", x[plain], "\"")
    out[!plain] <- jsonString(x[!plain])
    out[is.na(x)] <- "null"
    return(out)
  }
  missing <- is.na(x)
  x <- enc2utf8(x)
  bad <- !missing & !validUTF8(x)
  if (any(bad)) x[bad] <- iconv(x[bad], "UTF-8", "UTF-8", sub = "byte")
  x <- gsub("\\", "\\\\", x, fixed = TRUE, useBytes = TRUE)
  x <- gsub("\"", "\\\"", x, fixed = TRUE, useBytes = TRUE)
  ctl <- grepl("[\x01-\x1f\x7f]", x, useBytes = TRUE)
  if (any(ctl)) {
    y <- x[ctl]
    y <- gsub("\n", "\\n", y, fixed = TRUE, useBytes = TRUE)
    y <- gsub("\r", "\\r", y, fixed = TRUE, useBytes = TRUE)
    y <- gsub("\t", "\\t", y, fixed = TRUE, useBytes = TRUE)
    for (code in c(1:8, 11:12, 14:31, 127)) {
      byte <- rawToChar(as.raw(code))
      hit <- grepl(byte, y, fixed = TRUE, useBytes = TRUE)
      if (any(hit)) y[hit] <- gsub(byte, sprintf("\\u%04x", code), y[hit], fixed = TRUE, useBytes = TRUE)
    }
    x[ctl] <- y
  }
  out <- paste0("\"", x, "\"")
  out[missing] <- "null"
  out
}

jsonNumber <- function(x) {
  if (is.integer(x) || is.logical(x)) {
    out <- as.character(as.integer(x))
    out[is.na(out)] <- "null"
    return(out)
  }
  x <- as.numeric(x)
  # Whole numbers in integer range print exactly through integers (doubles would say 1e+05).
  small <- !is.na(x) & abs(x) < 2147483647 & x == trunc(x)
  out <- character(length(x))
  out[small] <- as.character(as.integer(x[small]))
  if (any(!small)) out[!small] <- sprintf("%.15g", x[!small])
  out[!is.finite(x)] <- "null"
  out
}

jsonText <- function(text) structure(text, class = "vesk_json")

json <- function(x) {
  if (is.null(x)) return("null")
  if (inherits(x, "vesk_json")) return(unclass(x))
  if (is.environment(x) || is.function(x)) return("null")
  if (is.list(x) && !is.data.frame(x)) {
    keys <- names(x)
    items <- vapply(x, json, "", USE.NAMES = FALSE)
    if (!is.null(keys)) {
      if (!length(x)) return("{}")
      keys[is.na(keys)] <- ""
      return(paste0("{", paste0(jsonString(keys), ":", items, collapse = ","), "}"))
    }
    return(paste0("[", paste(items, collapse = ","), "]"))
  }
  if (is.data.frame(x)) x <- as.list(x)
  asArray <- inherits(x, "AsIs") || length(x) != 1L
  if (is.factor(x)) x <- as.character(x)
  x <- unclass(x)
  vals <- if (is.logical(x)) {
    ifelse(is.na(x), "null", ifelse(x, "true", "false"))
  } else if (is.numeric(x)) {
    jsonNumber(x)
  } else {
    jsonString(as.character(x))
  }
  if (asArray) paste0("[", paste(vals, collapse = ","), "]") else vals
}

# ---- Frames -----------------------------------------------------------------------------------
sendJSON <- function(payload) {
  frame <- paste0("\x1e", token, payload, "\x1f")
  if (sink.number() == 0L || !writeAroundSinks(frame)) {
    cat(frame, file = stdout())
    flush(stdout())
  }
  invisible(NULL)
}

# While user code diverts output (sink(), capture.output()), frames must still reach the client
# and must not land in the user's capture. R's console flushes after every write, so a second
# handle on the same pipe keeps the order of the stream.
console <- NULL
writeAroundSinks <- function(frame) {
  for (attempt in 1:2) {
    if (is.null(console)) {
      console <<- tryCatch(file("/dev/stdout", open = "ab", raw = TRUE), error = function(e) NULL)
      if (is.null(console)) return(FALSE)
    }
    written <- tryCatch({
      writeBin(charToRaw(frame), console)
      flush(console)
      TRUE
    }, error = function(e) FALSE)
    if (written) return(TRUE)
    console <<- NULL # closed by the user (closeAllConnections()): open it again
  }
  FALSE
}

# Members given as NULL are left out.
send <- function(type, ...) {
  members <- list(...)
  members <- members[!vapply(members, is.null, NA)]
  sendJSON(json(c(list(type = type), members)))
}

# ---- Prompts ----------------------------------------------------------------------------------
readyPrompt <- paste0("\x02VESK>", token, "\x03")
continuationPrompt <- paste0("\x02VESK+", token, "\x03")

# R's read loop prints the prompt options, and so do R functions that echo code (source with
# echo, example, demo, withAutoprint): the framed prompts hold the token, so they are installed
# only while R's loop reads a line. While user code runs, the options hold the user's prompts
# (R's "> " and "+ ", or what the user set), which are noted at every return to the loop.
if (!is.character(userPrompt) || length(userPrompt) != 1L) userPrompt <- "> "
if (!is.character(userContinue) || length(userContinue) != 1L) userContinue <- "+ "

installPrompts <- function() {
  prompt <- getOption("prompt")
  continue <- getOption("continue")
  if (!identical(prompt, readyPrompt)) {
    if (is.character(prompt) && length(prompt) == 1L) userPrompt <<- prompt
    options(prompt = readyPrompt)
  }
  if (!identical(continue, continuationPrompt)) {
    if (is.character(continue) && length(continue) == 1L) userContinue <<- continue
    options(continue = continuationPrompt)
  }
}

userPrompts <- function() options(prompt = userPrompt, continue = userContinue)

# Sent by the client when R enters the browser in the middle of a run: an incomplete line typed
# there is read at the continuation prompt, which must be framed again. (The browser's own
# prompt is fixed by R.)
browsing <- function() {
  if (!identical(getOption("continue"), continuationPrompt)) {
    userContinue <<- getOption("continue")
    options(continue = continuationPrompt)
  }
  invisible()
}

# ---- Named requests ---------------------------------------------------------------------------
# `.vesk$<name>(id, ...)` answers with exactly one "response" frame and returns invisibly. Each
# request is one handler function, registered with `request()`; later parts add theirs the same
# way (plots, data pages, help, completion, the debugger). A handler runs with `requestFrame` set
# to the caller's frame: the global environment, or the paused frame when R is in the browser.
# The debugger's `.vesk$debugState()` is no request: it comes as a raw line in the browser and
# answers with a "debug" event; debug on error goes through `errorHooks`.

requestFrame <- NULL

request <- function(name, handler) {
  force(handler)
  respond <- function(id, ...) {
    frame <- parent.frame()
    answer(id, handler, list(...), frame)
  }
  environment(respond) <- list2env(list(handler = handler), parent = vesk)
  assign(name, respond, envir = vesk)
}

answer <- function(id, handler, args, frame) {
  saved <- requestFrame
  requestFrame <<- frame
  # Handlers evaluate user expressions and methods, which must not see the framed prompts.
  userPrompts()
  on.exit({
    requestFrame <<- saved
    installPrompts()
  })
  payload <- tryCatch(withCallingHandlers({
    result <- do.call(handler, args)
    paste0(',"result":', json(result))
  }, warning = function(w) invokeRestart("muffleWarning"),
     message = function(m) invokeRestart("muffleMessage")),
  error = function(e) paste0(',"error":', jsonString(conditionMessage(e))),
  interrupt = function(e) ',"error":"Interrupted."')
  suspendInterrupts(sendJSON(paste0('{"type":"response","id":', jsonString(as.character(id)[1L]),
                                    payload, "}")))
  invisible()
}

# Bounded text of printed output: at most `lines` lines and `chars` characters.
boundedText <- function(lines, maxLines = 200L, maxChars = 20000L) {
  if (length(lines) > maxLines) {
    lines <- c(lines[seq_len(maxLines)], sprintf("... %d more lines", length(lines) - maxLines))
  }
  text <- paste(lines, collapse = "\n")
  if (nchar(text, "chars", allowNA = TRUE) > maxChars) text <- paste0(substr(text, 1L, maxChars), "\n...")
  text
}

# Evaluates the startup code as the console would, capturing what it prints or why it failed.
captureRun <- function(code) {
  out <- utils::capture.output({
    failure <- tryCatch(withCallingHandlers({
      for (expr in parse(text = code, keep.source = FALSE)) {
        value <- withVisible(eval(expr, globalenv()))
        if (value$visible) printTop(value$value)
      }
      NULL
    }, message = function(m) {
      cat(conditionMessage(m))
      invokeRestart("muffleMessage")
    }, warning = function(w) {
      cat("Warning: ", conditionMessage(w), "\n", sep = "")
      invokeRestart("muffleWarning")
    }), error = function(e) e)
    if (inherits(failure, "error")) cat("Error: ", conditionMessage(failure), "\n", sep = "")
  })
  boundedText(out, 2000L, 100000L)
}

evalRequestExpression <- function(expr) {
  eval(parse(text = expr, keep.source = FALSE), requestFrame %||% globalenv())
}

request("configure", function(mirror, digits, startupCode = "") {
  mirror <- as.character(mirror)
  if (length(mirror) == 1L && !is.na(mirror) && nzchar(mirror)) options(repos = c(CRAN = mirror))
  digits <- suppressWarnings(as.integer(digits))
  if (length(digits) == 1L && !is.na(digits)) options(digits = max(1L, min(22L, digits)))
  code <- paste(as.character(startupCode), collapse = "\n")
  output <- if (nzchar(trimws(code))) captureRun(code) else ""
  sendState()
  list(output = output)
})

request("setWidth", function(n) {
  n <- suppressWarnings(as.integer(n))
  if (length(n) == 1L && !is.na(n)) options(width = max(10L, min(10000L, n)))
  NULL
})
