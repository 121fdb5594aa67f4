/// Random numbers that are the same on every machine: the standard's distributions are not.
#pragma once

#include <cstdint>

/// SplitMix64: one word of state, so that a seed is the whole story.
struct random_t {
    uint64_t state;

    uint64_t next()
    {
        uint64_t word = state += 0x9E3779B97F4A7C15u;
        word = (word ^ word >> 30) * 0xBF58476D1CE4E5B9u;
        word = (word ^ word >> 27) * 0x94D049BB133111EBu;
        return word ^ word >> 31;
    }

    /// 0 to count - 1; count is at least 1.
    uint64_t below(uint64_t count) { return next() % count; }

    /// first to last, both included.
    uint64_t between(uint64_t first, uint64_t last) { return first + below(last - first + 1); }

    /// True once in `of` times, on average.
    bool one_in(uint64_t of) { return below(of) == 0; }

    /// True `parts` times in a million, on average.
    bool per_million(uint64_t parts) { return below(1000000) < parts; }
};
