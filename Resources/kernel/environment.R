# The global environment: the state event that describes its objects.

# ---- The state event --------------------------------------------------------------------------
# Describes the objects of the global environment. The first state of a session lists them all;
# each later one lists only the objects that are new or whose description changed, and the names
# that are gone, so that a run costs what it changed, not what the session holds. The cost of
# describing an object follows the number of objects, never their size: no object.size on large
# character data, no formatting of whole vectors.

stateLimit <- 5000L
functionSummaries <- new.env(parent = emptyenv())

sendState <- function(full = FALSE) {
  text <- stateJSON(full)
  sendJSON(text)
  # Only what went out is the base of the next partial state.
  sent$names <- attr(text, "objects")
  sent$rows <- attr(text, "rows")
}

# The state event's JSON: all objects when `full` or when nothing was sent yet, else the changes
# since the last state sent.
stateJSON <- function(full = FALSE) {
  env <- globalenv()
  names <- stateNames(env)
  rows <- describeObjects(names, env)
  before <- sent$names
  objects <- if (full || is.null(before)) {
    paste0(',"env":[', paste(rows, collapse = ","), "]")
  } else {
    at <- if (identical(names, before)) seq_along(names) else match(names, before)
    changed <- which(is.na(at) | rows != sent$rows[at])
    removed <- before[!(before %in% names)]
    paste0(',"changed":[', paste(rows[changed], collapse = ","), "]",
           ',"removed":', json(I(removed)))
  }
  attached <- setdiff(search(), "tools:vesk")
  text <- paste0('{"type":"state","state":{"wd":', jsonString(getwd()),
                 objects,
                 ',"attached":', json(I(attached)),
                 ',"loaded":', json(I(loadedNamespaces())),
                 ',"prompt":', jsonString(userPrompt), ',"continue":', jsonString(userContinue), "}}")
  structure(text, objects = names, rows = rows)
}

# What the client was last sent: the names in their order and each object's JSON.
sent <- new.env(parent = emptyenv())
sent$names <- NULL
sent$rows <- character()

# The sorted names, sorted again only when the set of names changed. Radix order: the locale's
# collation costs more than the rest of the event, and the client keeps the same (code point)
# order when it merges a partial state.
sortedNames <- new.env(parent = emptyenv())
sortedNames$raw <- character()
sortedNames$sorted <- character()

stateNames <- function(env) {
  raw <- ls(env, sorted = FALSE)
  if (identical(raw, sortedNames$raw)) return(sortedNames$sorted)
  names <- sort(raw, method = "radix")
  if (length(names) > stateLimit) names <- names[seq_len(stateLimit)]
  sortedNames$raw <- raw
  sortedNames$sorted <- names
  names
}

typeLabels <- c(double = "num", integer = "int", character = "chr", logical = "logi",
                complex = "cplx", raw = "raw")
atomicTypes <- names(typeLabels)

# Descriptions of small objects are kept with the objects themselves: holding a small value makes
# R copy it on its next modification (cheap), so an unchanged object is the very object held, and
# its description is reused. Large objects are never held, and described on every state: holding
# one would make its next in-place modification a copy. Environments are never held either, so
# nothing the user removed outlives the next state. Every member runs parallel to `names`, the
# names of the last state: `values` has NULL where nothing is held (`kept` tells); for held lists (data frames)
# `lengths`, `classes` and `memberNames` keep what code that changes objects in place (data.table's
# setDT, setattr, setnames) changes without making a new object (NA and NULL for the rest); `rows`
# is each object's JSON without "from", `json` with it.
held <- new.env(parent = emptyenv())

forgetDescriptions <- function() {
  held$names <- character()
  held$active <- logical()
  held$values <- list()
  held$kept <- logical()
  held$lengths <- integer()
  held$classes <- list()
  held$memberNames <- list()
  held$rows <- character()
  held$from <- character()
  held$json <- character()
}
forgetDescriptions()

# No function that holds the user's values makes a closure (not even an error handler): a closure
# keeps its frame alive, and R then never lowers the counts of the values that frame refers to.
nullOnError <- function(e) NULL
falseOnError <- function(e) FALSE

