/// The adaptation layer: binds the engine to this switch. It owns every record of the engine,
/// takes events and settings in, and answers what the engine asks (rstp/stp_out.h).
///
/// All functions are called with `rstp_core_sem` held, but for those that say otherwise.
/// Events and changed settings first finish the engine's pending work, so that none of them meets a
/// bridge that is half evaluated.
#pragma once

#include <cstdint>

#include "rstp/records.h"
#include "rstp/step.h"
#include "rstp/stp_out.h"

struct lvt_rstp_vars_t {
    uint8_t initialised; ///< 0 until the defaults are applied
    lvt_rstp_system_config_t config;
    port_t ports[RSTP_PORTS];                    ///< by l2port - 1: ports 1 to 6, groups 7 to 9
    port_t *by_l2port[RSTP_PORTS];               ///< who sends for it; null: a group that was deleted
    port_t *representative[RSTP_PHYSICAL_PORTS]; ///< who stands for it: itself or its group
    uint16_t time;                               ///< ticks
    stpm_t *bridges;
    stpm_t *default_vlan; ///< the bridge of VLAN 1
    stpm_t *free_bridges;
    stpm_t bridge;
};

extern lvt_rstp_vars_t lvt_rstp_vars;

#ifdef LVT_RAPID
extern bool lvt_rstp_rapid; ///< the engine is asked to be rapid; set before lvt_rstp_init
#endif
extern uint8_t lacp_enable_port[RSTP_PHYSICAL_PORTS];
extern int port_mux_fd; ///< the port multiplexer's pipe; -1 when it could not be opened

constexpr uint16_t LVT_RSTP_DEFAULT_VLAN = 1;

// ---- life -------------------------------------------------------------------------------

/// Starts the one bridge with its nine ports. Returns the result of enabling it.
int lvt_rstp_init();

/// Applies the defaults to everything; the engine forgets all it knew.
void lvt_rstp_reset_config();

// ---- settings ---------------------------------------------------------------------------

/// Stores and applies changed bridge settings. Leaves pending work pending. Returns 0.
int lvt_rstp_set_config(const lvt_rstp_system_config_t *config);
void lvt_rstp_get_config(lvt_rstp_system_config_t *config);
/// The same, also before the defaults are applied.
void lvt_rstp_system_config_init(lvt_rstp_system_config_t *config);

/// Stores and applies changed settings of port 1 to 6, or of all three groups (0). A higher
/// number is a programming error. Returns 0.
int lvt_rstp_set_portconfig(uint32_t portno, const lvt_rstp_port_config_t *config);
/// Settings of port 1 to 6, or of the first group (0).
void lvt_rstp_get_portconfig(uint32_t portno, lvt_rstp_port_config_t *config);
/// Copies priority, enable, edge and point-to-point of the record with index 0 to 8; the path
/// cost is left as it is.
void lvt_rstp_port_config_init(uint32_t index, lvt_rstp_port_config_t *config);

/// The enable octet of the record with index 0 to 8.
uint8_t lvt_port_enable_rstp_get(uint32_t index);
/// The enable octet of the groups.
uint8_t lvt_rstp_aggr_enable_get();
/// 1 when a group stands for the port with index 0 to 5, else 0.
int lvt_rstp_port_is_aggregated(uint32_t index);

/// Stores on which ports LACP runs (six octets). Needs no lock.
void lvt_rstp_lacp_enable_set(const uint8_t *enable);
/// The octet of the port with index 0 to 5; 0 for any other.
uint8_t lvt_rstp_lacp_enable_port_check(uint32_t index);

/// Makes logical port 1 to 9 speak RSTP again and select its role anew (mcheck).
void lvt_rstp_set_mcheck(uint32_t poag);

/// Puts the ports named by nonzero entries of `members` (indexed by port, 1 to 6) into the
/// bridge of a VLAN, which is created if need be, and all others back into the default one.
/// Quietly does nothing when no bridge record is free.
void lvt_rstp_vlan_add(uint16_t vid, const uint8_t *members);
/// Deletes the bridge of a VLAN; its ports return to the default one.
void lvt_rstp_vlan_del(uint16_t vid);

// ---- events -----------------------------------------------------------------------------

/// Takes a received frame of `length` octets, from its destination address on. A malformed one
/// is counted as illegal and dropped, pending work left as it is.
///
/// from_port  1 to 6; a higher number or a null frame is a programming error.
///
/// Returns the new count of illegal frames when it drops one, else what STP_IN_rx_bpdu does.
int lvt_rstp_receive(uint32_t from_port, const uint8_t *frame, uint32_t length);

