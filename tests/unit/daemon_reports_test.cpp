/// The console reports, octet by octet.
#include "diag/reports.h"

#include <cstring>

#include "daemon/rstp_aggr.h"
#include "daemon_fixture.h"
#include "l2_proto_utility/os_api.h"
#include "tests/report_texts.h"

namespace {

const std::string RULE64(64, '=');
const std::string RULE68(68, '=');

class reports : public daemon_test {
protected:
    static std::string shown(void (*report)())
    {
        board_console();
        report();
        return board_console();
    }

    static std::string port_status(uint32_t poag)
    {
        board_console();
        lvt_show_rstp_port_status(poag);
        return board_console();
    }
};

void set_counters(port_t &port, uint32_t first)
{
    for (uint32_t *counter :
         {&port.stp_frame_xmits, &port.stp_frame_recvs, &port.rstp_frame_xmits, &port.rstp_frame_recvs,
          &port.tcn_frame_xmits, &port.tcn_frame_recvs, &port.unknown_frame_recvs, &port.illegal_frame_recvs})
        *counter = first++;
}

} // namespace

TEST_F(reports, system_config)
{
    boot();
    const std::string head = RULE64 +
                             "\nRSTP SYSTEM CONFIG:\n"
                             "Bridge_Prio | Max_Age | Hello_Time | Fwd_Delay | Force_Ver\n";
    EXPECT_EQ(shown(lvt_show_rstp_system_config),
              head + "      32768        20            2          15           2\n" + RULE64 + "\n");
    send_system({.bridge_priority = 65535,
                 .max_age = 65535,
                 .hello_time = 65535,
                 .forward_delay = 65535,
                 .force_version = 255,
                 .reserved = 1});
    EXPECT_EQ(shown(lvt_show_rstp_system_config),
              head + "      65535     65535        65535       65535         255\n" + RULE64 + "\n");
}

TEST_F(reports, system_config_shows_what_is_stored_not_what_is_applied)
{
    boot();
    send_system({.bridge_priority = 4096 + 7,
                 .max_age = 0x114,
                 .hello_time = 1,
                 .forward_delay = 4,
                 .force_version = 0,
                 .reserved = 0});
    EXPECT_THAT(shown(lvt_show_rstp_system_config),
                HasSubstr("\n       4103       276            1           4           0\n"));
}

TEST_F(reports, port_config)
{
    boot();
    ports[2] = {.adminPathCost = 200000000,
                .port_priority = 240,
                .adminEnable = 1,
                .adminEdge = 0,
                .adminPointToPoint = 1,
                .reserved = {}};
    ports[5] = {.adminPathCost = 0xFFFFFFFF,
                .port_priority = 65535,
                .adminEnable = 255,
                .adminEdge = 255,
                .adminPointToPoint = 255,
                .reserved = {}};
    send_ports();
    lvt_rstp_port_config_t group = LVT_RSTP_PORT_DEFAULTS;
    group.adminPathCost = 12;
    group.port_priority = 16;
    send_group_settings(group);
    record(8).config.port_priority = 1; // the first group's are shown
    EXPECT_EQ(shown(lvt_show_rstp_port_config), RULE64 +
                                                    "\nRSTP PORT CONFIG:\n"
                                                    "Port | Path_Cost | Port_Prio | Enable | Edge | P2P\n"
                                                    "Aggr Port:\n"
                                                    "Aggr          12          16        0      1     2\n" +
                                                    std::string(64, '-') +
                                                    "\n"
                                                    "   1           0         128        0      1     2\n"
                                                    "   2   200000000         240        1      0     1\n"
                                                    "   3           0         128        0      1     2\n"
                                                    "   4           0         128        0      1     2\n"
                                                    "   5          -1       65535      255    255   255\n"
                                                    "   6           0         128        0      1     2\n" +
                                                    RULE64 + "\n");
}

