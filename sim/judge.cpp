#include "sim/judge.h"

#include <algorithm>
#include <array>
#include <compare>
#include <map>
#include <optional>

#include <fmt/format.h>

namespace sim {

namespace {

std::string name_of(const world_t &world, const end_t &end)
{
    return fmt::format("{}:{}", world.node(end.node).name, end.port);
}

/// The trunk that a port belongs to in its chip; 0 for none.
unsigned trunk_of(const world_t &world, const end_t &end)
{
    return world.node(end.node).kind == node_kind_t::SWITCH
               ? world.device(end.node).chip.trunk[chip_port_of_front(end.port)]
               : 0;
}

} // namespace

// ---- rings ------------------------------------------------------------------------------

bool loop_watcher_t::is_forwarding(const end_t &end) const
{
    switch (world_.node(end.node).kind) {
    case node_kind_t::SWITCH:
        return world_.powered(end.node) && world_.device(end.node).links[end.port - 1].up &&
               switch_forwards(world_.device(end.node), end.port);
    case node_kind_t::HUB:
        return true;
    default:
        return false; // a host passes nothing on
    }
}

bool loop_watcher_t::goes_round(cable_id_t cable, std::vector<cable_id_t> &path) const
{
    const cable_t &closing = world_.cable(cable);
    const auto same_trunk = [&](cable_id_t other) {
        const cable_t &b = world_.cable(other);
        for (const end_t &x : closing.ends)
            for (const end_t &y : b.ends)
                if (x.node == y.node && trunk_of(world_, x) != 0 && trunk_of(world_, x) == trunk_of(world_, y))
                    return true;
        return false;
    };
    std::vector<cable_id_t> by(world_.nodes(), NO_CABLE);
    std::vector<node_id_t> reached = {closing.ends[0].node};
    const node_id_t goal = closing.ends[1].node;
    if (reached[0] == goal)
        return true;
    for (size_t i = 0; i < reached.size(); i++)
        for (const cable_id_t id : world_.cables_of(reached[i])) {
            if (id >= carries_.size() || !carries_[id] || id == cable || same_trunk(id))
                continue;
            const cable_t &step = world_.cable(id);
            for (unsigned end = 0; end < 2; end++) {
                const node_id_t to = step.ends[1 - end].node;
                if (step.ends[end].node != reached[i] || to == closing.ends[0].node || by[to] != NO_CABLE)
                    continue;
                by[to] = id;
                reached.push_back(to);
            }
            if (by[goal] != NO_CABLE) {
                for (node_id_t at = goal; at != closing.ends[0].node;) {
                    path.push_back(by[at]);
                    const cable_t &back = world_.cable(by[at]);
                    at = back.ends[0].node == at ? back.ends[1].node : back.ends[0].node;
                }
                return true;
            }
        }
    return false;
}

void loop_watcher_t::look_at(cable_id_t id)
{
    const cable_t &cable = world_.cable(id);
    if (carries_.size() < world_.cables())
        carries_.resize(world_.cables());
    const bool now = cable.plugged && is_forwarding(cable.ends[0]) && is_forwarding(cable.ends[1]);
    if (carries_[id] == now)
        return;
    carries_[id] = now;
    std::vector<cable_id_t> path;
    if (!now || !ring_.empty() || !goes_round(id, path))
        return;
    ring_ = fmt::format("{:.6f} s: {} {}", static_cast<double>(world_.now()) / SECOND, name_of(world_, cable.ends[0]),
                        name_of(world_, cable.ends[1]));
    for (const cable_id_t step : path)
        ring_ += fmt::format(", {} {}", name_of(world_, world_.cable(step).ends[0]),
                             name_of(world_, world_.cable(step).ends[1]));
}

void loop_watcher_t::chip_changed(node_id_t node)
{
    for (unsigned port = 1; port <= FRONT_PORTS; port++)
        if (const cable_id_t cable = world_.cable_at({node, port}); cable != NO_CABLE)
            look_at(cable);
}

void loop_watcher_t::cable_changed(cable_id_t cable) { look_at(cable); }

// ---- the tree ---------------------------------------------------------------------------

namespace {

/// An identifier as one number: priority, then address.
uint64_t number_of(const bridge_id_t &id)
{
    uint64_t number = id.prio;
    for (const uint8_t octet : id.addr)
        number = number << 8 | octet;
    return number;
}

/// Root, cost to it, who says so, and by which of its ports: lower is better, in this order.
struct vector_t {
    uint64_t root;
    uint64_t cost;
    uint64_t bridge;
    uint32_t port;
    auto operator<=>(const vector_t &) const = default;
};

/// A port of a bridge at a segment.
struct station_t {
    node_id_t node;
    unsigned port;
    uint32_t identifier;
    uint64_t cost;
};

/// What a bridge believes.
struct bridge_t {
    uint64_t id;
    vector_t best;                        ///< its own root vector, with itself as the speaker and no port
    std::pair<vector_t, uint32_t> chosen; ///< by which it came to that, with its own port as the last word
    unsigned root_port;                   ///< 0: it is the root
    node_id_t above;                      ///< who told it
    unsigned reach;                       ///< cables that this bridge's information gets far, when it is the root
};

/// All that is joined without a bridge between: the two ends of a cable or a group, or all cables of a hub.
using segment_t = std::vector<station_t>;

struct tree_t {
    std::map<node_id_t, bridge_t> bridges;
    std::vector<segment_t> segments;
};

bridge_t bridge_of(uint64_t id, unsigned max_age, unsigned hello_time)
{
    // Each bridge adds a 16th of max age to the age of what it passes on.
    const unsigned step = std::max((max_age + 8) / 16, 1u);
    const unsigned life = 3 * hello_time;
    return {id, {id, 0, id, 0}, {}, 0, 0, max_age > life ? (max_age - life) / step : 0};
}

/// Logical port of a front port that is the end of a cable: itself or its group.
unsigned logical_port(const world_t &world, const end_t &end)
{
    const unsigned trunk = trunk_of(world, end);
    return trunk ? trunk : end.port;
}

bool takes_part(world_t &world, const end_t &end)
{
    if (world.node(end.node).kind != node_kind_t::SWITCH || !world.powered(end.node))
        return false;
    const switch_t &device = world.device(end.node);
    return device.daemon_runs && device.links[end.port - 1].up &&
           world.port(end.node, logical_port(world, end)).config.adminEnable != 0;
}

/// The cost of a port: what was set, or 20 Tbit/s by its speed (table 17-3), which is that of all members.
uint64_t cost_of(world_t &world, const end_t &end)
{
    const unsigned port = logical_port(world, end);
    if (const uint32_t set = world.port(end.node, port).config.adminPathCost)
        return set;
    const switch_t &device = world.device(end.node);
    uint64_t mbit = 0;
    for (unsigned member = 1; member <= FRONT_PORTS; member++)
        if (logical_port(world, {end.node, member}) == port && device.links[member - 1].up)
            mbit += device.links[member - 1].mbit;
    return std::max<uint64_t>(20000000 / mbit, 2);
}

station_t station_of(world_t &world, const end_t &end)
{
    const unsigned port = logical_port(world, end);
    const uint32_t priority = world.port(end.node, port).config.port_priority;
    return {end.node, port, (priority << 8 | port) & 0xFFFF, cost_of(world, end)};
}

tree_t survey(world_t &world, const std::vector<outsider_t> &outsiders)
{
    tree_t tree;
    std::map<std::pair<node_id_t, unsigned>, size_t> joint; // segments of hubs and of groups
    for (cable_id_t id = 0; id < world.cables(); id++) {
        const cable_t &cable = world.cable(id);
        if (!cable.plugged)
            continue;
        size_t place = tree.segments.size();
        for (const end_t &end : cable.ends)
            if (world.node(end.node).kind == node_kind_t::HUB)
                place = joint.try_emplace({end.node, 0}, place).first->second;
            else if (const unsigned trunk = trunk_of(world, end))
                place = joint.try_emplace({end.node, trunk}, place).first->second;
        if (place == tree.segments.size())
            tree.segments.emplace_back();
        segment_t &segment = tree.segments[place];
        for (const end_t &end : cable.ends) {
            for (const outsider_t &outsider : outsiders)
                if (outsider.node == end.node) {
                    segment.push_back({end.node, 1, 0x8001, 1});
                    tree.bridges[end.node] = bridge_of(number_of(outsider.id), outsider.max_age, outsider.hello_time);
                }
            if (!takes_part(world, end))
                continue;
            const station_t station = station_of(world, end);
            if (std::any_of(segment.begin(), segment.end(), [&](const station_t &other) {
                    return other.node == station.node && other.port == station.port;
                }))
                continue;
            segment.push_back(station);
            const lvt_rstp_vars_t &vars = switch_vars(world.device(end.node));
            bridge_id_t own = {static_cast<uint16_t>(vars.config.bridge_priority & 0xF000), {}};
            std::copy(world.device(end.node).mac.begin(), world.device(end.node).mac.end(), own.addr);
            tree.bridges[end.node] = bridge_of(number_of(own), vars.config.max_age, vars.config.hello_time);
        }
    }
    return tree;
}

/// What a port tells its segment when it speaks for it.
vector_t told_by(const tree_t &tree, const station_t &station)
{
    const bridge_t &bridge = tree.bridges.at(station.node);
    return {bridge.best.root, bridge.best.cost, bridge.id, station.identifier};
}

const station_t &designated_of(const tree_t &tree, const segment_t &segment)
{
    return *std::min_element(segment.begin(), segment.end(), [&](const station_t &a, const station_t &b) {
        return told_by(tree, a) < told_by(tree, b);
    });
}

/// Every bridge takes the best it can hear, again and again until none can do better. What it believes only
/// gets better on the way, since nobody believes anything of a root that is not there.
void settle(tree_t &tree)
{
    for (bool moved = true; moved;) {
        moved = false;
        for (const segment_t &segment : tree.segments)
            for (const station_t &hearer : segment)
                for (const station_t &speaker : segment) {
                    if (speaker.node == hearer.node)
                        continue;
                    bridge_t &bridge = tree.bridges.at(hearer.node);
                    vector_t heard = told_by(tree, speaker);
                    heard.cost += hearer.cost;
                    const std::pair chosen(heard, hearer.identifier);
                    const bool first = bridge.root_port == 0;
                    if (heard.root >= bridge.id || (!first && bridge.chosen <= chosen))
                        continue;
                    bridge.chosen = chosen;
                    bridge.best = {heard.root, heard.cost, bridge.id, 0};
                    bridge.root_port = hearer.port;
                    bridge.above = speaker.node;
                    moved = true;
                }
    }
}

/// Cables from a bridge up to its root.
unsigned depth_of(const tree_t &tree, node_id_t node, unsigned &reach)
{
    unsigned depth = 0;
    for (;; depth++) {
        const bridge_t &bridge = tree.bridges.at(node);
        reach = bridge.reach;
        if (!bridge.root_port || depth > tree.bridges.size())
            return depth;
        node = bridge.above;
    }
}

} // namespace

right_tree_t right_tree(world_t &world, const std::vector<outsider_t> &outsiders)
{
    tree_t tree = survey(world, outsiders);
    settle(tree);
    right_tree_t right = {{}, 0, false};
    for (const segment_t &segment : tree.segments) {
        if (segment.empty())
            continue;
        const station_t designated = designated_of(tree, segment);
        for (const station_t &station : segment) {
            if (world.node(station.node).kind != node_kind_t::SWITCH)
                continue;
            lvt_rstp_port_role_t role = ROLE_ALTERNATE;
            if (station.node == designated.node)
                role = station.port == designated.port ? ROLE_DESIGNATED : ROLE_BACKUP;
            else if (tree.bridges.at(station.node).root_port == station.port)
                role = ROLE_ROOT;
            const bool forwards = role == ROLE_ROOT || role == ROLE_DESIGNATED;
            right.verdicts.push_back(
                {station.node, station.port, role, static_cast<uint8_t>(forwards ? HW_FORWARDING : HW_DISCARDING)});
        }
    }
    for (const auto &[node, bridge] : tree.bridges) {
        unsigned reach;
        const unsigned depth = depth_of(tree, node, reach);
        right.depth = std::max(right.depth, depth);
        right.wide = right.wide || depth > reach;
    }
    return right;
}

std::string wrong_ports(world_t &world, const right_tree_t &tree)
{
    std::string text;
    for (const verdict_t &right : tree.verdicts) {
        const unsigned role = world.port(right.node, right.port).role;
        for (unsigned front = 1; front <= FRONT_PORTS; front++) {
            if (logical_port(world, {right.node, front}) != right.port)
                continue;
            const unsigned state = switch_port_state(world.device(right.node), front);
            if (role != right.role || state != right.state)
                text += fmt::format("{} has role {} and state {} instead of {} and {}\n",
                                    name_of(world, {right.node, front}), role, state, right.role, right.state);
        }
    }
    return text;
}

// ---- parts ------------------------------------------------------------------------------

node_id_t parts_t::part_of(node_id_t node)
{
    while (above_[node] != node)
        node = above_[node] = above_[above_[node]];
    return node;
}

parts_t::parts_t(const world_t &world)
{
    for (node_id_t node = 0; node < world.nodes(); node++)
        above_.push_back(node);
    const auto lives = [&](node_id_t node) {
        return world.node(node).kind != node_kind_t::SWITCH || world.powered(node);
    };
    for (cable_id_t id = 0; id < world.cables(); id++) {
        const cable_t &cable = world.cable(id);
        if (cable.plugged && lives(cable.ends[0].node) && lives(cable.ends[1].node))
            above_[part_of(cable.ends[0].node)] = part_of(cable.ends[1].node);
    }
}

} // namespace sim
