/// Two switches with groups of parallel cables, for the group tests.
#pragma once

#include "tree_net.h"

namespace lab {

/// What the engine goes by ("debug show rstp_aggr_status"): entry p - 1 belongs to port p, 0 when it stands alone.
std::vector<int> engine_groups(const switch_t &device);

/// The times at which the daemon put a port into a state, from `since` on.
std::vector<double> times_of_state(const switch_t &device, int port, int state, double since);

class group_test_t : public network_test_t {
protected:
    /// A switch whose groups take part in the spanning tree, too.
    switch_t &add_group_bridge(uint16_t priority, const port_configs_t &ports);

    /// Sends a report, and checks that the tables agree afterwards.
    void report(const switch_t &device, const aggr_status_t &status);

    /// Sends any message, and checks that the tables agree afterwards.
    void serve(const switch_t &device, const std::vector<uint8_t> &message);

    /// What holds after every message: the status file, the engine's table and the chip tell the
    /// same, and all members of a group are in the same state.
    static void expect_tables_agree(const switch_t &device);
};

} // namespace lab
