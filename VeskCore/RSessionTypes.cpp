#include "RSessionTypes.h"

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
    state.env = LenientJSON::items(value.find(u"env"), REnvObject::fromJSON);
    state.attached = LenientJSON::strings(value.find(u"attached")).value_or(QStringList());
    state.loaded = LenientJSON::strings(value.find(u"loaded")).value_or(QStringList());
    state.prompt = LenientJSON::string(value.find(u"prompt")).value_or(state.prompt);
    state.continuation = LenientJSON::string(value.find(u"continue")).value_or(state.continuation);
    return state;
}
