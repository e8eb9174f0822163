#include "RLiteral.h"

#include <QSet>

#include <charconv>
#include <cmath>

namespace RLiteral {

QString quoted(const QString &text, QChar quote)
{
    QString out;
    out.reserve(text.size() + 2);
    out.append(quote);
    for (QChar c : text) {
        const char16_t u = c.unicode();
        if (c == u'\\' || c == quote) {
            out.append(u'\\');
            out.append(c);
        } else if (u == u'\r') {
            out.append(QLatin1String("\\r"));
        } else if (u == u'\n') {
            out.append(QLatin1String("\\n"));
        } else if (u == u'\t') {
            out.append(QLatin1String("\\t"));
        } else if (u < 32 || u == 127) {
            static const char hex[] = "0123456789abcdef";
            out.append(QLatin1String("\\x"));
            out.append(QLatin1Char(hex[u >> 4]));
            out.append(QLatin1Char(hex[u & 15]));
        } else {
            out.append(c); // surrogate halves pass through in pairs unchanged
        }
    }
    out.append(quote);
    return out;
}

QString string(const QString &text)
{
    return quoted(text, u'"');
}

bool isSyntacticName(const QString &text)
{
    if (text.isEmpty())
        return false;
    auto isLetter = [](char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); };
    auto isDigit = [](char16_t c) { return c >= u'0' && c <= u'9'; };
    const char16_t first = text.at(0).unicode();
    if (!isLetter(first) && first != u'.')
        return false;
    if (first == u'.' && text.size() > 1 && isDigit(text.at(1).unicode()))
        return false;
    for (QChar c : text) {
        const char16_t u = c.unicode();
        if (!isLetter(u) && !isDigit(u) && u != u'_' && u != u'.')
            return false;
    }
    static const QSet<QString> reserved = {
        QStringLiteral("if"),          QStringLiteral("else"),     QStringLiteral("repeat"),
        QStringLiteral("while"),       QStringLiteral("function"), QStringLiteral("for"),
        QStringLiteral("next"),        QStringLiteral("break"),    QStringLiteral("in"),
        QStringLiteral("TRUE"),        QStringLiteral("FALSE"),    QStringLiteral("NULL"),
        QStringLiteral("Inf"),         QStringLiteral("NaN"),      QStringLiteral("NA"),
        QStringLiteral("NA_integer_"), QStringLiteral("NA_real_"), QStringLiteral("NA_character_"),
        QStringLiteral("NA_complex_"), QStringLiteral("...")};
    if (reserved.contains(text))
        return false;
    if (text.size() > 2 && text.startsWith(QLatin1String(".."))) {
        bool allDigits = true;
        for (qsizetype i = 2; i < text.size(); ++i)
            allDigits = allDigits && isDigit(text.at(i).unicode());
        if (allDigits)
            return false;
    }
    return true;
}

QString name(const QString &text)
{
    return isSyntacticName(text) ? text : quoted(text, u'`');
}

QString element(const QString &object, const QString &key)
{
    return name(object) + QLatin1String("[[") + string(key) + QLatin1String("]]");
}

QString call(const QString &name, const QList<RArgument> &args,
             const QList<std::pair<QString, RArgument>> &named)
{
    QStringList parts;
    parts.reserve(args.size() + named.size());
    for (const RArgument &arg : args)
        parts.append(arg.literal());
    for (const auto &[key, value] : named)
        parts.append(key.isEmpty() ? value.literal() : key + QLatin1String(" = ") + value.literal());
    return name + u'(' + parts.join(QLatin1String(", ")) + u')';
}

QString doubleLiteral(double value)
{
    if (std::isnan(value))
        return QStringLiteral("NaN");
    if (std::isinf(value))
        return value > 0 ? QStringLiteral("Inf") : QStringLiteral("-Inf");
    // std::to_chars never looks at the locale, unlike printf under a Qt application.
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 17);
    return QString::fromLatin1(buffer, result.ptr - buffer);
}

} // namespace RLiteral
