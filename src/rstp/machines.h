/// The ten state machines. One source file each, named after the machine; the order of states
/// is that of the name tables.
///
/// STP_x_check_conditions: moves to the first state whose condition holds; 1 if it moved.
/// STP_x_enter_state: performs the entry actions of the present state.
/// STP_x_state_name: the state's name; "Begin" above 254.
///
/// The state diagrams are near those of the 2001 amendment (IEEE Std 802.1w-2001). The amendment's clause
/// numbers are others; those in src/rstp/ are of the 2004 edition (IEEE Std 802.1D-2004), and say "compare"
/// where its diagram or procedure differs. What departs from it on purpose, and what follows; the whole
/// list, with clauses and tests, is docs/conformance.md:
///
/// info.cpp      an agreement counts only if it names the port's own designated bridge, that is, this one:
///               with standard neighbours a designated port waits the forward delay twice
/// info.cpp      no inferior and no disputed information: a link that carries frames one way is not noticed
/// info.cpp      a worse vector of the same sender is taken only with new times, else the old one ages out
/// info.cpp      the own port identifier takes part in comparisons: one that gets worse makes a root port
///               alternate until its information ages out
/// info.cpp      UPDATE clears `agreed` and `synced` always; topology change flags count in any BPDU
/// info.cpp      `edgeDetected` for `portEnabled`: a link counts when the edge machine has seen it
/// rolesel.cpp   information that this bridge sent itself can make a root; a port tells the root's hello
///               time; the age step is rounded to nearest here, down in info.cpp
/// roletrns.cpp  allSynced without roles and `selected`: the root port may agree while another port has
///               still to take its role
/// roletrns.cpp  `synced` for `agree`; a designated port that forwards by its timers is not `agreed`: the
///               proposal of a new root cuts it for twice the forward delay
/// roletrns.cpp  alternate ports answer no proposal; every wait is the root's forward delay
/// topoch.cpp    a change is told for two hellos, from the next hello on; the whole address table is flushed
/// transmit.cpp  hold count 3; root and designated ports only; not held back while roles are selected
/// migrate.cpp   `rstpVersion` is the request that the 2004 edition calls mcheck
/// edge.cpp      an edge port is ordinary for 3 s after its link came up; no automatic edge
/// rapid.cpp     what of this is otherwise in a bridge that is asked to be rapid
/// stp_in.cpp    no receive machine: a BPDU replaces one that waits, and one of unknown type ends edge status
/// step.cpp      one unit a pass: an event runs one port, the rest waits for the next event or tick; roles
///               are selected once a pass
#pragma once

#include "rstp/bpdu.h"
#include "rstp/records.h"

// clang-format off
/// Port information (2001 amendment; compare clause 17.27), with the classification of received BPDUs.
enum : rstpstate_t {
    INFO_DISABLED, INFO_ENABLED, INFO_AGED, INFO_UPDATE, INFO_CURRENT, INFO_RECEIVE, INFO_SUPERIOR,
    INFO_REPEAT, INFO_AGREEMENT,
};
int STP_info_check_conditions(state_mach_t *mach);
void STP_info_enter_state(state_mach_t *mach);
const char *STP_info_state_name(rstpstate_t state);

/// Records a validated BPDU for the port information machine and counts it by its kind.
/// `len` is not used.
void STP_info_rx_bpdu(port_t *port, const bpdu_t *bpdu, uint32_t len);

/// Port role selection (clause 17.28), one per bridge.
enum : rstpstate_t { ROLESEL_INIT_BRIDGE, ROLESEL_ROLE_SELECTION };
int STP_rolesel_check_conditions(state_mach_t *mach);
void STP_rolesel_enter_state(state_mach_t *mach);
const char *STP_rolesel_state_name(rstpstate_t state);

