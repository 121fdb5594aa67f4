/// Single values that one thread writes while another reads them without a common lock.
#pragma once

/// Reads such a value whole.
template <typename value_t>
inline value_t load_shared(const value_t &value)
{
    return __atomic_load_n(&value, __ATOMIC_RELAXED);
}

/// Writes such a value whole.
template <typename value_t>
inline void store_shared(value_t &value, value_t now)
{
    __atomic_store_n(&value, now, __ATOMIC_RELAXED);
}

/// Marks a function that reads live records of the engine without its lock, on purpose: a
/// report may mix values from before and after a tick. Such a function only copies fields.
#define LVT_UNLOCKED_READ __attribute__((no_sanitize("thread"), noinline))
