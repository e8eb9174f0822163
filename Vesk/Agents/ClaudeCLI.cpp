#include "ClaudeCLI.h"

#include "AgentLog.h"
#include "Assert.h"
#include "Base/Settings.h"
#include "ClaudeCLILocator.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QPointer>
#include <QThreadPool>

#include <qcoro/qcorofuture.h>

namespace {

std::optional<QString> nonEmpty(const QString &text)
{
    return text.isEmpty() ? std::nullopt : std::optional<QString>(text);
}

} // namespace

ClaudeCLI::System ClaudeCLI::System::real()
{
    return {QDir::homePath(), ToolLocator::isExecutableFile,
            [] { return ClaudeCLILocator::loginShellLookup(loginShellTimeout); }};
}

ClaudeCLI &ClaudeCLI::shared()
{
    static ClaudeCLI *instance = new ClaudeCLI(Settings::shared(), System::real());
    return *instance;
}

ClaudeCLI::ClaudeCLI(Settings &settings, System system, QObject *parent)
    : QObject(parent), m_settings(settings), m_system(std::move(system))
{
    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        connect(app, &QGuiApplication::applicationStateChanged, this, [this](Qt::ApplicationState state) {
            if (state == Qt::ApplicationActive)
                refresh();
        });
    }
    connect(&m_settings, &Settings::changed, this, [this](const QString &key) {
        if (key == Settings::claudePath)
            settingMayHaveChanged();
    });
    refresh();
}

ClaudeCLI::~ClaudeCLI()
{
    // Whoever waits for the lookup gets an answer even when the object goes first.
    if (m_loginShellPromise && !m_loginShellTask->isFinished()) {
        m_loginShellPromise->addResult(std::nullopt);
        m_loginShellPromise->finish();
    }
}

void ClaudeCLI::refresh()
{
    m_preferredPath = nonEmpty(m_settings.stringValue(Settings::claudePath));
    if (const std::optional<QString> found =
            ClaudeCLILocator::locate(m_preferredPath, m_system.home, m_system.isExecutable)) {
        setExecutable(found);
        return;
    }
    if (m_loginShellResult) {
        setExecutable(*m_loginShellResult);
        return;
    }
    setExecutable(std::nullopt);
    startLoginShellLookup();
}

void ClaudeCLI::settingMayHaveChanged()
{
    if (nonEmpty(m_settings.stringValue(Settings::claudePath)) != m_preferredPath)
        refresh();
}

QCoro::Task<std::optional<QString>> ClaudeCLI::resolve()
{
    refresh();
    if (m_executable)
        co_return m_executable;
    if (!m_loginShellTask)
        co_return std::nullopt;
    // Only the future from here on: this object may be gone when the lookup ends.
    const QFuture<std::optional<QString>> task = *m_loginShellTask;
    co_return co_await task;
}

QCoro::Task<std::optional<QString>> ClaudeCLI::versionProblem(const QString &executable)
{
    const QFuture<std::optional<ClaudeCLIVersion::Version>> task = versionTask(executable);
    const std::optional<ClaudeCLIVersion::Version> version = co_await task;
    if (!version || ClaudeCLIVersion::isSupported(*version))
        co_return std::nullopt;
    co_return tooOldMessage(*version);
}

QString ClaudeCLI::tooOldMessage(const ClaudeCLIVersion::Version &version)
{
    return QStringLiteral("Claude Code %1 is too old for Vesk, which needs %2 or later. Update it with "
                          "\u201Cclaude update\u201D in a terminal, then try again.")
        .arg(ClaudeCLIVersion::format(version), ClaudeCLIVersion::minimumText());
}

void ClaudeCLI::setExecutable(const std::optional<QString> &executable)
{
    if (executable == m_executable)
        return;
    m_executable = executable;
    qCDebug(vsAgents) << "claude is now" << executable.value_or(QStringLiteral("unknown"));
    emit executableChanged();
}

void ClaudeCLI::startLoginShellLookup()
{
    if (m_loginShellTask || m_isSearching)
        return;
    m_isSearching = true;
    emit searchingChanged();
    m_loginShellPromise = std::make_unique<QPromise<std::optional<QString>>>();
    m_loginShellPromise->start();
    m_loginShellTask = m_loginShellPromise->future();

    // The answer goes back through the application object, which outlives this one; the guard is
    // read on the main thread only.
    QCoreApplication *app = QCoreApplication::instance();
    VESK_ASSERT(app, return );
    QThreadPool::globalInstance()->start(
        [self = QPointer<ClaudeCLI>(this), lookup = m_system.loginShellLookup, app] {
            const std::optional<QString> found = lookup();
            QMetaObject::invokeMethod(
                app,
                [self, found] {
                    if (self)
                        self->finishLoginShellLookup(found);
                },
                Qt::QueuedConnection);
        });
}

void ClaudeCLI::finishLoginShellLookup(const std::optional<QString> &found)
{
    qCDebug(vsAgents) << "the login shell found" << found.value_or(QStringLiteral("no claude"));
    m_loginShellResult = found;
    m_isSearching = false;
    emit searchingChanged();
    refresh();
    m_loginShellPromise->addResult(found);
    m_loginShellPromise->finish();
}

QFuture<std::optional<ClaudeCLIVersion::Version>> ClaudeCLI::versionTask(const QString &executable)
{
    const QFileInfo link(executable);
    const QString resolved =
        link.canonicalFilePath().isEmpty() ? link.absoluteFilePath() : link.canonicalFilePath();
    const QDateTime modified = QFileInfo(resolved).lastModified();
    const double seconds = modified.isValid() ? double(modified.toMSecsSinceEpoch()) / 1000.0 : 0.0;
    const QString key = resolved + u'|' + QString::number(seconds, 'f', 3);
    if (const auto found = m_versionTasks.constFind(key); found != m_versionTasks.constEnd())
        return *found;

    auto promise = std::make_shared<QPromise<std::optional<ClaudeCLIVersion::Version>>>();
    promise->start();
    QFuture<std::optional<ClaudeCLIVersion::Version>> task = promise->future();
    m_versionTasks.insert(key, task);
    QThreadPool::globalInstance()->start([promise, executable] {
        const std::optional<QString> output = ClaudeCLIVersion::read(executable, versionTimeout);
        promise->addResult(output ? ClaudeCLIVersion::parse(*output) : std::nullopt);
        promise->finish();
    });
    return task;
}
