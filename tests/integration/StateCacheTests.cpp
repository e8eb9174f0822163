// The state event reuses the descriptions of unchanged objects: what it reports must equal a
// description made from scratch, and reading the user's values must not make R copy them.
#include "JSONValue.h"
#include "LiveSession.h"

#include <gtest/gtest.h>

namespace {

std::string text(const QString &s)
{
    return s.toStdString();
}

// Random assignments, removals and in-place modifications of many kinds, in R; every 50 steps
// the kernel's state is compared with one made after forgetting every held description. Prints
// the number of steps compared and the names whose descriptions differed.
const char *randomWorkload = R"(local({
  set.seed(20240611)
  g <- globalenv()
  pool <- sprintf("v%03d", 1:150)
  makers <- list(
    function() runif(sample(0:12, 1)),
    function() sample(letters, sample(1:8, 1), TRUE),
    function() seq_len(sample(1:3e4, 1)),
    function() as.character(seq_len(sample(c(5, 2e4), 1))),
    function() factor(sample(c("lo", "mid", "hi"), 6, TRUE)),
    function() data.frame(a = runif(5), b = letters[1:5]),
    function() data.frame(a = seq_len(2e4), b = rep("x", 2e4)),
    function() list(1, "a", TRUE),
    function() list(a = list(1, 2), e = new.env()),
    function() { k <- sample(1:1e3, 1); eval(bquote(function(x) x + .(k))) },
    function() new.env(),
    function() matrix(runif(6), 2),
    function() as.Date("2024-01-01") + sample(0:9, 3),
    function() sample(c(TRUE, FALSE, NA), 4, TRUE),
    function() NULL,
    function() -0,
    function() quote(a + b))
  modify <- function(name) {
    x <- get(name, envir = g)
    if (is.environment(x)) { assign("inside", runif(1), envir = x); return() }
    if (is.function(x) || is.null(x) || is.language(x)) return()
    code <- switch(sample(7, 1),
      quote(x[1] <- x[length(x)]),
      quote(x[length(x) + 1] <- x[1]),
      quote(names(x) <- rev(seq_along(x))),
      quote(attr(x, "note") <- runif(1)),
      quote(if (is.data.frame(x)) x$a[1] <- -1 else if (is.list(x)) x[[1]] <- "changed" else x[1] <- NA),
      quote(if (is.factor(x)) levels(x)[1] <- "new" else if (!is.list(x)) x[2] <- x[1]),
      quote(if (length(x) > 1) length(x) <- length(x) - 1))
    # Evaluated on the global binding itself, so that R modifies the value in place.
    tryCatch(eval(do.call(substitute, list(code, list(x = as.name(name)))), g), error = function(e) NULL)
  }
  compared <- 0L
  differing <- character()
  for (step in 1:10000) {
    name <- sample(pool, 1)
    present <- exists(name, envir = g, inherits = FALSE)
    active <- present && bindingIsActive(name, g)
    op <- sample(c("assign", "assign", "modify", "modify", "modify", "remove", "active"), 1)
    if (op == "remove" && present) rm(list = name, envir = g)
    else if (op == "active" && !present) makeActiveBinding(name, local({ n <- step; function() n }), g)
    else if (op == "modify" && present && !active) modify(name)
    else if (op != "active" && !active) assign(name, sample(makers, 1)[[1]](), envir = g)
    if (step %% 50 == 0) {
      cached <- .vesk$stateJSON(full = TRUE)
      .vesk$forgetDescriptions()
      fresh <- .vesk$stateJSON(full = TRUE)
      compared <- compared + 1L
      if (!identical(cached, fresh)) differing <- c(differing, step)
    }
  }
  cat("compared", compared, "differing", length(differing), differing[seq_len(min(5, length(differing)))], "\n")
}))";

struct StateSession : LiveSession {
    QString output(const QString &code)
    {
        const ExecResult result = run(code);
        EXPECT_TRUE(result.ok) << text(code) << "\n"
                               << text(result.error ? result.error->message : QString());
        return result.output.trimmed();
    }
};

} // namespace

TEST(StateCache, AfterRandomChangesTheStateEqualsAFreshDescription)
{
    StateSession s;
    s.timeout = std::chrono::minutes(3);
    ASSERT_TRUE(s.start());
    EXPECT_EQ(s.output(QString::fromUtf8(randomWorkload)), u"compared 200 differing 0"_qs);

    // The event the session received after the run, too.
    const QString last = s.output(u"local({ a <- .vesk$stateJSON(); .vesk$forgetDescriptions();"
                                  u" cat(identical(a, .vesk$stateJSON())) })"_qs);
    EXPECT_EQ(last, u"TRUE"_qs);
}

