#include "board/lvt_lab/tree.h"

#include <algorithm>
#include <set>

#include <fmt/format.h>

#include "tools/ctl/table.h"

namespace lvt_lab {

namespace {

std::string verb_of(const std::string &state)
{
    return state == "discarding"   ? "discards"
           : state == "learning"   ? "learns"
           : state == "forwarding" ? "forwards"
                                   : state;
}

/// A line of the tree: what stands left, and the cable that leads there.
struct line_t {
    std::string left, right;
};

class drawer_t {
public:
    explicit drawer_t(const lab_view_t &view) : view_(view) {}

    std::string draw()
    {
        for (const node_view_t &node : view_.nodes)
            if (node.is_root && node.power)
                draw_top(node);
        // What hangs from no root: without power, without a daemon, or on the way to another tree.
        for (const node_view_t &node : view_.nodes)
            if (!drawn_.contains(node.name) && node.kind != "host")
                draw_top(node);
        for (const node_view_t &node : view_.nodes)
            if (!drawn_.contains(node.name))
                draw_top(node);
        size_t width = 0;
        for (const line_t &line : lines_)
            if (!line.right.empty())
                width = std::max(width, line.left.size());
        std::string text;
        for (const line_t &line : lines_)
            text += line.right.empty() ? line.left + "\n" : fmt::format("{:<{}}  {}\n", line.left, width, line.right);
        for (const cable_view_t &cable : view_.cables)
            if (!cable.plugged)
                text += fmt::format("pulled out: {}\n", cable.name);
        return text;
    }

private:
    static std::string title(const node_view_t &node)
    {
        if (!node.power)
            return node.name + ", no power";
        if (node.kind == "host")
            return node.name + "  " + node.bridge;
        if (!node.daemon)
            return node.name + ", no daemon";
        return node.is_root ? fmt::format("{}, the root  {}", node.name, node.bridge) : node.name;
    }

    void draw_top(const node_view_t &node)
    {
        lines_.push_back({title(node), ""});
        drawn_.insert(node.name);
        draw_below(node, "");
    }

    /// A cable as seen from the node at one of its ends.
    struct branch_t {
        const cable_view_t *cable;
        const end_view_t *here, *there;
        bool is_child; ///< there hangs from here by it
    };

    void draw_below(const node_view_t &node, const std::string &indent)
    {
        std::vector<branch_t> branches;
        for (const cable_view_t &cable : view_.cables)
            for (const unsigned i : {0u, 1u})
                if (cable.ends[i].node == node.name && cable.plugged)
                    add_branch(branches, cable, i);
        std::ranges::stable_sort(branches, {}, [](const branch_t &branch) { return branch.here->port; });
        for (size_t i = 0; i < branches.size(); i++) {
            const branch_t &branch = branches[i];
            const bool last = i + 1 == branches.size();
            const node_view_t &other = *view_.node(branch.there->node);
            const char *line = branch.cable->carries ? "---" : "- -";
            std::string right = fmt::format("{} {} {}", end_text(*branch.here), line, end_text(*branch.there));
            right.erase(right.find_last_not_of(' ') + 1);
            lines_.push_back({fmt::format("{}{}{}{}", indent, last ? "`" : "|", branch.is_child ? "-- " : " - ",
                                          branch.is_child ? title(other) : "to " + other.name),
                              right});
            if (branch.is_child)
                draw_below(other, indent + (last ? "    " : "|   "));
        }
    }

    void add_branch(std::vector<branch_t> &branches, const cable_view_t &cable, unsigned i)
    {
        const end_view_t &here = cable.ends[i], &there = cable.ends[1 - i];
        const bool child = there.role == "root" || view_.node(there.node)->kind == "host";
        if (child && drawn_.insert(there.node).second)
            branches.push_back({&cable, &here, &there, true});
        else if (!child && here.role != "root" && view_.node(here.node)->kind != "host" && done_.insert(&cable).second)
            branches.push_back({&cable, &here, &there, false});
    }

    std::string end_text(const end_view_t &end) const
    {
        const std::string words = end_words(view_, end);
        return words.empty() ? "" : fmt::format("{} {}", end.port, words);
    }

    const lab_view_t &view_;
    std::set<std::string> drawn_;
    std::set<const cable_view_t *> done_; ///< that hold no node
    std::vector<line_t> lines_;
};

} // namespace

std::string end_words(const lab_view_t &view, const end_view_t &end)
{
    const node_view_t *node = view.node(end.node);
    if (!node || node->kind == "host" || !node->power)
        return "";
    if (!end.link)
        return "no link";
    if (end.role.empty() || end.role == "off")
        return end.role.empty() ? verb_of(end.state) : "off";
    const bool usual = (end.role == "root" || end.role == "designated") == (end.state == "forwarding");
    return usual && end.state != "learning" && end.state == "forwarding"
               ? end.role
               : fmt::format("{}, {}", end.role, verb_of(end.state));
}

std::string tree_text(const lab_view_t &view) { return drawer_t(view).draw(); }

std::string show_text(const lab_view_t &view, bool colour, size_t width_max)
{
    const auto state_tone = [](const std::string &state) {
        return state == "forwarding"   ? tone_t::good
               : state == "learning"   ? tone_t::passing
               : state == "discarding" ? tone_t::bad
                                       : tone_t::faint;
    };
    table_t table;
    row_t title;
    for (const char *text : {"node", "root", "port", "to", "role", "state", "BPDUs out", "in", "frames out", "in"})
        title.push_back({.text = text, .tone = tone_t::title});
    for (const size_t right : {6u, 7u, 8u, 9u}) {
        title[right].right = true;
        title[right].spare = static_cast<int>(right);
    }
    table.push_back(title);
    for (const node_view_t &node : view.nodes) {
        const node_view_t *root = nullptr;
        for (const node_view_t &other : view.nodes)
            if (!node.root.empty() && other.bridge == node.root)
                root = &other;
        const std::string root_text = node.kind == "host" ? ""
                                      : !node.power       ? "no power"
                                      : !node.daemon      ? "no daemon"
                                      : node.is_root      ? "itself"
                                      : root              ? root->name
                                                          : node.root;
        bool first = true;
        for (const cable_view_t &cable : view.cables)
            for (const unsigned i : {0u, 1u}) {
                const end_view_t &end = cable.ends[i], &other = cable.ends[1 - i];
                if (end.node != node.name)
                    continue;
                row_t row = {{.text = first ? node.name : ""},
                             {.text = first ? root_text : ""},
                             {.text = node.kind == "host" ? "" : std::to_string(end.port)},
                             {.text = other.name},
                             {.text = end.role},
                             {.text = cable.plugged ? verb_of(end.state) : "pulled out", .tone = state_tone(end.state)},
                             {.text = std::to_string(end.bpdus)},
                             {.text = std::to_string(other.bpdus)},
                             {.text = std::to_string(end.frames)},
                             {.text = std::to_string(other.frames)}};
                for (size_t column = 6; column < row.size(); column++)
                    row[column].right = true;
                table.push_back(row);
                first = false;
            }
        if (first)
            table.push_back({{.text = node.name}, {.text = root_text}});
    }
    for (row_t &row : table)
        row.resize(title.size());
    return table_text(table, colour, false, width_max);
}

} // namespace lvt_lab
