#include <map>
#include <set>

#include "board/lvt_lab/lab.h"

namespace lvt_lab {

namespace {

bool is_bridge(const node_view_t &node) { return node.kind != "host" && node.power && node.daemon; }

/// The nodes that cables lead to from here.
std::set<std::string> reached_from(const lab_view_t &view, const std::string &start)
{
    std::set<std::string> reached = {start};
    for (bool grows = true; grows;) {
        grows = false;
        for (const cable_view_t &cable : view.cables)
            if (cable.plugged && cable.ends[0].link && cable.ends[1].link &&
                reached.contains(cable.ends[0].node) != reached.contains(cable.ends[1].node)) {
                reached.insert(cable.ends[0].node);
                reached.insert(cable.ends[1].node);
                grows = true;
            }
    }
    return reached;
}

bool end_rests(const end_view_t &end)
{
    if (end.state == "off" || !end.link)
        return true;
    if (end.role.empty())
        return false; // nobody has told yet
    const bool should_forward = end.role == "root" || end.role == "designated";
    return should_forward == (end.state == "forwarding") && end.state != "learning";
}

} // namespace

bool rests(const lab_view_t &view)
{
    std::set<std::string> done;
    for (const node_view_t &node : view.nodes) {
        if (!is_bridge(node) || done.contains(node.name))
            continue;
        const std::set<std::string> reached = reached_from(view, node.name);
        done.insert(reached.begin(), reached.end());
        bool has_root = false;
        for (const node_view_t &other : view.nodes) {
            if (!reached.contains(other.name) || !is_bridge(other))
                continue;
            if (other.root != node.root || other.root.empty())
                return false;
            has_root = has_root || other.bridge == node.root;
        }
        if (!has_root)
            return false;
    }
    for (const cable_view_t &cable : view.cables)
        for (const end_view_t &end : cable.ends) {
            const node_view_t *node = view.node(end.node);
            if (cable.plugged && node && is_bridge(*node) && !end_rests(end))
                return false;
        }
    return true;
}

} // namespace lvt_lab
