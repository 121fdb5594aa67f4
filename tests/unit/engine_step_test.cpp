// Stepping: sweeps over a port's machines, units of a pass, and the counters of a pass.
#include "engine_table.h"

namespace {

using names_t = std::vector<std::string>;

names_t machines_that_moved()
{
    names_t names;
    for (const move_t &move : world_now().moves)
        names.push_back(move.machine);
    return names;
}

// ---- one sweep --------------------------------------------------------------------------

class sweep : public machine_test {
protected:
    /// All machines of the port in states that they leave for a reason only.
    sweep()
    {
        port->infoIs = INFO_IS_DISABLED;
        port->info.State = INFO_DISABLED;
        port->roletrns.State = ROLETRNS_BLOCKED_PORT;
        port->sttrans.State = STTRANS_DISCARDING;
        port->topoch.State = TOPOCH_INACTIVE;
        port->initPm = 1;
        port->migrate.State = MIGRATE_INIT;
        port->helloWhen = 1;
        port->transmit.State = TRANSMIT_IDLE;
        port->p2p.State = P2P_STABLE;
        port->edge.State = EDGE_DISABLED;
        port->pcost.State = PCOST_STABLE;
    }
};

TEST_F(sweep, is_quiet_when_no_machine_moves)
{
    const records_t before = world.records;
    EXPECT_EQ(STP_port_sweep(port), 0u);
    EXPECT_TRUE(same_records(before, world.records));
    EXPECT_TRUE(world.actions.empty());
}

TEST_F(sweep, checks_all_nine_in_their_order)
{
    for (const stp_machine_t &machine : STP_port_machines)
        (port->*machine.mach).State = STP_BEGIN;
    EXPECT_NE(STP_port_sweep(port), 0u);
    EXPECT_EQ(machines_that_moved(),
              (names_t{"transmit", "sttrans", "roletrns", "info", "pcost", "edge", "p2p", "migrate", "topoch"}));
}

TEST_F(sweep, enters_only_the_machines_that_moved)
{
    port->tcWhile = 9; // TCACTIVE stays; entering it anew would not show, entering INIT would
    port->p2pRecompute = 1;
    EXPECT_NE(STP_port_sweep(port), 0u);
    EXPECT_EQ(machines_that_moved(), names_t{"p2p"});
    EXPECT_EQ(port->p2pRecompute, 0);
    EXPECT_TRUE(world.actions.empty()) << "DISCARDING was entered again";
}

TEST_F(sweep, shows_an_entry_to_earlier_machines_in_the_next_sweep_only)
{
    port->portEnabled = 1;
    port->selected = 1;
    port->role = port->selectedRole = ROLE_DISABLED;
    port->fdWhile = 15;
    port->synced = 1;
    STP_port_sweep(port);
    EXPECT_EQ(port->edge.State, EDGE_DETECTED);
    EXPECT_EQ(port->edgeDetected, 1);
    EXPECT_EQ(port->info.State, INFO_DISABLED);
    EXPECT_EQ(port->migrate.State, MIGRATE_INIT);
    STP_port_sweep(port);
    EXPECT_EQ(port->info.State, INFO_ENABLED);
    EXPECT_EQ(port->migrate.State, MIGRATE_SEND_RSTP);
}

TEST_F(sweep, shows_an_entry_to_later_machines_in_the_next_sweep_only)
{
    port->sttrans.State = STTRANS_LEARNING;
    port->learn = port->forward = 1;
    port->role = ROLE_DESIGNATED;
    port->topoch.State = TOPOCH_TCACTIVE;
    STP_port_sweep(port);
    EXPECT_EQ(port->tc, 1);
    EXPECT_EQ(port->topoch.State, TOPOCH_TCACTIVE);
    STP_port_sweep(port);
    EXPECT_EQ(port->topoch.State, TOPOCH_DETECTED);
}

/// Two machines that move in one sweep and touch the same value; the later entry has the last word.
struct order_row_t {
    const char *label;
    change_t given;
    bool (*seen)(const port_t &port);
};

std::ostream &operator<<(std::ostream &out, const order_row_t &row) { return out << row.label; }

void transmits(port_t *p)
{
    p->role = p->selectedRole = ROLE_ROOT;
    p->newInfo = p->sendRSTP = 1;
}

void forwards(port_t *p)
{
    p->sttrans.State = STTRANS_LEARNING;
    p->learn = p->forward = 1;
}

void detects(port_t *p)
{
    p->role = p->selectedRole = ROLE_DESIGNATED;
    p->topoch.State = TOPOCH_TCACTIVE;
    p->tc = 1;
}

void hears(port_t *p, uint8_t info_state)
{
    p->edgeDetected = 1;
    p->infoIs = INFO_IS_RECEIVED;
    p->rcvdInfoWhile = 5;
    p->info.State = info_state;
}

const order_row_t entry_order[] = {
    {"transmit before roletrns",
     [](port_t *p) {
         transmits(p);
         p->selected = p->proposed = p->forward = 1;
         port_of(1)->synced = port_of(3)->synced = 1;
         p->roletrns.State = ROLETRNS_ROOT_PORT;
     },
     [](const port_t &p) { return p.newInfo == 1; }},
    {"transmit before info",
     [](port_t *p) {
         transmits(p);
         hears(p, INFO_AGED);
         p->selected = p->updtInfo = 1;
     },
     [](const port_t &p) { return p.newInfo == 1; }},
    {"transmit before sttrans",
     [](port_t *p) {
         transmits(p);
         forwards(p);
     },
     [](const port_t &) { return world_now().sent.at(0).octets[FLAGS_AT] == 0x08; }},
    {"sttrans before edge",
     [](port_t *p) {
         forwards(p);
         p->edge.State = EDGE_DELEAYED;
         p->config.adminEdge = 1;
     },
     [](const port_t &p) { return p.tc == 1; }},
    {"roletrns before info",
     [](port_t *p) {
         p->role = p->selectedRole = ROLE_DESIGNATED;
         p->selected = p->agreed = 1;
         p->roletrns.State = ROLETRNS_DESIGNATED_PORT;
         hears(p, INFO_RECEIVE);
         p->rcvdInfo = RCVD_SUPERIOR;
     },
     [](const port_t &p) { return p.synced == 0; }},
    {"roletrns before topoch",
     [](port_t *p) {
         p->role = ROLE_ROOT;
         p->selectedRole = ROLE_DESIGNATED;
         p->selected = p->rcvdTc = 1;
         p->topoch.State = TOPOCH_TCACTIVE;
     },
     [](const port_t &p) { return p.tcAck == 1; }},
    {"info before p2p",
     [](port_t *p) {
         hears(p, INFO_RECEIVE);
         p->rcvdInfo = RCVD_REPEATED;
         p->rcvdRole = 3;
         p->rcvdFlags = 0x02;
         p->p2pRecompute = 1;
     },
     [](const port_t &p) { return p.operPointToPoint == 1 && p.proposed == 0; }},
    {"info before migrate",
     [](port_t *p) {
         hears(p, INFO_CURRENT);
         p->rcvdMsg = 1;
         p->rcvdType = 2;
         p->migrate.State = MIGRATE_SENDING_RSTP;
         p->mdelayWhile = p->rcvdSTP = 1;
     },
     [](const port_t &p) { return p.rcvdRSTP == 0; }},
    {"info before topoch",
     [](port_t *p) {
         hears(p, INFO_CURRENT);
         p->rcvdMsg = p->tc = 1;
         p->rcvdFlags = 0x01;
     },
     [](const port_t &p) { return p.rcvdTc == 0; }},
    {"p2p before topoch",
     [](port_t *p) {
         detects(p);
         p->sendRSTP = p->p2pRecompute = 1;
     },
     [](const port_t &p) { return p.tcWhile == 4; }},
    {"migrate before topoch",
     [](port_t *p) {
         detects(p);
         p->sendRSTP = p->operPointToPoint = 1;
         p->migrate.State = MIGRATE_SENDING_RSTP;
         p->rcvdSTP = 1;
     },
     [](const port_t &p) { return p.tcWhile == 35; }},
};

class sweep_order : public sweep, public testing::WithParamInterface<order_row_t> {};

TEST_P(sweep_order, of_entries)
{
    GetParam().given(port);
    STP_port_sweep(port);
    EXPECT_GE(world.moves.size(), 2u) << "both machines have to move for the row to tell anything";
    EXPECT_TRUE(GetParam().seen(*port));
}

INSTANTIATE_TEST_SUITE_P(is, sweep_order, testing::ValuesIn(entry_order), label_of<order_row_t>);

// ---- units and passes -------------------------------------------------------------------

/// Ports that a unit has run since the last call: each port is given a task that shows.
class steps : public engine_test {
protected:
    void give_tasks()
    {
        world_forget();
        for (port_t &port : world.records.ports)
            port.p2pRecompute = 1;
    }

