// Debug commands from pipe to console, and the status file as its readers see it.
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "daemon_actions.h"
#include "daemon_support.h"
#include "fixture.h"
#include "tests/bpdus.h"
#include "tests/report_texts.h"
#include "tools/messages.h"

namespace {

using namespace e2e;
using testing::ElementsAreArray;
using testing::MatchesRegex;

class daemon_reports : public switches_test_t {
protected:
    void SetUp() override { device.start(); }

    lab::switch_t &device = add_switch();
};

const std::string RULE64 = std::string(64, '=') + "\n";
const std::string RULE68 = std::string(68, '=') + "\n";

/// A line for each of `count` ports, from `first` on; {} stands for the number.
std::string lines(const char *format, int count, int first = 1)
{
    std::string all;
    for (int port = first; port < first + count; port++)
        all += fmt::format(fmt::runtime(format), port);
    return all;
}

struct report_t {
    const char *command;
    std::string text; ///< at boot
};

const report_t REPORTS[] = {
    {"debug show system_config", RULE64 +
                                     "RSTP SYSTEM CONFIG:\n"
                                     "Bridge_Prio | Max_Age | Hello_Time | Fwd_Delay | Force_Ver\n"
                                     "      32768        20            2          15           2\n" +
                                     RULE64},
    {"debug show port_config", RULE64 +
                                   "RSTP PORT CONFIG:\n"
                                   "Port | Path_Cost | Port_Prio | Enable | Edge | P2P\n"
                                   "Aggr Port:\n"
                                   "Aggr           0         128        0      1     2\n" +
                                   std::string(64, '-') + "\n" +
                                   lines("   {}           0         128        0      1     2\n", 6) + RULE64},
    {"debug show rstp_statistics",
     RULE64 +
         "RSTP Statistics:\n"
         "1.stp_frame_xmits, 2.stp_frame_recvs, 3.rstp_frame_xmits,    4.rstp_frame_recvs \n"
         "5.tcn_frame_xmits, 6.tcn_frame_recvs, 7.unknown_frame_recvs, 8.illegal_frame_recvs\n" +
         lines("port{:02}=0,0,0,0,0,0,0,0\n", 9) + RULE64},
    {"debug show port_status",
     RULE68 + "Port Status:\nPort | Link | Speed | Fdx\n" + lines("   {}      0       0     0\n", 6) + RULE68},
    {"debug show aggr_status",
     RULE68 + "RSTP Aggr Status:\nPORT NO | AGGR ID\n" + lines("      {0}         {0}\n", 6) + RULE68},
    {"debug show rstp_aggr_status",
     RULE64 + "RSTP AGGR STATUS:\nPort | Aggr_No\n" + lines("   {}         0\n", 6) + RULE64},
    {"debug show rstp_stp_state",
     RULE64 + "RSTP STP STATE:\nPort | STP State | Fwd State\n" + lines("   {}           4           1\n", 6) + RULE64},
    {"debug show lacp_port_config",
     RULE64 + "RSTP LACP PORT STATE:\nPort | LACP State \n" + lines("   {}           0\n", 6, 0) + RULE64},
    {"debug show rstp_port_status 3", RULE64 + PORT_3_STATUS + RULE64},
    {"debug", MENU},
    {"debug show", MENU},
    {"debug show rstp_port_status", MENU},
    {"debug show rstp_port_status 3 4", MENU},
    {"debug show l2pt_trap", MENU},
    {"debug l2pt_trap 1 1", MENU},
    {"debug help", MENU},
    {"debug bpdu_filter", ""},
    {"debug bpdu_filter off", ""},
};

TEST_F(daemon_reports, every_command_prints_its_report)
{
    for (const auto &[command, text] : REPORTS) {
        EXPECT_EQ(ask(device, command), text) << command;
        EXPECT_EQ(ask(device, std::string(command) + "\n"), text) << command << " with a line end";
    }
    EXPECT_EQ(device.node().read(lab::DAEMON_OUTPUT_FILE), "") << "all of it belongs on the console";
}

TEST_F(daemon_reports, bridge_status)
{
    EXPECT_THAT(ask(device, "debug show bridge_status"),
                MatchesRegex(RULE64 +
                             "RSTP BRIDGE STATUS:\n"
                             "admin_enabled=1\n"
                             "vlan_id=1\n"
                             "This Bridge: Prio=32768, ID=02:00:00:00:01:00\n"
                             "designated_root: Prio=32768, ID=02:00:00:00:01:00\n"
                             "root_cost=0\n"
                             "root_port=0\n"
                             "root_port_prio=0\n"
                             "max_age=20\n"
                             "hello_time=2\n"
                             "forward_delay=15\n"
                             "in_tc=0\n"
                             "tc_count=0\n"
                             "secs_since_last_tc=-?[0-9]+\n"
                             "num_active_ports=0\n" +
                             RULE64));

    serve(device, port_status_message(linked({2, 5})));
    serve(device, port_config_message(enabled({2, 5})));
    const auto report = [&] {
        hear(device, 5, superior_bpdu());
        return ask(device, "debug show bridge_status");
    };
    EXPECT_TRUE(eventually(SOON, report,
                           AllOf(HasSubstr("designated_root: Prio=4096, ID=02:00:00:00:99:00\n"
                                           "root_cost=20000\nroot_port=5\nroot_port_prio=128\n"
                                           "max_age=6\nhello_time=1\nforward_delay=4\n"),
                                 HasSubstr("num_active_ports=2\n")),
                           100ms));
}

TEST_F(daemon_reports, the_bpdu_filter_disarms_the_trap_for_each_port_that_is_off)
{
    watch_t watch(device);
    serve(device, port_config_message(enabled({2, 4})));
    ASSERT_TRUE(ticks(device, 3));
    watch.news();

    const std::string state = "bpdu_filter_en = ";
    EXPECT_EQ(ask(device, "debug bpdu_filter enable"), "");
    EXPECT_THAT(watch.news(), ElementsAreArray(actions_t(4, disarms_trap())));
    EXPECT_EQ(ask(device, "debug show bpdu_filter"), state + "1\n");
    EXPECT_EQ(ask(device, "debug bpdu_filter disable"), "");
    EXPECT_THAT(watch.news(), ElementsAreArray(actions_t(4, disarms_trap())));
    EXPECT_EQ(ask(device, "debug show bpdu_filter"), state + "0\n");
    EXPECT_FALSE(device.client().is_trapped("01:80:c2:00:00:00"));
}

TEST_F(daemon_reports, commands_from_a_shell)
{
    const size_t before = device.node().read(lab::CONSOLE_FILE).size();
    ASSERT_EQ(
        device.node().run({.argv = {"sh", "-c", "echo debug show system_config > /tmp/rstp_dbg_if_pipe"}}).exit_code,
        0);
    EXPECT_TRUE(eventually(
        SOON, [&] { return device.node().read(lab::CONSOLE_FILE).substr(before); }, REPORTS[0].text));
}

TEST_F(daemon_reports, all_reports_while_ports_come_and_go)
{
    // Reports read live values: this is where a data race would show.
    serve(device, port_config_message(enabled({1, 2, 3, 4, 5, 6})));
    const auto until = std::chrono::steady_clock::now() + 3s;
    for (int round = 0; std::chrono::steady_clock::now() < until; round++) {
        serve(device, port_status_message(round % 2 ? linked({1, 3, 5}) : linked({2, 3, 4, 6})));
        hear(device, 3, superior_bpdu());
        ask(device, "debug show bridge_status");
        all_reports(device);
    }
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_reports, the_status_file_is_whole_whenever_it_is_read)
{
    ASSERT_TRUE(ticks(device, 1));
    serve(device, port_status_message(linked({1, 3})));
    serve(device, port_config_message(enabled({1, 3})));

    const std::string path = device.node().path(lab::STATUS_FILE);
    const auto until = std::chrono::steady_clock::now() + 3s;
    std::string last;
    int reads = 0, news = 0;
    for (; std::chrono::steady_clock::now() < until; reads++) {
        std::ifstream file(path);
        std::ostringstream text;
        text << file.rdbuf();
        ASSERT_TRUE(lab::parse_status(text.str())) << "read number " << reads << ":\n" << text.str();
        news += text.str() != last;
        last = text.str();
    }
    EXPECT_GT(reads, 1000);
    EXPECT_GE(news, 3);
}

TEST_F(daemon_reports, the_status_file_counts_in_its_own_order)
{
    serve(device, port_status_message(linked({6})));
    serve(device, port_config_message(enabled({6})));
    for (int i = 0; i < 5; i++)
        hear(device, 2, tcn_bpdu());
    for (int i = 0; i < 4; i++)
        hear(device, 2, config_bpdu(root_bridge(4096, 0x99)));
    for (int i = 0; i < 3; i++)
        hear(device, 2, superior_bpdu());
    bpdu_t odd = superior_bpdu();
    odd.type = 3;
    for (int i = 0; i < 2; i++)
        hear(device, 2, odd);
    odd.dsap = 0;
    hear(device, 2, odd);

    ASSERT_TRUE(ticks(device, 2));
    // Sent: RST, configuration, TCN; received: the same; malformed, unknown.
    EXPECT_THAT(device.node().read(lab::STATUS_FILE), testing::HasSubstr("port02=0,0,0,3,4,5,1,2\n"));
    EXPECT_EQ(counts(device, 2),
              (counts_t{.stp_received = 4, .rstp_received = 3, .tcn_received = 5, .unknown = 2, .illegal = 1}));
    ASSERT_TRUE(
        status_within(device, SOON, [](const lab::bridge_status_t &status) { return status.port(6).sent.rstp >= 2; }));
}

/// Gives a switch a zone, as a file of its /etc: hours east of Greenwich, all year. False where a switch
/// can write no /etc of its own.
bool set_zone(const lab::switch_t &device, int hours)
{
    const std::string path = device.node().path("/etc/localtime");
    const int offset = hours * 3600;
    std::string file("TZif", 4);
    file.append(32 + 3, '\0');                   // version 1; no leap seconds, no transitions
    file += '\1';                                // one kind of time
    file += std::string("\0\0\0\4", 4);          // its name has four octets
    for (int shift = 24; shift >= 0; shift -= 8) // and its offset
        file += static_cast<char>(offset >> shift);
    file += std::string("\0\0XST\0", 6);
    std::error_code error;
    std::filesystem::remove(path, error);
    std::ofstream stream(path);
    stream << file << std::flush;
    return stream.good();
}

/// When the status file says that the topology changed last, in seconds of its own zone.
time_t time_of_change(const lab::switch_t &device)
{
    const auto status = device.status();
    tm parts = {};
    return status && strptime(status->changed_at.c_str(), "%Y/%m/%d %H:%M:%S", &parts) ? timegm(&parts) : 0;
}

TEST_F(daemon_reports, a_new_time_zone_is_taken_at_once)
{
    lab::switch_t &other = add_switch({.daemon_wrapper = {"env", "-u", "TZ"}});
    ASSERT_TRUE(set_zone(other, 0));
    other.start();
    ASSERT_TRUE(lab::within(SOON, [&] { return time_of_change(other) != 0; }));
    const time_t start = time(nullptr);
    EXPECT_NEAR(static_cast<double>(time_of_change(other)), static_cast<double>(start), 20);
    for (const int hours : {5, -7}) {
        ASSERT_TRUE(set_zone(other, hours));
        ASSERT_TRUE(ticks(other, 2));
        EXPECT_NEAR(static_cast<double>(time_of_change(other)), static_cast<double>(start + hours * 3600), 20);
    }
}

TEST_F(daemon_reports, a_tick_is_a_second)
{
    ASSERT_TRUE(ticks(device, 1));
    const auto written = [&] { return std::filesystem::last_write_time(device.node().path(lab::STATUS_FILE)); };
    const auto begin = written();
    ASSERT_TRUE(ticks(device, 3));
    EXPECT_GE(written() - begin, 2900ms);
}

} // namespace
