#include "BatchRunner.h"

#include "ToolLocator.h"

#include <QByteArray>
#include <QCoreApplication>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace BatchRunner {

std::optional<Program> program(const BatchCommand &command, const QString &preferredR)
{
    const auto executable =
        RLocator::find(preferredR.isEmpty() ? std::nullopt : std::optional<QString>(preferredR));
    if (!executable)
        return std::nullopt;
    return Program{*executable, command.rArguments};
}

int exec(const Program &program)
{
    std::vector<QByteArray> storage;
    storage.push_back(program.executable.toLocal8Bit());
    for (const QString &argument : program.arguments)
        storage.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &argument : storage)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    // R must see a closed pipe as R does under Rscript (`vesk --batch x.R | head` ends it).
    ::signal(SIGPIPE, SIG_DFL);
    std::fflush(stdout);
    std::fflush(stderr);
    ::execv(argv[0], argv.data());
    const int error = errno;
    ::signal(SIGPIPE, SIG_IGN);
    std::fprintf(stderr, "Could not start R (%s): %s\n", argv[0], std::strerror(error));
    return 127;
}

int run(const BatchCommand &command, const QString &preferredR)
{
    switch (command.kind) {
    case BatchCommand::Kind::Help:
        std::fputs(BatchCommand::usage().toLocal8Bit().constData(), stdout);
        return 0;
    case BatchCommand::Kind::Version:
        std::printf("Vesk %s\n", qPrintable(QCoreApplication::applicationVersion()));
        return 0;
    case BatchCommand::Kind::Invalid:
        std::fprintf(stderr, "%s\n\n%s", qPrintable(command.error), qPrintable(BatchCommand::usage()));
        return 2;
    case BatchCommand::Kind::Run:
        if (const auto found = program(command, preferredR))
            return exec(*found);
        std::fputs("R is not installed. Install it from CRAN, then restart Vesk.\n", stderr);
        return 127;
    case BatchCommand::Kind::Window:
        break;
    }
    return 0;
}

} // namespace BatchRunner
