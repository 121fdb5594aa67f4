/// Stories from topology files, and back.
#pragma once

#include "sim/story.h"
#include "tools/topology/network.h"

namespace sim {

/// The story of a network. What the network leaves open, such as when a switch's first second has passed, is drawn
/// from its seed. Throws usage_t for a node that the simulator cannot play.
story_t story_of(const topology::network_t &network);

/// The network that story_of makes the same story of.
topology::network_t network_of(const story_t &story);

} // namespace sim
