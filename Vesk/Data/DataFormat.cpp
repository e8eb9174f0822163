#include "DataFormat.h"

#include <cmath>

namespace {

QString trimZeros(QString text)
{
    if (!text.contains(u'.'))
        return text;
    while (text.endsWith(u'0'))
        text.chop(1);
    if (text.endsWith(u'.'))
        text.chop(1);
    return text;
}

QString flattened(QString text)
{
    for (QChar &c : text)
        if (c == u'\t' || c == u'\n' || c == u'\r')
            c = u' ';
    return text;
}

} // namespace

namespace DataFormat {

QString number(double value, int significantDigits)
{
    if (std::isnan(value))
        return QStringLiteral("NaN");
    if (std::isinf(value))
        return value > 0 ? QStringLiteral("Inf") : QStringLiteral("-Inf");
    if (value == 0)
        return QStringLiteral("0");
    const double x = std::fabs(value);
    const int p = std::max(significantDigits, 1) - 1;
    if (x >= 1e15 || x < 0.0001) {
        const QString text = QString::asprintf("%.*e", p, value);
        const qsizetype e = text.indexOf(u'e');
        return trimZeros(text.left(e)) + text.mid(e);
    }
    const int decimals = std::max(p - int(std::floor(std::log10(x))), 0);
    return trimZeros(QString::asprintf("%.*f", decimals, value));
}

QString count(qint64 value)
{
    const QString digits = QString::number(value < 0 ? -(quint64(value)) : quint64(value));
    const QString sign = value < 0 ? QStringLiteral("-") : QString();
    if (digits.size() < 5)
        return sign + digits;
    QString out;
    for (qsizetype i = 0; i < digits.size(); ++i) {
        if (i > 0 && (digits.size() - i) % 3 == 0)
            out += QChar(0x202F);
        out += digits[i];
    }
    return sign + out;
}

QString percent(qint64 part, qint64 whole)
{
    if (whole < 1 || part < 1)
        return QStringLiteral("0%");
    if (part >= whole)
        return QStringLiteral("100%");
    const double p = double(part) * 100 / double(whole);
    if (p < 0.1)
        return QStringLiteral("<0.1%");
    if (p > 99.9)
        return QStringLiteral(">99.9%");
    if (p < 10)
        return trimZeros(QString::asprintf("%.1f", p)) + u'%';
    return QString::asprintf("%.0f", p) + u'%';
}

QString singleLine(const QString &text, qsizetype limit)
{
    bool clean = true;
    for (const QChar c : text) {
        if (c.unicode() < 32 || c.unicode() == 127) {
            clean = false;
            break;
        }
    }
    // UTF-8 length is at least the UTF-16 length; only a long text needs the exact count.
    if (clean && (text.size() * 3 <= limit || text.toUtf8().size() <= limit))
        return text;
    QString out = flattened(text);
    const QList<uint> characters = out.toUcs4();
    if (characters.size() > limit)
        out = QString::fromUcs4(reinterpret_cast<const char32_t *>(characters.constData()), limit) +
              QChar(0x2026);
    return out;
}

QString tsv(const QStringList &header, const QList<QList<std::optional<QString>>> &rows)
{
    QStringList lines;
    lines.reserve(rows.size() + 1);
    QStringList cells;
    for (const QString &name : header)
        cells.append(flattened(name));
    lines.append(cells.join(u'\t'));
    for (const auto &row : rows) {
        cells.clear();
        for (const std::optional<QString> &value : row)
            cells.append(value ? flattened(*value) : QStringLiteral("NA"));
        lines.append(cells.join(u'\t'));
    }
    return lines.join(u'\n');
}

} // namespace DataFormat
