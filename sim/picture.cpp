#include "sim/picture.h"

#include <memory>

#include <fmt/format.h>
#include <graphviz/gvc.h>

#include "sim/could_not.h"
#include "tools/printable.h"
#include "tools/words.h"

#ifdef __SANITIZE_ADDRESS__
/// What the graph's library and the fonts' keep for the life of the process.
extern "C" __attribute__((visibility("default"))) const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions()
{
    return "leak:libgvc\nleak:libcgraph\nleak:libgvplugin\nleak:libpango\nleak:libfontconfig\nleak:libglib";
}
#endif

namespace sim {

namespace {

/// In quotes, as the graph's language has it.
std::string quoted(const std::string &text)
{
    std::string result;
    for (const char letter : text) {
        if (letter == '"' || letter == '\\')
            result += '\\';
        result += letter;
    }
    return '"' + printable(result) + '"';
}

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
    const std::string port = fmt::format("{}: ", end.port);
    if (!device.links[end.port - 1].up)
        return port + "no link";
    if (!device.daemon_runs)
        return fmt::format("{}{}", port, state_verb(static_cast<int>(state)));
    const lvt_rstp_port_role_t role = world.port(end.node, end.port).role;
    const bool usual =
        (role == ROLE_ROOT || role == ROLE_DESIGNATED || role == ROLE_NON_STP) == (state >= HW_FORWARDING);
    return usual && role != ROLE_NON_STP
               ? port + role_word(role)
               : fmt::format("{}{}, {}", port, role_word(role), state_verb(static_cast<int>(state)));
}

std::string node_words(world_t &world, node_id_t id)
{
    const node_t &node = world.node(id);
    switch (node.kind) {
    case node_kind_t::HUB:
        return fmt::format("label={}, shape=diamond", quoted(node.name));
    case node_kind_t::HOST:
        return fmt::format("label={}, shape=plain", quoted(node.name));
    case node_kind_t::SPEAKER:
        return fmt::format("label={}, shape=oval", quoted(node.name));
    case node_kind_t::SWITCH:
        break;
    }
    if (!world.powered(id))
        return fmt::format("label={}, style=dotted", quoted(node.name + "\nno power"));
    if (!world.device(id).daemon_runs)
        return fmt::format("label={}, style=dashed", quoted(node.name + "\nno daemon"));
    const bool is_root = switch_vars(world.device(id)).bridge.rootPortId == 0;
    return fmt::format("label={}{}", quoted(node.name + (is_root ? "\nroot" : "")), is_root ? ", penwidth=3" : "");
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

std::string graph_of(stage_t &stage)
{
    world_t &world = stage.world();
    std::string text =
        "digraph tree {\n"
        "  graph [ranksep=1.1, nodesep=1.5, fontname=\"sans-serif\"]\n"
        "  node [shape=box, style=rounded, fontname=\"sans-serif\"]\n"
        "  edge [dir=none, fontname=\"sans-serif\", fontsize=8, labelangle=48, labeldistance=3.4]\n";
    for (node_id_t id = 0; id < world.nodes(); id++)
        text += fmt::format("  n{} [{}]\n", id, node_words(world, id));
    for (cable_id_t id = 0; id < world.cables(); id++) {
        const cable_t &cable = world.cable(id);
        const unsigned upper = points_up(world, cable) ? 1 : 0;
        const end_t &top = cable.ends[upper], &bottom = cable.ends[1 - upper];
        const bool carries = cable.plugged && !is_cut_there(world, top) && !is_cut_there(world, bottom);
        text += fmt::format("  n{} -> n{} [taillabel={}, headlabel={}, {}]\n", top.node, bottom.node,
                            quoted(end_words(world, top)), quoted(end_words(world, bottom)),
                            !cable.plugged ? "style=dotted, constraint=false, color=gray50, label=\"pulled out\""
                            : carries      ? "penwidth=2"
                                           : "style=dashed, constraint=false");
    }
    return text + "}\n";
}

std::string drawn(const std::string &graph)
{
    const std::unique_ptr<GVC_t, int (*)(GVC_t *)> context(gvContext(), gvFreeContext);
    const std::unique_ptr<Agraph_t, int (*)(Agraph_t *)> tree(agmemread(graph.c_str()), agclose);
    if (!context || !tree || gvLayout(context.get(), tree.get(), "dot") != 0)
        throw could_not_t("Graphviz cannot lay the picture out");
    char *text = nullptr;
    unsigned length = 0;
    const int result = gvRenderData(context.get(), tree.get(), "svg", &text, &length);
    const std::string picture = result == 0 && text ? std::string(text, length) : "";
    gvFreeRenderData(text);
    gvFreeLayout(context.get(), tree.get());
    if (picture.empty())
        throw could_not_t("Graphviz cannot draw the picture: are its plugins installed?");
    return picture;
}

} // namespace sim
