/// Bridges of other VLANs: ports move between them and back.
#include <cstring>

#include "daemon_fixture.h"
#include "rstp/records.h"
#include "rstp/stp_in.h"
#include "rstp/stpm.h"

namespace {

class vlan : public daemon_test {
protected:
    stpm_t second = {};

    /// Room for one bridge more than the switch has. The two must differ in their identifiers.
    void boot_with_room(std::initializer_list<uint32_t> ports_up = {})
    {
        boot(ports_up);
        second.BrId.prio = 2;
        STP_stpm_free(&second);
    }

    static std::vector<uint32_t> ports_of(const stpm_t *bridge)
    {
        std::vector<uint32_t> numbers;
        for (const port_t *port = bridge->ports; port; port = port->next) {
            EXPECT_EQ(port->owner, bridge);
            numbers.push_back(port->port_number);
        }
        return numbers;
    }

    ~vlan() override { lvt_rstp_vars = {}; }
};

constexpr uint8_t NONE[7] = {};

} // namespace

TEST_F(vlan, no_free_record_no_bridge)
{
    boot();
    const uint8_t members[] = {1, 1, 1, 1, 1, 1, 1};
    lvt_rstp_vlan_add(2, members);
    EXPECT_EQ(stpapi_stpm_find(2), nullptr);
    EXPECT_EQ(ports_of(lvt_rstp_vars.default_vlan).size(), 9u);
}

TEST_F(vlan, members_move_in_and_out)
{
    boot_with_room();
    stpm_t *const one = lvt_rstp_vars.default_vlan;
    const uint8_t members[] = {1, 1, 0, 5, 0, 0, 0}; // octet 0 is not read
    lvt_rstp_vlan_add(2, members);
    ASSERT_EQ(stpapi_stpm_find(2), &second);
    EXPECT_THAT(ports_of(&second), ElementsAre(3, 1));
    EXPECT_THAT(ports_of(one), ElementsAre(9, 8, 7, 6, 5, 4, 2));
    EXPECT_EQ(lvt_rstp_vars.default_vlan, one);
    EXPECT_EQ(second.admin_state, 1);
    EXPECT_EQ(second.BrId.prio, 0x8002); // the system's priority, its own VLAN part
    EXPECT_EQ(second.BrTimes.MaxAge, 20);

    const uint8_t fewer[] = {0, 0, 0, 1, 0, 0, 0};
    lvt_rstp_vlan_add(2, fewer);
    EXPECT_THAT(ports_of(&second), ElementsAre(3));
    EXPECT_THAT(ports_of(one), ElementsAre(1, 9, 8, 7, 6, 5, 4, 2));
    EXPECT_EQ(record(1).roletrns.State, STP_BEGIN);
}

TEST_F(vlan, a_call_that_moves_no_port_restarts_nothing)
{
    boot({1, 2, 3});
    send_enabled({1, 2, 3});
    seconds(10);
    const lvt_rstp_vars_t before = lvt_rstp_vars;
    const uint8_t members[] = {0, 1, 1, 0, 0, 0, 0};
    lvt_rstp_vlan_add(1, members); // the others are in the default bridge, which would take them back
    EXPECT_EQ(memcmp(&lvt_rstp_vars, &before, sizeof before), 0);
    for (const uint32_t port : {1u, 2u, 3u}) {
        EXPECT_EQ(record(port).rstpVersion, 0) << port;
        EXPECT_EQ(record(port).reselect, 0) << port;
        EXPECT_EQ(record(port).selected, 1) << port;
    }
}

TEST_F(vlan, a_new_bridge_without_members_stays_off)
{
    boot_with_room();
    lvt_rstp_vlan_add(2, NONE);
    ASSERT_EQ(stpapi_stpm_find(2), &second);
    EXPECT_EQ(second.admin_state, 0);
    EXPECT_EQ(ports_of(lvt_rstp_vars.default_vlan).size(), 9u);
}

TEST_F(vlan, bridges_with_the_same_identifier_do_not_both_start)
{
    boot_with_room();
    second.BrId.prio = 0;
    const uint8_t members[] = {0, 1, 0, 0, 0, 0, 0};
    lvt_rstp_vlan_add(2, members);
    EXPECT_EQ(second.admin_state, 1); // noted all the same
    EXPECT_EQ(second.rolesel.State, STP_BEGIN);
    EXPECT_EQ(record(1).role, ROLE_NON_STP);
}

TEST_F(vlan, the_representative_moves_along)
{
    boot_with_room();
    send_groups({0, 7, 7, 3, 4, 5, 6});
    const uint8_t members[] = {0, 1, 1, 0, 0, 0, 0};
    lvt_rstp_vlan_add(2, members);
    EXPECT_THAT(ports_of(&second), ElementsAre(2, 7, 1));
    lvt_rstp_vlan_add(2, NONE);
    EXPECT_THAT(ports_of(&second), IsEmpty());
    EXPECT_EQ(record(7).owner, lvt_rstp_vars.default_vlan);
}

