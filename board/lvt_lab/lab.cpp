#include "board/lvt_lab/lab_member.h"

#include <fmt/format.h>
#include <unistd.h>

#include "board/lab/process.h"
#include "tools/ctl/ctl.h"
#include "tools/topology/story.h"

namespace lvt_lab {

void demand_playable(const topology::network_t &network)
{
    const auto refuse = [](const topology::node_t &node, const std::string &reason) {
        const std::string text = fmt::format("{}{} {}", node.place, node.name, reason);
        if (node.place.empty())
            throw refused_t(text);
        throw faults_t(text);
    };
    for (const topology::node_t &node : network.nodes) {
        if (node.kind == topology::kind_t::HUB || node.kind == topology::kind_t::SPEAKER)
            refuse(node, fmt::format("is a {}, which only the simulator plays (lvt_sim play)", kind_word(node.kind)));
        if (node.kind == topology::kind_t::LVT_BRIDGE &&
            access(lab::program("LVT_BRIDGE", "lvt_bridge").c_str(), X_OK) != 0)
            refuse(node,
                   "is an lvt-bridge, and the program lvt_bridge is not there: build it, or make it a switch or a "
                   "linux-bridge");
    }
}

lab_t::lab_t(std::string name, topology::network_t network)
    : name_(std::move(name)), network_(std::move(network)), sides_(network_.links.size())
{
    story_.swap(network_.story);
    for (size_t i = 0; i < network_.nodes.size(); i++)
        members_.push_back(std::make_unique<member_t>(i, network_.nodes[i]));
    for (size_t i = 0; i < network_.links.size(); i++)
        for (const unsigned end : {0u, 1u}) {
            const topology::end_t &place = network_.links[i].ends[end];
            members_[place.node]->places[place.port] = {i, end};
        }
}

lab_t::~lab_t()
{
    {
        const std::lock_guard lock(ending_);
        ends_ = true;
    }
    end_.notify_all();
    for (std::thread &thread : later_)
        thread.join();
    if (watcher_.joinable()) {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t told = write(wake_.number(), &one, sizeof one);
        watcher_.join();
    }
    prober_.reset(); // they use the wires, which use this
    wires_.reset();
}

const lab::node_t &lab_t::node(const std::string &name)
{
    const auto found = topology::find_node(network_, name);
    if (!found) {
        std::vector<std::string> names;
        for (const topology::node_t &known : network_.nodes)
            names.push_back(known.name);
        throw refused_t(fmt::format("there is no node \"{}\"{}", name, topology::suggestion(name, names)));
    }
    return members_[*found]->node();
}

std::string lab_t::address(const std::string &host)
{
    const lab::node_t &found = node(host);
    for (const auto &member : members_)
        if (member->host && &member->node() == &found)
            return member->told.address.substr(0, member->told.address.find('/'));
    throw refused_t(fmt::format("{} is no host", host));
}

std::string lab_t::cable_name(size_t cable) const { return topology::link_text(network_, network_.links[cable]); }

std::vector<size_t> lab_t::cables(const std::string &word)
{
    std::vector<size_t> all;
    if (word == "all")
        for (size_t i = 0; i < network_.links.size(); i++)
            all.push_back(i);
    else
        for (const topology::found_link_t &found : topology::find_links(network_, word))
            all.push_back(found.link);
    if (all.empty())
        throw refused_t(fmt::format("there is no link \"{}\": write the names of two nodes, as in sw1-sw2", word));
    return all;
}

} // namespace lvt_lab
