# Running the client's code as the console would: the runs, conditions and tracebacks, where values
# came from, and what follows a line R's own loop evaluated.

# ---- Running code -----------------------------------------------------------------------------
# `exec` and `execFile` are what the client sends; both return invisibly and send "done" exactly
# once, whatever happens to the run (error, interrupt, a browser quit with Q).

exec <- function(id, code, file = NULL, line = 1L) run(id, paste(code, collapse = "\n"), file, line)

execFile <- function(id, path, file = NULL, line = 1L) runFile(id, path, file, line)

runFile <- function(id, path, file, line) {
  code <- tryCatch(readLines(path, encoding = "UTF-8", warn = FALSE), error = function(e) e)
  # The client leaves its temporary copies of long code to us.
  if (grepl("^vesk-.*\\.R$", basename(path))) unlink(path)
  if (inherits(code, "error")) {
    finish <- function() {
      send("error", text = conditionMessage(code))
      sendState()
      send("done", ok = FALSE)
    }
    suspendInterrupts(finish())
    return(invisible())
  }
  run(id, paste(code, collapse = "\n"), file, line)
}

# A request whose call is too long for one console line comes as a file holding that call.
callFile <- function(path) {
  text <- readLines(path, encoding = "UTF-8", warn = FALSE)
  if (grepl("^vesk-.*\\.R$", basename(path))) unlink(path)
  invisible(eval(parse(text = text, keep.source = FALSE)[[1L]], globalenv()))
}

run <- function(id, code, file, line) {
  status <- new.env(parent = emptyenv())
  status$ok <- TRUE
  status$reported <- FALSE # an error or interrupt event went out
  status$completed <- FALSE
  on.exit(suspendInterrupts(finishRun(status)))
  runWarnings <<- list()
  userPrompts()
  tryCatch({
    exprs <- parseUserCode(code, file, line, status)
    if (!is.null(exprs)) {
      for (i in seq_along(exprs)) {
        if (!evalUserExpression(exprs[i], status)) break
      }
    }
    status$completed <- TRUE
  }, interrupt = function(cond) {
    status$ok <- FALSE
    if (!status$reported) {
      status$reported <- TRUE
      send("interrupted")
    }
  })
  invisible()
}

finishRun <- function(status) {
  if (!status$completed && !status$reported) {
    # Left by a non-local exit (Q in the browser, an abort restart): the run did not finish.
    status$ok <- FALSE
    send("interrupted")
  }
  installPrompts()
  tryCatch(keepLastWarnings(), error = function(e) NULL)
  flushPlots()
  tryCatch(sendState(), error = function(e) NULL)
  send("done", ok = status$ok)
}

# Parses with a source file named after the user's file, padded so that line numbers point into
# it: `line` is where the code starts there.
parseUserCode <- function(code, file, line, status) {
  line <- suppressWarnings(as.integer(line))
  if (length(line) != 1L || is.na(line) || line < 1L) line <- 1L
  if (line > 1e6L) line <- 1L
  text <- if (line > 1L) c(rep.int("", line - 1L), code) else code
  name <- if (is.character(file) && length(file) == 1L && !is.na(file)) file else ""
  keep <- nzchar(name) || isTRUE(getOption("keep.source"))
  exprs <- tryCatch({
    if (keep) {
      srcfile <- srcfilecopy(name, text, isFile = nzchar(name) && file.exists(name))
      parse(text = text, srcfile = srcfile, keep.source = TRUE)
    } else {
      parse(text = text, keep.source = FALSE)
    }
  }, error = function(e) e)
  if (inherits(exprs, "error")) {
    status$ok <- FALSE
    status$reported <- TRUE
    send("error", text = conditionMessage(exprs), parse = TRUE, traceback = list())
    return(NULL)
  }
  exprs
}

# Markers on the stack: the user's frames are those above them (see userFrames).
evalTop <- function(expr, envir) eval(expr, envir)
# Printing dispatches from the global environment, as the console does: S3 methods that the
# user defines there are found (from the kernel's own environment they would not be).
# Named as R's own auto-printing names it: an error in a print method shows `print.cls(x)`.
printTop <- function(x) if (isS4(x)) methods::show(x) else print(x)
environment(printTop) <- globalenv()

