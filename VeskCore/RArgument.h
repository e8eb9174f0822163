// One R value written as source: an argument of a kernel request or of generated code.
#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>
#include <variant>

class RArgument {
public:
    struct Null {
        bool operator==(const Null &) const = default;
    };
    using Value =
        std::variant<QString, qint64, double, bool, QList<qint64>, QList<double>, QStringList, Null>;

    RArgument() : m_value(Null{}) {}
    RArgument(const QString &value) : m_value(value) {}
    RArgument(const char *value) : m_value(QString::fromUtf8(value)) {}
    RArgument(int value) : m_value(qint64(value)) {}
    RArgument(qint64 value) : m_value(value) {}
    RArgument(double value) : m_value(value) {}
    RArgument(bool value) : m_value(value) {}
    RArgument(const QList<qint64> &values) : m_value(values) {}
    RArgument(const QList<int> &values);
    RArgument(const QList<double> &values) : m_value(values) {}
    RArgument(const QStringList &values) : m_value(values) {}

    static RArgument null() { return RArgument(); }
    template <typename T> static RArgument optional(const std::optional<T> &value)
    {
        return value ? RArgument(*value) : RArgument();
    }

    const Value &value() const { return m_value; }
    // The R source of this value.
    QString literal() const;
    bool operator==(const RArgument &) const = default;

private:
    Value m_value;
};
