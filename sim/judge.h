/// What must hold in a network, judged from outside: by the cables and the chips, and by a calculation of its
/// own of what the tree should be. Nothing here uses the engine's code.
#pragma once

#include <string>
#include <vector>

#include "sim/world.h"

namespace sim {

/// Watches a world and says at once when data can go round: after every register write and every change of a
/// cable, the cables that forward at both ends must not close a ring. The members of one trunk count as one.
class loop_watcher_t : public watcher_t {
public:
    explicit loop_watcher_t(world_t &world) : world_(world) {}

    void chip_changed(node_id_t node) override;
    void cable_changed(cable_id_t cable) override;

    /// The first ring that was seen, as "0.123456 s: sw1:2 sw2:1 ..."; empty for none.
    const std::string &ring() const { return ring_; }
    bool carries(cable_id_t cable) const { return cable < carries_.size() && carries_[cable]; }

private:
    void look_at(cable_id_t cable);
    bool is_forwarding(const end_t &end) const;
    /// Whether data get from one end of a cable to the other without it, by `path`.
    bool goes_round(cable_id_t cable, std::vector<cable_id_t> &path) const;

    world_t &world_;
    std::vector<bool> carries_;
    std::string ring_;
};

/// A neighbour that is no switch of the world, and the bridge that it says it is.
struct outsider_t {
    node_id_t node;
    bridge_id_t id;
    unsigned max_age, hello_time; ///< seconds
};

/// What role and state a port should have once the network is quiet.
struct verdict_t {
    node_id_t node;
    unsigned port; ///< 1 to 6, or the number of a group
    lvt_rstp_port_role_t role;
    uint8_t state; ///< of the chip: HW_DISCARDING or HW_FORWARDING
};

/// The tree that IEEE 802.1D's priority vectors give (clause 17.5), for every part of the network by itself: for
/// each port that has link and takes part, and each group that has a member with link.
struct right_tree_t {
    std::vector<verdict_t> verdicts;
    unsigned depth; ///< cables from a root to its farthest bridge
    bool wide;      ///< that bridge is farther away than the root's information keeps three hellos of its life
};
right_tree_t right_tree(world_t &world, const std::vector<outsider_t> &outsiders = {});

/// Compares ports with their verdicts. One line for each difference; empty when all is right.
std::string wrong_ports(world_t &world, const right_tree_t &right);
inline std::string wrong_ports(world_t &world) { return wrong_ports(world, right_tree(world)); }

/// Whether data have a way between two nodes, by cables and switches that are there, whatever forwards.
class parts_t {
public:
    explicit parts_t(const world_t &world);
    bool are_joined(node_id_t a, node_id_t b) { return part_of(a) == part_of(b); }

private:
    node_id_t part_of(node_id_t node);
    std::vector<node_id_t> above_;
};

} // namespace sim
