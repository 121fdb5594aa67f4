// Life of bridges and ports: creation, start, settings, end.
#include "engine_table.h"

namespace {

// ---- bridges ----------------------------------------------------------------------------

using bridge_life = engine_test;

TEST_F(bridge_life, is_created_disabled_and_without_ports)
{
    stpm_t *bridge = world.free_bridges;
    bridge->ports = port_of(1); // left by an earlier life
    bridge->admin_state = 1;
    bridge->rolesel = {ROLESEL_ROLE_SELECTION, nullptr};
    ASSERT_EQ(STP_stpm_create(42), bridge);
    EXPECT_EQ(bridge->vlan_id, 42);
    EXPECT_EQ(bridge->ports, nullptr);
    EXPECT_EQ(bridge->admin_state, 0);
    EXPECT_EQ(bridge->rolesel.State, STP_BEGIN);
    EXPECT_EQ(bridge->rolesel.owner, bridge);
}

TEST_F(bridge_life, newest_comes_first)
{
    stpm_t *first = STP_stpm_create(1);
    stpm_t *second = STP_stpm_create(2);
    EXPECT_EQ(world.bridges, second);
    EXPECT_EQ(second->next, first);
    EXPECT_EQ(first->next, nullptr);
}

TEST_F(bridge_life, pool_can_run_empty)
{
    for (uint16_t vlan_id = 0; vlan_id < world.records.bridges.size(); vlan_id++)
        EXPECT_NE(STP_stpm_create(vlan_id), nullptr);
    EXPECT_EQ(world.free_bridges, nullptr);
    stpm_t *newest = world.bridges;
    EXPECT_EQ(STP_stpm_create(99), nullptr);
    EXPECT_EQ(world.bridges, newest);
}

TEST_F(bridge_life, freed_record_is_the_next_to_be_taken)
{
    stpm_t *pool = world.free_bridges;
    stpm_t record = {};
    STP_stpm_free(&record);
    EXPECT_EQ(world.free_bridges, &record);
    EXPECT_EQ(record.next, pool);
    EXPECT_EQ(STP_stpm_create(1), &record);
    EXPECT_EQ(world.free_bridges, pool);
}

TEST_F(bridge_life, deletion_disables_unlinks_and_frees)
{
    stpm_t *first = STP_stpm_create(1);
    stpm_t *middle = STP_stpm_create(2);
    stpm_t *last = STP_stpm_create(3);
    middle->admin_state = 1;
    STP_stpm_delete(middle);
    EXPECT_EQ(middle->admin_state, 0);
    EXPECT_EQ(middle->vlan_id, 0);
    EXPECT_EQ(world.free_bridges, middle);
    EXPECT_EQ(world.bridges, last);
    EXPECT_EQ(last->next, first);

    STP_stpm_delete(last);
    EXPECT_EQ(world.bridges, first);
    STP_stpm_delete(first);
    EXPECT_EQ(world.bridges, nullptr);
}

TEST_F(bridge_life, is_found_by_its_vlan)
{
    stpm_t *older = STP_stpm_create(5);
    stpm_t *other = STP_stpm_create(6);
    EXPECT_EQ(stpapi_stpm_find(5), older);
    EXPECT_EQ(stpapi_stpm_find(6), other);
    EXPECT_EQ(stpapi_stpm_find(7), nullptr);
    stpm_t *newer = STP_stpm_create(5);
    EXPECT_EQ(stpapi_stpm_find(5), newer) << "the first in the list";
}

// ---- start ------------------------------------------------------------------------------

class bridge_start_test : public engine_test {
protected:
    stpm_t *bridge_with(std::initializer_list<uint32_t> numbers)
    {
        stpm_t *bridge = bridge_create();
        for (const uint32_t number : numbers)
            port_attach(bridge, number);
        world_forget();
        return bridge;
    }
};

TEST_F(bridge_start_test, takes_the_address_and_its_own_values_for_the_root)
{
    stpm_t *bridge = bridge_with({1, 2}); // with a second port, roles are selected later
    bridge->BrTimes = {.MessageAge = 7, .MaxAge = 21, .ForwardDelay = 16, .HelloTime = 3};
    world.mac = {0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};
    ASSERT_EQ(STP_stpm_enable(bridge, 1), 0);
    const bridge_id_t self = {32768, {0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE}};
    const prio_vector_t root = {self, 0, self, 0, 0};
    const timevalues_t times = {.MessageAge = 0, .MaxAge = 21, .ForwardDelay = 16, .HelloTime = 3};
    EXPECT_TRUE(STP_VECT_eq_bridge_id(&bridge->BrId, &self));
    EXPECT_TRUE(STP_VECT_eq_vector(&bridge->rootPrio, &root));
    EXPECT_TRUE(STP_eq_times(&bridge->BrTimes, &times));
    EXPECT_TRUE(STP_eq_times(&bridge->rootTimes, &times));
    EXPECT_EQ(bridge->admin_state, 1);
    EXPECT_EQ(bridge->rolesel.State, STP_BEGIN);
}

TEST_F(bridge_start_test, flushes_once_for_the_bridge_then_brings_its_ports_to_discarding)
{
    stpm_t *bridge = bridge_with({1, 2});
    bridge->vlan_id = 9;
    ASSERT_EQ(STP_stpm_enable(bridge, 1), 0);
    EXPECT_EQ(world.actions,
              (std::vector<std::string>{"flush 0 9 1 1", "flush 2 0 1 2", "state 2 1", "flush 1 0 1 2", "state 1 1"}));
}

TEST_F(bridge_start_test, initialises_every_port_in_full)
{
    stpm_t *bridge = bridge_with({1});
    port_t *outside = boring_port_attach(bridge, 2);
    outside->sendRSTP = 0;
    outside->fdWhile = 7;
    world.links[1].up = 0;
    ASSERT_EQ(STP_stpm_enable(bridge, 1), 0);
    EXPECT_EQ(port_of(1)->portEnabled, 0);
    EXPECT_EQ(outside->portEnabled, 1);
    EXPECT_EQ(outside->sendRSTP, 1);
    EXPECT_EQ(outside->fdWhile, 0);
    const prio_vector_t designated = {bridge->BrId, 0, bridge->BrId, 0x8002, 0x8002};
    EXPECT_TRUE(STP_VECT_eq_vector(&outside->designatedPrio, &designated));
}

TEST_F(bridge_start_test, performs_the_begin_entries_but_moves_no_port_machine)
{
    stpm_t *bridge = bridge_with({1, 2});
    ASSERT_EQ(STP_stpm_enable(bridge, 1), 0);
    for (const uint32_t number : {1, 2}) {
        const port_t *port = port_of(number);
        for (const stp_machine_t &machine : STP_port_machines)
            EXPECT_EQ((port->*machine.mach).State, STP_BEGIN) << machine.name;
        EXPECT_EQ(port->infoIs, INFO_IS_DISABLED) << "info was entered";
        EXPECT_EQ(port->rcvdType, 255) << "info was entered";
        EXPECT_EQ(port->fdWhile, 15) << "roletrns was entered";
        EXPECT_EQ(port->pathCost, 20000u) << "pcost was entered";
        EXPECT_EQ(port->initPm, 1) << "migrate was entered";
    }
}

TEST_F(bridge_start_test, begins_a_pass_while_the_bridge_still_counts_as_disabled)
{
    stpm_t *bridge = bridge_with({1, 2});
    ASSERT_EQ(STP_stpm_enable(bridge, 1), 0);
    EXPECT_EQ(current_stpm, bridge);
    EXPECT_EQ(current_port, port_of(1));
    EXPECT_EQ(port_of(2)->info.State, STP_BEGIN) << "port 2, the head, has not run";
}

TEST_F(bridge_start_test, neither_enters_nor_runs_ports_outside_the_tree)
{
    stpm_t *bridge = bridge_with({1});
    port_t *outside = boring_port_attach(bridge, 2);
    outside->infoIs = 77;
    ASSERT_EQ(STP_stpm_enable(bridge, 1), 0);
    settle();
    tick(3);
    for (const stp_machine_t &machine : STP_port_machines)
        EXPECT_EQ((outside->*machine.mach).State, STP_BEGIN) << machine.name;
    EXPECT_EQ(outside->infoIs, 77);
    EXPECT_EQ(outside->role, ROLE_NON_STP);
    EXPECT_EQ(moves_to(2, "sttrans", "DISCARDING"), 0u);
}

TEST_F(bridge_start_test, forgets_the_selected_roles_of_all_ports)
{
    stpm_t *bridge = bridge_with({1});
    boring_port_attach(bridge, 2);
    STP_stpm_enable(bridge, 1);
    EXPECT_EQ(port_of(1)->selectedRole, ROLE_DISABLED);
}

TEST_F(bridge_start_test, is_refused_while_another_enabled_bridge_has_the_identifier)
{
    bridge_start({1});
    stpm_t *second = bridge_create(1);
    port_attach(second, 2);
    const records_t before = world.records;
    world_forget();
    EXPECT_EQ(STP_stpm_enable(second, 1), 24);
    EXPECT_EQ(second->admin_state, 1) << "it counts as enabled all the same";

    records_t expected = before;
    stpm_t &record = expected.bridges[static_cast<size_t>(second - world.records.bridges.data())];
    std::copy(world.mac.begin(), world.mac.end(), record.BrId.addr);
    record.admin_state = 1;
    EXPECT_TRUE(same_records(expected, world.records));
    EXPECT_TRUE(world.actions.empty());
    EXPECT_EQ(current_stpm, nullptr) << "no pass was begun";
    EXPECT_EQ(second->rolesel.State, STP_BEGIN);
}

TEST_F(bridge_start_test, is_allowed_beside_a_disabled_bridge_with_the_identifier)
{
    stpm_t *first = bridge_start({1});
    STP_stpm_enable(first, 0);
    stpm_t *second = bridge_create(1);
    port_attach(second, 2);
    EXPECT_EQ(STP_stpm_check_bridge_priority(first), 0);
    EXPECT_EQ(STP_stpm_enable(second, 1), 0);
    EXPECT_EQ(STP_stpm_check_bridge_priority(second), 0) << "its own identifier is no other's";
    EXPECT_EQ(STP_stpm_check_bridge_priority(first), 24);
}

TEST_F(bridge_start_test, is_allowed_beside_a_bridge_of_another_priority)
{
    bridge_start({1});
    stpm_t *second = bridge_create(1);
    second->BrId.prio = 4096;
    port_attach(second, 2);
    EXPECT_EQ(STP_stpm_enable(second, 1), 0);
}

TEST_F(bridge_start_test, is_not_repeated_for_an_enabled_bridge)
{
    stpm_t *bridge = bridge_start({1});
    world_forget();
    const records_t before = world.records;
    EXPECT_EQ(STP_stpm_enable(bridge, 1), 0);
    EXPECT_TRUE(same_records(before, world.records));
    EXPECT_TRUE(world.actions.empty());
    EXPECT_EQ(current_stpm, nullptr);
}

TEST_F(bridge_start_test, disabling_freezes_the_ports_as_they_are)
{
    stpm_t *bridge = bridge_start({1});
    tick(40);
    ASSERT_EQ(port_of(1)->forwarding, 1);
    world_forget();
    records_t expected = world.records;
    expected.bridges[static_cast<size_t>(bridge - world.records.bridges.data())].admin_state = 0;
    EXPECT_EQ(STP_stpm_enable(bridge, 0), 0);
    EXPECT_TRUE(same_records(expected, world.records));
    EXPECT_TRUE(world.actions.empty());
    EXPECT_EQ(STP_stpm_enable(bridge, 0), 0) << "again";
}

TEST_F(bridge_start_test, is_possible_again_with_ports_created_anew)
{
    stpm_t *bridge = bridge_start({1});
    tick(40);
    STP_stpm_enable(bridge, 0);
    STP_port_delete(port_of(1));
    port_attach(bridge, 1);
    STP_state_mach_init(&bridge->rolesel, bridge);
    EXPECT_EQ(STP_stpm_enable(bridge, 1), 0);
}

// ---- programming errors -----------------------------------------------------------------

using bridge_start_DeathTest = bridge_start_test;

TEST_F(bridge_start_DeathTest, without_ports)
{
    stpm_t *bridge = bridge_create();
    EXPECT_DEATH(STP_stpm_enable(bridge, 1), assertion("this->ports", "stpm", "STP_stpm_start", 171));
}

TEST_F(bridge_start_DeathTest, role_selection_not_at_begin)
{
    stpm_t *bridge = bridge_with({1});
    bridge->rolesel.State = ROLESEL_INIT_BRIDGE;
    EXPECT_DEATH(STP_stpm_start(bridge),
                 assertion("this->rolesel.State == ((rstpstate_t)255)", "stpm", "STP_stpm_start", 192));
}

TEST_F(bridge_start_DeathTest, a_machine_not_at_begin)
{
    const std::pair<const char *, state_mach_t port_t::*> machines[] = {
        {"transmit", &port_t::transmit}, {"sttrans", &port_t::sttrans}, {"roletrns", &port_t::roletrns},
        {"info", &port_t::info},         {"pcost", &port_t::pcost},     {"edge", &port_t::edge},
        {"p2p", &port_t::p2p},           {"migrate", &port_t::migrate}, {"topoch", &port_t::topoch},
    };
    stpm_t *bridge = bridge_with({1, 2});
    unsigned line = 198;
    for (const auto &[name, machine] : machines) {
        (port_of(1)->*machine).State = 0;
        EXPECT_DEATH(STP_stpm_start(bridge), assertion("port->" + std::string(name) + ".State == ((rstpstate_t)255)",
                                                       "stpm", "STP_stpm_start", line));
        (port_of(1)->*machine).State = STP_BEGIN;
        line++;
    }
}

TEST_F(bridge_start_DeathTest, a_second_start_without_new_ports)
{
    stpm_t *bridge = bridge_start({1});
    tick();
    STP_stpm_enable(bridge, 0);
    EXPECT_DEATH(STP_stpm_enable(bridge, 1),
                 assertion("this->rolesel.State == ((rstpstate_t)255)", "stpm", "STP_stpm_start", 192));
}

TEST_F(bridge_start_DeathTest, deletion_with_ports)
{
    stpm_t *bridge = bridge_with({1});
    EXPECT_DEATH(STP_stpm_delete(bridge), assertion("this->ports == ((void *)0)", "stpm", "STP_stpm_delete", 128));
}

// ---- changed settings of a bridge -------------------------------------------------------

using bridge_management = machine_test;

TEST_F(bridge_management, restarts_migration_and_role_selection_of_the_ports_of_the_tree)
{
    for (const unsigned version : {0, 1, 2, 3}) {
        world.force_version = static_cast<uint8_t>(version);
        for (const uint32_t number : {1, 2, 3, 4}) {
            port_of(number)->rstpVersion = version < 2;
            port_of(number)->reselect = 0;
            port_of(number)->selected = 1;
        }
        records_t expected = world.records;
        for (const uint32_t number : {1, 2, 3}) {
            expected.ports[number - 1].rstpVersion = version >= 2;
            expected.ports[number - 1].reselect = 1;
            expected.ports[number - 1].selected = 0;
        }
        STP_stpm_update_after_bridge_management(bridge);
        EXPECT_TRUE(same_records(expected, world.records)) << "version " << version;
        EXPECT_EQ(current_stpm, nullptr) << "no pass is begun";
    }
}

// ---- ports ------------------------------------------------------------------------------

using port_life = engine_test;

TEST_F(port_life, created_ports_come_first_with_their_machines_at_begin)
{
    stpm_t *bridge = bridge_create();
    port_attach(bridge, 1);
    port_t *port = port_of(2);
    for (const stp_machine_t &machine : STP_port_machines)
        (port->*machine.mach) = {0, nullptr};
    port->config = {.adminPathCost = 0,
                    .port_priority = 128,
                    .adminEnable = 1,
                    .adminEdge = 1,
                    .adminPointToPoint = 2,
                    .reserved = {}};
    port->stpEnabled = 1;
    STP_port_create(bridge, port);
    EXPECT_EQ(port->owner, bridge);
    EXPECT_EQ(bridge->ports, port);
    EXPECT_EQ(port->next, port_of(1));
    EXPECT_EQ(port->port_id, 0x8002) << "its settings were applied";
    for (const stp_machine_t &machine : STP_port_machines) {
        EXPECT_EQ((port->*machine.mach).State, STP_BEGIN) << machine.name;
        EXPECT_EQ((port->*machine.mach).owner, port) << machine.name;
    }
}

TEST_F(port_life, deleted_ports_leave_their_bridge)
{
    stpm_t *bridge = bridge_create();
    for (const uint32_t number : {1, 2, 3})
        port_attach(bridge, number);
    STP_port_delete(port_of(2));
    EXPECT_EQ(port_of(2)->owner, nullptr);
    EXPECT_EQ(port_of(2)->next, nullptr);
    EXPECT_EQ(bridge->ports, port_of(3));
    EXPECT_EQ(port_of(3)->next, port_of(1));
    STP_port_delete(port_of(3));
    STP_port_delete(port_of(1));
    EXPECT_EQ(bridge->ports, nullptr);
}

TEST_F(port_life, deletion_of_a_port_that_its_bridge_does_not_list)
{
    stpm_t *bridge = bridge_create();
    port_attach(bridge, 1);
    port_t *stray = port_of(2);
    stray->owner = bridge;
    stray->next = port_of(1);
    STP_port_delete(stray);
    EXPECT_EQ(stray->owner, nullptr);
    EXPECT_EQ(stray->next, nullptr);
    EXPECT_EQ(bridge->ports, port_of(1));

    STP_port_delete(stray);
    EXPECT_EQ(stray->owner, nullptr) << "without a bridge";
}

using port_DeathTest = engine_test;

TEST_F(port_DeathTest, creation_of_a_port_that_has_a_bridge)
{
    stpm_t *bridge = bridge_create();
    port_of(1)->owner = bridge;
    EXPECT_DEATH(STP_port_create(bridge, port_of(1)),
                 assertion("this->owner == ((void *)0)", "port", "STP_port_create", 59));
}

TEST_F(port_DeathTest, creation_of_a_port_that_has_a_successor)
{
    stpm_t *bridge = bridge_create();
    port_of(1)->next = port_of(2);
    EXPECT_DEATH(STP_port_create(bridge, port_of(1)),
                 assertion("this->next == ((void *)0)", "port", "STP_port_create", 60));
}

// ---- settings of a port -----------------------------------------------------------------

/// What STP_port_cfg makes of a port, beside asking for a new role and link type.
struct cfg_row_t {
    const char *label;
    change_t given;
    change_t then;
};

std::ostream &operator<<(std::ostream &out, const cfg_row_t &row) { return out << row.label; }

void settings(port_t *p, uint16_t priority, uint8_t enable, uint8_t edge)
{
    p->config.port_priority = priority;
    p->config.adminEnable = enable;
    p->config.adminEdge = edge;
}

void result(port_t *p, uint16_t port_id, bool edge, bool non_stp, bool rstp = true)
{
    p->port_id = port_id;
    p->operEdge = edge;
    p->nonStp = non_stp;
    p->rstpVersion = rstp;
    p->p2pRecompute = p->reselect = 1;
    p->selected = 0;
}

const cfg_row_t cfg_rows[] = {
    {"defaults taking part", [](port_t *p) { settings(p, 128, 1, 1); },
     [](port_t *p) { result(p, 0x8002, true, false); }},
    {"not enabled", [](port_t *p) { settings(p, 128, 0, 1); }, [](port_t *p) { result(p, 0x8002, true, true); }},
    {"enabled by any value", [](port_t *p) { settings(p, 128, 0x80, 0x80); },
     [](port_t *p) { result(p, 0x8002, true, false); }},
    {"taken out by the adaptation layer", [](port_t *p) { settings(p, 128, 1, 0), p->stpEnabled = 0; },
     [](port_t *p) { result(p, 0x8002, false, true); }},
    {"edge whatever was heard", [](port_t *p) { settings(p, 128, 1, 1), p->operEdge = 0, p->rcvdBpdu = 1; },
     [](port_t *p) { result(p, 0x8002, true, false); }},
    {"no edge", [](port_t *p) { settings(p, 128, 1, 0), p->operEdge = 1; },
     [](port_t *p) { result(p, 0x8002, false, false); }},
    {"priority zero", [](port_t *p) { settings(p, 0, 1, 0); }, [](port_t *p) { result(p, 0x0002, false, false); }},
    {"priority 240", [](port_t *p) { settings(p, 240, 1, 0); }, [](port_t *p) { result(p, 0xF002, false, false); }},
    {"priority kept to sixteen bits", [](port_t *p) { settings(p, 0x1280, 1, 0); },
     [](port_t *p) { result(p, 0x8002, false, false); }},
    {"forced to version 1", [](port_t *p) { settings(p, 128, 1, 0), world_now().force_version = 1; },
     [](port_t *p) { result(p, 0x8002, false, false, false); }},
    {"forced to version 3", [](port_t *p) { settings(p, 128, 1, 0), world_now().force_version = 3; },
     [](port_t *p) { result(p, 0x8002, false, false); }},
};

class port_cfg : public machine_test, public testing::WithParamInterface<cfg_row_t> {};

TEST_P(port_cfg, row)
{
    for (const bool before : {false, true}) {
        for (const flag_t &flag : port_flags)
            if (flag.name != std::string("stpEnabled"))
                flag.set(*port, before);
        GetParam().given(port);
        const records_t given = world.records;
        GetParam().then(port);
        const records_t expected = world.records;
        world.records = given;
        STP_port_cfg(port);
        EXPECT_TRUE(same_records(expected, world.records));
        port->stpEnabled = 1;
    }
}

INSTANTIATE_TEST_SUITE_P(of, port_cfg, testing::ValuesIn(cfg_rows), label_of<cfg_row_t>);

// ---- initialisation of a port -----------------------------------------------------------

class port_init : public machine_test {
protected:
    port_init()
    {
        bridge->BrId = {32768, {2, 0, 0, 0, 0, 1}};
        bridge->rootTimes = {.MessageAge = 1, .MaxAge = 21, .ForwardDelay = 16, .HelloTime = 3};
        world.links[2].speed = 100;
        for (const timer_field_t &timer : port_timers)
            port->*timer.field = 9;
        for (const flag_t &flag : port_flags)
            flag.set(*port, true);
        port->sendRSTP = port->p2pRecompute = 0;
        port->role = port->selectedRole = ROLE_ROOT;
        port->rcvdRole = 3;
        port->speed = 1000;
    }

