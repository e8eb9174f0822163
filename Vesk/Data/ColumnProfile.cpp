#include "ColumnProfile.h"

#include "DataFormat.h"
#include "DataJSON.h"

#include <algorithm>
#include <cmath>

namespace {

std::optional<qint64> wholeNumber(const JSONValue *value)
{
    return DataJSON::integer(DataJSON::number(value));
}

std::optional<ColumnProfile::Value> extreme(const JSONValue *value)
{
    if (!value)
        return std::nullopt;
    if (const std::optional<double> number = value->doubleValue())
        return ColumnProfile::Value{*number};
    if (const std::optional<QString> text = value->stringValue())
        return ColumnProfile::Value{*text};
    return std::nullopt;
}

ColumnProfile::TopValue topValue(const JSONValue *item)
{
    ColumnProfile::TopValue top;
    if (!item || !item->objectValue())
        return top;
    top.value = DataJSON::string(item->find(u"value")).value_or(QStringLiteral("NA"));
    top.count = wholeNumber(item->find(u"count")).value_or(0);
    return top;
}

} // namespace

QString ColumnProfile::Value::description() const
{
    if (const double *number = std::get_if<double>(&value))
        return DataFormat::number(*number, 5);
    return std::get<QString>(value);
}

std::optional<double> ColumnProfile::Value::number() const
{
    if (const double *number = std::get_if<double>(&value))
        return *number;
    return std::nullopt;
}

Result<ColumnProfile> ColumnProfile::fromJSON(const JSONValue &value)
{
    if (!value.objectValue())
        return Failure{QStringLiteral("A column profile is not an object.")};
    ColumnProfile profile;
    profile.name = DataJSON::string(value.find(u"name")).value_or(QString());
    profile.type = DataJSON::string(value.find(u"type")).value_or(QStringLiteral("unknown"));
    profile.n = wholeNumber(value.find(u"n")).value_or(0);
    profile.missing = wholeNumber(value.find(u"missing")).value_or(0);
    profile.unique = wholeNumber(value.find(u"unique"));
    profile.min = extreme(value.find(u"min"));
    profile.max = extreme(value.find(u"max"));
    profile.mean = DataJSON::number(value.find(u"mean"));
    profile.median = DataJSON::number(value.find(u"median"));
    profile.sd = DataJSON::number(value.find(u"sd"));
    if (const JSONValue *bins = value.find(u"histogram"); bins && !bins->isNull()) {
        for (const std::optional<double> &bin :
             DataJSON::lenientList<std::optional<double>>(*bins, DataJSON::number))
            profile.histogram.append(std::max<qint64>(DataJSON::integer(bin).value_or(0), 0));
    }
    if (const JSONValue *top = value.find(u"top"); top && !top->isNull())
        profile.top = DataJSON::lenientList<TopValue>(*top, topValue);
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
    if (!value.arrayValue())
        return Failure{QStringLiteral("The column profiles are not a list.")};
    return DataJSON::oneOrMany<ColumnProfile>(value, fromJSON);
}

QList<ColumnProfile::Section> ColumnProfile::inspectorSections() const
{
    QList<Section> out;
    Section counts{QString(), {}};
    counts.rows.append({QStringLiteral("Values"), DataFormat::count(n)});
    counts.rows.append({QStringLiteral("Missing"),
                        missing == 0 ? QStringLiteral("0")
                                     : QStringLiteral("%1 (%2)").arg(DataFormat::count(missing),
                                                                     DataFormat::percent(missing, n))});
    if (unique)
        counts.rows.append({QStringLiteral("Unique"), DataFormat::count(*unique)});
    out.append(counts);

    const DataColumnKind::Case kindCase = kind().kind();
    if (kindCase == DataColumnKind::Case::Date || kindCase == DataColumnKind::Case::DateTime) {
        Section range{QStringLiteral("Range"), {}};
        if (min)
            range.rows.append({QStringLiteral("Earliest"), min->description()});
        if (max)
            range.rows.append({QStringLiteral("Latest"), max->description()});
        if (!range.rows.isEmpty())
            out.append(range);
    } else {
        Section statistics{QStringLiteral("Statistics"), {}};
        auto add = [&](const QString &label, std::optional<double> value) {
            if (value)
                statistics.rows.append({label, DataFormat::number(*value, 5)});
        };
        if (min)
            statistics.rows.append({QStringLiteral("Minimum"), min->description()});
        if (max)
            statistics.rows.append({QStringLiteral("Maximum"), max->description()});
        add(QStringLiteral("Mean"), mean);
        add(QStringLiteral("Median"), median);
        add(QStringLiteral("Standard deviation"), sd);
        if (!statistics.rows.isEmpty())
            out.append(statistics);
    }

    if (!top.isEmpty()) {
        Section frequent{QStringLiteral("Most frequent"), {}};
        qint64 listed = 0;
        for (const TopValue &value : top) {
            listed += value.count;
            frequent.rows.append({value.value.isEmpty() ? QStringLiteral("Empty string") : value.value,
                                  QStringLiteral("%1 (%2)").arg(DataFormat::count(value.count),
                                                                DataFormat::percent(value.count, n))});
        }
        if (unique && *unique > top.size()) {
            const qint64 others = *unique - top.size();
            const qint64 rest = n - missing - listed;
            if (rest >= 1)
                frequent.rows.append(
                    {QStringLiteral("%1 other %2")
                         .arg(DataFormat::count(others),
                              others == 1 ? QStringLiteral("value") : QStringLiteral("values")),
                     QStringLiteral("%1 (%2)").arg(DataFormat::count(rest), DataFormat::percent(rest, n))});
        }
        out.append(frequent);
    }
    return out;
}

QList<qint64> ColumnProfile::drawableHistogram() const
{
    const std::optional<double> low = min ? min->number() : std::nullopt;
    const std::optional<double> high = max ? max->number() : std::nullopt;
    if (histogram.isEmpty() || !low || !high || !std::isfinite(*low) || !std::isfinite(*high))
        return {};
    return histogram;
}

std::pair<double, double> ColumnProfile::histogramRange() const
{
    const double low = min ? min->number().value_or(0) : 0;
    const double high = max ? max->number().value_or(0) : 0;
    if (!(low < high))
        return {low - 0.5, high + 0.5};
    return {low, high};
}

QString ColumnProfile::note() const
{
    if (kind().kind() == DataColumnKind::Case::List)
        return QStringLiteral("No summary for list columns.");
    if (n == 0)
        return QStringLiteral("The column is empty.");
    if (missing == n)
        return QStringLiteral("All values are missing.");
    return {};
}

QList<double> ColumnProfile::sparkline() const
{
    QList<double> out;
    if (!histogram.isEmpty()) {
        const qint64 largest = *std::max_element(histogram.begin(), histogram.end());
        for (qint64 bin : histogram)
            out.append(largest > 0 ? double(bin) / double(largest) : 0.0);
        return out;
    }
    if (n < 1)
        return out;
    for (qsizetype i = 0; i < std::min<qsizetype>(top.size(), 8); ++i)
        out.append(std::clamp(double(top[i].count) / double(n), 0.0, 1.0));
    return out;
}
