/// Networks from files and names: docs/topology.md describes the file.
#pragma once

#include <string>
#include <vector>

#include "tools/topology/network.h"

namespace topology {

/// Octets of the largest file that is read.
constexpr size_t FILE_OCTETS_MAX = 16 << 20;

/// Reads a network out of a file's text, said to come from `path`; files that it names are looked for beside it.
/// Throws faults_t with a line "FILE:LINE:COLUMN: ..." for each fault, in the order of the file.
network_t read_network(const std::string &text, const std::string &path);

/// The network that words of a command line mean: the name of a shape, as in "ring 4", or a file, "-" for standard
/// input. Throws refused_t, and faults_t as read_network does.
network_t load_network(const std::vector<std::string> &words);

/// A file's text that read_network reads as this network.
std::string network_text(const network_t &network);

} // namespace topology
