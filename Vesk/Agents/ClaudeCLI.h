// The application's `claude`: where it is (the `claudePath` setting, the usual install locations,
// or once per process what a login shell finds) and whether its version is new enough. Searches
// again when the application becomes active and when the setting changes. Main thread only; the
// login shell and the version reads run on background threads.
#pragma once

#include "ClaudeCLIVersion.h"

#include <QFuture>
#include <QHash>
#include <QObject>
#include <QPromise>
#include <QString>

#include <qcoro/qcorotask.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

class Settings;

class ClaudeCLI : public QObject {
    Q_OBJECT
public:
    // What the search reads of the machine; tests point it at a folder of their own.
    struct System {
        QString home;
        std::function<bool(const QString &)> isExecutable;
        // Runs on a background thread, at most once.
        std::function<std::optional<QString>()> loginShellLookup;

        // The user's home, the file system, the user's login shell.
        static System real();
    };

    static constexpr std::chrono::seconds loginShellTimeout{4};
    static constexpr std::chrono::seconds versionTimeout{8};

    // The one of the application: the shared settings, the user's home, the user's login shell.
    static ClaudeCLI &shared();

    ClaudeCLI(Settings &settings, System system, QObject *parent = nullptr);
    ~ClaudeCLI() override;

    // Nothing while no `claude` is known.
    const std::optional<QString> &executable() const { return m_executable; }
    bool isSearching() const { return m_isSearching; }
    // The `claudePath` setting as last read; nothing when empty.
    const std::optional<QString> &preferredPath() const { return m_preferredPath; }
    // Outer nothing: the login shell has not answered yet; inner nothing: it found none.
    const std::optional<std::optional<QString>> &loginShellResult() const { return m_loginShellResult; }

    void refresh();
    void settingMayHaveChanged();
    // The executable, waiting for the login shell when only it can tell.
    QCoro::Task<std::optional<QString>> resolve();
    // Why this `claude` cannot be used: only a version known to be too old is a problem.
    QCoro::Task<std::optional<QString>> versionProblem(const QString &executable);

    static QString tooOldMessage(const ClaudeCLIVersion::Version &version);

signals:
    void executableChanged();
    void searchingChanged();

private:
    void setExecutable(const std::optional<QString> &executable);
    void startLoginShellLookup();
    void finishLoginShellLookup(const std::optional<QString> &found);
    QFuture<std::optional<ClaudeCLIVersion::Version>> versionTask(const QString &executable);

    Settings &m_settings;
    System m_system;
    std::optional<QString> m_executable;
    bool m_isSearching = false;
    std::optional<QString> m_preferredPath;
    std::optional<std::optional<QString>> m_loginShellResult;
    // Finished on the main thread once the result is stored.
    std::optional<QFuture<std::optional<QString>>> m_loginShellTask;
    std::unique_ptr<QPromise<std::optional<QString>>> m_loginShellPromise;
    // By resolved path and modification time: a replaced file is read again.
    QHash<QString, QFuture<std::optional<ClaudeCLIVersion::Version>>> m_versionTasks;
};
