#include "TextFileEncoding.h"

#include "TextFileCodec.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

QString TextFileEncoding::rawValue() const
{
    switch (m_case) {
    case utf8:
        return QStringLiteral("utf8");
    case utf8BOM:
        return QStringLiteral("utf8BOM");
    case utf16LE:
        return QStringLiteral("utf16LE");
    case utf16BE:
        return QStringLiteral("utf16BE");
    case windows1252:
        return QStringLiteral("windows1252");
    case latin1:
        return QStringLiteral("latin1");
    }
    return {};
}

std::optional<TextFileEncoding> TextFileEncoding::fromRawValue(QStringView raw)
{
    for (Case value : allCases) {
        if (TextFileEncoding(value).rawValue() == raw)
            return TextFileEncoding(value);
    }
    return std::nullopt;
}

QString TextFileEncoding::displayName() const
{
    switch (m_case) {
    case utf8:
        return QStringLiteral("UTF-8");
    case utf8BOM:
        return QStringLiteral("UTF-8 with BOM");
    case utf16LE:
    case utf16BE:
        return QStringLiteral("UTF-16");
    case windows1252:
        return QStringLiteral("Western (Windows Latin 1)");
    case latin1:
        return QStringLiteral("Western (ISO Latin 1)");
    }
    return {};
}

QString TextFileEncoding::rName() const
{
    switch (m_case) {
    case utf8:
        return QStringLiteral("UTF-8");
    case utf8BOM:
        return QStringLiteral("UTF-8-BOM");
    case utf16LE:
        return QStringLiteral("UTF-16LE");
    case utf16BE:
        return QStringLiteral("UTF-16BE");
    case windows1252:
        return QStringLiteral("CP1252");
    case latin1:
        return QStringLiteral("latin1");
    }
    return {};
}

QByteArray TextFileEncoding::bom() const
{
    switch (m_case) {
    case utf8BOM:
        return QByteArrayLiteral("\xEF\xBB\xBF");
    case utf16LE:
        return QByteArrayLiteral("\xFF\xFE");
    case utf16BE:
        return QByteArrayLiteral("\xFE\xFF");
    case utf8:
    case windows1252:
    case latin1:
        break;
    }
    return {};
}

bool TextFileEncoding::isUnicode() const
{
    return m_case != windows1252 && m_case != latin1;
}

std::optional<TextFileEncoding> TextFileEncoding::detect(const QString &filePath)
{
    // Non-blocking, so that a FIFO in the file's place can't hang the caller before fstat refuses it.
    const int fd = ::open(QFile::encodeName(filePath).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return std::nullopt;
    struct stat info;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        return std::nullopt;
    }
    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return std::nullopt;
    }
    if (info.st_size == 0)
        return TextFileCodec::detectEncoding({});
    if (const uchar *mapped = file.map(0, info.st_size)) {
        const std::optional<TextFileEncoding> encoding =
            TextFileCodec::detectEncoding(QByteArrayView(mapped, qsizetype(info.st_size)));
        file.unmap(const_cast<uchar *>(mapped));
        return encoding;
    }
    const QByteArray data = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return TextFileCodec::detectEncoding(data);
}
