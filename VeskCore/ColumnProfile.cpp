#include "ColumnProfile.h"

#include "DataFormat.h"
#include "DataJSON.h"

namespace {

std::optional<ProfileValue> extreme(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    if (const std::optional<double> d = value->doubleValue())
        return ProfileValue{*d};
    if (std::optional<QString> s = value->stringValue())
        return ProfileValue{std::move(*s)};
    return std::nullopt;
}

Result<TopValue> decodeTop(const JSONValue &value)
{
    if (!value.objectValue())
        return Failure{QStringLiteral("A top value is not an object.")};
    TopValue top;
    top.value = DataJSON::string(value.find(u"value")).value_or(QStringLiteral("NA"));
    top.count = DataJSON::integer(DataJSON::number(value.find(u"count"))).value_or(0);
    return top;
}

} // namespace

QString ProfileValue::description() const
{
    if (const double *d = std::get_if<double>(&value))
        return DataFormat::number(*d, 5);
    return std::get<QString>(value);
}

std::optional<double> ProfileValue::number() const
{
    if (const double *d = std::get_if<double>(&value))
        return *d;
    return std::nullopt;
}

double ColumnProfile::missingFraction() const
{
    return n < 1 ? 0.0 : double(missing) / double(n);
}

Result<ColumnProfile> ColumnProfile::fromJSON(const JSONValue &value)
{
    if (!value.objectValue())
        return Failure{QStringLiteral("A column profile is not an object.")};
    ColumnProfile profile;
    profile.name = DataJSON::string(value.find(u"name")).value_or(QString());
    profile.type = DataJSON::string(value.find(u"type")).value_or(QStringLiteral("unknown"));
    auto count = [&](QStringView key) { return DataJSON::integer(DataJSON::number(value.find(key))); };
    profile.n = count(u"n").value_or(0);
    profile.missing = count(u"missing").value_or(0);
    profile.unique = count(u"unique");
    profile.min = extreme(value.find(u"min"));
    profile.max = extreme(value.find(u"max"));
    profile.mean = DataJSON::number(value.find(u"mean"));
    profile.median = DataJSON::number(value.find(u"median"));
    profile.sd = DataJSON::number(value.find(u"sd"));
    if (const JSONValue *bins = value.find(u"histogram")) {
        for (const std::optional<double> &bin :
             DataJSON::lenientList<std::optional<double>>(*bins, DataJSON::number))
            profile.histogram.append(std::max<qint64>(DataJSON::integer(bin).value_or(0), 0));
    }
    if (const JSONValue *top = value.find(u"top")) {
        Result<QList<TopValue>> decoded = DataJSON::oneOrMany<TopValue>(*top, decodeTop);
        if (decoded)
            profile.top = std::move(decoded).value();
    }
    return profile;
}

Result<QList<ColumnProfile>> ColumnProfile::list(const JSONValue &value)
{
    if (value.objectValue()) {
        Result<ColumnProfile> one = fromJSON(value);
        if (!one)
            return Failure{one.error()};
        return QList<ColumnProfile>{std::move(one).value()};
    }
    const JSONValue::Array *array = value.arrayValue();
    if (!array)
        return Failure{QStringLiteral("The column profiles are not a list.")};
    QList<ColumnProfile> out;
    out.reserve(array->size());
    for (const JSONValue &item : *array) {
        Result<ColumnProfile> decoded = fromJSON(item);
        if (!decoded)
            return Failure{decoded.error()};
        out.append(std::move(decoded).value());
    }
    return out;
}
