/// Groups in the tree: how a group stands for its members, and how they get their places back.
#include <cstring>

#include "daemon_fixture.h"
#include "daemon_invariants.h"
#include "l2_proto_utility/os_api.h"
#include "rstp/machines.h"

namespace {

class aggr : public daemon_test {
protected:
    void TearDown() override { EXPECT_EQ(daemon_faults(), ""); }

    /// Spanning tree on or off for all groups.
    void send_groups_enabled(bool on)
    {
        lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
        config.adminEnable = on;
        send_group_settings(config);
    }

    /// Ports 2 and 4 forward, groups take part, all is quiet.
    void boot_two_hosts()
    {
        boot({2, 4});
        send_groups_enabled(true);
        send_enabled({2, 4});
        seconds(20);
        ASSERT_EQ(board_port_state(2), 4u);
        ASSERT_EQ(board_port_state(4), 4u);
        board_log();
        board.frames.clear();
    }
};

const aggr_status_t TWO_AND_FOUR = {0, 1, 7, 3, 7, 5, 6};
const aggr_status_t ONLY_FOUR = {0, 1, 2, 3, 7, 5, 6};
const aggr_status_t ALONE = AGGR_STATUS_ALONE;

/// Both members through one code.
log_t both(uint32_t code) { return state_written(2, code) + state_written(4, code); }

} // namespace

// ---- forming ----------------------------------------------------------------------------

TEST_F(aggr, a_group_takes_the_place_of_its_members)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    EXPECT_THAT(members(7), ElementsAre(2, 4));
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], &record(2));
    EXPECT_EQ(hex(record(7).mac), "00 11 22 33 44 52");
    EXPECT_EQ(record(7).stpEnabled, 1);
    EXPECT_EQ(record(7).nonStp, 0);
    EXPECT_EQ(record(7).portEnabled, 1);
    EXPECT_EQ(record(7).speed, 2000u);
    for (const uint32_t port : {2u, 4u}) {
        EXPECT_EQ(record(port).stpEnabled, 0);
        EXPECT_EQ(record(port).nonStp, 1);
        EXPECT_EQ(record(port).portEnabled, 0);
    }
    // As a port that takes part for the first time; then a flush, as the group's link comes up.
    EXPECT_EQ(board_chip_log(), log_t{"flush"} + both(1) + both(3) + log_t{"flush"} + both(1) + log_t{"flush"});
}

TEST_F(aggr, forming_waits_for_the_pass_under_way)
{
    boot_two_hosts();
    record(2).helloWhen = 0;
    STP_stpm_update(); // has not come to port 2 yet
    ASSERT_THAT(board_log(), IsEmpty());
    send_groups(TWO_AND_FOUR);
    EXPECT_EQ(board_log().front(), "frame 2 rst"); // while it still stands for itself
}

TEST_F(aggr, a_group_sends_through_its_first_member)
{
    boot_two_hosts();
    const uint32_t before = record(2).rstp_frame_xmits;
    send_groups(TWO_AND_FOUR);
    seconds(10);
    ASSERT_FALSE(board.frames.empty());
    EXPECT_EQ(record(2).rstp_frame_xmits, before + board.frames.size());
    EXPECT_EQ(record(7).rstp_frame_xmits, 0u);
    for (const sent_frame_t &frame : board.frames) {
        EXPECT_EQ(hex({frame.octets.data(), 16}), "01 80 c2 00 00 00 00 11 22 33 44 52 88 99 84 84");
        EXPECT_EQ(hex({&frame.octets[46], 2}), "80 07"); // port identifier
    }
}

TEST_F(aggr, the_address_sent_is_the_members_of_now)
{
    boot();
    send_groups_enabled(true);
    send_groups(TWO_AND_FOUR); // no link yet, no address
    send_links({2});
    seconds(5);
    ASSERT_FALSE(board.frames.empty());
    EXPECT_EQ(hex(record(7).mac), "00 00 00 00 00 00");
    EXPECT_EQ(hex({&board.frames.back().octets[6], 6}), "00 11 22 33 44 52");
}

TEST_F(aggr, a_group_forwards_on_all_members)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    seconds(1);
    board_log();
    seconds(10);
    EXPECT_EQ(board_chip_log(), both(3) + both(4));
    EXPECT_EQ(record(7).hw_state, 4);
    EXPECT_EQ(record(7).pathCost, 10000u); // 2000 Mbit/s
}

