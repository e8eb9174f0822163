#include "Outline.h"

#include <QMutex>
#include <QMutexLocker>
#include <QRegularExpression>

namespace Outline {

QString emptyText()
{
    return QStringLiteral("No sections or functions");
}

namespace {

QString trimChars(const QString &s, QStringView chars)
{
    qsizetype b = 0, e = s.size();
    while (b < e && chars.contains(s[b]))
        ++b;
    while (e > b && chars.contains(s[e - 1]))
        --e;
    return s.mid(b, e - b);
}

} // namespace

QList<OutlineItem> scan(const QString &text, RSourceLanguage language)
{
    static const QRegularExpression chunkHeader(QStringLiteral("^```+\\s*\\{[rR][ ,]*([^,}=]*)"));
    static const QRegularExpression heading(QStringLiteral("^(#{1,6})\\s+(.+)$"));
    static const QRegularExpression section(QStringLiteral("^(#+)\\s*(.*?)\\s*(-{4,}|={4,}|#{4,})\\s*$"));
    static const QRegularExpression function(
        QStringLiteral("^\\s*([A-Za-z.][A-Za-z0-9._]*|`[^`]+`)\\s*(<-|=)\\s*function\\s*\\("));

    QList<OutlineItem> items;
    bool inChunk = false;
    qsizetype number = 0;
    for (QStringView raw : QStringView(text).split(u'\n')) {
        ++number;
        const QString line = raw.toString();
        const QString trimmed = line.trimmed();
        if (language == RSourceLanguage::rMarkdown) {
            if (trimmed.startsWith(QStringLiteral("```"))) {
                if (inChunk) {
                    inChunk = false;
                } else if (const QRegularExpressionMatch m = chunkHeader.match(trimmed); m.hasMatch()) {
                    QString title = trimChars(m.captured(1), u" ");
                    if (title.isEmpty())
                        title = QStringLiteral("Chunk at line ") + QString::number(number);
                    items.append(OutlineItem{OutlineItem::Kind::chunk, title, number, 0});
                    inChunk = true;
                }
                continue;
            }
            if (!inChunk) {
                if (const QRegularExpressionMatch m = heading.match(trimmed); m.hasMatch())
                    items.append(OutlineItem{OutlineItem::Kind::heading, m.captured(2), number,
                                             int(m.capturedLength(1)) - 1});
                continue;
            }
        }
        if (trimmed.startsWith(u'#')) {
            if (const QRegularExpressionMatch m = section.match(trimmed); m.hasMatch()) {
                const QString title = trimChars(m.captured(2), u"-=# ");
                if (!title.isEmpty())
                    items.append(OutlineItem{OutlineItem::Kind::section, title, number,
                                             qMax(0, int(m.capturedLength(1)) - 1)});
            }
        }
        if (line.contains(QStringLiteral("function"))) {
            if (const QRegularExpressionMatch m = function.match(line); m.hasMatch())
                items.append(OutlineItem{OutlineItem::Kind::function, m.captured(1), number, 0});
        }
    }
    return items;
}

QList<OutlineItem> items(const QString &text, RSourceLanguage language)
{
    static QMutex mutex;
    static QString lastText;
    static RSourceLanguage lastLanguage = RSourceLanguage::plain;
    static QList<OutlineItem> lastItems;
    static bool filled = false;
    QMutexLocker lock(&mutex);
    if (filled && lastLanguage == language && lastText == text)
        return lastItems;
    lastItems = scan(text, language);
    lastText = text;
    lastLanguage = language;
    filled = true;
    return lastItems;
}

} // namespace Outline
