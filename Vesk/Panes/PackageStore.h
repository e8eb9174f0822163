// The packages pane's model: the installed packages as the kernel lists them, what the session's
// repositories offer and what is newer there. Reads go through kernel requests and never show in the
// console; attaching, installing and removing run as console code the user sees and keeps in the
// history. It reaches R only through the hooks the workspace sets. Main thread.
#pragma once

#include "JSONValue.h"
#include "Result.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <optional>

struct RPackage {
    QString name;
    QString version;
    std::optional<QString> library;
    std::optional<QString> title;
    std::optional<QString> priority;
    bool attached = false;
    bool loaded = false;

    // None without a string name and version.
    static std::optional<RPackage> fromJSON(const JSONValue &value);
    bool operator==(const RPackage &) const = default;
};

class PackageStore : public QObject {
    Q_OBJECT
public:
    using Answer = std::function<void(const Result<JSONValue> &)>;

    explicit PackageStore(QObject *parent = nullptr);

    // Whether R runs and can answer; unset, it does not.
    std::function<bool()> hasSession;
    // A named kernel request without arguments; the answer comes exactly once.
    std::function<void(const QString &name, Answer answer)> request;
    // Runs code in the console as the user's own; `finished` follows the run, successful or not.
    std::function<void(const QString &code, std::function<void()> finished)> runInConsole;

    const QList<RPackage> &packages() const { return m_packages; }
    const QStringList &available() const { return m_available; }
    const std::map<QString, QString> &outdated() const { return m_outdated; }
    bool isLoading() const { return m_loading; }
    bool isLoadingAvailable() const { return m_loadingAvailable; }
    bool isCheckingUpdates() const { return m_checkingUpdates; }
    bool hasCheckedUpdates() const { return m_hasCheckedUpdates; }
    bool hasListed() const { return m_hasListed; }
    const std::optional<QString> &error() const { return m_error; }
    const std::optional<QString> &updateError() const { return m_updateError; }
    const QString &filter() const { return m_filter; }
    void setFilter(const QString &filter);
    bool sessionIsLive() const { return hasSession && hasSession(); }

    // The packages the filter keeps (name or title, case ignored), attached ones first, each group
    // by name with case ignored.
    QList<RPackage> visible() const;
    const RPackage *package(const QString &name) const;
    // Under the list: the update check's progress or outcome; empty before any check.
    QString statusLine() const;

    void refresh();
    // The names on the search path (with or without "package:"), from the session's state.
    void markAttached(const QStringList &searchPath);
    void setAttached(const QString &name, bool attached);
    void install(const QStringList &names);
    void remove(const QString &name);
    void updateAll();
    void loadAvailable();
    void checkUpdates();

    // The console code of each operation.
    static QString attachCode(const QString &name, bool attached);
    static QString installCode(const QStringList &names);
    static QString removeCode(const QString &name, const std::optional<QString> &library);
    // The install field's text as names: split at spaces and commas, empty pieces dropped.
    static QStringList splitNames(const QString &text);
    // The question asked before a removal: title and text.
    std::pair<QString, QString> removalQuestion(const QString &name) const;

signals:
    void changed();

private:
    void listed(const Result<JSONValue> &answer);

    QList<RPackage> m_packages;
    QStringList m_available;
    std::map<QString, QString> m_outdated;
    QString m_filter;
    std::optional<QString> m_error;
    std::optional<QString> m_updateError;
    bool m_loading = false;
    bool m_refreshAgain = false;
    bool m_loadingAvailable = false;
    bool m_checkingUpdates = false;
    bool m_hasCheckedUpdates = false;
    bool m_hasListed = false;
};
