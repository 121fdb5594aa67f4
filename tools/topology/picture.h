/// The tree of a network as a picture, for all who play one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace topology {

enum class figure_t : uint8_t { BOX, DIAMOND, PLAIN, OVAL };
enum class outline_t : uint8_t { USUAL, BOLD, DASHED, DOTTED };
enum class cable_state_t : uint8_t {
    CARRIES,
    CUT, ///< one end lets nothing through
    PULLED,
};

struct picture_t {
    struct node_t {
        std::string name;
        std::string note{}; ///< "root", "no power"; empty for none
        figure_t shape = figure_t::BOX;
        outline_t outline = outline_t::USUAL;
    };
    struct end_t {
        size_t node;
        unsigned port;
        std::string words; ///< "designated"; empty for what has no ports to tell of
        bool cuts;         ///< it lets nothing through
    };
    struct cable_t {
        end_t upper, lower; ///< the upper end is the one that is nearer to the root
        cable_state_t state;
    };
    std::vector<node_t> nodes;
    std::vector<cable_t> cables;
};

/// What Graphviz draws: the root on top, each port at the side of its node that its cable leaves by, cables that carry
/// data as lines, others dashed.
std::string graph_of(const picture_t &picture);

/// What a drawing of such a graph needs to have other colours where the reader's ground is dark: an element of SVG.
std::string dark_style();

/// The same as Mermaid draws it, where words have room in the middle of a cable only.
std::string mermaid_of(const picture_t &picture);

} // namespace topology
