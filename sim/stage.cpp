#include "sim/stage.h"

#include <algorithm>
#include <cstring>

#include "tools/bpdu_frame.h"

namespace sim {

namespace {

bpdu_t bpdu_by(const std::array<uint8_t, 6> &address, uint8_t type, const told_t &told, uint8_t flags)
{
    bpdu_t bpdu = bpdu_of(type, told, flags);
    std::copy(address.begin(), address.end(), bpdu.source);
    return bpdu;
}

void send(world_t &world, node_id_t node, const bpdu_t &bpdu, size_t octets = sizeof(bpdu_t))
{
    world.send(node, {reinterpret_cast<const uint8_t *>(&bpdu), octets});
}

timevalues_t times_of(const story_node_t &node)
{
    return {.MessageAge = 0,
            .MaxAge = static_cast<uint8_t>(node.bridge.max_age),
            .ForwardDelay = static_cast<uint8_t>(node.bridge.forward_delay),
            .HelloTime = static_cast<uint8_t>(node.bridge.hello_time)};
}

/// Whether the root that a BPDU tells of is better than this bridge.
bool tells_better_root(const bpdu_t &bpdu, const bridge_id_t &own)
{
    const uint16_t priority = bpdu_get16(bpdu.root_priority);
    return priority != own.prio ? priority < own.prio : memcmp(bpdu.root_address, own.addr, sizeof own.addr) < 0;
}

} // namespace

stage_t::stage_t(const story_t &story) : story_(story), world_(story.seed)
{
    for (node_id_t id = 0; id < story.nodes.size(); id++) {
        const story_node_t &node = story.nodes[id];
        ports_.push_back(node.ports);
        bridges_.push_back(node.bridge);
        groups_.push_back(node.groups);
        switch (node.kind) {
        case node_kind_t::SWITCH:
            world_.device(world_.add_switch(node.name)).rapid = node.rapid;
            world_.at(node.boot, [this, id] { boot(id); });
            break;
        case node_kind_t::HUB:
            world_.add_hub(node.name, node.swallows);
            break;
        case node_kind_t::HOST:
            world_.add_host(node.name);
            break;
        case node_kind_t::SPEAKER: {
            const auto number = static_cast<uint16_t>(speakers_.size() + 1);
            speaker_state_t &speaker = speakers_.emplace_back(speaker_state_t{
                id, {0x02, 0x01, 0x00, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number), 0x00}});
            world_.add_speaker([this, &speaker](const frame_t &frame) { hear(speaker, frame); }, node.name);
            if (node.manner != manner_t::SILENT && node.manner != manner_t::MIRROR)
                world_.at(node.phase, [this, &speaker] { talk(speaker); });
            break;
        }
        }
    }
    for (const story_cable_t &cable : story.cables) {
        const cable_id_t id =
            world_.connect(cable.ends[0], cable.ends[1], cable.ways[0], cable.mbit, cable.full_duplex);
        world_.cable(id).ways[1] = cable.ways[1];
        if (cable.plugged == 0)
            continue;
        world_.pull(id);
        if (cable.plugged != UINT64_MAX)
            world_.at(cable.plugged, [this, id] { world_.plug(id); });
    }
    for (const story_event_t &event : story.events)
        world_.at(event.at, [this, &event] { happen(event); });
}

// ---- switches ---------------------------------------------------------------------------

/// What the board's management sends to a daemon that has started.
void stage_t::configure(node_id_t node)
{
    if (!story_.nodes[node].is_configured)
        return;
    world_.control(node, system_config_message(bridges_[node]));
    world_.control(node, aggr_config_message(ports_[node][0]));
    if (groups_[node] != AGGR_STATUS_ALONE)
        world_.join(node, groups_[node]);
    world_.control(node, port_config_message(ports_[node]));
}

void stage_t::boot(node_id_t node)
{
    const story_node_t &told = story_.nodes[node];
    if (world_.powered(node))
        return;
    world_.power_on(node, told.phase, told.second, false);
    configure(node);
    world_.at(world_.now() + LINK_COMES, [this, node] { world_.light(node); });
}

void stage_t::happen(const story_event_t &event)
{
    const uint32_t subject = event.subject;
    switch (event.deed) {
    case deed_t::CUT:
        world_.pull(subject);
        break;
    case deed_t::MEND:
        world_.plug(subject);
        break;
    case deed_t::DEAFEN:
        world_.cable(subject).ways[event.number].dead = true;
        break;
    case deed_t::HEAL:
        world_.cable(subject).ways[event.number].dead = false;
        break;
    case deed_t::DEGRADE: {
        way_t &way = world_.cable(subject).ways[event.number];
        const moment_t last_arrival = way.last_arrival; // what is under way stays ahead
        way = event.way;
        way.last_arrival = last_arrival;
        break;
    }
    case deed_t::POWER_OFF:
        world_.power_off(subject);
        break;
    case deed_t::POWER_ON:
        boot(subject);
        break;
    case deed_t::KILL:
        world_.kill_daemon(subject);
        break;
    case deed_t::RESTART:
        if (!world_.powered(subject))
            break;
        world_.start_daemon(subject, story_.nodes[subject].phase, story_.nodes[subject].second);
        configure(subject);
        break;
    case deed_t::SET_BRIDGE:
        bridges_[subject] = event.bridge;
        world_.control(subject, system_config_message(event.bridge));
        break;
    case deed_t::SET_PORT:
        ports_[subject][event.number] = event.port;
        world_.control(subject, event.number ? port_config_message(ports_[subject]) : aggr_config_message(event.port));
        break;
    case deed_t::SET_GROUPS:
        groups_[subject] = event.groups;
        world_.join(subject, event.groups);
        break;
    case deed_t::REFUSE:
        world_.refuse(subject, event.number);
        break;
    case deed_t::HOLD:
        world_.hold(subject, event.number * MILLISECOND);
        break;
    case deed_t::MESSAGE:
        world_.control(subject, event.octets);
        break;
    }
}

