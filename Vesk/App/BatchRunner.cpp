#include "BatchRunner.h"

#include "Settings.h"
#include "Workspace.h"

#include <QFile>

BatchRunner::BatchRunner(Settings &settings, QString code, FILE *output, FILE *errors, QObject *parent)
    : QObject(parent), m_workspace(std::make_unique<Workspace>(settings)), m_code(std::move(code)),
      m_output(output), m_errors(errors)
{
    m_workspace->persistsHistory = false;
    // One script and gone: compiling the kernel's functions would cost more than it saves.
    m_workspace->session().extraEnvironment.insert(QStringLiteral("VESK_KERNEL_COMPILE"),
                                                   QStringLiteral("0"));
    connect(m_workspace.get(), &Workspace::sessionReady, this, &BatchRunner::runCode);
    connect(m_workspace.get(), &Workspace::statusChanged, this, [this] {
        // R ended before it ran the code: nothing more will come.
        if (!m_started && m_workspace->session().status().kind == RSessionStatus::Kind::Stopped) {
            print(m_errors, m_workspace->console().transcript(ConsoleModel::maxCells, -1));
            print(m_errors, m_workspace->session().status().reason);
            finish(1);
        }
    });
}

BatchRunner::~BatchRunner()
{
    m_workspace->shutDown();
}

void BatchRunner::start()
{
    m_workspace->startR(true);
    if (m_workspace->startupProblem()) {
        print(m_errors, *m_workspace->startupProblem());
        finish(1);
    }
}

void BatchRunner::runCode()
{
    if (m_started)
        return;
    m_started = true;
    m_workspace->run(m_code, ExecOrigin::console(), std::nullopt, 1, [this](const ExecResult &result) {
        ConsoleModel &console = m_workspace->console();
        const ConsoleModel::Cell *cell = nullptr;
        for (qsizetype i = console.cells().size() - 1; i >= 0 && !cell; --i)
            if (console.cells()[i].execID)
                cell = &console.cells()[i];
        if (cell)
            print(m_output, console.transcript(cell->id));
        const bool failed = result.error.has_value() || (result.interrupted && !result.ok);
        finish(failed || !cell ? 1 : 0);
    });
    // Code that is empty after trimming finishes at once, with nothing to print.
}

void BatchRunner::print(FILE *stream, const QString &text)
{
    if (text.isEmpty())
        return;
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    if (!text.endsWith(u'\n'))
        std::fputc('\n', stream);
    std::fflush(stream);
}

void BatchRunner::finish(int status)
{
    if (m_done)
        return;
    m_done = true;
    emit finished(status);
}

bool BatchRunner::isBatchInvocation(const QStringList &arguments)
{
    return arguments.contains(QStringLiteral("--batch"));
}

std::optional<QString> BatchRunner::codeFromArguments(const QStringList &arguments, QString *error)
{
    const qsizetype at = arguments.indexOf(QStringLiteral("--batch"));
    const QStringList rest = at < 0 ? QStringList() : arguments.mid(at + 1);
    if (rest.size() == 2 && rest[0] == QStringLiteral("-e"))
        return rest[1];
    if (rest.size() == 1 && rest[0] != QStringLiteral("-e")) {
        QFile file(rest[0]);
        if (!file.open(QIODevice::ReadOnly)) {
            if (error)
                *error = QStringLiteral("Cannot read %1: %2").arg(rest[0], file.errorString());
            return std::nullopt;
        }
        return QString::fromUtf8(file.readAll());
    }
    if (error)
        *error = QStringLiteral("Usage: vesk --batch FILE.R | vesk --batch -e CODE");
    return std::nullopt;
}
