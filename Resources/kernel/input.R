# Console input and views: the functions Vesk takes over (q, View, file.edit, browser, viewer) and
# the objects views hold.

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
      # What the viewer can't page is refused here, as R's View() refuses it, not in an empty tab.
      if (!viewable(x)) stop(sprintf("can't view an object of class \"%s\" as a table", class(x)[1L]))
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

# A view's object is kept until the client drops it.
request("dropView", function(expr) {
  key <- sub('^\\.vesk\\$views\\[\\["(.*)"\\]\\]$', "\\1", expr)
  if (!identical(key, expr) && exists(key, envir = views, inherits = FALSE)) {
    rm(list = key, envir = views)
  }
  forgetData(expr)
  NULL
})
