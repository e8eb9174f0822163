#include "JSONValue.h"

#include "TextUnits.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr int maxDepth = 512;

class Reader {
public:
    Reader(const char *begin, const char *end) : m_begin(begin), m_p(begin), m_end(end) {}

    std::optional<JSONValue> document(JSONValue::ParseError *error)
    {
        skipSpace();
        std::optional<JSONValue> value = readValue(0);
        if (value) {
            skipSpace();
            if (m_p != m_end)
                fail("garbage after the document");
        }
        if (!m_error.isEmpty()) {
            if (error) {
                error->message = m_error;
                error->offset = m_errorAt - m_begin;
            }
            return std::nullopt;
        }
        return value;
    }

private:
    const char *m_begin;
    const char *m_p;
    const char *m_end;
    QString m_error;
    const char *m_errorAt = nullptr;

    std::nullopt_t fail(const char *message)
    {
        if (m_error.isEmpty()) {
            m_error = QString::fromLatin1(message);
            m_errorAt = m_p;
        }
        return std::nullopt;
    }

    void skipSpace()
    {
        while (m_p < m_end && (*m_p == ' ' || *m_p == '\n' || *m_p == '\r' || *m_p == '\t'))
            ++m_p;
    }

    bool literal(const char *word)
    {
        const size_t n = std::strlen(word);
        if (size_t(m_end - m_p) >= n && std::memcmp(m_p, word, n) == 0) {
            m_p += n;
            return true;
        }
        return false;
    }

    std::optional<JSONValue> readValue(int depth)
    {
        if (m_p >= m_end)
            return fail("unexpected end of input");
        switch (*m_p) {
        case 'n':
            if (literal("null"))
                return JSONValue();
            return fail("invalid literal");
        case 't':
            if (literal("true"))
                return JSONValue(true);
            return fail("invalid literal");
        case 'f':
            if (literal("false"))
                return JSONValue(false);
            return fail("invalid literal");
        case '"': {
            QString text;
            if (!readString(text))
                return std::nullopt;
            return JSONValue(std::move(text));
        }
        case '[':
            return readArray(depth + 1);
        case '{':
            return readObject(depth + 1);
        default:
            if (*m_p == '-' || (*m_p >= '0' && *m_p <= '9'))
                return readNumber();
            return fail("unexpected character");
        }
    }

    std::optional<JSONValue> readNumber()
    {
        const char *start = m_p;
        if (m_p < m_end && *m_p == '-')
            ++m_p;
        if (m_p >= m_end)
            return fail("invalid number");
        if (*m_p == '0') {
            ++m_p;
        } else if (*m_p >= '1' && *m_p <= '9') {
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
        } else {
            return fail("invalid number");
        }
        if (m_p < m_end && *m_p == '.') {
            ++m_p;
            if (m_p >= m_end || *m_p < '0' || *m_p > '9')
                return fail("invalid number");
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
        }
        if (m_p < m_end && (*m_p == 'e' || *m_p == 'E')) {
            ++m_p;
            if (m_p < m_end && (*m_p == '+' || *m_p == '-'))
                ++m_p;
            if (m_p >= m_end || *m_p < '0' || *m_p > '9')
                return fail("invalid number");
            while (m_p < m_end && *m_p >= '0' && *m_p <= '9')
                ++m_p;
        }
        double value = 0;
        const auto result = std::from_chars(start, m_p, value);
        if (result.ec == std::errc::result_out_of_range) {
            // Too large or too small for a double: keep the nearest finite value, so that what was
            // read always writes back as a number.
            value = std::strtod(std::string(start, m_p).c_str(), nullptr);
            if (std::isinf(value))
                value = std::copysign(std::numeric_limits<double>::max(), value);
        } else if (result.ec != std::errc()) {
            return fail("invalid number");
        }
        return JSONValue(value);
    }

    bool readHex4(char16_t &out)
    {
        if (m_end - m_p < 4) {
            fail("truncated \\u escape");
            return false;
        }
        int value = 0;
        for (int i = 0; i < 4; ++i) {
            const int h = TextUnits::hexDigitValue(m_p[i]);
            if (h < 0) {
                fail("invalid \\u escape");
                return false;
            }
            value = value * 16 + h;
        }
        m_p += 4;
        out = char16_t(value);
        return true;
    }