TEST_F(aggr, a_group_is_brought_up_whatever_its_links)
{
    boot();
    send_groups_enabled(true);
    board_log();
    send_groups(TWO_AND_FOUR);
    EXPECT_EQ(record(7).portEnabled, 1);
    EXPECT_EQ(record(7).speed, 20u); // code 0 twice: counted with or without link
    EXPECT_EQ(hex(record(7).mac), "00 00 00 00 00 00");
}

TEST_F(aggr, without_spanning_tree_members_are_forced)
{
    boot();
    send_groups(TWO_AND_FOUR);
    EXPECT_EQ(record(7).hw_state, 5);
    EXPECT_EQ(record(2).hw_state, 5);
    EXPECT_EQ(board_log(), both(4)); // off for them as well: 4
    EXPECT_EQ(current_stpm, nullptr);

    send_enabled({2, 4}); // their own settings: the group still stands outside
    EXPECT_EQ(board_chip_log(), (log_t{"trap on", "trap on"} + both(5)));
}

TEST_F(aggr, lacp_rules_members_without_spanning_tree)
{
    boot();
    send_lacp({0, 1, 0, 1, 0, 0});
    send_groups(TWO_AND_FOUR);
    EXPECT_THAT(board_log(), IsEmpty());
    send_groups(ALONE);
    EXPECT_THAT(board_log(), IsEmpty());
    send_groups({0, 1, 7, 7, 4, 5, 6});
    EXPECT_EQ(board_log(), state_written(3, 4)); // without LACP
}

TEST_F(aggr, lacp_does_not_matter_with_spanning_tree)
{
    boot({2, 4});
    send_lacp({0, 1, 0, 1, 0, 0});
    send_groups_enabled(true);
    send_enabled({2, 4});
    seconds(20);
    board_log();
    send_groups(TWO_AND_FOUR);
    seconds(10);
    EXPECT_EQ(board_port_state(2), 4u);
    EXPECT_THAT(board_chip_log(), testing::Contains("state 2 1"));
}

TEST_F(aggr, edge_setting_comes_from_the_members_settings)
{
    boot({2, 4});
    send_groups_enabled(true);
    send_enabled({2, 4});
    seconds(1);
    send_bpdu(2, frame_of({.root = id_of(0xF000, 0x11)})); // a bridge was heard: no matter
    send_groups(TWO_AND_FOUR);
    EXPECT_EQ(record(7).config.adminEdge, 1);

    ports[4].adminEdge = 0;
    send_ports();
    EXPECT_EQ(record(7).config.adminEdge, 0);
    ports[4].adminEdge = 9;
    send_ports();
    EXPECT_EQ(record(7).config.adminEdge, 1); // 0 or 1
}

// ---- changing ---------------------------------------------------------------------------

TEST_F(aggr, a_member_leaves)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    seconds(20);
    ASSERT_EQ(record(7).hw_state, 4);
    board_log();

    send_groups(ONLY_FOUR);
    EXPECT_THAT(members(7), ElementsAre(4));
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], &record(4));
    EXPECT_EQ(hex(record(7).mac), "00 11 22 33 44 54");
    const log_t log = board_chip_log();
    // Port 2 is made to discard and gets its link; its record does not know of it.
    EXPECT_EQ(log_t(log.begin(), log.begin() + 3), state_written(2, 1) + log_t{"flush"});
    EXPECT_EQ(record(2).hw_state, 4);
    EXPECT_EQ(record(2).stpEnabled, 1);
    EXPECT_EQ(record(2).portEnabled, 1);
    EXPECT_EQ(board_port_state(2), 1u);

    board.frames.clear();
    seconds(20);
    EXPECT_EQ(board_port_state(4), 4u);
    for (const sent_frame_t &frame : board.frames) // each for itself again
        EXPECT_EQ(hex({&frame.octets[15], 1}), frame.octets[47] == 7 ? "90" : "84");
}

TEST_F(aggr, a_new_member_gets_the_groups_state)
{
    boot({2, 3, 4});
    send_groups_enabled(true);
    ports[3].adminEdge = 0; // will not forward soon
    send_enabled({2, 3, 4});
    send_groups(TWO_AND_FOUR);
    seconds(10);
    ASSERT_EQ(record(7).hw_state, 4);
    ASSERT_EQ(board_port_state(3), 1u);
    board_log();
    send_groups({0, 1, 7, 7, 7, 5, 6});
    EXPECT_EQ(board_chip_log().front(), "state 3 4");
    EXPECT_EQ(record(7).config.adminEdge, 0);
    lvt_rstp_run_pending();
    for (const uint32_t port : {2u, 3u, 4u}) // setting up anew takes the group through link down
        EXPECT_EQ(board_port_state(port), 1u) << port;
    seconds(40);
    for (const uint32_t port : {2u, 3u, 4u})
        EXPECT_EQ(board_port_state(port), 4u) << port;
}

