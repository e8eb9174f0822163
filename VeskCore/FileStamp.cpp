#include "FileStamp.h"

#include <QFileInfo>
#include <QTimeZone>

#include <cmath>

namespace {

// Stored dates count seconds from this reference date.
const QDateTime &referenceDate()
{
    static const QDateTime date(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return date;
}

} // namespace

std::optional<FileStamp> FileStamp::read(const QString &filePath)
{
    const QFileInfo info(filePath);
    if (!info.exists() || !info.isFile())
        return std::nullopt;
    const QDateTime modified = info.lastModified();
    FileStamp stamp;
    if (modified.isValid())
        stamp.modified = modified.toUTC();
    stamp.size = info.size();
    return stamp;
}

FileStamp::Change FileStamp::change(const std::optional<FileStamp> &from, const std::optional<FileStamp> &to)
{
    if (!to)
        return Change::deleted;
    if (!from)
        return Change::unchanged;
    return *from == *to ? Change::unchanged : Change::modified;
}

JSONValue FileStamp::toJSON() const
{
    JSONValue::Object object;
    if (modified)
        object.emplace(QStringLiteral("modified"), double(referenceDate().msecsTo(*modified)) / 1000.0);
    if (size)
        object.emplace(QStringLiteral("size"), *size);
    return JSONValue(std::move(object));
}

std::optional<FileStamp> FileStamp::fromJSON(const JSONValue &value)
{
    if (!value.objectValue())
        return std::nullopt;
    FileStamp stamp;
    const JSONValue modified = value[u"modified"];
    if (const std::optional<double> seconds = modified.doubleValue()) {
        // Milliseconds survive the trip through seconds exactly once rounded; far-off values are
        // dropped rather than overflowing.
        const double milliseconds = std::round(*seconds * 1000.0);
        if (std::isfinite(milliseconds) && std::fabs(milliseconds) < 1e15)
            stamp.modified = referenceDate().addMSecs(qint64(milliseconds));
    } else if (const std::optional<QString> text = modified.stringValue()) {
        const QDateTime date = QDateTime::fromString(*text, Qt::ISODateWithMs);
        if (date.isValid())
            stamp.modified = date.toUTC();
    }
    if (const std::optional<qint64> size = value[u"size"].intValue())
        stamp.size = *size;
    return stamp;
}
