#include "tools/topology/picture.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/printable.h"

namespace topology {

namespace {

/// A colour, and what takes its place on a dark ground.
struct colour_t {
    const char *usual, *dark;
};

constexpr colour_t GROUND = {"#fefefe", "#0d1117"}, INK = {"#1a222d", "#e7ecf3"}, FRAME = {"#3a4757", "#b9c4d1"},
                   FILL = {"#f0f3f7", "#1c2530"}, ROOT_FRAME = {"#1d5bb8", "#82b4ff"},
                   ROOT_FILL = {"#dce8f8", "#16304f"}, GOOD = {"#0a6e52", "#54d3a8"},
                   GOOD_FILL = {"#e0f2ea", "#0f2f26"}, BAD = {"#b3261e", "#ff8f86"}, BAD_FILL = {"#fbe4e2", "#431917"},
                   FAINT = {"#8793a2", "#8793a3"};
constexpr colour_t COLOURS[] = {GROUND, INK, FRAME, FILL, ROOT_FRAME, ROOT_FILL, GOOD, GOOD_FILL, BAD, BAD_FILL, FAINT};

/// As the labels of the graph's language have it.
std::string escaped_of(const std::string &text)
{
    std::string result;
    for (const char letter : printable(text))
        result += letter == '&' ? "&amp;" : letter == '<' ? "&lt;" : letter == '>' ? "&gt;" : std::string(1, letter);
    return result;
}

/// The end of a cable, and what an edge calls it.
struct port_t {
    const picture_t::end_t *end;
    size_t other; ///< the node that the cable leads to
    cable_state_t state;
    std::string name;
};

/// A row of ports, for one side of a node, in the order of those that they lead to.
std::string ports_row(std::vector<port_t> ports)
{
    if (ports.empty())
        return "";
    std::ranges::stable_sort(ports, {}, &port_t::other);
    std::string cells;
    for (const auto &[end, other, state, name] : ports) {
        const bool pulled = state == cable_state_t::PULLED;
        const colour_t frame = pulled      ? FAINT
                               : end->cuts ? BAD
                                           : GOOD,
                       fill = pulled      ? GROUND
                              : end->cuts ? BAD_FILL
                                          : GOOD_FILL;
        cells += fmt::format(
            "<td port=\"{}\" border=\"1\" style=\"rounded\" cellpadding=\"4\" color=\"{}\" "
            "bgcolor=\"{}\"><font point-size=\"11\">{}: {}</font></td>",
            name, frame.usual, fill.usual, end->port, escaped_of(end->words));
    }
    return fmt::format("<tr><td><table border=\"0\" cellspacing=\"4\"><tr>{}</tr></table></td></tr>", cells);
}

std::string node_words(const picture_t::node_t &node, const std::string &above, const std::string &below)
{
    constexpr const char *STYLES[] = {"rounded", "rounded", "rounded,dashed", "rounded,dotted"};
    std::string title = fmt::format("<b>{}</b>", escaped_of(node.name));
    if (!node.note.empty())
        title += fmt::format("<br/><font point-size=\"11\">{}</font>", escaped_of(node.note));
    if (node.shape == figure_t::DIAMOND || node.shape == figure_t::OVAL)
        return fmt::format("label=<{}>, shape={}, color=\"{}\"", title,
                           node.shape == figure_t::OVAL ? "oval" : "diamond", FRAME.usual);
    const bool is_root = node.outline == outline_t::BOLD, is_plain = node.shape == figure_t::PLAIN;
    return fmt::format(
        "label=<<table border=\"0\" cellspacing=\"0\" cellpadding=\"0\">{}<tr><td>"
        "<table border=\"{}\" style=\"{}\" color=\"{}\" bgcolor=\"{}\" cellborder=\"0\" "
        "cellpadding=\"{}\"><tr><td width=\"{}\">{}</td></tr></table></td></tr>{}</table>>",
        above, is_root ? 3 : 1, STYLES[static_cast<size_t>(node.outline)],
        (is_root    ? ROOT_FRAME
         : is_plain ? FAINT
                    : FRAME)
            .usual,
        (is_root    ? ROOT_FILL
         : is_plain ? GROUND
                    : FILL)
            .usual,
        is_plain ? 4 : 6, is_plain ? 50 : 100, title, below);
}

} // namespace

std::string graph_of(const picture_t &picture)
{
    std::vector<std::vector<port_t>> above(picture.nodes.size()), below(picture.nodes.size());
    std::string edges;
    for (size_t id = 0; id < picture.cables.size(); id++) {
        const picture_t::cable_t &cable = picture.cables[id];
        std::string upper = fmt::format("n{}", cable.upper.node), lower = fmt::format("n{}", cable.lower.node);
        if (!cable.upper.words.empty()) {
            below[cable.upper.node].push_back({&cable.upper, cable.lower.node, cable.state, fmt::format("u{}", id)});
            upper += fmt::format(":u{}:s", id);
        }
        if (!cable.lower.words.empty()) {
            above[cable.lower.node].push_back({&cable.lower, cable.upper.node, cable.state, fmt::format("l{}", id)});
            lower += fmt::format(":l{}:n", id);
        }
        const std::string looks =
            cable.state == cable_state_t::CARRIES ? fmt::format("penwidth=2.5, color=\"{}\"", GOOD.usual)
            : cable.state == cable_state_t::CUT   ? fmt::format("penwidth=2, style=dashed, color=\"{}\"", BAD.usual)
                                                  : fmt::format(
                                                        "style=dotted, color=\"{}\", label=\" pulled out\", "
                                                          "fontcolor=\"{}\"",
                                                        FAINT.usual, FAINT.usual);
        edges += fmt::format("  {} -> {} [{}]\n", upper, lower, looks);
    }
    std::string text = fmt::format(
        "digraph tree {{\n"
        "  graph [ranksep=0.6, nodesep=0.5, pad=0.25, bgcolor=\"{}\"]\n"
        "  node [shape=plain, fontname=\"Helvetica,Arial,sans-serif\", fontcolor=\"{}\"]\n"
        "  edge [dir=none, fontname=\"Helvetica,Arial,sans-serif\", fontsize=11]\n",
        GROUND.usual, INK.usual);
    for (size_t id = 0; id < picture.nodes.size(); id++)
        text +=
            fmt::format("  n{} [{}]\n", id, node_words(picture.nodes[id], ports_row(above[id]), ports_row(below[id])));
    return text + edges + "}\n";
}

std::string dark_style()
{
    std::string rules;
    for (const colour_t &colour : COLOURS)
        rules += fmt::format("[fill=\"{0}\"]{{fill:{1}}}[stroke=\"{0}\"]{{stroke:{1}}}", colour.usual, colour.dark);
    return fmt::format("<style>@media (prefers-color-scheme:dark){{{}}}</style>\n", rules);
}

std::string mermaid_of(const picture_t &picture)
{
    constexpr const char *OPENINGS[] = {"(", "{", "[", "(["}, *CLOSINGS[] = {")", "}", "]", "])"};
    // Quotes are written as an entity there.
    const auto escaped = [](const std::string &text) {
        std::string result;
        for (const char letter : printable(text))
            result += letter == '"' ? "#quot;" : letter == '\n' ? "<br>" : std::string(1, letter);
        return result;
    };
    const auto label_of = [](const picture_t::node_t &node) {
        return node.note.empty() ? node.name : fmt::format("{}\n{}", node.name, node.note);
    };
    std::string text = "graph TD\n";
    for (size_t id = 0; id < picture.nodes.size(); id++) {
        const auto shape = static_cast<size_t>(picture.nodes[id].shape);
        text += fmt::format("  n{}{}\"{}\"{}\n", id, OPENINGS[shape], escaped(label_of(picture.nodes[id])),
                            CLOSINGS[shape]);
        if (picture.nodes[id].outline == outline_t::BOLD)
            text += fmt::format("  style n{} stroke-width:4px\n", id);
    }
    for (const picture_t::cable_t &cable : picture.cables) {
        std::string words = cable.state == cable_state_t::PULLED ? "pulled out" : "";
        if (cable.state != cable_state_t::PULLED)
            for (const picture_t::end_t *end : {&cable.upper, &cable.lower})
                if (!end->words.empty())
                    words += fmt::format("{}{}: {}", words.empty() ? "" : "\n", end->port, end->words);
        const char *line = cable.state == cable_state_t::CARRIES ? "---" : "-.-";
        text += words.empty()
                    ? fmt::format("  n{} {} n{}\n", cable.upper.node, line, cable.lower.node)
                    : fmt::format("  n{} {}|\"{}\"| n{}\n", cable.upper.node, line, escaped(words), cable.lower.node);
    }
    return text;
}

} // namespace topology
