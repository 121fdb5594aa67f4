#include "sim/topology_file.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>

#include "sim/could_not.h"
#include "sim/faults.h"
#include "tools/random.h"
#include "tools/topology/story.h"

namespace sim {

namespace {

using topology::span_t;
using topology::verb_t;

/// From the last event to the end, where the network does not say: the default timers run out, and some rest.
constexpr moment_t AFTERMATH = 90 * SECOND;

moment_t moment_of(span_t span) { return static_cast<moment_t>(span.count()); }
span_t span_of(moment_t moment) { return span_t(moment); }

way_t way_of(const topology::quality_t &quality)
{
    return {.delay = moment_of(quality.delay),
            .jitter = moment_of(quality.jitter),
            .lost = quality.lost,
            .doubled = quality.doubled,
            .dead = quality.dead,
            .last_arrival = 0};
}

topology::quality_t quality_of(const way_t &way)
{
    return {.delay = span_of(way.delay),
            .jitter = span_of(way.jitter),
            .lost = way.lost,
            .doubled = way.doubled,
            .dead = way.dead};
}

[[noreturn]] void refuse(const topology::node_t &node, const std::string &reason)
{
    const std::string text = fmt::format("{}{} {}", node.place, node.name, reason);
    if (node.place.empty())
        throw usage_t(text);
    throw faults_t(text);
}

node_kind_t kind_of(const topology::node_t &node)
{
    if (!node.options.empty())
        refuse(node, "has options, and the simulator starts no program that takes them");
    switch (node.kind) {
    case topology::kind_t::SWITCH:
        return node_kind_t::SWITCH;
    case topology::kind_t::HUB:
        return node_kind_t::HUB;
    case topology::kind_t::HOST:
        return node_kind_t::HOST;
    case topology::kind_t::SPEAKER:
        return node_kind_t::SPEAKER;
    default:
        refuse(node, fmt::format("is a {}, and there is no Linux in the simulator: make it a switch",
                                 topology::KIND_WORDS[static_cast<size_t>(node.kind)]));
    }
}

story_node_t story_node(const topology::node_t &node, random_t &random)
{
    story_node_t result;
    result.kind = kind_of(node);
    result.name = node.name;
    result.swallows = node.swallows;
    result.bridge = node.settings.bridge;
    result.ports = node.settings.ports;
    result.groups = node.settings.groups;
    result.is_configured = node.configured;
    result.rapid = node.rapid;
    result.boot = moment_of(node.boot);
    result.second = moment_of(node.second);
    const moment_t phase = random.between(MILLISECOND, SECOND);
    result.phase = node.phase ? moment_of(*node.phase) : phase;
    result.manner = static_cast<manner_t>(node.speech);
    result.hush = node.hush ? moment_of(*node.hush) : UINT64_MAX;
    return result;
}

story_cable_t story_cable(const topology::link_t &link)
{
    story_cable_t cable;
    for (const unsigned i : {0u, 1u}) {
        cable.ends[i] = {static_cast<node_id_t>(link.ends[i].node), link.ends[i].port};
        cable.ways[i] = way_of(link.qualities[i]);
    }
    cable.mbit = link.mbit;
    cable.full_duplex = link.full_duplex;
    cable.plugged = link.plugged ? moment_of(*link.plugged) : UINT64_MAX;
    return cable;
}

/// What changes a switch's settings into others.
void add_settings(std::vector<story_event_t> &events, const story_event_t &event, const settings_t &before,
                  const settings_t &now)
{
    const auto add = [&](deed_t deed) -> story_event_t & {
        events.push_back(event);
        events.back().deed = deed;
        return events.back();
    };
    if (now.lacp != before.lacp) {
        const std::vector<uint8_t> message = lacp_enable_message(now.lacp);
        add(deed_t::MESSAGE).octets.assign(message.begin(), message.end());
    }
    if (memcmp(&now.bridge, &before.bridge, sizeof now.bridge) != 0)
        add(deed_t::SET_BRIDGE).bridge = now.bridge;
    for (uint32_t port = 0; port <= FRONT_PORTS; port++)
        if (memcmp(&now.ports[port], &before.ports[port], sizeof now.ports[port]) != 0) {
            story_event_t &set = add(deed_t::SET_PORT);
            set.number = port;
            set.port = now.ports[port];
        }
    if (now.groups != before.groups)
        add(deed_t::SET_GROUPS).groups = now.groups;
}

/// What an event of the network is in the story; one may be several.
void add_events(std::vector<story_event_t> &events, const topology::event_t &told, std::vector<settings_t> &settings)
{
    story_event_t event;
    event.at = moment_of(told.at);
    event.subject = static_cast<uint32_t>(told.subject);
    const auto add = [&](deed_t deed, uint32_t number = 0) {
        event.deed = deed;
        event.number = number;
        events.push_back(event);
    };
    switch (told.verb) {
    case verb_t::PULL:
        return add(deed_t::CUT);
    case verb_t::PLUG:
        return add(deed_t::MEND);
    case verb_t::FLAP:
        for (unsigned i = 0; i < told.times; i++) {
            add(deed_t::CUT);
            event.at += moment_of(told.pause);
            add(deed_t::MEND);
            event.at += moment_of(told.pause);
        }
        return;
    case verb_t::DEGRADE:
        for (const uint32_t i : {0u, 1u}) {
            event.way = way_of(told.qualities[i]);
            add(deed_t::DEGRADE, i);
        }
        return;
    case verb_t::DEAFEN:
        return add(deed_t::DEAFEN, told.way);
    case verb_t::HEAL:
        return add(deed_t::HEAL, told.way);
    case verb_t::KILL:
        return add(deed_t::KILL);
    case verb_t::RESTART:
        return add(deed_t::RESTART);
    case verb_t::POWER_OFF:
        return add(deed_t::POWER_OFF);
    case verb_t::POWER_ON:
        return add(deed_t::POWER_ON);
    case verb_t::SET:
        add_settings(events, event, settings[told.subject], *told.settings);
        settings[told.subject] = *told.settings;
        return;
    case verb_t::REFUSE:
        return add(deed_t::REFUSE, told.times);
    case verb_t::HOLD:
        return add(deed_t::HOLD, static_cast<uint32_t>(moment_of(told.pause) / MILLISECOND));
    case verb_t::MESSAGE:
        event.octets = told.octets;
        return add(deed_t::MESSAGE);
    }
}

uint64_t faults_of(const topology::network_t &network)
{
    uint64_t faults = 0;
    for (const std::string &word : network.faults) {
        std::vector<std::string> names;
        for (unsigned i = 0; i < FAULTS; i++)
            names.emplace_back(fault_name(static_cast<fault_t>(i)));
        const auto found = std::ranges::find(names, word);
        if (found == names.end())
            throw usage_t(fmt::format("there is no fault \"{}\"{}", word, topology::suggestions(word, names)));
        faults |= bit(static_cast<fault_t>(found - names.begin()));
    }
    return faults;
}

} // namespace

story_t story_of(const topology::network_t &network)
{
    story_t story;
    story.name = network.name;
    story.seed = network.seed;
    story.faults = faults_of(network);
    random_t random = {network.seed};
    std::vector<settings_t> settings;
    moment_t last = 0;
    for (const topology::node_t &node : network.nodes) {
        story.nodes.push_back(story_node(node, random));
        settings.push_back(node.settings);
        last = std::max(last, moment_of(node.boot));
        if (node.settings.lacp != lacp_enables_t{}) {
            story_event_t event;
            event.at = moment_of(node.boot);
            event.subject = static_cast<uint32_t>(settings.size() - 1);
            event.deed = deed_t::MESSAGE;
            event.octets = lacp_enable_message(node.settings.lacp);
            story.events.push_back(event);
        }
    }
    for (const topology::link_t &link : network.links) {
        story.cables.push_back(story_cable(link));
        last = std::max(last, link.plugged ? moment_of(*link.plugged) : 0);
    }
    for (const topology::event_t &event : network.story)
        add_events(story.events, event, settings);
    std::ranges::stable_sort(story.events, {}, &story_event_t::at);
    if (!story.events.empty())
        last = std::max(last, story.events.back().at);
    for (const span_t rest : network.rests)
        story.rests.push_back(moment_of(rest));
    if (story.rests.empty())
        story.rests.push_back(network.until ? moment_of(*network.until) : last + AFTERMATH);
    return story;
}

namespace {

topology::node_t topology_node(const story_node_t &told)
{
    constexpr topology::kind_t KINDS[] = {topology::kind_t::SWITCH, topology::kind_t::HUB, topology::kind_t::HOST,
                                          topology::kind_t::SPEAKER};
    topology::node_t node;
    node.name = told.name;
    node.kind = KINDS[static_cast<size_t>(told.kind)];
    if (told.kind == node_kind_t::HUB)
        node.swallows = told.swallows;
    if (told.kind == node_kind_t::SWITCH || told.kind == node_kind_t::SPEAKER) {
        node.settings.bridge = told.bridge;
        node.phase = span_of(told.phase);
    }
    if (told.kind == node_kind_t::SWITCH) {
        node.settings.ports = told.ports;
        node.settings.groups = told.groups;
        node.configured = told.is_configured;
        node.rapid = told.rapid;
        node.boot = span_of(told.boot);
        node.second = span_of(told.second);
    }
    if (told.kind == node_kind_t::SPEAKER) {
        node.speech = static_cast<topology::speech_t>(told.manner);
        if (told.hush != UINT64_MAX)
            node.hush = span_of(told.hush);
    }
    return node;
}

topology::event_t topology_event(const story_event_t &told, std::vector<settings_t> &settings)
{
    topology::event_t event = {};
    event.at = span_of(told.at);
    event.subject = told.subject;
    // What is set once more is a message, since no setting has become another.
    const auto set = [&](auto change, const std::vector<uint8_t> &message) {
        const settings_t before = settings[told.subject];
        change(settings[told.subject]);
        event.settings = settings[told.subject];
        event.verb = topology::changed_settings(before, *event.settings).empty() ? verb_t::MESSAGE : verb_t::SET;
        event.octets = message;
    };
    switch (told.deed) {
    case deed_t::CUT:
        event.verb = verb_t::PULL;
        break;
    case deed_t::MEND:
        event.verb = verb_t::PLUG;
        break;
    case deed_t::DEAFEN:
        event.verb = verb_t::DEAFEN;
        event.way = told.number;
        break;
    case deed_t::HEAL:
        event.verb = verb_t::HEAL;
        event.way = told.number;
        break;
    case deed_t::DEGRADE:
        event.verb = verb_t::DEGRADE;
        event.qualities.fill(quality_of(told.way));
        break;
    case deed_t::POWER_OFF:
        event.verb = verb_t::POWER_OFF;
        break;
    case deed_t::POWER_ON:
        event.verb = verb_t::POWER_ON;
        break;
    case deed_t::KILL:
        event.verb = verb_t::KILL;
        break;
    case deed_t::RESTART:
        event.verb = verb_t::RESTART;
        break;
    case deed_t::SET_BRIDGE:
        set([&](settings_t &now) { now.bridge = told.bridge; }, system_config_message(told.bridge));
        break;
    case deed_t::SET_PORT:
        set([&](settings_t &now) { now.ports[told.number] = told.port; },
            told.number ? port_config_message(settings[told.subject].ports) : aggr_config_message(told.port));
        break;
    case deed_t::SET_GROUPS:
        set([&](settings_t &now) { now.groups = told.groups; }, aggr_status_message(told.groups));
        break;
    case deed_t::REFUSE:
        event.verb = verb_t::REFUSE;
        event.times = told.number;
        break;
    case deed_t::HOLD:
        event.verb = verb_t::HOLD;
        event.pause = span_of(told.number * MILLISECOND);
        break;
    case deed_t::MESSAGE:
        event.verb = verb_t::MESSAGE;
        event.octets = told.octets;
        break;
    }
    return event;
}

} // namespace

topology::network_t network_of(const story_t &story)
{
    constexpr const char *PREFIXES[] = {"sw", "hub", "h", "speaker"};
    topology::network_t network;
    network.name = story.name;
    network.seed = story.seed;
    unsigned numbers[std::size(PREFIXES)] = {};
    std::vector<settings_t> settings;
    for (const story_node_t &told : story.nodes) {
        network.nodes.push_back(topology_node(told));
        const auto kind = static_cast<size_t>(told.kind);
        const unsigned number = ++numbers[kind];
        if (told.name.empty())
            network.nodes.back().name = fmt::format("{}{}", PREFIXES[kind], number);
        settings.push_back(network.nodes.back().settings);
    }
    for (const story_cable_t &told : story.cables) {
        topology::link_t &link = network.links.emplace_back();
        for (const unsigned i : {0u, 1u}) {
            link.ends[i] = {told.ends[i].node, told.ends[i].port};
            link.qualities[i] = quality_of(told.ways[i]);
        }
        link.mbit = told.mbit;
        link.full_duplex = told.full_duplex;
        link.plugged.reset();
        if (told.plugged != UINT64_MAX)
            link.plugged = span_of(told.plugged);
    }
    for (const story_event_t &told : story.events) {
        const topology::event_t event = topology_event(told, settings);
        // The two ways of a cable that degrades are one event there.
        topology::event_t *last = network.story.empty() ? nullptr : &network.story.back();
        if (told.deed == deed_t::DEGRADE && told.number == 1 && last && last->verb == verb_t::DEGRADE &&
            last->subject == event.subject && last->at == event.at)
            last->qualities[1] = event.qualities[1];
        else
            network.story.push_back(event);
    }
    for (const moment_t rest : story.rests)
        network.rests.push_back(span_of(rest));
    for (unsigned i = 0; i < FAULTS; i++)
        if (story.faults & bit(static_cast<fault_t>(i)))
            network.faults.emplace_back(fault_name(static_cast<fault_t>(i)));
    return network;
}

} // namespace sim
