/// Defaults, start-up and settings of the adaptation layer.
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "daemon/rstp_config.h"
#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"
#include "rstp/machines.h"
#include "rstp/stpm.h"
#include "switch/sw_cfg.h"

namespace {

class config : public daemon_test {
protected:
    static log_t boot_log()
    {
        log_t log;
        for (int entry = 37; entry <= 42; entry++)
            log.push_back("rule " + std::to_string(entry));
        for (uint32_t port = 1; port <= 6; port++)
            log = log + state_written(port, 4) + state_written(port, 4);
        log.push_back("flush");
        return log;
    }
};

constexpr lvt_rstp_system_config_t OTHER_SYSTEM = {.bridge_priority = 4096 + 7,
                                                   .max_age = 30,
                                                   .hello_time = 1,
                                                   .forward_delay = 21,
                                                   .force_version = 0,
                                                   .reserved = 9};

constexpr lvt_rstp_port_config_t OTHER_PORT = {.adminPathCost = 12345,
                                               .port_priority = 16,
                                               .adminEnable = 1,
                                               .adminEdge = 0,
                                               .adminPointToPoint = 1,
                                               .reserved = {1, 2, 3}};

template <typename record_t>
std::string octets_of(const record_t &value)
{
    return hex({reinterpret_cast<const uint8_t *>(&value), sizeof value});
}

const char SYSTEM_DEFAULTS[] = "00 80 14 00 02 00 0f 00 02 00";
const char PORT_DEFAULTS[] = "00 00 00 00 80 00 00 01 02 00 00 00";
const char IS_POAG[] = "((poag) > 0 && (poag) <= (((6) * 1)) + ((3 * 1)+(0 )))";
const char IS_PORTNO[] = "portno == 0 || ((portno) <= (((6) * 1)))";

} // namespace

// ---- defaults ---------------------------------------------------------------------------

TEST_F(config, defaults)
{
    current_stpm = &lvt_rstp_vars.bridge;
    current_port = &record(1);
    lvt_rstp_vars.time = 5;
    lvt_rstp_reset_config();

    EXPECT_EQ(lvt_rstp_vars.initialised, 1);
    EXPECT_EQ(octets_of(lvt_rstp_vars.config), SYSTEM_DEFAULTS);
    EXPECT_EQ(lvt_rstp_vars.time, 0);
    EXPECT_EQ(lvt_rstp_vars.bridges, nullptr);
    EXPECT_EQ(lvt_rstp_vars.default_vlan, nullptr);
    EXPECT_EQ(lvt_rstp_vars.free_bridges, &lvt_rstp_vars.bridge);
    EXPECT_EQ(lvt_rstp_vars.bridge.next, nullptr);
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(current_port, nullptr);
    for (uint32_t l2port = 1; l2port <= 9; l2port++) {
        const port_t &port = record(l2port);
        EXPECT_EQ(port.port_number, l2port);
        EXPECT_EQ(octets_of(port.config), PORT_DEFAULTS);
        EXPECT_EQ(port.stpEnabled, l2port <= 6) << l2port;
        EXPECT_EQ(port.nonStp, l2port >= 7) << l2port;
        EXPECT_EQ(lvt_rstp_vars.by_l2port[l2port - 1], &port);
        EXPECT_EQ(port.owner, nullptr);
        EXPECT_EQ(port.hw_state, 0);
        EXPECT_EQ(hex(port.mac), "00 00 00 00 00 00");
    }
    for (uint32_t port = 1; port <= 6; port++)
        EXPECT_EQ(lvt_rstp_vars.representative[port - 1], &record(port));
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(config, any_call_before_the_start_applies_the_defaults)
{
    lvt_rstp_system_config_t system;
    lvt_rstp_get_config(&system);
    EXPECT_EQ(octets_of(system), SYSTEM_DEFAULTS);

    lvt_rstp_vars = {};
    lvt_rstp_port_config_t port;
    lvt_rstp_get_portconfig(3, &port);
    EXPECT_EQ(octets_of(port), PORT_DEFAULTS);

    lvt_rstp_vars = {};
    lvt_rstp_set_config(&OTHER_SYSTEM);
    EXPECT_EQ(record(9).config.port_priority, 128);
    EXPECT_EQ(octets_of(lvt_rstp_vars.config), octets_of(OTHER_SYSTEM));

    lvt_rstp_vars = {};
    lvt_rstp_set_portconfig(2, &OTHER_PORT);
    EXPECT_EQ(octets_of(lvt_rstp_vars.config), SYSTEM_DEFAULTS);
    EXPECT_EQ(octets_of(record(1).config), PORT_DEFAULTS);
    EXPECT_EQ(octets_of(record(2).config), octets_of(OTHER_PORT));
    EXPECT_EQ(record(2).nonStp, 0); // applied, although no bridge is there
    EXPECT_EQ(record(2).port_id, 16 << 8 | 2);

    lvt_rstp_vars = {};
    lvt_rstp_port_config_t out = {};
    lvt_rstp_port_config_init(0, &out);
    EXPECT_EQ(octets_of(out), PORT_DEFAULTS);

    lvt_rstp_vars = {};
    lvt_rstp_aggr_del(7);
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], nullptr);
}

