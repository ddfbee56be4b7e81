#pragma once

#include <utility>
#include <variant>

// A value or the error that stopped it, for results that travel up to where they are
// logged or shown. (std::expected arrives with C++23.)
struct Done {
    bool operator==(const Done&) const = default;
};

template <typename T, typename E>
class Expected {
public:
    Expected() requires std::is_default_constructible_v<T> : m_state(T{}) {}
    Expected(T value)
        : m_state(std::in_place_index<0>, std::move(value))
    {
    }
    Expected(E error)
        : m_state(std::in_place_index<1>, std::move(error))
    {
    }

    bool hasValue() const { return m_state.index() == 0; }
    explicit operator bool() const { return hasValue(); }

    const T& value() const { return std::get<0>(m_state); }
    T& value() { return std::get<0>(m_state); }
    const T& operator*() const { return value(); }
    const T* operator->() const { return &value(); }
    const E& error() const { return std::get<1>(m_state); }

    T valueOr(T fallback) const { return hasValue() ? value() : std::move(fallback); }

private:
    std::variant<T, E> m_state;
};
