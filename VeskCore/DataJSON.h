// Tolerant readers of the kernel's data answers. R's JSON writer makes a bare scalar of a vector of
// one, may write a number as text or as a logical, and writes NA as null: none of that loses a page.
// Beside LenientJSON (RSessionTypes.h), these give a cell's text for any scalar, as R would print it.
#pragma once

#include "JSONValue.h"
#include "Result.h"

#include <QList>
#include <QString>

#include <optional>

namespace DataJSON {

// null: none; a string as it is; a boolean "TRUE" or "FALSE"; a number written as an integer when
// it is whole and below 1e15 in magnitude, else in the shortest form that reads back the same.
// Anything else: none.
std::optional<QString> string(const JSONValue *value);
// null: none; a number; a string that is wholly a C-locale number (no leading space); a boolean
// 1 or 0. Anything else: none.
std::optional<double> number(const JSONValue *value);
// A number as an integer: none for none, non-finite or 9.2e18 and beyond; else rounded, halves away
// from zero.
std::optional<qint64> integer(std::optional<double> value);

// An array decoded element by element, or a lone value decoded as a list of one. An element that
// fails fails the whole.
template <typename T, typename Decode> Result<QList<T>> oneOrMany(const JSONValue &value, Decode decode)
{
    QList<T> out;
    if (const JSONValue::Array *array = value.arrayValue()) {
        out.reserve(array->size());
        for (const JSONValue &item : *array) {
            Result<T> decoded = decode(item);
            if (!decoded)
                return Failure{decoded.error()};
            out.append(std::move(decoded).value());
        }
        return out;
    }
    Result<T> decoded = decode(value);
    if (!decoded)
        return Failure{decoded.error()};
    out.append(std::move(decoded).value());
    return out;
}

// oneOrMany for decoders that never fail.
template <typename T, typename Decode> QList<T> lenientList(const JSONValue &value, Decode decode)
{
    QList<T> out;
    if (const JSONValue::Array *array = value.arrayValue()) {
        out.reserve(array->size());
        for (const JSONValue &item : *array)
            out.append(decode(&item));
    } else {
        out.append(decode(&value));
    }
    return out;
}

} // namespace DataJSON