// Copies R makes of a large vector, a data frame and a list modified in place after the state
// events of earlier runs, against the copies R makes of the same without a state in between. (The
// values are made inside local(): the value of a top-level assignment goes to .Last.value.)
TEST(StateCache, ValuesModifiedInPlaceAreNotCopiedBecauseOfTheKernel)
{
    StateSession s;
    ASSERT_TRUE(s.start());
    const QString make = u"local({ g <- globalenv(); assign(\"x\", runif(1e6), g);"
                         u" assign(\"frame\", data.frame(a = runif(1e5), b = as.character(1:1e5)), g);"
                         u" assign(\"lst\", list(runif(1e5), 2), g); invisible() })\n"_qs;
    const QString trace =
        u"invisible(tracemem(x)); invisible(tracemem(frame)); invisible(tracemem(lst))\n"_qs;
    const QString vector = u"for (i in 1:5) x[i] <- 0"_qs;
    const QString others = u"for (i in 1:5) frame[[1]][i] <- 0; frame$b[1] <- \"z\"; lst[[1]][1] <- 0"_qs;
    const auto copies = [&](const QString &code) { return s.output(code).count(u"tracemem["_qs); };
    const qsizetype alone = copies(make + trace + others);
    s.output(make);
    // Several state events: a count raised by each would add up.
    s.output(u"invisible(1)"_qs);
    s.output(u"invisible(2)"_qs);
    EXPECT_EQ(copies(trace + vector), 0);
    EXPECT_EQ(copies(others), alone);

    // A value assigned at the top level, as R's own console leaves it: counted by its binding
    // and .Last.value only, so once .Last.value moves on, changing it in place copies nothing.
    s.output(u"y <- runif(1e6)"_qs);
    s.output(u"z <- list(runif(1e5))"_qs);
    EXPECT_EQ(copies(u"invisible(tracemem(y)); y[1] <- 0; y[2] <- 0"_qs), 0);
    EXPECT_EQ(copies(u"invisible(tracemem(z[[1]])); z[[1]][1] <- 0"_qs), 0);
}

// After the first state the kernel sends only what changed; the session's merged snapshot must
// equal a full description after every run, in R's order, names beyond the BMP included.
TEST(StateCache, PartialStatesMergeIntoTheFullSnapshot)
{
    StateSession s;
    ASSERT_TRUE(s.start());
    s.output(QString::fromUtf8(R"(local({
      e <- attach(NULL, name = "test:churn")
      e$churn <- function(seed) {
        set.seed(seed)
        g <- globalenv()
        pool <- c(sprintf("v%02d", 1:40), "\u00e41", "Z", "\u03a9", "\U0001F600x", "\uFF01", "a.b", "x\u00e9")
        for (i in 1:25) {
          name <- sample(pool, 1)
          switch(sample(5, 1),
            assign(name, runif(sample(1:3, 1)), envir = g),
            if (exists(name, envir = g, inherits = FALSE)) rm(list = name, envir = g),
            assign(name, data.frame(a = seq_len(sample(c(3, 2e4), 1))), envir = g),
            if (is.numeric(g[[name]])) eval(call("<-", call("[", as.name(name), 1), -1), g),
            assign(name, list(sample(letters, 2)), envir = g))
        }
      }
    }))"));
    for (int run = 1; run <= 40; ++run) {
        s.output(u"churn(%1)"_qs.arg(run));
        const QList<SessionEvent> states = s.eventsSince(0, SessionEvent::Kind::State);
        ASSERT_FALSE(states.isEmpty());
        const QList<REnvObject> merged = states.last().state.env;
        const QString full = s.output(u"cat(.vesk$stateJSON(full = TRUE))"_qs);
        const std::optional<JSONValue> frame = JSONValue::parse(QStringView(full));
        ASSERT_TRUE(frame && frame->find(u"state")) << text(full.left(200));
        const std::optional<RSessionState> fresh = RSessionState::fromJSON(*frame->find(u"state"));
        ASSERT_TRUE(fresh.has_value());
        ASSERT_FALSE(fresh->partial);
        QStringList mergedNames, freshNames;
        for (const REnvObject &object : merged)
            mergedNames.append(object.name);
        for (const REnvObject &object : fresh->env)
            freshNames.append(object.name);
        ASSERT_EQ(text(mergedNames.join(u' ')), text(freshNames.join(u' '))) << "run " << run;
        ASSERT_TRUE(merged == fresh->env) << "run " << run;
    }
    // The names outside the BMP and the fullwidth sign came in R's order.
    const QList<REnvObject> last = s.eventsSince(0, SessionEvent::Kind::State).last().state.env;
    EXPECT_TRUE(std::is_sorted(last.begin(), last.end(), [](const REnvObject &a, const REnvObject &b) {
        return RSessionState::nameBefore(a.name, b.name);
    }));
}