    bool readString(QString &out)
    {
        ++m_p; // opening quote
        const char *runStart = m_p;
        auto flushRun = [&](const char *runEnd) {
            if (runEnd > runStart)
                out.append(TextUnits::decodeUTF8(QByteArrayView(runStart, runEnd - runStart)));
        };
        while (m_p < m_end) {
            const unsigned char c = static_cast<unsigned char>(*m_p);
            if (c == '"') {
                flushRun(m_p);
                ++m_p;
                return true;
            }
            if (c < 0x20) {
                fail("control character in string");
                return false;
            }
            if (c != '\\') {
                ++m_p;
                continue;
            }
            flushRun(m_p);
            ++m_p;
            if (m_p >= m_end)
                break;
            const char e = *m_p++;
            switch (e) {
            case '"':
                out.append(u'"');
                break;
            case '\\':
                out.append(u'\\');
                break;
            case '/':
                out.append(u'/');
                break;
            case 'b':
                out.append(u'\b');
                break;
            case 'f':
                out.append(u'\f');
                break;
            case 'n':
                out.append(u'\n');
                break;
            case 'r':
                out.append(u'\r');
                break;
            case 't':
                out.append(u'\t');
                break;
            case 'u': {
                char16_t unit = 0;
                if (!readHex4(unit))
                    return false;
                if (QChar::isHighSurrogate(unit) && m_end - m_p >= 6 && m_p[0] == '\\' && m_p[1] == 'u') {
                    const char *save = m_p;
                    m_p += 2;
                    char16_t low = 0;
                    if (!readHex4(low))
                        return false;
                    if (QChar::isLowSurrogate(low)) {
                        out.append(QChar(unit));
                        out.append(QChar(low));
                        break;
                    }
                    m_p = save; // not a pair: the next escape stands on its own
                    out.append(QChar(QChar::ReplacementCharacter));
                    break;
                }
                out.append(QChar::isSurrogate(unit) ? QChar(QChar::ReplacementCharacter) : QChar(unit));
                break;
            }
            default:
                --m_p;
                fail("invalid escape");
                return false;
            }
            runStart = m_p;
        }
        fail("unterminated string");
        return false;
    }

    std::optional<JSONValue> readArray(int depth)
    {
        if (depth > maxDepth)
            return fail("nesting too deep");
        ++m_p;
        JSONValue::Array items;
        skipSpace();
        if (m_p < m_end && *m_p == ']') {
            ++m_p;
            return JSONValue(std::move(items));
        }
        for (;;) {
            skipSpace();
            std::optional<JSONValue> item = readValue(depth);
            if (!item)
                return std::nullopt;
            items.append(std::move(*item));
            skipSpace();
            if (m_p >= m_end)
                return fail("unterminated array");
            if (*m_p == ',') {
                ++m_p;
                continue;
            }
            if (*m_p == ']') {
                ++m_p;
                return JSONValue(std::move(items));
            }
            return fail("expected , or ]");
        }
    }

    std::optional<JSONValue> readObject(int depth)
    {
        if (depth > maxDepth)
            return fail("nesting too deep");
        ++m_p;
        JSONValue::Object members;
        skipSpace();
        if (m_p < m_end && *m_p == '}') {
            ++m_p;
            return JSONValue(std::move(members));
        }
        for (;;) {
            skipSpace();
            if (m_p >= m_end || *m_p != '"')
                return fail("expected a member name");
            QString key;
            if (!readString(key))
                return std::nullopt;
            skipSpace();
            if (m_p >= m_end || *m_p != ':')
                return fail("expected :");
            ++m_p;
            skipSpace();
            std::optional<JSONValue> value = readValue(depth);
            if (!value)
                return std::nullopt;
            members.insert_or_assign(std::move(key), std::move(*value)); // a later duplicate wins
            skipSpace();
            if (m_p >= m_end)
                return fail("unterminated object");
            if (*m_p == ',') {
                ++m_p;
                continue;
            }
            if (*m_p == '}') {
                ++m_p;
                return JSONValue(std::move(members));
            }
            return fail("expected , or }");
        }
    }
};

