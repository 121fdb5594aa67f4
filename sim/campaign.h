/// Many seeds, tried by several processes: a switch's state lies in the process's memory (src/state.h), so
/// that threads would be in each other's way.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "sim/draw.h"
#include "sim/trial.h"

namespace sim {

/// A property that a seed's network did not keep and should have.
struct failure_t {
    uint64_t seed;
    std::string property; ///< its name, or "no-crash"
    std::string network;  ///< "ring, 5 switches, cuts flaps"
    std::string words;
};

/// How often a property did not survive a fault of which that is known, and nothing else is to blame.
struct excused_t {
    uint64_t count = 0;
    uint64_t smallest_seed = 0; ///< 0: none
};
using excused_table_t = std::array<std::array<excused_t, PROPERTIES>, FAULTS>;

struct report_t {
    std::vector<std::pair<uint64_t, uint64_t>> ranges; ///< first and last seed
    std::vector<failure_t> failures;                   ///< in the order of their seeds
    excused_table_t excused = {};
    std::array<uint64_t, FAULTS> seeds_with = {};
    uint64_t switch_seconds = 0;
    uint64_t events = 0;
    double seconds = 0; ///< that it took, all machines together

    uint64_t seeds() const;
    uint64_t failed_seeds() const;
};

/// Hears now and then how many seeds are done.
using progress_t = std::function<void(uint64_t seeds_done, uint64_t switch_seconds)>;

/// Tries `first` to `last` in `jobs` processes. Throws could_not_t when they cannot be started.
report_t try_seeds(uint64_t first, uint64_t last, unsigned jobs, const wishes_t &wishes, const progress_t &progress);

/// "ring, 5 switches, cuts flaps"
std::string story_words(const story_t &story);

} // namespace sim
