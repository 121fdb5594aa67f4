#include "daemon_invariants.h"

#include <cstring>

#include "daemon/rstp_aggr.h"
#include "daemon/rstp_config.h"
#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"
#include "lvt_rstp.h"
#include "rstp/machines.h"

namespace {

struct faults_t {
    std::string text;

    void expect(bool holds, const std::string &what, uint32_t number)
    {
        if (!holds)
            text += what + ", " + std::to_string(number) + "\n";
    }
};

bool is_front_port(const port_t *port) { return port >= &record(1) && port <= &record(6); }

void check_places(faults_t &faults)
{
    for (uint32_t port = 1; port <= 6; port++) {
        const port_t &own = record(port);
        const port_t *standing = lvt_rstp_vars.representative[port - 1];
        const bool member = standing == &record(7) || standing == &record(8) || standing == &record(9);
        faults.expect(standing == &own || member, "a port is stood for by itself or by a group", port);
        faults.expect(own.stpEnabled == !member, "a member takes no part itself, any other port may", port);
        faults.expect(!member || standing->stpEnabled, "a group with members is formed", port);
        faults.expect(!member || !own.portEnabled, "a member has no link of its own in the tree", port);
        faults.expect(lvt_rstp_vars.by_l2port[port - 1] == &own, "a port sends for itself", port);
    }
    for (uint32_t group = 7; group <= 9; group++) {
        const port_t *sender = lvt_rstp_vars.by_l2port[group - 1];
        const bool formed = record(group).stpEnabled;
        faults.expect(formed == is_front_port(sender), "a formed group sends through a port, no other does", group);
        faults.expect(formed || !sender || sender == &record(group), "a group that is not formed has no sender", group);
    }
}

void check_records(faults_t &faults)
{
    uint32_t expected = 9; // newest first
    for (const port_t *port = lvt_rstp_vars.bridge.ports; port; port = port->next, expected--) {
        faults.expect(port == &record(expected), "the bridge's list runs from 9 to 1", expected);
        if (port != &record(expected))
            return;
    }
    faults.expect(expected == 0, "the bridge's list is whole", expected);

    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        const port_t &port = record(l2port);
        faults.expect(port.port_number == l2port, "a record keeps its number", l2port);
        faults.expect(port.owner == &lvt_rstp_vars.bridge, "a record keeps its bridge", l2port);
        faults.expect(port.nonStp == !(port.stpEnabled && port.config.adminEnable),
                      "a record takes part when it may and its settings say so", l2port);
        faults.expect(port.role <= ROLE_NON_STP && port.selectedRole <= ROLE_NON_STP, "roles exist", l2port);
        faults.expect(port.txCount <= 3, "the hold count is kept", l2port);
        const rstpstate_t state = port.sttrans.State;
        faults.expect(state == STP_BEGIN || state <= STTRANS_FORWARDING, "a state exists", l2port);
        if (state != STP_BEGIN) {
            faults.expect(port.learning == (state != STTRANS_DISCARDING), "learning is as the machine says", l2port);
            faults.expect(port.forwarding == (state == STTRANS_FORWARDING), "forwarding is as the machine says",
                          l2port);
        }
    }
}

void check_cursor(faults_t &faults)
{
    faults.expect(!current_stpm == !current_port, "the cursor is whole", 0);
    faults.expect(!current_stpm || current_stpm == &lvt_rstp_vars.bridge, "the cursor is at a bridge", 0);
    faults.expect(!current_port || current_port->owner == current_stpm, "the cursor is at a port of it", 0);
}

void check_daemon_tables(faults_t &faults)
{
    faults.expect(aggr_port_status[0] == 0, "octet 0 is no port", aggr_port_status[0]);
    uint8_t members[3] = {};
    for (uint32_t port = 1; port <= 6; port++) {
        const uint8_t group = aggr_port_status[port];
        faults.expect(group >= 1 && group <= 9, "a port is alone or in a group", port);
        if (group >= 7 && group <= 9)
            members[group - 7] = static_cast<uint8_t>(members[group - 7] | 1u << (port - 1));
    }
    faults.expect(memcmp(members, aggr_group_status, sizeof members) == 0, "the group tables agree", 0);

    for (uint32_t port = 1; port <= 6; port++)
        faults.expect(memcmp(&rstp_port_config[port], &record(port).config, sizeof(lvt_rstp_port_config_t)) == 0,
                      "a port's settings and their copy agree", port);
    for (uint32_t group = 7; group <= 9; group++) {
        lvt_rstp_port_config_t config = record(group).config;
        config.adminEdge = rstp_port_config[0].adminEdge; // that of a group comes from its members
        faults.expect(memcmp(&rstp_port_config[0], &config, sizeof config) == 0,
                      "a group's settings and their copy agree", group);
    }
    faults.expect(memcmp(&rstp_system_config, &lvt_rstp_vars.config, sizeof rstp_system_config) == 0,
                  "the bridge's settings and their copy agree", 0);
}

void check_chip(faults_t &faults)
{
    for (uint32_t port = 1; port <= 6; port++) {
        const uint32_t state = board_port_state(port);
        faults.expect(cached_fwdstates[port] == 1, "forwarding was switched on", port);
        faults.expect(cached_stpstates[port] == state, "the cache is what the chip has", port);
        faults.expect(board_multiplexer_forwards(port) == (state >= 4), "the multiplexer knows the chip's state", port);
    }
    for (uint32_t group = 7; group <= 9; group++)
        faults.expect(cached_fwdstates[group] == 0 && cached_stpstates[group] == 0, "groups have no hardware", group);
}

} // namespace

std::string daemon_faults()
{
    faults_t faults;
    check_places(faults);
    check_records(faults);
    check_cursor(faults);
    check_daemon_tables(faults);
    check_chip(faults);
    return faults.text;
}
