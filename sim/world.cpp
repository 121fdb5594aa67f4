#include "sim/world.h"

#include <algorithm>
#include <cstring>
#include <memory>
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
    for (place_t *place : switches_) {
        switch_destroy(place->device);
        std::destroy_at(place);
    }
}

// ---- building ---------------------------------------------------------------------------

node_id_t world_t::add(node_kind_t kind, std::string name, uint32_t index)
{
    const auto id = static_cast<node_id_t>(nodes_.size());
    static constexpr const char *prefixes[] = {"sw", "hub", "h", "speaker"};
    if (name.empty())
        name = prefixes[static_cast<size_t>(kind)] + std::to_string(index + 1);
    nodes_.push_back({kind, std::move(name), index});
    cables_of_.emplace_back();
    return id;
}

node_id_t world_t::add_switch(std::string name)
{
    const auto index = static_cast<uint32_t>(switches_.size());
    auto *room = static_cast<uint8_t *>(rooms_.take(sizeof(place_t) + switch_image_octets()));
    auto *place = switches_.emplace_back(new (room) place_t);
    switch_create(place->device, index + 1, calls_, room + sizeof(place_t));
    place->cables.fill(NO_CABLE);
    return place->node = add(node_kind_t::SWITCH, std::move(name), index);
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
        const node_t &node = nodes_.at(end.node);
        const bool is_switch = node.kind == node_kind_t::SWITCH;
        if (end.port == 0 || (is_switch && end.port > FRONT_PORTS))
            throw std::invalid_argument(node.name + " has no port " + std::to_string(end.port));
        if (!is_switch && cables_of_[end.node].size() < end.port)
            cables_of_[end.node].resize(end.port, NO_CABLE);
        cable_id_t &own = is_switch ? place(end.node).cables[end.port - 1] : cables_of_[end.node][end.port - 1];
        if (own != NO_CABLE)
            throw std::invalid_argument(node.name + ":" + std::to_string(end.port) + " has a cable already");
        own = id;
    }
    cables_.push_back({{a, b}, false, full_duplex, mbit, 0, {way, way}});
    plug(id);
    return id;
}

cable_id_t world_t::cable_at(end_t end) const
{
    const std::span<const cable_id_t> of_node = cables_of(end.node);
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
    queue_.put(when, {event_kind_t::TICK, 0, index, switches_[index]->daemons, nullptr, switches_[index]});
}

void world_t::power_on(node_id_t node, moment_t phase, moment_t second, bool lit)
{
    place_t &self = place(node);
    if (self.powered)
        return;
    self.powered = true;
    self.lit = lit;
    self.daemons++;
    self.second = second;
    // With power come the links, at both ends.
    for (const cable_id_t cable : place(node).cables)
        if (cable != NO_CABLE)
            for (const end_t &end : cables_[cable].ends)
                if (end.node == node)
                    device(node).links[end.port - 1] = {.up = false, .mbit = 0, .full_duplex = false};
    switch_power_on(device(node), chip_time(now_));
    if (lit)
        set_links_at(node);
    schedule_tick(nodes_[node].index, now_ + phase);
    done(node);
}

void world_t::light(node_id_t node)
{
    if (!powered(node) || place(node).lit)
        return;
    place(node).lit = true;
    set_links_at(node);
}

/// At both ends of all its cables.
void world_t::set_links_at(node_id_t node)
{
    for (const cable_id_t cable : place(node).cables)
        if (cable != NO_CABLE)
            for (const end_t &end : cables_[cable].ends)
                set_link_of(end, cables_[cable]);
}

void world_t::power_off(node_id_t node)
{
    place_t &self = place(node);
    if (!self.powered)
        return;
    self.powered = self.lit = false;
    self.daemons++;
    switch_power_off(device(node));
    for (const cable_id_t id : self.cables)
        if (id != NO_CABLE)
            cables_[id].generation++;
    set_links_at(node);
    done(node);
}

void world_t::kill_daemon(node_id_t node)
{
    place(node).daemons++;
    switch_kill_daemon(device(node));
    done(node);
}

void world_t::start_daemon(node_id_t node, moment_t phase, moment_t second)
{
    place_t &self = place(node);
    if (!self.powered)
        return;
    self.daemons++;
    self.second = second;
    switch_start_daemon(device(node), chip_time(now_));
    schedule_tick(nodes_[node].index, now_ + phase);
    done(node);
}

