#include "RArgument.h"

#include "RLiteral.h"

namespace {

QString intLiteral(qint64 value)
{
    // Beyond 31 bits R has no integer: the plain number is read as a double.
    const bool fits = value > -(qint64(1) << 31) && value < (qint64(1) << 31);
    return QString::number(value) + (fits ? QStringLiteral("L") : QString());
}

template <typename T, typename F> QString vector(const QList<T> &items, const char *empty, F spell)
{
    if (items.isEmpty())
        return QString::fromLatin1(empty);
    QStringList parts;
    parts.reserve(items.size());
    for (const T &item : items)
        parts.append(spell(item));
    return QLatin1String("c(") + parts.join(u',') + u')';
}

} // namespace

RArgument::RArgument(const QList<int> &values)
{
    QList<qint64> wide;
    wide.reserve(values.size());
    for (int v : values)
        wide.append(v);
    m_value = wide;
}

QString RArgument::literal() const
{
    struct Visitor {
        QString operator()(const QString &v) const { return RLiteral::string(v); }
        QString operator()(qint64 v) const { return intLiteral(v); }
        QString operator()(double v) const { return RLiteral::doubleLiteral(v); }
        QString operator()(bool v) const { return v ? QStringLiteral("TRUE") : QStringLiteral("FALSE"); }
        QString operator()(const QList<qint64> &v) const { return vector(v, "integer(0)", intLiteral); }
        QString operator()(const QList<double> &v) const
        {
            return vector(v, "numeric(0)", RLiteral::doubleLiteral);
        }
        QString operator()(const QStringList &v) const
        {
            return vector(v, "character(0)", [](const QString &s) { return RLiteral::string(s); });
        }
        QString operator()(const Null &) const { return QStringLiteral("NULL"); }
    };
    return std::visit(Visitor{}, m_value);
}