/// Port role transitions (compare clause 17.29).
enum : rstpstate_t {
    ROLETRNS_INIT_PORT, ROLETRNS_BLOCK_PORT, ROLETRNS_BLOCKED_PORT, ROLETRNS_BACKUP_PORT,
    ROLETRNS_ROOT_PROPOSED, ROLETRNS_ROOT_AGREED, ROLETRNS_REROOT, ROLETRNS_ROOT_PORT,
    ROLETRNS_REROOTED, ROLETRNS_ROOT_LEARN, ROLETRNS_ROOT_FORWARD, ROLETRNS_DESIGNATED_PROPOSE,
    ROLETRNS_DESIGNATED_SYNCED, ROLETRNS_DESIGNATED_RETIRED, ROLETRNS_DESIGNATED_PORT,
    ROLETRNS_DESIGNATED_LISTEN, ROLETRNS_DESIGNATED_LEARN, ROLETRNS_DESIGNATED_FORWARD,
};
int STP_roletrns_check_conditions(state_mach_t *mach);
void STP_roletrns_enter_state(state_mach_t *mach);
const char *STP_roletrns_state_name(rstpstate_t state);

/// Port state transition (clause 17.30).
enum : rstpstate_t { STTRANS_DISCARDING, STTRANS_LEARNING, STTRANS_FORWARDING };
int STP_sttrans_check_conditions(state_mach_t *mach);
void STP_sttrans_enter_state(state_mach_t *mach);
const char *STP_sttrans_state_name(rstpstate_t state);

/// Topology change (compare clause 17.31).
enum : rstpstate_t {
    TOPOCH_INIT, TOPOCH_INACTIVE, TOPOCH_TCACTIVE, TOPOCH_DETECTED, TOPOCH_NOTIFIED_TC,
    TOPOCH_PROPAGATING, TOPOCH_ACKNOWLEDGED, TOPOCH_NOTIFIED_TCN,
};
int STP_topoch_check_conditions(state_mach_t *mach);
void STP_topoch_enter_state(state_mach_t *mach);
const char *STP_topoch_state_name(rstpstate_t state);

/// Port protocol migration (2001 amendment; compare clause 17.24).
enum : rstpstate_t {
    MIGRATE_INIT, MIGRATE_SEND_RSTP, MIGRATE_SENDING_RSTP, MIGRATE_SEND_STP, MIGRATE_SENDING_STP,
};
int STP_migrate_check_conditions(state_mach_t *mach);
void STP_migrate_enter_state(state_mach_t *mach);
const char *STP_migrate_state_name(rstpstate_t state);

constexpr uint8_t TX_HOLD_COUNT = 3; ///< BPDUs a second, as in the 2001 amendment (compare TxHoldCount, clause 17.13)

/// Port transmit (compare clause 17.26), with the BPDU builder.
enum : rstpstate_t {
    TRANSMIT_INIT, TRANSMIT_PERIODIC, TRANSMIT_IDLE, TRANSMIT_TCN, TRANSMIT_CONFIG, TRANSMIT_RSTP,
};
int STP_transmit_check_conditions(state_mach_t *mach);
void STP_transmit_enter_state(state_mach_t *mach);
const char *STP_transmit_state_name(rstpstate_t state);

/// Operational point-to-point; the standard has no machine for it.
enum : rstpstate_t { P2P_INIT, P2P_RECOMPUTE, P2P_STABLE };
int STP_p2p_check_conditions(state_mach_t *mach);
void STP_p2p_enter_state(state_mach_t *mach);
const char *STP_p2p_state_name(rstpstate_t state);

/// Operational edge, with a detection delay (compare clause 17.25).
enum : rstpstate_t { EDGE_DISABLED, EDGE_DETECTED, EDGE_DELEAYED, EDGE_RESOLVED };
int STP_edge_check_conditions(state_mach_t *mach);
void STP_edge_enter_state(state_mach_t *mach);
const char *STP_edge_state_name(rstpstate_t state);

/// Port path cost; the standard has no machine for it.
enum : rstpstate_t { PCOST_AUTO, PCOST_FORSE, PCOST_STABLE };
int STP_pcost_check_conditions(state_mach_t *mach);
void STP_pcost_enter_state(state_mach_t *mach);
const char *STP_pcost_state_name(rstpstate_t state);
