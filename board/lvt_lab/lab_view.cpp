#include "board/lvt_lab/lab_member.h"

#include <fmt/format.h>

#include "tools/topology/story.h"
#include "tools/topology/values.h"

namespace lvt_lab {

namespace {

std::string quality_text(const topology::quality_t &quality)
{
    const topology::quality_t usual;
    std::string text;
    const auto add = [&](const std::string &words) { text += (text.empty() ? "" : " ") + words; };
    if (quality.dead)
        return "nothing arrives";
    if (quality.delay != usual.delay)
        add("delay " + topology::span_text(quality.delay));
    if (quality.jitter != usual.jitter)
        add("jitter " + topology::span_text(quality.jitter));
    if (quality.lost)
        add("loss " + topology::share_text(quality.lost));
    if (quality.doubled)
        add("duplicate " + topology::share_text(quality.doubled));
    return text;
}

} // namespace

lab_view_t lab_t::view()
{
    lab_view_t view = {
        .lab = name_, .network = network_.name, .ms = journal_.now(), .at_rest = false, .nodes = {}, .cables = {}};
    for (size_t i = 0; i < network_.links.size(); i++) {
        cable_view_t cable;
        cable.name = cable_name(i);
        cable.plugged = wires_->plugged(i);
        for (const unsigned end : {0u, 1u}) {
            const topology::end_t &place = network_.links[i].ends[end];
            const traffic_t traffic = wires_->traffic(i, end);
            end_view_t &it = cable.ends[end];
            it.name = topology::end_text(network_, place);
            it.node = network_.nodes[place.node].name;
            it.port = place.port;
            it.frames = traffic.frames;
            it.octets = traffic.octets;
            it.bpdus = traffic.bpdus;
            it.lost = traffic.lost;
            it.quality = quality_text(wires_->quality(i, end));
        }
        view.cables.push_back(std::move(cable));
    }
    const std::lock_guard lock(mutex_);
    view.at_rest = calm_;
    for (const auto &member : members_) {
        node_view_t node;
        node.name = member->name();
        node.kind = kind_word(member->told.kind);
        node.power = member->powered;
        node.daemon = member->runs;
        node.rapid = member->told.rapid;
        node.bridge =
            member->host ? member->told.address.substr(0, member->told.address.find('/')) : member->identifier;
        node.root = member->root;
        node.root_port = member->root_port;
        node.is_root = node.daemon && !node.root.empty() && node.root == node.bridge;
        node.mac = member->node().mac();
        view.nodes.push_back(std::move(node));
    }
    for (size_t i = 0; i < view.cables.size(); i++) {
        cable_view_t &cable = view.cables[i];
        bool through = cable.plugged;
        for (const unsigned end : {0u, 1u}) {
            end_view_t &it = cable.ends[end];
            const side_t &side = sides_[i][end];
            const member_t &member = *members_[network_.links[i].ends[end].node];
            const member_t &other = *members_[network_.links[i].ends[1 - end].node];
            it.link = member.host ? cable.plugged && other.powered : side.link;
            it.role = side.role;
            it.cost = side.cost;
            it.state = side.state;
            it.claim = side.claim;
            through = through && it.link && (member.host || it.state == "forwarding" || it.state == "off");
        }
        cable.carries = through;
    }
    return view;
}

} // namespace lvt_lab