# Whether a value is small enough to hold: atomic vectors, functions, and plain lists and data
# frames of small atomic vectors.
holdable <- function(x) {
  type <- typeof(x)
  if (type %in% c("closure", "builtin", "special", "NULL")) return(TRUE)
  if (type %in% atomicTypes) return(length(x) <= 1e4)
  if (type != "list" || length(x) > 100L) return(FALSE)
  cls <- oldClass(x)
  if (!is.null(cls) && !identical(cls, "data.frame")) return(FALSE)
  for (i in seq_along(x)) {
    if (!(typeof(.subset2(x, i)) %in% atomicTypes) || length(.subset2(x, i)) > 1e4) return(FALSE)
  }
  TRUE
}

# Which of `now` are identical to `then`, element by element: whole blocks compare at C speed when
# nothing in them changed, so the cost follows the number of changed objects. The block lists are
# emptied before they are dropped (see describeObjects).
sameValues <- function(now, then) {
  n <- length(now)
  if (identical(now, then, num.eq = FALSE, single.NA = TRUE, ignore.srcref = FALSE)) return(rep.int(TRUE, n))
  same <- logical(n)
  block <- 128L
  starts <- if (n) seq.int(1L, n, by = block) else integer()
  for (start in starts) {
    idx <- start:min(n, start + block - 1L)
    a <- now[idx]
    b <- then[idx]
    if (identical(a, b, num.eq = FALSE, single.NA = TRUE, ignore.srcref = FALSE)) {
      same[idx] <- TRUE
    } else {
      for (k in seq_along(idx)) {
        same[idx[k]] <- identical(a[[k]], b[[k]], num.eq = FALSE, single.NA = TRUE, ignore.srcref = FALSE)
      }
    }
    a[] <- list(NULL)
    b[] <- list(NULL)
  }
  same
}