# Evaluates one top-level expression with the console's auto-printing; FALSE stops the run.
evalUserExpression <- function(expr, status) {
  failed <- FALSE
  status$condition <- NULL
  tryCatch(withCallingHandlers({
    value <- withVisible(evalTop(expr, globalenv()))
    noteLineage(expr[[1L]])
    setLastValue(value$value)
    lastValue$value <- value$value
    lastValue$pending <- TRUE
    visible <- value$visible
    # Emptied: R does not lower the value's count when this list is dropped, and the user's next
    # in-place change of it would copy.
    value[] <- list(NULL)
    if (visible) printTop(.Last.value)
  }, message = onMessage, warning = onWarning, error = function(cond) {
    status$condition <- cond
    calls <- sys.calls()
    frame <- sys.nframe()
    onError(cond, calls, frame)
    status$errorSent <- TRUE
  }), error = function(cond) {
    failed <<- TRUE
    status$ok <- FALSE
    status$reported <- TRUE
    # Out of stack (infinite recursion) the calling handler may fail: report from here, where
    # the stack has unwound, without a traceback.
    if (!isTRUE(status$errorSent)) {
      original <- if (is.null(status$condition)) cond else status$condition
      reported <- tryCatch({
        send("error", text = messageText(original), call = conditionCallText(original),
             parse = FALSE, traceback = list())
        TRUE
      }, error = function(e) FALSE)
      if (!reported) send("error", text = "The error could not be reported.", parse = FALSE, traceback = list())
    }
    status$errorSent <- FALSE
  })
  !failed
}

# R sets .Last.value to the exec call's own (invisible) result; the top-level callback puts back
# the value of the user's last expression. Kept in an environment: a binding set to NULL no longer
# counts its old value.
lastValue <- new.env(parent = emptyenv())
lastValue$value <- NULL
lastValue$pending <- FALSE
# The binding stays unlocked: once locked again, R no longer lowers the count of the value it held
# when it is set anew, and the user's next in-place change of that value would copy it.
setLastValue <- function(value) {
  base <- baseenv()
  if (bindingIsLocked(".Last.value", base)) unlockBinding(".Last.value", base)
  assign(".Last.value", value, envir = base)
}

# ---- Conditions and tracebacks ----------------------------------------------------------------

onMessage <- function(cond) {
  send("message", text = messageText(cond))
  invokeRestart("muffleMessage")
}

# R keeps the warnings of the last top-level call that had any in `last.warning`, which
# warnings() shows; the kernel muffles them as events, so it keeps them itself.
runWarnings <- list()
noteWarning <- function(cond) {
  limit <- suppressWarnings(as.integer(getOption("nwarnings", 50L)))
  if (length(limit) != 1L || is.na(limit)) limit <- 50L
  if (length(runWarnings) >= limit) return()
  call <- tryCatch(userCall(conditionCall(cond)), error = function(e) NULL)
  runWarnings[[length(runWarnings) + 1L]] <<- list(message = messageText(cond), call = call)
}
# The base environment takes no new binding from R code: R's own deferred warnings set it. The
# warnings go through R's default handler and are printed to a null sink.
keepLastWarnings <- function() {
  if (!length(runWarnings) || sink.number(type = "message") != 2L) return()
  warnings <- runWarnings
  runWarnings <<- list()
  null <- file(nullfile(), open = "wt")
  level <- options(warn = 0L)
  sink(null, type = "message")
  on.exit({
    sink(type = "message")
    close(null)
    options(level)
  })
  for (w in warnings) .Internal(.dfltWarn(w$message, w$call))
  .Internal(printDeferredWarnings())
}

onWarning <- function(cond) {
  level <- suppressWarnings(as.integer(getOption("warn", 0L)))
  if (length(level) != 1L || is.na(level)) level <- 0L
  # warn >= 2: R turns it into an error once this handler returns.
  if (level >= 2L) return()
  if (level >= 0L) {
    send("warning", text = messageText(cond), call = conditionCallText(cond))
    noteWarning(cond)
  }
  if (!is.null(findRestart("muffleWarning", cond))) invokeRestart("muffleWarning")
}

# Later issues hook the debugger here (pause where the error happens).
errorHooks <- list()

