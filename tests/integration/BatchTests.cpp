// `vesk --batch` against Rscript on the same scripts: standard output, standard error and the exit
// status must be the same bytes, with standard input closed, empty or holding answers, and no run
// may hang (each has a time limit of its own and fails when it runs out).
#include "App/BatchRunner.h"
#include "TestSupport.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace std::chrono_literals;
using TestSupport::Input;
using TestSupport::ProgramRun;

namespace {

struct BatchFixture {
    QTemporaryDir dir;

    QString write(const QString &name, const QByteArray &content)
    {
        return TestSupport::writeFile(dir.path(), name, content);
    }
    ProgramRun vesk(const QStringList &arguments, Input input, const QByteArray &bytes = {})
    {
        const auto program = BatchRunner::program(BatchCommand::parse(arguments), TestSupport::rExecutable());
        EXPECT_TRUE(program.has_value());
        if (!program)
            return {};
        return TestSupport::runProgram(program->executable, program->arguments, input, bytes, 60s,
                                       dir.path());
    }
    ProgramRun rscript(const QStringList &arguments, Input input, const QByteArray &bytes = {})
    {
        return TestSupport::runProgram(TestSupport::rscriptExecutable(), arguments, input, bytes, 60s,
                                       dir.path());
    }
};

void expectSame(const ProgramRun &vesk, const ProgramRun &rscript)
{
    EXPECT_FALSE(vesk.timedOut) << "vesk --batch hung";
    EXPECT_FALSE(rscript.timedOut) << "Rscript hung";
    EXPECT_EQ(vesk.status, rscript.status);
    EXPECT_EQ(vesk.out.toStdString(), rscript.out.toStdString());
    EXPECT_EQ(vesk.err.toStdString(), rscript.err.toStdString());
}

} // namespace

TEST(Batch, PrintsWhatRscriptPrints)
{
    BatchFixture f;
    const QString sourced = f.write(u"sourced.R"_qs, "y <- 2\nprint(y)\nwarning(\"inside\")\n");
    struct Script {
        const char *name;
        QByteArray code;
    };
    const Script scripts[] = {
        {"wide frame", "set.seed(1)\nm <- matrix(round(rnorm(40 * 25), 3), 40)\nprint(as.data.frame(m))\n"
                       "print(head(mtcars))\n"},
        {"str and summary(lm)", "str(mtcars)\nstr(list(a = 1:3, b = letters))\n"
                                "summary(lm(mpg ~ wt + hp, data = mtcars))\n"},
        {"factors", "f <- factor(c(\"lo\", \"hi\", \"lo\", NA), levels = c(\"lo\", \"hi\"))\nf\ntable(f, "
                    "useNA = \"ifany\")\nsummary(f)\n"},
        {"UTF-8", "x <- c(\"caf\\u00e9\", \"na\\u00efve\", \"\\u65e5\\u672c\\u8a9e\")\nprint(x)\ncat(x, "
                  "\"\\n\")\nnchar(x)\n"},
        {"cli progress bar", "f <- function() { cli::cli_progress_bar(\"Working\", total = 20)\n"
                             "for (i in 1:20) { Sys.sleep(0.01); cli::cli_progress_update() } }\nf()\n"
                             "cli::cli_alert_success(\"done\")\n"},
        {"a million numbers", "print(1:1e6)\n"},
        {"one warning", "f <- function(x) { warning(\"careful: \", x); x }\nf(1)\ncat(\"after\\n\")\n"},
        {"several warnings", "g <- function() { for (i in 1:3) warning(paste(\"w\", i)); 0 }\ng()\n"},
        {"fifty and more warnings", "for (i in 1:60) warning(paste(\"w\", i))\ncat(\"end\\n\")\n"},
        {"messages and output interleaved",
         "for (i in 1:3) { cat(\"out\", i, \"\\n\"); message(\"msg \", i) }\n"},
        {"an error deep in calls", "inner <- function() stop(\"boom\")\nouter <- function() inner()\n"
                                   "cat(\"before\\n\")\nouter()\ncat(\"never\\n\")\n"},
        {"an empty argument", "x <- c(1, 2, )\n"},
        {"warning then error", "warning(\"first\")\nstop(\"second\")\n"},
        {"interactive", "print(interactive())\n"},
        {"the browser", "f <- function() { browser(); 1 }\nprint(f())\ncat(\"went on\\n\")\n"},
        {"q with a status", "cat(\"bye\\n\")\nq(status = 3)\n"},
        {"quit without saving", "quit(save = \"no\", status = 5)\n"},
        {"source with echo", QByteArray("source(\"") + sourced.toUtf8() + "\", echo = TRUE)\n"},
        {"example", "example(mean)\n"},
        {"prompt options", "options(prompt = \"R> \")\nwithAutoprint({ x <- 1; x })\n"
                           "print(options()[c(\"prompt\", \"continue\")])\n"},
    };
    for (const Script &script : scripts) {
        SCOPED_TRACE(script.name);
        const QString path = f.write(u"script.R"_qs, script.code);
        expectSame(f.vesk({u"--batch"_qs, path}, Input::Empty), f.rscript({path}, Input::Empty));
    }
}