# The JSON of each object of `names` (sorted), reusing what is held.
describeObjects <- function(names, env) {
  n <- length(names)
  if (!n) {
    forgetDescriptions()
    return(character())
  }
  # The previous state's members, aligned with `names`.
  unchanged <- identical(names, held$names)
  pos <- if (unchanged) seq_len(n) else match(names, held$names)
  # A regular binding cannot turn active in place (makeActiveBinding refuses): only new names,
  # names that were active, and (below) names whose value changed need the (slow) check.
  active <- held$active[pos]
  check <- which(is.na(active) | active)
  if (length(check)) active[check] <- vapply(names[check], bindingIsActive, NA, env = env, USE.NAMES = FALSE)
  # Every list holding the user's values is emptied before it is dropped: R does not lower a
  # value's reference count when a list holding it is merely garbage, and a value counted twice
  # is copied on its next modification.
  values <- vector("list", n)
  if (any(!active)) {
    plain <- names[!active]
    # Assigned inside the handler's expression: a value returned through tryCatch stays counted.
    got <- NULL
    if (!tryCatch({ got <- mget(plain, envir = env, inherits = FALSE); TRUE }, error = falseOnError)) {
      got <- lapply(plain, function(name) {
        tryCatch(get(name, envir = env, inherits = FALSE), error = function(e) NULL)
      })
    }
    values[!active] <- got
    got[] <- list(NULL)
  }
  on.exit(values[] <- list(NULL))

  # Reuse: the same name bound to the object held for it (or one identical to it), with the same
  # shape where a shape is held.
  then <- if (unchanged) held$values else held$values[pos]
  same <- sameValues(values, then) & !is.na(pos) & !active
  same[same] <- held$kept[pos[same]]
  then[] <- list(NULL)
  # Removed and bound again as an active binding since the last state.
  check <- which(!same & !active & !is.na(pos))
  if (length(check)) {
    turned <- check[vapply(names[check], bindingIsActive, NA, env = env, USE.NAMES = FALSE)]
    active[turned] <- TRUE
    values[turned] <- list(NULL)
  }
  lens <- rep(NA_integer_, n)
  classes <- vector("list", n)
  memberNames <- vector("list", n)
  if (any(same)) {
    lens[same] <- held$lengths[pos[same]]
    classes[same] <- held$classes[pos[same]]
    memberNames[same] <- held$memberNames[pos[same]]
  }
  # Builtins only, no closure per object: this runs over every held list on every state.
  shaped <- which(same & !is.na(lens))
  if (length(shaped)) {
    some <- values[shaped]
    same[shaped] <- lengths(some, use.names = FALSE) == lens[shaped] &
      sameValues(lapply(some, oldClass), classes[shaped]) &
      sameValues(lapply(some, names), memberNames[shaped])
    some[] <- list(NULL)
  }
  rowText <- character(n)
  rowText[same] <- held$rows[pos[same]]
  todo <- which(!same)
  keep <- same
  if (length(todo)) {
    some <- values[todo]
    rows <- NULL
    if (!tryCatch({ rows <- describeAll(some, names[todo]); TRUE }, error = falseOnError)) {
      rows <- describeEach(some, names[todo])
    }
    rowText[todo] <- describeRows(rows, names[todo], active[todo])
    for (k in seq_along(todo)) {
      if (active[todo[k]] || !holdable(some[[k]])) next
      keep[todo[k]] <- TRUE
      if (!is.list(some[[k]])) next
      lens[todo[k]] <- length(some[[k]])
      classes[todo[k]] <- list(oldClass(some[[k]]))
      memberNames[todo[k]] <- list(names(some[[k]]))
    }
    some[] <- list(NULL)
  }
  kept <- values
  kept[!keep] <- list(NULL)
  lens[!keep] <- NA_integer_
  classes[!keep] <- list(NULL)
  memberNames[!keep] <- list(NULL)
  held$names <- names
  held$active <- active
  held$values <- kept
  held$kept <- keep
  held$lengths <- lens
  held$classes <- classes
  held$memberNames <- memberNames
  held$rows <- rowText
  kept[] <- list(NULL)

  from <- rep(NA_character_, n)
  lineageNames <- names(lineage)
  if (length(lineageNames)) {
    for (i in which(names %in% lineageNames)) {
      parents <- get(names[i], envir = lineage)
      parents <- parents[parents %in% names]
      if (length(parents)) from[i] <- json(I(parents))
    }
    stale <- setdiff(lineageNames, names)
    if (length(stale)) rm(list = stale, envir = lineage)
  }
  stale <- setdiff(ls(functionSummaries, all.names = TRUE, sorted = FALSE), names)
  if (length(stale)) rm(list = stale, envir = functionSummaries)
  # The full JSON again only where the row or its "from" changed.
  out <- held$json[pos]
  before <- held$from[pos]
  moved <- is.na(from) != is.na(before)
  moved[!moved & !is.na(from)] <- from[!moved & !is.na(from)] != before[!moved & !is.na(from)]
  redo <- which(!same | is.na(out) | moved)
  if (length(redo)) {
    withFrom <- redo[!is.na(from[redo])]
    out[redo] <- paste0(rowText[redo], "}")
    out[withFrom] <- paste0(rowText[withFrom], ',"from":', from[withFrom], "}")
  }
  held$from <- from
  held$json <- out
  out
}

# A member whose value is NA is left out. (Defined here rather than inside describeRows: a
# closure made there would keep that call's frame, and the values it refers to, counted.)
optionalMember <- function(key, values, encode = identity) {
  out <- character(length(values))
  present <- which(!is.na(values))
  if (length(present)) out[present] <- paste0(',"', key, '":', encode(values[present]))
  out
}

# The members of each object's JSON but "from", without the closing brace.
describeRows <- function(rows, names, active) {
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
  optional <- optionalMember
  paste0('{"name":', jsonString(names),
         ',"kind":"', rows$kind, '"',
         ',"class":', rows$class,
         ',"type":', jsonString(rows$type),
         optional("size", rows$size, jsonNumber),
         optional("length", rows$length, jsonNumber),
         optional("dim", rows$dim),
         optional("summary", rows$summary, jsonString),
         optional("columns", rows$columns))
}