// ---- neighbours -------------------------------------------------------------------------

bridge_id_t stage_t::identifier_of(node_id_t neighbour) const
{
    bridge_id_t id = {};
    for (const speaker_state_t &speaker : speakers_)
        if (speaker.node == neighbour) {
            id.prio = story_.nodes[neighbour].bridge.bridge_priority;
            std::copy(speaker.address.begin(), speaker.address.end(), id.addr);
        }
    return id;
}

bool stage_t::is_hushed(const speaker_state_t &speaker) const
{
    return world_.now() >= story_.nodes[speaker.node].hush;
}

void stage_t::hear(speaker_state_t &speaker, const frame_t &frame)
{
    const std::span<const uint8_t> octets(frame.octets.data(), frame.length);
    if (is_hushed(speaker) || !is_bpdu(octets))
        return;
    const manner_t manner = story_.nodes[speaker.node].manner;
    if (manner == manner_t::MIRROR)
        world_.send(speaker.node, octets);
    if (manner != manner_t::STP)
        return;
    const bpdu_t bpdu = read_bpdu(octets);
    if (bpdu.type != BPDU_TYPE_CONFIG)
        return; // it knows no other, but for a notification, which ends here
    if (tells_better_root(bpdu, identifier_of(speaker.node))) {
        const uint32_t left =
            bpdu_get16(bpdu.max_age) - std::min(bpdu_get16(bpdu.max_age), bpdu_get16(bpdu.message_age));
        speaker.believes_until = world_.now() + left * SECOND / 256;
    } else
        claim(speaker);
}

/// An STP bridge's or a better bridge's hello.
void stage_t::claim(const speaker_state_t &speaker)
{
    const story_node_t &node = story_.nodes[speaker.node];
    const bridge_id_t own = identifier_of(speaker.node);
    const told_t told = {.root = own, .cost = 0, .bridge = own, .times = times_of(node)};
    if (node.manner == manner_t::STP)
        send(world_, speaker.node, bpdu_by(speaker.address, BPDU_TYPE_CONFIG, told, 0));
    else
        send(world_, speaker.node,
             bpdu_by(speaker.address, BPDU_TYPE_RST, told,
                     bpdu_role_flags(BPDU_ROLE_DESIGNATED) | BPDU_FLAG_LEARNING | BPDU_FLAG_FORWARDING));
}

void stage_t::babble(const speaker_state_t &speaker)
{
    random_t &random = world_.random();
    constexpr uint8_t types[] = {BPDU_TYPE_CONFIG, BPDU_TYPE_RST, BPDU_TYPE_RST, BPDU_TYPE_RST, BPDU_TYPE_TCN};
    const uint8_t type = types[random.below(sizeof types)];
    const auto identifier = [&] {
        bridge_id_t id = {};
        id.prio = static_cast<uint16_t>(random.below(16) << 12);
        id.addr[0] = 0x02;
        id.addr[4] = static_cast<uint8_t>(random.below(12)); // that of a switch of ours, as often as not
        return id;
    };
    const timevalues_t times = {.MessageAge = static_cast<uint8_t>(random.below(8)),
                                .MaxAge = static_cast<uint8_t>(random.between(6, 10)),
                                .ForwardDelay = static_cast<uint8_t>(random.between(4, 6)),
                                .HelloTime = static_cast<uint8_t>(random.between(1, 2))};
    told_t told = {.root = identifier(), .cost = 0, .bridge = identifier(), .times = times};
    told.cost = static_cast<uint32_t>(random.below(4) * 20000);
    told.port = static_cast<uint16_t>(random.below(65536));
    bpdu_t bpdu = bpdu_by(speaker.address, type, told, static_cast<uint8_t>(random.below(256)));
    size_t octets = sizeof bpdu;
    if (random.one_in(8)) // cut off
        octets = random.between(14, sizeof bpdu);
    if (random.one_in(8)) // any octet
        reinterpret_cast<uint8_t *>(&bpdu)[random.between(14, sizeof bpdu - 1)] ^=
            static_cast<uint8_t>(random.below(256));
    send(world_, speaker.node, bpdu, octets);
}

void stage_t::talk(speaker_state_t &speaker)
{
    if (is_hushed(speaker))
        return;
    const story_node_t &node = story_.nodes[speaker.node];
    moment_t pause = node.bridge.hello_time * SECOND;
    if (node.manner == manner_t::RANDOM) {
        babble(speaker);
        pause = world_.random().between(20, 1000) * MILLISECOND;
    } else if (node.manner == manner_t::BETTER || world_.now() >= speaker.believes_until)
        claim(speaker);
    world_.at(world_.now() + pause, [this, &speaker] { talk(speaker); });
}

} // namespace sim
