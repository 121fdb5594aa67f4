#include "board/lvt_lab/page/layout.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "tools/topology/svg.h"

namespace lvt_lab {

namespace {

using nlohmann::json;

constexpr double PER_INCH = 72;

/// How many cables away from the top each node is; what no cable leads to begins anew.
std::map<std::string, unsigned> depths_of(const lab_view_t &view, const std::string &top)
{
    std::map<std::string, unsigned> depths;
    const auto spread = [&](const std::string &start) {
        depths.emplace(start, 0);
        for (bool grows = true; grows;) {
            grows = false;
            for (const cable_view_t &cable : view.cables)
                for (const unsigned from : {0u, 1u}) {
                    const auto known = depths.find(cable.ends[from].node);
                    if (known == depths.end())
                        continue;
                    const unsigned depth = known->second + 1;
                    const auto [other, fresh] = depths.emplace(cable.ends[1 - from].node, depth);
                    if (fresh || other->second > depth) {
                        other->second = depth;
                        grows = true;
                    }
                }
        }
    };
    if (view.node(top))
        spread(top);
    for (const bool hosts : {false, true})
        for (const node_view_t &node : view.nodes)
            if (!depths.contains(node.name) && (node.kind == "host") == hosts)
                spread(node.name);
    return depths;
}

/// Width and height, with room for the name and a note below it.
std::pair<double, double> size_of(const node_view_t &node)
{
    const auto letters = static_cast<double>(node.name.size());
    return node.kind == "host" ? std::pair(std::max(78.0, 9 * letters + 30), 38.0)
                               : std::pair(std::max(96.0, 10 * letters + 40), 48.0);
}

std::vector<double> numbers_of(const std::string &text)
{
    std::vector<double> numbers;
    std::string blanks = text;
    std::ranges::replace(blanks, ',', ' ');
    std::istringstream stream(blanks);
    for (double number; stream >> number;)
        numbers.push_back(number);
    return numbers;
}

std::string graph_text(const lab_view_t &view, const std::string &top)
{
    constexpr unsigned MANY_RANKS = 8;
    const std::map<std::string, unsigned> depths = depths_of(view, top);
    unsigned deepest = 0;
    for (const auto &[name, depth] : depths)
        deepest = std::max(deepest, depth);
    const bool side_by_side = std::ranges::any_of(view.cables, [&](const cable_view_t &cable) {
        return depths.at(cable.ends[0].node) == depths.at(cable.ends[1].node);
    });
    std::string text = fmt::format(
        "digraph lab {{\n"
        "  graph [ranksep={}, nodesep={}]\n"
        "  node [shape=box, fixedsize=true, label=\"\"]\n"
        "  edge [dir=none]\n",
        deepest > MANY_RANKS ? 0.95 : 1.3, side_by_side ? 1.8 : 0.9);
    std::map<std::string, size_t> numbers;
    std::map<unsigned, std::string> ranks;
    for (const node_view_t &node : view.nodes) {
        const size_t number = numbers[node.name] = numbers.size();
        const auto [width, height] = size_of(node);
        text += fmt::format("  n{} [width={}, height={}]\n", number, width / PER_INCH, height / PER_INCH);
        ranks[depths.at(node.name)] += fmt::format(" n{}", number);
    }
    for (const auto &[depth, members] : ranks)
        text += fmt::format("  {{rank=same{}}}\n", members);
    for (size_t i = 0; i < view.cables.size(); i++) {
        const auto &ends = view.cables[i].ends;
        const unsigned upper = depths.at(ends[1].node) < depths.at(ends[0].node) ? 1 : 0;
        text += fmt::format("  n{} -> n{} [id=c{}]\n", numbers[ends[upper].node], numbers[ends[1 - upper].node], i);
    }
    return text + "}\n";
}

} // namespace

json layout_of(const lab_view_t &view, const std::string &top)
{
    const json drawn = json::parse(topology::layout_of(graph_text(view, top)));
    const std::vector<double> box = numbers_of(drawn.at("bb"));
    json told = {{"top", top},
                 {"width", box.at(2)},
                 {"height", box.at(3)},
                 {"nodes", json::object()},
                 {"cables", json::object()}};
    for (const json &object : drawn.value("objects", json::array())) {
        if (!object.contains("pos"))
            continue; // a rank
        const node_view_t &node = view.nodes.at(std::stoul(object.at("name").get<std::string>().substr(1)));
        const std::vector<double> centre = numbers_of(object.at("pos"));
        const auto [width, height] = size_of(node);
        told["nodes"][node.name] = {
            {"x", centre.at(0)}, {"y", box.at(3) - centre.at(1)}, {"width", width}, {"height", height}};
    }
    for (const json &edge : drawn.value("edges", json::array())) {
        const cable_view_t &cable = view.cables.at(std::stoul(edge.at("id").get<std::string>().substr(1)));
        const std::vector<double> points = numbers_of(edge.at("pos"));
        std::string path;
        // From the cable's first end on, whichever of them is above.
        const json &tail = drawn.at("objects").at(edge.at("tail").get<size_t>()).at("name");
        const bool backwards = view.nodes.at(std::stoul(tail.get<std::string>().substr(1))).name != cable.ends[0].node;
        const size_t count = points.size() / 2;
        for (size_t i = 0; i < count; i++) {
            const size_t at = backwards ? count - 1 - i : i;
            path += fmt::format("{}{:.1f},{:.1f}",
                                i == 0   ? "M"
                                : i == 1 ? " C"
                                         : " ",
                                points[2 * at], box.at(3) - points[2 * at + 1]);
        }
        told["cables"][cable.name] = path;
    }
    return told;
}

} // namespace lvt_lab
