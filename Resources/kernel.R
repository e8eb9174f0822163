# The Vesk kernel: sourced into the user's R process at start-up. It frames structured events on
# standard output with the session token, installs the prompts Vesk reads, runs the client's code as
# the console would, and answers the client's named requests.
#
# Everything it defines lives in the environment `.vesk`, attached to the search path as "tools:vesk",
# so the global environment shows only the user's objects. The functions are defined with `.vesk` as
# their environment, whose parent is the base environment: user objects never shadow what the kernel
# calls (non-base functions are always called with `::`).
#
# The kernel is in parts, one file a concern, in the folder `kernel` beside this file. Each part is
# evaluated in `.vesk` in the order of `parts`; a part may call what an earlier one defined.
# Requests to come each take a part of their own, added to `parts`: help.R, completion.R,
# parseCheck.R and debugger.R.
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

  # The folder of this file: source() keeps the name it was given as `ofile`.
  here <- NULL
  for (i in rev(seq_len(sys.nframe()))) {
    if (identical(sys.function(i), base::source)) {
      here <- dirname(get("ofile", envir = sys.frame(i)))
      break
    }
  }
  if (!is.character(here)) stop("the Vesk kernel must be sourced with source()")
  vesk$vesk <- vesk
  parts <- c("protocol.R", "execution.R", "environment.R", "inspect.R", "data.R", "input.R",
             "plots.R", "packages.R")
  for (part in file.path(here, "kernel", parts)) {
    # Without source references the kernel parses in half the time; its frames need none.
    for (expr in parse(part, keep.source = FALSE, encoding = "UTF-8")) eval(expr, vesk)
  }

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