TEST_F(config, every_operation_applies_the_defaults_first)
{
    static const uint8_t members[] = {0, 1, 0, 0, 0, 0, 0};
    static lvt_rstp_system_config_t system = OTHER_SYSTEM;
    static lvt_rstp_port_config_t port = OTHER_PORT;
    static lvt_rstp_bridge_status_t bridge_status;
    static lvt_rstp_port_status_t port_status;
    const std::pair<const char *, void (*)()> operations[] = {
        {"init", [] { lvt_rstp_init(); }},
        {"reset_config", [] { lvt_rstp_reset_config(); }},
        {"set_config", [] { lvt_rstp_set_config(&system); }},
        {"get_config", [] { lvt_rstp_get_config(&system); }},
        {"set_portconfig", [] { lvt_rstp_set_portconfig(1, &port); }},
        {"get_portconfig", [] { lvt_rstp_get_portconfig(0, &port); }},
        {"port_config_init", [] { lvt_rstp_port_config_init(0, &port); }},
        {"port_enable_get", [] { lvt_port_enable_rstp_get(0); }},
        {"aggr_enable_get", [] { lvt_rstp_aggr_enable_get(); }},
        {"port_is_aggregated", [] { lvt_rstp_port_is_aggregated(0); }},
        {"set_mcheck", [] { lvt_rstp_set_mcheck(1); }},
        {"vlan_add", [] { lvt_rstp_vlan_add(2, members); }},
        {"vlan_del", [] { lvt_rstp_vlan_del(2); }},
        {"receive", [] { lvt_rstp_receive(1, members, 0); }},
        {"tick", [] { lvt_rstp_tick(); }},
        {"aggr_add", [] { lvt_rstp_aggr_add(7, members); }},
        {"aggr_del", [] { lvt_rstp_aggr_del(7); }},
        {"get_bridge_status", [] { lvt_rstp_get_bridge_status(0, &bridge_status); }},
        {"get_port_status", [] { lvt_rstp_get_port_status(9, &port_status); }},
    };
    for (const auto &[name, call] : operations) {
        lvt_rstp_vars = {};
        call();
        EXPECT_EQ(lvt_rstp_vars.initialised, 1) << name;
        EXPECT_EQ(record(9).port_number, 9u) << name;
    }
    close(port_mux_fd);
    port_mux_fd = -1;

    // What only reads does not.
    lvt_rstp_vars = {};
    lvt_rstp_system_config_init(&system);
    EXPECT_EQ(octets_of(system), "00 00 00 00 00 00 00 00 00 00");
    lvt_rstp_read_bridge_status(&bridge_status);
    lvt_rstp_read_port_status(1, &port_status);
    EXPECT_EQ(lvt_rstp_vars.initialised, 0);
}

TEST_F(config, settings_from_before_the_start_are_kept)
{
    lvt_rstp_set_config(&OTHER_SYSTEM);
    lvt_rstp_set_portconfig(2, &OTHER_PORT);
    boot({2});
    EXPECT_EQ(octets_of(lvt_rstp_vars.config), octets_of(OTHER_SYSTEM));
    EXPECT_EQ(octets_of(record(2).config), octets_of(OTHER_PORT));
    EXPECT_EQ(lvt_rstp_vars.default_vlan->BrId.prio, 4096);
}

// ---- start ------------------------------------------------------------------------------

TEST_F(config, start_writes_the_same_whatever_the_links)
{
    for (const uint32_t word : {0u, LINK_1000_FULL}) {
        lvt_rstp_vars = {};
        memset(cached_fwdstates, 0, sizeof cached_fwdstates);
        std::fill(std::begin(board.link_words), std::end(board.link_words), word);
        sw_cfg_trap_bypassVlan_rstp_set_api(1);
        const uint8_t all = 0xFF;
        lvt_port_status_update(&all);
        EXPECT_EQ(lvt_rstp_init(), 0);
        EXPECT_EQ(board_log(), boot_log());
        for (uint32_t port = 1; port <= 6; port++) {
            EXPECT_EQ(cached_fwdstates[port], 1);
            EXPECT_EQ(cached_stpstates[port], 4);
            EXPECT_EQ(record(port).hw_state, 5);
            EXPECT_EQ(board_port_state(port), 4u);
            EXPECT_EQ(hex(record(port).mac), word ? "00 11 22 33 44 5" + std::to_string(port) : "00 00 00 00 00 00");
        }
        close(port_mux_fd);
    }
    port_mux_fd = -1;
}

