/// The status file, octet by octet.
#include "diag/monitor.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "daemon/diag_out.h"
#include "daemon_fixture.h"

namespace {

namespace fs = std::filesystem;

constexpr int64_t NOON = 1700049600; // 2023-11-15 12:00:00 UTC

class monitor : public daemon_test {
protected:
    monitor() { board.now = NOON; }

    /// The file, written now.
    std::string written()
    {
        EXPECT_EQ(lvt_rstp_monitor_info_write(), 0);
        std::ifstream file(path("rstp_monitor"));
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

    /// The line of the time section that begins with "bridge_time=".
    std::string time_line() { return line("bridge_time="); }

    std::string line(const std::string &start)
    {
        std::istringstream text(written());
        for (std::string each; std::getline(text, each);)
            if (each.starts_with(start))
                return each;
        return "no such line";
    }

    /// Line of port 1 to 9 in the port section.
    std::string port_line(uint32_t port)
    {
        const std::string text = written();
        const size_t start = text.find("port0" + std::to_string(port) + "=");
        return text.substr(start, text.find('\n', start) - start);
    }

    std::string content(const std::string &name) const
    {
        std::stringstream text;
        text << std::ifstream(path(name)).rdbuf();
        return text.str();
    }

    /// Files of the daemon in its folder, pipes left out.
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto &entry : fs::directory_iterator(board.folder))
            if (entry.is_regular_file())
                names.push_back(entry.path().filename());
        return names;
    }

    static void time_since_tc(uint16_t count) { lvt_rstp_vars.bridge.timeSinceTc = count; }
};

std::string zero_counters()
{
    std::string text;
    for (int port = 1; port <= 9; port++)
        text += "port0" + std::to_string(port) + "=0,0,0,0,0,0,0,0\n";
    return text;
}

} // namespace

TEST_F(monitor, after_the_start)
{
    boot();
    std::string expected =
        "@rstp_bridge_overview\n"
        "bridge_overview=32768:00-11-22-33-44-50,20,2,15,0,32768:00-11-22-33-44-50,0\n"
        "\n@rstp_bridge_time\n"
        "bridge_time=2023/11/15 11:59:59,0,1\n"
        "\n@rstp_port_status\n";
    for (int port = 1; port <= 9; port++)
        expected += "port0" + std::to_string(port) + "=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0\n";
    expected += "\n@rstp_statistics\n" + zero_counters() + "!\n";
    EXPECT_EQ(written(), expected);
}

TEST_F(monitor, with_a_tree)
{
    boot({1, 2, 3, 4});
    send_system({.bridge_priority = 40960,
                 .max_age = 20,
                 .hello_time = 2,
                 .forward_delay = 15,
                 .force_version = 2,
                 .reserved = 0});
    ports[4].adminEdge = 0;
    ports[4].adminPointToPoint = 1;
    send_enabled({1, 2, 3, 4});
    seconds(6);
    // A root behind port 2 with a second way behind port 3.
    send_bpdu(2, frame_of({.root = {0x1000, {0xA, 0xB, 0xC, 0xD, 0xE, 0xF}},
                           .cost = 7,
                           .bridge = id_of(0x2001, 0x11),
                           .port_id = 0x8009,
                           .times = {.MessageAge = 0, .MaxAge = 10, .ForwardDelay = 6, .HelloTime = 1}}));
    send_bpdu(3, frame_of({.root = {0x1000, {0xA, 0xB, 0xC, 0xD, 0xE, 0xF}},
                           .cost = 8,
                           .bridge = id_of(0x2002, 0x11),
                           .port_id = 0xF234,
                           .times = {.MessageAge = 0, .MaxAge = 10, .ForwardDelay = 6, .HelloTime = 1}}));
    lvt_rstp_run_pending();
    seconds(1);
    for (port_t &port : lvt_rstp_vars.ports)
        port.rstp_frame_xmits = port.rstp_frame_recvs = 0;
    lvt_rstp_vars.bridge.topoChange = 0;
    lvt_rstp_vars.bridge.timeSinceTc = 3600;
    lvt_rstp_vars.bridge.lastTcPort = 2;

    EXPECT_EQ(written(),
              "@rstp_bridge_overview\n"
              "bridge_overview=40960:00-11-22-33-44-50,10,1,6,0,4096:0a-0b-0c-0d-0e-0f,2\n"
              "\n@rstp_bridge_time\n"
              "bridge_time=2023/11/15 11:00:00,2,3600\n"
              "\n@rstp_port_status\n"
              "port01=20000,1,1,0,4,4,0,40960:00-11-22-33-44-50/1\n"
              "port02=20000,0,1,0,3,4,0,8193:02-00-00-00-00-11/9\n"
              "port03=20000,0,1,0,1,1,0,8194:02-00-00-00-00-11/564\n"
              "port04=20000,0,0,0,4,1,0,40960:00-11-22-33-44-50/4\n"
              "port05=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0\n"
              "port06=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0\n"
              "port07=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0\n"
              "port08=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0\n"
              "port09=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0\n"
              "\n@rstp_statistics\n" +
                  zero_counters() + "!\n");
}

