/// The records of the engine: the bridge, the port, and the values they are made of.
/// Names of fields are those of IEEE 802.1D-2004, clause 17, where the standard has one; some mean something
/// else there (docs/conformance.md).
#pragma once

#include <cstddef>
#include <cstdint>

#include "rstp/config.h"

constexpr uint32_t RSTP_PHYSICAL_PORTS = 6;
constexpr uint32_t RSTP_GROUPS = 3;
constexpr uint32_t RSTP_PORTS = RSTP_PHYSICAL_PORTS + RSTP_GROUPS; ///< logical ports, numbered from 1

constexpr int STP_BRIDGE_DISABLED = 21; ///< the bridge is off: BPDU refused
constexpr int STP_BRIDGE_ID_USED = 24;  ///< another bridge has the same identifier

constexpr size_t RSTP_MAC_OCTETS = 6;

/// Bridge identifier.
struct bridge_id_t {
    uint16_t prio;
    uint8_t addr[RSTP_MAC_OCTETS];
};

/// Spanning tree priority vector; lower is better in every field.
struct prio_vector_t {
    bridge_id_t root_bridge;
    uint32_t root_path_cost;
    bridge_id_t design_bridge;
    uint32_t design_port;
    uint32_t bridge_port; ///< receiving or owning port; never carried in a BPDU
};

/// Timer values in whole seconds (clause 17.13). BPDUs carry them in another order.
struct timevalues_t {
    uint8_t MessageAge;
    uint8_t MaxAge;
    uint8_t ForwardDelay;
    uint8_t HelloTime;
};

using rstpstate_t = uint8_t;
constexpr rstpstate_t STP_BEGIN = 255; ///< the machine has not been entered yet

/// One state machine. Each kind numbers its states from 0.
struct state_mach_t {
    rstpstate_t State;
    void *owner; ///< the port_t, or the stpm_t for role selection
};

using lvt_rstp_port_role_t = uint8_t;
enum : lvt_rstp_port_role_t {
    ROLE_DISABLED = 0,
    ROLE_ALTERNATE = 1,
    ROLE_BACKUP = 2,
    ROLE_ROOT = 3,
    ROLE_DESIGNATED = 4,
    ROLE_NON_STP = 5, ///< not a spanning tree role: the port does not take part
};

/// Where a port's information comes from (infoIs, clause 17.19).
enum : uint8_t { INFO_IS_MINE = 0, INFO_IS_AGED = 1, INFO_IS_RECEIVED = 2, INFO_IS_DISABLED = 3 };

/// What a received BPDU tells (compare rcvInfo, clause 17.21).
enum : uint8_t { RCVD_SUPERIOR = 0, RCVD_REPEATED = 1, RCVD_AGREEMENT = 2, RCVD_OTHER = 3 };

/// Forwarding states as the switch chip codes them.
enum : uint8_t {
    HW_DISABLED = 0,
    HW_DISCARDING = 1,
    HW_LEARNING = 3,
    HW_FORWARDING = 4,
    HW_NO_STP = 5, ///< forwarding, spanning tree off
};

struct stpm_t;

struct port_t {
    uint32_t port_number; ///< 1 to 9
    lvt_rstp_port_config_t config;
    uint8_t mac[RSTP_MAC_OCTETS]; ///< zero until the port has had link
    uint8_t hw_state;             ///< code last requested of the hardware

    uint8_t stpEnabled : 1; ///< the adaptation layer lets the record take part
    uint8_t agreed : 1;
    uint8_t forward : 1;
    uint8_t forwarding : 1;
    uint8_t initPm : 1;
    uint8_t learn : 1;
    uint8_t learning : 1;
    uint8_t rstpVersion : 1; ///< request to restart migration in RSTP mode

    uint8_t newInfo : 1;
    uint8_t operEdge : 1;
    uint8_t edgeDetected : 1; ///< the edge machine has seen the link up
    uint8_t proposed : 1;
    uint8_t proposing : 1;
    uint8_t rcvdMsg : 1;
    uint8_t rcvdRSTP : 1;
    uint8_t rcvdSTP : 1;

