/// Draws networks and what happens in them: the same seed draws the same story on every machine.
#pragma once

#include <optional>
#include <span>

#include "sim/faults.h"
#include "sim/story.h"

namespace sim {

enum class shape_t : uint8_t {
    RING,
    LINE,
    STAR, ///< of more than seven switches: a star of stars
    GRID,
    FAT_TREE, ///< levels of switches with as many cables up as down
    MESH,     ///< of at most seven switches: a switch has no more ports
    TREE,     ///< random, with some cables more
    SEGMENTS, ///< random, joined by hubs
};

std::span<const char *const> shape_names(); ///< by shape_t

constexpr unsigned MOST_SWITCHES = 10000;

/// What is not left to the seed.
struct wishes_t {
    std::optional<shape_t> shape = {};
    std::optional<unsigned> switches = {}; ///< 1 to MOST_SWITCHES; some shapes come out smaller
    std::optional<uint64_t> faults = {};   ///< a set of bit(fault_t): these and no others
    rapid_t rapid = rapid_t::NONE;
};

story_t draw(uint64_t seed, const wishes_t &wishes = {});

} // namespace sim