TEST_F(aggr, a_first_member_of_a_lower_number_sends)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    send_groups({0, 7, 7, 3, 7, 5, 6});
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], &record(1));
    EXPECT_EQ(hex(record(7).mac), "00 00 00 00 00 00"); // never had link
}

TEST_F(aggr, members_lose_and_regain_link)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    seconds(10);
    board_log();

    send_links({4}); // one is enough
    seconds(3);
    EXPECT_THAT(board_chip_log(), IsEmpty());
    EXPECT_EQ(record(7).role, ROLE_DESIGNATED);
    EXPECT_EQ(record(7).operPointToPoint, 1); // not asked anew

    send_links({});
    EXPECT_EQ(record(7).portEnabled, 0);
    seconds(3);
    EXPECT_EQ(board_chip_log(), log_t{"flush"} + both(1));
    EXPECT_EQ(record(7).role, ROLE_DISABLED);

    send_links({2});
    EXPECT_EQ(board_chip_log(), log_t{"flush"});
    seconds(10);
    EXPECT_EQ(board_chip_log(), both(3) + both(4));
    EXPECT_EQ(record(7).operPointToPoint, 0); // a member without link is not full duplex
}

// ---- dissolving -------------------------------------------------------------------------

TEST_F(aggr, members_get_their_places_back)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    seconds(20);
    board_log();
    send_groups(ALONE);
    EXPECT_EQ(board_chip_log(), state_written(2, 1) + log_t{"flush"} + state_written(4, 1) + log_t{"flush"});
    EXPECT_THAT(members(7), IsEmpty());
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], nullptr);
    EXPECT_EQ(record(7).stpEnabled, 0);
    EXPECT_EQ(record(7).nonStp, 1);
    EXPECT_EQ(record(7).portEnabled, 0);
    EXPECT_EQ(record(7).owner, lvt_rstp_vars.default_vlan);
    for (const uint32_t port : {2u, 4u}) {
        EXPECT_EQ(record(port).stpEnabled, 1);
        EXPECT_EQ(record(port).nonStp, 0);
        EXPECT_EQ(record(port).portEnabled, 1);
        EXPECT_EQ(record(port).hw_state, 4); // left as it was
    }
    board.frames.clear();
    seconds(10);
    for (const sent_frame_t &frame : board.frames)
        EXPECT_NE(frame.octets[47], 7);
}

TEST_F(aggr, dissolving_waits_for_the_pass_under_way)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    seconds(20);
    board_log();
    record(7).helloWhen = 0;
    STP_stpm_update(); // has not come to the group yet
    ASSERT_THAT(board_log(), IsEmpty());
    send_groups(ALONE);
    EXPECT_EQ(board_log().front(), "frame 2 rst"); // while there is someone to send for it
}

TEST_F(aggr, members_get_their_own_links_back)
{
    boot({2});
    send_groups_enabled(true);
    send_enabled({2, 4});
    send_groups(TWO_AND_FOUR);
    seconds(10);
    board_log();
    send_groups(ALONE);
    EXPECT_EQ(record(2).portEnabled, 1);
    EXPECT_EQ(record(4).portEnabled, 0);
    EXPECT_THAT(board_log(), testing::Contains("flush").Times(1)); // for the one link
    seconds(10);
    EXPECT_EQ(record(2).role, ROLE_DESIGNATED);
    EXPECT_EQ(record(4).role, ROLE_DISABLED);
}

TEST_F(aggr, a_port_inherits_the_groups_edge)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    seconds(20);
    ASSERT_EQ(record(7).operEdge, 1);
    send_bpdu(2, frame_of({.root = id_of(0xF000, 0x11)})); // no edge any more
    send_groups(ONLY_FOUR);
    EXPECT_EQ(record(2).operEdge, 0); // though its setting says edge
    EXPECT_EQ(record(2).config.adminEdge, 1);
}

TEST_F(aggr, without_spanning_tree_a_restored_port_keeps_its_own_edge)
{
    boot_two_hosts();
    send_enabled({4});
    send_groups(TWO_AND_FOUR);
    seconds(20);
    send_bpdu(2, frame_of({.root = id_of(0xF000, 0x11)}));
    ASSERT_EQ(record(7).operEdge, 0);
    send_groups(ONLY_FOUR);
    EXPECT_EQ(record(2).operEdge, 1);
}