TEST_F(monitor, with_a_group)
{
    boot({1, 2});
    lvt_rstp_port_config_t on = LVT_RSTP_PORT_DEFAULTS;
    on.adminEnable = 1;
    send_group_settings(on);
    send_groups({0, 8, 8, 3, 4, 5, 6});
    seconds(6);
    EXPECT_EQ(port_line(1), "port01=0,1,1,0,5,5,8,0:00-00-00-00-00-00/0");
    EXPECT_EQ(port_line(2), "port02=0,1,1,0,5,5,8,0:00-00-00-00-00-00/0");
    EXPECT_EQ(port_line(3), "port03=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0");
    EXPECT_EQ(port_line(8), "port08=10000,1,1,0,4,4,0,32768:00-11-22-33-44-50/8");
}

TEST_F(monitor, ports_outside_show_their_settings)
{
    boot({1});
    send_enabled({1, 2});
    seconds(2); // port 2 has no link: disabled
    EXPECT_EQ(port_line(2), "port02=0,1,1,0,0,0,0,0:00-00-00-00-00-00/0");
    ports[2].adminEdge = 0;
    ports[2].adminPointToPoint = 1;
    ports[3].adminEdge = 4;
    ports[3].adminPointToPoint = 0;
    send_ports();
    seconds(1);
    EXPECT_EQ(port_line(2), "port02=0,0,0,0,0,0,0,0:00-00-00-00-00-00/0");
    EXPECT_EQ(port_line(3), "port03=0,4,1,0,5,5,0,0:00-00-00-00-00-00/0");
}

TEST_F(monitor, a_neighbour_of_old)
{
    boot({1});
    send_enabled({1});
    seconds(5);
    send_bpdu(1, frame_of({.type = 0x00, .version = 0, .flags = 0, .root = id_of(0xF000, 0x11)}));
    seconds(1);
    EXPECT_EQ(port_line(1), "port01=20000,0,1,1,4,4,0,32768:00-11-22-33-44-50/1");
}

TEST_F(monitor, largest_values)
{
    boot();
    port_t &port = record(1);
    port.role = ROLE_DESIGNATED;
    port.pathCost = 0xFFFFFFFE;
    port.portPrio.design_bridge = {65535, {255, 255, 255, 255, 255, 255}};
    port.portPrio.design_port = 0xFFFF;
    stpm_t &bridge = lvt_rstp_vars.bridge;
    bridge.rootTimes = {255, 255, 255, 255};
    bridge.rootPortId = 0xFFFF;
    bridge.rootPrio.root_bridge = {65535, {255, 255, 255, 255, 255, 255}};
    EXPECT_THAT(port_line(1), testing::StartsWith("port01=-2,"));
    EXPECT_THAT(port_line(1), testing::EndsWith(",65535:ff-ff-ff-ff-ff-ff/4095"));
    EXPECT_EQ(line("bridge_overview="),
              "bridge_overview=32768:00-11-22-33-44-50,255,255,255,0,65535:ff-ff-ff-ff-ff-ff,4095");
}

TEST_F(monitor, counters_have_an_order_of_their_own)
{
    boot();
    port_t &port = record(9);
    port.stp_frame_xmits = 1;
    port.stp_frame_recvs = 2;
    port.rstp_frame_xmits = 3;
    port.rstp_frame_recvs = 4;
    port.tcn_frame_xmits = 5;
    port.tcn_frame_recvs = 6;
    port.unknown_frame_recvs = 7;
    port.illegal_frame_recvs = 0x80000000;
    EXPECT_THAT(written(), testing::EndsWith("\nport09=3,1,5,4,2,6,-2147483648,7\n!\n"));
}

// ---- the time of the last topology change -----------------------------------------------

