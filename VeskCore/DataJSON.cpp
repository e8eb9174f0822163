#include "DataJSON.h"

#include <QByteArray>
#include <QLocale>

#include <cctype>

#include <cmath>
#include <cstdlib>
#include <locale.h>

namespace DataJSON {

std::optional<QString> string(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    switch (value->kind()) {
    case JSONValue::Kind::String:
        return value->stringValue();
    case JSONValue::Kind::Bool:
        return *value->boolValue() ? QStringLiteral("TRUE") : QStringLiteral("FALSE");
    case JSONValue::Kind::Number: {
        const double d = *value->doubleValue();
        if (std::isfinite(d) && d == std::round(d) && std::fabs(d) < 1e15)
            return QString::number(qint64(d));
        // QString::number with the shortest representation that reads back as the same double.
        return QString::number(d, 'g', QLocale::FloatingPointShortest);
    }
    default:
        return std::nullopt;
    }
}

std::optional<double> number(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    switch (value->kind()) {
    case JSONValue::Kind::Number:
        return value->doubleValue();
    case JSONValue::Kind::Bool:
        return *value->boolValue() ? 1.0 : 0.0;
    case JSONValue::Kind::String: {
        const QByteArray text = value->stringValue()->toUtf8();
        if (text.isEmpty() || std::isspace(static_cast<unsigned char>(text.front())))
            return std::nullopt;
        // strtod_l in the C locale, whatever the process's locale says about decimal commas.
        static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
        char *end = nullptr;
        const double d = strtod_l(text.constData(), &end, cLocale);
        if (end != text.constData() + text.size())
            return std::nullopt;
        return d;
    }
    default:
        return std::nullopt;
    }
}

std::optional<qint64> integer(std::optional<double> value)
{
    if (!value || !std::isfinite(*value) || std::fabs(*value) >= 9.2e18)
        return std::nullopt;
    return qint64(std::round(*value));
}

} // namespace DataJSON
