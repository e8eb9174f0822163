# The package library: what is installed, what the session's repositories offer, and what is newer
# there. Reads only; whatever changes the library or the search path runs as console code.

# ---- Installed packages ----------------------------------------------------------------------
# installed.packages() reads each package's Meta/package.rds (about 0.15 ms a package) and keeps
# its cache in a file per library. Reading the DESCRIPTION files and parsing them all in one
# read.dcf() costs half that, and the listing of a library is kept here until the folder changes
# (an installation or removal renames a folder in it, which changes the folder's time).
libraryListings <- list()

libraryListing <- function(lib) {
  time <- file.mtime(lib)
  known <- libraryListings[[lib]]
  if (!is.null(known) && identical(known$time, time)) return(known$listing)
  listing <- tryCatch(readLibrary(lib), error = function(e) NULL)
  if (is.null(listing)) listing <- readLibraryAsR(lib)
  libraryListings[[lib]] <<- list(time = time, listing = listing)
  listing
}

readLibrary <- function(lib) {
  files <- file.path(lib, list.files(lib), "DESCRIPTION")
  sizes <- file.size(files)
  files <- files[!is.na(sizes) & sizes > 0]
  sizes <- sizes[!is.na(sizes) & sizes > 0]
  if (!length(files)) return(emptyListing())
  text <- vapply(seq_along(files), function(i) readChar(files[i], sizes[i], useBytes = TRUE), "")
  con <- textConnection(paste(text, collapse = "\n\n"), encoding = "bytes")
  on.exit(close(con))
  fields <- read.dcf(con, fields = c("Package", "Version", "Title", "Priority", "Built", "Encoding"))
  # Only installed packages carry "Built"; a source folder lying in a library is none.
  fields <- fields[!is.na(fields[, "Package"]) & !is.na(fields[, "Built"]), , drop = FALSE]
  title <- gsub("[[:space:]]+", " ", fields[, "Title"], useBytes = TRUE)
  encoding <- fields[, "Encoding"]
  for (enc in unique(encoding[!is.na(encoding)])) {
    at <- which(encoding == enc)
    title[at] <- iconv(title[at], enc, "UTF-8", sub = "?")
  }
  data.frame(name = fields[, "Package"], version = fields[, "Version"], title = title,
             priority = fields[, "Priority"], stringsAsFactors = FALSE)
}

readLibraryAsR <- function(lib) {
  found <- utils::installed.packages(lib.loc = lib, fields = "Title")
  if (!nrow(found)) return(emptyListing())
  data.frame(name = found[, "Package"], version = found[, "Version"],
             title = gsub("[[:space:]]+", " ", found[, "Title"]), priority = found[, "Priority"],
             stringsAsFactors = FALSE)
}

emptyListing <- function() {
  data.frame(name = character(), version = character(), title = character(), priority = character(),
             stringsAsFactors = FALSE)
}

request("packages", function() {
  libs <- .libPaths()
  listings <- lapply(libs, libraryListing)
  all <- do.call(rbind, listings)
  all$library <- rep.int(libs, vapply(listings, nrow, 0L))
  # A package in two libraries is the one library() finds: the first.
  all <- all[!duplicated(all$name), , drop = FALSE]
  if (!nrow(all)) return(jsonText("[]"))
  attached <- all$name %in% sub("^package:", "", grep("^package:", search(), value = TRUE))
  loaded <- attached | all$name %in% loadedNamespaces()
  # Encoded as one array of objects at once: 500 packages through json() would cost 500 calls.
  optional <- function(key, values) ifelse(is.na(values), "", paste0(',"', key, '":', jsonString(values)))
  items <- paste0('{"name":', jsonString(all$name), ',"version":', jsonString(all$version),
                  optional("library", all$library), optional("title", all$title),
                  optional("priority", all$priority),
                  ',"attached":', ifelse(attached, "true", "false"),
                  ',"loaded":', ifelse(loaded, "true", "false"), "}")
  jsonText(paste0("[", paste(items, collapse = ","), "]"))
})

# ---- Repositories -----------------------------------------------------------------------------
# The session's repositories, with a mirror where R would ask for one: a request never prompts.
sessionRepos <- function() {
  repos <- getOption("repos")
  repos[repos == "@CRAN@"] <- "https://cloud.r-project.org"
  if (!length(repos)) stop("No package repository is set (options(repos)).")
  repos
}

# R reports an unreachable repository as a warning and an empty index (a file:// one as an error
# after a warning that names the file); the request fails with the warning's words.
availableIndex <- function() {
  problem <- NULL
  index <- tryCatch(withCallingHandlers(utils::available.packages(repos = sessionRepos()),
    warning = function(w) {
      if (is.null(problem)) problem <<- conditionMessage(w)
      invokeRestart("muffleWarning")
    }), error = function(e) stop(problem %||% conditionMessage(e), call. = FALSE))
  if (!nrow(index) && !is.null(problem)) stop(problem, call. = FALSE)
  index
}

request("available", function() {
  list(names = I(unname(sort(unique(availableIndex()[, "Package"])))))
})

request("outdated", function() {
  index <- availableIndex()
  old <- utils::old.packages(repos = sessionRepos(), available = index, checkBuilt = FALSE)
  if (is.null(old) || !nrow(old)) return(list())
  old <- old[!duplicated(old[, "Package"]), , drop = FALSE]
  lapply(seq_len(nrow(old)), function(i) {
    list(name = old[i, "Package"], available = old[i, "ReposVer"], installed = old[i, "Installed"],
         library = old[i, "LibPath"])
  })
})
