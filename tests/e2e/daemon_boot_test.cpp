// From the first register write to the first tick.
#include <cstring>
#include <filesystem>
#include <list>
#include <set>
#include <sstream>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include "board/lab/cable.h"
#include "platform/messages.h"
#include "daemon_actions.h"
#include "fixture.h"

namespace {

using namespace e2e;
using testing::ElementsAreArray;
using testing::HasSubstr;

class daemon_boot : public switches_test_t {};

constexpr char BANNER[] =
    "*****************************\n"
    "*   RSTP Initial Complete   *\n"
    "*****************************\n";

/// The switch's own address is 02:00:00:00:01:00.
actions_t whole_boot()
{
    actions_t boot;
    for (int port = 1; port <= 6; port++)
        boot.push_back(writes_rule(port, 0x000100 + static_cast<unsigned>(port) - 1));
    for (int port = 1; port <= 6; port++)
        for (int time = 0; time < 2; time++)
            boot = boot + actions_t{writes_state(port, 4), tells_mux(port, true)};
    boot.push_back(flushes());
    return boot;
}

TEST_F(daemon_boot, writes_rules_then_states_then_flushes)
{
    lab::switch_t &device = add_switch();
    device.start();

    EXPECT_THAT(watch_t(device).news(), ElementsAreArray(whole_boot()));
    const auto counters = device.client().show("counters").at("board");
    EXPECT_EQ(counters.at("batches"), 19);
    EXPECT_EQ(counters.at("batches_failed"), 0);
    for (int port = 1; port <= 6; port++)
        EXPECT_EQ(device.client().port(static_cast<unsigned>(port)).state, HW_FORWARDING) << port;
}

TEST_F(daemon_boot, does_the_same_when_ports_have_link)
{
    lab::switch_t &device = add_switch();
    const lab::node_t far("far", 100);
    std::list<lab::cable_t> cables;
    for (const int port : {1, 4, 5})
        cables.emplace_back(device.port(port), lab::cable_end_t{&far, fmt::format("port{}", port), far.mac(port)});
    device.start();

    EXPECT_THAT(watch_t(device).news(), ElementsAreArray(whole_boot()));
    EXPECT_THAT(ask(device, "debug show port_status"), HasSubstr("   1      1       3     1\n"
                                                                 "   2      0       0     0\n"
                                                                 "   3      0       0     0\n"
                                                                 "   4      1       3     1\n"
                                                                 "   5      1       3     1\n"
                                                                 "   6      0       0     0\n"));
}

TEST_F(daemon_boot, finds_pipes_that_nobody_else_can_open)
{
    lab::switch_t &device = add_switch();
    device.start();
    for (const char *pipe : {RSTP_IF_PIPE, RSTP_DBG_IF_PIPE, LACP_IF_PIPE, PORT_MUX_IF_PIPE}) {
        const std::filesystem::file_status status = std::filesystem::status(device.node().path(pipe));
        EXPECT_EQ(status.type(), std::filesystem::file_type::fifo) << pipe;
        EXPECT_EQ(status.permissions(), std::filesystem::perms::owner_read | std::filesystem::perms::owner_write)
            << pipe;
    }
}

TEST_F(daemon_boot, asks_for_the_links_once_between_rules_and_states)
{
    lab::switch_t &device = add_switch();
    device.start();

    std::string order;
    for (const event_t &event : diary(device)) {
        if (event.topic == "link" && event.values.contains("asked"))
            order += "link ";
        if (event.topic == "mdio" && event.values.contains("ops"))
            order += event.values.at("ops") + " ";
    }
    EXPECT_EQ(order, "21 21 21 21 21 21 link 1 1 1 1 1 1 1 1 1 1 1 1 2 ");
}

TEST_F(daemon_boot, tells_the_multiplexer_twice_per_port)
{
    lab::switch_t &device = add_switch();
    device.start();

    const auto messages = device.client().messages();
    ASSERT_EQ(messages.size(), 12u);
    for (size_t i = 0; i < messages.size(); i++) {
        EXPECT_EQ(messages[i].at("pipe"), "mux");
        // Magic, a length of 100, type 2, the port at octet 10, forwarding at octet 24, 124 octets in all.
        const std::string expected = fmt::format("b20666a8{}0200{:02x}{}01{}", "64000000", i / 2 + 1,
                                                 std::string(26, '0'), std::string(198, '0'));
        EXPECT_EQ(expected.size(), 2 * 124u);
        EXPECT_EQ(messages[i].at("raw"), expected);
    }
}

TEST_F(daemon_boot, prints_its_banner_once_and_nothing_else)
{
    lab::switch_t &device = add_switch();
    device.start();
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_EQ(device.node().read(lab::CONSOLE_FILE), BANNER);
    EXPECT_EQ(device.node().read(lab::DAEMON_OUTPUT_FILE), "");
    EXPECT_EQ(device.node().read(lab::DAEMON_ERROR_FILE), "");
}

TEST_F(daemon_boot, starts_outside_the_spanning_tree)
{
    lab::switch_t &device = add_switch();
    device.start();
    ASSERT_TRUE(ticks(device, 1));

    const std::string status = device.node().read(lab::STATUS_FILE);
    const size_t time = status.find("bridge_time=");
    ASSERT_NE(time, std::string::npos);
    EXPECT_EQ(status.substr(0, time),
              "@rstp_bridge_overview\n"
              "bridge_overview=32768:02-00-00-00-01-00,20,2,15,0,32768:02-00-00-00-01-00,0\n"
              "\n"
              "@rstp_bridge_time\n");
    std::string ports = "\n\n@rstp_port_status\n", counters = "\n@rstp_statistics\n";
    for (int port = 1; port <= 9; port++) {
        ports += fmt::format("port{:02}=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0\n", port);
        counters += fmt::format("port{:02}=0,0,0,0,0,0,0,0\n", port);
    }
    EXPECT_EQ(status.substr(status.find('\n', time)), ports + counters + "!\n");
    EXPECT_TRUE(ticks(device, 1));
    EXPECT_EQ(diary(device, "tx").size(), 0u) << "a BPDU was sent";
}

#ifdef LVT_RAPID
TEST_F(daemon_boot, does_the_same_when_it_is_asked_to_be_rapid)
{
    lab::switch_t &device = add_switch({.rapid = true});
    device.start();
    EXPECT_THAT(watch_t(device).news(), ElementsAreArray(whole_boot()));
}

#endif

std::string program_path() { return std::filesystem::read_symlink("/proc/self/exe").replace_filename("lvt_rstpd"); }

constexpr char USAGE[] = "lvt_rstpd [--rapid | --help | --version]\n";

TEST(daemon_program, tells_of_itself)
{
    const lab::outcome_t help = lab::run({.argv = {program_path(), "--help"}});
    EXPECT_EQ(help.output, USAGE);
    EXPECT_EQ(help.exit_code, 0);
    const lab::outcome_t version = lab::run({.argv = {program_path(), "--version"}});
    EXPECT_EQ(version.output, LVT_VERSION "\n");
    EXPECT_EQ(version.exit_code, 0);
}

TEST(daemon_program, refuses_other_arguments_before_it_opens_anything)
{
    const std::vector<std::vector<std::string>> rows = {
        {"--bogus"}, {""}, {"17"}, {"--rapid", "--rapid"}, {"--rapids"}};
    for (std::vector<std::string> argv : rows) {
        argv.insert(argv.begin(), program_path());
        const lab::outcome_t outcome = lab::run({.argv = argv});
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_EQ(outcome.output, USAGE) << "it tells of what it cannot open, too";
    }
}

TEST(daemon_program, cannot_be_rapid_without_the_program_beside_it)
{
    char folder[] = "/tmp/lvt_alone.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const std::string deep = folder + ("/" + std::string(250 - strlen(folder) - strlen("//lvt_rstpd"), 'x'));
    std::filesystem::create_directories(deep);
    const std::string alone = std::string(folder) + "/lvt_rstpd", too_deep = deep + "/lvt_rstpd";
    for (const std::string &link : {alone, too_deep})
        std::filesystem::create_symlink(program_path(), link);
    const lab::outcome_t outcome = lab::run({.argv = {alone, "--rapid"}});
    const lab::outcome_t of_too_deep = lab::run({.argv = {too_deep, "--rapid"}});
    std::filesystem::remove_all(folder);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.output, alone + "_rapid: No such file or directory\n");
    EXPECT_EQ(of_too_deep.exit_code, 2);
    EXPECT_THAT(of_too_deep.output, testing::EndsWith(": File name too long\n"));
}

TEST(daemon_program, needs_the_board_libraries_and_libc_only)
{
    const std::string program = program_path();
    const lab::outcome_t outcome = lab::run({.argv = {"readelf", "--dynamic", "--wide", program}});
    ASSERT_EQ(outcome.exit_code, 0) << outcome.output;

    std::istringstream lines(outcome.output);
    std::set<std::string> needed;
    for (std::string line; std::getline(lines, line);)
        if (line.find("(NEEDED)") != std::string::npos)
            needed.insert(line.substr(line.find('[')));
    EXPECT_THAT(needed,
                testing::ElementsAre("[libLvtCom.so]", "[libc.so.6]", "[liblink_mon_intf.so]", "[libmdio_intf.so]"));
}

} // namespace