TEST_F(vlan, a_group_goes_to_the_bridge_of_its_first_member_and_back)
{
    boot_with_room();
    const uint8_t ports_of_second[] = {0, 1, 0, 0, 0, 0, 0};
    lvt_rstp_vlan_add(2, ports_of_second);
    send_groups({0, 7, 7, 3, 4, 5, 6});
    EXPECT_THAT(ports_of(&second), ElementsAre(7, 1));
    EXPECT_THAT(ports_of(lvt_rstp_vars.default_vlan), ElementsAre(9, 8, 6, 5, 4, 3, 2));
    send_groups(AGGR_STATUS_ALONE);
    EXPECT_THAT(ports_of(&second), ElementsAre(1));
    EXPECT_EQ(record(7).owner, lvt_rstp_vars.default_vlan);
}

TEST_F(vlan, both_bridges_run)
{
    boot_with_room({1, 2});
    send_enabled({1, 2});
    seconds(1);
    const uint8_t members[] = {0, 1, 0, 0, 0, 0, 0};
    lvt_rstp_vlan_add(2, members);
    seconds(3);
    EXPECT_EQ(record(1).role, ROLE_DESIGNATED);
    EXPECT_EQ(record(2).role, ROLE_DESIGNATED);
    EXPECT_EQ(record(1).designatedPrio.design_bridge.prio, 0x8002);
    EXPECT_EQ(record(2).designatedPrio.design_bridge.prio, 0x8000);
    EXPECT_EQ(current_stpm, nullptr);

    send_bpdu(1, frame_of({}));
    lvt_rstp_run_pending();
    EXPECT_EQ(second.rootPrio.root_bridge.prio, 4096);
    EXPECT_EQ(lvt_rstp_vars.default_vlan->rootPrio.root_bridge.prio, 0x8000);
}

TEST_F(vlan, deleted_bridge_gives_its_ports_back)
{
    boot_with_room();
    const uint8_t members[] = {0, 1, 0, 1, 0, 0, 1};
    lvt_rstp_vlan_add(2, members);
    lvt_rstp_vlan_del(2);
    EXPECT_EQ(stpapi_stpm_find(2), nullptr);
    EXPECT_THAT(ports_of(lvt_rstp_vars.default_vlan), ElementsAre(1, 3, 6, 9, 8, 7, 5, 4, 2));
    EXPECT_EQ(lvt_rstp_vars.free_bridges, &second);
    EXPECT_EQ(second.vlan_id, 0);
    EXPECT_EQ(second.admin_state, 0);
}

TEST_F(vlan, deleting_an_unknown_vlan_does_nothing)
{
    boot({1});
    send_enabled({1});
    ASSERT_NE(current_stpm, nullptr);
    lvt_rstp_vlan_del(7);
    EXPECT_NE(current_stpm, nullptr); // pending work stays pending
    EXPECT_EQ(ports_of(lvt_rstp_vars.default_vlan).size(), 9u);
}

TEST_F(vlan, the_default_bridge_can_go_and_come)
{
    boot({1});
    send_enabled({1});
    lvt_rstp_vlan_del(1);
    EXPECT_EQ(lvt_rstp_vars.default_vlan, nullptr);
    EXPECT_EQ(lvt_rstp_vars.bridges, nullptr);
    EXPECT_EQ(current_stpm, nullptr);
    for (uint32_t l2port = 1; l2port <= 9; l2port++)
        EXPECT_EQ(record(l2port).owner, nullptr);
    seconds(2);
    send_links({});
    EXPECT_EQ(record(1).portEnabled, 1); // a port of no bridge is left alone

    const uint8_t members[] = {0, 1, 1, 0, 0, 0, 0};
    lvt_rstp_vlan_add(1, members);
    ASSERT_EQ(lvt_rstp_vars.default_vlan, &lvt_rstp_vars.bridge);
    EXPECT_THAT(ports_of(lvt_rstp_vars.default_vlan), ElementsAre(2, 1));
    EXPECT_EQ(lvt_rstp_vars.default_vlan->admin_state, 1);
}

TEST_F(vlan, ports_of_a_vlan_without_a_default_go_to_none)
{
    boot();
    lvt_rstp_vlan_del(1);
    const uint8_t members[] = {0, 1, 1, 0, 0, 0, 0};
    lvt_rstp_vlan_add(5, members);
    EXPECT_EQ(lvt_rstp_vars.default_vlan, nullptr);
    ASSERT_EQ(stpapi_stpm_find(5), &lvt_rstp_vars.bridge);
    const uint8_t fewer[] = {0, 1, 0, 0, 0, 0, 0};
    lvt_rstp_vlan_add(5, fewer);
    EXPECT_EQ(record(2).owner, nullptr);
    EXPECT_THAT(ports_of(&lvt_rstp_vars.bridge), ElementsAre(1));
    lvt_rstp_vlan_del(5);
    EXPECT_EQ(record(1).owner, nullptr);
    EXPECT_EQ(lvt_rstp_vars.free_bridges, &lvt_rstp_vars.bridge);
}

TEST_F(vlan, a_second_default_is_a_programming_error)
{
    boot_with_room();
    lvt_rstp_vars.default_vlan->vlan_id = 9;
    EXPECT_DEATH(
        lvt_rstp_vlan_add(1, NONE),
        testing::AllOf(HasSubstr("lvt_rstp:"), HasSubstr(": lvt_rstp_vlan_add: Assertion "
                                                         "`(&lvt_rstp_vars)->default_vlan == ((void *)0)' failed.")));
}