TEST_F(config, start_of_ports_with_spanning_tree)
{
    lvt_rstp_port_config_t on = LVT_RSTP_PORT_DEFAULTS;
    on.adminEnable = 1;
    lvt_rstp_set_portconfig(1, &on);
    lvt_rstp_set_portconfig(2, &on);
    board.link_words[0] = LINK_1000_FULL;
    const uint8_t all = 0xFF;
    lvt_port_status_update(&all);
    EXPECT_EQ(lvt_rstp_init(), 0);

    // Port 1 has link: forwarding on, discarding, and a flush with the link. Port 2 has none: the
    // first code is 0, which its record has already.
    log_t log = state_written(1, 4) + state_written(1, 1) + log_t{"flush"} + state_written(2, 4);
    for (uint32_t port = 3; port <= 6; port++)
        log = log + state_written(port, 4) + state_written(port, 4);
    EXPECT_EQ(log_t(log + log_t{"flush"}), [] {
        log_t seen = board_log();
        seen.resize(std::find(seen.rbegin(), seen.rend(), "mux 6 1").base() - seen.begin() + 1);
        return seen;
    }());
    EXPECT_EQ(record(1).hw_state, 1);
}

TEST_F(config, start_leaves_lacp_ports_to_lacp)
{
    const uint8_t lacp[] = {1, 0, 0, 0, 0, 0};
    lvt_rstp_lacp_enable_set(lacp);
    lvt_rstp_init();
    const log_t log = board_log();
    EXPECT_EQ(log_t(log.begin(), log.begin() + 4), state_written(1, 4) + state_written(2, 4));
    EXPECT_EQ(record(1).hw_state, 5);
}

TEST_F(config, start_without_a_multiplexer)
{
    unlink(path("port_mux_if_pipe").c_str());
    boot();
    EXPECT_EQ(port_mux_fd, -1);
    EXPECT_EQ(board_port_state(6), 4u);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->admin_state, 1);
}

TEST_F(config, start_opens_the_multiplexers_pipe_without_blocking)
{
    std::vector<std::string> opened;
    board.on_open = [&](const std::string &name) { opened.push_back(name); };
    boot();
    EXPECT_THAT(opened, ElementsAre("/tmp/port_mux_if_pipe"));
    EXPECT_EQ(fcntl(port_mux_fd, F_GETFL) & (O_ACCMODE | O_NONBLOCK), O_RDWR | O_NONBLOCK);
}

TEST_F(config, the_bridge_after_the_start)
{
    boot({1, 2});
    const stpm_t *bridge = lvt_rstp_vars.default_vlan;
    ASSERT_EQ(bridge, &lvt_rstp_vars.bridge);
    EXPECT_EQ(lvt_rstp_vars.bridges, bridge);
    EXPECT_EQ(lvt_rstp_vars.free_bridges, nullptr);
    EXPECT_EQ(bridge->vlan_id, 1);
    EXPECT_EQ(bridge->admin_state, 1);
    EXPECT_EQ(bridge->BrId.prio, 32768);
    EXPECT_EQ(hex(bridge->BrId.addr), "00 11 22 33 44 50");
    EXPECT_EQ(bridge->BrTimes.MaxAge, 20);
    EXPECT_EQ(bridge->BrTimes.HelloTime, 2);
    EXPECT_EQ(bridge->BrTimes.ForwardDelay, 15);

    const port_t *port = bridge->ports;
    for (uint32_t l2port = 9; l2port >= 1; l2port--, port = port->next) {
        ASSERT_EQ(port, &record(l2port)); // attached 1 to 9, newest first
        EXPECT_EQ(port->owner, bridge);
        EXPECT_EQ(port->role, ROLE_NON_STP) << l2port;
        EXPECT_EQ(port->selectedRole, ROLE_NON_STP);
        EXPECT_EQ(port->nonStp, 1);
        EXPECT_EQ(port->learn, 1);
        EXPECT_EQ(port->forward, 1);
        EXPECT_EQ(port->portEnabled, l2port <= 2);
        EXPECT_EQ(port->roletrns.State, STP_BEGIN);
    }
    EXPECT_EQ(port, nullptr);
    EXPECT_EQ(current_stpm, nullptr); // one unit did it: no port takes part
    EXPECT_EQ(bridge->timeSinceTc, 1);
}