/// Gives the port at one end of a cable the link that it has now.
void world_t::set_link_of(end_t end, const cable_t &cable)
{
    const auto lives = [&](node_id_t node) { return nodes_[node].kind != node_kind_t::SWITCH || place(node).lit; };
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

void world_t::hold(node_id_t node, moment_t span) { place(node).held_until = now_ + span; }

void world_t::join(node_id_t node, const std::array<uint8_t, FRONT_PORTS + 1> &groups)
{
    for (unsigned port = 1; port <= FRONT_PORTS; port++)
        chip_trunk_set(device(node).chip, chip_port_of_front(port), groups[port] == port ? 0 : groups[port]);
    call_chip_changed(this, device(node));
    control(node, aggr_status_message(groups));
}

void world_t::refuse(node_id_t node, uint32_t count) { place(node).refusals = count; }

void world_t::at(moment_t when, std::function<void()> action)
{
    actions_.push_back(std::move(action));
    queue_.put(when, {event_kind_t::ACTION, 0, static_cast<uint32_t>(actions_.size() - 1), 0, nullptr, nullptr});
}

// ---- frames -----------------------------------------------------------------------------

void world_t::send(node_id_t node, std::span<const uint8_t> frame)
{
    if (frame.size() < SHORTEST || frame.size() > sizeof frame_t::octets)
        throw std::invalid_argument("a frame of " + std::to_string(frame.size()) + " octets");
    leave({node, 1}, cable_at({node, 1}), frame);
}

void world_t::leave(end_t from, cable_id_t id, std::span<const uint8_t> octets)
{
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
    if (free_frames_.empty())
        free_frames_.push_back(&frames_.emplace_back());
    frame_t &frame = *free_frames_.back();
    free_frames_.pop_back();
    frame.length = static_cast<uint16_t>(octets.size());
    memcpy(frame.octets.data(), octets.data(), octets.size());
    in_flight_++;
    const node_t &to = nodes_[cables_[id].ends[1 - from].node];
    place_t *place = to.kind == node_kind_t::SWITCH ? switches_[to.index] : nullptr;
    queue_.put(arrival,
               {event_kind_t::FRAME, static_cast<uint8_t>(1 - from), id, cables_[id].generation, &frame, place});
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
        switch_receive(switches_[node.index]->device, end.port, octets, chip_time(now_));
        done(end.node);
        break;
    case node_kind_t::HUB: {
        if (node.swallows && is_bpdu(octets))
            break;
        const std::vector<cable_id_t> &all = cables_of_[end.node];
        for (unsigned port = 1; port <= all.size(); port++)
            if (port != end.port)
                leave({end.node, port}, all[port - 1], octets);
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

/// Asks the memory for the next switches: of so many, none stays in the processor's cache from one of its turns to the
/// next. What leads to a switch has to be there first.
void world_t::fetch_next() const
{
    if (const auto *entry = queue_.soon(2)) {
        if (entry->what.kind == event_kind_t::FRAME)
            __builtin_prefetch(&cables_[entry->what.subject]);
        if (const auto *room = reinterpret_cast<const char *>(entry->what.place)) {
            const size_t octets = sizeof(place_t) + switch_image_octets();
            for (size_t at = 0; at < octets; at += rooms_t::LINE)
                __builtin_prefetch(room + at);
        }
    }
    if (const auto *entry = queue_.soon(0))
        if (const place_t *place = entry->what.place) {
            if (const auto &trapped = place->device.chip.addresses.trapped; !trapped.empty())
                __builtin_prefetch(&*trapped.begin());
            for (const cable_id_t id : place->cables)
                if (id != NO_CABLE)
                    __builtin_prefetch(&cables_[id]);
        }
}

void world_t::tick_of(place_t &place)
{
    if (now_ < place.held_until) {
        place.held_ticks++;
        return;
    }
    for (uint32_t ticks = std::exchange(place.held_ticks, 0) + 1; ticks; ticks--) {
        switch_tick(place.device, chip_time(now_));
        done(place.node);
    }
}

void world_t::happen(const event_t &event)
{
    switch (event.kind) {
    case event_kind_t::TICK: {
        place_t &place = *switches_[event.subject];
        if (event.generation != place.daemons)
            break;
        schedule_tick(event.subject, now_ + place.second);
        tick_of(place);
        break;
    }
    case event_kind_t::FRAME:
        in_flight_--;
        if (event.generation == cables_[event.subject].generation)
            arrive(event.subject, event.end, *event.frame);
        free_frames_.push_back(event.frame);
        break;
    case event_kind_t::ACTION: {
        const std::function<void()> action = std::move(actions_[event.subject]);
        action();
        break;
    }
    }
}

bool world_t::step(moment_t until)
{
    if (queue_.empty() || queue_.next().at > until) {
        now_ = std::max(now_, until);
        return false;
    }
    const auto entry = queue_.take();
    if (switches_.size() > FEW)
        fetch_next();
    now_ = entry.at;
    events_++;
    happen(entry.what);
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
    const place_t &place = *world.switches_[from.number - 1];
    world.leave({place.node, port}, place.cables[port - 1], frame);
}

void world_t::call_chip_changed(void *context, switch_t &from)
{
    auto &world = *static_cast<world_t *>(context);
    for (watcher_t *watcher : world.watchers_)
        watcher->chip_changed(world.switches_[from.number - 1]->node);
}

void world_t::call_chip_written(void *context, switch_t &from, const mdio_multi_t &batch)
{
    auto &world = *static_cast<world_t *>(context);
    for (watcher_t *watcher : world.watchers_)
        watcher->chip_written(world.switches_[from.number - 1]->node, batch);
}

bool world_t::call_chip_refuses(void *context, switch_t &from)
{
    auto &world = *static_cast<world_t *>(context);
    uint32_t &left = world.switches_[from.number - 1]->refusals;
    return left && left--;
}

} // namespace sim
