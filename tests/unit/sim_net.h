/// A small network whose every moment is known beforehand, so that a test can compare what happened as a
/// whole. The first switch ticks at whole seconds, the second a tenth of a second later, and so on; a frame
/// takes a thousandth.
///
/// What happened is told in words, with its seconds since the last mark: "1 discarding, 5 learning".
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <list>
#include <map>
#include <string>
#include <vector>

#include "sim/world.h"
#include "tests/bpdus.h"
#include "tests/settings.h"

namespace sim {

constexpr moment_t TENTH = SECOND / 10;

/// A span in seconds: "6.101".
std::string seconds(moment_t span);

using address_t = std::array<uint8_t, 6>;

/// A neighbour played by the test, at the end of a cable: it says BPDUs or numbered frames, and hears all.
class neighbour_t {
public:
    explicit neighbour_t(world_t &world);
    neighbour_t(const neighbour_t &) = delete;
    neighbour_t &operator=(const neighbour_t &) = delete;

    node_id_t node() const { return node_; }
    const address_t &address() const { return address_; }
    /// From now on it is another one, at another cable.
    void become(const neighbour_t &other) { address_ = other.address_; }

    void say_once(const bpdu_t &bpdu);
    /// Says these in turn, one every `pause`, until told otherwise. The first one leaves at once.
    void say(std::vector<bpdu_t> bpdus, moment_t pause = SECOND);
    void say(const bpdu_t &bpdu, moment_t pause = SECOND) { say(std::vector{bpdu}, pause); }
    void be_silent() { topic_++; }

    /// A frame of data to all; its number counts from 0.
    void send_data();
    uint32_t data_sent() const { return data_sent_; }
    /// How often a frame of `from` has come.
    size_t times_heard(const neighbour_t &from, uint32_t number) const;
    /// Frames of data that have come.
    size_t data_heard() const { return data_heard_; }
    /// How often that one has come that came most often.
    size_t most_copies() const;

private:
    void hear(const frame_t &frame);
    void talk(unsigned topic, size_t next);

    world_t &world_;
    node_id_t node_;
    address_t address_;
    std::vector<bpdu_t> bpdus_;
    moment_t pause_ = 0;
    unsigned topic_ = 0;
    uint32_t data_sent_ = 0;
    size_t data_heard_ = 0;
    std::map<std::pair<address_t, uint32_t>, size_t> times_heard_;
};

class net_t : public watcher_t {
public:
    net_t() { world.watch(this); }

    // ---- building it -----------------------------------------------------------------
    /// A running switch with the shortest times. `phase` is when its seconds begin; a tenth after those of
    /// the switch before, unless given.
    node_id_t add_bridge(uint16_t priority, const port_configs_t &ports, moment_t phase = 0);

    /// A switch as it is after its start, with spanning tree off everywhere.
    node_id_t add_switch(moment_t phase = 0);

    /// At a switch's port.
    neighbour_t &add_neighbour(node_id_t at, unsigned port, uint32_t mbit = 1000, bool full_duplex = true);

    cable_id_t connect(node_id_t near, unsigned near_port, node_id_t far, unsigned far_port)
    {
        return world.connect({near, near_port}, {far, far_port});
    }

    /// What happens from now on is told from now on.
    void mark();
    /// Lets some seconds pass, and marks.
    void pass(moment_t span);

    // ---- what happened since the mark --------------------------------------------------
    /// How the state of a front port changed in the chip: "1 discarding, 5 learning, 9 forwarding".
    std::string states(node_id_t node, unsigned port) const;
    /// How the role of logical port 1 to 9 changed: "1 designated, 3.1 root".
    std::string roles(node_id_t node, unsigned port) const;
    /// The moments of the BPDUs of a kind that left a front port: "1 2 3".
    std::string sent(node_id_t node, unsigned port, const std::function<bool(const bpdu_t &)> &is_wanted) const;
    /// The same with their flags in words: "1 designated proposal, 2 designated".
    std::string flags_sent(node_id_t node, unsigned port) const;
    std::vector<bpdu_t> bpdus_sent(node_id_t node, unsigned port) const;
    /// The moments at which a switch forgot all addresses.
    std::string flushes(node_id_t node) const;
    /// Every port state that was written, changed or not, and every flush.
    std::string writes(node_id_t node) const;
    /// The moments at which a switch's root became another, and who: "3.1 32768/02:00:00:00:01:00".
    std::string roots(node_id_t node) const;

    // ---- how it is now -------------------------------------------------------------------
    /// "1 root forwards, 2 alternate discards": the ports that take part.
    std::string ports(node_id_t node);
    lvt_rstp_port_status_t status(node_id_t node, unsigned port);
    lvt_rstp_bridge_status_t bridge(node_id_t node);
    bool is_root(node_id_t node) { return bridge(node).root_port == 0; }
    /// Front port at which a switch's chip has heard an address; 0 when it does not know it.
    unsigned heard_at(node_id_t node, const address_t &address) const;
    unsigned state(node_id_t node, unsigned port) const { return switch_port_state(world.device(node), port); }

    world_t world{1};
    bool rapid = false; ///< so are the switches that are added from now on

private:
    enum class topic_t { STATE, ROLE, WRITE, FLUSH, ROOT };
    struct entry_t {
        moment_t at;
        topic_t topic;
        node_id_t node;
        unsigned port;
        std::string words;
    };
    struct said_t {
        moment_t at;
        node_id_t node;
        unsigned port;
        bpdu_t bpdu;
    };
    struct seen_t {
        std::array<unsigned, FRONT_PORTS> states;
        std::array<int, RSTP_PORTS> roles;
        std::string root;
    };

    void sent(cable_id_t cable, unsigned from, const frame_t &frame) override;
    void chip_changed(node_id_t node) override;
    void chip_written(node_id_t node, const mdio_multi_t &batch) override;
    void event_done(node_id_t node) override;

    void note(topic_t topic, node_id_t node, unsigned port, std::string words);
    seen_t &seen_of(node_id_t node);
    std::string told(topic_t topic, node_id_t node, unsigned port) const;

    moment_t mark_ = 0;
    std::vector<seen_t> seen_; ///< by node
    std::vector<entry_t> entries_;
    std::vector<said_t> said_;
    std::list<neighbour_t> neighbours_;
};

} // namespace sim
