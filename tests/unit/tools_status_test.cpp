/// Reading the status file: every value, and every line that is not as it should be.
#include "tools/status_file.h"

#include "tools_ctl.h"

namespace {

/// What is wrong with the text; empty when nothing is.
std::string fault_of_text(const std::string &text)
{
    std::string fault;
    return parse_status(text, &fault) ? "" : fault;
}

} // namespace

TEST(status_file, has_every_value)
{
    std::string text = replaced(STATUS, ",20,2,15,0,", ",21,1,14,1,");
    text = replaced(text, "2026/11/20 14:08:15,3,72", ",0,65535");
    text = replaced(text, "port04=0,1,1,0,5,5,0,0", "port04=-1,0,0,1,2,3,8,4096");
    const auto status = parse_status(text);
    ASSERT_TRUE(status);

    EXPECT_EQ(bridge_id_text(status->bridge), "61440/02:00:00:00:01:00");
    EXPECT_EQ(bridge_id_text(status->root), "32768/02:00:00:01:11:00");
    EXPECT_FALSE(same_bridge(status->bridge, status->root));
    EXPECT_EQ(status->max_age, 21);
    EXPECT_EQ(status->hello_time, 1);
    EXPECT_EQ(status->forward_delay, 14);
    EXPECT_TRUE(status->topology_change);
    EXPECT_EQ(status->root_port, 1);
    EXPECT_EQ(status->changed_at, "");
    EXPECT_EQ(status->changed_by, 0);
    EXPECT_EQ(status->since_change, 65535u);

    const port_status_t &four = status->port(4);
    EXPECT_EQ(four.path_cost, 4294967295u);
    EXPECT_FALSE(four.edge);
    EXPECT_FALSE(four.point_to_point);
    EXPECT_TRUE(four.stp_neighbour);
    EXPECT_EQ(four.role, ROLE_BACKUP);
    EXPECT_EQ(four.state, HW_LEARNING);
    EXPECT_EQ(four.group, 8);
    EXPECT_EQ(four.designated_bridge.prio, 4096);

    const port_status_t &one = status->port(1);
    EXPECT_EQ(one.sent.rstp, 4u);
    EXPECT_EQ(one.sent.stp, 5u);
    EXPECT_EQ(one.sent.tcn, 6u);
    EXPECT_EQ(one.received.rstp, 7u);
    EXPECT_EQ(one.received.stp, 20u);
    EXPECT_EQ(one.received.tcn, 8u);
    EXPECT_EQ(one.illegal, 9u);
    EXPECT_EQ(one.unknown, 10u);
    EXPECT_EQ(one.designated_port, 1);
}

TEST(status_file, cut_at_any_octet_is_none)
{
    const std::string whole = STATUS;
    for (size_t size = 0; size < whole.size(); size++)
        EXPECT_FALSE(parse_status(whole.substr(0, size))) << size;
    EXPECT_TRUE(parse_status(whole));
}

TEST(status_file, tells_the_line_that_is_wrong)
{
    EXPECT_EQ(fault_of_text(""), "the file ends in line 1");
    EXPECT_EQ(fault_of_text("hello\n"), "line 1 is not \"@rstp_bridge_overview\"");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "=61440:02", "=65536:02")), "line 2 is not the bridge's overview");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "-11-00,1\n", "-11-00,1 \n")), "line 2 is not the bridge's overview");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "15,3,72", "15")), "line 5 is not the time of the last topology change");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "port02=8000,0", "port02=8000,x")), "line 9 is not the state of port 2");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "0,1,1,3,4,0", "0,1,1,6,4,0")), "line 8 is not the state of port 1");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "0,1,1,3,4,0", "0,1,1,3,2,0")), "line 8 is not the state of port 1");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "0,1,1,3,4,0", "0,1,1,3,4,6")), "line 8 is not the state of port 1");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "port03=23,0,", "port03=23,")), "line 21 is not the counters of port 3");
    EXPECT_EQ(fault_of_text(replaced(STATUS, "!\n", "?\n")), "line 28 is not \"!\"");
    EXPECT_EQ(fault_of_text(std::string(STATUS) + "x"), "something follows line 28");
    EXPECT_EQ(fault_of_text(std::string(STATUS) + "\n"), "something follows line 28");
}

TEST(status_file, has_a_time_as_the_daemon_writes_it_or_none)
{
    EXPECT_EQ(fault_of_text(replaced(STATUS, "2026/11/20 14:08:15", "")), "");
    for (const char *time : {"soon", "2026/11/20 14:08:1", "2026/11/20 14:08:155", "2026-11-20 14:08:15",
                             "2026/11/20 14:08:\xff\xff", "\033[2J/11/20 14:08:15", "2026/11/20\t14:08:15"})
        EXPECT_EQ(fault_of_text(replaced(STATUS, "2026/11/20 14:08:15", time)),
                  "line 5 is not the time of the last topology change")
            << time;
}
