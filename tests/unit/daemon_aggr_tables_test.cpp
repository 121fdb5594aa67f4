/// The daemon's own tables of groups, its queue, and when the queue is worked off.
#include <cstring>

#include "daemon/rstp_aggr.h"
#include "daemon/rstp_config.h"
#include "daemon_fixture.h"

namespace {

class aggr_tables : public daemon_test {
protected:
    /// Takes a report; gives the flags of groups 7, 8, 9 as text.
    static std::string flags(const aggr_status_t &status)
    {
        uint8_t changed[3] = {};
        set_aggr_port_status(status.data(), changed);
        trans_aggr_status_to_group();
        return hex({changed, 3});
    }

    static std::string port_table() { return hex({aggr_port_status, 7}); }
    static std::string group_table() { return hex({aggr_group_status, 3}); }
};

} // namespace

// ---- reports ----------------------------------------------------------------------------

TEST_F(aggr_tables, at_start)
{
    EXPECT_EQ(port_table(), "00 01 02 03 04 05 06");
    EXPECT_EQ(group_table(), "00 00 00");
    for (uint32_t port = 1; port <= 6; port++)
        EXPECT_EQ(rstp_get_aggr_id_by_port(port), 0u);
}

TEST_F(aggr_tables, two_ports_form_a_group)
{
    EXPECT_EQ(flags({0, 7, 7, 3, 4, 5, 6}), "01 00 00");
    EXPECT_EQ(port_table(), "00 07 07 03 04 05 06");
    EXPECT_EQ(group_table(), "03 00 00");
    EXPECT_EQ(rstp_get_aggr_id_by_port(1), 7u);
    EXPECT_EQ(rstp_get_aggr_id_by_port(3), 0u);
    EXPECT_EQ(aggr_group_entry_member_cnt(0), 2u);
    EXPECT_EQ(aggr_group_entry_member_cnt(1), 0u);
}

TEST_F(aggr_tables, what_a_report_flags)
{
    const struct {
        const char *what;
        aggr_status_t before, report;
        const char *flags, *ports, *groups;
        // clang-format off
    } rows[] = {
        {"nothing new", {0, 7, 7, 3, 4, 5, 6}, {0, 7, 7, 3, 4, 5, 6}, "00 00 00", "00 07 07 03 04 05 06", "03 00 00"},
        {"0 leaves a group without a word", {0, 7, 7, 3, 4, 5, 6}, {0, 0, 7, 3, 4, 5, 6}, "00 00 00",
         "00 01 07 03 04 05 06", "02 00 00"},
        {"all leave by 0", {0, 7, 7, 8, 8, 9, 9}, {0, 0, 0, 0, 0, 0, 0}, "00 00 00", "00 01 02 03 04 05 06",
         "00 00 00"},
        {"the own number flags the group left", {0, 7, 7, 3, 4, 5, 6}, {0, 1, 7, 3, 4, 5, 6}, "01 00 00",
         "00 01 07 03 04 05 06", "02 00 00"},
        {"so does any other below 7", {0, 7, 7, 3, 4, 5, 6}, {0, 6, 7, 3, 4, 5, 6}, "01 00 00", "00 06 07 03 04 05 06",
         "02 00 00"},
        {"from group to group flags the new one", {0, 7, 7, 3, 4, 5, 6}, {0, 8, 8, 3, 4, 5, 6}, "00 01 00",
         "00 08 08 03 04 05 06", "00 03 00"},
        {"one goes on, one comes", {0, 7, 7, 3, 4, 5, 6}, {0, 8, 7, 7, 4, 5, 6}, "01 01 00", "00 08 07 07 04 05 06",
         "06 01 00"},
        {"0 of a lone port", {0, 1, 2, 3, 4, 5, 6}, {0, 0, 2, 3, 4, 5, 6}, "00 00 00", "00 01 02 03 04 05 06",
         "00 00 00"},
        {"another number of a lone port", {0, 1, 2, 3, 4, 5, 6}, {0, 5, 2, 3, 4, 5, 6}, "00 00 00",
         "00 05 02 03 04 05 06", "00 00 00"},
        {"all in one", {0, 1, 2, 3, 4, 5, 6}, {0, 9, 9, 9, 9, 9, 9}, "00 00 01", "00 09 09 09 09 09 09", "00 00 3f"},
        {"three groups", {0, 1, 2, 3, 4, 5, 6}, {0, 7, 8, 9, 7, 8, 9}, "01 01 01", "00 07 08 09 07 08 09", "09 12 24"},
        {"octet 0 is not read", {0, 1, 2, 3, 4, 5, 6}, {9, 1, 2, 3, 4, 5, 6}, "00 00 00", "00 01 02 03 04 05 06",
         "00 00 00"},
        {"above 9 counts as 0", {0, 7, 7, 3, 4, 5, 6}, {0, 10, 7, 255, 4, 5, 6}, "00 00 00", "00 01 07 03 04 05 06",
         "02 00 00"},
        {"emptied in one report, in both ways", {0, 7, 7, 3, 4, 5, 6}, {0, 0, 2, 3, 4, 5, 6}, "01 00 00",
         "00 01 02 03 04 05 06", "00 00 00"},
    };
    // clang-format on
    for (const auto &row : rows) {
        rstp_aggr_init();
        flags(row.before);
        EXPECT_EQ(flags(row.report), row.flags) << row.what;
        EXPECT_EQ(port_table(), row.ports) << row.what;
        EXPECT_EQ(group_table(), row.groups) << row.what;
    }
}