    std::vector<uint32_t> ports_run()
    {
        std::vector<uint32_t> ports;
        for (const move_t &move : world.moves)
            if (move.machine == "p2p" && move.to == "RECOMPUTE")
                ports.push_back(move.port);
        world_forget();
        return ports;
    }

    using ports_t = std::vector<uint32_t>;
};

TEST_F(steps, nothing_happens_at_rest)
{
    bridge_start({1, 2});
    give_tasks();
    lvt_rstp_more_work();
    lvt_rstp_run_pending();
    EXPECT_TRUE(world.moves.empty());
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(current_port, nullptr);
}

TEST_F(steps, update_runs_the_first_unit_only)
{
    stpm_t *bridge = bridge_start({1, 2, 3});
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(ports_run(), ports_t{3}) << "the newest port comes first";
    EXPECT_EQ(current_stpm, bridge);
    EXPECT_EQ(current_port, port_of(2));
}

TEST_F(steps, a_unit_is_one_port)
{
    stpm_t *bridge = bridge_start({1, 2, 3});
    give_tasks();
    STP_stpm_update();
    world_forget();
    lvt_rstp_more_work();
    EXPECT_EQ(ports_run(), ports_t{2});
    EXPECT_EQ(current_stpm, bridge);
    EXPECT_EQ(current_port, port_of(1));
    lvt_rstp_more_work();
    EXPECT_EQ(ports_run(), ports_t{1});
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(current_port, nullptr);
}

TEST_F(steps, a_unit_runs_its_port_to_rest)
{
    bridge_start({1});
    tick(5);
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(path_of(1, "p2p"), (names_t{"RECOMPUTE", "STABLE"}));
    EXPECT_EQ(STP_port_sweep(port_of(1)), 0u);
}

TEST_F(steps, run_pending_finishes_the_pass)
{
    bridge_start({1, 2, 3});
    give_tasks();
    STP_stpm_update();
    lvt_rstp_run_pending();
    EXPECT_EQ(ports_run(), (ports_t{3, 2, 1}));
    EXPECT_EQ(current_stpm, nullptr);
}

TEST_F(steps, update_finishes_the_pass_under_way_before_it_begins_another)
{
    stpm_t *bridge = bridge_start({1, 2, 3});
    const uint16_t passes = bridge->timeSinceTc;
    give_tasks();
    STP_stpm_update();
    port_of(3)->p2pRecompute = 1;
    STP_stpm_update();
    EXPECT_EQ(ports_run(), (ports_t{3, 2, 1, 3}));
    EXPECT_EQ(current_port, port_of(2));
    EXPECT_EQ(bridge->timeSinceTc, passes + 1);
}

TEST_F(steps, update_of_a_single_port_is_a_whole_pass)
{
    stpm_t *bridge = bridge_start({4});
    const uint16_t passes = bridge->timeSinceTc;
    STP_stpm_update();
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(bridge->timeSinceTc, passes + 1);
}

TEST_F(steps, ports_outside_the_tree_are_stepped_over)
{
    bridge_start({1, 2, 3, 4});
    for (const uint32_t number : {1, 3})
        port_of(number)->nonStp = 1;
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(ports_run(), ports_t{4});
    EXPECT_EQ(current_port, port_of(2));
    lvt_rstp_more_work();
    EXPECT_EQ(ports_run(), ports_t{2});
    EXPECT_EQ(current_stpm, nullptr) << "nothing is left but port 1, outside the tree";
}

TEST_F(steps, ports_that_the_adaptation_layer_took_out_are_stepped_over)
{
    bridge_start({1, 2, 3});
    port_of(2)->stpEnabled = 0;
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(current_port, port_of(1));
    lvt_rstp_run_pending();
    EXPECT_EQ(ports_run(), (ports_t{3, 1}));
}

TEST_F(steps, a_head_outside_the_tree_is_a_unit_without_work)
{
    bridge_start({1, 2, 3});
    port_of(3)->nonStp = 1;
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(ports_run(), ports_t{});
    EXPECT_EQ(current_port, port_of(2));
    lvt_rstp_run_pending();
    EXPECT_EQ(ports_run(), (ports_t{2, 1}));
}

TEST_F(steps, a_bridge_whose_ports_are_all_outside_the_tree_is_one_unit)
{
    stpm_t *bridge = bridge_start({1, 2});
    port_of(1)->nonStp = port_of(2)->nonStp = 1;
    const uint16_t passes = bridge->timeSinceTc;
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(ports_run(), ports_t{});
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(bridge->timeSinceTc, passes + 1);
}

TEST_F(steps, a_port_that_leaves_the_tree_under_the_cursor_is_not_run)
{
    bridge_start({1, 2, 3});
    give_tasks();
    STP_stpm_update();
    ASSERT_EQ(current_port, port_of(2));
    port_of(2)->nonStp = 1;
    lvt_rstp_run_pending();
    EXPECT_EQ(ports_run(), (ports_t{3, 1}));
}

TEST_F(steps, a_bridge_without_a_port_under_the_cursor_is_finished)
{
    stpm_t *bridge = bridge_start({1});
    const uint16_t passes = bridge->timeSinceTc;
    current_stpm = bridge;
    current_port = nullptr;
    lvt_rstp_more_work();
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(bridge->timeSinceTc, passes + 1);
}

TEST_F(steps, without_bridges_there_is_nothing_to_update)
{
    STP_stpm_update();
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(current_port, nullptr);
}

TEST_F(steps, bridges_follow_each_other_the_newest_first)
{
    stpm_t *older = bridge_start({1, 2});
    stpm_t *newer = bridge_create(1);
    newer->BrId.prio = 4096;
    port_attach(newer, 5);
    port_attach(newer, 6);
    ASSERT_EQ(STP_stpm_enable(newer, 1), 0);
    settle();

    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(current_stpm, newer);
    EXPECT_EQ(current_port, port_of(5));
    lvt_rstp_more_work();
    EXPECT_EQ(current_stpm, older);
    EXPECT_EQ(current_port, port_of(2));
    lvt_rstp_more_work();
    lvt_rstp_more_work();
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(ports_run(), (ports_t{6, 5, 2, 1}));
}

TEST_F(steps, bridges_without_ports_are_stepped_over)
{
    stpm_t *last = bridge_create(1);
    stpm_t *filled = bridge_start({1});
    stpm_t *first = bridge_create(2);
    for (stpm_t *empty : {first, last})
        empty->timeSinceTc = 100;
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(ports_run(), ports_t{1});
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_NE(filled->timeSinceTc, 0);
    EXPECT_EQ(first->timeSinceTc, 100);
    EXPECT_EQ(last->timeSinceTc, 100);
}

TEST_F(steps, a_disabled_bridge_is_walked_but_its_ports_do_not_run)
{
    stpm_t *bridge = bridge_start({1, 2});
    STP_stpm_enable(bridge, 0);
    const uint16_t passes = bridge->timeSinceTc;
    port_of(1)->reselect = 1;
    give_tasks();
    STP_stpm_update();
    EXPECT_EQ(current_stpm, bridge);
    EXPECT_EQ(current_port, port_of(1)) << "one port a unit all the same";
    lvt_rstp_more_work();
    EXPECT_EQ(current_stpm, nullptr);
    EXPECT_EQ(moves_to(0, "rolesel", "ROLE_SELECTION"), 1u) << "roles are selected all the same";
    EXPECT_EQ(ports_run(), ports_t{});
    EXPECT_EQ(port_of(1)->reselect, 0);
    EXPECT_EQ(bridge->timeSinceTc, passes + 1);
}

// ---- role selection in a pass -----------------------------------------------------------

TEST_F(steps, roles_are_selected_once_after_the_last_port)
{
    bridge_start({1, 2, 3});
    for (const uint32_t number : {1, 2, 3})
        STP_port_reselect(port_of(number));
    world_forget();
    STP_stpm_update();
    lvt_rstp_more_work();
    EXPECT_EQ(moves_to(0, "rolesel", "ROLE_SELECTION"), 0u);
    lvt_rstp_more_work();
    EXPECT_EQ(moves_to(0, "rolesel", "ROLE_SELECTION"), 1u);
    for (const uint32_t number : {1, 2, 3})
        EXPECT_EQ(port_of(number)->selected, 1);
}

TEST_F(steps, roles_are_not_selected_unasked)
{
    bridge_start({1, 2});
    tick(5);
    settle();
    world_forget();
    STP_stpm_update();
    settle();
    EXPECT_EQ(moves_to(0, "rolesel", "ROLE_SELECTION"), 0u);
}

TEST_F(steps, a_selected_role_is_taken_up_in_the_next_pass)
{
    bridge_start({1});
    tick(5);
    ASSERT_EQ(port_of(1)->role, ROLE_DESIGNATED);
    receive(port_of(1), heard_t{});
    EXPECT_EQ(port_of(1)->selectedRole, ROLE_ROOT);
    EXPECT_EQ(port_of(1)->role, ROLE_DESIGNATED);
    STP_stpm_update();
    EXPECT_EQ(port_of(1)->role, ROLE_ROOT);
}

TEST_F(steps, a_timer_that_runs_out_in_one_tick_is_acted_on_in_the_units_after_it)
{
    bridge_start({1, 2});
    tick(5);
    receive(port_of(1), heard_t{});
    settle();
    ASSERT_EQ(port_of(1)->infoIs, INFO_IS_RECEIVED);
    port_of(1)->rcvdInfoWhile = 1;
    tick();
    EXPECT_EQ(port_of(1)->rcvdInfoWhile, 0);
    EXPECT_EQ(port_of(1)->infoIs, INFO_IS_RECEIVED) << "only port 2, the head, has run";
    settle();
    EXPECT_EQ(port_of(1)->infoIs, INFO_IS_AGED);
}

// ---- counters of a pass -----------------------------------------------------------------

class pass_counters : public engine_test {
protected:
    pass_counters() : bridge(bridge_start({1, 2, 3}))
    {
        bridge->timeSinceTc = bridge->tcCount = 0;
        bridge->prevTcPort = bridge->lastTcPort = 0;
    }

