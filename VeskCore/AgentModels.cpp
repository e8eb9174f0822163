#include "AgentModels.h"

namespace AgentModels {

namespace {

bool isDate(QStringView part)
{
    if (part.size() != 8)
        return false;
    for (QChar c : part)
        if (!c.isDigit())
            return false;
    return true;
}

bool isNumber(QStringView part)
{
    bool ok = false;
    (void)part.toUInt(&ok);
    return ok;
}

} // namespace

const QList<Option> &options()
{
    static const QList<Option> list = {
        {QStringLiteral("claude-opus-5-5"), QStringLiteral("Opus 5.5 · best for analysis"),
         QStringLiteral("Opus 5.5")},
        {QStringLiteral("claude-fable-5-1"), QStringLiteral("Fable 5.1 · most capable"),
         QStringLiteral("Fable 5.1")},
        {QStringLiteral("claude-sonnet-5"), QStringLiteral("Sonnet 5 · fast and capable"),
         QStringLiteral("Sonnet 5")},
        {QStringLiteral("claude-haiku-4-5-20251001"), QStringLiteral("Haiku 4.5 · fastest"),
         QStringLiteral("Haiku 4.5")},
    };
    return list;
}

QStringList efforts()
{
    return {QStringLiteral("low"), QStringLiteral("medium"), QStringLiteral("high"), QStringLiteral("xhigh"),
            QStringLiteral("max")};
}

QString displayName(const QString &id)
{
    for (const Option &option : options())
        if (option.id == id)
            return option.shortName;
    if (!id.startsWith(u"claude"))
        return id;
    // Runs of numbers become one version ("4-1" reads "4.1"); words are capitalised.
    QStringList words;
    bool previousWasNumber = false;
    const QStringList parts = id.split(u'-', Qt::SkipEmptyParts);
    for (qsizetype i = 1; i < parts.size(); ++i) {
        const QString &part = parts[i];
        if (isDate(part))
            continue;
        if (isNumber(part)) {
            if (previousWasNumber)
                words.last() += u'.' + part;
            else
                words.append(part);
            previousWasNumber = true;
            continue;
        }
        words.append(part.left(1).toUpper() + part.mid(1));
        previousWasNumber = false;
    }
    return words.isEmpty() ? id : words.join(u' ');
}

Resolved resolved(const AgentProfile &profile, const AgentOverrides &overrides,
                  const AgentPreferences &preferences)
{
    const AgentOverrides::Entry entry = overrides.entry(profile.id);
    Resolved result;
    if (!entry.model.isEmpty())
        result.model = entry.model;
    else if (!preferences.model.isEmpty())
        result.model = preferences.model;
    else
        result.model = profile.model.value_or(defaultModel);
    if (!entry.effort.isEmpty())
        result.effort = entry.effort;
    else if (!preferences.effort.isEmpty())
        result.effort = preferences.effort;
    else
        result.effort = profile.effort;
    return result;
}

} // namespace AgentModels
