#include "RSessionTypes.h"

#include <algorithm>
#include <cmath>

namespace LenientJSON {

std::optional<QString> string(const JSONValue *value)
{
    return value ? value->stringValue() : std::nullopt;
}

std::optional<double> number(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    if (auto d = value->doubleValue())
        return d;
    if (auto s = value->stringValue()) {
        bool ok = false;
        const double d = s->trimmed().toDouble(&ok);
        if (ok)
            return d;
    }
    return std::nullopt;
}

std::optional<QStringList> strings(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    if (auto s = value->stringValue())
        return QStringList{*s};
    const JSONValue::Array *array = value->arrayValue();
    if (!array)
        return std::nullopt;
    QStringList out;
    for (const JSONValue &item : *array)
        if (auto s = item.stringValue())
            out.append(*s);
    return out;
}

std::optional<QList<double>> numbers(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    if (auto d = number(value))
        return QList<double>{*d};
    const JSONValue::Array *array = value->arrayValue();
    if (!array)
        return std::nullopt;
    QList<double> out;
    for (const JSONValue &item : *array)
        if (auto d = number(&item))
            out.append(*d);
    return out;
}

} // namespace LenientJSON

std::optional<RFrame> RFrame::fromJSON(const JSONValue &value)
{
    const std::optional<QString> call = LenientJSON::string(value.find(u"call"));
    if (!call)
        return std::nullopt;
    RFrame frame;
    frame.call = *call;
    frame.file = LenientJSON::string(value.find(u"file"));
    if (const auto line = LenientJSON::number(value.find(u"line")); line && std::isfinite(*line))
        frame.line = int(*line);
    return frame;
}

QString RFrame::identity() const
{
    return call + u'|' + file.value_or(QString()) + u'|' + QString::number(line.value_or(0));
}

ExecResult ExecResult::cancelled()
{
    ExecResult result;
    result.ok = false;
    result.interrupted = true;
    return result;
}

REnvObject::Kind REnvObject::kindFromString(const QString &text)
{
    if (text == u"data")
        return Kind::Data;
    if (text == u"function")
        return Kind::Function;
    if (text == u"environment")
        return Kind::Environment;
    if (text == u"list")
        return Kind::List;
    if (text == u"value")
        return Kind::Value;
    return Kind::Other;
}

std::optional<REnvObject> REnvObject::fromJSON(const JSONValue &value)
{
    const std::optional<QString> name = LenientJSON::string(value.find(u"name"));
    if (!name)
        return std::nullopt;
    REnvObject object;
    object.name = *name;
    object.kind = kindFromString(LenientJSON::string(value.find(u"kind")).value_or(QString()));
    object.classes = LenientJSON::strings(value.find(u"class")).value_or(QStringList());
    object.type = LenientJSON::string(value.find(u"type"));
    object.size = LenientJSON::number(value.find(u"size"));
    object.length = LenientJSON::number(value.find(u"length"));
    object.dim = LenientJSON::numbers(value.find(u"dim"));
    object.summary = LenientJSON::string(value.find(u"summary"));
    object.from = LenientJSON::strings(value.find(u"from"));
    if (const JSONValue *columns = value.find(u"columns")) {
        QList<Column> list;
        auto add = [&](const JSONValue &item) {
            if (auto n = LenientJSON::string(item.find(u"name")))
                list.append({*n, LenientJSON::string(item.find(u"type")).value_or(QString())});
        };
        if (const JSONValue::Array *array = columns->arrayValue()) {
            for (const JSONValue &item : *array)
                add(item);
            object.columns = list;
        } else if (columns->objectValue()) {
            add(*columns);
            object.columns = list;
        }
    }
    return object;
}

std::optional<QString> REnvObject::dimensionText(const QLocale &locale) const
{
    if (!dim || dim->size() != 2)
        return std::nullopt;
    return locale.toString(qint64(dim->at(0))) + QStringLiteral(" × ") + locale.toString(qint64(dim->at(1)));
}

std::optional<QString> REnvObject::sizeText(const QLocale &locale) const
{
    if (!size || !(*size > 0))
        return std::nullopt;
    return locale.formattedDataSize(qint64(*size), 1, QLocale::DataSizeSIFormat);
}

std::optional<RSessionState> RSessionState::fromJSON(const JSONValue &value)
{
    if (!value.objectValue())
        return std::nullopt;
    RSessionState state;
    state.wd = LenientJSON::string(value.find(u"wd")).value_or(QString());
    if (const JSONValue *env = value.find(u"env")) {
        state.env = LenientJSON::items(env, REnvObject::fromJSON);
    } else if (const JSONValue *changed = value.find(u"changed")) {
        state.partial = true;
        state.env = LenientJSON::items(changed, REnvObject::fromJSON);
        state.removed = LenientJSON::strings(value.find(u"removed")).value_or(QStringList());
    }
    state.attached = LenientJSON::strings(value.find(u"attached")).value_or(QStringList());
    state.loaded = LenientJSON::strings(value.find(u"loaded")).value_or(QStringList());
    state.prompt = LenientJSON::string(value.find(u"prompt")).value_or(state.prompt);
    state.continuation = LenientJSON::string(value.find(u"continue")).value_or(state.continuation);
    return state;
}

bool RSessionState::nameBefore(const QString &a, const QString &b)
{
    // Surrogates (U+D800..U+DFFF) moved above the rest of the BMP give code point order.
    const auto rank = [](char16_t u) -> char32_t {
        if (u >= 0xD800 && u < 0xE000)
            return char32_t(u) + 0x2000;
        if (u >= 0xE000)
            return char32_t(u) - 0x800;
        return u;
    };
    const qsizetype n = std::min(a.size(), b.size());
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t x = a[i].unicode();
        const char16_t y = b[i].unicode();
        if (x != y)
            return rank(x) < rank(y);
    }
    return a.size() < b.size();
}

void RSessionState::apply(const RSessionState &next)
{
    QList<REnvObject> env = next.partial ? std::move(this->env) : next.env;
    if (next.partial && (!next.env.isEmpty() || !next.removed.isEmpty())) {
        const auto byName = [](const REnvObject &object, const QString &name) {
            return nameBefore(object.name, name);
        };
        // The position of `name`, or where it belongs; a name out of order is found by a scan.
        const auto locate = [&](const QString &name) {
            auto at = std::lower_bound(env.begin(), env.end(), name, byName);
            if (at != env.end() && at->name == name)
                return at;
            auto found = std::find_if(env.begin(), env.end(),
                                      [&](const REnvObject &object) { return object.name == name; });
            return found != env.end() ? found : at;
        };
        for (const QString &name : next.removed) {
            auto at = locate(name);
            if (at != env.end() && at->name == name)
                env.erase(at);
        }
        for (const REnvObject &object : next.env) {
            auto at = locate(object.name);
            if (at != env.end() && at->name == object.name)
                *at = object;
            else
                env.insert(at, object);
        }
    }
    *this = next;
    this->env = std::move(env);
    partial = false;
    removed.clear();
}