TEST_F(aggr, without_spanning_tree_a_restored_port_forwards)
{
    boot({2});
    send_groups(TWO_AND_FOUR);
    board_log();
    send_groups(ALONE);
    EXPECT_EQ(board_log(), state_written(2, 4) + state_written(2, 4) + state_written(4, 4) + state_written(4, 4));
    EXPECT_EQ(record(2).hw_state, 5);    // link
    EXPECT_EQ(record(4).hw_state, 0);    // none
    EXPECT_EQ(record(2).portEnabled, 0); // the engine is told of links by the next message only
}

TEST_F(aggr, deleting_twice_does_nothing)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    send_groups(ALONE);
    lvt_rstp_run_pending();
    board_log();
    lvt_rstp_aggr_del(7);
    EXPECT_THAT(board_log(), IsEmpty());
    EXPECT_EQ(current_stpm, nullptr);
}

TEST_F(aggr, deleting_a_group_that_never_was)
{
    boot({1});
    lvt_rstp_aggr_del(9);
    EXPECT_EQ(lvt_rstp_vars.by_l2port[8], nullptr);
    EXPECT_EQ(record(9).owner, lvt_rstp_vars.default_vlan);
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(aggr, formed_again_with_other_members)
{
    boot({1, 2, 3, 4});
    send_groups_enabled(true);
    send_enabled({1, 2, 3, 4});
    seconds(10);
    for (int round = 0; round < 3; round++) {
        send_groups(TWO_AND_FOUR);
        EXPECT_EQ(daemon_faults(), "");
        seconds(20);
        for (const uint32_t port : {2u, 4u})
            EXPECT_EQ(board_port_state(port), record(port).hw_state) << port;
        send_groups(ALONE);
        EXPECT_EQ(daemon_faults(), "");
        seconds(20);
        send_groups({0, 7, 2, 7, 4, 5, 6});
        EXPECT_EQ(daemon_faults(), "");
        EXPECT_THAT(members(7), ElementsAre(1, 3));
        EXPECT_EQ(lvt_rstp_vars.by_l2port[6], &record(1));
        seconds(20);
        EXPECT_EQ(record(7).role, ROLE_DESIGNATED);
        EXPECT_EQ(record(7).forwarding, 1);
        send_groups(ALONE);
        seconds(20);
    }
}

TEST_F(aggr, spanning_tree_switched_on_and_off_for_a_group)
{
    boot({2, 4});
    send_enabled({2, 4});
    send_groups(TWO_AND_FOUR);
    seconds(5);
    EXPECT_EQ(board_port_state(2), 5u);
    board_log();

    send_groups_enabled(true);
    seconds(20);
    EXPECT_EQ(board_port_state(2), 4u);
    EXPECT_EQ(record(7).role, ROLE_DESIGNATED);
    EXPECT_EQ(record(7).hw_state, 4);
    board_log();

    send_groups_enabled(false);
    // Its settings ask for code 5 at once, and setting it up anew forces the members to it.
    EXPECT_EQ(board_chip_log(), both(5) + both(5));
    EXPECT_EQ(record(7).role, ROLE_NON_STP);
    EXPECT_EQ(record(7).hw_state, 5);
    seconds(5);
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(aggr, spanning_tree_switched_off_for_a_member)
{
    boot_two_hosts();
    send_groups(TWO_AND_FOUR);
    seconds(10);
    board_log();
    send_enabled({2});
    const log_t log = board_chip_log();
    // Its trap and its own code: a member stands outside. Then the group is set up anew.
    EXPECT_EQ(log_t(log.begin(), log.begin() + 3), log_t{"trap off"} + state_written(4, 4));
    seconds(20);
    EXPECT_EQ(board_port_state(2), 4u);
    EXPECT_EQ(board_port_state(4), 4u);
}

TEST_F(aggr, two_groups_live_side_by_side)
{
    boot({1, 2, 3, 4, 5, 6});
    send_groups_enabled(true);
    send_enabled({1, 2, 3, 4, 5, 6});
    send_groups({0, 7, 7, 8, 8, 9, 9});
    EXPECT_EQ(daemon_faults(), "");
    seconds(20);
    for (uint32_t group = 7; group <= 9; group++) {
        EXPECT_EQ(record(group).role, ROLE_DESIGNATED);
        EXPECT_EQ(record(group).hw_state, 4);
    }
    // Port 2 changes sides; group 7 is not told.
    send_groups({0, 7, 8, 8, 8, 9, 9});
    EXPECT_THAT(members(7), ElementsAre(1));
    EXPECT_THAT(members(8), ElementsAre(2, 3, 4));
    EXPECT_EQ(lvt_rstp_vars.by_l2port[7], &record(2));
}

// ---- questions about links --------------------------------------------------------------

TEST_F(aggr, link_of_groups_and_members)
{
    boot({1, 2});
    send_groups({0, 1, 8, 3, 8, 5, 6});
    EXPECT_EQ(lvt_aggr_get_linkstate(1), 1);
    EXPECT_EQ(lvt_aggr_get_linkstate(3), 0);
    EXPECT_EQ(lvt_aggr_get_linkstate(2), 0); // a member answers 0
    EXPECT_EQ(lvt_aggr_get_linkstate(8), 1);
    EXPECT_EQ(lvt_aggr_get_linkstate(7), 0); // no members
    send_links({1});
    EXPECT_EQ(lvt_aggr_get_linkstate(8), 0);
}

TEST_F(aggr, speed_of_groups_and_members)
{
    boot({2, 4});
    EXPECT_EQ(lvt_aggr_get_linkspeed(8), 0u);
    send_groups({0, 1, 8, 3, 8, 5, 6});
    EXPECT_EQ(lvt_aggr_get_linkspeed(8), 2000u);
    EXPECT_EQ(lvt_aggr_get_linkspeed(2), 1000u); // even as a member
    links[3].link = 0;
    links[3].speed = 1;
    send_links();
    EXPECT_EQ(lvt_aggr_get_linkspeed(8), 1100u); // with or without link
}

TEST_F(aggr, duplex_of_groups_and_members)
{
    boot({2, 4});
    EXPECT_EQ(lvt_aggr_get_linkduplex(8), 1); // no members
    send_groups({0, 1, 8, 3, 8, 5, 6});
    EXPECT_EQ(lvt_aggr_get_linkduplex(8), 1);
    links[1].duplex = 0;
    send_links();
    EXPECT_EQ(lvt_aggr_get_linkduplex(8), 0);
    EXPECT_EQ(lvt_aggr_get_linkduplex(2), 0);
    EXPECT_EQ(lvt_aggr_get_linkduplex(4), 1);
    links[1].duplex = 1;
    links[3].link = 0;
    send_links();
    EXPECT_EQ(lvt_aggr_get_linkduplex(8), 0); // a member is down
}

TEST_F(aggr, questions_about_what_does_not_exist)
{
    boot({1});
    for (const uint32_t l2port : {0u, 10u}) {
        EXPECT_EQ(lvt_aggr_get_linkstate(l2port), 0);
        EXPECT_EQ(lvt_aggr_get_linkspeed(l2port), 0u);
    }
}

TEST_F(aggr, an_empty_list_forms_nothing)
{
    boot({1});
    const uint8_t list[7] = {9, 0, 0, 0, 0, 0, 0}; // octet 0 is not read
    lvt_rstp_aggr_add(8, list);
    EXPECT_EQ(record(8).stpEnabled, 0);
    EXPECT_EQ(lvt_rstp_vars.by_l2port[7], &record(8));
}

// ---- programming errors -----------------------------------------------------------------

TEST_F(aggr, assertions)
{
    boot();
    const uint8_t list[7] = {0, 1, 0, 0, 0, 0, 0};
    EXPECT_DEATH(lvt_rstp_aggr_add(7, nullptr),
                 HasSubstr(assertion("lvt_rstp:930", "lvt_rstp_aggr_add", "members != ((void *)0)")));
    EXPECT_DEATH(lvt_rstp_aggr_add(6, list),
                 HasSubstr(assertion("lvt_rstp:931", "lvt_rstp_aggr_add", "((aid) > (((6) * 1)))")));
    for (const uint32_t group : {0u, 10u})
        EXPECT_DEATH(lvt_rstp_aggr_del(group),
                     HasSubstr(assertion("lvt_rstp:1007", "lvt_rstp_aggr_del",
                                         "((aid) > 0 && (aid) <= (((6) * 1)) + ((3 * 1)+(0 )))")));
    port_t stray = {};
    stray.port_number = 10;
    EXPECT_DEATH(lvt_aggr_force_state(&stray),
                 HasSubstr(assertion("lvt_rstp:917", "lvt_aggr_force_state",
                                     "((ppoag->port_number) > 0 && (ppoag->port_number) <= (((6) * 1)) + "
                                     "((3 * 1)+(0 )))")));
}