TEST_F(config, start_assertions)
{
    lvt_rstp_reset_config();
    record(3).port_number = 4;
    EXPECT_DEATH(lvt_rstp_init(),
                 testing::AllOf(HasSubstr("lvt_rstp:"), HasSubstr(": rstp_hw_init: Assertion "
                                                                  "`pp->port_number == pix' failed.")));
    lvt_rstp_reset_config();
    lvt_rstp_vars.free_bridges = nullptr;
    EXPECT_DEATH(lvt_rstp_init(),
                 testing::AllOf(HasSubstr("lvt_rstp:"), HasSubstr(": rstp_hw_init: Assertion `this' failed.")));
}

// ---- bridge settings --------------------------------------------------------------------

TEST_F(config, bridge_settings_are_applied)
{
    boot();
    EXPECT_EQ(lvt_rstp_set_config(&OTHER_SYSTEM), 0);
    const stpm_t *bridge = lvt_rstp_vars.default_vlan;
    EXPECT_EQ(bridge->BrId.prio, 4096); // steps of 4096
    EXPECT_EQ(bridge->BrTimes.MaxAge, 30);
    EXPECT_EQ(bridge->BrTimes.HelloTime, 1);
    EXPECT_EQ(bridge->BrTimes.ForwardDelay, 21);
    lvt_rstp_system_config_t out;
    lvt_rstp_get_config(&out);
    EXPECT_EQ(octets_of(out), octets_of(OTHER_SYSTEM)); // stored as they came
    out = {};
    lvt_rstp_system_config_init(&out);
    EXPECT_EQ(octets_of(out), octets_of(OTHER_SYSTEM));
}

TEST_F(config, bridge_priority_keeps_the_vlan_part)
{
    boot();
    lvt_rstp_vars.default_vlan->BrId.prio = 0xF123;
    lvt_rstp_set_config(&OTHER_SYSTEM);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->BrId.prio, 0x1123);
}

TEST_F(config, bridge_times_have_eight_bits)
{
    boot();
    lvt_rstp_system_config_t wide = OTHER_SYSTEM;
    wide.max_age = 0x114;
    wide.hello_time = 0x100;
    wide.forward_delay = 0xFFFF;
    lvt_rstp_set_config(&wide);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->BrTimes.MaxAge, 0x14);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->BrTimes.HelloTime, 0);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->BrTimes.ForwardDelay, 0xFF);
}

TEST_F(config, bridge_settings_neither_finish_nor_start_a_pass)
{
    boot({1, 2});
    send_enabled({1, 2});
    port_t *const pending = current_port;
    ASSERT_NE(pending, nullptr);
    lvt_rstp_set_config(&OTHER_SYSTEM);
    EXPECT_EQ(current_port, pending);
    EXPECT_EQ(current_stpm, lvt_rstp_vars.default_vlan);

    lvt_rstp_run_pending();
    const uint16_t passes = lvt_rstp_vars.default_vlan->timeSinceTc;
    lvt_rstp_set_config(&LVT_RSTP_SYSTEM_DEFAULTS);
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->timeSinceTc, passes);
}

TEST_F(config, bridge_settings_ask_ports_that_take_part)
{
    boot({1, 2});
    send_enabled({1});
    seconds(2);
    for (uint32_t l2port : {1u, 2u}) {
        record(l2port).reselect = 0;
        record(l2port).selected = 1;
        record(l2port).rstpVersion = 0;
    }
    lvt_rstp_system_config_t changed = OTHER_SYSTEM;
    changed.force_version = 2;
    lvt_rstp_set_config(&changed);
    EXPECT_EQ(record(1).reselect, 1);
    EXPECT_EQ(record(1).selected, 0);
    EXPECT_EQ(record(1).rstpVersion, 1);
    EXPECT_EQ(record(2).reselect, 0); // stands outside
    EXPECT_EQ(record(2).selected, 1);
    EXPECT_EQ(record(2).rstpVersion, 0);

    changed.force_version = 1;
    lvt_rstp_set_config(&changed);
    EXPECT_EQ(record(1).rstpVersion, 0);
}

TEST_F(config, unchanged_bridge_settings_do_nothing)
{
    boot({1});
    send_enabled({1});
    seconds(2);
    record(1).reselect = 0;
    record(1).selected = 1;
    EXPECT_EQ(lvt_rstp_set_config(&LVT_RSTP_SYSTEM_DEFAULTS), 0);
    EXPECT_EQ(record(1).reselect, 0);
    EXPECT_EQ(record(1).selected, 1);

    lvt_rstp_system_config_t reserved = LVT_RSTP_SYSTEM_DEFAULTS;
    reserved.reserved = 1; // compared as a whole
    lvt_rstp_set_config(&reserved);
    EXPECT_EQ(record(1).reselect, 1);
}