# The fast path: one pass per property over all objects, per-object work only where an object
# needs it (vectors' leading elements, data frame columns, function digests).
describeAll <- function(values, names) {
  n <- length(values)
  type <- vapply(values, typeof, "", USE.NAMES = FALSE)
  classes <- lapply(values, class)
  keys <- unique(classes)
  keyJSON <- character(length(keys))
  for (k in seq_along(keys)) keyJSON[k] <- json(I(keys[[k]]))
  classJSON <- keyJSON[match(classes, keys)]
  isObject <- vapply(values, is.object, NA, USE.NAMES = FALSE)
  isFrame <- isObject
  if (any(isObject)) isFrame <- isObject & vapply(values, inherits, NA, what = "data.frame", USE.NAMES = FALSE)
  dims <- lapply(values, attr, which = "dim", exact = TRUE)
  if (any(isFrame)) {
    for (i in which(isFrame)) dims[[i]] <- c(.row_names_info(values[[i]], 2L), length(values[[i]]))
  }
  dimCount <- lengths(dims, use.names = FALSE)
  isFunction <- type %in% c("closure", "builtin", "special")
  isAtomic <- type %in% atomicTypes
  # POSIXlt is a list underneath, a value to the user.
  isTime <- isObject & type == "list" & !isFrame
  if (any(isTime)) isTime <- isTime & vapply(values, inherits, NA, what = "POSIXlt", USE.NAMES = FALSE)
  isList <- type == "list" & !isFrame & !isTime
  # attributes() would expand a data frame's compact row names: frames are never bare.
  bare <- !isFrame
  for (i in which(bare)) bare[i] <- is.null(attributes(values[[i]]))
  hasClass <- isObject
  len <- rep(NA_real_, n)
  measured <- isAtomic | type == "list"
  len[measured] <- as.numeric(lengths(values, use.names = FALSE)[measured])
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
    x <- vector(t, length(idx))
    for (k in seq_along(idx)) x[k] <- values[[idx[k]]]
    summary[idx] <- switch(t,
      double = sprintf("%.7g", x),
      character = ifelse(is.na(x), "NA", encodeString(shorten(x, 100L), quote = "\"")),
      ifelse(is.na(x), "NA", as.character(x)))
  }
  vectors <- which(isAtomic & !hasClass & dimCount == 0L & len != 1 & type != "complex")
  if (length(vectors)) {
    heads <- vector("list", length(vectors))
    for (k in seq_along(vectors)) heads[[k]] <- values[[vectors[k]]][1:5]
    summary[vectors] <- vectorSummaries(heads, type[vectors], len[vectors])
  }
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
    for (i in frames) columns[i] <- frameColumns(values[[i]])
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
    for (i in listLike) if (sizeIsCheap(values[[i]])) size[i] <- objectSize(values[[i]])
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
    d <- tryCatch(describe(values[[i]], names[i]), error = nullOnError)
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
    out$columns <- frameColumns(x)
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

# The columns (first 50) of a data frame, as a JSON array.
frameColumns <- function(f) {
  count <- min(length(f), 50L)
  if (!count) return("[]")
  colNames <- names(f)
  colNames <- if (is.null(colNames)) rep.int("", count) else colNames[seq_len(count)]
  colNames[is.na(colNames)] <- ""
  colTypes <- character(count)
  for (j in seq_len(count)) colTypes[j] <- class(.subset2(f, j))[1L]
  paste0("[", paste0('{"name":', jsonString(colNames), ',"type":', jsonString(colTypes), "}",
                     collapse = ","), "]")
}

# Joins consecutive runs of `text` (of the given sizes, all above 0) with `sep`, in one pass.
joinRuns <- function(text, sizes, sep) {
  if (!length(sizes)) return(character())
  seps <- rep.int(sep, length(text))
  seps[cumsum(sizes)] <- "\x01"
  strsplit(paste0(text, seps, collapse = ""), "\x01", fixed = TRUE)[[1L]]
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
  # Not vapply over x: for a data frame it goes through as.list(), which copies the frame.
  types <- character(length(x))
  for (i in seq_along(x)) types[i] <- typeof(.subset2(x, i))
  if (!all(types %in% c(atomicTypes, "NULL", "list"))) return(FALSE)
  if (any(types == "character" & lengths(x, use.names = FALSE) > 1e4)) return(FALSE)
  for (i in which(types == "list")) if (!sizeIsCheap(.subset2(x, i), depth + 1L)) return(FALSE)
  plain <- which(types %in% atomicTypes)
  if (length(plain)) {
    decorated <- integer()
    for (j in plain) if (!is.null(attributes(.subset2(x, j)))) decorated <- c(decorated, j)
    for (i in decorated) if (!sizeIsCheap(.subset2(x, i), depth + 1L)) return(FALSE)
  }
  TRUE
}

