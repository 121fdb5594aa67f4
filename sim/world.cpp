#include "sim/world.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "tools/bpdu_frame.h"
#include "tools/messages.h"

namespace sim {

namespace {

constexpr size_t ADDRESS = 6;
constexpr size_t SHORTEST = 14;
constexpr size_t FEW = 256; ///< switches that fit into a cache
constexpr uint8_t TO_ALL[] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

chip_time_t chip_time(moment_t moment) { return chip_time_t(moment); }

} // namespace

world_t::world_t(uint64_t seed)
    : random_{seed}, calls_{this, call_sends, call_chip_changed, call_chip_written, call_chip_refuses}
{
}

world_t::~world_t()
{
    for (const auto &device : switches_)
        switch_destroy(*device);
}

// ---- building ---------------------------------------------------------------------------

node_id_t world_t::add(node_kind_t kind, std::string name, uint32_t index)
{
    const auto id = static_cast<node_id_t>(nodes_.size());
    static constexpr const char *prefixes[] = {"sw", "hub", "h", "speaker"};
    if (name.empty())
        name = prefixes[static_cast<size_t>(kind)] + std::to_string(index + 1);
    nodes_.push_back({kind, std::move(name), index});
    cables_of_.emplace_back(kind == node_kind_t::SWITCH ? FRONT_PORTS : 0, NO_CABLE);
    return id;
}

node_id_t world_t::add_switch(std::string name)
{
    const auto index = static_cast<uint32_t>(switches_.size());
    switches_.push_back(std::make_unique<switch_t>());
    switch_create(*switches_.back(), index + 1, calls_);
    powered_.push_back(false);
    lit_.push_back(false);
    daemons_.push_back(0);
    seconds_.push_back(SECOND);
    refusals_.push_back(0);
    held_until_.push_back(0);
    held_ticks_.push_back(0);
    const node_id_t id = add(node_kind_t::SWITCH, std::move(name), index);
    node_of_switch_.push_back(id);
    return id;
}

node_id_t world_t::add_hub(std::string name, bool swallows)
{
    const node_id_t id = add(node_kind_t::HUB, std::move(name), hubs_++);
    nodes_[id].swallows = swallows;
    return id;
}

node_id_t world_t::add_host(std::string name)
{
    host_received_.push_back(0);
    return add(node_kind_t::HOST, std::move(name), static_cast<uint32_t>(host_received_.size() - 1));
}

node_id_t world_t::add_speaker(speaker_t speaker, std::string name)
{
    speakers_.push_back(std::move(speaker));
    return add(node_kind_t::SPEAKER, std::move(name), static_cast<uint32_t>(speakers_.size() - 1));
}

cable_id_t world_t::connect(end_t a, end_t b, const way_t &way, uint32_t mbit, bool full_duplex)
{
    const auto id = static_cast<cable_id_t>(cables_.size());
    for (const end_t &end : {a, b}) {
        std::vector<cable_id_t> &of_node = cables_of_.at(end.node);
        if (end.port == 0 || (nodes_[end.node].kind == node_kind_t::SWITCH && end.port > FRONT_PORTS))
            throw std::invalid_argument(nodes_[end.node].name + " has no port " + std::to_string(end.port));
        if (of_node.size() < end.port)
            of_node.resize(end.port, NO_CABLE);
        if (of_node[end.port - 1] != NO_CABLE)
            throw std::invalid_argument(nodes_[end.node].name + ":" + std::to_string(end.port) +
                                        " has a cable already");
        of_node[end.port - 1] = id;
    }
    cables_.push_back({{a, b}, {way, way}, false, mbit, full_duplex, 0});
    plug(id);
    return id;
}

cable_id_t world_t::cable_at(end_t end) const
{
    const std::vector<cable_id_t> &of_node = cables_of_[end.node];
    return end.port - 1 < of_node.size() ? of_node[end.port - 1] : NO_CABLE;
}

std::array<uint8_t, 6> world_t::host_address(node_id_t host) const
{
    const uint32_t index = nodes_[host].index;
    return {0x06,
            0,
            static_cast<uint8_t>(index >> 24),
            static_cast<uint8_t>(index >> 16),
            static_cast<uint8_t>(index >> 8),
            static_cast<uint8_t>(index)};
}

// ---- acting -----------------------------------------------------------------------------

void world_t::done(node_id_t node)
{
    for (watcher_t *watcher : watchers_)
        watcher->event_done(node);
}

void world_t::schedule_tick(uint32_t index, moment_t when)
{
    queue_.put(when, {event_kind_t::TICK, 0, index, daemons_[index], 0});
}

void world_t::power_on(node_id_t node, moment_t phase, moment_t second, bool lit)
{
    const uint32_t index = nodes_[node].index;
    if (powered_[index])
        return;
    powered_[index] = true;
    lit_[index] = lit;
    daemons_[index]++;
    seconds_[index] = second;
    // With power come the links, at both ends.
    for (const cable_id_t cable : cables_of_[node])
        if (cable != NO_CABLE)
            for (const end_t &end : cables_[cable].ends)
                if (end.node == node)
                    device(node).links[end.port - 1] = {.up = false, .mbit = 0, .full_duplex = false};
    switch_power_on(device(node), chip_time(now_));
    if (lit)
        set_links_at(node);
    schedule_tick(index, now_ + phase);
    done(node);
}

void world_t::light(node_id_t node)
{
    if (!powered(node) || lit_[nodes_[node].index])
        return;
    lit_[nodes_[node].index] = true;
    set_links_at(node);
}

/// At both ends of all its cables.
void world_t::set_links_at(node_id_t node)
{
    for (const cable_id_t cable : cables_of_[node])
        if (cable != NO_CABLE)
            for (const end_t &end : cables_[cable].ends)
                set_link_of(end, cables_[cable]);
}

void world_t::power_off(node_id_t node)
{
    const uint32_t index = nodes_[node].index;
    if (!powered_[index])
        return;
    powered_[index] = lit_[index] = false;
    daemons_[index]++;
    switch_power_off(device(node));
    for (const cable_id_t id : cables_of_[node])
        if (id != NO_CABLE)
            cables_[id].generation++;
    set_links_at(node);
    done(node);
}

void world_t::kill_daemon(node_id_t node)
{
    daemons_[nodes_[node].index]++;
    switch_kill_daemon(device(node));
    done(node);
}

void world_t::start_daemon(node_id_t node, moment_t phase, moment_t second)
{
    const uint32_t index = nodes_[node].index;
    if (!powered_[index])
        return;
    daemons_[index]++;
    seconds_[index] = second;
    switch_start_daemon(device(node), chip_time(now_));
    schedule_tick(index, now_ + phase);
    done(node);
}

/// Gives the port at one end of a cable the link that it has now.
void world_t::set_link_of(end_t end, const cable_t &cable)
{
    const auto lives = [&](node_id_t node) {
        return nodes_[node].kind != node_kind_t::SWITCH || lit_[nodes_[node].index];
    };
    if (nodes_[end.node].kind != node_kind_t::SWITCH || !powered(end.node))
        return;
    const end_t &other = cable.ends[cable.ends[0].node == end.node && cable.ends[0].port == end.port ? 1 : 0];
    const link_t link = {.up = cable.plugged && lives(end.node) && lives(other.node),
                         .mbit = cable.mbit,
                         .full_duplex = cable.full_duplex};
    const link_t &known = device(end.node).links[end.port - 1];
    if (known.up == link.up && known.mbit == link.mbit && known.full_duplex == link.full_duplex)
        return;
    switch_set_link(device(end.node), end.port, link, chip_time(now_));
    done(end.node);
}

void world_t::plug(cable_id_t id)
{
    cable_t &cable = cables_.at(id);
    if (std::exchange(cable.plugged, true))
        return;
    for (watcher_t *watcher : watchers_)
        watcher->cable_changed(id);
    for (const end_t &end : cable.ends)
        set_link_of(end, cable);
}

void world_t::pull(cable_id_t id)
{
    cable_t &cable = cables_.at(id);
    if (!std::exchange(cable.plugged, false))
        return;
    cable.generation++;
    for (watcher_t *watcher : watchers_)
        watcher->cable_changed(id);
    for (const end_t &end : cable.ends)
        set_link_of(end, cable);
}

void world_t::control(node_id_t node, std::span<const uint8_t> message)
{
    switch_control(device(node), message, chip_time(now_));
    done(node);
}

void world_t::tick(node_id_t node)
{
    switch_tick(device(node), chip_time(now_));
    done(node);
}

void world_t::hold(node_id_t node, moment_t span) { held_until_[nodes_[node].index] = now_ + span; }

void world_t::join(node_id_t node, const std::array<uint8_t, FRONT_PORTS + 1> &groups)
{
    for (unsigned port = 1; port <= FRONT_PORTS; port++)
        chip_trunk_set(device(node).chip, chip_port_of_front(port), groups[port] == port ? 0 : groups[port]);
    call_chip_changed(this, device(node));
    control(node, aggr_status_message(groups));
}

void world_t::refuse(node_id_t node, uint32_t count) { refusals_[nodes_[node].index] = count; }

void world_t::at(moment_t when, std::function<void()> action)
{
    actions_.push_back(std::move(action));
    queue_.put(when, {event_kind_t::ACTION, 0, static_cast<uint32_t>(actions_.size() - 1), 0, 0});
}

// ---- frames -----------------------------------------------------------------------------

void world_t::send(node_id_t node, std::span<const uint8_t> frame)
{
    if (frame.size() < SHORTEST || frame.size() > sizeof frame_t::octets)
        throw std::invalid_argument("a frame of " + std::to_string(frame.size()) + " octets");
    leave({node, 1}, frame);
}

void world_t::leave(end_t from, std::span<const uint8_t> octets)
{
    const cable_id_t id = cable_at(from);
    if (id == NO_CABLE)
        return;
    const cable_t &cable = cables_[id];
    carry(id, cable.ends[0].node == from.node && cable.ends[0].port == from.port ? 0 : 1, octets);
}

void world_t::carry(cable_id_t id, unsigned from, std::span<const uint8_t> octets)
{
    cable_t &cable = cables_[id];
    if (!cable.plugged || octets.size() > sizeof frame_t::octets)
        return;
    way_t &way = cable.ways[from];
    // Each quality draws only where it is there, so that a network without any draws nothing.
    if (way.dead || (way.lost && random_.per_million(way.lost)))
        return;
    const int copies = way.doubled && random_.per_million(way.doubled) ? 2 : 1;
    for (int copy = 0; copy < copies; copy++) {
        const moment_t jitter = way.jitter ? random_.below(way.jitter + 1) : 0;
        way.last_arrival = std::max(way.last_arrival, now_ + way.delay + jitter);
        put_on(id, from, octets, way.last_arrival);
    }
}

void world_t::put_on(cable_id_t id, unsigned from, std::span<const uint8_t> octets, moment_t arrival)
{
    uint32_t place;
    if (free_frames_.empty()) {
        place = static_cast<uint32_t>(frames_.size());
        frames_.emplace_back();
    } else {
        place = free_frames_.back();
        free_frames_.pop_back();
    }
    frame_t &frame = frames_[place];
    frame.length = static_cast<uint16_t>(octets.size());
    memcpy(frame.octets.data(), octets.data(), octets.size());
    in_flight_++;
    queue_.put(arrival, {event_kind_t::FRAME, static_cast<uint8_t>(1 - from), id, cables_[id].generation, place});
    for (watcher_t *watcher : watchers_)
        watcher->sent(id, from, frame);
}

void world_t::arrive(cable_id_t id, unsigned to, const frame_t &frame)
{
    for (watcher_t *watcher : watchers_)
        watcher->arrived(id, to, frame);
    const end_t &end = cables_[id].ends[to];
    const node_t &node = nodes_[end.node];
    const std::span<const uint8_t> octets(frame.octets.data(), frame.length);
    switch (node.kind) {
    case node_kind_t::SWITCH:
        switch_receive(*switches_[node.index], end.port, octets, chip_time(now_));
        done(end.node);
        break;
    case node_kind_t::HUB: {
        if (node.swallows && is_bpdu(octets))
            break;
        const std::vector<cable_id_t> &all = cables_of_[end.node];
        for (unsigned port = 1; port <= all.size(); port++)
            if (port != end.port)
                leave({end.node, port}, octets);
        break;
    }
    case node_kind_t::HOST:
        if (memcmp(octets.data(), TO_ALL, ADDRESS) == 0 ||
            memcmp(octets.data(), host_address(end.node).data(), ADDRESS) == 0)
            host_received_[node.index]++;
        break;
    case node_kind_t::SPEAKER:
        speakers_[node.index](frame);
        break;
    }
}

// ---- running ----------------------------------------------------------------------------

/// Of so many switches, none stays in the processor's cache from one of its turns to the next.
void world_t::prefetch(const event_t &event) const
{
    if (event.kind == event_kind_t::TICK)
        switch_prefetch(*switches_[event.subject]);
    else if (event.kind == event_kind_t::FRAME) {
        __builtin_prefetch(&frames_[event.frame]);
        const node_t &node = nodes_[cables_[event.subject].ends[event.end].node];
        if (node.kind == node_kind_t::SWITCH)
            switch_prefetch(*switches_[node.index]);
    }
}

bool world_t::step(moment_t until)
{
    if (queue_.empty() || queue_.next().at > until) {
        now_ = std::max(now_, until);
        return false;
    }
    const auto entry = queue_.take();
    if (switches_.size() > FEW && !queue_.empty())
        prefetch(queue_.next().what);
    now_ = entry.at;
    events_++;
    const event_t &event = entry.what;
    switch (event.kind) {
    case event_kind_t::TICK:
        if (event.generation != daemons_[event.subject])
            break;
        schedule_tick(event.subject, now_ + seconds_[event.subject]);
        if (now_ < held_until_[event.subject]) {
            held_ticks_[event.subject]++;
            break;
        }
        for (uint32_t ticks = std::exchange(held_ticks_[event.subject], 0) + 1; ticks; ticks--) {
            switch_tick(*switches_[event.subject], chip_time(now_));
            done(node_of_switch_[event.subject]);
        }
        break;
    case event_kind_t::FRAME: {
        const frame_t frame = frames_[event.frame];
        free_frames_.push_back(event.frame);
        in_flight_--;
        if (event.generation == cables_[event.subject].generation)
            arrive(event.subject, event.end, frame);
        break;
    }
    case event_kind_t::ACTION: {
        const std::function<void()> action = std::move(actions_[event.subject]);
        action();
        break;
    }
    }
    return true;
}

void world_t::run(moment_t until)
{
    while (step(until)) {
    }
}

// ---- calls of a switch ------------------------------------------------------------------

void world_t::call_sends(void *context, switch_t &from, unsigned port, std::span<const uint8_t> frame)
{
    auto &world = *static_cast<world_t *>(context);
    world.leave({world.node_of_switch_[from.number - 1], port}, frame);
}

void world_t::call_chip_changed(void *context, switch_t &from)
{
    auto &world = *static_cast<world_t *>(context);
    for (watcher_t *watcher : world.watchers_)
        watcher->chip_changed(world.node_of_switch_[from.number - 1]);
}

void world_t::call_chip_written(void *context, switch_t &from, const mdio_multi_t &batch)
{
    auto &world = *static_cast<world_t *>(context);
    for (watcher_t *watcher : world.watchers_)
        watcher->chip_written(world.node_of_switch_[from.number - 1], batch);
}

bool world_t::call_chip_refuses(void *context, switch_t &from)
{
    auto &world = *static_cast<world_t *>(context);
    uint32_t &left = world.refusals_[from.number - 1];
    return left && left--;
}

} // namespace sim
