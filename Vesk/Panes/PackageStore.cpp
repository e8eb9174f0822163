#include "PackageStore.h"

#include "RLiteral.h"

#include <QPointer>
#include <QRegularExpression>

#include <algorithm>

namespace {

std::optional<QString> optionalString(const JSONValue &object, QStringView key)
{
    const JSONValue *value = object.find(key);
    return value ? value->stringValue() : std::nullopt;
}

} // namespace

std::optional<RPackage> RPackage::fromJSON(const JSONValue &value)
{
    RPackage package;
    const std::optional<QString> name = optionalString(value, u"name");
    const std::optional<QString> version = optionalString(value, u"version");
    if (!name || !version)
        return std::nullopt;
    package.name = *name;
    package.version = *version;
    package.library = optionalString(value, u"library");
    package.title = optionalString(value, u"title");
    package.priority = optionalString(value, u"priority");
    package.attached = value[u"attached"].boolValue().value_or(false);
    package.loaded = value[u"loaded"].boolValue().value_or(false) || package.attached;
    return package;
}

PackageStore::PackageStore(QObject *parent) : QObject(parent) {}

void PackageStore::setFilter(const QString &filter)
{
    if (filter == m_filter)
        return;
    m_filter = filter;
    emit changed();
}

QList<RPackage> PackageStore::visible() const
{
    const QString needle = m_filter.trimmed().toLower();
    QList<RPackage> out;
    for (const RPackage &package : m_packages)
        if (needle.isEmpty() || package.name.toLower().contains(needle) ||
            (package.title && package.title->toLower().contains(needle)))
            out.append(package);
    std::stable_sort(out.begin(), out.end(), [](const RPackage &a, const RPackage &b) {
        if (a.attached != b.attached)
            return a.attached;
        return a.name.toLower() < b.name.toLower();
    });
    return out;
}

const RPackage *PackageStore::package(const QString &name) const
{
    for (const RPackage &package : m_packages)
        if (package.name == name)
            return &package;
    return nullptr;
}

QString PackageStore::statusLine() const
{
    if (m_checkingUpdates)
        return QStringLiteral("Checking CRAN for updates…");
    if (m_updateError)
        return *m_updateError;
    if (!m_hasCheckedUpdates)
        return {};
    if (m_outdated.empty())
        return QStringLiteral("All packages are up to date.");
    if (m_outdated.size() == 1)
        return QStringLiteral("1 update available.");
    return QStringLiteral("%1 updates available.").arg(m_outdated.size());
}

void PackageStore::refresh()
{
    if (!sessionIsLive() || !request)
        return;
    // A listing asked for while one runs may follow a change the running one predates.
    if (m_loading) {
        m_refreshAgain = true;
        return;
    }
    m_loading = true;
    emit changed();
    request(QStringLiteral("packages"), [self = QPointer(this)](const Result<JSONValue> &answer) {
        if (self)
            self->listed(answer);
    });
}

void PackageStore::listed(const Result<JSONValue> &answer)
{
    m_loading = false;
    if (!answer.ok()) {
        m_error = answer.error();
    } else if (const JSONValue::Array *items = answer.value().arrayValue()) {
        QList<RPackage> packages;
        packages.reserve(items->size());
        for (const JSONValue &item : *items)
            if (std::optional<RPackage> package = RPackage::fromJSON(item))
                packages.append(std::move(*package));
        m_packages = std::move(packages);
        m_error.reset();
        m_hasListed = true;
    } else {
        m_error = QStringLiteral("The package list could not be read.");
    }
    emit changed();
    if (std::exchange(m_refreshAgain, false))
        refresh();
}

void PackageStore::markAttached(const QStringList &searchPath)
{
    if (m_packages.isEmpty())
        return;
    QSet<QString> names;
    for (const QString &entry : searchPath)
        names.insert(entry.startsWith(u"package:") ? entry.mid(8) : entry);
    bool differs = false;
    for (RPackage &package : m_packages) {
        const bool attached = names.contains(package.name);
        if (package.attached == attached)
            continue;
        package.attached = attached;
        // Attaching loads; a detach with unload = FALSE leaves the namespace loaded.
        package.loaded = package.loaded || attached;
        differs = true;
    }
    if (differs)
        emit changed();
}

