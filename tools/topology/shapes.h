/// Networks that have a name.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/topology/network.h"

namespace topology {

constexpr unsigned SWITCH_PORTS = 6;

/// Cables between switches, which are numbered from 0.
struct wire_t {
    unsigned a, a_port, b, b_port;
};

struct wiring_t {
    unsigned switches = 0;
    std::vector<wire_t> wires;
};

wiring_t line_wiring(unsigned switches);
wiring_t ring_wiring(unsigned switches);               ///< two have parallel cables
wiring_t star_wiring(unsigned switches);               ///< the first in the middle; at most 7
wiring_t grid_wiring(unsigned columns, unsigned rows); ///< row by row
wiring_t tree_wiring(unsigned switches);               ///< two below each
wiring_t mesh_wiring(unsigned switches);               ///< each to each; at most 7
wiring_t fat_tree_wiring(unsigned ports);              ///< of 2, 4 or 6 ports; cores first, then pod by pod

/// Names of shapes with what follows them: "ring N", "grid NxM".
std::vector<std::string> shape_forms();

/// Whether the words begin with the name of a shape, so that no file is meant.
bool is_shape(const std::vector<std::string> &words);

/// The network of "ring 4" or "grid 3x4": switches sw1 ... with their usual settings. Throws refused_t for a size
/// that the shape cannot have.
network_t shape_network(const std::vector<std::string> &words);

/// Adds hosts h1, h2 ... to a network of switches, each at the highest free port of one that is as far from the
/// others as may be in the order of the nodes; fewer where there is no room.
void add_hosts(network_t &network, unsigned count);

} // namespace topology
