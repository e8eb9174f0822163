#include "SessionFiles.h"

#include <QDir>

namespace SessionFiles {

QString key(const std::optional<QString> &projectPath)
{
    if (!projectPath || projectPath->isEmpty())
        return noProjectKey;
    QString path = QDir::cleanPath(*projectPath);
    if (path.size() > 1 && path.endsWith(u'/'))
        path.chop(1);
    const QString last = path.section(u'/', -1);
    QString name;
    for (char32_t scalar : last.toUcs4()) {
        const bool keep = QChar::isLetterOrNumber(scalar) || scalar == U'-' || scalar == U'_';
        name += keep ? QString::fromUcs4(&scalar, 1) : QStringLiteral("-");
    }
    if (name.isEmpty())
        name = QStringLiteral("project");
    quint64 hash = 0xcbf29ce484222325ULL;
    for (const char byte : path.toUtf8()) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 0x100000001b3ULL;
    }
    return name + u'-' + QString::number(hash, 16);
}

} // namespace SessionFiles