TEST_F(reports, bridge_status_after_the_start)
{
    boot();
    EXPECT_EQ(shown(lvt_show_rstp_bridge_status), RULE64 +
                                                      "\nRSTP BRIDGE STATUS:\n"
                                                      "admin_enabled=1\n"
                                                      "vlan_id=1\n"
                                                      "This Bridge: Prio=32768, ID=00:11:22:33:44:50\n"
                                                      "designated_root: Prio=32768, ID=00:11:22:33:44:50\n"
                                                      "root_cost=0\n"
                                                      "root_port=0\n"
                                                      "root_port_prio=0\n"
                                                      "max_age=20\n"
                                                      "hello_time=2\n"
                                                      "forward_delay=15\n"
                                                      "in_tc=0\n"
                                                      "tc_count=0\n"
                                                      "secs_since_last_tc=-1\n" // one pass, no second
                                                      "num_active_ports=0\n" +
                                                      RULE64 + "\n");
}

TEST_F(reports, bridge_status_with_a_root)
{
    boot({1, 2, 3});
    send_enabled({1, 2, 3});
    seconds(1);
    send_bpdu(3, frame_of({.root = {0x7001, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x0F}},
                           .cost = 0x80000000,
                           .bridge = {0x9ABC, {1, 2, 3, 4, 5, 6}},
                           .times = {.MessageAge = 0, .MaxAge = 21, .ForwardDelay = 16, .HelloTime = 3}}));
    lvt_rstp_run_pending();
    stpm_t &bridge = lvt_rstp_vars.bridge;
    bridge.topoChange = 1;
    bridge.tcCount = 65535;
    bridge.timeSinceTc = 0;
    lvt_rstp_vars.time = 65535;
    EXPECT_EQ(shown(lvt_show_rstp_bridge_status), RULE64 +
                                                      "\nRSTP BRIDGE STATUS:\n"
                                                      "admin_enabled=1\n"
                                                      "vlan_id=1\n"
                                                      "This Bridge: Prio=32768, ID=00:11:22:33:44:50\n"
                                                      "designated_root: Prio=28673, ID=aa:bb:cc:dd:ee:0f\n"
                                                      "root_cost=-2147463648\n" // 0x80000000 + 20000
                                                      "root_port=3\n"
                                                      "root_port_prio=128\n"
                                                      "max_age=21\n"
                                                      "hello_time=3\n"
                                                      "forward_delay=16\n"
                                                      "in_tc=1\n"
                                                      "tc_count=65535\n"
                                                      "secs_since_last_tc=65535\n"
                                                      "num_active_ports=3\n" +
                                                      RULE64 + "\n");
}

TEST_F(reports, bridge_status_splits_the_root_port)
{
    boot();
    lvt_rstp_vars.bridge.rootPortId = 0xF123;
    EXPECT_THAT(shown(lvt_show_rstp_bridge_status), HasSubstr("\nroot_port=291\nroot_port_prio=240\n"));
    lvt_rstp_vars.time = 0;
    lvt_rstp_vars.bridge.timeSinceTc = 65535;
    EXPECT_THAT(shown(lvt_show_rstp_bridge_status), HasSubstr("\nsecs_since_last_tc=-65535\n"));
}

TEST_F(reports, port_status_after_the_start)
{
    boot({3});
    EXPECT_EQ(port_status(3), RULE64 + "\n" + PORT_3_STATUS + RULE64 + "\n");
}

