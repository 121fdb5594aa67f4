/// The tree of a network that is played, as a picture.
#pragma once

#include "sim/stage.h"
#include "tools/topology/picture.h"

namespace sim {

/// At each end of a cable the role, and the state unless it is the usual one.
topology::picture_t picture_of(stage_t &stage);

} // namespace sim