/// Tells that the link of port 1 to 6 is up (1) or down (0). The engine acts on it at the next
/// pass.
void lvt_rstp_linkstate_changed(uint32_t portno, uint32_t link);

/// One second has passed.
void lvt_rstp_tick();

/// Hands a link change of a record to the engine.
void lvt_rstp_port_link_apply(port_t *port, uint32_t link);

// ---- aggregated ports -------------------------------------------------------------------

/// Lets group `aid` (7 to 9) stand for the ports named by nonzero entries of `members`
/// (indexed by port, at least one). May be repeated for a group that is there.
void lvt_rstp_aggr_add(uint32_t aid, const uint8_t *members);
/// Dissolves group `aid`; nothing happens when it is not there.
void lvt_rstp_aggr_del(uint32_t aid);
/// Takes a group and its members out of the tree, forwarding.
void lvt_aggr_force_state(port_t *group);
/// Gives a physical port its own place back.
void lvt_aggr_port_restore(port_t *port);

// ---- hardware state ---------------------------------------------------------------------

/// Programs a state code and tells the port multiplexer, without any filter. Returns the
/// switch's result.
int stp_state_set(uint32_t l2port, uint8_t code);
/// Tells the port multiplexer whether a port forwards. The name of the pipe is not used: the
/// pipe is open. Returns the result of write, which nobody needs.
int sent_msg_to_port_mux(const char *pipe, uint32_t l2port, uint8_t forwarding);
/// Applies a state code: as it stands with spanning tree on; else forwarding, unless LACP
/// rules the port.
int lvt_hw_set_stpstate(uint32_t l2port, uint8_t code);
/// Switches forwarding on (1) or off (0) for a port; until it is on, codes are only noted.
void lvt_hw_set_fwdstate(uint32_t l2port, uint8_t enable);
/// Notes a state code in the record and applies it.
int lvt_port_hw_state_set(port_t *port, uint8_t code);
/// Flushes the switch's whole address table. Returns 0 or -1.
int lvt_flush_mac_table_per_switch();

// ---- status -----------------------------------------------------------------------------

struct lvt_rstp_bridge_status_t {
    uint8_t admin_enabled;
    uint16_t vlan_id;
    bridge_id_t bridge;
    bridge_id_t designated_root;
    uint16_t designated_root_vlan; ///< lvt_rstp_get_bridge_status only: the low twelve bits
    uint32_t root_cost;
    uint32_t root_port; ///< port identifier
    timevalues_t root_times;
    uint8_t in_tc;
    uint16_t tc_count;
    uint16_t time_since_tc; ///< passes
    int secs_since_last_tc; ///< ticks less passes: may be negative
    uint32_t last_tc_port;
    uint32_t num_active_ports;
};

struct lvt_rstp_port_status_t {
    uint16_t vlan_id;
    bridge_id_t designated_root;
    uint32_t designated_root_cost;
    bridge_id_t designated_bridge;
    uint32_t designated_port; ///< port identifier
    lvt_rstp_port_role_t role;
    uint8_t state; ///< 1 blocking, 3 learning, 4 forwarding; 0 and 5 as the role
    uint8_t is_p2p;
    uint8_t is_edge;
    uint8_t stp_neigb; ///< the neighbour speaks STP only
    uint32_t oper_pathcost;
    uint32_t part_of_aggr; ///< 7 to 9, or 0
    uint8_t stp_viewable;
    uint32_t stp_frame_xmits;
    uint32_t stp_frame_recvs;
    uint32_t rstp_frame_xmits;
    uint32_t rstp_frame_recvs;
    uint32_t tcn_frame_xmits;
    uint32_t tcn_frame_recvs;
    uint32_t unknown_frame_recvs;
    uint32_t illegal_frame_recvs;
};

/// Reads the bridge's live values. Takes no lock and steps nothing.
void lvt_rstp_read_bridge_status(lvt_rstp_bridge_status_t *status);
/// Reads logical port 1 to 9, derived values included; another number is a programming error.
/// Takes no lock and steps nothing.
void lvt_rstp_read_port_status(uint32_t poag, lvt_rstp_port_status_t *status);
/// What was last asked of the hardware for port 1 to 6. Takes no lock.
void lvt_rstp_read_hw_state(uint32_t port, uint8_t *stpstate, uint8_t *fwdstate);

/// The bridge's status after pending work. `vlan_index` must be 0. The root's priority comes
/// as its top four bits, shifted right by 8, and its VLAN part. Returns 0.
int lvt_rstp_get_bridge_status(uint32_t vlan_index, lvt_rstp_bridge_status_t *status);
/// A port's status after pending work. Returns 0.
int lvt_rstp_get_port_status(uint32_t poag, lvt_rstp_port_status_t *status);
