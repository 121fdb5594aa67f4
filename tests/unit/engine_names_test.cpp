// The names of states and machines, by which traces and tools know them.
#include "engine_table.h"
#include "rstp/names.h"

namespace {

using names_t = std::vector<std::string>;

struct names_row_t {
    const char *label;
    stp_name_t name_of;
    names_t names;
};

std::ostream &operator<<(std::ostream &out, const names_row_t &row) { return out << row.label; }

const names_row_t machines[] = {
    {"rolesel", STP_rolesel_state_name, {"INIT_BRIDGE", "ROLE_SELECTION"}},
    {"info",
     STP_info_state_name,
     {"DISABLED", "ENABLED", "AGED", "UPDATE", "CURRENT", "RECEIVE", "SUPERIOR", "REPEAT", "AGREEMENT"}},
    {"roletrns",
     STP_roletrns_state_name,
     {"INIT_PORT", "BLOCK_PORT", "BLOCKED_PORT", "BACKUP_PORT", "ROOT_PROPOSED", "ROOT_AGREED", "REROOT", "ROOT_PORT",
      "REROOTED", "ROOT_LEARN", "ROOT_FORWARD", "DESIGNATED_PROPOSE", "DESIGNATED_SYNCED", "DESIGNATED_RETIRED",
      "DESIGNATED_PORT", "DESIGNATED_LISTEN", "DESIGNATED_LEARN", "DESIGNATED_FORWARD"}},
    {"sttrans", STP_sttrans_state_name, {"DISCARDING", "LEARNING", "FORWARDING"}},
    {"topoch",
     STP_topoch_state_name,
     {"INIT", "INACTIVE", "TCACTIVE", "DETECTED", "NOTIFIED_TC", "PROPAGATING", "ACKNOWLEDGED", "NOTIFIED_TCN"}},
    {"migrate", STP_migrate_state_name, {"INIT", "SEND_RSTP", "SENDING_RSTP", "SEND_STP", "SENDING_STP"}},
    {"transmit",
     STP_transmit_state_name,
     {"TRANSMIT_INIT", "TRANSMIT_PERIODIC", "IDLE", "TRANSMIT_TCN", "TRANSMIT_CONFIG", "TRANSMIT_RSTP"}},
    {"p2p", STP_p2p_state_name, {"INIT", "RECOMPUTE", "STABLE"}},
    {"edge", STP_edge_state_name, {"DISABLED", "DETECTED", "DELEAYED", "RESOLVED"}},
    {"pcost", STP_pcost_state_name, {"AUTO", "FORSE", "STABLE"}},
};

class state_names : public testing::TestWithParam<names_row_t> {};

TEST_P(state_names, are_those_of_the_machine)
{
    const names_row_t &row = GetParam();
    for (size_t state = 0; state < row.names.size(); state++)
        EXPECT_EQ(row.name_of(static_cast<rstpstate_t>(state)), row.names[state]);
    EXPECT_STREQ(row.name_of(255), "Begin");
}

INSTANTIATE_TEST_SUITE_P(of, state_names, testing::ValuesIn(machines), label_of<names_row_t>);

TEST(state_names, lie_in_one_array_machine_after_machine)
{
    size_t place = 0;
    for (const names_row_t &machine : machines)
        for (const std::string &name : machine.names)
            EXPECT_EQ(STP_state_names[place++], name) << machine.label;
}

TEST(names_for_people, are_those_of_roles_and_states)
{
    const names_t roles = {"Disabled", "Alternate", "Backup", "Root", "Designated", "Non-STP"};
    const names_t states = {"Disabled", "Blocking", "Listening", "Learning", "Forwarding", "Non-STP"};
    EXPECT_EQ(names_t(std::begin(lvt_rstp_role_names), std::end(lvt_rstp_role_names)), roles);
    EXPECT_EQ(names_t(std::begin(lvt_rstp_state_names), std::end(lvt_rstp_state_names)), states);
    EXPECT_EQ(sizeof lvt_rstp_role_names, 6 * 16u);
    EXPECT_EQ(sizeof lvt_rstp_state_names, 6 * 16u);
    EXPECT_STREQ(lvt_rstp_role_names[ROLE_NON_STP], "Non-STP");
    EXPECT_STREQ(lvt_rstp_state_names[HW_FORWARDING], "Forwarding");
}

TEST(machines, are_evaluated_in_this_order)
{
    names_t order;
    for (const stp_machine_t &machine : STP_port_machines)
        order.push_back(machine.name);
    EXPECT_EQ(order, (names_t{"transmit", "sttrans", "roletrns", "info", "pcost", "edge", "p2p", "migrate", "topoch"}));
}

class machine_identity : public machine_test {};

TEST_F(machine_identity, names_the_port_and_the_machine)
{
    for (const stp_machine_t &machine : STP_port_machines) {
        const stp_mach_identity_t identity = STP_mach_identify(&(port->*machine.mach));
        EXPECT_EQ(identity.port_number, 2u);
        EXPECT_STREQ(identity.machine, machine.name);
        EXPECT_STREQ(identity.state_name(0), machine.state_name(0));
    }
}

TEST_F(machine_identity, role_selection_belongs_to_no_port)
{
    const stp_mach_identity_t identity = STP_mach_identify(&bridge->rolesel);
    EXPECT_EQ(identity.port_number, 0u);
    EXPECT_STREQ(identity.machine, "rolesel");
    EXPECT_STREQ(identity.state_name(0), "INIT_BRIDGE");
}

} // namespace