TEST_F(monitor, during_a_topology_change)
{
    boot();
    lvt_rstp_vars.bridge.topoChange = 1;
    lvt_rstp_vars.bridge.lastTcPort = 4;
    time_since_tc(0);
    EXPECT_EQ(time_line(), "bridge_time=,0,0");
    EXPECT_THAT(line("bridge_overview="), HasSubstr(",20,2,15,1,"));
}

TEST_F(monitor, after_a_topology_change)
{
    boot();
    lvt_rstp_vars.bridge.lastTcPort = 4;
    time_since_tc(100);
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 11:58:20,4,100");
}

TEST_F(monitor, time_across_midnight_and_year)
{
    boot();
    board.now = 1704067205; // 2024-01-01 00:00:05
    time_since_tc(5);
    EXPECT_EQ(time_line(), "bridge_time=2024/01/01 00:00:00,0,5");
    time_since_tc(10);
    EXPECT_EQ(time_line(), "bridge_time=2023/12/31 23:59:55,0,10");
    board.now = 9;
    time_since_tc(4);
    EXPECT_EQ(time_line(), "bridge_time=1970/01/01 00:00:05,0,4");
}

TEST_F(monitor, jitter_of_two_seconds_is_not_shown)
{
    boot();
    time_since_tc(60);
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 11:59:00,0,60");
    for (const int64_t jitter : {1, 2, -1, -2, 0, 2}) { // always against what is shown, so it does not creep
        board.now = NOON + 60 + jitter;
        time_since_tc(120);
        EXPECT_EQ(time_line(), "bridge_time=2023/11/15 11:59:00,0,120") << jitter;
    }
    board.now = NOON + 3;
    time_since_tc(60);
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 11:59:03,0,60");
    board.now = NOON;
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 11:59:00,0,60");
}

TEST_F(monitor, a_topology_change_forgets_what_was_shown)
{
    boot();
    time_since_tc(60);
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 11:59:00,0,60");
    time_since_tc(0);
    EXPECT_EQ(time_line(), "bridge_time=,0,0");
    board.now = NOON + 1;
    time_since_tc(60);
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 11:59:01,0,60");
}

TEST_F(monitor, the_rule_of_the_shown_time)
{
    const struct {
        int32_t shown_before, now, expected;
    } rows[] = {
        {0, 1000, 990},   {990, 1000, 990}, {991, 1000, 991}, {992, 1000, 992}, {993, 1000, 990},
        {989, 1000, 989}, {988, 1000, 988}, {987, 1000, 990}, {1, 1000, 990},   {-1, 1000, 990},
        {0, 11, 1},       {0, 10, 0},       {1, 10, 1},       {-5, 3, -5},      {2147483647, 1000, 990},
    };
    for (const auto &row : rows) {
        int32_t shown = row.shown_before;
        EXPECT_EQ(monitor_tc_time(row.now, 10, &shown), row.expected) << row.shown_before;
        EXPECT_EQ(shown, row.expected);
    }
    int32_t shown = 0;
    EXPECT_EQ(monitor_tc_time(100000, 65535, &shown), 34465);
}

TEST(monitor_time, goes_round_with_the_clock)
{
    int32_t shown = 0;
    EXPECT_EQ(monitor_tc_time(INT32_MIN + 3, 10, &shown), INT32_MAX - 6);
    EXPECT_EQ(monitor_tc_time(INT32_MIN + 5, 10, &shown), INT32_MAX - 6);
    EXPECT_EQ(monitor_tc_time(INT32_MIN + 6, 10, &shown), INT32_MAX - 3);
    shown = INT32_MAX - 1;
    EXPECT_EQ(monitor_tc_time(INT32_MIN + 10, 10, &shown), INT32_MAX - 1);
    EXPECT_EQ(monitor_tc_time(INT32_MIN + 100, 1, &shown), INT32_MIN + 99);
}

// ---- the file ---------------------------------------------------------------------------

TEST_F(monitor, the_file_is_replaced)
{
    boot();
    std::ofstream(path("rstp_monitor")) << std::string(100000, 'x');
    const std::string text = written();
    EXPECT_THAT(text, testing::StartsWith("@rstp_bridge_overview\n"));
    EXPECT_THAT(text, testing::EndsWith("\n!\n"));
    EXPECT_LT(text.size(), 2000u);
    EXPECT_THAT(files(), ElementsAre("rstp_monitor"));
    EXPECT_EQ(board_console(), "");
}