    /// The part that is always initialised.
    static void dynamic(port_t &p)
    {
        p.sendRSTP = 1;
        for (const timer_field_t &timer : port_timers)
            if (timer.name != std::string("edgeDelayWhile"))
                p.*timer.field = 0;
        p.selectedRole = ROLE_DISABLED;
        p.rcvdRole = 0;
        p.speed = 100;
        p.p2pRecompute = 1;
    }
};

TEST_F(port_init, keeps_the_role_the_edge_delay_and_what_the_machines_own)
{
    records_t expected = world.records;
    dynamic(expected.ports[1]);
    STP_port_init(port, bridge, 0);
    EXPECT_TRUE(same_records(expected, world.records));
    EXPECT_EQ(port->role, ROLE_ROOT);
    EXPECT_EQ(port->edgeDelayWhile, 9);
}

TEST_F(port_init, a_second_takes_one_from_each_timer_that_runs)
{
    port->stpEnabled = 1;
    port->nonStp = 0;
    for (const timer_field_t &timer : port_timers)
        port->*timer.field = 9;
    records_t expected = world.records;
    for (const timer_field_t &timer : port_timers)
        expected.ports[1].*timer.field = 8;
    STP_port_tick(port);
    EXPECT_TRUE(same_records(expected, world.records)); // and from nothing else

    for (const timer_field_t &timer : port_timers) {
        port->*timer.field = 1;
        STP_port_tick(port);
        STP_port_tick(port);
        EXPECT_EQ(port->*timer.field, 0) << timer.name;
    }
}

TEST_F(port_init, the_timers_of_a_port_that_takes_no_part_stand_still)
{
    for (const bool enabled : {true, false}) {
        port->stpEnabled = enabled;
        port->nonStp = enabled; // outside the tree by its settings, or as a member of a group
        const records_t expected = world.records;
        STP_port_tick(port);
        EXPECT_TRUE(same_records(expected, world.records)) << enabled;
    }
}

TEST_F(port_init, in_full_takes_the_link_and_the_bridge)
{
    for (const int link : {1, 0}) {
        world.links[2].up = link;
        records_t expected = world.records;
        dynamic(expected.ports[1]);
        expected.ports[1].portEnabled = link;
        expected.ports[1].designatedPrio = {bridge->BrId, 0, bridge->BrId, 0x8002, 0x8002};
        expected.ports[1].designatedTimes = bridge->rootTimes;
        STP_port_init(port, bridge, 1);
        EXPECT_TRUE(same_records(expected, world.records)) << "link " << link;
    }
}

TEST_F(port_init, in_full_takes_an_unknown_link_for_none)
{
    world.links[2].up = -1;
    STP_port_init(port, bridge, 1);
    EXPECT_EQ(port->portEnabled, 0);
}

TEST_F(port_init, speaks_rstp_whatever_the_version)
{
    world.force_version = 0;
    STP_port_init(port, bridge, 0);
    EXPECT_EQ(port->sendRSTP, 1);
}

} // namespace
