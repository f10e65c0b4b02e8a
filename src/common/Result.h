#pragma once

#include <QString>

#include <optional>
#include <utility>
#include <variant>

// The one way a function reports that it could not do its work: a `Result<T>` holds either
// the value or the error (a sentence for the user unless `E` says otherwise). Built from a
// value, or from `Result<T, E>::failure(error)`; `Result<void>` holds only the error, if any.
// Ignoring a Result is a compile warning (and an error in the warnings-as-errors build). It has
// no conversion to bool on purpose: `if (result.ok())` reads the same whichever way it was
// written before, where an optional error meant the opposite.
template<typename T, typename E = QString>
class [[nodiscard]] Result
{
public:
    Result(T value) : m_state(std::in_place_index<0>, std::move(value)) {}
    static Result failure(E error) { return Result(std::in_place_index<1>, std::move(error)); }

    bool ok() const { return m_state.index() == 0; }

    // Only when ok().
    const T &value() const & { return std::get<0>(m_state); }
    T &value() & { return std::get<0>(m_state); }
    T &&value() && { return std::get<0>(std::move(m_state)); }
    const T &operator*() const & { return value(); }
    const T *operator->() const { return &value(); }
    T valueOr(T fallback) const { return ok() ? value() : std::move(fallback); }

    // Only when !ok().
    const E &error() const { return std::get<1>(m_state); }

private:
    template<std::size_t I>
    Result(std::in_place_index_t<I> index, auto &&payload) : m_state(index, std::forward<decltype(payload)>(payload)) {}

    std::variant<T, E> m_state;
};

template<typename E>
class [[nodiscard]] Result<void, E>
{
public:
    Result() = default;   // success
    static Result success() { return Result(); }
    static Result failure(E error)
    {
        Result result;
        result.m_error = std::move(error);
        return result;
    }

    bool ok() const { return !m_error.has_value(); }
    // Only when !ok().
    const E &error() const { return *m_error; }
    // The error, if any, for callers that pass it on as an optional sentence.
    const std::optional<E> &errorIfAny() const { return m_error; }

private:
    std::optional<E> m_error;
};
