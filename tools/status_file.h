/// Reading /tmp/rstp_monitor, the status file that the daemon writes after every tick.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "rstp/records.h"

struct frame_counts_t {
    uint32_t rstp;
    uint32_t stp;
    uint32_t tcn;
    uint32_t all() const { return rstp + stp + tcn; }
};

struct port_status_t {
    uint32_t path_cost;
    bool edge;
    bool point_to_point;
    bool stp_neighbour;
    int role;  ///< lvt_rstp_port_role_t
    int state; ///< HW_DISABLED ... HW_NO_STP
    int group; ///< 7 to 9 for a member of a group, else 0
    bridge_id_t designated_bridge;
    int designated_port;
    frame_counts_t sent;
    frame_counts_t received;
    uint32_t illegal;
    uint32_t unknown;
};

struct bridge_status_t {
    bridge_id_t bridge;
    int max_age;
    int hello_time;
    int forward_delay;
    bool topology_change;
    bridge_id_t root;
    int root_port;                               ///< 0: this bridge is the root
    std::string changed_at;                      ///< date and time of the last topology change; empty during one
    int changed_by;                              ///< the port that told it; 0: none yet, or one is running
    unsigned since_change;                       ///< passes of the daemon, 0 to 65535
    std::array<port_status_t, RSTP_PORTS> ports; ///< entry i belongs to port i + 1

    const port_status_t &port(int number) const { return ports.at(static_cast<size_t>(number) - 1); }
    bool is_root() const { return root_port == 0; }
    /// The root is this bridge as it called itself before its priority changed, which still goes round among
    /// its neighbours until it ages out.
    bool is_former_self_root() const;
    /// There was a topology change, and none runs. Without one `changed_at` tells only of the start.
    bool has_changed() const { return changed_by != 0 && !changed_at.empty(); }
};

/// Reads a whole status file. Returns nothing when `text` is none, or only a part of one; then
/// `fault`, unless null, says which line is not as it should be.
std::optional<bridge_status_t> parse_status(const std::string &text, std::string *fault = nullptr);

/// "32768/02:00:00:00:01:00"
std::string bridge_id_text(const bridge_id_t &id);

bool same_bridge(const bridge_id_t &a, const bridge_id_t &b);
