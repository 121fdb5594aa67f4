#include "sim/story.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/random.h"
#include "tools/words.h"

namespace sim {

namespace {

constexpr const char *KINDS[] = {"switch", "hub", "host", "neighbour"};
constexpr const char *PREFIXES[] = {"sw", "hub", "h", "speaker"};
constexpr const char *MANNERS[] = {"is silent", "speaks STP", "says it is better", "says anything", "sends all back"};

std::string milliseconds(moment_t span) { return fmt::format("{}.{:03} ms", span / 1000, span % 1000); }

std::string bridge_words(const lvt_rstp_system_config_t &bridge)
{
    return fmt::format("priority {}, max age {}, hello {}, forward delay {}, {}", bridge.bridge_priority,
                       bridge.max_age, bridge.hello_time, bridge.forward_delay,
                       force_version_word(bridge.force_version));
}

std::string port_words(const lvt_rstp_port_config_t &port)
{
    return fmt::format("{}, {}, priority {}, cost {}", port.adminEnable ? "in the tree" : "out of the tree",
                       port.adminEdge ? "edge" : "no edge", port.port_priority, path_cost_word(port.adminPathCost));
}

std::string groups_words(const node_groups_t &groups)
{
    return fmt::format("groups {}", fmt::join(groups.begin() + 1, groups.end(), " "));
}

std::string way_words(const way_t &way)
{
    return fmt::format(
        "{}{}{}{}{}", milliseconds(way.delay), way.jitter ? fmt::format(" jitter {}", milliseconds(way.jitter)) : "",
        way.lost ? fmt::format(" loses {} of a million", way.lost) : "",
        way.doubled ? fmt::format(" doubles {} of a million", way.doubled) : "", way.dead ? " is dead" : "");
}

std::string node_words(const story_node_t &node)
{
    switch (node.kind) {
    case node_kind_t::SWITCH: {
        std::string words =
            fmt::format("boots at {}, ticks after {} every {}, {}", milliseconds(node.boot), milliseconds(node.phase),
                        milliseconds(node.second), node.is_configured ? bridge_words(node.bridge) : "no settings");
        if (node.rapid)
            words += ", rapid";
        if (node.groups != AGGR_STATUS_ALONE)
            words += ", " + groups_words(node.groups);
        return words;
    }
    case node_kind_t::HUB:
        return node.swallows ? "swallows BPDUs" : "";
    case node_kind_t::HOST:
        return "";
    case node_kind_t::SPEAKER:
        return fmt::format("{} from {} on, {}", MANNERS[static_cast<size_t>(node.manner)], milliseconds(node.phase),
                           bridge_words(node.bridge));
    }
    return "";
}

} // namespace

void make_rapid(story_t &story, rapid_t rapid)
{
    random_t random = {~story.seed};
    for (story_node_t &node : story.nodes)
        if (node.kind == node_kind_t::SWITCH && rapid != rapid_t::NONE)
            node.rapid = rapid == rapid_t::ALL || random.one_in(2);
}

std::string node_name(const story_t &story, uint32_t id)
{
    const story_node_t &node = story.nodes[id];
    if (!node.name.empty())
        return node.name;
    uint32_t number = 1;
    for (uint32_t other = 0; other < id; other++)
        number += story.nodes[other].kind == node.kind;
    return PREFIXES[static_cast<size_t>(node.kind)] + std::to_string(number);
}

std::string cable_name(const story_t &story, uint32_t cable)
{
    const auto &ends = story.cables[cable].ends;
    return fmt::format("{}:{} {}:{}", node_name(story, ends[0].node), ends[0].port, node_name(story, ends[1].node),
                       ends[1].port);
}

std::string event_words(const story_t &story, const story_event_t &event)
{
    const auto cable = [&] { return "the cable " + cable_name(story, event.subject); };
    const auto node = [&] { return node_name(story, event.subject); };
    switch (event.deed) {
    case deed_t::CUT:
        return cable() + " is cut";
    case deed_t::MEND:
        return cable() + " is mended";
    case deed_t::DEAFEN:
    case deed_t::HEAL:
        return fmt::format("{} passes {} to {}", cable(), event.deed == deed_t::HEAL ? "all" : "nothing",
                           node_name(story, story.cables[event.subject].ends[1 - event.number].node));
    case deed_t::POWER_OFF:
        return node() + " loses power";
    case deed_t::POWER_ON:
        return node() + " has power again";
    case deed_t::KILL:
        return "the daemon of " + node() + " dies";
    case deed_t::RESTART:
        return "the daemon of " + node() + " starts again";
    case deed_t::SET_BRIDGE:
        return node() + " is set: " + bridge_words(event.bridge);
    case deed_t::SET_PORT:
        return fmt::format("{}:{} is set: {}", node(), event.number, port_words(event.port));
    case deed_t::SET_GROUPS:
        return node() + " is set: " + groups_words(event.groups);
    case deed_t::REFUSE:
        return fmt::format("the chip of {} refuses {} batches", node(), event.number);
    case deed_t::HOLD:
        return fmt::format("{} does not tick for {} ms", node(), event.number);
    case deed_t::DEGRADE:
        return fmt::format("{} to {} has {}", cable(),
                           node_name(story, story.cables[event.subject].ends[1 - event.number].node),
                           way_words(event.way));
    case deed_t::MESSAGE:
        return fmt::format("{} has a message of {} octets", node(), event.octets.size());
    }
    return "";
}

std::vector<std::string> network_words(const story_t &story)
{
    std::vector<std::string> lines;
    for (uint32_t id = 0; id < story.nodes.size(); id++) {
        const story_node_t &node = story.nodes[id];
        lines.push_back(
            fmt::format("{} {}: {}", KINDS[static_cast<size_t>(node.kind)], node_name(story, id), node_words(node)));
        if (node.kind == node_kind_t::SWITCH && node.is_configured)
            for (unsigned port = 1; port <= FRONT_PORTS; port++)
                for (const story_cable_t &cable : story.cables)
                    for (const end_t &end : cable.ends)
                        if (end.node == id && end.port == port)
                            lines.push_back(fmt::format("  port {}: {}", port, port_words(node.ports[port])));
    }
    for (uint32_t id = 0; id < story.cables.size(); id++) {
        const story_cable_t &cable = story.cables[id];
        lines.push_back(fmt::format("cable {}: {} Mbit/s {}, there {}, back {}", cable_name(story, id), cable.mbit,
                                    cable.full_duplex ? "full duplex" : "half duplex", way_words(cable.ways[0]),
                                    way_words(cable.ways[1])));
    }
    return lines;
}

} // namespace sim
