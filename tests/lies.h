/// What neighbours say that lie.
#pragma once

#include <array>
#include <ostream>
#include <vector>

#include "tests/bpdus.h"

struct lie_t {
    const char *name;
    /// BPDUs to be said in turn to a bridge with this identifier.
    std::vector<bpdu_t> (*words)(const bridge_id_t &ours);
};

/// For GoogleTest.
inline void PrintTo(const lie_t &lie, std::ostream *stream) { *stream << lie.name; }

extern const std::array<lie_t, 6> LIES;