// ---- port settings ----------------------------------------------------------------------

TEST_F(config, port_settings_concern_one_port)
{
    boot();
    EXPECT_EQ(lvt_rstp_set_portconfig(6, &OTHER_PORT), 0);
    for (uint32_t l2port = 1; l2port <= 9; l2port++)
        EXPECT_EQ(octets_of(record(l2port).config), l2port == 6 ? octets_of(OTHER_PORT) : PORT_DEFAULTS) << l2port;
    EXPECT_EQ(record(6).port_id, 0x1006);
    EXPECT_EQ(record(6).operEdge, 0);
    EXPECT_EQ(record(6).nonStp, 0);
    EXPECT_EQ(record(6).rstpVersion, 1);
    EXPECT_EQ(record(6).p2pRecompute, 1);
}

TEST_F(config, port_0_stands_for_the_groups)
{
    boot();
    EXPECT_EQ(lvt_rstp_set_portconfig(0, &OTHER_PORT), 0);
    for (uint32_t l2port = 1; l2port <= 9; l2port++)
        EXPECT_EQ(octets_of(record(l2port).config), l2port >= 7 ? octets_of(OTHER_PORT) : PORT_DEFAULTS) << l2port;
    for (uint32_t group = 7; group <= 9; group++) {
        EXPECT_EQ(record(group).nonStp, 1); // not formed
        EXPECT_EQ(record(group).role, ROLE_NON_STP);
        EXPECT_EQ(record(group).hw_state, 5);
    }
    EXPECT_THAT(board_log(), IsEmpty()); // no members
}

TEST_F(config, port_settings_are_read_back)
{
    boot();
    lvt_rstp_set_portconfig(2, &OTHER_PORT);
    lvt_rstp_port_config_t out;
    lvt_rstp_get_portconfig(2, &out);
    EXPECT_EQ(octets_of(out), octets_of(OTHER_PORT));
    lvt_rstp_get_portconfig(0, &out);
    EXPECT_EQ(octets_of(out), PORT_DEFAULTS);
    record(7).config.port_priority = 0x77;
    lvt_rstp_get_portconfig(0, &out);
    EXPECT_EQ(out.port_priority, 0x77);
}

TEST_F(config, port_config_init_leaves_the_path_cost)
{
    boot();
    lvt_rstp_set_portconfig(2, &OTHER_PORT);
    lvt_rstp_port_config_t out;
    memset(&out, 0xEE, sizeof out);
    lvt_rstp_port_config_init(1, &out);
    EXPECT_EQ(octets_of(out), "ee ee ee ee 10 00 01 00 01 ee ee ee");
    record(9).config.adminEdge = 5;
    lvt_rstp_port_config_init(8, &out);
    EXPECT_EQ(out.adminEdge, 5);
}

TEST_F(config, unchanged_port_settings_do_nothing)
{
    boot({1});
    send_enabled({1});
    lvt_rstp_run_pending();
    board_log();
    EXPECT_EQ(lvt_rstp_set_portconfig(1, &ports[1]), 0);
    EXPECT_EQ(lvt_rstp_set_portconfig(2, &ports[2]), 0);
    EXPECT_EQ(lvt_rstp_set_portconfig(0, &LVT_RSTP_PORT_DEFAULTS), 0);
    EXPECT_EQ(current_stpm, nullptr); // no pass
    EXPECT_THAT(board_log(), IsEmpty());

    lvt_rstp_port_config_t reserved = ports[1];
    reserved.reserved[2] = 1; // compared as a whole
    lvt_rstp_set_portconfig(1, &reserved);
    EXPECT_NE(current_stpm, nullptr);
}

TEST_F(config, settings_of_each_group_wait_for_the_pass_of_the_one_before)
{
    boot({1, 2});
    lvt_rstp_port_config_t settings = LVT_RSTP_PORT_DEFAULTS;
    settings.adminEnable = 1;
    send_group_settings(settings);
    send_groups({0, 7, 8, 3, 4, 5, 6});
    seconds(1);
    ASSERT_EQ(record(8).pathCost, 20000u);
    settings.adminPathCost = 99;
    record(9).config = settings; // the last group has them already
    lvt_rstp_set_portconfig(0, &settings);
    EXPECT_EQ(record(8).pathCost, 20000u); // not seen by the pass that group 7 began
    lvt_rstp_run_pending();
    EXPECT_EQ(record(8).pathCost, 99u);
}

TEST_F(config, port_settings_finish_pending_work_even_when_unchanged)
{
    boot({1, 2});
    send_enabled({1, 2});
    ASSERT_NE(current_stpm, nullptr);
    lvt_rstp_set_portconfig(1, &ports[1]);
    EXPECT_EQ(current_stpm, nullptr);
}

