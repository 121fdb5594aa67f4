/// A network of whole switches in one process, in virtual time: switches, hosts and shared segments, and the
/// cables between them. Nothing in it asks a clock, a thread or a file; what happens follows from the seed and
/// from what the caller does.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/queue.h"
#include "tools/random.h"
#include "sim/rooms.h"
#include "sim/switch.h"

namespace sim {

constexpr moment_t MILLISECOND = 1000;
constexpr moment_t SECOND = 1000 * MILLISECOND;

enum class node_kind_t : uint8_t {
    SWITCH,
    HUB,     ///< a shared segment: what comes in at one cable goes out of all others
    HOST,    ///< one cable, an address
    SPEAKER, ///< a neighbour of the caller's making: frames go to its function
};

using node_id_t = uint32_t;
using cable_id_t = uint32_t;
constexpr cable_id_t NO_CABLE = UINT32_MAX;

/// One direction of a cable.
struct way_t {
    moment_t delay = MILLISECOND;
    moment_t jitter = 0;  ///< up to this is added; frames keep their order
    uint32_t lost = 0;    ///< of a million frames
    uint32_t doubled = 0; ///< of a million frames
    bool dead = false;    ///< passes nothing, though the link is up
    moment_t last_arrival = 0;
};

struct end_t {
    node_id_t node;
    unsigned port; ///< 1 to 6 of a switch; any number of a hub; 1 of a host
};

struct cable_t {
    end_t ends[2];
    bool plugged;
    bool full_duplex;
    uint32_t mbit;
    uint32_t generation; ///< counts pulls: a frame on a cable that is pulled is lost
    way_t ways[2];       ///< from ends[i] to the other
};

struct frame_t {
    uint16_t length;
    std::array<uint8_t, 118> octets; ///< no frame in here is longer
};

struct node_t {
    node_kind_t kind;
    std::string name;
    uint32_t index;        ///< among the nodes of its kind
    bool swallows = false; ///< a hub: BPDUs end here
};

/// What a SPEAKER does with a frame that arrives.
using speaker_t = std::function<void(const frame_t &frame)>;

/// The watcher hears of everything as it happens, and must not act.
struct watcher_t {
    virtual ~watcher_t() = default;
    virtual void sent(cable_id_t /*cable*/, unsigned /*from*/, const frame_t &) {}
    virtual void arrived(cable_id_t /*cable*/, unsigned /*to*/, const frame_t &) {}
    /// A switch's chip was written, or has another link or power.
    virtual void chip_changed(node_id_t) {}
    /// Before that, what was written; a batch that the chip refused is none.
    virtual void chip_written(node_id_t, const mdio_multi_t &) {}
    virtual void cable_changed(cable_id_t) {}
    /// A switch has dealt with an event.
    virtual void event_done(node_id_t) {}
};

class world_t {
public:
    explicit world_t(uint64_t seed);
    ~world_t();
    world_t(const world_t &) = delete;
    world_t &operator=(const world_t &) = delete;

    // ---- building it -----------------------------------------------------------------
    node_id_t add_switch(std::string name = {});
    /// One that swallows BPDUs passes data only: a bridge that nobody can see.
    node_id_t add_hub(std::string name = {}, bool swallows = false);
    node_id_t add_host(std::string name = {});
    node_id_t add_speaker(speaker_t speaker, std::string name = {});

    /// Cables two ports that are free. It is plugged in at once.
    cable_id_t connect(end_t a, end_t b, const way_t &way = {}, uint32_t mbit = 1000, bool full_duplex = true);

    /// One more watcher, which must live as long as things happen.
    void watch(watcher_t *watcher) { watchers_.push_back(watcher); }

    // ---- acting, now -----------------------------------------------------------------
    /// Power for a switch; its daemon's seconds begin `phase` later and last `second` each. Its ports have
    /// link from now on, or when they are lit.
    void power_on(node_id_t node, moment_t phase = SECOND, moment_t second = SECOND, bool lit = true);
    void light(node_id_t node);
    void power_off(node_id_t node);
    void kill_daemon(node_id_t node);
    void start_daemon(node_id_t node, moment_t phase = SECOND, moment_t second = SECOND);

    void plug(cable_id_t cable);
    void pull(cable_id_t cable);

    /// A control message, as another program of the board sends it.
    void control(node_id_t node, std::span<const uint8_t> message);

    /// Puts ports into groups, as the link-aggregation daemon does: in the chip, and by a message. Octet p is
    /// the group (7 to 9) of front port p, or p when it stands alone.
    void join(node_id_t node, const std::array<uint8_t, FRONT_PORTS + 1> &groups);

    /// A second of a switch's daemon, apart from its own.
    void tick(node_id_t node);
    /// Keeps a switch's ticks back for this long; they all come with the first one after it.
    void hold(node_id_t node, moment_t span);

    /// A host's or a speaker's frame, of at least 14 octets.
    void send(node_id_t node, std::span<const uint8_t> frame);

