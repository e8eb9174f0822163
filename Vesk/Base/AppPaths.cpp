#include "AppPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace AppPaths {

QString kernelScript()
{
    const QString bin = QCoreApplication::applicationDirPath();
    const QStringList candidates = {
        bin + QStringLiteral("/Resources/kernel.R"),
        bin + QStringLiteral("/../share/vesk/Resources/kernel.R"),
        bin + QStringLiteral("/../Resources/kernel.R"),
    };
    for (const QString &candidate : candidates) {
        QFileInfo info(candidate);
        if (info.isFile())
            return QDir::cleanPath(info.absoluteFilePath());
    }
    return {};
}

} // namespace AppPaths
