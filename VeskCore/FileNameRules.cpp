#include "FileNameRules.h"

#include <QSet>

namespace FileNameRules {

QString cleaned(const QString &name)
{
    return name.trimmed();
}

std::optional<QString> problem(const QString &name, const QStringList &existing,
                               const std::optional<QString> &current)
{
    const QString clean = cleaned(name);
    if (clean.isEmpty())
        return QStringLiteral("Enter a name.");
    if (clean == u"." || clean == u"..")
        return QStringLiteral("\u201C%1\u201D is reserved by the system.").arg(clean);
    if (clean.contains(u'/') || clean.contains(u':'))
        return QStringLiteral("Names can\u2019t contain \u201C/\u201D or \u201C:\u201D.");
    // File systems limit a name to 255 bytes.
    if (clean.toUtf8().size() >= 256)
        return QStringLiteral("The name is too long.");
    if (current && clean.compare(*current, Qt::CaseInsensitive) == 0)
        return std::nullopt;
    for (const QString &other : existing) {
        if (clean.compare(other, Qt::CaseInsensitive) == 0)
            return QStringLiteral("\u201C%1\u201D already exists. Choose a different name.").arg(clean);
    }
    return std::nullopt;
}

QString uniqueName(const QString &base, const std::optional<QString> &extension, const QStringList &existing)
{
    QSet<QString> taken;
    for (const QString &name : existing)
        taken.insert(name.toLower());
    const QString suffix = extension && !extension->isEmpty() ? u'.' + *extension : QString();
    // At most existing.size() + 1 tries: each taken name rules out one number.
    for (qsizetype n = 1;; ++n) {
        const QString candidate = n == 1 ? base + suffix : base + u' ' + QString::number(n) + suffix;
        if (!taken.contains(candidate.toLower()))
            return candidate;
    }
}

} // namespace FileNameRules