TEST_F(aggr_tables, flags_are_only_added)
{
    uint8_t changed[] = {1, 5, 0};
    const aggr_status_t status = {0, 1, 2, 3, 4, 5, 9};
    set_aggr_port_status(status.data(), changed);
    EXPECT_EQ(hex({changed, 3}), "01 05 01");
}

TEST_F(aggr_tables, member_lists)
{
    flags({0, 7, 2, 9, 7, 9, 7});
    uint8_t list[8] = {0, 0, 0, 0, 0, 0, 0, 0xEE};
    EXPECT_EQ(lvt_aggr_mgmt_members_get(7, list), 0);
    EXPECT_EQ(hex({list, 8}), "00 01 00 00 01 00 01 ee");
    memset(list, 0, 7);
    lvt_aggr_mgmt_members_get(9, list);
    EXPECT_EQ(hex({list, 7}), "00 00 00 01 00 01 00");
    memset(list, 0, 7);
    lvt_aggr_mgmt_members_get(8, list);
    EXPECT_EQ(hex({list, 7}), "00 00 00 00 00 00 00");
    EXPECT_EQ(aggr_group_entry_member_cnt(0), 3u);
    EXPECT_EQ(aggr_group_entry_member_cnt(2), 2u);
}

// ---- from the report to the adaptation layer --------------------------------------------

TEST_F(aggr_tables, a_report_sets_groups_up)
{
    boot();
    send_groups({0, 7, 7, 9, 4, 5, 9});
    EXPECT_THAT(members(7), ElementsAre(1, 2));
    EXPECT_THAT(members(8), IsEmpty());
    EXPECT_THAT(members(9), ElementsAre(3, 6));
    EXPECT_EQ(board_log(), state_written(1, 4) + state_written(2, 4) + state_written(3, 4) + state_written(6, 4));
}

TEST_F(aggr_tables, a_port_that_leaves_by_0_stays_in_the_tree_of_its_group)
{
    boot();
    send_groups({0, 7, 7, 3, 4, 5, 6});
    board_log();
    send_groups({0, 0, 7, 3, 4, 5, 6});
    EXPECT_EQ(group_table(), "02 00 00");
    EXPECT_THAT(members(7), ElementsAre(1, 2)); // neither added nor deleted
    EXPECT_THAT(board_log(), IsEmpty());

    send_groups({0, 0, 7, 7, 4, 5, 6}); // the group is set up anew for another reason
    EXPECT_THAT(members(7), ElementsAre(2, 3));
    EXPECT_EQ(lvt_rstp_vars.representative[0], &record(1));
}

TEST_F(aggr_tables, a_group_all_of_whose_ports_went_to_another_is_not_deleted)
{
    boot();
    send_groups({0, 7, 7, 3, 4, 5, 6});
    board_log();
    send_groups({0, 8, 8, 3, 4, 5, 6});
    EXPECT_EQ(group_table(), "00 03 00");
    EXPECT_THAT(members(7), IsEmpty());
    EXPECT_THAT(members(8), ElementsAre(1, 2));
    EXPECT_EQ(record(7).stpEnabled, 1); // still formed
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], &record(1));
    EXPECT_EQ(lvt_rstp_vars.by_l2port[7], &record(1));
    EXPECT_EQ(board_log(), state_written(1, 4) + state_written(2, 4));

    send_groups({0, 7, 8, 3, 4, 5, 6}); // when it gets a port it is set up anew; group 8 is not told
    EXPECT_THAT(members(7), ElementsAre(1));
    EXPECT_THAT(members(8), ElementsAre(2));
    EXPECT_EQ(lvt_rstp_vars.by_l2port[7], &record(1));
    send_groups({0, 1, 8, 3, 4, 5, 6});
    EXPECT_EQ(record(7).stpEnabled, 0);
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], nullptr);
}