TEST_F(config, first_enabling_takes_the_port_through_its_states)
{
    boot({1});
    board_log();
    lvt_rstp_port_config_t on = LVT_RSTP_PORT_DEFAULTS;
    on.adminEnable = 1;
    lvt_rstp_set_portconfig(1, &on);
    EXPECT_THAT(board_log(), IsEmpty()); // its pass begins at the head of the list
    lvt_rstp_run_pending();
    EXPECT_EQ(board_chip_log(),
              log_t{"flush"} + state_written(1, 1) + state_written(1, 3) + log_t{"flush"} + state_written(1, 1));
    EXPECT_EQ(record(1).role, ROLE_DISABLED);
    EXPECT_EQ(record(1).nonStp, 0);
}

TEST_F(config, disabling_writes_at_once_and_freezes)
{
    boot({1});
    send_enabled({1});
    seconds(10); // a host's port: it forwards
    ASSERT_EQ(board_port_state(1), 4u);
    ASSERT_EQ(record(1).role, ROLE_DESIGNATED);
    board_log();

    lvt_rstp_set_portconfig(1, &LVT_RSTP_PORT_DEFAULTS);
    EXPECT_EQ(board_log(), state_written(1, 4)); // code 5 was asked for, spanning tree is off: 4
    EXPECT_EQ(record(1).hw_state, 5);
    EXPECT_EQ(record(1).role, ROLE_NON_STP);
    EXPECT_EQ(record(1).selectedRole, ROLE_NON_STP);

    record(1).helloWhen = 2;
    record(1).fdWhile = 9;
    const rstpstate_t states[] = {record(1).roletrns.State, record(1).sttrans.State, record(1).edge.State};
    seconds(20);
    EXPECT_EQ(record(1).helloWhen, 2);
    EXPECT_EQ(record(1).fdWhile, 9);
    EXPECT_EQ(record(1).roletrns.State, states[0]);
    EXPECT_EQ(record(1).sttrans.State, states[1]);
    EXPECT_EQ(record(1).edge.State, states[2]);
    EXPECT_THAT(board_log(), IsEmpty());

    lvt_rstp_port_config_t on = LVT_RSTP_PORT_DEFAULTS;
    on.adminEnable = 1;
    lvt_rstp_set_portconfig(1, &on);
    lvt_rstp_run_pending();
    EXPECT_THAT(board_chip_log(), IsEmpty()); // enabling again writes nothing
    seconds(3);
    EXPECT_THAT(board_chip_log(), IsEmpty());
    EXPECT_EQ(record(1).role, ROLE_DESIGNATED);
}

TEST_F(config, disabling_a_discarding_port_lets_it_forward)
{
    boot({1});
    send_enabled({1});
    seconds(1);
    ASSERT_EQ(board_port_state(1), 1u);
    board_log();
    lvt_rstp_set_portconfig(1, &LVT_RSTP_PORT_DEFAULTS);
    EXPECT_EQ(board_log(), state_written(1, 4));
}

TEST_F(config, portno_assertions)
{
    boot();
    lvt_rstp_port_config_t out;
    for (uint32_t portno : {7u, 9u, 0xFFFFFFFFu}) {
        EXPECT_DEATH(lvt_rstp_set_portconfig(portno, &OTHER_PORT),
                     testing::AllOf(HasSubstr("lvt_rstp:"), HasSubstr(": lvt_rstp_set_portconfig: Assertion `" +
                                                                      std::string(IS_PORTNO) + "' failed.")));
        EXPECT_DEATH(lvt_rstp_get_portconfig(portno, &out),
                     testing::AllOf(HasSubstr("lvt_rstp:"), HasSubstr(": lvt_rstp_get_portconfig: Assertion `" +
                                                                      std::string(IS_PORTNO) + "' failed.")));
    }
}

// ---- small questions --------------------------------------------------------------------

TEST_F(config, enable_octets)
{
    boot();
    record(1).config.adminEnable = 3;
    record(7).config.adminEnable = 4;
    record(8).config.adminEnable = 5;
    record(9).config.adminEnable = 6;
    EXPECT_EQ(lvt_port_enable_rstp_get(0), 3);
    EXPECT_EQ(lvt_port_enable_rstp_get(1), 0);
    EXPECT_EQ(lvt_port_enable_rstp_get(8), 6);
    EXPECT_EQ(lvt_rstp_aggr_enable_get(), 4);
}

TEST_F(config, aggregated_ports)
{
    boot();
    lvt_rstp_vars.representative[2] = &record(9);
    for (uint32_t index = 0; index < 10; index++)
        EXPECT_EQ(lvt_rstp_port_is_aggregated(index), index == 2) << index;
}