TEST_F(reports, port_status_of_a_root_port)
{
    boot({6});
    send_enabled({6});
    seconds(1);
    send_bpdu(6, frame_of({.cost = 200, .bridge = {0x2000, {1, 2, 3, 4, 5, 0xFE}}, .port_id = 0xF00C}));
    seconds(2);
    set_counters(record(6), 0xFFFFFFFE);
    EXPECT_EQ(port_status(6), RULE64 +
                                  "\nRSTP PORT STATUS: PoAG=6\n"
                                  "poag_number=6\n"
                                  "vlan_id=1\n"
                                  "designated_root: Prio=4096, ID=02:00:00:00:00:11\n"
                                  "designated_root_cost=200\n"
                                  "designated_bridge: Prio=8192, ID=01:02:03:04:05:fe\n"
                                  "designated_port=12\n"
                                  "rstp_role=3\n"
                                  "port_state=4\n"
                                  "is_p2p=1\n"
                                  "is_edge=0\n"
                                  "stp_neigb=0\n"
                                  "oper_pathcost=20000\n"
                                  "part_of_aggr=0\n"
                                  "stp_viewable=1\n"
                                  "port statistcs:\n"
                                  "stp_frame_xmits=-2\n"
                                  "stp_frame_recvs=-1\n"
                                  "rstp_frame_xmits=0\n"
                                  "rstp_frame_recvs=1\n"
                                  "tcn_frame_xmits=2\n"
                                  "tcn_frame_recvs=3\n"
                                  "unknown_frame_recvs=4\n"
                                  "illegal_frame_recvs=5\n" +
                                  RULE64 + "\n");
}

TEST_F(reports, port_status_of_a_port_in_no_bridge)
{
    boot();
    lvt_rstp_vlan_del(1);
    EXPECT_THAT(port_status(1), HasSubstr("\nvlan_id=0\n"));
}

TEST_F(reports, port_status_of_members_and_groups)
{
    boot({1, 2});
    send_groups({0, 9, 9, 3, 4, 5, 6});
    EXPECT_THAT(port_status(1), HasSubstr("\npart_of_aggr=9\nstp_viewable=0\n"));
    EXPECT_THAT(port_status(3), HasSubstr("\npart_of_aggr=0\n"));
    EXPECT_THAT(port_status(9), testing::AllOf(HasSubstr("PoAG=9\npoag_number=9\n"), HasSubstr("\npart_of_aggr=0\n")));
    lvt_rstp_port_config_t on = LVT_RSTP_PORT_DEFAULTS;
    on.adminEnable = 1;
    send_group_settings(on);
    EXPECT_THAT(port_status(9), HasSubstr("\nstp_viewable=1\n"));
    EXPECT_THAT(port_status(8), HasSubstr("\nstp_viewable=0\n"));
}

TEST_F(reports, port_status_of_a_neighbour_of_old)
{
    boot({1});
    send_enabled({1});
    seconds(5);
    send_bpdu(1, frame_of({.type = 0x00, .version = 0, .flags = 0, .root = id_of(0xF000, 0x11)}));
    seconds(1);
    EXPECT_THAT(port_status(1), HasSubstr("\nis_edge=0\nstp_neigb=1\n"));
}

TEST_F(reports, a_port_that_does_not_exist)
{
    boot();
    for (const uint32_t poag : {0u, 10u})
        EXPECT_DEATH(lvt_show_rstp_port_status(poag),
                     testing::AllOf(HasSubstr("lvt_rstp:"), HasSubstr("Assertion `((poag) > 0 && (poag) <= (((6) * 1)) "
                                                                      "+ ((3 * 1)+(0 )))' failed.")));
}

TEST_F(reports, statistics)
{
    boot();
    for (uint32_t l2port = 1; l2port <= 9; l2port++)
        set_counters(record(l2port), l2port * 100);
    set_counters(record(5), 0x7FFFFFFD);
    EXPECT_EQ(shown(lvt_show_rstp_statistics),
              RULE64 +
                  "\nRSTP Statistics:\n"
                  "1.stp_frame_xmits, 2.stp_frame_recvs, 3.rstp_frame_xmits,    4.rstp_frame_recvs \n"
                  "5.tcn_frame_xmits, 6.tcn_frame_recvs, 7.unknown_frame_recvs, 8.illegal_frame_recvs\n"
                  "port01=100,101,102,103,104,105,106,107\n"
                  "port02=200,201,202,203,204,205,206,207\n"
                  "port03=300,301,302,303,304,305,306,307\n"
                  "port04=400,401,402,403,404,405,406,407\n"
                  "port05=2147483645,2147483646,2147483647,-2147483648,-2147483647,-2147483646,-2147483645,"
                  "-2147483644\n"
                  "port06=600,601,602,603,604,605,606,607\n"
                  "port07=700,701,702,703,704,705,706,707\n"
                  "port08=800,801,802,803,804,805,806,807\n"
                  "port09=900,901,902,903,904,905,906,907\n" +
                  RULE64 + "\n");
}

