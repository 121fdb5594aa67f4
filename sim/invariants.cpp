#include "sim/invariants.h"

#include <cstring>

#include "daemon/rstp_aggr.h"
#include "daemon/rstp_config.h"
#include "l2_proto_utility/os_api.h"
#include "lvt_rstp.h"
#include "rstp/machines.h"

namespace {

/// The record of logical port 1 to 9.
const port_t &record(uint32_t l2port) { return lvt_rstp_vars.ports[l2port - 1]; }

struct wrongs_t {
    std::string text;

    void expect(bool holds, const char *what, uint32_t number)
    {
        if (!holds)
            text += what + (", " + std::to_string(number)) + "\n";
    }
};

bool is_front_port(const port_t *port) { return port >= &record(1) && port <= &record(6); }

void check_places(wrongs_t &wrongs)
{
    for (uint32_t port = 1; port <= 6; port++) {
        const port_t &own = record(port);
        const port_t *standing = lvt_rstp_vars.representative[port - 1];
        const bool member = standing == &record(7) || standing == &record(8) || standing == &record(9);
        wrongs.expect(standing == &own || member, "a port is stood for by itself or by a group", port);
        wrongs.expect(own.stpEnabled == !member, "a member takes no part itself, any other port may", port);
        wrongs.expect(!member || standing->stpEnabled, "a group with members is formed", port);
        wrongs.expect(!member || !own.portEnabled, "a member has no link of its own in the tree", port);
        wrongs.expect(lvt_rstp_vars.by_l2port[port - 1] == &own, "a port sends for itself", port);
    }
    for (uint32_t group = 7; group <= 9; group++) {
        const port_t *sender = lvt_rstp_vars.by_l2port[group - 1];
        const bool formed = record(group).stpEnabled;
        wrongs.expect(formed == is_front_port(sender), "a formed group sends through a port, no other does", group);
        wrongs.expect(formed || !sender || sender == &record(group), "a group that is not formed has no sender", group);
    }
}

void check_records(wrongs_t &wrongs)
{
    uint32_t expected = 9; // newest first
    for (const port_t *port = lvt_rstp_vars.bridge.ports; port; port = port->next, expected--) {
        wrongs.expect(port == &record(expected), "the bridge's list runs from 9 to 1", expected);
        if (port != &record(expected))
            return;
    }
    wrongs.expect(expected == 0, "the bridge's list is whole", expected);

    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        const port_t &port = record(l2port);
        wrongs.expect(port.port_number == l2port, "a record keeps its number", l2port);
        wrongs.expect(port.owner == &lvt_rstp_vars.bridge, "a record keeps its bridge", l2port);
        wrongs.expect(port.nonStp == !(port.stpEnabled && port.config.adminEnable),
                      "a record takes part when it may and its settings say so", l2port);
        wrongs.expect(port.role <= ROLE_NON_STP && port.selectedRole <= ROLE_NON_STP, "roles exist", l2port);
        wrongs.expect(port.txCount <= 3, "the hold count is kept", l2port);
        const rstpstate_t state = port.sttrans.State;
        wrongs.expect(state == STP_BEGIN || state <= STTRANS_FORWARDING, "a state exists", l2port);
        if (state != STP_BEGIN) {
            wrongs.expect(port.learning == (state != STTRANS_DISCARDING), "learning is as the machine says", l2port);
            wrongs.expect(port.forwarding == (state == STTRANS_FORWARDING), "forwarding is as the machine says",
                          l2port);
        }
    }
}

void check_cursor(wrongs_t &wrongs)
{
    wrongs.expect(!current_stpm == !current_port, "the cursor is whole", 0);
    wrongs.expect(!current_stpm || current_stpm == &lvt_rstp_vars.bridge, "the cursor is at a bridge", 0);
    wrongs.expect(!current_port || current_port->owner == current_stpm, "the cursor is at a port of it", 0);
}

void check_daemon_tables(wrongs_t &wrongs)
{
    wrongs.expect(aggr_port_status[0] == 0, "octet 0 is no port", aggr_port_status[0]);
    uint8_t members[3] = {};
    for (uint32_t port = 1; port <= 6; port++) {
        const uint8_t group = aggr_port_status[port];
        wrongs.expect(group >= 1 && group <= 9, "a port is alone or in a group", port);
        if (group >= 7 && group <= 9)
            members[group - 7] = static_cast<uint8_t>(members[group - 7] | 1u << (port - 1));
    }
    wrongs.expect(memcmp(members, aggr_group_status, sizeof members) == 0, "the group tables agree", 0);

    for (uint32_t port = 1; port <= 6; port++)
        wrongs.expect(memcmp(&rstp_port_config[port], &record(port).config, sizeof(lvt_rstp_port_config_t)) == 0,
                      "a port's settings and their copy agree", port);
    for (uint32_t group = 7; group <= 9; group++) {
        lvt_rstp_port_config_t config = record(group).config;
        config.adminEdge = rstp_port_config[0].adminEdge; // that of a group comes from its members
        wrongs.expect(memcmp(&rstp_port_config[0], &config, sizeof config) == 0,
                      "a group's settings and their copy agree", group);
    }
    wrongs.expect(memcmp(&rstp_system_config, &lvt_rstp_vars.config, sizeof rstp_system_config) == 0,
                  "the bridge's settings and their copy agree", 0);
}

void check_caches(wrongs_t &wrongs, chip_states_t chip_states)
{
    for (uint32_t port = 1; port <= 6; port++) {
        wrongs.expect(cached_fwdstates[port] == 1, "forwarding was switched on", port);
        wrongs.expect(cached_stpstates[port] == chip_states[port], "the cache is what the chip has", port);
    }
    for (uint32_t group = 7; group <= 9; group++)
        wrongs.expect(cached_fwdstates[group] == 0 && cached_stpstates[group] == 0, "groups have no hardware", group);
}

} // namespace

std::string record_faults(chip_states_t chip_states)
{
    wrongs_t wrongs;
    check_places(wrongs);
    check_records(wrongs);
    check_cursor(wrongs);
    check_daemon_tables(wrongs);
    check_caches(wrongs, chip_states);
    return wrongs.text;
}