    void pass()
    {
        STP_stpm_update();
        settle();
    }

    void expect(uint8_t topo_change, uint16_t since, uint16_t count)
    {
        EXPECT_EQ(bridge->topoChange, topo_change);
        EXPECT_EQ(bridge->timeSinceTc, since);
        EXPECT_EQ(bridge->tcCount, count);
    }

    stpm_t *bridge;
};

TEST_F(pass_counters, count_passes_with_and_without_a_topology_change)
{
    pass();
    expect(0, 1, 0);
    pass();
    expect(0, 2, 0);
    port_of(2)->tcWhile = 4;
    pass();
    expect(1, 0, 1);
    pass();
    expect(1, 0, 2);
    port_of(2)->tcWhile = 0;
    pass();
    expect(0, 1, 0);
}

TEST_F(pass_counters, wrap_at_sixteen_bits)
{
    bridge->timeSinceTc = 0xFFFF;
    pass();
    expect(0, 0, 0);
    port_of(2)->tcWhile = 4;
    bridge->tcCount = 0xFFFF;
    pass();
    expect(1, 0, 0);
}

TEST_F(pass_counters, keep_the_last_two_ports_with_a_topology_change)
{
    port_of(1)->tcWhile = 4;
    pass();
    EXPECT_EQ(bridge->lastTcPort, 1u);
    EXPECT_EQ(bridge->prevTcPort, 0u);
    port_of(1)->tcWhile = 0;
    port_of(3)->tcWhile = 4;
    pass();
    EXPECT_EQ(bridge->lastTcPort, 3u);
    EXPECT_EQ(bridge->prevTcPort, 1u);
    pass();
    EXPECT_EQ(bridge->lastTcPort, 3u);
    EXPECT_EQ(bridge->prevTcPort, 3u) << "every pass that finds a change writes both";
}

TEST_F(pass_counters, leave_the_ports_alone_without_a_topology_change)
{
    bridge->lastTcPort = 7;
    bridge->prevTcPort = 8;
    pass();
    EXPECT_EQ(bridge->lastTcPort, 7u);
    EXPECT_EQ(bridge->prevTcPort, 8u);
}

TEST_F(pass_counters, name_the_first_port_of_the_list)
{
    for (const uint32_t number : {1, 2, 3})
        port_of(number)->tcWhile = 1;
    EXPECT_EQ(check_topoch(bridge), 1);
    EXPECT_EQ(bridge->lastTcPort, 3u);
}

TEST_F(pass_counters, do_not_mind_ports_outside_the_tree)
{
    port_of(3)->tcWhile = port_of(2)->tcWhile = 1;
    port_of(3)->nonStp = 1;
    EXPECT_EQ(check_topoch(bridge), 1);
    EXPECT_EQ(bridge->lastTcPort, 2u);
    port_of(2)->stpEnabled = 0;
    EXPECT_EQ(check_topoch(bridge), 0);
    EXPECT_EQ(bridge->lastTcPort, 2u);
}

// ---- bounds -----------------------------------------------------------------------------

TEST_F(steps, a_unit_ends_although_its_machines_do_not)
{
    // A record that was taken out of the list behind the engine's back asks for a re-root that never
    // reaches it.
    stpm_t *bridge = bridge_start({1});
    tick(2);
    port_t *lost = port_of(1);
    bridge->ports = nullptr;
    lost->role = lost->selectedRole = ROLE_ROOT;
    lost->selected = 1;
    lost->updtInfo = lost->forward = lost->reRoot = 0;
    lost->roletrns.State = ROLETRNS_ROOT_PORT;
    world_forget();
    world.moves_max = STP_SWEEPS_MAX;

    current_stpm = bridge;
    current_port = lost;
    lvt_rstp_more_work();
    EXPECT_EQ(STP_SWEEPS_MAX, 1000u);
    EXPECT_EQ(path_of(1, "roletrns").size(), 1000u);
    EXPECT_EQ(current_stpm, nullptr);
}

using steps_DeathTest = steps;

TEST_F(steps_DeathTest, a_cursor_with_a_port_but_no_bridge_is_a_programming_error)
{
    bridge_start({1});
    current_port = port_of(1);
    EXPECT_DEATH(STP_stpm_update(), assertion("current_stpm == ((void *)0) && current_port == ((void *)0)", "lvt_rstp",
                                              "STP_stpm_update", 332));
}

TEST_F(steps_DeathTest, a_world_that_breaks_the_cursor_is_a_programming_error)
{
    stpm_t *bridge = bridge_create();
    port_attach(bridge, 1);
    port_attach(bridge, 2);
    STP_stpm_enable(bridge, 1);
    settle();
    world.on_state = [] { current_stpm = nullptr; };
    EXPECT_DEATH(STP_stpm_update(), assertion("(current_stpm == ((void *)0) && current_port == ((void *)0)) || "
                                              "(current_stpm != ((void *)0) && current_port != ((void *)0))",
                                              "lvt_rstp", "lvt_rstp_more_work", 316));
}

} // namespace