TEST_F(config, lacp_table)
{
    const uint8_t lacp[] = {1, 0, 2, 0, 255, 4};
    lvt_rstp_lacp_enable_set(lacp);
    for (uint32_t index = 0; index < 6; index++)
        EXPECT_EQ(lvt_rstp_lacp_enable_port_check(index), lacp[index]);
}

TEST_F(config, mcheck)
{
    boot({1, 2});
    send_enabled({1, 2});
    for (uint32_t poag = 1; poag <= 9; poag++) {
        record(poag).rstpVersion = 0;
        record(poag).reselect = 0;
        record(poag).selected = 1;
        STP_stpm_update_after_bridge_management(lvt_rstp_vars.default_vlan);
        lvt_rstp_set_mcheck(poag);
        EXPECT_EQ(record(poag).rstpVersion, 1) << poag;
        EXPECT_EQ(record(poag).reselect, 1);
        EXPECT_EQ(record(poag).selected, 0);
        EXPECT_EQ(current_stpm, nullptr); // pending work was finished, none begun
    }
}

TEST_F(config, mcheck_makes_a_port_speak_rstp_again)
{
    boot({1});
    send_enabled({1});
    seconds(5);
    send_bpdu(1, frame_of({.type = 0x00, .version = 0, .flags = 0, .root = id_of(40000, 0x11)}));
    lvt_rstp_run_pending();
    ASSERT_EQ(record(1).sendRSTP, 0);
    lvt_rstp_set_mcheck(1);
    EXPECT_EQ(record(1).sendRSTP, 0); // at the next evaluation
    seconds(1);
    EXPECT_EQ(record(1).sendRSTP, 1);
    EXPECT_EQ(record(1).rstpVersion, 0); // the request is used up
}

TEST_F(config, mcheck_assertion)
{
    boot();
    for (uint32_t poag : {0u, 10u})
        EXPECT_DEATH(lvt_rstp_set_mcheck(poag), HasSubstr(assertion("lvt_rstp:743", "lvt_rstp_set_mcheck", IS_POAG)));
}

// ---- status -----------------------------------------------------------------------------

TEST_F(config, bridge_status)
{
    boot({1, 2, 3});
    send_enabled({1, 2, 3});
    seconds(1);
    send_bpdu(2, frame_of({.root = id_of(0x7123, 0x11), .cost = 5, .bridge = id_of(0x7123, 0x11)}));
    ASSERT_NE(current_stpm, nullptr);

    lvt_rstp_bridge_status_t status;
    memset(&status, 0xEE, sizeof status);
    EXPECT_EQ(lvt_rstp_get_bridge_status(0, &status), 0);
    EXPECT_EQ(current_stpm, nullptr); // pending work is finished first
    EXPECT_EQ(status.admin_enabled, 1);
    EXPECT_EQ(status.vlan_id, 1);
    EXPECT_EQ(status.bridge.prio, 32768);
    EXPECT_EQ(status.designated_root.prio, 0x70); // (0x7123 & 0xF000) >> 8
    EXPECT_EQ(status.designated_root_vlan, 0x123);
    EXPECT_EQ(hex(status.designated_root.addr), "02 00 00 00 00 11");
    EXPECT_EQ(status.root_cost, 20005u);
    EXPECT_EQ(status.root_port, 0x8002u);
    EXPECT_EQ(status.root_times.MaxAge, 20);
    EXPECT_EQ(status.root_times.MessageAge, 1);
    EXPECT_EQ(status.num_active_ports, 3u);
    EXPECT_EQ(status.secs_since_last_tc, lvt_rstp_vars.time - lvt_rstp_vars.bridge.timeSinceTc);
    EXPECT_LT(status.secs_since_last_tc, 0); // more passes than seconds
}

TEST_F(config, bridge_status_counts_ports_with_a_role)
{
    boot({1, 2, 3});
    send_enabled({1, 2, 4}); // 4 has no link
    seconds(2);
    lvt_rstp_bridge_status_t status;
    lvt_rstp_get_bridge_status(0, &status);
    EXPECT_EQ(record(4).role, ROLE_DISABLED);
    EXPECT_EQ(status.num_active_ports, 2u);
}

TEST_F(config, bridge_status_without_a_bridge)
{
    lvt_rstp_bridge_status_t status;
    memset(&status, 0xEE, sizeof status);
    lvt_rstp_get_bridge_status(0, &status);
    EXPECT_EQ(status.admin_enabled, 0);
    EXPECT_EQ(status.vlan_id, 0);
    EXPECT_EQ(status.num_active_ports, 0u);
    EXPECT_EQ(status.root_port, 0u);
}

