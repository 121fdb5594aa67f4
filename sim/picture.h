/// The tree of a network as a picture.
#pragma once

#include <string>

#include "sim/stage.h"

namespace sim {

/// What Graphviz draws: the root on top, cables that carry data as lines, others dashed, and at each end the role,
/// and the state unless it is the usual one.
std::string graph_of(stage_t &stage);

/// The graph as SVG. Throws could_not_t.
std::string drawn(const std::string &graph);

} // namespace sim