void writeString(QByteArray &out, const QString &text)
{
    out.append('"');
    const QByteArray utf8 = text.toUtf8();
    const char *p = utf8.constData();
    const char *end = p + utf8.size();
    const char *run = p;
    for (; p < end; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        if (c >= 0x20 && c != '"' && c != '\\')
            continue;
        out.append(run, p - run);
        run = p + 1;
        switch (c) {
        case '"':
            out.append("\\\"");
            break;
        case '\\':
            out.append("\\\\");
            break;
        case '\n':
            out.append("\\n");
            break;
        case '\r':
            out.append("\\r");
            break;
        case '\t':
            out.append("\\t");
            break;
        case '\b':
            out.append("\\b");
            break;
        case '\f':
            out.append("\\f");
            break;
        default: {
            char buffer[8];
            std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
            out.append(buffer);
        }
        }
    }
    out.append(run, end - run);
    out.append('"');
}

void writeNumber(QByteArray &out, double value)
{
    if (!std::isfinite(value)) {
        out.append("null");
        return;
    }
    char buffer[64];
    std::to_chars_result result;
    if (value == std::trunc(value) && std::fabs(value) < 9007199254740992.0)
        result = std::to_chars(buffer, buffer + sizeof buffer, static_cast<long long>(value));
    else
        result = std::to_chars(buffer, buffer + sizeof buffer, value); // shortest round trip
    out.append(buffer, result.ptr - buffer);
}

void write(QByteArray &out, const JSONValue &value)
{
    switch (value.kind()) {
    case JSONValue::Kind::Null:
        out.append("null");
        return;
    case JSONValue::Kind::Bool:
        out.append(*value.boolValue() ? "true" : "false");
        return;
    case JSONValue::Kind::Number:
        writeNumber(out, *value.doubleValue());
        return;
    case JSONValue::Kind::String:
        writeString(out, *value.stringValue());
        return;
    case JSONValue::Kind::Array: {
        out.append('[');
        bool first = true;
        for (const JSONValue &item : *value.arrayValue()) {
            if (!first)
                out.append(',');
            first = false;
            write(out, item);
        }
        out.append(']');
        return;
    }
    case JSONValue::Kind::Object: {
        out.append('{');
        bool first = true;
        for (const auto &[key, member] : *value.objectValue()) { // std::map: keys sorted
            if (!first)
                out.append(',');
            first = false;
            writeString(out, key);
            out.append(':');
            write(out, member);
        }
        out.append('}');
        return;
    }
    }
}

} // namespace

JSONValue::JSONValue(bool value) : m_value(value) {}
JSONValue::JSONValue(int value) : m_value(double(value)) {}
JSONValue::JSONValue(qint64 value) : m_value(double(value)) {}
JSONValue::JSONValue(double value) : m_value(value) {}
JSONValue::JSONValue(const char *utf8) : m_value(QString::fromUtf8(utf8)) {}
JSONValue::JSONValue(const QString &value) : m_value(value) {}
JSONValue::JSONValue(QString &&value) : m_value(std::move(value)) {}
JSONValue::JSONValue(Array value) : m_value(std::make_shared<const Array>(std::move(value))) {}
JSONValue::JSONValue(Object value) : m_value(std::make_shared<const Object>(std::move(value))) {}
JSONValue::JSONValue(std::initializer_list<std::pair<const QString, JSONValue>> members)
    : m_value(std::make_shared<const Object>(members))
{
}

JSONValue JSONValue::array(std::initializer_list<JSONValue> elements)
{
    return JSONValue(Array(elements));
}

std::optional<JSONValue> JSONValue::parse(QByteArrayView utf8, ParseError *error)
{
    return Reader(utf8.data(), utf8.data() + utf8.size()).document(error);
}

std::optional<JSONValue> JSONValue::parse(QStringView text, ParseError *error)
{
    return parse(QByteArrayView(text.toUtf8()), error);
}

