#include "sim/teller.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "tools/bpdu_frame.h"
#include "tools/status_file.h"
#include "tools/words.h"

namespace sim {

namespace {

constexpr uint32_t PORT_NUMBER = 0xFF; ///< within a port identifier

std::string port_name(const world_t &world, node_id_t node, unsigned port)
{
    return port > FRONT_PORTS ? fmt::format("{} group {}", world.node(node).name, port) : name_of(world, {node, port});
}

int compare(const bridge_id_t &a, const bridge_id_t &b)
{
    if (a.prio != b.prio)
        return a.prio < b.prio ? -1 : 1;
    return memcmp(a.addr, b.addr, sizeof a.addr);
}

bool is_worse(const prio_vector_t &a, const prio_vector_t &b)
{
    if (const int roots = compare(a.root_bridge, b.root_bridge))
        return roots > 0;
    if (a.root_path_cost != b.root_path_cost)
        return a.root_path_cost > b.root_path_cost;
    if (const int bridges = compare(a.design_bridge, b.design_bridge))
        return bridges > 0;
    return a.design_port > b.design_port;
}

/// What makes one vector better than another, of the one that is better.
std::string advantage(const prio_vector_t &better, const prio_vector_t &worse)
{
    if (compare(better.root_bridge, worse.root_bridge) != 0)
        return "knows a better root";
    if (better.root_path_cost != worse.root_path_cost)
        return fmt::format("is nearer to the root: {} against {}", better.root_path_cost, worse.root_path_cost);
    if (compare(better.design_bridge, worse.design_bridge) != 0)
        return "is as near to the root, and the better bridge";
    return "is the same bridge's better port";
}

} // namespace

std::string name_of(const world_t &world, const end_t &end)
{
    const node_t &node = world.node(end.node);
    const bool one_port = node.kind == node_kind_t::HOST || node.kind == node_kind_t::SPEAKER;
    return one_port ? node.name : fmt::format("{}:{}", node.name, end.port);
}

teller_t::teller_t(stage_t &stage, listener_t listener)
    : stage_(stage), listener_(std::move(listener)), seen_(stage.world().nodes())
{
    const world_t &world = stage.world();
    for (node_id_t id = 0; id < world.nodes(); id++) {
        std::array<uint8_t, RSTP_MAC_OCTETS> address = {};
        if (world.node(id).kind == node_kind_t::SWITCH)
            address = world.device(id).mac;
        else if (world.node(id).kind == node_kind_t::SPEAKER)
            memcpy(address.data(), stage.identifier_of(id).addr, address.size());
        else
            continue;
        names_[address] = world.node(id).name;
    }
    stage.world().watch(this);
}

void teller_t::say(const std::string &who, const std::string &words, bool deed)
{
    const moment_t now = stage_.world().now();
    if (now != moment_) {
        finish();
        moment_ = now;
    }
    (deed ? deeds_ : lines_)
        .push_back(fmt::format("{:>9.3f}  {:<10} {}", static_cast<double>(now) / SECOND, who, words));
    if (!deed)
        last_change_ = now;
}

void teller_t::finish()
{
    for (std::vector<std::string> *lines : {&deeds_, &lines_}) {
        for (const std::string &line : *lines)
            listener_(line);
        lines->clear();
    }
}

void teller_t::tell_deed(const std::string &words) { say("*", words, true); }

std::string teller_t::bridge_name(const bridge_id_t &id) const
{
    std::array<uint8_t, RSTP_MAC_OCTETS> address;
    std::copy(std::begin(id.addr), std::end(id.addr), address.begin());
    const auto found = names_.find(address);
    return found == names_.end() ? bridge_id_text(id) : found->second;
}

std::string teller_t::speaker_of(const prio_vector_t &vector) const
{
    return fmt::format("{}:{}", bridge_name(vector.design_bridge), vector.design_port & PORT_NUMBER);
}

// ---- what is seen -----------------------------------------------------------------------

void teller_t::cable_changed(cable_id_t id)
{
    const cable_t &cable = stage_.world().cable(id);
    tell_deed(fmt::format("{}-{} is {}", name_of(stage_.world(), cable.ends[0]), name_of(stage_.world(), cable.ends[1]),
                          cable.plugged ? "plugged in" : "pulled out"));
}

void teller_t::arrived(cable_id_t cable, unsigned to, const frame_t &frame)
{
    const end_t &end = stage_.world().cable(cable).ends[to];
    bpdus_ += is_bpdu({frame.octets.data(), frame.length});
    if (stage_.world().node(end.node).kind == node_kind_t::SWITCH && is_bpdu({frame.octets.data(), frame.length}))
        seen_[end.node].heard[end.port - 1] = stage_.world().now();
}

void teller_t::chip_changed(node_id_t node) { look_at_life(node); }

void teller_t::chip_written(node_id_t, const mdio_multi_t &batch)
{
    for (const mdio_op_t &op : std::span(batch.operations, batch.count))
        if (empties_addresses(op)) {
            flushes_++;
            last_change_ = stage_.world().now();
        }
}

void teller_t::event_done(node_id_t node)
{
    const world_t &world = stage_.world();
    if (world.node(node).kind != node_kind_t::SWITCH)
        return;
    look_at_life(node);
    if (world.device(node).daemon_runs)
        look_at_root(node);
    for (unsigned port = 1; port <= RSTP_PORTS; port++)
        look_at_port(node, port);
}

void teller_t::look_at_life(node_id_t node)
{
    const world_t &world = stage_.world();
    seen_t &seen = seen_[node];
    const bool runs = world.device(node).daemon_runs, powered = world.powered(node);
    if (seen.powered != powered) {
        tell_deed(fmt::format("{} {} power", world.node(node).name, powered ? "has" : "loses"));
        seen.powered_at = world.now();
    } else if (seen.daemon_runs != runs && seen.powered_at != world.now())
        tell_deed(fmt::format("the daemon of {} {}", world.node(node).name, runs ? "starts" : "ends"));
    if (seen.daemon_runs != runs)
        seen.root = {}; // whatever it says then is news
    seen.powered = powered;
    seen.daemon_runs = runs;
}

void teller_t::look_at_root(node_id_t node)
{
    world_t &world = stage_.world();
    seen_t &seen = seen_[node];
    const stpm_t &bridge = switch_vars(world.device(node)).bridge;
    const prio_vector_t &root = bridge.rootPrio;
    const bool claims = bridge.rootPortId == 0;
    if (compare(seen.root, root.root_bridge) == 0 && seen.claims == claims && seen.cost == root.root_path_cost)
        return;
    const bool same = compare(seen.root, root.root_bridge) == 0;
    if (claims)
        say(world.node(node).name, fmt::format("claims to be the root, {}", bridge_id_text(root.root_bridge)));
    else
        say(world.node(node).name,
            fmt::format("{} {} as the root, {} away{}", same && !seen.claims ? "still has" : "takes",
                        bridge_name(root.root_bridge), root.root_path_cost, same && !seen.claims ? " now" : ""));
    seen.root = root.root_bridge;
    seen.claims = claims;
    seen.cost = root.root_path_cost;
}

/// Of a group: it stands for ports.
bool teller_t::has_link(node_id_t node, unsigned port)
{
    world_t &world = stage_.world();
    if (port <= FRONT_PORTS)
        return world.device(node).links[port - 1].up;
    const lvt_rstp_vars_t &vars = switch_vars(world.device(node));
    return std::ranges::count(vars.representative, &vars.ports[port - 1]) > 0;
}

void teller_t::look_at_port(node_id_t node, unsigned port)
{
    world_t &world = stage_.world();
    seen_t &seen = seen_[node];
    const bool runs = world.device(node).daemon_runs;
    const lvt_rstp_port_role_t role = runs ? world.port(node, port).role : seen.roles[port - 1];
    const unsigned state = port <= FRONT_PORTS ? switch_port_state(world.device(node), port) : 0;
    const bool has_role = std::exchange(seen.roles[port - 1], role) != role;
    const bool has_state = port <= FRONT_PORTS && std::exchange(seen.states[port - 1], state) != state;
    if (port <= FRONT_PORTS && !world.device(node).links[port - 1].up)
        seen.heard[port - 1].reset();
    const bool up = runs && has_link(node, port), was_up = std::exchange(seen.links[port - 1], up);
    if ((!up && !was_up) || (!has_role && !has_state))
        return;
    std::string words;
    if (has_role)
        words = fmt::format("becomes {}", role_word(role));
    if (has_state)
        words += fmt::format("{}{}", words.empty() ? "" : ", ", state_verb(static_cast<int>(state)));
    const std::string reason = has_role && runs ? why(node, port) : "";
    say(port_name(world, node, port), reason.empty() ? words : fmt::format("{}: {}", words, reason));
}

// ---- why --------------------------------------------------------------------------------

std::string teller_t::why(node_id_t node, unsigned number)
{
    world_t &world = stage_.world();
    const lvt_rstp_vars_t &vars = switch_vars(world.device(node));
    const port_t &port = vars.ports[number - 1];
    if (!port.portEnabled)
        return "no link";
    if (boring_port(&port))
        return "spanning tree is off there";
    return port.role == ROLE_ROOT ? why_root(vars, port) : why_other(node, port);
}

/// By what the root port is better than the next best way to the root.
std::string teller_t::why_root(const lvt_rstp_vars_t &vars, const port_t &port)
{
    const auto total = [](const port_t &of) {
        prio_vector_t vector = of.portPrio;
        vector.root_path_cost += of.pathCost;
        return vector;
    };
    const prio_vector_t chosen = total(port);
    const port_t *next = nullptr;
    for (const port_t &other : vars.ports)
        if (&other != &port && other.infoIs == INFO_IS_RECEIVED && !boring_port(&other) &&
            compare(other.portPrio.design_bridge, vars.bridge.BrId) != 0 &&
            (!next || is_worse(total(*next), total(other))))
            next = &other;

    std::string words =
        fmt::format("{} tells of {} at {}, which makes {}", speaker_of(port.portPrio), bridge_name(chosen.root_bridge),
                    port.portPrio.root_path_cost, chosen.root_path_cost);
    if (!next)
        return words;
    const prio_vector_t second = total(*next);
    if (compare(second.root_bridge, chosen.root_bridge) != 0)
        return fmt::format("{}; port {} tells of a worse root", words, next->port_number);
    if (second.root_path_cost != chosen.root_path_cost)
        return fmt::format("{}; by port {} it were {}", words, next->port_number, second.root_path_cost);
    return fmt::format("{}, as by port {}, and {} {}", words, next->port_number, speaker_of(port.portPrio),
                       compare(second.design_bridge, chosen.design_bridge) != 0 ? "is the better bridge"
                       : second.design_port != chosen.design_port               ? "the better port"
                                                                                : "is heard at the better port");
}

/// What decides between this port and the one that it hears.
std::string teller_t::why_other(node_id_t node, const port_t &port)
{
    const prio_vector_t &own = port.designatedPrio;
    switch (port.role) {
    case ROLE_DESIGNATED:
        if (const auto heard = seen_[node].heard[port.port_number - 1]; !heard)
            return "nobody else is heard";
        else if (is_worse(port.msgPrio, own))
            return fmt::format("{} {}", stage_.world().node(node).name, advantage(own, port.msgPrio));
        else
            return stage_.world().now() - *heard < SECOND ? "" : speaker_of(port.msgPrio) + " has fallen silent";
    case ROLE_ALTERNATE:
        return fmt::format("{} {}", speaker_of(port.portPrio), advantage(port.portPrio, own));
    case ROLE_BACKUP:
        return fmt::format("its own port {} speaks there", port.portPrio.design_port & PORT_NUMBER);
    default:
        return "";
    }
}

} // namespace sim