TEST(Batch, ReadsStandardInputAsRscriptDoes)
{
    BatchFixture f;
    struct Script {
        const char *name;
        QByteArray code;
    };
    const Script scripts[] = {
        {"readline", "x <- readline(\"Name? \")\ncat(\"got [\", x, \"]\\n\", sep = \"\")\n"},
        {"menu",
         "m <- tryCatch(utils::menu(c(\"a\", \"b\")), error = function(e) conditionMessage(e))\nprint(m)\n"},
        {"scan", "s <- scan(n = 2)\nprint(s)\n"},
        {"readLines(stdin())", "l <- readLines(stdin())\nprint(l)\n"},
        {"file(\"stdin\")", "con <- file(\"stdin\")\nprint(readLines(con, n = 1))\nclose(con)\n"},
    };
    const struct {
        const char *name;
        Input input;
        QByteArray bytes;
    } inputs[] = {
        {"closed", Input::Closed, {}},
        {"empty", Input::Empty, {}},
        {"answers", Input::Bytes, "Ada\n2 3\nmore\n"},
    };
    for (const Script &script : scripts) {
        const QString path = f.write(u"input.R"_qs, script.code);
        for (const auto &input : inputs) {
            SCOPED_TRACE(std::string(script.name) + ", standard input " + input.name);
            expectSame(f.vesk({u"--batch"_qs, path}, input.input, input.bytes),
                       f.rscript({path}, input.input, input.bytes));
        }
    }
}

// Expressions, the script's own arguments, a missing file, and --echo with R's own prompts.
TEST(Batch, ExpressionsArgumentsAndEcho)
{
    BatchFixture f;
    const QString args = f.write(u"args.R"_qs, "print(commandArgs(trailingOnly = TRUE))\n");
    expectSame(f.vesk({u"--batch"_qs, args, u"a b"_qs, u"--c"_qs}, Input::Empty),
               f.rscript({args, u"a b"_qs, u"--c"_qs}, Input::Empty));
    expectSame(f.vesk({u"-e"_qs, u"x <- 2"_qs, u"-e"_qs, u"x^2"_qs}, Input::Empty),
               f.rscript({u"-e"_qs, u"x <- 2"_qs, u"-e"_qs, u"x^2"_qs}, Input::Empty));
    const QString missing = f.dir.filePath(u"missing.R"_qs);
    expectSame(f.vesk({u"--batch"_qs, missing}, Input::Empty), f.rscript({missing}, Input::Empty));

    const QString echoed = f.write(u"echoed.R"_qs, "x <- 1:3\nif (TRUE) {\n  x * 2\n}\n");
    const ProgramRun run = f.vesk({u"--batch"_qs, u"--echo"_qs, echoed}, Input::Empty);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.toStdString(), "> x <- 1:3\n> if (TRUE) {\n+   x * 2\n+ }\n[1] 2 4 6\n> \n");
}

TEST(Batch, CommandLineIsRead)
{
    using Kind = BatchCommand::Kind;
    const struct {
        QStringList arguments;
        Kind kind;
        QStringList rArguments;
    } cases[] = {
        {{}, Kind::Window, {}},
        {{"project"}, Kind::Window, {}},
        {{"--help"}, Kind::Help, {}},
        {{"--version"}, Kind::Version, {}},
        {{"--batch"}, Kind::Invalid, {}},
        {{"--batch", "-e"}, Kind::Invalid, {}},
        {{"--batch", "--loud", "a.R"}, Kind::Invalid, {}},
        {{"--batch", "a.R", "-e", "x"},
         Kind::Run,
         {"--no-echo", "--no-restore", "--file=a.R", "--args", "-e", "x"}},
        {{"--batch", "--echo", "a.R"}, Kind::Run, {"--quiet", "--no-restore", "--file=a.R"}},
        {{"-e", "1", "-e", "2"}, Kind::Run, {"--no-echo", "--no-restore", "-e", "1", "-e", "2"}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.arguments.join(u' ').toStdString());
        const BatchCommand command = BatchCommand::parse(c.arguments);
        EXPECT_EQ(command.kind, c.kind);
        EXPECT_EQ(command.rArguments, c.rArguments);
        EXPECT_EQ(command.kind == Kind::Invalid, !command.error.isEmpty());
    }
}

#ifdef VESK_APP_BUILT
// The executable itself, with no display at all: help, version and a batch run.
TEST(Batch, ExecutableNeedsNoDisplay)
{
    BatchFixture f;
    const QString vesk = QStringLiteral(VESK_BINARY_DIR "/vesk");
    qunsetenv("DISPLAY");
    qunsetenv("WAYLAND_DISPLAY");
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    qunsetenv("QT_QPA_PLATFORM");
    const ProgramRun help = TestSupport::runProgram(vesk, {u"--help"_qs}, Input::Empty, {}, 30s);
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.out.startsWith("Usage: vesk")) << help.out.toStdString();
    const ProgramRun version = TestSupport::runProgram(vesk, {u"--version"_qs}, Input::Empty, {}, 30s);
    EXPECT_EQ(version.out, "Vesk " VESK_VERSION_TEXT "\n");
    const QString script = f.write(u"s.R"_qs, "cat(\"hi\\n\")\nwarning(\"w\")\nq(status = 4)\n");
    expectSame(TestSupport::runProgram(vesk, {u"--batch"_qs, script}, Input::Empty, {}, 30s),
               f.rscript({script}, Input::Empty));
    const ProgramRun bad = TestSupport::runProgram(vesk, {u"--batch"_qs}, Input::Empty, {}, 30s);
    EXPECT_EQ(bad.status, 2);
    EXPECT_TRUE(bad.err.contains("Usage: vesk"));
    qputenv("QT_QPA_PLATFORM", platform);
}
#endif
