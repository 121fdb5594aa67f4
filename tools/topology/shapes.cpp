#include "tools/topology/shapes.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/ctl.h"
#include "tools/number.h"

namespace topology {

wiring_t line_wiring(unsigned switches)
{
    wiring_t wiring = {switches, {}};
    for (unsigned i = 0; i + 1 < switches; i++)
        wiring.wires.push_back({i, 1, i + 1, 2});
    return wiring;
}

wiring_t ring_wiring(unsigned switches)
{
    wiring_t wiring = line_wiring(switches);
    wiring.wires.push_back({switches - 1, 1, 0, 2});
    return wiring;
}

wiring_t star_wiring(unsigned switches)
{
    wiring_t wiring = {switches, {}};
    for (unsigned i = 1; i < switches; i++)
        wiring.wires.push_back({0, i, i, 1});
    return wiring;
}

wiring_t grid_wiring(unsigned columns, unsigned rows)
{
    wiring_t wiring = {columns * rows, {}};
    for (unsigned row = 0; row < rows; row++)
        for (unsigned column = 0; column < columns; column++) {
            const unsigned here = row * columns + column;
            if (column + 1 < columns)
                wiring.wires.push_back({here, 1, here + 1, 2});
            if (row + 1 < rows)
                wiring.wires.push_back({here, 3, here + columns, 4});
        }
    return wiring;
}

wiring_t tree_wiring(unsigned switches)
{
    wiring_t wiring = {switches, {}};
    for (unsigned i = 1; i < switches; i++)
        wiring.wires.push_back({(i - 1) / 2, 2 + (i - 1) % 2, i, 1});
    return wiring;
}

wiring_t mesh_wiring(unsigned switches)
{
    wiring_t wiring = {switches, {}};
    for (unsigned a = 0; a < switches; a++)
        for (unsigned b = a + 1; b < switches; b++)
            wiring.wires.push_back({a, b, b, a + 1});
    return wiring;
}

wiring_t fat_tree_wiring(unsigned ports)
{
    // Each pod has as many switches above as below; the upper ones share the cores between them.
    const unsigned half = ports / 2, cores = half * half;
    wiring_t wiring = {cores + ports * ports, {}};
    for (unsigned pod = 0; pod < ports; pod++) {
        const unsigned upper = cores + pod * ports, lower = upper + half;
        for (unsigned i = 0; i < half; i++)
            for (unsigned j = 0; j < half; j++) {
                wiring.wires.push_back({i * half + j, pod + 1, upper + i, half + j + 1});
                wiring.wires.push_back({upper + i, j + 1, lower + j, half + i + 1});
            }
    }
    return wiring;
}

namespace {

struct shape_t {
    const char *name;
    const char *size_form;
    unsigned min, max;
    const char *limit; ///< what the size is, and why it has limits
    wiring_t (*wiring)(unsigned);
};

constexpr shape_t SHAPES[] = {
    {"line", "N", 1, NODES_MAX, "a line has 1 to 10000 switches", line_wiring},
    {"ring", "N", 2, NODES_MAX, "a ring has 2 to 10000 switches", ring_wiring},
    {"star", "N", 2, SWITCH_PORTS + 1, "a star has 2 to 7 switches: the one in the middle has six ports", star_wiring},
    {"grid", "NxM", 0, 0, "a grid is written as in 3x4, and has at most 10000 switches", nullptr},
    {"tree", "N", 1, NODES_MAX, "a tree has 1 to 10000 switches", tree_wiring},
    {"mesh", "N", 2, SWITCH_PORTS + 1, "a full mesh has 2 to 7 switches: each has six ports", mesh_wiring},
    {"fat-tree", "K", 2, SWITCH_PORTS, "a fat tree is of switches with 2, 4 or 6 ports", fat_tree_wiring},
};

const shape_t *find_shape(const std::string &name)
{
    const auto found = std::ranges::find_if(SHAPES, [&](const shape_t &shape) { return shape.name == name; });
    return found == std::end(SHAPES) ? nullptr : found;
}

/// The grid of "3x4"; one without switches when it is none.
wiring_t grid_of(const std::string &size)
{
    unsigned columns = 0, rows = 0;
    const size_t cross = size.find('x');
    if (cross == std::string::npos || read_number(size.substr(0, cross), columns) != std::errc() ||
        read_number(size.substr(cross + 1), rows) != std::errc() || columns > NODES_MAX || rows > NODES_MAX ||
        columns * rows > NODES_MAX)
        return {};
    return grid_wiring(columns, rows);
}

wiring_t wiring_of(const shape_t &shape, const std::string &size)
{
    if (!shape.wiring)
        return grid_of(size);
    unsigned number = 0;
    if (read_number(size, number) != std::errc() || number < shape.min || number > shape.max ||
        (shape.wiring == fat_tree_wiring && number % 2 != 0))
        return {};
    return shape.wiring(number);
}

} // namespace

std::vector<std::string> shape_forms()
{
    std::vector<std::string> forms;
    for (const shape_t &shape : SHAPES)
        forms.push_back(fmt::format("{} {}", shape.name, shape.size_form));
    return forms;
}

bool is_shape(const std::vector<std::string> &words) { return !words.empty() && find_shape(words[0]); }

void add_hosts(network_t &network, unsigned count)
{
    const size_t switches = network.nodes.size();
    std::vector<unsigned> taken(switches); // a bit for each port
    for (const link_t &link : network.links)
        for (const end_t &end : link.ends)
            taken[end.node] |= 1u << end.port;
    for (unsigned i = 0; i < count; i++) {
        const size_t wanted = switches * i / count;
        for (size_t step = 0; step < switches; step++) {
            const size_t node = (wanted + step) % switches;
            unsigned port = SWITCH_PORTS;
            while (port && taken[node] & 1u << port)
                port--;
            if (!port)
                continue;
            taken[node] |= 1u << port;
            network.nodes.push_back({.name = fmt::format("h{}", i + 1), .kind = kind_t::HOST});
            network.links.push_back({.ends = {{{node, port}, {network.nodes.size() - 1, 1}}}});
            break;
        }
    }
    give_usual_settings(network);
}

network_t shape_network(const std::vector<std::string> &words)
{
    const shape_t *shape = is_shape(words) ? find_shape(words[0]) : nullptr;
    if (!shape || words.size() != 2)
        throw refused_t(
            fmt::format("\"{}\" is no network: known are {}", fmt::join(words, " "), fmt::join(shape_forms(), ", ")));
    const wiring_t wiring = wiring_of(*shape, words[1]);
    if (wiring.switches == 0)
        throw refused_t(fmt::format("\"{}\": {}", fmt::join(words, " "), shape->limit));

    network_t network;
    network.name = fmt::format("{}", fmt::join(words, " "));
    for (unsigned i = 1; i <= wiring.switches; i++)
        network.nodes.push_back({.name = fmt::format("sw{}", i)});
    for (const wire_t &wire : wiring.wires)
        network.links.push_back({.ends = {{{wire.a, wire.a_port}, {wire.b, wire.b_port}}}});
    give_usual_settings(network);
    return network;
}

} // namespace topology
