#pragma once

#include <mutex>
#include <utility>

// One value and the lock that guards it. Every read and write holds the lock, and
// only for as long as the read or write takes.
template <typename T>
class LockedBox {
public:
    explicit LockedBox(T initial = T{})
        : m_value(std::move(initial))
    {
    }

    T get() const
    {
        std::lock_guard lock(m_mutex);
        return m_value;
    }

    void set(T value)
    {
        std::lock_guard lock(m_mutex);
        m_value = std::move(value);
    }

    // Runs `f` on the value with the lock held and returns what `f` returns. Keep `f`
    // short: it must not log or call back into anything that might take this lock.
    template <typename F>
    auto with(F&& f)
    {
        std::lock_guard lock(m_mutex);
        return std::forward<F>(f)(m_value);
    }

private:
    mutable std::mutex m_mutex;
    T m_value;
};
