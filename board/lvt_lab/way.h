/// What a cable does to the frames that go one way: when they arrive, if they do.
#pragma once

#include <chrono>
#include <cstdint>

#include "tools/random.h"
#include "tools/topology/network.h"

namespace lvt_lab {

using moment_t = std::chrono::steady_clock::time_point;

/// How many times a frame arrives, and when.
struct arrivals_t {
    unsigned count = 0; ///< 0: it is lost
    moment_t at[2] = {};
};

class way_t {
public:
    explicit way_t(uint64_t seed) : random_{seed} {}

    topology::quality_t quality;

    /// A frame sets out now. Frames keep their order.
    arrivals_t set_out(moment_t now);

private:
    random_t random_;
    moment_t last_arrival_ = {};
};

} // namespace lvt_lab