TEST_F(aggr_tables, a_group_without_members_is_deleted_when_it_is_queued)
{
    boot();
    send_groups({0, 7, 7, 3, 4, 5, 6});
    board_log();
    send_groups({0, 0, 2, 3, 4, 5, 6}); // one by 0, one by its number
    EXPECT_THAT(members(7), IsEmpty());
    EXPECT_EQ(lvt_rstp_vars.by_l2port[6], nullptr);
    EXPECT_EQ(record(7).stpEnabled, 0);
    // Each is asked to discard and then, without link, to be off: without spanning tree it forwards.
    EXPECT_EQ(board_log(), state_written(1, 4) + state_written(1, 4) + state_written(2, 4) + state_written(2, 4));

    rstp_aggr_reconfigured(1, 7);
    rstp_aggr_apply_pending();
    EXPECT_THAT(board_log(), IsEmpty()); // deleted already
}

// ---- the queue --------------------------------------------------------------------------

TEST_F(aggr_tables, group_settings_queue_groups_with_members)
{
    boot();
    send_groups({0, 1, 2, 8, 8, 5, 6});
    board_log();
    lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
    config.port_priority = 32;
    send_group_settings(config);
    EXPECT_EQ(board_log(), state_written(3, 4) + state_written(4, 4)); // forced anew
    EXPECT_EQ(record(7).config.port_priority, 32);
    EXPECT_EQ(rstp_port_config[0].port_priority, 32);

    send_group_settings(config); // queued even when unchanged
    EXPECT_EQ(board_log(), state_written(3, 4) + state_written(4, 4));
    send_groups({0, 0, 0, 0, 0, 0, 0});
    send_group_settings(config); // no group has members
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(aggr_tables, a_changed_member_queues_its_group)
{
    boot();
    send_groups({0, 7, 7, 3, 4, 5, 6});
    board_log();
    ports[1].adminPathCost = 5;
    ports[3].adminPathCost = 5;
    send_ports();
    EXPECT_EQ(board_log(), (log_t{"trap off", "trap off"} + state_written(1, 4) + state_written(2, 4)));
    send_ports(); // nothing changed, nothing queued
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(aggr_tables, type_9_leaves_the_queue_to_the_next_2_4_or_5)
{
    boot();
    send_groups({0, 7, 7, 3, 4, 5, 6});
    const log_t set_up = state_written(1, 4) + state_written(2, 4);
    uint32_t cost = 1;
    for (const uint8_t type : {RSTP_MSG_AGGR_STATUS, RSTP_MSG_AGGR_CONFIG, RSTP_MSG_PORT_CONFIG}) {
        board_log();
        ports[2].adminPathCost = cost++;
        send_ports(RSTP_MSG_PORT_CONFIG_ONLY);
        EXPECT_EQ(record(2).config.adminPathCost, ports[2].adminPathCost);
        EXPECT_EQ(board_log(), log_t{"trap off"}); // set, but its group waits

        send_links({1});
        send_system({.bridge_priority = static_cast<uint16_t>(cost << 12),
                     .max_age = 20,
                     .hello_time = 2,
                     .forward_delay = 15,
                     .force_version = 2,
                     .reserved = 0});
        EXPECT_EQ(control(work_flush_message()), 1);
        send_lacp({});
        send_bpdu(1, tcn_frame());
        seconds(1);
        for (const uint8_t ignored : {7, 8, 11, 255})
            EXPECT_EQ(control(raw_message(ignored, {})), 1);
        EXPECT_THAT(board_log(), IsEmpty()) << int{type};

        switch (type) {
        case RSTP_MSG_AGGR_STATUS:
            send_groups({0, 7, 7, 3, 4, 5, 6});
            break;
        case RSTP_MSG_AGGR_CONFIG:
            send_group_settings(LVT_RSTP_PORT_DEFAULTS);
            break;
        default:
            send_ports();
        }
        EXPECT_EQ(board_log(), set_up) << int{type};
    }
}

TEST_F(aggr_tables, the_queue_is_kept_while_memory_is_short)
{
    boot();
    board.allocations_left = 0;
    send_groups({0, 7, 7, 3, 4, 5, 6});
    EXPECT_EQ(group_table(), "03 00 00");
    EXPECT_THAT(members(7), IsEmpty());
    board.allocations_left = -1;
    rstp_aggr_apply_pending();
    EXPECT_THAT(members(7), ElementsAre(1, 2));
    board_log();
    rstp_aggr_apply_pending(); // once
    EXPECT_THAT(board_log(), IsEmpty());
}

TEST_F(aggr_tables, queued_groups_are_applied_in_order)
{
    boot();
    board.allocations_left = 0;
    send_groups({0, 9, 2, 8, 4, 7, 6});
    board.allocations_left = -1;
    rstp_aggr_apply_pending();
    EXPECT_EQ(board_log(), state_written(5, 4) + state_written(3, 4) + state_written(1, 4));
}

TEST_F(aggr_tables, the_queue_is_emptied_at_start)
{
    boot();
    flags({0, 7, 7, 3, 4, 5, 6});
    rstp_aggr_reconfigured(1, 7);
    rstp_aggr_clear_pending();
    rstp_aggr_apply_pending();
    EXPECT_THAT(members(7), IsEmpty());
}