QString PackageStore::attachCode(const QString &name, bool attached)
{
    if (attached)
        return QStringLiteral("library(%1)")
            .arg(RLiteral::isSyntacticName(name) ? name : RLiteral::string(name));
    // unload = FALSE: what depends on the namespace keeps working.
    return QStringLiteral("detach(%1, unload = FALSE)").arg(RLiteral::string(u"package:"_qs + name));
}

QString PackageStore::installCode(const QStringList &names)
{
    QStringList literals;
    for (const QString &name : names)
        literals.append(RLiteral::string(name));
    if (literals.size() == 1)
        return QStringLiteral("install.packages(%1)").arg(literals.first());
    return QStringLiteral("install.packages(c(%1))").arg(literals.join(u", "));
}

QString PackageStore::removeCode(const QString &name, const std::optional<QString> &library)
{
    // Without `lib`, R removes from the first library only, wherever the package is.
    if (library && !library->isEmpty())
        return QStringLiteral("remove.packages(%1, lib = %2)")
            .arg(RLiteral::string(name), RLiteral::string(*library));
    return QStringLiteral("remove.packages(%1)").arg(RLiteral::string(name));
}

QStringList PackageStore::splitNames(const QString &text)
{
    static const QRegularExpression separators(QStringLiteral("[\\s,]+"));
    return text.split(separators, Qt::SkipEmptyParts);
}

std::pair<QString, QString> PackageStore::removalQuestion(const QString &name) const
{
    const RPackage *found = package(name);
    const QString where = found && found->library ? *found->library : QStringLiteral("its library");
    return {QStringLiteral("Remove the package “%1”?").arg(name),
            QStringLiteral("This runs remove.packages() and deletes it from %1.").arg(where)};
}

void PackageStore::setAttached(const QString &name, bool attached)
{
    if (runInConsole && !name.isEmpty())
        runInConsole(attachCode(name, attached), {});
}

void PackageStore::install(const QStringList &names)
{
    if (names.isEmpty() || !runInConsole)
        return;
    runInConsole(installCode(names), [self = QPointer(this)] {
        if (self)
            self->refresh();
    });
}

void PackageStore::remove(const QString &name)
{
    if (name.isEmpty() || !runInConsole)
        return;
    const RPackage *found = package(name);
    runInConsole(removeCode(name, found ? found->library : std::nullopt), [self = QPointer(this)] {
        if (self)
            self->refresh();
    });
}

void PackageStore::updateAll()
{
    if (m_outdated.empty())
        return;
    QStringList names;
    for (const auto &[name, version] : m_outdated)
        names.append(name);
    m_outdated.clear();
    emit changed();
    install(names);
}

void PackageStore::loadAvailable()
{
    if (!m_available.isEmpty() || m_loadingAvailable || !sessionIsLive() || !request)
        return;
    m_loadingAvailable = true;
    emit changed();
    request(QStringLiteral("available"), [self = QPointer(this)](const Result<JSONValue> &answer) {
        if (!self)
            return;
        self->m_loadingAvailable = false;
        // A failure leaves the index empty: the next opening of the install dialog tries again.
        if (answer.ok())
            if (const JSONValue::Array *names = answer.value()[u"names"].arrayValue())
                for (const JSONValue &name : *names)
                    if (std::optional<QString> text = name.stringValue())
                        self->m_available.append(*text);
        emit self->changed();
    });
}

void PackageStore::checkUpdates()
{
    if (m_checkingUpdates || !sessionIsLive() || !request)
        return;
    m_checkingUpdates = true;
    m_updateError.reset();
    emit changed();
    request(QStringLiteral("outdated"), [self = QPointer(this)](const Result<JSONValue> &answer) {
        if (!self)
            return;
        self->m_checkingUpdates = false;
        const JSONValue::Array *items = answer.ok() ? answer.value().arrayValue() : nullptr;
        if (!items) {
            self->m_updateError =
                QStringLiteral("Couldn’t check for updates: %1")
                    .arg(answer.ok() ? QStringLiteral("the answer was not a list.") : answer.error());
        } else {
            std::map<QString, QString> outdated;
            for (const JSONValue &item : *items) {
                const std::optional<QString> name = optionalString(item, u"name");
                const std::optional<QString> available = optionalString(item, u"available");
                if (name && available)
                    outdated[*name] = *available;
            }
            self->m_outdated = std::move(outdated);
            self->m_hasCheckedUpdates = true;
        }
        emit self->changed();
    });
}