TEST_F(monitor, a_reader_keeps_the_whole_file_that_it_opened)
{
    boot();
    const std::string before = written();
    std::ifstream reader(path("rstp_monitor"));
    time_since_tc(4711);
    written();
    std::stringstream text;
    text << reader.rdbuf();
    EXPECT_EQ(text.str(), before);
}

TEST_F(monitor, a_missing_folder_is_told_and_the_next_tick_tries_again)
{
    boot();
    const std::string folder = board.folder;
    board.folder += "/gone";
    EXPECT_EQ(stderr_of([] { EXPECT_EQ(lvt_rstp_monitor_info_write(), -1); }), "");
    EXPECT_EQ(board_console(), "rstp_monitor open failure");
    EXPECT_EQ(lvt_rstp_monitor_info_write(), -1);
    EXPECT_EQ(board_console(), "rstp_monitor open failure"); // no line end
    board.folder = folder;
    EXPECT_THAT(written(), testing::EndsWith("!\n"));
    EXPECT_EQ(board_console(), "");
}

TEST_F(monitor, a_folder_in_its_place_is_told_and_nothing_is_left)
{
    boot();
    fs::create_directory(path("rstp_monitor"));
    EXPECT_EQ(lvt_rstp_monitor_info_write(), -1);
    EXPECT_EQ(board_console(), "rstp_monitor open failure");
    EXPECT_THAT(files(), IsEmpty());
    fs::remove(path("rstp_monitor"));
    EXPECT_THAT(written(), testing::EndsWith("!\n"));
    EXPECT_THAT(files(), ElementsAre("rstp_monitor"));
}

TEST_F(monitor, without_room_the_last_file_stays_and_nothing_is_said)
{
    boot();
    const std::string before = written();
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit none = {100, limit.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &none);
    const int result = lvt_rstp_monitor_info_write();
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(board_console(), "");
    EXPECT_THAT(files(), ElementsAre("rstp_monitor"));
    EXPECT_EQ(content("rstp_monitor"), before);
}

// Everyone may write in the file's folder.
TEST_F(monitor, a_link_of_the_temporary_name_is_not_followed)
{
    boot();
    std::ofstream(path("precious")) << "precious";
    fs::create_symlink(path("precious"), path("rstp_monitor.tmp"));
    EXPECT_THAT(written(), testing::EndsWith("!\n"));
    EXPECT_EQ(content("precious"), "precious");
    EXPECT_FALSE(fs::is_symlink(path("rstp_monitor")));
}

TEST_F(monitor, a_pipe_of_the_temporary_name_holds_nobody_up)
{
    boot();
    ASSERT_EQ(mkfifo(path("rstp_monitor.tmp").c_str(), 0666), 0);
    EXPECT_THAT(written(), testing::EndsWith("!\n"));
    EXPECT_TRUE(fs::is_regular_file(path("rstp_monitor")));
}

TEST_F(monitor, a_temporary_name_that_cannot_be_had_is_told_and_tried_again)
{
    boot();
    fs::create_directories(path("rstp_monitor.tmp/full"));
    EXPECT_EQ(lvt_rstp_monitor_info_write(), -1);
    EXPECT_EQ(board_console(), "rstp_monitor open failure");
    fs::remove_all(path("rstp_monitor.tmp"));
    EXPECT_THAT(written(), testing::EndsWith("!\n"));
    EXPECT_EQ(board_console(), "");
}

TEST_F(monitor, no_program_that_is_started_inherits_the_file)
{
    boot();
    FILE *file = process_create_file("/tmp/rstp_monitor.tmp");
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(fcntl(fileno(file), F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(process_place_file(file, "/tmp/rstp_monitor.tmp", "/tmp/rstp_monitor"), 0);
}

TEST_F(monitor, the_zone_of_the_machine_is_looked_at_anew)
{
    boot();
    time_since_tc(60);
    setenv("TZ", "XST-3", 1);
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 14:59:00,0,60");
    setenv("TZ", "YST5:30", 1);
    EXPECT_EQ(time_line(), "bridge_time=2023/11/15 06:29:00,0,60");
}

TEST_F(monitor, it_is_written_without_a_lock_and_steps_nothing)
{
    boot({1, 2});
    send_enabled({1, 2});
    const port_t *const pending = current_port;
    ASSERT_NE(pending, nullptr);
    written();
    EXPECT_EQ(current_port, pending);
}
