#include "ClaudeCLIVersion.h"

#include "CommandOutput.h"
#include "PosixChild.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace ClaudeCLIVersion {

QString minimumText()
{
    return format(minimum);
}

std::optional<Version> parse(const QString &text)
{
    static const QRegularExpression pattern(QStringLiteral("(\\d+)\\.(\\d+)\\.(\\d+)"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    Version version;
    for (int group = 1; group <= 3; ++group) {
        bool ok = false;
        const int component = match.capturedView(group).toInt(&ok);
        if (!ok)
            return std::nullopt;
        version.append(component);
    }
    return version;
}

QString format(const Version &version)
{
    QStringList parts;
    for (int component : version)
        parts.append(QString::number(component));
    return parts.join(u'.');
}

bool isSupported(const Version &version)
{
    for (qsizetype i = 0; i < minimum.size(); ++i) {
        if (i >= version.size())
            return false;
        if (version[i] != minimum[i])
            return version[i] > minimum[i];
    }
    return true;
}

QStringList readEnvironment(const QString &executable, const QStringList &inherited)
{
    QString inheritedPath = QStringLiteral("/usr/bin:/bin");
    QStringList environment;
    for (const QString &entry : inherited) {
        if (entry.startsWith(u"PATH="))
            inheritedPath = entry.mid(5);
        else
            environment.append(entry);
    }
    const QStringList path = {QFileInfo(executable).absolutePath(), inheritedPath,
                              QStringLiteral("/usr/local/bin"), QStringLiteral("/opt/homebrew/bin")};
    environment.append(QStringLiteral("PATH=") + path.join(u':'));
    return environment;
}

std::optional<QString> read(const QString &executable, std::chrono::milliseconds timeout)
{
    return CommandOutput::run({executable, QStringLiteral("--version")},
                              readEnvironment(executable, PosixChild::systemEnvironment()), timeout);
}

} // namespace ClaudeCLIVersion
