// The one shape of an operation that can fail: a value, or the message that says why not. New code
// returns this instead of a bool with an error out-parameter.
#pragma once

#include <QString>

#include <utility>
#include <variant>

struct Failure {
    QString message;
};

template <typename T> class [[nodiscard]] Result {
public:
    Result(T value) : m_value(std::in_place_index<0>, std::move(value)) {}
    Result(Failure failure) : m_value(std::in_place_index<1>, std::move(failure)) {}

    bool ok() const { return m_value.index() == 0; }
    explicit operator bool() const { return ok(); }

    const T &value() const & { return std::get<0>(m_value); }
    T &value() & { return std::get<0>(m_value); }
    T &&value() && { return std::get<0>(std::move(m_value)); }
    const T *operator->() const { return &value(); }
    const T &operator*() const { return value(); }

    // Empty when ok.
    QString error() const { return ok() ? QString() : std::get<1>(m_value).message; }

private:
    std::variant<T, Failure> m_value;
};

template <> class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Failure failure) : m_failed(true), m_message(std::move(failure.message)) {}

    bool ok() const { return !m_failed; }
    explicit operator bool() const { return ok(); }
    QString error() const { return m_message; }

private:
    bool m_failed = false;
    QString m_message;
};
