#include "sim/picture.h"

#include <fmt/format.h>

#include "tools/words.h"

namespace sim {

namespace {

using topology::figure_t;
using topology::outline_t;
using topology::picture_t;

bool is_cut_there(const world_t &world, const end_t &end)
{
    return world.node(end.node).kind == node_kind_t::SWITCH && !switch_forwards(world.device(end.node), end.port);
}

/// "root", "designated, learns"; nothing for what is no switch.
std::string end_words(world_t &world, const end_t &end)
{
    if (world.node(end.node).kind != node_kind_t::SWITCH || !world.powered(end.node))
        return "";
    const switch_t &device = world.device(end.node);
    const unsigned state = switch_port_state(device, end.port);
    if (!device.links[end.port - 1].up)
        return "no link";
    if (!device.daemon_runs)
        return state_verb(static_cast<int>(state));
    const lvt_rstp_port_role_t role = world.port(end.node, end.port).role;
    const bool usual =
        (role == ROLE_ROOT || role == ROLE_DESIGNATED || role == ROLE_NON_STP) == (state >= HW_FORWARDING);
    return usual && role != ROLE_NON_STP ? role_word(role)
                                         : fmt::format("{}, {}", role_word(role), state_verb(static_cast<int>(state)));
}

picture_t::node_t pictured(world_t &world, node_id_t id)
{
    const node_t &node = world.node(id);
    picture_t::node_t pictured = {.name = node.name};
    switch (node.kind) {
    case node_kind_t::HUB:
        pictured.shape = figure_t::DIAMOND;
        return pictured;
    case node_kind_t::HOST:
        pictured.shape = figure_t::PLAIN;
        return pictured;
    case node_kind_t::SPEAKER:
        pictured.shape = figure_t::OVAL;
        return pictured;
    case node_kind_t::SWITCH:
        break;
    }
    if (!world.powered(id)) {
        pictured.note = "no power";
        pictured.outline = outline_t::DOTTED;
    } else if (!world.device(id).daemon_runs) {
        pictured.note = "no daemon";
        pictured.outline = outline_t::DASHED;
    } else if (switch_vars(world.device(id)).bridge.rootPortId == 0) {
        pictured.note = "root";
        pictured.outline = outline_t::BOLD;
    }
    return pictured;
}

/// Whether the second end is nearer to its root than the first.
bool points_up(world_t &world, const cable_t &cable)
{
    const auto role = [&](const end_t &end) -> lvt_rstp_port_role_t {
        if (world.node(end.node).kind != node_kind_t::SWITCH || !world.device(end.node).daemon_runs)
            return ROLE_DISABLED;
        return world.port(end.node, end.port).role;
    };
    return role(cable.ends[0]) == ROLE_ROOT ||
           (role(cable.ends[1]) == ROLE_DESIGNATED && role(cable.ends[0]) != ROLE_DESIGNATED) ||
           (world.node(cable.ends[0].node).kind == node_kind_t::HOST);
}

} // namespace

picture_t picture_of(stage_t &stage)
{
    world_t &world = stage.world();
    picture_t picture;
    for (node_id_t id = 0; id < world.nodes(); id++)
        picture.nodes.push_back(pictured(world, id));
    for (cable_id_t id = 0; id < world.cables(); id++) {
        const cable_t &cable = world.cable(id);
        const unsigned upper = points_up(world, cable) ? 1 : 0;
        const auto end_of = [&](const end_t &end) {
            return picture_t::end_t{end.node, end.port, end_words(world, end), is_cut_there(world, end)};
        };
        const picture_t::end_t top = end_of(cable.ends[upper]), bottom = end_of(cable.ends[1 - upper]);
        picture.cables.push_back({top, bottom,
                                  !cable.plugged            ? topology::cable_state_t::PULLED
                                  : top.cuts || bottom.cuts ? topology::cable_state_t::CUT
                                                            : topology::cable_state_t::CARRIES});
    }
    return picture;
}

} // namespace sim