onError <- function(cond, calls, handlerFrame) {
  frames <- tryCatch(userFrames(calls, handlerFrame), error = function(e) list())
  send("error",
       text = messageText(cond),
       call = conditionCallText(cond),
       parse = FALSE,
       traceback = frames)
  for (hook in errorHooks) hook(cond, calls, handlerFrame)
}

# The call that evalTop makes is not the user's: an error signalled directly in top-level code
# has no call, as at the console.
evalTopCall <- quote(eval(expr, envir))
userCall <- function(call) {
  if (is.null(call) || identical(call, evalTopCall)) NULL else call
}

# A condition's message and call as R's own "Error in" and "Warning" lines show them. Neither
# may fail: a reporter that failed would hide the user's error.
messageText <- function(cond) {
  tryCatch({
    text <- conditionMessage(cond)
    if (is.character(text) && length(text) == 1L && !is.na(text)) text
    else paste(as.character(text), collapse = "\n")
  }, error = function(e) {
    direct <- tryCatch(cond$message, error = function(e) NULL)
    if (is.character(direct) && length(direct) == 1L && !is.na(direct)) direct
    else sprintf("<a condition of class \"%s\" whose message could not be made>",
                 tryCatch(class(cond)[1L], error = function(e) "?"))
  })
}
conditionCallText <- function(cond) {
  call <- tryCatch(userCall(conditionCall(cond)), error = function(e) NULL)
  callText(call, limit = 1000L, width = 60L)
}

# One line of a call: the first line of its deparse, which is what R shows of a call in an error
# or a warning (without attributes). Large data arguments (do.call) are cut short first, which
# leaves that first line as it is.
callText <- function(call, limit = 200L, width = 500L) {
  if (is.null(call)) return(NULL)
  text <- tryCatch({
    if (is.call(call)) call <- shortenArguments(call)
    deparse(call, width.cutoff = width, nlines = 1L, control = c("keepNA", "keepInteger", "niceNames"))[1L]
  }, error = function(e) "<call>")
  if (!is.character(text) || length(text) != 1L || is.na(text)) text <- ""
  if (nchar(text, "chars", allowNA = TRUE) > limit) text <- paste0(substr(text, 1L, limit), "...")
  text
}
shortenArguments <- function(call) {
  for (i in seq_along(call)[-1L]) {
    # An empty argument (`c(1, )`) is the missing symbol: test it before binding it to a name.
    if (is.language(call[[i]]) || is.null(call[[i]])) next
    arg <- call[[i]]
    if (is.atomic(arg) || is.list(arg)) call[i] <- list(shortValue(arg, 0L))
  }
  call
}
# The value as a call's first deparsed line shows it: its first elements, its names, no other
# attributes. An integer run stays whole, since R shows it as from:to.
shortValue <- function(x, depth) {
  n <- length(x)
  if (is.atomic(x)) {
    if (n <= 64L) return(x)
    keep <- if (is.integer(x) && !anyNA(x) && as.double(x[n]) - x[1L] == n - 1L && all(diff(x) == 1L)) x
            else x[seq_len(64L)]
    attributes(keep) <- if (!is.null(names(x))) list(names = names(x)[seq_along(keep)])
    return(keep)
  }
  if (!is.list(x) || depth >= 3L) return(x)
  keep <- lapply(unclass(x)[seq_len(min(n, 64L))], shortValue, depth + 1L)
  attributes(keep) <- if (!is.null(names(x))) list(names = names(x)[seq_len(min(n, 64L))])
  keep
}

# How many `eval` frames separate evalTop from the code it evaluates (measured, not assumed).
evalFrames <- local({
  probe <- function() stop("probe")
  offset <- 2L
  tryCatch(withCallingHandlers(evalTop(as.call(list(probe)), globalenv()), error = function(e) {
    n <- sys.nframe()
    top <- NA_integer_
    at <- NA_integer_
    for (i in seq_len(n)) {
      f <- sys.function(i)
      if (identical(f, evalTop)) top <- i
      if (identical(f, probe)) at <- i
    }
    if (!is.na(top) && !is.na(at)) offset <<- at - top - 1L
  }), error = function(e) NULL)
  offset
})