    uint8_t rcvdTc : 1;
    uint8_t rcvdTcAck : 1;
    uint8_t rcvdTcn : 1;
    uint8_t reRoot : 1;
    uint8_t reselect : 1;
    uint8_t selected : 1;
    uint8_t sendRSTP : 1;
    uint8_t sync : 1;

    uint8_t synced : 1;
    uint8_t tc : 1;
    uint8_t tcAck : 1;
    uint8_t tcProp : 1;
    uint8_t updtInfo : 1;
    uint8_t portEnabled : 1; ///< link up, as last reported
    uint8_t rcvdBpdu : 1;
    uint8_t nonStp : 1; ///< does not take part; role "Non-STP"

    uint8_t p2pRecompute : 1; ///< request to derive operPointToPoint again
    uint8_t operPointToPoint : 1;

    state_mach_t info;
    state_mach_t roletrns;
    state_mach_t sttrans;
    state_mach_t topoch;
    state_mach_t migrate;
    state_mach_t transmit;
    state_mach_t p2p;
    state_mach_t edge;
    state_mach_t pcost;

    stpm_t *owner; ///< null: in no bridge
    port_t *next;  ///< of the same bridge

    // Timers in seconds (clause 17.17); each tick takes one from those above 0.
    uint8_t fdWhile;
    uint8_t helloWhen;
    uint8_t mdelayWhile;
    uint8_t rbWhile;
    uint8_t rcvdInfoWhile;
    uint8_t rrWhile;
    uint8_t tcWhile;
    uint8_t txCount; ///< BPDUs sent, less one a second
    uint8_t edgeDelayWhile;

    // Of a rapid bridge.
    uint8_t wordTold; ///< number of what the port tells
    uint8_t wordHeld; ///< and of what the neighbour has told; what it means while the port is designated: rapid.cpp
    uint8_t sends;    ///< RST BPDUs, to count one of some

    prio_vector_t designatedPrio;
    timevalues_t designatedTimes;
    uint8_t infoIs;
    prio_vector_t msgPrio;
    timevalues_t msgTimes;
    uint16_t port_id; ///< (port_priority << 8) | port_number
    prio_vector_t portPrio;
    timevalues_t portTimes;
    uint8_t rcvdInfo;
    lvt_rstp_port_role_t role;
    lvt_rstp_port_role_t selectedRole;
    uint8_t rcvdVersion;
    uint8_t rcvdType;
    uint8_t rcvdRole; ///< role code of the last RST BPDU; 0 after a configuration BPDU
    uint8_t rcvdFlags;
    uint32_t pathCost;
    uint32_t speed;     ///< Mbit/s
    uint32_t usedSpeed; ///< speed behind pathCost; 0xFFFFFFFF when the cost is set by hand

    uint32_t stp_frame_xmits;
    uint32_t stp_frame_recvs;
    uint32_t rstp_frame_xmits;
    uint32_t rstp_frame_recvs;
    uint32_t tcn_frame_xmits;
    uint32_t tcn_frame_recvs;
    uint32_t unknown_frame_recvs;
    uint32_t illegal_frame_recvs;
};

struct stpm_t {
    stpm_t *next;
    port_t *ports; ///< newest first
    state_mach_t rolesel;
    bridge_id_t BrId;
    timevalues_t BrTimes;
    uint32_t rootPortId; ///< 0: this bridge is the root
    prio_vector_t rootPrio;
    timevalues_t rootTimes;
    uint16_t timeSinceTc; ///< passes (not seconds) since one that found a topology change
    uint16_t tcCount;     ///< passes in a row that found one
    uint8_t topoChange;
    uint32_t prevTcPort;
    uint32_t lastTcPort;
    uint16_t vlan_id;
    uint8_t admin_state; ///< nonzero: enabled
};

/// True when the port takes no part: every loop over a bridge's ports that decides
/// something skips it.
inline bool boring_port(const port_t *port) { return !port->stpEnabled || port->nonStp; }

/// First of `port` and its successors that takes part, or null.
inline port_t *next_interesting_port(port_t *port)
{
    while (port && boring_port(port))
        port = port->next;
    return port;
}