TEST_F(config, bridge_status_has_one_vlan)
{
    lvt_rstp_bridge_status_t status;
    EXPECT_DEATH(lvt_rstp_get_bridge_status(1, &status),
                 testing::AllOf(HasSubstr("lvt_rstp:"), HasSubstr("Assertion `vlan_index < 1' failed.")));
}

TEST_F(config, port_status_of_a_port_outside)
{
    boot({1});
    record(1).operEdge = 0;
    record(1).operPointToPoint = 0;
    record(1).sendRSTP = 0;
    record(1).config.adminEdge = 7;
    lvt_rstp_port_status_t status;
    for (const lvt_rstp_port_role_t role : {ROLE_NON_STP, ROLE_DISABLED}) {
        record(1).role = role;
        record(1).forwarding = 1;
        record(1).learning = 1;
        for (uint8_t p2p : {0, 1, 2, 9}) {
            record(1).config.adminPointToPoint = p2p;
            EXPECT_EQ(lvt_rstp_get_port_status(1, &status), 0);
            EXPECT_EQ(status.role, role);
            EXPECT_EQ(status.state, role);
            EXPECT_EQ(status.is_p2p, p2p != 1) << int{p2p};
            EXPECT_EQ(status.is_edge, 7);
            EXPECT_EQ(status.stp_neigb, 0);
            EXPECT_EQ(status.part_of_aggr, 0u);
        }
    }
}

TEST_F(config, port_status_of_a_port_in_the_tree)
{
    boot({1});
    lvt_rstp_port_status_t status;
    port_t &port = record(1);
    port.config.adminEdge = 7;
    for (const lvt_rstp_port_role_t role : {ROLE_ALTERNATE, ROLE_BACKUP, ROLE_ROOT, ROLE_DESIGNATED}) {
        port.role = role;
        const struct {
            uint8_t learning, forwarding, state;
        } rows[] = {{0, 0, 1}, {1, 0, 3}, {1, 1, 4}, {0, 1, 4}};
        for (const auto &row : rows) {
            port.learning = row.learning & 1;
            port.forwarding = row.forwarding & 1;
            lvt_rstp_get_port_status(1, &status);
            EXPECT_EQ(status.role, role);
            EXPECT_EQ(status.state, row.state);
        }
        for (uint8_t on : {0, 1}) {
            port.operEdge = on & 1;
            port.operPointToPoint = on & 1;
            port.sendRSTP = on & 1;
            port.config.adminPointToPoint = on; // not asked here
            lvt_rstp_get_port_status(1, &status);
            EXPECT_EQ(status.is_edge, on);
            EXPECT_EQ(status.is_p2p, on);
            EXPECT_EQ(status.stp_neigb, !on);
        }
    }
}

TEST_F(config, port_status_finishes_pending_work)
{
    boot({1, 2});
    send_enabled({1, 2});
    ASSERT_NE(current_stpm, nullptr);
    lvt_rstp_port_status_t status;
    lvt_rstp_get_port_status(1, &status);
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(status.stp_viewable, 1);
    lvt_rstp_get_port_status(3, &status);
    EXPECT_EQ(status.stp_viewable, 0); // spanning tree is off
}

// ---- the daemon's copies ----------------------------------------------------------------

TEST_F(config, mirrors_are_loaded_one_record_off_without_path_costs)
{
    lvt_rstp_reset_config();
    for (uint32_t l2port = 1; l2port <= 9; l2port++)
        record(l2port).config = {.adminPathCost = 1000 + l2port,
                                 .port_priority = static_cast<uint16_t>(l2port * 16),
                                 .adminEnable = 1,
                                 .adminEdge = 0,
                                 .adminPointToPoint = 1,
                                 .reserved = {}};
    lvt_rstp_vars.config = OTHER_SYSTEM;
    rstp_global_conf_init();
    EXPECT_EQ(octets_of(rstp_system_config), octets_of(OTHER_SYSTEM));
    for (uint32_t i = 0; i < 7; i++) {
        EXPECT_EQ(rstp_port_config[i].port_priority, (i + 1) * 16);
        EXPECT_EQ(rstp_port_config[i].adminPathCost, 0u);
        EXPECT_EQ(rstp_port_config[i].adminEnable, 1);
        EXPECT_EQ(rstp_port_config[i].adminPointToPoint, 1);
    }
}

TEST_F(config, mirrors_after_the_start)
{
    boot();
    EXPECT_EQ(octets_of(rstp_system_config), SYSTEM_DEFAULTS);
    for (const lvt_rstp_port_config_t &mirror : rstp_port_config)
        EXPECT_EQ(octets_of(mirror), PORT_DEFAULTS);
}
