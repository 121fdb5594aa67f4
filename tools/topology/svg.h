/// Drawing with Graphviz, which has a library of its own.
#pragma once

#include <string>

#include "tools/topology/picture.h"

namespace topology {

/// A picture as SVG, for a light and a dark ground. Throws std::runtime_error.
std::string svg_of(const picture_t &picture);

/// Where a graph's nodes and edges would be drawn, as Graphviz' JSON. Throws std::runtime_error.
std::string layout_of(const std::string &graph);

} // namespace topology
