#include "CommandOutput.h"

#include "ChildReader.h"
#include "PosixChild.h"
#include "TextUnits.h"

#include <QByteArray>

#include <csignal>

namespace CommandOutput {

std::optional<QString> run(const QStringList &arguments, const std::optional<QStringList> &environment,
                           std::chrono::milliseconds timeout)
{
    if (arguments.isEmpty())
        return std::nullopt;
    PosixChild child;
    PosixChild::Options options;
    options.program = arguments.first();
    options.arguments = arguments.mid(1);
    options.environment = environment.value_or(PosixChild::systemEnvironment());
    options.pipeStdin = false;
    if (!child.start(options, nullptr))
        return std::nullopt;

    ChildReader reader(child.pid(), child.stdoutFd(), child.stderrFd(), child.exitFd());
    child.releaseDescriptors();
    QByteArray output;
    reader.onStdout = [&](QByteArrayView bytes) { output.append(bytes); };
    reader.deadline = std::chrono::steady_clock::now() + timeout;
    if (!reader.run()) {
        ::kill(child.pid(), SIGKILL);
        PosixChild::wait(child.pid());
        return std::nullopt;
    }
    return TextUnits::decodeUTF8(output);
}

} // namespace CommandOutput
