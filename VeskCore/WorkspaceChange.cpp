#include "WorkspaceChange.h"

#include <cmath>

namespace {

QString classLabel(const REnvObject &object)
{
    if (!object.classes.isEmpty())
        return object.classes.first();
    return object.type.value_or(QString());
}

QString shortValueText(QString summary)
{
    summary.replace(u'\n', u' ');
    if (summary.size() < 25)
        return summary;
    return summary.left(23) + QChar(0x2026);
}

bool isScalarValue(const REnvObject &object)
{
    return object.kind == REnvObject::Kind::Value && object.length && *object.length == 1 && object.summary;
}

bool hasTwoDims(const REnvObject &object)
{
    return object.dim && object.dim->size() == 2;
}

QString grouped(double n, const QLocale &locale)
{
    return locale.toString(qint64(std::llround(n)));
}

} // namespace

QList<WorkspaceChange> WorkspaceChange::diff(const QList<REnvObject> &before, const QList<REnvObject> &now,
                                             const QLocale &locale)
{
    QHash<QString, const REnvObject *> old;
    for (const REnvObject &object : before)
        old.insert(object.name, &object); // a later object of a name wins

    QList<WorkspaceChange> changes;
    QSet<QString> names;
    for (const REnvObject &object : now) {
        names.insert(object.name);
        const bool isData = object.kind == REnvObject::Kind::Data || object.kind == REnvObject::Kind::List;
        if (const auto it = old.constFind(object.name); it != old.cend()) {
            if (auto detail = changeDetail(**it, object, locale))
                changes.append({Kind::Changed, object.name, std::move(detail), isData});
        } else {
            changes.append({Kind::Added, object.name, addedDetail(object, locale), isData});
        }
    }
    for (const REnvObject &object : before) {
        if (!names.contains(object.name))
            changes.append({Kind::Removed, object.name, std::nullopt, false});
    }
    return changes;
}

std::optional<QString> WorkspaceChange::addedDetail(const REnvObject &object, const QLocale &locale)
{
    if (const auto dims = object.dimensionText(locale))
        return classLabel(object) + QStringLiteral(" · ") + *dims;
    if (isScalarValue(object))
        return shortValueText(*object.summary);
    QString label = classLabel(object);
    if (label.isEmpty())
        return std::nullopt;
    return label;
}

std::optional<QString> WorkspaceChange::changeDetail(const REnvObject &from, const REnvObject &to,
                                                     const QLocale &locale)
{
    const QString fromLabel = classLabel(from);
    const QString toLabel = classLabel(to);
    if (fromLabel != toLabel && !fromLabel.isEmpty() && !toLabel.isEmpty())
        return fromLabel + QStringLiteral(" → ") + toLabel;

    if (hasTwoDims(from) && hasTwoDims(to) && *from.dim != *to.dim) {
        const qint64 r0 = std::llround((*from.dim)[0]), c0 = std::llround((*from.dim)[1]);
        const qint64 r1 = std::llround((*to.dim)[0]), c1 = std::llround((*to.dim)[1]);
        if (c0 == c1)
            return locale.toString(r0) + QStringLiteral(" → ") + locale.toString(r1) +
                   QStringLiteral(" rows");
        if (r0 != r1) {
            return locale.toString(r0) + QStringLiteral(" × ") + QString::number(c0) + QStringLiteral(" → ") +
                   locale.toString(r1) + QStringLiteral(" × ") + QString::number(c1);
        }
        return signedCount(c1 - c0, QStringLiteral("col"));
    }

    if (!from.dim && !to.dim && from.length && to.length && *from.length != *to.length) {
        return QStringLiteral("length ") + grouped(*from.length, locale) + QStringLiteral(" → ") +
               grouped(*to.length, locale);
    }

    if (from.kind == REnvObject::Kind::Function && to.kind == REnvObject::Kind::Function) {
        if (from.summary != to.summary)
            return QStringLiteral("new definition");
        return std::nullopt;
    }

    if (isScalarValue(from) && isScalarValue(to)) {
        if (*from.summary == *to.summary)
            return std::nullopt;
        return shortValueText(*from.summary) + QStringLiteral(" → ") + shortValueText(*to.summary);
    }
    return std::nullopt;
}

QString WorkspaceChange::signedCount(qint64 n, const QString &noun)
{
    const qint64 magnitude = n < 0 ? -n : n;
    return (n > 0 ? QStringLiteral("+") : QString(QChar(0x2212))) + QString::number(magnitude) + u' ' + noun +
           (magnitude == 1 ? QString() : QStringLiteral("s"));
}

size_t qHash(const WorkspaceChange &change, size_t seed)
{
    return qHashMulti(seed, int(change.kind), change.name, change.detail.value_or(QString()),
                      change.detail.has_value(), change.isData);
}
