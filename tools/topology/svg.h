/// Drawing with Graphviz, which has a library of its own.
#pragma once

#include <string>

namespace topology {

/// A graph as SVG. Throws std::runtime_error.
std::string svg_of(const std::string &graph);

/// Where a graph's nodes and edges would be drawn, as Graphviz' JSON. Throws std::runtime_error.
std::string layout_of(const std::string &graph);

} // namespace topology
