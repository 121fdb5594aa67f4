// Role selection: the root of the tree, what each port would say, and the role of each port.
#include "engine_table.h"

namespace {

constexpr bridge_id_t self = {32768, {2, 0, 0, 0, 0, 1}};

/// Ports 1, 2 and 3 take part, port 4 does not. All have information of their own.
class rolesel : public machine_test {
protected:
    rolesel()
    {
        bridge->BrId = self;
        bridge->rolesel.State = ROLESEL_ROLE_SELECTION;
        for (const uint32_t number : {1, 2, 3, 4})
            port_of(number)->pathCost = 20000;
        for (const uint32_t number : {1, 2, 3})
            port_of(number)->reselect = 1;
    }

    void select() { STP_rolesel_enter_state(&bridge->rolesel); }

    /// Gives a port information that it received.
    port_t *received(uint32_t number, const bridge_id_t &root, uint32_t cost, const bridge_id_t &sender,
                     uint32_t sender_port = 0x8001)
    {
        port_t *to = port_of(number);
        to->infoIs = INFO_IS_RECEIVED;
        to->portPrio = {root, cost, sender, sender_port, to->port_id};
        to->portTimes = {.MessageAge = 1, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
        return to;
    }

    void expect_root_vector(const prio_vector_t &expected)
    {
        EXPECT_TRUE(STP_VECT_eq_vector(&bridge->rootPrio, &expected));
        EXPECT_EQ(bridge->rootPortId, expected.bridge_port);
    }
};

// ---- moves ------------------------------------------------------------------------------

TEST_F(rolesel, begin_passes_through_init_bridge_in_one_check)
{
    bridge->rolesel.State = STP_BEGIN;
    EXPECT_EQ(STP_rolesel_check_conditions(&bridge->rolesel), 1);
    EXPECT_EQ(bridge->rolesel.State, ROLESEL_ROLE_SELECTION);
    EXPECT_EQ(world.moves, (std::vector<move_t>{{0, "rolesel", "Begin", "INIT_BRIDGE"},
                                                {0, "rolesel", "INIT_BRIDGE", "ROLE_SELECTION"}}));
}

TEST_F(rolesel, init_bridge_goes_on)
{
    for (const uint32_t number : {1, 2, 3})
        port_of(number)->reselect = 0;
    bridge->rolesel.State = ROLESEL_INIT_BRIDGE;
    EXPECT_EQ(STP_rolesel_check_conditions(&bridge->rolesel), 1);
    EXPECT_EQ(bridge->rolesel.State, ROLESEL_ROLE_SELECTION);
}

TEST_F(rolesel, runs_again_when_any_port_of_the_tree_asks)
{
    for (const uint32_t asks : {1, 2, 3}) {
        for (const uint32_t number : {1, 2, 3})
            port_of(number)->reselect = number == asks;
        EXPECT_EQ(STP_rolesel_check_conditions(&bridge->rolesel), 1) << "port " << asks;
    }
}

TEST_F(rolesel, rests_when_none_asks_but_a_port_outside_the_tree)
{
    for (const uint32_t number : {1, 2, 3})
        port_of(number)->reselect = 0;
    port_of(4)->reselect = 1;
    EXPECT_EQ(STP_rolesel_check_conditions(&bridge->rolesel), 0);
    EXPECT_EQ(bridge->rolesel.State, ROLESEL_ROLE_SELECTION);
    EXPECT_TRUE(world.moves.empty());
}

TEST_F(rolesel, both_first_entries_forget_the_selected_roles_and_no_more)
{
    for (const rstpstate_t state : {STP_BEGIN, rstpstate_t{ROLESEL_INIT_BRIDGE}}) {
        for (const uint32_t number : {1, 2, 3, 4})
            port_of(number)->selectedRole = ROLE_BACKUP;
        bridge->rolesel.State = state;
        records_t expected = world.records;
        for (const uint32_t number : {1, 2, 3, 4})
            expected.ports[number - 1].selectedRole = ROLE_DISABLED;
        STP_rolesel_enter_state(&bridge->rolesel);
        EXPECT_TRUE(same_records(expected, world.records));
    }
}

// ---- the root ---------------------------------------------------------------------------

TEST_F(rolesel, a_bridge_that_hears_nothing_is_the_root)
{
    bridge->rootTimes = {9, 9, 9, 9};
    bridge->rootPortId = 77;
    bridge->BrTimes = {.MessageAge = 0, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1};
    select();
    expect_root_vector({self, 0, self, 0, 0});
    EXPECT_TRUE(STP_eq_times(&bridge->rootTimes, &bridge->BrTimes));
    for (const uint32_t number : {1, 2, 3}) {
        const port_t *each = port_of(number);
        const prio_vector_t designated = {self, 0, self, 0x8000u | number, 0x8000u | number};
        EXPECT_EQ(each->selectedRole, ROLE_DESIGNATED);
        EXPECT_TRUE(STP_VECT_eq_vector(&each->designatedPrio, &designated));
        EXPECT_TRUE(STP_eq_times(&each->designatedTimes, &bridge->BrTimes));
    }
}

TEST_F(rolesel, a_better_bridge_is_the_root_behind_the_port_that_hears_it)
{
    const bridge_id_t root = id_of(4096, 0x11);
    const bridge_id_t sender = id_of(8192, 0x22);
    received(2, root, 100, sender, 0x8007);
    select();
    expect_root_vector({root, 20100, sender, 0x8007, 0x8002});
    for (const uint32_t number : {1, 2, 3}) {
        const prio_vector_t designated = {root, 20100, self, 0x8000u | number, 0x8000u | number};
        EXPECT_TRUE(STP_VECT_eq_vector(&port_of(number)->designatedPrio, &designated));
    }
    EXPECT_EQ(port_of(1)->selectedRole, ROLE_DESIGNATED);
    EXPECT_EQ(port_of(2)->selectedRole, ROLE_ROOT);
    EXPECT_EQ(port_of(3)->selectedRole, ROLE_DESIGNATED);
}

TEST_F(rolesel, a_worse_bridge_is_not_the_root)
{
    received(2, id_of(40960, 0x11), 0, id_of(40960, 0x11));
    select();
    expect_root_vector({self, 0, self, 0, 0});
    EXPECT_EQ(port_of(2)->selectedRole, ROLE_DESIGNATED);
}

/// What ports 1 and 3 hear, of which one becomes the root port.
struct choice_row_t {
    const char *label;
    prio_vector_t port_1; ///< the last part is ignored
    prio_vector_t port_3;
    uint32_t path_cost_1;
    uint32_t path_cost_3;
    uint32_t root_port;
};

std::ostream &operator<<(std::ostream &out, const choice_row_t &row) { return out << row.label; }

constexpr bridge_id_t a = id_of(4096, 0xA);
constexpr bridge_id_t b = id_of(4096, 0xB);
constexpr bridge_id_t c = id_of(8192, 0xC);

const choice_row_t choices[] = {
    {"better root although farther", {b, 0, b, 1, 0}, {a, 90000, c, 9, 0}, 1, 2, 3},
    {"nearer root", {a, 20, b, 9, 0}, {a, 10, c, 1, 0}, 100, 100, 3},
    {"own path cost counts", {a, 20, c, 9, 0}, {a, 10, b, 1, 0}, 100, 111, 1},
    {"better sender of equal cost", {a, 15, c, 1, 0}, {a, 10, b, 9, 0}, 5, 10, 3},
    {"better port of one sender", {a, 10, b, 2, 0}, {a, 10, b, 1, 0}, 5, 5, 3},
    {"lower own port id", {a, 10, b, 1, 0}, {a, 10, b, 1, 0}, 5, 5, 1},
};

class rolesel_choices : public rolesel, public testing::WithParamInterface<choice_row_t> {};

TEST_P(rolesel_choices, root_port)
{
    const choice_row_t &row = GetParam();
    for (const auto &[number, vector, cost] :
         {std::tuple{1u, row.port_1, row.path_cost_1}, std::tuple{3u, row.port_3, row.path_cost_3}}) {
        received(number, vector.root_bridge, vector.root_path_cost, vector.design_bridge, vector.design_port);
        port_of(number)->pathCost = cost;
    }
    select();
    EXPECT_EQ(bridge->rootPortId, 0x8000u | row.root_port);
    EXPECT_EQ(port_of(row.root_port)->selectedRole, ROLE_ROOT);
    EXPECT_NE(port_of(4 - row.root_port)->selectedRole, ROLE_ROOT);
}

INSTANTIATE_TEST_SUITE_P(by, rolesel_choices, testing::ValuesIn(choices), label_of<choice_row_t>);

TEST_F(rolesel, a_cost_beyond_32_bits_goes_round)
{
    received(2, a, 0xFFFFFFFF, b);
    select();
    expect_root_vector({a, 19999, b, 0x8001, 0x8002});
    EXPECT_EQ(port_of(1)->designatedPrio.root_path_cost, 19999u);
}

TEST_F(rolesel, priority_comes_before_number_in_the_own_port_id)
{
    for (const uint32_t number : {1, 3}) {
        port_of(number)->port_id = static_cast<uint16_t>((number == 3 ? 0x1000 : 0x8000) | number);
        received(number, a, 0, a);
    }
    select();
    EXPECT_EQ(bridge->rootPortId, 0x1003u);
    EXPECT_EQ(port_of(3)->selectedRole, ROLE_ROOT);
    EXPECT_EQ(port_of(1)->selectedRole, ROLE_ALTERNATE);
}

TEST_F(rolesel, of_exactly_equal_candidates_the_first_in_the_list_stays)
{
    ASSERT_EQ(next_interesting_port(bridge->ports), port_of(3)) << "the newest port comes first";
    for (const uint32_t number : {1, 2, 3}) {
        received(number, a, 0, a)->portPrio.bridge_port = 0x8001;
        port_of(number)->portTimes.MaxAge = static_cast<uint8_t>(20 + number);
    }
    select();
    EXPECT_EQ(bridge->rootTimes.MaxAge, 23);
}

TEST_F(rolesel, only_received_information_can_make_a_root)
{
    for (const uint8_t info_is : {INFO_IS_MINE, INFO_IS_AGED, INFO_IS_DISABLED}) {
        received(2, a, 0, a)->infoIs = info_is;
        select();
        expect_root_vector({self, 0, self, 0, 0});
    }
}

TEST_F(rolesel, ports_outside_the_tree_cannot_make_a_root)
{
    received(4, a, 0, a);
    received(3, a, 5, a)->stpEnabled = 0;
    select();
    expect_root_vector({self, 0, self, 0, 0});
}

TEST_F(rolesel, information_of_this_very_bridge_is_not_excluded)
{
    const bridge_id_t root = id_of(4096, 0x11);
    received(2, root, 100, self, 0x8003);
    select();
    expect_root_vector({root, 20100, self, 0x8003, 0x8002});
    EXPECT_EQ(port_of(2)->selectedRole, ROLE_ROOT);
}

// ---- times of the tree ------------------------------------------------------------------

struct age_row_t {
    const char *label;
    uint8_t max_age;
    uint8_t received_age;
    uint8_t root_age;
};

std::ostream &operator<<(std::ostream &out, const age_row_t &row) { return out << row.label; }

const age_row_t ages[] = {
    {"default", 20, 0, 1},
    {"one hop more", 20, 3, 4},
    {"rounds to nothing but is at least one", 7, 0, 1},
    {"no max age", 0, 0, 1},
    {"max age 8", 8, 0, 1},
    {"max age 23 rounds down", 23, 0, 1},
    {"max age 24 rounds up", 24, 0, 2},
    {"max age 39 rounds down", 39, 0, 2},
    {"max age 40 rounds up", 40, 0, 3},
    {"largest max age", 255, 0, 16},
    {"age kept to eight bits", 255, 250, 10},
};

class rolesel_ages : public rolesel, public testing::WithParamInterface<age_row_t> {};

TEST_P(rolesel_ages, message_age)
{
    const age_row_t &row = GetParam();
    received(2, a, 0, a)->portTimes = {
        .MessageAge = row.received_age, .MaxAge = row.max_age, .ForwardDelay = 17, .HelloTime = 3};
    select();
    const timevalues_t expected = {
        .MessageAge = row.root_age, .MaxAge = row.max_age, .ForwardDelay = 17, .HelloTime = 3};
    EXPECT_TRUE(STP_eq_times(&bridge->rootTimes, &expected)) << +bridge->rootTimes.MessageAge;
    EXPECT_TRUE(STP_eq_times(&port_of(1)->designatedTimes, &expected)) << "designated times";
}

INSTANTIATE_TEST_SUITE_P(of, rolesel_ages, testing::ValuesIn(ages), label_of<age_row_t>);

TEST_F(rolesel, rounds_the_age_step_otherwise_than_the_information_machine)
{
    received(2, a, 0, a)->portTimes = {.MessageAge = 0, .MaxAge = 24, .ForwardDelay = 15, .HelloTime = 20};
    port->msgTimes = port->portTimes;
    port->msgPrio = port->portPrio;
    port->info.State = INFO_SUPERIOR;
    STP_info_enter_state(&port->info);
    EXPECT_EQ(port->rcvdInfoWhile, 24 - 1);
    select();
    EXPECT_EQ(bridge->rootTimes.MessageAge, 2);
}

// ---- roles ------------------------------------------------------------------------------

/// What port 2 has to go by while port 1 hears the root `a` at cost 100, which makes 20100 here.
struct role_row_t {
    const char *label;
    change_t given;
    lvt_rstp_port_role_t role;
    int update; ///< `updtInfo` afterwards: 0, 1, or AS_BEFORE
};
constexpr int AS_BEFORE = 2;

std::ostream &operator<<(std::ostream &out, const role_row_t &row) { return out << row.label; }

/// Information that agrees with what port 2 would say itself.
void in_force(port_t *p)
{
    p->infoIs = INFO_IS_MINE;
    p->portPrio = {a, 20100, self, 0x8002, 0x8002};
    p->portTimes = {.MessageAge = 2, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
}

void heard(port_t *p, const bridge_id_t &root, uint32_t cost, const bridge_id_t &sender, uint32_t port = 0x8001)
{
    p->infoIs = INFO_IS_RECEIVED;
    p->portPrio = {root, cost, sender, port, 0x8002};
    p->portTimes = {.MessageAge = 1, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
}

const role_row_t roles[] = {
    {"no link", [](port_t *p) { p->infoIs = INFO_IS_DISABLED; }, ROLE_DISABLED, AS_BEFORE},
    {"aged", [](port_t *p) { in_force(p), p->infoIs = INFO_IS_AGED; }, ROLE_DESIGNATED, 1},
    {"own information in force", in_force, ROLE_DESIGNATED, AS_BEFORE},
    {"own root changed", [](port_t *p) { in_force(p), p->portPrio.root_bridge = b; }, ROLE_DESIGNATED, 1},
    {"own cost changed", [](port_t *p) { in_force(p), p->portPrio.root_path_cost--; }, ROLE_DESIGNATED, 1},
    {"own bridge changed", [](port_t *p) { in_force(p), p->portPrio.design_bridge.prio--; }, ROLE_DESIGNATED, 1},
    {"own port changed", [](port_t *p) { in_force(p), p->portPrio.design_port--; }, ROLE_DESIGNATED, 1},
    {"own receiving port changed", [](port_t *p) { in_force(p), p->portPrio.bridge_port--; }, ROLE_DESIGNATED, 1},
    {"own message age changed", [](port_t *p) { in_force(p), p->portTimes.MessageAge--; }, ROLE_DESIGNATED, 1},
    {"own max age changed", [](port_t *p) { in_force(p), p->portTimes.MaxAge--; }, ROLE_DESIGNATED, 1},
    {"own forward delay changed", [](port_t *p) { in_force(p), p->portTimes.ForwardDelay--; }, ROLE_DESIGNATED, 1},
    {"own hello time changed", [](port_t *p) { in_force(p), p->portTimes.HelloTime--; }, ROLE_DESIGNATED, 1},

    {"nearest to the root", [](port_t *p) { heard(p, a, 99, c); }, ROLE_ROOT, 0},
    {"hears a farther bridge", [](port_t *p) { heard(p, a, 20101, c); }, ROLE_DESIGNATED, 1},
    {"hears another root", [](port_t *p) { heard(p, b, 0, b); }, ROLE_DESIGNATED, 1},
    {"hears a nearer bridge", [](port_t *p) { heard(p, a, 20099, c); }, ROLE_ALTERNATE, 0},
    {"hears a better bridge at the same cost", [](port_t *p) { heard(p, a, 20100, c); }, ROLE_ALTERNATE, 0},
    {"hears a worse bridge at the same cost", [](port_t *p) { heard(p, a, 20100, id_of(61440, 1)); }, ROLE_DESIGNATED,
     1},
    {"hears a better port of this bridge", [](port_t *p) { heard(p, a, 20100, self, 0x8001); }, ROLE_BACKUP, 0},
    {"hears a worse port of this bridge", [](port_t *p) { heard(p, a, 20100, self, 0x8003); }, ROLE_DESIGNATED, 1},
    {"hears itself", [](port_t *p) { heard(p, a, 20100, self, 0x8002); }, ROLE_BACKUP, 0},

    {"outside the tree of the adaptation layer", [](port_t *p) { in_force(p), p->stpEnabled = 0; }, ROLE_DESIGNATED, 1},
};

class rolesel_roles : public rolesel, public testing::WithParamInterface<role_row_t> {};

TEST_P(rolesel_roles, role)
{
    const role_row_t &row = GetParam();
    for (const int before : {0, 1}) {
        received(1, a, 100, b);
        port->role = ROLE_BACKUP;
        port->updtInfo = before;
        row.given(port);
        select();
        EXPECT_EQ(port->selectedRole, row.role);
        EXPECT_EQ(port->role, ROLE_BACKUP) << "the role itself is the transitions' business";
        EXPECT_EQ(port->updtInfo, row.update == AS_BEFORE ? before : row.update);
    }
}

INSTANTIATE_TEST_SUITE_P(of_a_port_that, rolesel_roles, testing::ValuesIn(roles), label_of<role_row_t>);

TEST_F(rolesel, a_port_outside_the_tree_is_non_stp_at_once_and_forwards)
{
    port_t *outside = port_of(4);
    outside->role = ROLE_ROOT;
    outside->infoIs = INFO_IS_AGED;
    select();
    EXPECT_EQ(outside->selectedRole, ROLE_NON_STP);
    EXPECT_EQ(outside->role, ROLE_NON_STP);
    EXPECT_EQ(outside->learn, 1);
    EXPECT_EQ(outside->forward, 1);
    EXPECT_EQ(outside->updtInfo, 0);
    EXPECT_TRUE(world.actions.empty()) << "its hardware state is not role selection's business";
}

// ---- who is asked and told --------------------------------------------------------------

TEST_F(rolesel, changes_nothing_but_its_own_values)
{
    received(2, a, 100, b);
    port_of(3)->infoIs = INFO_IS_DISABLED;
    records_t expected = world.records;
    stpm_t &tree = expected.bridges[static_cast<size_t>(bridge - world.records.bridges.data())];
    tree.rootPrio = {a, 20100, b, 0x8001, 0x8002};
    tree.rootPortId = 0x8002;
    tree.rootTimes = {.MessageAge = 2, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
    for (const uint32_t number : {1, 2, 3}) {
        port_t &each = expected.ports[number - 1];
        each.designatedPrio = {a, 20100, self, 0x8000u | number, 0x8000u | number};
        each.designatedTimes = tree.rootTimes;
        each.reselect = 0;
        each.selected = 1;
    }
    expected.ports[0].selectedRole = ROLE_DESIGNATED;
    expected.ports[0].updtInfo = 1;
    expected.ports[1].selectedRole = ROLE_ROOT;
    expected.ports[2].selectedRole = ROLE_DISABLED;
    port_t &outside = expected.ports[3];
    outside.selectedRole = outside.role = ROLE_NON_STP;
    outside.learn = outside.forward = 1;

    select();
    EXPECT_TRUE(same_records(expected, world.records));
    EXPECT_TRUE(world.actions.empty());
}

TEST_F(rolesel, a_port_outside_the_tree_is_answered_but_neither_refreshed_nor_selected)
{
    port_t *outside = port_of(4);
    outside->reselect = 1;
    outside->designatedPrio = {b, 1, b, 2, 3};
    outside->designatedTimes = {4, 5, 6, 7};
    const port_t before = *outside;
    select();
    EXPECT_EQ(outside->reselect, 0);
    EXPECT_EQ(outside->selected, 0);
    EXPECT_TRUE(STP_VECT_eq_vector(&outside->designatedPrio, &before.designatedPrio));
    EXPECT_TRUE(STP_eq_times(&outside->designatedTimes, &before.designatedTimes));
    for (const uint32_t number : {1, 2, 3})
        EXPECT_EQ(port_of(number)->selected, 1) << "held back by port 4";
}

TEST_F(rolesel, keeps_a_selected_port_outside_the_tree_selected)
{
    port_of(4)->selected = 1;
    select();
    EXPECT_EQ(port_of(4)->selected, 1);
}

} // namespace
