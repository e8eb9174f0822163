// The one untyped JSON document of Vesk: kernel events, MCP messages and agent stream lines all
// travel as JSONValue, so a consumer can walk a document without declaring a structure for it.
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHashFunctions>
#include <QList>
#include <QString>
#include <QStringView>

#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <variant>

class JSONValue {
public:
    enum class Kind { Bool, Number, String, Array, Object, Null };

    using Array = QList<JSONValue>;
    using Object = std::map<QString, JSONValue, std::less<>>;

    // A failed parse: the reader's message and the byte offset where it stopped.
    struct ParseError {
        QString message;
        qsizetype offset = 0;
    };

    JSONValue() = default; // null
    JSONValue(std::nullptr_t) {}
    JSONValue(bool value);
    JSONValue(int value);
    JSONValue(qint64 value);
    JSONValue(double value);
    JSONValue(const char *utf8);
    JSONValue(const QString &value);
    JSONValue(QString &&value);
    JSONValue(Array value);
    JSONValue(Object value);
    // {{"key", value}, ...} builds an object.
    JSONValue(std::initializer_list<std::pair<const QString, JSONValue>> members);

    static JSONValue array(std::initializer_list<JSONValue> elements);

    // Reads one JSON document (any kind at the top level). Nesting deeper than 512 is refused.
    static std::optional<JSONValue> parse(QByteArrayView utf8, ParseError *error = nullptr);
    static std::optional<JSONValue> parse(QStringView text, ParseError *error = nullptr);

    Kind kind() const;
    bool isNull() const { return kind() == Kind::Null; }

    // Exact-case accessors: no coercion.
    std::optional<bool> boolValue() const;
    std::optional<double> doubleValue() const;
    std::optional<QString> stringValue() const;
    const Array *arrayValue() const;
    const Object *objectValue() const;
    // A number that is finite and below 9.2e18 in magnitude, rounded half away from zero.
    std::optional<qint64> intValue() const;

    // Member of an object / element of an array; nullptr when absent.
    const JSONValue *find(QStringView key) const;
    const JSONValue *at(qsizetype index) const;
    // Convenience: the member's value or null when absent.
    JSONValue operator[](QStringView key) const;
    JSONValue operator[](qsizetype index) const;
    bool contains(QStringView key) const { return find(key) != nullptr; }

    // Compact JSON, object keys sorted, slashes bare.
    QByteArray serialized() const;
    QString serializedString() const { return QString::fromUtf8(serialized()); }

    bool operator==(const JSONValue &other) const;
    bool operator!=(const JSONValue &other) const { return !(*this == other); }

private:
    // Arrays and objects are shared immutable payloads, so copies are cheap.
    std::variant<bool, double, QString, std::shared_ptr<const Array>, std::shared_ptr<const Object>,
                 std::monostate>
        m_value = std::monostate{};
};

size_t qHash(const JSONValue &value, size_t seed = 0);