TEST_F(reports, links)
{
    boot();
    this->links[0] = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
    this->links[3] = {.ignored = 0, .link = 255, .speed = 255, .duplex = 255};
    send_links();
    EXPECT_EQ(shown(lvt_show_port_status), RULE68 +
                                               "\nPort Status:\n"
                                               "Port | Link | Speed | Fdx\n"
                                               "   1      1       2     1\n"
                                               "   2      0       0     0\n"
                                               "   3      0       0     0\n"
                                               "   4    255     255   255\n"
                                               "   5      0       0     0\n"
                                               "   6      0       0     0\n" +
                                               RULE68 + "\n");
}

TEST_F(reports, groups_of_the_daemon_and_of_the_tree)
{
    boot();
    send_groups({0, 7, 7, 3, 9, 1, 6});
    send_groups({0, 0, 7, 3, 9, 1, 6}); // port 1 has left, but is still a member in the tree
    EXPECT_EQ(shown(lvt_show_aggr_status), RULE68 +
                                               "\nRSTP Aggr Status:\n"
                                               "PORT NO | AGGR ID\n"
                                               "      1         1\n"
                                               "      2         7\n"
                                               "      3         3\n"
                                               "      4         9\n"
                                               "      5         1\n"
                                               "      6         6\n" +
                                               RULE68 + "\n");
    EXPECT_EQ(shown(lvt_show_rstp_aggr_status), RULE64 +
                                                    "\nRSTP AGGR STATUS:\n"
                                                    "Port | Aggr_No\n"
                                                    "   1         7\n"
                                                    "   2         7\n"
                                                    "   3         0\n"
                                                    "   4         9\n"
                                                    "   5         0\n"
                                                    "   6         0\n" +
                                                    RULE64 + "\n");
}

TEST_F(reports, hardware_states)
{
    boot({2});
    send_enabled({2});
    seconds(1);
    cached_fwdstates[3] = 0;
    cached_stpstates[6] = 255;
    EXPECT_EQ(shown(lvt_show_rstp_stp_state), RULE64 +
                                                  "\nRSTP STP STATE:\n"
                                                  "Port | STP State | Fwd State\n"
                                                  "   1           4           1\n"
                                                  "   2           1           1\n"
                                                  "   3           4           0\n"
                                                  "   4           4           1\n"
                                                  "   5           4           1\n"
                                                  "   6         255           1\n" +
                                                  RULE64 + "\n");
}

TEST_F(reports, lacp_ports_are_numbered_from_0)
{
    send_lacp({1, 0, 0, 0, 2, 255});
    EXPECT_EQ(shown(lvt_rstp_lacp_enable_port_show), RULE64 +
                                                         "\nRSTP LACP PORT STATE:\n"
                                                         "Port | LACP State \n"
                                                         "   0           1\n"
                                                         "   1           0\n"
                                                         "   2           0\n"
                                                         "   3           0\n"
                                                         "   4           2\n"
                                                         "   5         255\n" +
                                                         RULE64 + "\n");
}

TEST_F(reports, before_the_start)
{
    EXPECT_THAT(shown(lvt_show_rstp_bridge_status), HasSubstr("admin_enabled=0\nvlan_id=0\n"));
    EXPECT_THAT(port_status(9), HasSubstr("vlan_id=0\n"));
}