    /// Lets the chip of a switch refuse its next `count` batches.
    void refuse(node_id_t node, uint32_t count);

    /// Calls back at a moment that is not in the past.
    void at(moment_t when, std::function<void()> action);

    // ---- running ---------------------------------------------------------------------
    /// Lets everything happen up to `until`, included.
    void run(moment_t until);
    void run_for(moment_t span) { run(now_ + span); }
    /// One event; false when nothing is to happen up to `until`.
    bool step(moment_t until);

    // ---- looking ---------------------------------------------------------------------
    moment_t now() const { return now_; }
    random_t &random() { return random_; }
    size_t nodes() const { return nodes_.size(); }
    const node_t &node(node_id_t id) const { return nodes_[id]; }
    size_t cables() const { return cables_.size(); }
    cable_t &cable(cable_id_t id) { return cables_[id]; }
    const cable_t &cable(cable_id_t id) const { return cables_[id]; }
    /// The cable at a port, or NO_CABLE.
    cable_id_t cable_at(end_t end) const;
    /// The cables of a node by port - 1; NO_CABLE where there is none.
    std::span<const cable_id_t> cables_of(node_id_t node) const
    {
        if (nodes_[node].kind == node_kind_t::SWITCH)
            return place(node).cables;
        return cables_of_[node];
    }

    switch_t &device(node_id_t node) { return place(node).device; }
    const switch_t &device(node_id_t node) const { return place(node).device; }
    bool powered(node_id_t node) const { return place(node).powered; }
    /// The record of logical port 1 to 9 of a switch. It is gone when another switch is looked at.
    const port_t &port(node_id_t node, unsigned number) { return switch_vars(device(node)).ports[number - 1]; }

    /// Frames on cables now.
    size_t in_flight() const { return in_flight_; }
    uint64_t events() const { return events_; }
    std::array<uint8_t, 6> host_address(node_id_t host) const;
    /// Frames that a host got and were meant for it or for all, since the world began.
    uint64_t host_received(node_id_t host) const { return host_received_[nodes_[host].index]; }

private:
    enum class event_kind_t : uint8_t { TICK, FRAME, ACTION };
    /// A switch, and what it is to the world.
    struct alignas(rooms_t::LINE) place_t {
        switch_t device = {};
        node_id_t node = 0;
        std::array<cable_id_t, FRONT_PORTS> cables = {}; ///< by port - 1
        uint32_t daemons = 0;                            ///< started so far
        moment_t second = SECOND;
        moment_t held_until = 0;
        uint32_t held_ticks = 0;
        uint32_t refusals = 0;
        bool powered = false;
        bool lit = false;
    };

    struct event_t {
        event_kind_t kind;
        uint8_t end;         ///< FRAME: where it arrives
        uint32_t subject;    ///< TICK: switch; FRAME: cable; ACTION: index
        uint32_t generation; ///< of the daemon, of the cable
        frame_t *frame;      ///< FRAME: one of frames_
        place_t *place;      ///< the switch that has its turn then, or null
    };
    place_t &place(node_id_t node) { return *switches_[nodes_[node].index]; }
    const place_t &place(node_id_t node) const { return *switches_[nodes_[node].index]; }
    node_id_t add(node_kind_t kind, std::string name, uint32_t index);
    void set_link_of(end_t end, const cable_t &cable);
    void set_links_at(node_id_t node);
    void carry(cable_id_t cable, unsigned from, std::span<const uint8_t> octets);
    void put_on(cable_id_t cable, unsigned from, std::span<const uint8_t> octets, moment_t arrival);
    void leave(end_t from, cable_id_t cable, std::span<const uint8_t> octets);
    void arrive(cable_id_t cable, unsigned end, const frame_t &frame);
    void fetch_next() const;
    void happen(const event_t &event);
    void tick_of(place_t &place);
    void schedule_tick(uint32_t index, moment_t when);
    void done(node_id_t node);

    static void call_sends(void *context, switch_t &from, unsigned port, std::span<const uint8_t> frame);
    static void call_chip_changed(void *context, switch_t &from);
    static void call_chip_written(void *context, switch_t &from, const mdio_multi_t &batch);
    static bool call_chip_refuses(void *context, switch_t &from);

    random_t random_;
    world_calls_t calls_;
    std::vector<watcher_t *> watchers_;
    moment_t now_ = 0;
    uint64_t events_ = 0;
    queue_t<event_t> queue_;
    std::vector<node_t> nodes_;
    std::vector<cable_t> cables_;
    std::vector<std::vector<cable_id_t>> cables_of_; ///< by node, but for switches

    rooms_t rooms_; ///< each switch before its state
    std::vector<place_t *> switches_;

    uint32_t hubs_ = 0;
    std::vector<speaker_t> speakers_;
    std::vector<uint64_t> host_received_;
    std::deque<frame_t> frames_;
    std::vector<frame_t *> free_frames_;
    size_t in_flight_ = 0;
    std::vector<std::function<void()>> actions_;
};

} // namespace sim