conditionMachinery <- c(".handleSimpleError", ".signalSimpleWarning", "withRestarts",
                        "withOneRestart", "doWithOneRestart", "stopifnot")

# The frames of the user's code between the kernel's marker and the handler, outermost first,
# each with the file and line of its call site when the code has one.
userFrames <- function(calls, handlerFrame, limit = 100L) {
  start <- NA_integer_
  for (i in rev(seq_len(handlerFrame - 1L))) {
    f <- sys.function(i)
    if (identical(f, evalTop)) { start <- i + 1L + evalFrames; break }
    if (identical(f, printTop)) { start <- i + 1L; break }
  }
  if (is.na(start) || start >= handlerFrame) return(list())
  idx <- start:(handlerFrame - 1L)
  keep <- logical(length(idx))
  for (k in seq_along(idx)) {
    call <- calls[[idx[k]]]
    head <- if (is.call(call) && is.name(call[[1L]])) as.character(call[[1L]]) else ""
    if (head %in% conditionMachinery[1:2]) break
    f <- sys.function(idx[k])
    keep[k] <- !identical(environment(f), vesk) && !(head %in% conditionMachinery)
  }
  idx <- idx[keep]
  if (length(idx) > limit) idx <- c(idx[seq_len(limit / 2L)], idx[length(idx) - seq_len(limit / 2L) + 1L])
  lapply(idx, function(i) frameInfo(calls[[i]]))
}

frameInfo <- function(call) {
  frame <- list(call = callText(call))
  srcref <- attr(call, "srcref")
  if (!is.null(srcref)) {
    srcfile <- attr(srcref, "srcfile")
    name <- if (is.environment(srcfile)) srcfile$filename else NULL
    if (is.character(name) && length(name) == 1L && nzchar(name)) {
      frame$file <- name
      frame$line <- as.integer(srcref[1L])
    }
  }
  frame
}

# ---- Lineage ----------------------------------------------------------------------------------
# Which global objects an object was made from, noted from top-level assignments.
lineage <- new.env(parent = emptyenv())

noteLineage <- function(expr) {
  if (!is.call(expr)) return()
  op <- expr[[1L]]
  if (!(identical(op, quote(`<-`)) || identical(op, quote(`=`)) || identical(op, quote(`<<-`))) ||
      length(expr) != 3L) return()
  target <- expr[[2L]]
  replacement <- is.call(target)
  while (is.call(target) && length(target) >= 2L) target <- target[[2L]]
  if (is.character(target) && length(target) == 1L) target <- as.name(target)
  if (!is.name(target)) return()
  name <- as.character(target)
  used <- unique(c(all.names(expr[[3L]]), if (replacement) all.names(expr[[2L]])))
  used <- setdiff(used[vapply(used, exists, NA, envir = globalenv(), inherits = FALSE)], name)
  selfUse <- replacement || name %in% all.names(expr[[3L]])
  if (selfUse) used <- union(get0(name, envir = lineage, inherits = FALSE), used)
  if (length(used)) assign(name, used, envir = lineage)
  else if (exists(name, envir = lineage, inherits = FALSE)) rm(list = name, envir = lineage)
}

# ---- Top-level callback -------------------------------------------------------------------------
# After a line that the kernel did not run (typed at a continuation prompt, sent raw), R's own
# loop evaluated it: the global environment may have changed, and the prompts may have been
# reset by the user.
isKernelCall <- function(expr) {
  is.call(expr) && is.call(expr[[1L]]) && length(expr[[1L]]) == 3L &&
    identical(expr[[1L]][[1L]], quote(`$`)) && identical(expr[[1L]][[2L]], quote(.vesk))
}

topLevelCallback <- function(expr, value, ok, visible) {
  # Lines evaluated in the browser run above the paused frames: the run's end reports those.
  if (sys.nframe() > 1L) return(TRUE)
  afterTopLevel(expr)
}

afterTopLevel <- function(expr) {
  tryCatch(suspendInterrupts({
    installPrompts()
    if (lastValue$pending) {
      setLastValue(lastValue$value)
      lastValue$value <- NULL
      lastValue$pending <- FALSE
    }
    if (!isKernelCall(expr)) sendState()
  }), error = function(e) NULL)
  TRUE
}
