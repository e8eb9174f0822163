// The time from sending a user message to the first text delta, through ClaudeCodeProcess and
// through the same claude run directly (a child whose stdout is read by a plain poll loop, as a
// shell pipe would), both against the scripted Messages API with the same one-line turn. The two
// children live side by side and take turns, so the machine's drift hits both alike; the difference
// of the medians is what Vesk adds (its reader thread, line framing, parsing and the hop to the
// main thread).
#include "BenchFigures.h"
#include "ClaudeCodeProcess.h"
#include "PosixChild.h"
#include "ScriptedMessagesAPI.h"
#include "TestSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <optional>

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

namespace {

double millisecondsSince(Clock::time_point start, Clock::time_point end)
{
    return std::chrono::duration<double, std::milli>(end - start).count();
}

QByteArray userLine(const QString &text)
{
    return JSONValue{{QStringLiteral("type"), "user"},
                     {QStringLiteral("message"),
                      JSONValue{{QStringLiteral("role"), "user"},
                                {QStringLiteral("content"),
                                 JSONValue::array({JSONValue{{QStringLiteral("type"), "text"},
                                                             {QStringLiteral("text"), text}}})}}}}
               .serialized() +
           '\n';
}

// claude run directly: writes a line to its stdin and reads its stdout itself.
class DirectClaude {
public:
    bool start(const ClaudeCodeConfiguration &configuration)
    {
        PosixChild::Options options;
        options.program = configuration.executable;
        options.arguments = configuration.arguments();
        options.workingDirectory = configuration.workingDirectory;
        // The environment ClaudeCodeProcess gives its child, so that only the plumbing differs.
        options.environment = PosixChild::systemEnvironment();
        QString path = QStringLiteral("/usr/bin:/bin");
        options.environment.removeIf([&](const QString &entry) {
            if (entry.startsWith(u"PATH="))
                path = entry.mid(5);
            return entry.startsWith(u"PATH=") || entry.startsWith(u"CLAUDE_CODE_ENTRYPOINT=");
        });
        options.environment << QStringLiteral("PATH=%1:%2:/usr/local/bin:/opt/homebrew/bin")
                                   .arg(QFileInfo(configuration.executable).absolutePath(), path)
                            << QStringLiteral("CLAUDE_CODE_ENTRYPOINT=sdk-vesk");
        QString error;
        if (!m_child.start(options, &error)) {
            std::fprintf(stderr, "claude did not start: %s\n", qPrintable(error));
            return false;
        }
        ::fcntl(m_child.stderrFd(), F_SETFL, O_NONBLOCK);
        return true;
    }

    // Sends the line and reads until the turn's result; the milliseconds to the first text delta, or
    // nothing if the turn did not stream one within the time limit.
    std::optional<double> turn(const QString &text)
    {
        const QByteArray line = userLine(text);
        const Clock::time_point sent = Clock::now();
        if (::write(m_child.stdinFd(), line.constData(), size_t(line.size())) != line.size())
            return std::nullopt;
        std::optional<double> firstDelta;
        const Clock::time_point until = sent + 60s;
        char buffer[65536];
        while (Clock::now() < until) {
            pollfd fds[2] = {{m_child.stdoutFd(), POLLIN, 0}, {m_child.stderrFd(), POLLIN, 0}};
            if (::poll(fds, 2, 1000) <= 0)
                continue;
            if (fds[1].revents)
                while (::read(m_child.stderrFd(), buffer, sizeof buffer) > 0) {
                }
            if (!fds[0].revents)
                continue;
            const ssize_t n = ::read(m_child.stdoutFd(), buffer, sizeof buffer);
            if (n <= 0)
                return std::nullopt;
            const Clock::time_point now = Clock::now();
            m_pending.append(buffer, n);
            qsizetype newline;
            while ((newline = m_pending.indexOf('\n')) >= 0) {
                const QByteArray stdoutLine = m_pending.left(newline);
                m_pending.remove(0, newline + 1);
                if (!firstDelta && stdoutLine.contains("\"text_delta\""))
                    firstDelta = millisecondsSince(sent, now);
                if (stdoutLine.contains("\"type\":\"result\""))
                    return firstDelta;
            }
        }
        return std::nullopt;
    }

