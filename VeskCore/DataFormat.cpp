#include "DataFormat.h"

#include "RLiteral.h"

#include <QByteArray>

#include <cmath>
#include <cstdlib>
#include <locale.h>

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

bool parsesAsDouble(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    if (bytes.isEmpty())
        return false;
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
    char *end = nullptr;
    strtod_l(bytes.constData(), &end, cLocale);
    return end == bytes.constData() + bytes.size();
}

bool isRNumber(const QString &text)
{
    if (text == u"Inf" || text == u"-Inf" || text == u"NaN")
        return true;
    if (text.isEmpty())
        return false;
    const QChar first = text.front();
    if (!(first.isDigit() || first == u'-' || first == u'.'))
        return false;
    return parsesAsDouble(text);
}

QString flattened(QString text)
{
    text.replace(u'\t', u' ');
    text.replace(u'\n', u' ');
    text.replace(u'\r', u' ');
    return text;
}

QString quoted(const QString &text)
{
    return RLiteral::quoted(text, u'"');
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
        // QString::number writes as C's "%.*e" does, in the C locale, exponent of two digits or more.
        const QString text = QString::number(value, 'e', p);
        const qsizetype e = text.indexOf(u'e');
        return trimZeros(text.left(e)) + text.mid(e);
    }
    const int decimals = std::max(p - int(std::floor(std::log10(x))), 0);
    return trimZeros(QString::number(value, 'f', decimals));
}

QString count(qint64 value)
{
    const bool negative = value < 0;
    // The magnitude as unsigned, so that the smallest qint64 has one too.
    const quint64 magnitude = negative ? quint64(0) - quint64(value) : quint64(value);
    const QString digits = QString::number(magnitude);
    QString out;
    if (digits.size() < 5) {
        out = digits;
    } else {
        for (qsizetype i = 0; i < digits.size(); ++i) {
            if (i > 0 && (digits.size() - i) % 3 == 0)
                out += QChar(0x202F);
            out += digits[i];
        }
    }
    return negative ? u'-' + out : out;
}

QString percent(qint64 part, qint64 whole)
{
    if (whole < 1 || part < 1)
        return QStringLiteral("0%");
    if (part >= whole)
        return QStringLiteral("100%");
    const double p = double(part) * 100.0 / double(whole);
    if (p < 0.1)
        return QStringLiteral("<0.1%");
    if (p > 99.9)
        return QStringLiteral(">99.9%");
    if (p < 10)
        return trimZeros(QString::number(p, 'f', 1)) + u'%';
    return QString::number(p, 'f', 0) + u'%';
}

QString singleLine(const QString &text, int limit)
{
    bool clean = true;
    for (QChar c : text) {
        if (c.unicode() < 32 || c.unicode() == 127) {
            clean = false;
            break;
        }
    }
    // A UTF-16 unit is at most 3 UTF-8 bytes: most texts need no conversion to be measured.
    if (clean && (text.size() * 3 <= limit || text.toUtf8().size() <= limit))
        return text;
    const QString flat = flattened(text);
    const QList<uint> characters = flat.toUcs4();
    if (characters.size() <= limit)
        return flat;
    return QString::fromUcs4(reinterpret_cast<const char32_t *>(characters.constData()), std::max(limit, 0)) +
           QStringLiteral("…");
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

QString rVector(const QList<std::optional<QString>> &values, const DataColumnKind &kind)
{
    auto integerText = [](const QString &text) {
        bool anyDigit = false;
        for (QChar c : text) {
            if (c.unicode() > 127 || !(c.isDigit() || c == u'-'))
                return false;
            anyDigit = anyDigit || c.isDigit();
        }
        return anyDigit;
    };
    QStringList items;
    items.reserve(values.size());
    for (const std::optional<QString> &value : values) {
        if (!value) {
            items.append(QStringLiteral("NA"));
            continue;
        }
        const QString &text = *value;
        switch (kind.kind()) {
        case DataColumnKind::Case::Logical:
            items.append(text == u"TRUE" || text == u"FALSE" ? text : quoted(text));
            break;
        case DataColumnKind::Case::Integer:
            if (integerText(text)) {
                items.append(text + u'L');
                break;
            }
            [[fallthrough]];
        case DataColumnKind::Case::Numeric:
            items.append(isRNumber(text) ? text : quoted(text));
            break;
        default:
            items.append(quoted(text));
        }
    }
    const QString vector = u"c("_qs + items.join(QStringLiteral(", ")) + u')';
    switch (kind.kind()) {
    case DataColumnKind::Case::Factor:
        return u"factor("_qs + vector + u')';
    case DataColumnKind::Case::Date:
        return u"as.Date("_qs + vector + u')';
    case DataColumnKind::Case::DateTime:
        return u"as.POSIXct("_qs + vector + u')';
    default:
        return vector;
    }
}

} // namespace DataFormat
