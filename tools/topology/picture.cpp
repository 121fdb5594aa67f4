#include "tools/topology/picture.h"

#include <fmt/format.h>

#include "tools/printable.h"

namespace topology {

namespace {

/// In quotes, as the graph's language has it.
std::string in_quotes(const std::string &text)
{
    std::string result;
    for (const char letter : text) {
        if (letter == '"' || letter == '\\')
            result += '\\';
        result += letter;
    }
    return '"' + printable(result) + '"';
}

std::string label_of(const picture_t::node_t &node)
{
    return node.note.empty() ? node.name : fmt::format("{}\n{}", node.name, node.note);
}

std::string node_words(const picture_t::node_t &node)
{
    constexpr const char *SHAPES[] = {"", ", shape=diamond", ", shape=plain", ", shape=oval"};
    constexpr const char *OUTLINES[] = {"", ", penwidth=3", ", style=dashed", ", style=dotted"};
    return fmt::format("label={}{}{}", in_quotes(label_of(node)), SHAPES[static_cast<size_t>(node.shape)],
                       OUTLINES[static_cast<size_t>(node.outline)]);
}

} // namespace

std::string graph_of(const picture_t &picture)
{
    constexpr const char *STATES[] = {"penwidth=2", "style=dashed, constraint=false",
                                      "style=dotted, constraint=false, color=gray50, label=\"pulled out\""};
    std::string text =
        "digraph tree {\n"
        "  graph [ranksep=1.1, nodesep=1.5, fontname=\"sans-serif\"]\n"
        "  node [shape=box, style=rounded, fontname=\"sans-serif\"]\n"
        "  edge [dir=none, fontname=\"sans-serif\", fontsize=8, labelangle=48, labeldistance=3.4]\n";
    for (size_t id = 0; id < picture.nodes.size(); id++)
        text += fmt::format("  n{} [{}]\n", id, node_words(picture.nodes[id]));
    for (const picture_t::cable_t &cable : picture.cables)
        text += fmt::format("  n{} -> n{} [taillabel={}, headlabel={}, {}]\n", cable.upper.node, cable.lower.node,
                            in_quotes(cable.upper.words), in_quotes(cable.lower.words),
                            STATES[static_cast<size_t>(cable.state)]);
    return text + "}\n";
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
    std::string text = "graph TD\n";
    for (size_t id = 0; id < picture.nodes.size(); id++) {
        const auto shape = static_cast<size_t>(picture.nodes[id].shape);
        text += fmt::format("  n{}{}\"{}\"{}\n", id, OPENINGS[shape], escaped(label_of(picture.nodes[id])),
                            CLOSINGS[shape]);
        if (picture.nodes[id].outline == outline_t::BOLD)
            text += fmt::format("  style n{} stroke-width:4px\n", id);
    }
    for (const picture_t::cable_t &cable : picture.cables) {
        std::string words = cable.state == cable_state_t::PULLED ? "pulled out" : cable.upper.words;
        if (cable.state != cable_state_t::PULLED && !cable.lower.words.empty())
            words += (words.empty() ? "" : "\n") + cable.lower.words;
        const char *line = cable.state == cable_state_t::CARRIES ? "---" : "-.-";
        text += words.empty()
                    ? fmt::format("  n{} {} n{}\n", cable.upper.node, line, cable.lower.node)
                    : fmt::format("  n{} {}|\"{}\"| n{}\n", cable.upper.node, line, escaped(words), cable.lower.node);
    }
    return text;
}

} // namespace topology
