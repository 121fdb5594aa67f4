#include "rstp/port_machines.h"

/// The names of all states, machine after machine. "DELEAYED" and "FORSE" are written so on
/// purpose: tools match these spellings.
// clang-format off
const char *const STP_state_names[] = {
    // rolesel
    "INIT_BRIDGE", "ROLE_SELECTION",
    // info
    "DISABLED", "ENABLED", "AGED", "UPDATE", "CURRENT", "RECEIVE", "SUPERIOR", "REPEAT", "AGREEMENT",
    // roletrns
    "INIT_PORT", "BLOCK_PORT", "BLOCKED_PORT", "BACKUP_PORT", "ROOT_PROPOSED", "ROOT_AGREED", "REROOT",
    "ROOT_PORT", "REROOTED", "ROOT_LEARN", "ROOT_FORWARD", "DESIGNATED_PROPOSE", "DESIGNATED_SYNCED",
    "DESIGNATED_RETIRED", "DESIGNATED_PORT", "DESIGNATED_LISTEN", "DESIGNATED_LEARN", "DESIGNATED_FORWARD",
    // sttrans
    "DISCARDING", "LEARNING", "FORWARDING",
    // topoch
    "INIT", "INACTIVE", "TCACTIVE", "DETECTED", "NOTIFIED_TC", "PROPAGATING", "ACKNOWLEDGED",
    "NOTIFIED_TCN",
    // migrate
    "INIT", "SEND_RSTP", "SENDING_RSTP", "SEND_STP", "SENDING_STP",
    // transmit
    "TRANSMIT_INIT", "TRANSMIT_PERIODIC", "IDLE", "TRANSMIT_TCN", "TRANSMIT_CONFIG", "TRANSMIT_RSTP",
    // p2p
    "INIT", "RECOMPUTE", "STABLE",
    // edge
    "DISABLED", "DETECTED", "DELEAYED", "RESOLVED",
    // pcost
    "AUTO", "FORSE", "STABLE",
};
// clang-format on

namespace {

/// Where each machine's names begin.
enum : uint8_t {
    NAMES_ROLESEL = 0,
    NAMES_INFO = NAMES_ROLESEL + ROLESEL_ROLE_SELECTION + 1,
    NAMES_ROLETRNS = NAMES_INFO + INFO_AGREEMENT + 1,
    NAMES_STTRANS = NAMES_ROLETRNS + ROLETRNS_DESIGNATED_FORWARD + 1,
    NAMES_TOPOCH = NAMES_STTRANS + STTRANS_FORWARDING + 1,
    NAMES_MIGRATE = NAMES_TOPOCH + TOPOCH_NOTIFIED_TCN + 1,
    NAMES_TRANSMIT = NAMES_MIGRATE + MIGRATE_SENDING_STP + 1,
    NAMES_P2P = NAMES_TRANSMIT + TRANSMIT_RSTP + 1,
    NAMES_EDGE = NAMES_P2P + P2P_STABLE + 1,
    NAMES_PCOST = NAMES_EDGE + EDGE_RESOLVED + 1,
    NAMES_END = NAMES_PCOST + PCOST_STABLE + 1,
};
static_assert(sizeof STP_state_names / sizeof *STP_state_names == NAMES_END);

const char *name(rstpstate_t state, uint8_t first, uint8_t end)
{
    if (state == STP_BEGIN)
        return "Begin";
    return first + state < end ? STP_state_names[first + state] : "?";
}

constexpr bool is_port_offset(size_t offset)
{
    return offset == offsetof(port_t, info) || offset == offsetof(port_t, roletrns) ||
           offset == offsetof(port_t, sttrans) || offset == offsetof(port_t, topoch) ||
           offset == offsetof(port_t, migrate) || offset == offsetof(port_t, transmit) ||
           offset == offsetof(port_t, p2p) || offset == offsetof(port_t, edge) || offset == offsetof(port_t, pcost);
}
static_assert(!is_port_offset(offsetof(stpm_t, rolesel)),
              "a machine is told from another by its place in the owner's record");

} // namespace

const char *STP_rolesel_state_name(rstpstate_t state) { return name(state, NAMES_ROLESEL, NAMES_INFO); }
const char *STP_info_state_name(rstpstate_t state) { return name(state, NAMES_INFO, NAMES_ROLETRNS); }
const char *STP_roletrns_state_name(rstpstate_t state) { return name(state, NAMES_ROLETRNS, NAMES_STTRANS); }
const char *STP_sttrans_state_name(rstpstate_t state) { return name(state, NAMES_STTRANS, NAMES_TOPOCH); }
const char *STP_topoch_state_name(rstpstate_t state) { return name(state, NAMES_TOPOCH, NAMES_MIGRATE); }
const char *STP_migrate_state_name(rstpstate_t state) { return name(state, NAMES_MIGRATE, NAMES_TRANSMIT); }
const char *STP_transmit_state_name(rstpstate_t state) { return name(state, NAMES_TRANSMIT, NAMES_P2P); }
const char *STP_p2p_state_name(rstpstate_t state) { return name(state, NAMES_P2P, NAMES_EDGE); }
const char *STP_edge_state_name(rstpstate_t state) { return name(state, NAMES_EDGE, NAMES_PCOST); }
const char *STP_pcost_state_name(rstpstate_t state) { return name(state, NAMES_PCOST, NAMES_END); }

stp_mach_identity_t STP_mach_identify(const state_mach_t *mach)
{
    const size_t offset = reinterpret_cast<const char *>(mach) - static_cast<const char *>(mach->owner);
    if (offset == offsetof(stpm_t, rolesel))
        return {0, "rolesel", STP_rolesel_state_name};

    const auto *port = static_cast<const port_t *>(mach->owner);
    for (const stp_machine_t &machine : STP_port_machines)
        if (&(port->*machine.mach) == mach)
            return {port->port_number, machine.name, machine.state_name};
    return {0, "?", STP_rolesel_state_name};
}
