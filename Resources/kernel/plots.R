# Plots: the recording device, its numbered pages, renders, exports and the plot theme.

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
