# The Vesk kernel: sourced into the user's R process at start-up. It frames structured events on
# standard output with the session token, installs the prompts Vesk reads, runs the client's code as
# the console would, and answers the client's named requests.
#
# Everything it defines lives in the environment `.vesk`, attached to the search path as "tools:vesk",
# so the global environment shows only the user's objects. The functions are defined with `.vesk` as
# their environment, whose parent is the base environment: user objects never shadow what the kernel
# calls (non-base functions are always called with `::`).
#
# Sections: JSON, frames, prompts, running code, conditions and tracebacks, the state event, console
# input, the functions Vesk takes over (q, View, file.edit, browser, viewer), named requests, plots.
local({
  # Most of what runs while the kernel sets itself up runs once: compiling it first would cost more
  # than interpreting it. What runs again later is compiled then.
  jit <- compiler::enableJIT(0L)
  on.exit(compiler::enableJIT(jit))
  if ("tools:vesk" %in% search()) {
    old <- get(".vesk", envir = as.environment("tools:vesk"))
    detach("tools:vesk")
  } else {
    old <- NULL
  }
  home <- attach(NULL, name = "tools:vesk")
  vesk <- new.env(parent = baseenv())
  assign(".vesk", vesk, envir = home)

  # The token must not stay reachable in the environment of the process (nor of its children).
  token <- Sys.getenv("VESK_KERNEL_TOKEN")
  if (!nzchar(token) && !is.null(old)) token <- old$token
  if (!nzchar(token)) stop("VESK_KERNEL_TOKEN is not set")
  Sys.unsetenv("VESK_KERNEL_TOKEN")
  vesk$token <- token
  vesk$originals <- if (is.null(old)) list() else old$originals
  # The user's prompts (R's own, or those of a profile); a kernel sourced again keeps them.
  vesk$userPrompt <- if (is.null(old)) getOption("prompt") else old$userPrompt
  vesk$userContinue <- if (is.null(old)) getOption("continue") else old$userContinue

  # Frames carry UTF-8; a session started in a non-UTF-8 locale would mangle it.
  if (!isTRUE(l10n_info()[["UTF-8"]])) {
    for (loc in c("C.UTF-8", "en_US.UTF-8", "UTF-8")) {
      if (nzchar(suppressWarnings(Sys.setlocale("LC_CTYPE", loc)))) break
    }
  }

  local(envir = vesk, {
    vesk <- environment()

    # ---- JSON -----------------------------------------------------------------------------------
    # Kernel payloads are built from lists and vectors: a named list is an object, an unnamed list an
    # array; a length-one atomic vector is a scalar unless wrapped in I(); NA and non-finite numbers
    # are null. `jsonText` marks an already encoded fragment.

    # Vectorised string encoding. Control characters are escaped, so the frame markers 0x1E and 0x1F
    # and the prompt markers 0x02 and 0x03 never reach the stream raw.
    jsonString <- function(x) {
      x <- as.character(x)
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

    # ---- Running code -----------------------------------------------------------------------------
    # `exec` and `execFile` are what the client sends; both return invisibly and send "done" exactly
    # once, whatever happens to the run (error, interrupt, a browser quit with Q).

    # R compiles the kernel's functions as they are first called: about 0.1 s over a session's first
    # runs, well spent in a session that lasts, not in a batch run of one script. There the client
    # asks (VESK_KERNEL_COMPILE=0) for the kernel's own code to run uncompiled: entry points stay
    # small and switch the JIT off before they call anything larger, and the user's code runs with
    # the user's JIT level (`userJIT`), as at the console.
    compileKernel <- !identical(Sys.getenv("VESK_KERNEL_COMPILE"), "0")
    Sys.unsetenv("VESK_KERNEL_COMPILE")
    userJIT <- 3L
    uncompiled <- function(expr) {
      if (compileKernel) return(expr)
      level <- compiler::enableJIT(0L)
      saved <- userJIT
      userJIT <<- level
      on.exit({
        level <- userJIT
        userJIT <<- saved
        compiler::enableJIT(level)
      })
      expr
    }
    userSide <- function(expr) {
      if (compileKernel) return(expr)
      compiler::enableJIT(userJIT)
      on.exit(userJIT <<- compiler::enableJIT(0L))
      expr
    }

    exec <- function(id, code, file = NULL, line = 1L) {
      uncompiled(run(id, paste(code, collapse = "\n"), file, line))
    }

    execFile <- function(id, path, file = NULL, line = 1L) uncompiled(runFile(id, path, file, line))

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
        value <- userSide(withVisible(evalTop(expr, globalenv())))
        noteLineage(expr[[1L]])
        setLastValue(value$value)
        lastValue <<- value
        if (value$visible) userSide(printTop(value$value))
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
    # the value of the user's last expression.
    lastValue <- NULL
    setLastValue <- function(value) {
      base <- baseenv()
      if (bindingIsLocked(".Last.value", base)) {
        unlockBinding(".Last.value", base)
        on.exit(lockBinding(".Last.value", base))
      }
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

    # Calls made from the kernel's own code carry its source references when it was sourced with
    # keep.source: those are no place in the user's files.
    kernelSource <- attr(attr(evalTop, "srcref"), "srcfile")

    frameInfo <- function(call) {
      frame <- list(call = callText(call))
      srcref <- attr(call, "srcref")
      if (!is.null(srcref)) {
        srcfile <- attr(srcref, "srcfile")
        if (!is.null(kernelSource) && identical(srcfile, kernelSource)) return(frame)
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

    # ---- The state event --------------------------------------------------------------------------
    # Describes every object of the global environment. The cost must follow the number of objects,
    # never their size: no object.size on large character data, no formatting of whole vectors.

    stateLimit <- 5000L
    functionSummaries <- new.env(parent = emptyenv())

    sendState <- function() sendJSON(stateJSON())

    stateJSON <- function() {
      env <- globalenv()
      # Radix order: the locale's collation costs more than the rest of the event.
      names <- sort(ls(env, sorted = FALSE), method = "radix")
      if (length(names) > stateLimit) names <- names[seq_len(stateLimit)]
      objects <- describeObjects(names, env)
      attached <- setdiff(search(), "tools:vesk")
      paste0('{"type":"state","state":{"wd":', jsonString(getwd()),
             ',"env":[', paste(objects, collapse = ","), "]",
             ',"attached":', json(I(attached)),
             ',"loaded":', json(I(loadedNamespaces())),
             ',"prompt":', jsonString(userPrompt), ',"continue":', jsonString(userContinue), "}}")
    }

    typeLabels <- c(double = "num", integer = "int", character = "chr", logical = "logi",
                    complex = "cplx", raw = "raw")
    atomicTypes <- names(typeLabels)

    regularNames <- character()

    describeObjects <- function(names, env) {
      n <- length(names)
      if (!n) return(character())
      # A regular binding cannot turn active in place (makeActiveBinding refuses), so only names
      # that are new since the last snapshot need the (comparatively slow) check.
      active <- logical(n)
      fresh <- which(!(names %in% regularNames))
      if (length(fresh)) active[fresh] <- vapply(names[fresh], bindingIsActive, NA, env = env, USE.NAMES = FALSE)
      regularNames <<- names[!active]
      values <- vector("list", n)
      if (any(!active)) {
        plain <- names[!active]
        got <- tryCatch(mget(plain, envir = env, inherits = FALSE), error = function(e) NULL)
        if (is.null(got)) {
          got <- lapply(plain, function(name) {
            tryCatch(get(name, envir = env, inherits = FALSE), error = function(e) NULL)
          })
        }
        values[!active] <- got
      }
      rows <- tryCatch(describeAll(values, names), error = function(e) NULL)
      if (is.null(rows)) rows <- describeEach(values, names)
      if (any(active)) {
        rows$kind[active] <- "other"
        rows$class[active] <- "[]"
        rows$type[active] <- "active binding"
        rows$size[active] <- NA
        rows$length[active] <- NA
        rows$dim[active] <- NA
        rows$summary[active] <- NA
        rows$columns[active] <- NA
      }
      from <- rep(NA_character_, n)
      lineageNames <- names(lineage)
      for (i in which(names %in% lineageNames)) {
        parents <- get(names[i], envir = lineage)
        parents <- parents[parents %in% names]
        if (length(parents)) from[i] <- json(I(parents))
      }
      stale <- setdiff(lineageNames, names)
      if (length(stale)) rm(list = stale, envir = lineage)
      stale <- setdiff(ls(functionSummaries, all.names = TRUE, sorted = FALSE), names)
      if (length(stale)) rm(list = stale, envir = functionSummaries)
      # A member whose value is NA is left out.
      optional <- function(key, values, encode = identity) {
        out <- character(n)
        present <- which(!is.na(values))
        if (length(present)) out[present] <- paste0(',"', key, '":', encode(values[present]))
        out
      }
      paste0('{"name":', jsonString(names),
             ',"kind":"', rows$kind, '"',
             ',"class":', rows$class,
             ',"type":', jsonString(rows$type),
             optional("size", rows$size, jsonNumber),
             optional("length", rows$length, jsonNumber),
             optional("dim", rows$dim),
             optional("summary", rows$summary, jsonString),
             optional("columns", rows$columns),
             optional("from", from),
             "}")
    }

    # The fast path: one pass per property over all objects, per-object work only where an object
    # needs it (vectors' leading elements, data frame columns, function digests).
    describeAll <- function(values, names) {
      n <- length(values)
      type <- vapply(values, typeof, "", USE.NAMES = FALSE)
      classes <- lapply(values, class)
      keys <- unique(classes)
      keyJSON <- vapply(keys, function(cls) json(I(cls)), "", USE.NAMES = FALSE)
      classJSON <- keyJSON[match(classes, keys)]
      isObject <- vapply(values, is.object, NA, USE.NAMES = FALSE)
      isFrame <- isObject
      if (any(isObject)) isFrame[isObject] <- vapply(values[isObject], inherits, NA, what = "data.frame")
      dims <- lapply(values, attr, which = "dim", exact = TRUE)
      if (any(isFrame)) {
        dims[isFrame] <- lapply(values[isFrame], function(x) c(.row_names_info(x, 2L), length(x)))
      }
      dimCount <- lengths(dims, use.names = FALSE)
      isFunction <- type %in% c("closure", "builtin", "special")
      isAtomic <- type %in% atomicTypes
      # POSIXlt is a list underneath, a value to the user.
      isTime <- isObject & type == "list" & !isFrame
      if (any(isTime)) isTime[isTime] <- vapply(values[isTime], inherits, NA, what = "POSIXlt")
      isList <- type == "list" & !isFrame & !isTime
      # attributes() would expand a data frame's compact row names: frames are never bare.
      bare <- !isFrame
      if (any(bare)) bare[bare] <- lengths(lapply(values[bare], attributes), use.names = FALSE) == 0L
      hasClass <- isObject
      len <- rep(NA_real_, n)
      measured <- isAtomic | type == "list"
      len[measured] <- as.numeric(lengths(values[measured], use.names = FALSE))
      len[isFunction] <- 1
      len[type == "NULL"] <- 0

      kind <- rep("other", n)
      kind[type == "environment"] <- "environment"
      kind[isList] <- "list"
      kind[isAtomic | type == "NULL"] <- "value"
      kind[(isAtomic | isList) & dimCount == 2L] <- "data"
      kind[isFrame] <- "data"
      kind[isFunction] <- "function"
      kind[isTime] <- "value"

      summary <- rep(NA_character_, n)
      summary[type == "NULL"] <- "NULL"
      # Unclassed scalars, one vectorised format per type.
      scalar <- isAtomic & !hasClass & dimCount == 0L & len == 1
      for (t in c("double", "integer", "logical", "character")) {
        idx <- which(scalar & type == t)
        if (!length(idx)) next
        x <- unlist(values[idx], use.names = FALSE)
        summary[idx] <- switch(t,
          double = sprintf("%.7g", x),
          character = ifelse(is.na(x), "NA", encodeString(shorten(x, 100L), quote = "\"")),
          ifelse(is.na(x), "NA", as.character(x)))
      }
      vectors <- which(isAtomic & !hasClass & dimCount == 0L & len != 1 & type != "complex")
      if (length(vectors)) summary[vectors] <- vectorSummaries(values[vectors], type[vectors], len[vectors])
      for (i in which((isAtomic | isTime) & dimCount != 2L & is.na(summary))) {
        summary[i] <- valueSummary(values[[i]], type[i], len[i])
      }
      for (i in which((isAtomic | isList) & dimCount == 2L & !isFrame)) {
        summary[i] <- sprintf("%s [1:%d, 1:%d]", if (isList[i]) "list" else atomicLabel(values[[i]], type[i]),
                              dims[[i]][1L], dims[[i]][2L])
      }
      idx <- which(isList & dimCount != 2L)
      summary[idx] <- sprintf("List of %d", as.integer(len[idx]))
      columns <- rep(NA_character_, n)
      frames <- which(isFrame)
      if (length(frames)) {
        rowCount <- vapply(dims[frames], `[`, 0, 1L)
        colCount <- vapply(dims[frames], `[`, 0, 2L)
        summary[frames] <- sprintf("%.0f obs. of %.0f variable%s", rowCount, colCount,
                                   ifelse(colCount == 1, "", "s"))
        columns[frames] <- frameColumns(values[frames])
      }
      for (i in which(isFunction)) summary[i] <- functionSummary(values[[i]], names[i])
      for (i in which(type == "environment")) summary[i] <- environmentSummary(values[[i]], classes[[i]])
      for (i in which(kind == "other")) summary[i] <- otherSummary(values[[i]], type[i], classes[[i]])

      size <- rep(NA_real_, n)
      simple <- which(bare & isAtomic & type != "character")
      size[simple] <- vectorBytes(len[simple], elementBytes[type[simple]])
      strings <- which(bare & type == "character" & len <= 1e4)
      for (i in strings) size[i] <- objectSize(values[[i]])
      listLike <- which(type == "list")
      if (length(listLike)) {
        cheap <- listsAreCheap(values[listLike], isFrame[listLike])
        for (i in listLike[cheap]) size[i] <- objectSize(values[[i]])
      }
      for (i in which(isAtomic & !bare & is.na(size))) {
        s <- cheapSize(values[[i]])
        if (!is.null(s)) size[i] <- s
      }
      dimJSON <- rep(NA_character_, n)
      two <- which(dimCount == 2L)
      if (length(two)) {
        flat <- jsonNumber(as.numeric(unlist(dims[two], use.names = FALSE)))
        dimJSON[two] <- paste0("[", flat[c(TRUE, FALSE)], ",", flat[c(FALSE, TRUE)], "]")
      }
      for (i in which(dimCount > 0L & dimCount != 2L)) {
        dimJSON[i] <- paste0("[", paste(jsonNumber(dims[[i]]), collapse = ","), "]")
      }
      list(kind = kind, class = classJSON, type = type, size = size, length = len, dim = dimJSON,
           summary = summary, columns = columns)
    }

    # The slow path, for environments holding objects whose methods fail: one object at a time.
    describeEach <- function(values, names) {
      n <- length(values)
      rows <- list(kind = rep("other", n), class = rep("[]", n), type = character(n),
                   size = rep(NA_real_, n), length = rep(NA_real_, n), dim = rep(NA_character_, n),
                   summary = rep(NA_character_, n), columns = rep(NA_character_, n))
      for (i in seq_len(n)) {
        rows$type[i] <- typeof(values[[i]])
        d <- tryCatch(describe(values[[i]], names[i]), error = function(e) NULL)
        if (is.null(d)) next
        rows$kind[i] <- d$kind
        rows$class[i] <- d$class
        if (!is.null(d$size)) rows$size[i] <- d$size
        if (!is.null(d$length)) rows$length[i] <- d$length
        if (!is.null(d$dim)) rows$dim[i] <- paste0("[", paste(jsonNumber(d$dim), collapse = ","), "]")
        if (!is.null(d$summary)) rows$summary[i] <- d$summary
        if (!is.null(d$columns)) rows$columns[i] <- d$columns
      }
      rows
    }

    environmentSummary <- function(x, cls) {
      envName <- environmentName(x)
      if (nzchar(envName)) envName else paste0("<", cls[1L], ">")
    }

    otherSummary <- function(x, type, cls) {
      if (type %in% c("language", "symbol", "expression")) return(callText(x, 100L))
      if (isS4(x)) return(sprintf("Formal class '%s'", cls[1L]))
      NA_character_
    }

    # One object: kind, class (JSON text), type, and what is cheap of size, length, dim, summary and
    # columns.
    describe <- function(x, name) {
      type <- typeof(x)
      cls <- class(x)
      out <- list(type = type, class = json(I(cls)))
      isFrame <- is.data.frame(x)
      dims <- if (isFrame) c(.row_names_info(x, 2L), length(x)) else attr(x, "dim", exact = TRUE)
      if (!is.null(dims)) out$dim <- dims
      if (type %in% c("closure", "builtin", "special")) {
        out$kind <- "function"
        out$summary <- functionSummary(x, name)
        out$length <- 1
      } else if (type == "environment") {
        out$kind <- "environment"
        out$summary <- environmentSummary(x, cls)
      } else if (isFrame) {
        out$kind <- "data"
        out$length <- length(x)
        out$summary <- sprintf("%d obs. of %d variable%s", dims[1L], dims[2L], if (dims[2L] == 1L) "" else "s")
        out$columns <- frameColumns(list(x))
        out$size <- cheapSize(x)
      } else if (type %in% atomicTypes || type == "list") {
        len <- length(x)
        out$length <- len
        out$size <- cheapSize(x)
        if (length(dims) == 2L) {
          out$kind <- "data"
          out$summary <- sprintf("%s [1:%d, 1:%d]", if (type == "list") "list" else atomicLabel(x, type),
                                 dims[1L], dims[2L])
        } else if (type == "list") {
          out$kind <- "list"
          out$summary <- sprintf("List of %d", len)
        } else {
          out$kind <- "value"
          out$summary <- valueSummary(x, type, len)
        }
      } else if (type == "NULL") {
        out$kind <- "value"
        out$length <- 0
        out$summary <- "NULL"
      } else {
        out$kind <- "other"
        summary <- otherSummary(x, type, cls)
        if (!is.na(summary)) out$summary <- summary
      }
      out
    }

    atomicLabel <- function(x, type) {
      if (is.factor(x)) return("Factor")
      if (!is.null(attr(x, "class", exact = TRUE))) return(class(x)[1L])
      typeLabels[[type]]
    }

    shorten <- function(text, limit = 100L) {
      text[is.na(text)] <- "NA"
      long <- nchar(text, "chars", allowNA = TRUE) > limit
      long[is.na(long)] <- TRUE
      if (any(long)) text[long] <- paste0(substr(text[long], 1L, limit), "\u2026")
      text
    }

    # Formats at most a few leading elements; classed vectors go through their own format method.
    headText <- function(x, type, count) {
      part <- x[seq_len(count)]
      if (is.null(attr(part, "class", exact = TRUE))) {
        text <- switch(type,
          double = sprintf("%.7g", part),
          character = encodeString(shorten(part, 40L), quote = "\""),
          as.character(part))
        text[is.na(part)] <- "NA"
        return(text)
      }
      if (is.factor(part)) part <- as.character(part)
      shorten(format(part), 40L)
    }

    valueSummary <- function(x, type, len) {
      if (len == 1) return(shorten(headText(x, type, 1L), 200L))
      label <- atomicLabel(x, type)
      if (len == 0) return(paste0(label, "(0)"))
      if (is.factor(x)) {
        lv <- levels(x)
        return(sprintf("Factor w/ %d level%s %s", length(lv), if (length(lv) == 1L) "" else "s",
                       paste(encodeString(shorten(lv[seq_len(min(3L, length(lv)))], 20L), quote = "\""),
                             collapse = ",")))
      }
      shown <- min(len, 5)
      text <- paste(headText(x, type, shown), collapse = " ")
      shorten(paste0(label, " [1:", format(len, scientific = FALSE), "] ", text,
                     if (len > shown) " ..." else ""), 200L)
    }

    # A one-line digest of the definition, so that a changed definition changes it. Cached per name:
    # an unchanged closure is recognised by identity.
    functionSummary <- function(f, name) {
      cached <- get0(name, envir = functionSummaries, inherits = FALSE)
      if (!is.null(cached) && identical(cached$f, f)) return(cached$text)
      header <- paste0("function(", paste(names(formals(args(f))), collapse = ", "), ")")
      source <- tryCatch(paste(deparse(f, width.cutoff = 500L), collapse = "\n"), error = function(e) "")
      bytes <- as.numeric(charToRaw(source))
      sum <- if (length(bytes)) sum(bytes * ((seq_along(bytes) %% 65521) + 1)) %% 4294967291 else 0
      text <- sprintf("%s #%08x", header, as.integer(sum %% 2147483647))
      assign(name, list(f = f, text = text), envir = functionSummaries)
      text
    }

    # Joins consecutive runs of `text` (of the given sizes, all above 0) with `sep`, in one pass.
    joinRuns <- function(text, sizes, sep) {
      if (!length(sizes)) return(character())
      seps <- rep.int(sep, length(text))
      seps[cumsum(sizes)] <- "\x01"
      strsplit(paste0(text, seps, collapse = ""), "\x01", fixed = TRUE)[[1L]]
    }

    # The columns (first 50) of several data frames, one JSON array each.
    frameColumns <- function(frames) {
      shown <- lapply(frames, function(f) .subset(f, seq_len(min(length(f), 50L))))
      count <- lengths(shown, use.names = FALSE)
      out <- rep("[]", length(frames))
      if (!any(count > 0L)) return(out)
      colNames <- unlist(lapply(shown, function(cols) {
        nm <- names(cols)
        if (is.null(nm)) rep.int("", length(cols)) else nm
      }), use.names = FALSE)
      colNames[is.na(colNames)] <- ""
      columns <- unlist(shown, recursive = FALSE, use.names = FALSE)
      colTypes <- vapply(lapply(columns, class), `[`, "", 1L, USE.NAMES = FALSE)
      items <- paste0('{"name":', jsonString(colNames), ',"type":', jsonString(colTypes), "}")
      some <- count > 0L
      out[some] <- paste0("[", joinRuns(items, count[some], ","), "]")
      out
    }

    # Summaries of plain vectors ("num [1:100] 1 2 3 4 5 ..."), formatted per type in one go.
    vectorSummaries <- function(values, type, len) {
      out <- paste0(typeLabels[type], "(0)")
      for (t in unique(type[len > 0])) {
        group <- which(type == t & len > 0)
        shown <- pmin(len[group], 5)
        x <- unlist(lapply(values[group], `[`, 1:5), use.names = FALSE)
        x <- x[rep(1:5, length(group)) <= rep(shown, each = 5L)]
        text <- switch(t,
          double = sprintf("%.7g", x),
          character = encodeString(shorten(x, 40L), quote = "\""),
          as.character(x))
        text[is.na(x)] <- "NA"
        out[group] <- paste0(typeLabels[t], " [1:", sprintf("%.0f", len[group]), "] ",
                             joinRuns(text, shown, " "), ifelse(len[group] > shown, " ...", ""))
      }
      shorten(out, 200L)
    }

    # Bytes of an attribute-free vector as object.size counts them: R allocates small vectors in
    # classes of 8, 16, 32, 48, 64 and 128 bytes after a 48-byte header.
    elementBytes <- c(double = 8, integer = 4, logical = 4, raw = 1, complex = 16)
    vectorBytes <- function(len, eltBytes) {
      data <- len * eltBytes
      alloc <- ceiling(data / 8) * 8
      for (class in rev(c(8, 16, 32, 48, 64, 128))) alloc[data > 0 & data <= class] <- class
      48 + alloc
    }

    # object.size only where its cost does not grow with the data: it walks every string of a
    # character vector and every element of a list.
    objectSizeRoutine <- tryCatch(get("C_objectSize", envir = asNamespace("utils")), error = function(e) NULL)
    objectSize <- function(x) {
      if (is.null(objectSizeRoutine)) as.numeric(utils::object.size(x)) else as.numeric(.Call(objectSizeRoutine, x))
    }
    cheapSize <- function(x) if (sizeIsCheap(x)) objectSize(x) else NULL

    # For many lists (and data frames) at once: whether object.size can measure each cheaply. All
    # their elements are looked at in one pass; lists of lists take the one-by-one path.
    listsAreCheap <- function(lists, isFrame) {
      count <- lengths(lists, use.names = FALSE)
      ok <- count <= 1000L
      if (any(isFrame)) {
        ok[isFrame] <- ok[isFrame] & vapply(lists[isFrame], .row_names_info, 0L, type = 1L) <= 1e4
      }
      ok[ok] <- lengths(lapply(lists[ok], attr, which = "names", exact = TRUE), use.names = FALSE) <= 1e4
      if (!any(ok)) return(ok)
      elements <- unlist(lapply(lists[ok], unclass), recursive = FALSE, use.names = FALSE)
      owner <- rep(which(ok), count[ok])
      types <- vapply(elements, typeof, "", USE.NAMES = FALSE)
      good <- types %in% atomicTypes | types == "NULL"
      good[types == "character"] <- lengths(elements[types == "character"], use.names = FALSE) <= 1e4
      atomic <- which(good & types != "NULL")
      decorated <- atomic[lengths(lapply(elements[atomic], attributes), use.names = FALSE) > 0L]
      if (length(decorated)) {
        good[decorated] <- vapply(elements[decorated], sizeIsCheap, NA, depth = 1L, USE.NAMES = FALSE)
      }
      nested <- which(types == "list")
      if (length(nested)) {
        good[nested] <- vapply(elements[nested], sizeIsCheap, NA, depth = 1L, USE.NAMES = FALSE)
      }
      ok[unique(owner[!good])] <- FALSE
      ok
    }

    # Never asks for `attributes()` of a data frame: that expands compact row names.
    sizeIsCheap <- function(x, depth = 0L) {
      type <- typeof(x)
      if (type == "character") return(length(x) <= 1e4)
      if (length(attr(x, "names", exact = TRUE)) > 1e4 || length(attr(x, "levels", exact = TRUE)) > 1e4) {
        return(FALSE)
      }
      if (type %in% atomicTypes || type == "NULL") return(TRUE)
      if (type != "list" || depth > 2L || length(x) > 1000L) return(FALSE)
      if (is.data.frame(x) && .row_names_info(x, 1L) > 1e4) return(FALSE)
      types <- vapply(x, typeof, "", USE.NAMES = FALSE)
      if (!all(types %in% c(atomicTypes, "NULL", "list"))) return(FALSE)
      if (any(types == "character" & lengths(x, use.names = FALSE) > 1e4)) return(FALSE)
      for (i in which(types == "list")) if (!sizeIsCheap(.subset2(x, i), depth + 1L)) return(FALSE)
      plain <- which(types %in% atomicTypes)
      if (length(plain)) {
        decorated <- plain[!vapply(.subset(x, plain), function(el) is.null(attributes(el)), NA,
                                   USE.NAMES = FALSE)]
        for (i in decorated) if (!sizeIsCheap(.subset2(x, i), depth + 1L)) return(FALSE)
      }
      TRUE
    }

    # ---- Console input ----------------------------------------------------------------------------
    # The client learns that R reads a line for user code ("input", then "input_done" once read).

    withInput <- function(kind, expr) {
      send("input", kind = kind)
      on.exit(send("input_done"))
      expr
    }

    isConsole <- function(con) {
      if (is.character(con)) return(length(con) == 1L && identical(con, "stdin"))
      if (!inherits(con, "connection")) return(FALSE)
      isTRUE(tryCatch(summary(con)$description == "stdin", error = function(e) FALSE))
    }

    readlineFor <- function(prompt = "") {
      withInput("line", originals$readline(prompt))
    }

    # A console has no end of file: reading "all" lines ends at an empty line, as scan() does.
    readConsoleLines <- function(n) {
      n <- suppressWarnings(as.integer(n))
      if (length(n) != 1L || is.na(n)) n <- -1L
      if (n == 0L) return(character())
      withInput(if (n == 1L) "line" else "lines", {
        lines <- character()
        repeat {
          line <- originals$readLines(stdin(), n = 1L)
          if (!length(line)) break
          if (n < 0L && !nzchar(line)) break
          lines <- c(lines, line)
          if (n > 0L && length(lines) >= n) break
        }
        lines
      })
    }

    menuChoice <- function(answer, choices) {
      answer <- trimws(answer)
      nc <- length(choices)
      if (grepl("^[0-9]", answer)) {
        value <- suppressWarnings(as.integer(sub("^([0-9]+).*$", "\\1", answer)))
        return(if (is.na(value)) nc + 1L else value)
      }
      hit <- match(answer, as.character(choices))
      if (is.na(hit)) nc + 1L else hit
    }

    replacements <- list(
      base = list(
        readline = function(prompt = "") readlineFor(prompt),
        readLines = function(con = stdin(), n = -1L, ok = TRUE, warn = TRUE, encoding = "unknown",
                             skipNul = FALSE) {
          if (isConsole(con)) return(readConsoleLines(n))
          originals$readLines(con, n, ok, warn, encoding, skipNul)
        },
        quit = function(save = "default", status = 0, runLast = TRUE) {
          # .Last runs here, where a failure that cancels the quit is an error of the run like any
          # other; inside R's quit it would jump to the top level past the run's end.
          if (isTRUE(runLast)) {
            last <- get0(".Last", envir = globalenv(), mode = "function", inherits = FALSE)
            if (!is.null(last)) last()
            last <- get0(".Last.sys", envir = baseenv(), mode = "function", inherits = FALSE)
            if (!is.null(last)) last()
          }
          send("quit")
          # Never ask: there is no one at the terminal to answer.
          originals$quit(save = if (identical(save, "yes")) "yes" else "no", status = status,
                         runLast = FALSE)
        }
      ),
      utils = list(
        menu = function(choices, graphics = FALSE, title = NULL) {
          if (!interactive()) stop("menu() cannot be used non-interactively")
          nc <- length(choices)
          if (length(title) && nzchar(title[1L])) cat(title[1L], "\n")
          op <- paste0(format(seq_len(nc)), ": ", choices)
          if (nc > 10L) {
            fop <- format(op)
            nw <- nchar(fop[1L], "w") + 2L
            ncol <- getOption("width") %/% nw
            if (ncol > 1L) op <- paste0(fop, c(rep.int("  ", min(nc, ncol) - 1L), "\n"), collapse = "")
          }
          cat("", op, "", sep = "\n")
          repeat {
            ind <- menuChoice(readlineFor("Selection: "), choices)
            if (ind <= nc) return(ind)
            cat(gettext("Enter an item from the menu, or 0 to exit\n"))
          }
        },
        View = function(x, title) {
          expr <- substitute(x)
          force(x)
          if (missing(title)) title <- paste(deparse(expr, width.cutoff = 500L, nlines = 1L), collapse = "")
          view(x, expr, as.character(title)[1L], parent.frame())
        },
        file.edit = function(..., title = file, editor = getOption("editor"), fileEncoding = "") {
          file <- c(...)
          for (path in as.character(file)) openFile(path)
          invisible()
        }
      )
    )
    replacements$base$q <- replacements$base$quit

    # scan() keeps its many arguments: the wrapper has the original's formals and forwards its call.
    scanWrapper <- function() {
      console <- missing(text) && (identical(file, "") || isConsole(file))
      call <- match.call()
      call[[1L]] <- originals$scan
      if (!console) return(eval(call, parent.frame()))
      single <- identical(as.integer(n), 1L) || identical(as.integer(nlines), 1L) ||
        identical(as.integer(nmax), 1L)
      withInput(if (single) "line" else "lines", eval(call, parent.frame()))
    }

    view <- function(x, expr, title, frame) {
      if (is.name(expr) && identical(frame, globalenv())) {
        text <- deparse(expr, backtick = TRUE)
      } else {
        viewCount <<- viewCount + 1L
        key <- paste0("v", viewCount)
        assign(key, x, envir = views)
        text <- sprintf(".vesk$views[[\"%s\"]]", key)
      }
      send("view", expr = text, title = title)
      invisible()
    }
    views <- new.env(parent = emptyenv())
    viewCount <- 0L

    openFile <- function(path) {
      path <- path.expand(path)
      if (!file.exists(path)) file.create(path)
      send("open_file", path = normalizePath(path, mustWork = FALSE))
    }

    # Replaces a function in a namespace and in its attached package, keeping the original.
    replaceFunction <- function(pkg, name, value) {
      ns <- asNamespace(pkg)
      if (is.null(originals[[name]])) originals[[name]] <<- get(name, envir = ns)
      targets <- list(ns)
      where <- paste0("package:", pkg)
      if (where %in% search()) targets <- c(targets, list(as.environment(where)))
      for (env in targets) {
        if (!exists(name, envir = env, inherits = FALSE)) next
        locked <- bindingIsLocked(name, env)
        if (locked) unlockBinding(name, env)
        assign(name, value, envir = env)
        if (locked) lockBinding(name, env)
      }
    }

    installReplacements <- function() {
      for (name in names(replacements$base)) replaceFunction("base", name, replacements$base[[name]])
      scan <- scanWrapper
      formals(scan) <- formals(originals$scan %||% get("scan", envir = baseenv()))
      environment(scan) <- vesk
      replaceFunction("base", "scan", scan)
      for (name in names(replacements$utils)) replaceFunction("utils", name, replacements$utils[[name]])
      options(browser = function(url) send("browse", url = as.character(url)[1L]),
              viewer = function(url, height = NULL) send("viewer", url = as.character(url)[1L]))
    }

    `%||%` <- function(a, b) if (is.null(a)) b else a

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
        uncompiled(answer(id, handler, list(...), frame))
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

    # ---- Plots --------------------------------------------------------------------------------------
    # Every figure is a numbered page. R draws on a recording device (pdf with no file, display list
    # on); when a page is finished (the next page starts, or the run ends with the page changed) its
    # recorded display list is replayed into a PNG at the pane's size and announced with a "plot"
    # event. Re-renders and exports replay the same record, so they are as sharp as the target device.
    # Only the recording device is watched: a png() or pdf() the user opens is theirs alone.

    plotSize <- list(width = 504, height = 504, scale = 1)
    plotTheme <- list(modern = TRUE, accent = NULL, palette = NULL)
    plotPages <- new.env(parent = emptyenv()) # page number (as text) -> list(record, kind, gg, ...)
    plotCount <- 0L       # the last page number given out; never reused, even after clearPlots
    plotCurrent <- NULL   # the page the recording device is drawing
    plotStarting <- NULL  # set between the before- and after-hooks of a new page: the page's kind
    plotDevice <- NULL    # the recording device's number
    plotBusy <- FALSE     # while the kernel draws itself: no hook may react
    plotPointLimit <- 10000L
    plotBarLimit <- 5000L

    plotDir <- function() {
      dir <- file.path(tempdir(), "vesk-plots")
      if (!dir.exists(dir)) dir.create(dir, recursive = TRUE, showWarnings = FALSE)
      dir
    }

    validSize <- function(x, default) {
      x <- suppressWarnings(as.numeric(x))[1L]
      if (length(x) != 1L || !is.finite(x) || x <= 0) default else min(x, 20000)
    }

    openPlotDevice <- function(...) {
      # A white page, as on a screen device: a record made on the pdf device's transparent page
      # replays antialiased drawing onto cairo at half the speed.
      grDevices::pdf(NULL, width = plotSize$width / 72, height = plotSize$height / 72, bg = "white")
      grDevices::dev.control("enable")
      plotDevice <<- grDevices::dev.cur()
      applyPlotTheme()
      invisible()
    }

    # Defaults only, set once on a fresh device: whatever the user sets with par() or palette()
    # afterwards wins.
    applyPlotTheme <- function() {
      if (!isTRUE(plotTheme$modern)) return()
      if (length(plotTheme$palette) >= 2L) try(grDevices::palette(plotTheme$palette), silent = TRUE)
      accent <- plotTheme$accent %||% "#1F77B4"
      # fg also sets col: the accent goes second.
      try({
        # pch 16 rather than 19: the same filled dot without the outline, which cairo strokes at
        # twice the cost of the fill (a dense scatter draws in half the time).
        graphics::par(las = 1L, bty = "n", pch = 16L, fg = "#6B6B6B", col.axis = "#4D4D4D",
                      col.lab = "#333333", col.main = "#1A1A1A", font.main = 1L, tcl = -0.3,
                      mgp = c(2.4, 0.6, 0))
        graphics::par(col = accent)
      }, silent = TRUE)
    }

    onRecordingDevice <- function() {
      !is.null(plotDevice) && grDevices::dev.cur() == plotDevice
    }

    # What drew the page, read off the call stack: bars and histograms are described as such.
    plotKindFromStack <- function() {
      heads <- vapply(sys.calls(), function(call) {
        if (is.call(call) && is.name(call[[1L]])) as.character(call[[1L]]) else ""
      }, "")
      if (any(heads %in% c("hist", "hist.default", "plot.histogram"))) return(list(kind = "hist"))
      if (any(heads %in% c("barplot", "barplot.default"))) {
        horizontal <- FALSE
        for (i in rev(seq_along(heads))) {
          if (identical(sys.function(i), graphics::barplot.default)) {
            horizontal <- isTRUE(tryCatch(get("horiz", envir = sys.frame(i)), error = function(e) FALSE))
            break
          }
        }
        return(list(kind = "bar", horizontal = horizontal))
      }
      list(kind = "base")
    }

    ggplotFromStack <- function() {
      if (!("ggplot2" %in% loadedNamespaces())) return(NULL)
      printer <- tryCatch(get("print.ggplot", envir = asNamespace("ggplot2")), error = function(e) NULL)
      if (is.null(printer)) return(NULL)
      for (i in rev(seq_len(sys.nframe()))) {
        if (identical(sys.function(i), printer)) {
          return(tryCatch(get("x", envir = sys.frame(i)), error = function(e) NULL))
        }
      }
      NULL
    }

    beforeNewPage <- function(grid) {
      if (plotBusy) return()
      tryCatch({
        plotStarting <<- NULL
        fresh <- grDevices::dev.cur() == 1L
        if (!fresh && !onRecordingDevice()) return()
        if (!fresh && !grid && !isTRUE(graphics::par("page"))) return() # next panel of the same page
        if (!fresh) finishPlotPage()
        plotStarting <<- if (grid) list(kind = "grid", gg = ggplotFromStack()) else plotKindFromStack()
      }, error = function(e) NULL)
    }

    afterNewPage <- function() {
      if (plotBusy || is.null(plotStarting)) return()
      starting <- plotStarting
      plotStarting <<- NULL
      tryCatch({
        if (!onRecordingDevice()) return()
        plotCount <<- plotCount + 1L
        plotCurrent <<- plotCount
        assign(as.character(plotCount), c(starting, list(record = NULL, sent = FALSE)), envir = plotPages)
      }, error = function(e) NULL)
    }

    installPlotDevice <- function() {
      options(device = openPlotDevice)
      for (hook in c("before.plot.new", "plot.new", "before.grid.newpage", "grid.newpage")) {
        kept <- Filter(function(f) !isTRUE(attr(f, "vesk")), getHook(hook))
        setHook(hook, kept, "replace")
      }
      mark <- function(f) structure(f, vesk = TRUE)
      setHook("before.plot.new", mark(function() vesk$beforeNewPage(FALSE)))
      setHook("before.grid.newpage", mark(function() vesk$beforeNewPage(TRUE)))
      setHook("plot.new", mark(function() vesk$afterNewPage()))
      setHook("grid.newpage", mark(function() vesk$afterNewPage()))
    }

    # Records the page being drawn; sends it when it changed since it was last sent.
    finishPlotPage <- function() {
      # The JIT would compile this section's small inner closures afresh at every page: a third of
      # a small plot's cost.
      jit <- compiler::enableJIT(0L)
      on.exit(compiler::enableJIT(jit))
      if (is.null(plotCurrent) || is.null(plotDevice) || !(plotDevice %in% grDevices::dev.list())) return()
      key <- as.character(plotCurrent)
      page <- get0(key, envir = plotPages, inherits = FALSE)
      if (is.null(page)) return()
      previous <- grDevices::dev.cur()
      if (previous != plotDevice) grDevices::dev.set(plotDevice)
      record <- tryCatch(grDevices::recordPlot(), error = function(e) NULL)
      if (previous != plotDevice && previous %in% grDevices::dev.list()) grDevices::dev.set(previous)
      if (is.null(record)) return()
      if (!is.null(page$record) && identical(record[[1L]], page$record[[1L]])) return()
      page$record <- record
      isNew <- !page$sent
      page$sent <- TRUE
      assign(key, page, envir = plotPages)
      rendered <- renderPlotPage(plotCurrent, plotSize$width, plotSize$height, plotSize$scale)
      if (is.null(rendered)) return()
      send("plot", page = plotCurrent, file = rendered$file, new = isNew, info = rendered$info)
    }

    # At the end of every run: a page drawn or added to (lines(), points()) goes out.
    flushPlots <- function() {
      if (plotBusy) return()
      tryCatch(finishPlotPage(), error = function(e) NULL)
    }

    plotFile <- function(page) file.path(plotDir(), sprintf("plot-%d.png", as.integer(page)))

    # Draws a page's record on the current device, within the given limits (NULL: as recorded).
    drawPlotPage <- function(page, xlim = NULL, ylim = NULL) {
      limits <- is.numeric(xlim) || is.numeric(ylim)
      if (!is.null(page$gg) && limits) {
        zoomed <- page$gg + ggplot2::coord_cartesian(xlim = if (is.numeric(xlim)) xlim,
                                                     ylim = if (is.numeric(ylim)) ylim, expand = FALSE)
        suppressMessages(print(zoomed))
        return(list(gg = zoomed))
      }
      record <- page$record
      if (limits && !is.null(record)) record <- withPlotLimits(record, xlim, ylim)
      grDevices::replayPlot(record)
      list(record = record)
    }

    routineName <- function(entry) {
      f <- tryCatch(entry[[2L]][[1L]], error = function(e) NULL)
      if (is.list(f) && is.character(f$name)) f$name else ""
    }

    # The record with the limits of its (single) plot window replaced: base graphics redraw the
    # whole figure, axes included, for the new window.
    withPlotLimits <- function(record, xlim, ylim) {
      dl <- record[[1L]]
      names <- vapply(dl, routineName, "")
      windows <- which(names == "C_plot_window")
      if (length(windows) != 1L) return(record)
      entry <- dl[[windows]]
      if (is.numeric(xlim) && length(xlim) == 2L && all(is.finite(xlim))) entry[[2L]][[2L]] <- as.numeric(xlim)
      if (is.numeric(ylim) && length(ylim) == 2L && all(is.finite(ylim))) entry[[2L]][[3L]] <- as.numeric(ylim)
      dl[[windows]] <- entry
      record[[1L]] <- dl
      record
    }

    # Runs `draw` with a fresh device opened by `open`, which is always closed again; the device
    # that was current stays current, and no hook sees the kernel's own drawing.
    withPlotDevice <- function(open, draw) {
      previous <- grDevices::dev.cur()
      busy <- plotBusy
      plotBusy <<- TRUE
      on.exit(plotBusy <<- busy)
      open()
      device <- grDevices::dev.cur()
      on.exit({
        if (device %in% grDevices::dev.list()) grDevices::dev.off(device)
        if (previous > 1L && previous %in% grDevices::dev.list()) grDevices::dev.set(previous)
      }, add = TRUE, after = FALSE)
      draw()
    }

    plotDenseLimit <- 5000L
    plotPointCount <- function(record) {
      dl <- record[[1L]]
      count <- 0
      for (i in which(vapply(dl, routineName, "") == "C_plotXY")) {
        xy <- tryCatch(dl[[i]][[2L]][[2L]], error = function(e) NULL)
        if (is.list(xy)) count <- count + length(xy$x)
      }
      count
    }

    # A bitmap's scale, lowered so that neither side nor the whole exceeds what a device can hold.
    boundedScale <- function(width, height, scale, side, pixels) {
      min(scale, side / max(width, height), sqrt(pixels / (width * height)))
    }

    renderPlotPage <- function(number, width, height, scale, xlim = NULL, ylim = NULL) {
      page <- get0(as.character(number), envir = plotPages, inherits = FALSE)
      if (is.null(page) || is.null(page$record)) return(NULL)
      width <- validSize(width, plotSize$width)
      height <- validSize(height, plotSize$height)
      scale <- boundedScale(width, height, max(0.25, min(8, validSize(scale, 1))), 8192, 4e7)
      file <- plotFile(number)
      partial <- paste0(file, ".part")
      info <- NULL
      # Antialiasing thousands of markers costs cairo most of a second; on the pane, at the screen's
      # backing scale, crisp markers are the better trade. Exports keep it.
      dense <- plotPointCount(page$record) > plotDenseLimit
      withPlotDevice(function() {
        grDevices::png(partial, width = max(1, round(width * scale)), height = max(1, round(height * scale)),
                       res = 72 * scale, type = "cairo", bg = "white",
                       antialias = if (dense) "none" else "default")
      }, function() {
        drawn <- drawPlotPage(page, xlim, ylim)
        info <<- tryCatch(plotInfo(page, drawn, xlim, ylim), error = function(e) NULL)
      })
      # The client may be reading the previous picture: replace the file in one step.
      if (!file.rename(partial, file)) return(NULL)
      list(file = normalizePath(file), info = info)
    }

    finiteOr <- function(x) {
      x <- suppressWarnings(as.numeric(x))
      x[!is.finite(x)] <- NA
      x
    }

    # Finite numbers only (the callers drop the others); 15 significant digits are exact enough for
    # a tooltip. sprintf is about twice as fast as as.character here over thousands of points.
    numericArray <- function(x) {
      x <- as.numeric(x)
      text <- sprintf("%.15g", x)
      text[!is.finite(x)] <- "null"
      jsonText(paste0("[", paste(text, collapse = ","), "]"))
    }

    # The points' JSON; index and series are left out when they are the defaults (position + 1,
    # series 1), which halves the text of a large scatter.
    pointsInfo <- function(x, y, index, series, truncated) {
      out <- list(x = numericArray(x), y = numericArray(y))
      if (!identical(as.integer(index), seq_along(index))) out$index <- numericArray(index)
      if (any(series != 1L)) out$series <- numericArray(series)
      out$truncated <- truncated
      out
    }

    panelInfo <- function(usr, xlim, ylim, xlog, ylog, region) {
      list(usr = numericArray(usr), region = numericArray(region), xlim = numericArray(xlim),
           ylim = numericArray(ylim), xlog = isTRUE(xlog), ylog = isTRUE(ylog))
    }

    # The geometry JSON of the picture just drawn on the current device, or NULL.
    plotInfo <- function(page, drawn, xlim, ylim) {
      info <- if (!is.null(page$gg)) ggplotInfo(drawn$gg %||% page$gg, xlim, ylim) else baseInfo(page, drawn$record)
      if (is.null(info)) NULL else jsonText(json(info))
    }

    baseInfo <- function(page, record) {
      if (!identical(page$kind, "base") && !identical(page$kind, "bar") && !identical(page$kind, "hist")) return(NULL)
      dl <- record[[1L]]
      names <- vapply(dl, routineName, "")
      windows <- which(names == "C_plot_window")
      if (length(windows) != 1L) return(NULL)
      args <- as.list(dl[[windows]][[2L]])
      usr <- graphics::par("usr")
      region <- c(graphics::grconvertX(c(0, 1), "npc", "ndc"), graphics::grconvertY(c(0, 1), "npc", "ndc"))
      xlog <- graphics::par("xlog")
      ylog <- graphics::par("ylog")
      drawnX <- range(if (xlog) 10^usr[1:2] else usr[1:2])
      drawnY <- range(if (ylog) 10^usr[3:4] else usr[3:4])
      xl <- if (is.numeric(args[[2L]]) && length(args[[2L]]) == 2L) args[[2L]] else drawnX
      yl <- if (is.numeric(args[[3L]]) && length(args[[3L]]) == 2L) args[[3L]] else drawnY
      out <- list(panel = panelInfo(usr, xl, yl, xlog, ylog, region))

      after <- seq_along(dl) > windows
      axes <- list()
      for (i in which(names == "C_axis" & after)) {
        a <- as.list(dl[[i]][[2L]])
        side <- suppressWarnings(as.integer(a[[2L]]))[1L]
        at <- a[[3L]]
        labels <- a[[4L]]
        if (is.na(side) || !is.numeric(at) || !is.character(labels) || length(at) != length(labels)) next
        if (is.null(axes[[as.character(side)]])) axes[[as.character(side)]] <- list(at = at, labels = labels)
      }
      axisFor <- function(side, bars) {
        a <- axes[[as.character(side)]]
        if (is.null(a)) return(list(kind = "numeric"))
        numericLabels <- !anyNA(suppressWarnings(as.numeric(a$labels)))
        list(kind = "category", at = numericArray(a$at), labels = I(a$labels), discrete = bars || !numericLabels)
      }
      isBars <- page$kind %in% c("bar", "hist")
      horizontal <- isTRUE(page$horizontal)
      out$xaxis <- axisFor(1L, isBars && !horizontal)
      out$yaxis <- axisFor(2L, isBars && horizontal)

      if (isBars) {
        rects <- which(names == "C_rect" & after)
        x0 <- x1 <- y0 <- y1 <- numeric()
        for (i in rects) {
          a <- as.list(dl[[i]][[2L]])
          n <- max(lengths(a[2:5]))
          if (!n) next
          x0 <- c(x0, rep_len(finiteOr(a[[2L]]), n))
          y0 <- c(y0, rep_len(finiteOr(a[[3L]]), n))
          x1 <- c(x1, rep_len(finiteOr(a[[4L]]), n))
          y1 <- c(y1, rep_len(finiteOr(a[[5L]]), n))
        }
        keep <- which(!is.na(x0) & !is.na(x1) & !is.na(y0) & !is.na(y1))
        keep <- keep[seq_len(min(length(keep), plotBarLimit))]
        if (length(keep)) {
          x0 <- x0[keep]; x1 <- x1[keep]; y0 <- y0[keep]; y1 <- y1[keep]
          labels <- rep(NA_character_, length(keep))
          a <- axes[[if (horizontal) "2" else "1"]]
          if (!is.null(a) && identical(page$kind, "bar")) {
            centres <- if (horizontal) (y0 + y1) / 2 else (x0 + x1) / 2
            for (k in seq_along(centres)) {
              nearest <- which.min(abs(a$at - centres[k]))
              half <- abs(if (horizontal) y1[k] - y0[k] else x1[k] - x0[k]) / 2
              if (length(nearest) && abs(a$at[nearest] - centres[k]) <= half + 1e-9) labels[k] <- a$labels[nearest]
            }
          }
          out$bars <- list(x0 = numericArray(x0), x1 = numericArray(x1), y0 = numericArray(y0),
                           y1 = numericArray(y1), labels = I(labels), horizontal = horizontal,
                           histogram = identical(page$kind, "hist"))
        }
      }

      series <- 0L
      xs <- ys <- numeric()
      index <- ser <- integer()
      truncated <- FALSE
      for (i in which(names == "C_plotXY" & after)) {
        a <- as.list(dl[[i]][[2L]])
        type <- if (is.character(a[[3L]])) a[[3L]][1L] else "p"
        if (!(type %in% c("p", "b", "o"))) next
        xy <- a[[2L]]
        if (!is.list(xy) || !is.numeric(xy$x) || !is.numeric(xy$y) || length(xy$x) != length(xy$y)) next
        series <- series + 1L
        ok <- which(is.finite(xy$x) & is.finite(xy$y))
        room <- plotPointLimit - length(xs)
        if (length(ok) > room) {
          truncated <- TRUE
          ok <- ok[seq_len(max(0L, room))]
        }
        xs <- c(xs, xy$x[ok]); ys <- c(ys, xy$y[ok])
        index <- c(index, ok); ser <- c(ser, rep.int(series, length(ok)))
      }
      if (length(xs) || truncated) {
        out$points <- pointsInfo(xs, ys, index, ser, truncated)
      }
      out$zoomable <- TRUE
      out
    }

    ggplotInfo <- function(gg, xlim, ylim) {
      if (!inherits(gg, "ggplot")) return(NULL)
      built <- ggplot2::ggplot_build(gg)
      params <- built$layout$panel_params
      if (length(params) != 1L) return(NULL) # facets: a plain picture
      params <- params[[1L]]
      xr <- params$x.range
      yr <- params$y.range
      if (!is.numeric(xr) || !is.numeric(yr)) return(NULL)
      flipped <- inherits(built$layout$coord, "CoordFlip")
      # Where the panel lies on the device: its viewport, found by name after drawing.
      tree <- paste(utils::capture.output(print(grid::current.vpTree())), collapse = "")
      panel <- regmatches(tree, regexpr("viewport\\[panel[^]]*\\]", tree))
      if (!length(panel)) return(NULL)
      panel <- substr(panel, 10L, nchar(panel) - 1L)
      grid::seekViewport(panel[1L])
      corners <- grid::deviceLoc(grid::unit(c(0, 1), "npc"), grid::unit(c(0, 1), "npc"), valueOnly = TRUE)
      grid::upViewport(0L)
      size <- grDevices::dev.size("in")
      region <- c(corners$x / size[1L], corners$y / size[2L])
      scales <- built$plot$scales
      xs <- scales$get_scales("x")
      ys <- scales$get_scales("y")
      xDiscrete <- !is.null(xs) && inherits(xs, "ScaleDiscrete")
      yDiscrete <- !is.null(ys) && inherits(ys, "ScaleDiscrete")
      # Limits as the figure was asked for: a zoom's, or the scale's range before its expansion.
      unexpanded <- function(r, limits) if (is.numeric(limits) && length(limits) == 2L) limits else r
      xl <- unexpanded(params$x$continuous_range %||% xr, xlim)
      yl <- unexpanded(params$y$continuous_range %||% yr, ylim)
      if (!is.numeric(xlim)) xl <- range(params$x$limits %||% xr)
      if (!is.numeric(ylim)) yl <- range(params$y$limits %||% yr)
      if (xDiscrete || !is.numeric(xl)) xl <- xr
      if (yDiscrete || !is.numeric(yl)) yl <- yr
      out <- list(panel = panelInfo(c(xr, yr), xl, yl, FALSE, FALSE, region))
      axisFor <- function(view, discrete) {
        if (!discrete) return(list(kind = "numeric"))
        at <- tryCatch(as.numeric(unclass(view$map(view$get_breaks()))), error = function(e) NULL)
        labels <- tryCatch(as.character(view$get_labels()), error = function(e) NULL)
        if (is.null(at) || length(at) != length(labels)) return(list(kind = "none"))
        list(kind = "category", at = at, labels = I(labels), discrete = TRUE)
      }
      xaxis <- axisFor(params$x, xDiscrete)
      yaxis <- axisFor(params$y, yDiscrete)
      encoded <- function(axis) {
        if (identical(axis$kind, "category")) axis$at <- numericArray(axis$at)
        axis
      }
      out$xaxis <- encoded(xaxis)
      out$yaxis <- encoded(yaxis)

      xsAll <- ysAll <- numeric(); index <- ser <- integer(); truncated <- FALSE
      x0 <- x1 <- y0 <- y1 <- numeric(); histogram <- FALSE
      series <- 0L
      for (i in seq_along(gg$layers)) {
        layer <- gg$layers[[i]]
        data <- built$data[[i]]
        if (inherits(layer$geom, "GeomPoint") && all(c("x", "y") %in% names(data))) {
          groups <- if ("group" %in% names(data)) data$group else rep(1L, nrow(data))
          groups <- match(groups, sort(unique(groups)))
          ok <- which(is.finite(data$x) & is.finite(data$y))
          room <- plotPointLimit - length(xsAll)
          if (length(ok) > room) { truncated <- TRUE; ok <- ok[seq_len(max(0L, room))] }
          xsAll <- c(xsAll, data$x[ok]); ysAll <- c(ysAll, data$y[ok])
          index <- c(index, ok); ser <- c(ser, series + groups[ok])
          series <- series + max(c(groups, 0L))
        } else if (inherits(layer$geom, "GeomRect") && all(c("xmin", "xmax", "ymin", "ymax") %in% names(data))) {
          histogram <- histogram || inherits(layer$stat, "StatBin")
          ok <- which(is.finite(data$xmin) & is.finite(data$xmax) & is.finite(data$ymin) & is.finite(data$ymax))
          ok <- ok[seq_len(min(length(ok), plotBarLimit - length(x0)))]
          x0 <- c(x0, data$xmin[ok]); x1 <- c(x1, data$xmax[ok])
          y0 <- c(y0, data$ymin[ok]); y1 <- c(y1, data$ymax[ok])
        }
      }
      if (flipped) {
        # The panel's axes are swapped on screen: so are the points and bars.
        tmp <- xsAll; xsAll <- ysAll; ysAll <- tmp
        t0 <- x0; t1 <- x1; x0 <- y0; x1 <- y1; y0 <- t0; y1 <- t1
      }
      if (length(xsAll) || truncated) {
        out$points <- pointsInfo(xsAll, ysAll, index, ser, truncated)
      }
      if (length(x0)) {
        labels <- rep(NA_character_, length(x0))
        cat <- if (flipped) yaxis else xaxis
        if (identical(cat$kind, "category") && !histogram) {
          centres <- if (flipped) (y0 + y1) / 2 else (x0 + x1) / 2
          nearest <- vapply(centres, function(c) which.min(abs(cat$at - c))[1L], 1L)
          labels <- cat$labels[nearest]
        }
        out$bars <- list(x0 = numericArray(x0), x1 = numericArray(x1), y0 = numericArray(y0),
                         y1 = numericArray(y1), labels = I(labels), horizontal = flipped,
                         histogram = histogram)
      }
      out$zoomable <- !xDiscrete || !yDiscrete
      out
    }

    requestedLimits <- function(x) {
      x <- suppressWarnings(as.numeric(x))
      if (length(x) == 2L && all(is.finite(x)) && x[1L] != x[2L]) x else NULL
    }

    plotPage <- function(page) {
      page <- suppressWarnings(as.integer(page))[1L]
      found <- if (is.na(page)) NULL else get0(as.character(page), envir = plotPages, inherits = FALSE)
      if (is.null(found) || is.null(found$record)) stop("There is no plot ", page, ".")
      page
    }

    request("setPlotSize", function(width, height, scale = 1) {
      plotSize <<- list(width = validSize(width, 504), height = validSize(height, 504),
                        scale = max(0.25, min(8, validSize(scale, 1))))
      NULL
    })

    request("renderPlot", function(page, width, height, scale = 1, xlim = NULL, ylim = NULL) {
      jit <- compiler::enableJIT(0L)
      on.exit(compiler::enableJIT(jit))
      page <- plotPage(page)
      rendered <- renderPlotPage(page, width, height, scale, requestedLimits(xlim), requestedLimits(ylim))
      if (is.null(rendered)) stop("The plot could not be drawn.")
      list(file = rendered$file, info = rendered$info)
    })

    request("removePlot", function(page) {
      page <- suppressWarnings(as.integer(page))[1L]
      if (is.na(page)) return(NULL)
      key <- as.character(page)
      if (exists(key, envir = plotPages, inherits = FALSE)) rm(list = key, envir = plotPages)
      if (identical(plotCurrent, page)) plotCurrent <<- NULL
      unlink(plotFile(page))
      NULL
    })

    request("clearPlots", function() {
      pages <- ls(plotPages, all.names = TRUE)
      rm(list = pages, envir = plotPages)
      unlink(vapply(pages, plotFile, ""))
      plotCurrent <<- NULL
      NULL
    })

    request("exportPlot", function(page, path, format, width, height, xlim = NULL, ylim = NULL, scale = 1) {
      number <- plotPage(page)
      found <- get(as.character(number), envir = plotPages)
      path <- path.expand(as.character(path)[1L])
      if (is.na(path) || !nzchar(path)) stop("No file to export to.")
      format <- tolower(as.character(format)[1L])
      width <- validSize(width, plotSize$width)
      height <- validSize(height, plotSize$height)
      scale <- boundedScale(width, height, max(0.25, min(16, validSize(scale, 1))), 32768, 2.5e8)
      open <- switch(format,
        png = function() grDevices::png(path, width = max(1, round(width * scale)),
                                        height = max(1, round(height * scale)), res = 72 * scale,
                                        type = "cairo", bg = "white"),
        jpeg = function() grDevices::jpeg(path, width = max(1, round(width * scale)),
                                          height = max(1, round(height * scale)), res = 72 * scale,
                                          quality = 95, type = "cairo"),
        pdf = function() grDevices::cairo_pdf(path, width = width / 72, height = height / 72),
        svg = function() grDevices::svg(path, width = width / 72, height = height / 72),
        stop("Unknown plot format: ", format))
      withPlotDevice(open, function() drawPlotPage(found, requestedLimits(xlim), requestedLimits(ylim)))
      if (!file.exists(path)) stop("The plot could not be exported.")
      NULL
    })

    request("setTheme", function(modern, accent = NULL, palette = NULL) {
      colour <- function(x) {
        x <- as.character(x)
        x[!is.na(x) & grepl("^#[0-9A-Fa-f]{6}$", x)]
      }
      accent <- colour(accent)
      plotTheme <<- list(modern = isTRUE(as.logical(modern)),
                         accent = if (length(accent)) accent[1L],
                         palette = if (length(colour(palette))) colour(palette))
      NULL
    })

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

    request("dropView", function(expr) {
      key <- sub('^\\.vesk\\$views\\[\\["(.*)"\\]\\]$', "\\1", expr)
      if (!identical(key, expr) && exists(key, envir = views, inherits = FALSE)) {
        rm(list = key, envir = views)
      }
      NULL
    })

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
      uncompiled(afterTopLevel(expr))
    }

    afterTopLevel <- function(expr) {
      tryCatch(suspendInterrupts({
        installPrompts()
        if (!is.null(lastValue)) {
          setLastValue(lastValue$value)
          lastValue <<- NULL
        }
        if (!isKernelCall(expr)) sendState()
      }), error = function(e) NULL)
      TRUE
    }
  })

  vesk$installReplacements()
  vesk$installPlotDevice()
  vesk$installPrompts()
  if ("vesk" %in% getTaskCallbackNames()) removeTaskCallback("vesk")
  addTaskCallback(vesk$topLevelCallback, name = "vesk")

  vesk$send("ready",
            version = paste(R.version$major, R.version$minor, sep = "."),
            pid = Sys.getpid())
  # The top-level callback sends the first state once this source() returns.
})