JSONValue::Kind JSONValue::kind() const
{
    switch (m_value.index()) {
    case 0:
        return Kind::Bool;
    case 1:
        return Kind::Number;
    case 2:
        return Kind::String;
    case 3:
        return Kind::Array;
    case 4:
        return Kind::Object;
    default:
        return Kind::Null;
    }
}

std::optional<bool> JSONValue::boolValue() const
{
    if (const bool *v = std::get_if<bool>(&m_value))
        return *v;
    return std::nullopt;
}

std::optional<double> JSONValue::doubleValue() const
{
    if (const double *v = std::get_if<double>(&m_value))
        return *v;
    return std::nullopt;
}

std::optional<QString> JSONValue::stringValue() const
{
    if (const QString *v = std::get_if<QString>(&m_value))
        return *v;
    return std::nullopt;
}

const JSONValue::Array *JSONValue::arrayValue() const
{
    if (const auto *v = std::get_if<std::shared_ptr<const Array>>(&m_value))
        return v->get();
    return nullptr;
}

const JSONValue::Object *JSONValue::objectValue() const
{
    if (const auto *v = std::get_if<std::shared_ptr<const Object>>(&m_value))
        return v->get();
    return nullptr;
}

std::optional<qint64> JSONValue::intValue() const
{
    const std::optional<double> d = doubleValue();
    if (!d || !std::isfinite(*d) || std::fabs(*d) >= 9.2e18)
        return std::nullopt;
    return qint64(std::round(*d)); // std::round rounds halves away from zero
}

const JSONValue *JSONValue::find(QStringView key) const
{
    const Object *object = objectValue();
    if (!object)
        return nullptr;
    const auto it = object->find(key);
    return it == object->end() ? nullptr : &it->second;
}

const JSONValue *JSONValue::at(qsizetype index) const
{
    const Array *array = arrayValue();
    if (!array || index < 0 || index >= array->size())
        return nullptr;
    return &array->at(index);
}

JSONValue JSONValue::operator[](QStringView key) const
{
    const JSONValue *member = find(key);
    return member ? *member : JSONValue();
}

JSONValue JSONValue::operator[](qsizetype index) const
{
    const JSONValue *element = at(index);
    return element ? *element : JSONValue();
}

QByteArray JSONValue::serialized() const
{
    QByteArray out;
    write(out, *this);
    return out;
}

bool JSONValue::operator==(const JSONValue &other) const
{
    if (kind() != other.kind())
        return false;
    switch (kind()) {
    case Kind::Null:
        return true;
    case Kind::Bool:
        return *boolValue() == *other.boolValue();
    case Kind::Number:
        return *doubleValue() == *other.doubleValue();
    case Kind::String:
        return std::get<QString>(m_value) == std::get<QString>(other.m_value);
    case Kind::Array:
        return arrayValue() == other.arrayValue() || *arrayValue() == *other.arrayValue();
    case Kind::Object:
        return objectValue() == other.objectValue() || *objectValue() == *other.objectValue();
    }
    return false;
}

size_t qHash(const JSONValue &value, size_t seed)
{
    switch (value.kind()) {
    case JSONValue::Kind::Null:
        return qHash(0, seed);
    case JSONValue::Kind::Bool:
        return qHash(*value.boolValue(), seed ^ 1);
    case JSONValue::Kind::Number: {
        const double d = *value.doubleValue();
        return qHash(d == 0 ? 0.0 : d, seed ^ 2); // 0.0 and -0.0 are equal
    }
    case JSONValue::Kind::String:
        return qHash(*value.stringValue(), seed ^ 3);
    case JSONValue::Kind::Array: {
        size_t h = seed ^ 4;
        for (const JSONValue &item : *value.arrayValue())
            h = qHash(item, h * 31);
        return h;
    }
    case JSONValue::Kind::Object: {
        size_t h = seed ^ 5;
        for (const auto &[key, member] : *value.objectValue()) // sorted: order-independent
            h = qHash(member, qHash(key, h * 31));
        return h;
    }
    }
    return seed;
}
