/// Tells in words what happens in a world: who claims what, and why each port changes.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/stage.h"

namespace sim {

/// "sw1:2"
std::string name_of(const world_t &world, const end_t &end);

class teller_t : public watcher_t {
public:
    using listener_t = std::function<void(const std::string &line)>;

    /// Each line goes to `listener` when its moment is over.
    teller_t(stage_t &stage, listener_t listener);

    /// Something is done to the network now.
    void tell_deed(const std::string &words);
    /// Nothing more comes.
    void finish();

    /// The last change of a role, a state, a root or an address table.
    moment_t last_change() const { return last_change_; }

    /// BPDUs that arrived until now, and how often a switch forgot all addresses.
    uint64_t bpdus() const { return bpdus_; }
    uint64_t flushes() const { return flushes_; }

    /// The name of a bridge, or its identifier where nobody here has it.
    std::string bridge_name(const bridge_id_t &id) const;

private:
    struct seen_t {
        bool powered = false, daemon_runs = false, claims = false;
        bridge_id_t root = {};
        uint32_t cost = 0;
        std::array<lvt_rstp_port_role_t, RSTP_PORTS> roles = {};
        std::array<unsigned, FRONT_PORTS> states = {};
        std::array<std::optional<moment_t>, RSTP_PORTS> heard = {}; ///< the last BPDU, since the port has link
        std::array<bool, RSTP_PORTS> links = {};
        moment_t powered_at = 0;
    };

    void arrived(cable_id_t cable, unsigned to, const frame_t &frame) override;
    void chip_changed(node_id_t node) override;
    void chip_written(node_id_t node, const mdio_multi_t &batch) override;
    void cable_changed(cable_id_t cable) override;
    void event_done(node_id_t node) override;

    void look_at_life(node_id_t node);
    void look_at_root(node_id_t node);
    bool has_link(node_id_t node, unsigned port);
    void look_at_port(node_id_t node, unsigned port);
    void say(const std::string &who, const std::string &words, bool deed = false);
    std::string why(node_id_t node, unsigned port);
    std::string why_root(const lvt_rstp_vars_t &vars, const port_t &port);
    std::string why_other(node_id_t node, const port_t &port);
    std::string speaker_of(const prio_vector_t &vector) const;

    stage_t &stage_;
    listener_t listener_;
    std::vector<seen_t> seen_;
    std::map<std::array<uint8_t, RSTP_MAC_OCTETS>, std::string> names_;
    moment_t moment_ = 0;
    moment_t last_change_ = 0;
    uint64_t bpdus_ = 0, flushes_ = 0;
    std::vector<std::string> deeds_, lines_; ///< of this moment
};

} // namespace sim
