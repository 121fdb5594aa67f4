#include "tools/topology/network.h"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/number.h"

namespace topology {

void give_usual_settings(network_t &network)
{
    for (const link_t &link : network.links)
        for (const unsigned i : {0u, 1u}) {
            node_t &node = network.nodes[link.ends[i].node];
            if (node.kind != kind_t::SWITCH && node.kind != kind_t::LVT_BRIDGE)
                continue;
            lvt_rstp_port_config_t &port = node.settings.ports[link.ends[i].port];
            port.adminEnable = 1;
            port.adminEdge = network.nodes[link.ends[1 - i].node].kind == kind_t::HOST;
        }
}

std::string end_text(const network_t &network, const end_t &end)
{
    const node_t &node = network.nodes[end.node];
    return node.kind == kind_t::HOST || node.kind == kind_t::SPEAKER ? node.name
                                                                     : fmt::format("{}:{}", node.name, end.port);
}

std::string link_text(const network_t &network, const link_t &link)
{
    return fmt::format("{}-{}", end_text(network, link.ends[0]), end_text(network, link.ends[1]));
}

std::optional<size_t> find_node(const network_t &network, std::string_view word)
{
    unsigned number = 0;
    const std::string name = read_number(word, number) == std::errc() ? fmt::format("sw{}", word) : std::string(word);
    for (size_t i = 0; i < network.nodes.size(); i++)
        if (network.nodes[i].name == name || network.nodes[i].name == word)
            return i;
    return {};
}

namespace {

/// One side of a link's name.
struct side_t {
    size_t node;
    unsigned port; ///< 0: any
};

std::optional<side_t> side_of(const network_t &network, std::string_view word)
{
    const size_t colon = word.find(':');
    const auto node = find_node(network, word.substr(0, colon));
    unsigned port = 0;
    if (!node ||
        (colon != std::string_view::npos && (read_number(word.substr(colon + 1), port) != std::errc() || !port)))
        return {};
    return side_t{*node, port};
}

bool is_at(const side_t &side, const end_t &end)
{
    return side.node == end.node && (!side.port || side.port == end.port);
}

/// How many letters have to be put in, taken out or replaced to make one word of the other.
size_t distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        size_t corner = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t replaced = corner + (a[i - 1] != b[j - 1]);
            corner = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row[b.size()];
}

} // namespace

std::vector<found_link_t> find_links(const network_t &network, std::string_view word)
{
    std::vector<found_link_t> found;
    // Names may have a "-" of their own: each may be the one between the sides.
    for (size_t dash = word.find('-'); dash != std::string_view::npos && found.empty();
         dash = word.find('-', dash + 1)) {
        const auto a = side_of(network, word.substr(0, dash)), b = side_of(network, word.substr(dash + 1));
        for (size_t i = 0; a && b && i < network.links.size(); i++) {
            const auto &ends = network.links[i].ends;
            if (is_at(*a, ends[0]) && is_at(*b, ends[1]))
                found.push_back({i, false});
            else if (is_at(*a, ends[1]) && is_at(*b, ends[0]))
                found.push_back({i, true});
        }
    }
    return found;
}

std::string suggestion(std::string_view word, const std::vector<std::string> &words)
{
    constexpr size_t LETTERS_MAX = 64; // of what is worth comparing
    const std::string *best = nullptr;
    size_t least = std::min<size_t>(3, (word.size() + 1) / 2);
    for (const std::string &candidate : words)
        if (word.size() <= LETTERS_MAX && distance(word, candidate) < least) {
            least = distance(word, candidate);
            best = &candidate;
        }
    return best ? fmt::format(": did you mean \"{}\"?", *best) : "";
}

std::string suggestions(std::string_view word, const std::vector<std::string> &words)
{
    const std::string best = suggestion(word, words);
    return fmt::format("{} {}", best.empty() ? ": known are" : best + " Known are", fmt::join(words, ", "));
}

} // namespace topology