    ~DirectClaude()
    {
        if (m_child.pid() > 0) {
            m_child.closeStdin();
            PosixChild::wait(m_child.pid());
        }
    }

private:
    PosixChild m_child;
    QByteArray m_pending;
};

struct Figures {
    double vesk = 0;
    double direct = 0;
    double added = 0; // the median of the differences of neighbouring turns, which share the machine's state
};

// Runs `executable` through ClaudeCodeProcess and directly, side by side, for `turns` measured turns
// after two to warm up.
std::optional<Figures> measure(const ClaudeCodeConfiguration &configuration, int turns,
                               std::chrono::milliseconds rest)
{
    ClaudeCodeProcess vesk(configuration);
    std::optional<Clock::time_point> firstDelta;
    int results = 0;
    // The main thread sleeps in an event loop between events, as the application's does.
    QEventLoop loop;
    QTimer limit;
    limit.setSingleShot(true);
    QObject::connect(&limit, &QTimer::timeout, &loop, &QEventLoop::quit);
    QObject::connect(&vesk, &ClaudeCodeProcess::event, &vesk, [&](const AgentStreamEvent &event) {
        if (!firstDelta && event.as<AgentStreamEvent::TextDelta>())
            firstDelta = Clock::now();
        if (event.as<AgentStreamEvent::Result>()) {
            ++results;
            loop.quit();
        }
    });
    QObject::connect(&vesk, &ClaudeCodeProcess::finished, &loop, &QEventLoop::quit);
    if (const Result<void> started = vesk.start(); !started) {
        std::fprintf(stderr, "%s\n", qPrintable(started.error()));
        return std::nullopt;
    }
    const auto veskTurn = [&]() -> std::optional<double> {
        firstDelta.reset();
        const int before = results;
        const Clock::time_point sent = Clock::now();
        vesk.send(QStringLiteral("Say hi."));
        limit.start(60s);
        loop.exec();
        limit.stop();
        if (results == before || !firstDelta)
            return std::nullopt;
        return millisecondsSince(sent, *firstDelta);
    };

    DirectClaude direct;
    if (!direct.start(configuration))
        return std::nullopt;

    std::vector<double> veskTimes;
    std::vector<double> directTimes;
    std::vector<double> added;
    for (int i = 0; i < turns + 2; ++i) {
        // Each child finishes its bookkeeping after a result, so the one that goes second would pay
        // for the other's: they alternate, and each turn starts after a short rest.
        std::optional<double> d;
        std::optional<double> v;
        TestSupport::spin(rest);
        if (i % 2) {
            d = direct.turn(QStringLiteral("Say hi."));
            TestSupport::spin(rest);
            v = veskTurn();
        } else {
            v = veskTurn();
            TestSupport::spin(rest);
            d = direct.turn(QStringLiteral("Say hi."));
        }
        if (!d || !v) {
            std::fprintf(stderr, "turn %d did not stream a text delta\n", i);
            return std::nullopt;
        }
        if (i >= 2) {
            directTimes.push_back(*d);
            veskTimes.push_back(*v);
            added.push_back(*v - *d);
        }
    }
    vesk.terminate();
    limit.start(10s);
    if (vesk.isRunning())
        loop.exec();
    return Figures{median(veskTimes), median(directTimes), median(added)};
}

void printFigures(const char *prefix, const Figures &figures)
{
    printFigure((QByteArray(prefix) + "_vesk").constData(), figures.vesk, "ms");
    printFigure((QByteArray(prefix) + "_direct").constData(), figures.direct, "ms");
    printFigure((QByteArray(prefix) + "_added_by_vesk").constData(), figures.added, "ms");
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int turns = argc > 1 ? std::max(3, std::atoi(argv[1])) : 25;
    const std::chrono::milliseconds rest(argc > 2 ? std::atoi(argv[2]) : 100);
    const QString claude = QStringLiteral(VESK_SOURCE_DIR "/tests/agents/node_modules/.bin/claude");
    if (!QFileInfo(claude).isExecutable()) {
        std::fprintf(stderr,
                     "tests/agents/node_modules/.bin/claude is missing; run: npm ci --prefix tests/agents\n");
        return 1;
    }
    QTemporaryDir folder;
    QDir(folder.path()).mkpath(QStringLiteral("home"));
    QDir(folder.path()).mkpath(QStringLiteral("project"));

    ScriptedMessagesAPI api;
    if (const Result<quint16> port = api.start(); !port) {
        std::fprintf(stderr, "%s\n", qPrintable(port.error()));
        return 1;
    }
    for (const auto &[name, value] : api.childEnvironment(folder.path() + QStringLiteral("/home"))) {
        if (value.isEmpty())
            qunsetenv(name.constData());
        else
            qputenv(name.constData(), value);
    }
    // Two warm-up turns per child, then the measured ones; every turn is the same short text.
    for (int i = 0; i < 2 * (turns + 2); ++i)
        api.addTurn(ScriptedMessagesAPI::Turn::text({QStringLiteral("Hi.")}));

    ClaudeCodeConfiguration configuration;
    configuration.executable = claude;
    configuration.workingDirectory = folder.path() + QStringLiteral("/project");
    configuration.systemPrompt = QStringLiteral("You are a benchmark.");
    const std::optional<Figures> real = measure(configuration, turns, rest);
    if (!real)
        return 1;
    printFigures("agent_first_delta", *real);

    // A stand-in that answers each line at once isolates what Vesk's side costs (the reader thread,
    // line framing, parsing and the hop to the main thread) from the noise of claude's own work.
    configuration.executable = TestSupport::writeFile(
        folder.path(), QStringLiteral("instant-claude"),
        "#!/bin/sh\n"
        "while read -r line; do\n"
        "  printf '%s\\n' "
        "'{\"type\":\"stream_event\",\"event\":{\"type\":\"content_block_delta\",\"index\":0,"
        "\"delta\":{\"type\":\"text_delta\",\"text\":\"Hi.\"}}}' "
        "'{\"type\":\"result\",\"subtype\":\"success\"}'\n"
        "done\n");
    QFile::setPermissions(configuration.executable, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const std::optional<Figures> instant = measure(configuration, turns * 4, rest / 4);
    if (!instant)
        return 1;
    printFigures("agent_instant_first_delta", *instant);
    return 0;
}
