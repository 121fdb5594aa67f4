// A board on which something is missing, broken or full: what the daemon says, and that it goes on.
#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "board/lab/cable.h"
#include "daemon_actions.h"
#include "daemon_support.h"
#include "fixture.h"
#include "tests/bpdus.h"
#include "tools/messages.h"

namespace {

using namespace e2e;
using testing::Contains;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class daemon_hard_days : public switches_test_t {
protected:
    void SetUp() override { device.start_board(); }

    std::string output() const { return device.node().read(lab::DAEMON_OUTPUT_FILE); }
    std::string errors() const { return device.node().read(lab::DAEMON_ERROR_FILE); }
    std::string console() const { return device.node().read(lab::CONSOLE_FILE); }
    void remove(const char *path) const { ASSERT_TRUE(std::filesystem::remove(device.node().path(path))) << path; }

    /// The daemon ends at once with status 1, after saying so.
    void expect_refusal(const std::string &words)
    {
        EXPECT_THROW(device.start_daemon(), std::runtime_error);
        EXPECT_EQ(device.daemon().exit_code(), 1);
        EXPECT_EQ(output(), words + "\n");
        EXPECT_EQ(errors(), "");
        EXPECT_EQ(console(), "");
    }

    lab::switch_t &device = add_switch();
    watch_t watch{device};
};

std::string repeated(const std::string &text, size_t times)
{
    std::string all;
    for (size_t i = 0; i < times; i++)
        all += text;
    return all;
}

constexpr char BATCH_FAILED[] = "E:{}() L{}, mdio_intf_access_multi failed\n";

/// What the boot writes between rules and flush.
actions_t all_states()
{
    actions_t states;
    for (int port = 1; port <= 6; port++)
        for (int time = 0; time < 2; time++)
            states = states + actions_t{writes_state(port, 4), tells_mux(port, true)};
    return states;
}

// ---- pipes ------------------------------------------------------------------------------------

TEST_F(daemon_hard_days, without_its_control_pipe_it_ends)
{
    remove(RSTP_IF_PIPE);
    expect_refusal("RSTP pipe initial fail");
    EXPECT_FALSE(std::filesystem::exists(device.node().path(RSTP_IF_PIPE))) << "it makes no pipes";
}

TEST_F(daemon_hard_days, without_its_debug_pipe_it_ends)
{
    remove(RSTP_DBG_IF_PIPE);
    expect_refusal("RSTP DEBUG pipe initial fail");
    EXPECT_FALSE(std::filesystem::exists(device.node().path(RSTP_DBG_IF_PIPE)));
}

TEST_F(daemon_hard_days, without_both_pipes_it_names_the_first)
{
    remove(RSTP_DBG_IF_PIPE);
    remove(RSTP_IF_PIPE);
    expect_refusal("RSTP pipe initial fail");
}

TEST_F(daemon_hard_days, without_the_multiplexer_pipe_it_works)
{
    remove(PORT_MUX_IF_PIPE);
    device.start_daemon();
    serve(device, port_config_message(enabled({2})));
    EXPECT_TRUE(is_sound(device));

    const actions_t actions = watch.news();
    EXPECT_EQ(std::count(actions.begin(), actions.end(), writes_state(6, 4)), 2);
    EXPECT_THAT(actions, Contains(writes_state(2, 1)));
    for (const std::string &action : actions)
        EXPECT_THAT(action, testing::Not(StartsWith("mux")));
    EXPECT_FALSE(std::filesystem::exists(device.node().path(PORT_MUX_IF_PIPE)));
    EXPECT_EQ(output() + errors(), "");
}

/// Puts a file of `text` in the place of whatever has the name.
void put_file(const lab::switch_t &device, const char *path, const std::string &text)
{
    std::filesystem::remove(device.node().path(path));
    std::ofstream(device.node().path(path)) << text;
}

TEST_F(daemon_hard_days, with_a_file_for_its_control_pipe_it_ends)
{
    put_file(device, RSTP_IF_PIPE, "kept");
    expect_refusal("RSTP pipe initial fail");
    EXPECT_EQ(device.node().read(RSTP_IF_PIPE), "kept");
}

TEST_F(daemon_hard_days, with_a_file_for_its_debug_pipe_it_ends)
{
    put_file(device, RSTP_DBG_IF_PIPE, "kept");
    expect_refusal("RSTP DEBUG pipe initial fail");
    EXPECT_EQ(device.node().read(RSTP_DBG_IF_PIPE), "kept");
}

TEST_F(daemon_hard_days, files_for_the_other_pipes_are_not_written)
{
    put_file(device, LACP_IF_PIPE, "kept");
    put_file(device, PORT_MUX_IF_PIPE, "kept");
    device.start_daemon();
    serve(device, port_config_message(enabled({1})));
    EXPECT_EQ(output(), "Setting lacp_rstp_status is fail");
    EXPECT_TRUE(is_sound(device));
    EXPECT_EQ(device.node().read(LACP_IF_PIPE), "kept");
    EXPECT_EQ(device.node().read(PORT_MUX_IF_PIPE), "kept");
    EXPECT_EQ(errors(), "");
}

/// Fills a pipe up. The descriptor keeps what is in there.
fd_t fill(const lab::switch_t &device, const char *pipe)
{
    fd_t fd(lab::checked(open(device.node().path(pipe).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC), pipe));
    const std::vector<char> zeros(4096);
    while (write(fd.number(), zeros.data(), zeros.size()) > 0 || write(fd.number(), zeros.data(), 1) > 0)
        continue;
    return fd;
}

void empty(const fd_t &fd)
{
    std::array<char, 4096> octets;
    while (read(fd.number(), octets.data(), octets.size()) > 0)
        continue;
}

TEST_F(daemon_hard_days, a_full_multiplexer_pipe_is_not_waited_for)
{
    device.client().set_pipes_unread(true);
    const fd_t full = fill(device, PORT_MUX_IF_PIPE);
    device.start_daemon();
    serve(device, port_config_message(enabled({2})));
    EXPECT_TRUE(is_sound(device));
    EXPECT_EQ(device.client().port(2).state, HW_DISCARDING);
    EXPECT_EQ(output() + errors(), "");

    // With room again, the next message goes through; those of before are gone.
    empty(full);
    device.client().set_pipes_unread(false);
    serve(device, port_config_message(enabled({})));
    ASSERT_TRUE(eventually(
        SOON, [&] { return device.client().messages().size(); }, Ge(1)));
    std::vector<unsigned> ports;
    for (const auto &message : device.client().messages())
        if (message.at("pipe") == "mux")
            ports.push_back(message.at("port"));
    EXPECT_THAT(ports, testing::ElementsAre(2u));
}

TEST_F(daemon_hard_days, without_the_lacp_pipe_it_says_so_and_goes_on)
{
    remove(LACP_IF_PIPE);
    device.start_daemon();
    EXPECT_EQ(output(), "");
    serve(device, port_config_message(enabled({1})));
    EXPECT_EQ(output(), "Setting lacp_rstp_status is fail");
    serve(device, port_config_only_message(enabled({1})));
    EXPECT_EQ(output(), "Setting lacp_rstp_status is failSetting lacp_rstp_status is fail");
    EXPECT_FALSE(std::filesystem::exists(device.node().path(LACP_IF_PIPE)));

    // It is opened anew for each message.
    ASSERT_EQ(mkfifo(device.node().path(LACP_IF_PIPE).c_str(), 0600), 0);
    const fd_t reader(open(device.node().path(LACP_IF_PIPE).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    serve(device, port_config_message(enabled({1})));
    std::array<uint8_t, 100> octets;
    ASSERT_EQ(read(reader.number(), octets.data(), octets.size()), 18);
    EXPECT_EQ(hex(std::span(octets).first(18), ""),
              "ac014352"
              "06000000"
              "07000000"
              "010000000000");
    EXPECT_EQ(output(), "Setting lacp_rstp_status is failSetting lacp_rstp_status is fail");
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_hard_days, a_full_lacp_pipe_is_not_waited_for)
{
    device.client().set_pipes_unread(true);
    device.start_daemon();
    const fd_t full = fill(device, LACP_IF_PIPE);
    serve(device, port_config_message(enabled({1})));
    serve(device, port_config_message(enabled({1, 2})));
    EXPECT_EQ(output(), "Setting lacp_rstp_status is failSetting lacp_rstp_status is fail");
    EXPECT_TRUE(is_sound(device));

    empty(full);
    serve(device, port_config_message(enabled({1, 2})));
    EXPECT_EQ(octets_waiting(device, LACP_IF_PIPE), 18u);
    EXPECT_EQ(output(), "Setting lacp_rstp_status is failSetting lacp_rstp_status is fail");
}

// ---- registers --------------------------------------------------------------------------------

TEST_F(daemon_hard_days, a_chip_that_refuses_everything)
{
    device.client().set_mdio_fail(true);
    device.start_daemon();

    // The rules are given up with the first one, the states are not; the flush fails in silence.
    actions_t boot = {is_refused(21)};
    for (int port = 1; port <= 6; port++)
        for (int time = 0; time < 2; time++)
            boot = boot + actions_t{is_refused(1), tells_mux(port, true)};
    EXPECT_THAT(watch.news(), ElementsAreArray(boot + actions_t{is_refused(2)}));
    const std::string boot_words = fmt::format(BATCH_FAILED, "sw_cfg_trap_bypassVlan_rstp_set_api", 444) +
                                   repeated(fmt::format(BATCH_FAILED, "sw_cfg_stp_mstpState_set_api", 466), 12);
    EXPECT_EQ(output(), boot_words);

    // What the daemon remembers is what it asked for.
    EXPECT_THAT(ask(device, "debug show rstp_stp_state"), HasSubstr("   1           4           1\n"));
    const size_t before = console().size();
    serve(device, port_config_message(enabled({3})));
    EXPECT_THAT(console().substr(before),
                HasSubstr(fmt::format(BATCH_FAILED, "sw_cfg_trap_portMgmtFrameAction_rstp_set_api", 126)));
    ASSERT_TRUE(ticks(device, 3));
    EXPECT_THAT(ask(device, "debug show rstp_stp_state"), HasSubstr("   3           1           1\n"));
    EXPECT_EQ(device.client().port(3).state, HW_DISABLED);
    EXPECT_THAT(device.client().messages().back().dump(), HasSubstr("\"forwarding\":false"));
    EXPECT_TRUE(is_sound(device));

    // It does not try again by itself.
    device.client().set_mdio_fail(false);
    watch.news();
    ASSERT_TRUE(ticks(device, 2));
    EXPECT_THAT(watch.news(), IsEmpty());
    serve(device, port_config_message(enabled({})));
    EXPECT_EQ(watch.news(), (actions_t{disarms_trap(), writes_state(3, 4), tells_mux(3, true)}));
}

TEST_F(daemon_hard_days, a_chip_that_refuses_one_rule)
{
    device.client().set_mdio_failures(1);
    device.start_daemon();
    // The first rule is refused, so the others are not tried; the rest of the boot is as always.
    EXPECT_THAT(watch.news(), ElementsAreArray(actions_t{is_refused(21)} + all_states() + actions_t{flushes()}));
    EXPECT_EQ(output(), fmt::format(BATCH_FAILED, "sw_cfg_trap_bypassVlan_rstp_set_api", 444));
}

TEST_F(daemon_hard_days, a_chip_that_refuses_once_now_and_then)
{
    device.start_daemon();
    ASSERT_TRUE(ticks(device, 1));
    watch.news();
    const actions_t joins = {arms_trap(),         flushes(),          writes_state(2, 1),
                             tells_mux(2, false), writes_state(2, 3), tells_mux(2, false),
                             flushes(),           writes_state(2, 1), tells_mux(2, false)};

    // Each batch of a port that joins fails once; what comes after it is asked for all the same.
    const std::array<unsigned, 6> sizes = {5, 2, 1, 1, 2, 1};
    device.client().set_mdio_failures(sizes.size());
    serve(device, port_config_message(enabled({2})));
    actions_t refused;
    size_t batch = 0;
    for (const std::string &action : joins)
        refused.push_back(action.starts_with("mux") ? action : is_refused(sizes.at(batch++)));
    EXPECT_THAT(watch.news_like(refused), ElementsAreArray(refused));
    EXPECT_EQ(output(), repeated(fmt::format(BATCH_FAILED, "sw_cfg_stp_mstpState_set_api", 466), 3));
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_hard_days, without_its_board_it_lives)
{
    device.start_daemon();
    const fd_t control(open(device.node().path(RSTP_IF_PIPE).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    const fd_t debug(open(device.node().path(RSTP_DBG_IF_PIPE).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    device.board().signal(SIGKILL);
    device.board().wait();

    serve(device, port_config_message(enabled({1})));
    EXPECT_TRUE(ticks(device, 3));
    EXPECT_THAT(console(), HasSubstr("sw_cfg_trap_portMgmtFrameAction_rstp_set_api() L126"));
    EXPECT_THAT(output(), HasSubstr("sw_cfg_stp_mstpState_set_api() L466"));
    EXPECT_TRUE(is_sound(device));

    // A new board makes new pipes; whoever has the old ones open is still heard, and the chip obeys again.
    device.start_board();
    const std::vector<uint8_t> message = port_config_message(enabled({}));
    ASSERT_EQ(write(control.number(), message.data(), message.size()), static_cast<ssize_t>(message.size()));
    EXPECT_TRUE(eventually(
        SOON, [&] { return device.client().port(1).state; }, HW_FORWARDING));
    EXPECT_TRUE(ticks(device, 1));
}

// ---- links ------------------------------------------------------------------------------------

TEST_F(daemon_hard_days, a_link_monitor_without_an_answer)
{
    const lab::node_t far("far", 100);
    const lab::cable_t cable(device.port(2), {&far, "eth0", far.mac()});
    ASSERT_TRUE(lab::within(SOON, [&] { return device.client().port(2).link; }));
    device.client().set_link_fail(true);
    device.start_daemon();

    EXPECT_THAT(console(), StartsWith("E:lvt_port_status_update() L789 link_mon_intf_param_get() failed\n*****"));
    EXPECT_EQ(count_of(console(), "link_mon_intf_param_get"), 1u);
    EXPECT_THAT(watch.news(), Contains(writes_state(2, 4))) << "the boot goes on";

    // Links come with the driver's messages as always: 2.5 Gbit/s here.
    serve(device, port_config_message(enabled({2})));
    EXPECT_TRUE(status_within(device, SOON, [](const lab::bridge_status_t &status) {
        return status.port(2).role == ROLE_DESIGNATED && status.port(2).path_cost == 8000;
    }));
}

// ---- the CPU port -----------------------------------------------------------------------------

TEST_F(daemon_hard_days, without_eth0_it_works_without_an_address)
{
    device.node().ip("link del eth0");
    device.start_daemon();
    // Once for the rules, once for each try to get an address since.
    EXPECT_THAT(output(), testing::MatchesRegex("(No such device)+"));
    actions_t rules;
    for (int port = 1; port <= 6; port++) {
        std::string rule = writes_rule(port, static_cast<unsigned>(port) - 1);
        rule.replace(rule.find("9 40c 0 2000000"), 15, "9 40c 0 0");
        rules.push_back(rule);
    }
    EXPECT_THAT(watch.news(), ElementsAreArray(rules + all_states() + actions_t{flushes()}));
    EXPECT_TRUE(is_sound(device));
    EXPECT_EQ(lab::bridge_id_text(device.status()->bridge), "32768/00:00:00:00:00:00");

    serve(device, port_status_message(linked({1})));
    serve(device, port_config_message(enabled({1})));
    ASSERT_TRUE(eventually(
        SOON, [&] { return counts(device, 1).rstp_sent; }, Ge(2)));
    serve_all(device);
    EXPECT_THAT(errors(), testing::MatchesRegex("(sendto: No such device or address\n)+"));

    // An interface that comes later has an address, which the next question gets.
    device.node().ip("link add name eth0 address 02:00:00:00:01:00 type veth peer name cpu0");
    const size_t said = output().size();
    serve(device, port_status_message(linked({1, 3})));
    EXPECT_EQ(output().size(), said);
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_hard_days, without_the_right_to_raw_sockets_it_works_without_frames)
{
    lab::switch_t &other = add_switch({.daemon_wrapper = {"setpriv", "--bounding-set=-net_raw"}});
    other.start();
    EXPECT_EQ(other.node().read(lab::DAEMON_ERROR_FILE),
              "Cannot create socket!!: Operation not permitted\nCannot bind!!: Bad file descriptor\n");
    serve(other, port_status_message(linked({1})));
    serve(other, port_config_message(enabled({1})));
    EXPECT_TRUE(eventually(
        SOON, [&] { return counts(other, 1).rstp_sent; }, Ge(1)));
    EXPECT_THAT(other.node().read(lab::DAEMON_ERROR_FILE), HasSubstr("sendto: Bad file descriptor\n"));
    EXPECT_TRUE(is_sound(other));
}

TEST_F(daemon_hard_days, a_failed_send_is_counted_and_not_repeated)
{
    device.start_daemon();
    device.node().ip("link set eth0 down");
    serve(device, port_status_message(linked({1, 4})));
    serve(device, port_config_message(enabled({1, 4})));
    ASSERT_TRUE(eventually(
        SOON, [&] { return counts(device, 1).rstp_sent; }, Ge(3)));

    // One complaint for each BPDU of the counters.
    const auto sent = [&] {
        long sum = 0;
        for (const counts_t &c : counts(device))
            sum += c.rstp_sent + c.stp_sent + c.tcn_sent;
        return sum;
    };
    EXPECT_TRUE(lab::within(SOON,
                            [&] {
                                const long before = sent();
                                const std::string complaints = errors();
                                return sent() == before &&
                                       complaints == repeated("sendto: Network is down\n", static_cast<size_t>(before));
                            }))
        << sent() << "\n"
        << errors();
    const auto reached_the_chip = [&] {
        return device.client().show("counters").at("board").at("cpu_tagged").get<long>();
    };
    EXPECT_EQ(reached_the_chip(), 0);

    device.node().ip("link set eth0 up");
    EXPECT_TRUE(eventually(
        SOON, [&] { return reached_the_chip(); }, Gt(0)));
    EXPECT_TRUE(is_sound(device));
}

/// What the kernel keeps for the daemon's packet socket, as its table of them says: "Rmem".
std::string kept_for_reading(lab::switch_t &device)
{
    std::set<std::string> inodes;
    for (const auto &entry : std::filesystem::directory_iterator(fmt::format("/proc/{}/fd", device.daemon().pid())))
        if (const std::string target = std::filesystem::read_symlink(entry); target.starts_with("socket:["))
            inodes.insert(target.substr(8, target.size() - 9));
    std::istringstream table(device.node().run({.argv = {"cat", "/proc/net/packet"}}).output);
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
        if (fields.size() == 9 && inodes.contains(fields.back()))
            return fields.at(6);
    }
    return "no packet socket";
}

TEST_F(daemon_hard_days, frames_that_reach_the_cpu_are_not_kept)
{
    device.start_daemon();
    const auto received = [&] {
        const std::string table = device.node().run({.argv = {"cat", "/proc/net/dev"}}).output;
        long octets = 0, frames = 0;
        std::sscanf(&table[table.find("eth0:")], "eth0: %ld %ld", &octets, &frames);
        return frames;
    };
    const long before = received();
    const fd_t chip = device.node().packet_socket("cpu0");
    std::array<uint8_t, 1500> frame = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0, 0, 0, 0x77, 0x77, 0x08, 0x06};
    EXPECT_TRUE(lab::within(
        SOON,
        [&] {
            for (int i = 0; i < 100; i++)
                lab::checked(static_cast<int>(send(chip.number(), frame.data(), frame.size(), 0)), "cpu0");
            return received() - before >= 1000;
        },
        1ms));
    EXPECT_EQ(kept_for_reading(device), "0");
    EXPECT_TRUE(is_sound(device));
}

// ---- console and status file ------------------------------------------------------------------

/// A daemon whose console is elsewhere, so that the lab cannot wait for its banner.
lab::process_t start_with_console(const lab::switch_t &device, const std::string &console)
{
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").replace_filename("lvt_rstpd");
    const auto open_file = [&](const char *file) {
        return fd_t(lab::checked(open(device.node().path(file).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644), file));
    };
    const fd_t out = open_file(lab::DAEMON_OUTPUT_FILE), err = open_file(lab::DAEMON_ERROR_FILE);
    return device.node().start(
        {.argv = {program}, .environment = {"LVT_CONSOLE=" + console}, .out = out.number(), .err = err.number()});
}

TEST_F(daemon_hard_days, a_console_that_cannot_be_opened_is_standard_output)
{
    lab::process_t daemon = start_with_console(device, "/tmp/no/such/console");
    ASSERT_TRUE(eventually(
        SOON, [&] { return output(); }, HasSubstr("Complete")));
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_TRUE(daemon.running());
}

TEST_F(daemon_hard_days, a_console_that_takes_nothing)
{
    lab::process_t daemon = start_with_console(device, "/dev/full");
    ASSERT_TRUE(ticks(device, 1));
    device.send(port_config_message(enabled({1})));
    EXPECT_TRUE(eventually(
        SOON, [&] { return device.client().port(1).state; }, HW_DISCARDING));
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_TRUE(daemon.running());
}

TEST_F(daemon_hard_days, a_status_file_whose_name_is_taken)
{
    const std::string name = device.node().path(lab::STATUS_FILE);
    ASSERT_TRUE(std::filesystem::create_directory(name));
    device.start_daemon();
    const std::string complaint = "rstp_monitor open failure";
    ASSERT_TRUE(eventually(
        SOON, [&] { return count_of(console(), complaint); }, Ge(2)));
    EXPECT_THAT(console(), testing::EndsWith(complaint + complaint));
    std::vector<std::string> left;
    for (const auto &entry : std::filesystem::directory_iterator(device.node().path("/tmp")))
        if (entry.path().filename().string().find("rstp_monitor") != std::string::npos)
            left.push_back(entry.path().filename());
    EXPECT_THAT(left, testing::ElementsAre("rstp_monitor")) << "nothing half done stays behind";

    ASSERT_TRUE(std::filesystem::remove(name));
    EXPECT_TRUE(status_within(device, SOON, [](const lab::bridge_status_t &) { return true; }));
    const size_t complaints = count_of(console(), complaint);
    EXPECT_TRUE(ticks(device, 2));
    EXPECT_EQ(count_of(console(), complaint), complaints);
}

TEST_F(daemon_hard_days, a_status_file_without_room)
{
    lab::switch_t &other = add_switch({.daemon_wrapper = {"sh", "-c", "trap '' XFSZ; exec \"$0\""}});
    other.start();
    serve(other, port_status_message(linked({1})));
    serve(other, port_config_message(enabled({1})));
    ASSERT_TRUE(ticks(other, 1));

    // Room for words on the console, not for a status file. Ticks go on: the port of a host gets to forward.
    const auto limit_files = [&](rlim_t octets) {
        rlimit limit = {};
        lab::checked(prlimit(other.daemon().pid(), RLIMIT_FSIZE, nullptr, &limit), "prlimit");
        limit.rlim_cur = std::min(octets, limit.rlim_max);
        lab::checked(prlimit(other.daemon().pid(), RLIMIT_FSIZE, &limit, nullptr), "prlimit");
    };
    limit_files(500);
    EXPECT_TRUE(lab::within(SOON, [&] { return other.client().port(1).state == 4; }));
    const auto last = lab::parse_status(other.node().read(lab::STATUS_FILE));
    ASSERT_TRUE(last.has_value()) << "the last whole one stays";
    EXPECT_NE(last->port(1).state, HW_FORWARDING);

    limit_files(RLIM_INFINITY);
    EXPECT_TRUE(status_within(
        other, SOON, [](const lab::bridge_status_t &status) { return status.port(1).state == HW_FORWARDING; }));
    EXPECT_EQ(count_of(other.node().read(lab::CONSOLE_FILE), "rstp_monitor open failure"), 0u);
}

TEST_F(daemon_hard_days, a_status_file_that_is_mounted_is_written_in_place)
{
    put_file(device, lab::STATUS_FILE, "");
    put_file(device, "/tmp/elsewhere", std::string(10000, 'x'));
    const lab::outcome_t mounted = device.node().run({.argv = {"mount", "--bind", "/tmp/elsewhere", lab::STATUS_FILE}});
    ASSERT_EQ(mounted.exit_code, 0) << mounted.output;
    device.start_daemon();
    EXPECT_TRUE(lab::within(SOON, [&] { return device.status().has_value(); }));
    EXPECT_TRUE(ticks(device, 2));
    const std::string text = device.node().read("/tmp/elsewhere");
    EXPECT_TRUE(lab::parse_status(text)) << text;
    EXPECT_EQ(text.find('x'), std::string::npos);
    EXPECT_EQ(count_of(console(), "rstp_monitor open failure"), 0u);
    EXPECT_EQ(device.node().run({.argv = {"umount", lab::STATUS_FILE}}).exit_code, 0);
    EXPECT_TRUE(is_sound(device));
}

TEST_F(daemon_hard_days, a_pipe_beside_the_status_file_holds_nobody_up)
{
    device.start_daemon();
    const std::string beside = device.node().path(std::string(lab::STATUS_FILE) + ".tmp");
    for (int round = 0; round < 3; round++) {
        ASSERT_TRUE(lab::within(
            SOON, [&] { return mkfifo(beside.c_str(), 0666) == 0; }, 1ms));
        EXPECT_TRUE(ticks(device, 1));
        EXPECT_FALSE(std::filesystem::exists(beside));
    }
    EXPECT_TRUE(device.status().has_value());
    EXPECT_EQ(count_of(console(), "rstp_monitor open failure"), 0u);
}

TEST_F(daemon_hard_days, a_link_beside_the_status_file_is_not_followed)
{
    device.start_daemon();
    put_file(device, "/tmp/precious", "precious");
    const std::string beside = device.node().path(std::string(lab::STATUS_FILE) + ".tmp");
    for (const char *target : {"/tmp/precious", "/tmp/nowhere", "/dev/full"}) {
        std::filesystem::create_symlink(target, beside);
        EXPECT_TRUE(ticks(device, 1));
        EXPECT_FALSE(std::filesystem::is_symlink(beside));
    }
    EXPECT_EQ(device.node().read("/tmp/precious"), "precious");
    EXPECT_FALSE(std::filesystem::exists(device.node().path("/tmp/nowhere")));
    EXPECT_FALSE(std::filesystem::is_symlink(device.node().path(lab::STATUS_FILE)));
    EXPECT_TRUE(device.status().has_value());
}

// ---- signals ----------------------------------------------------------------------------------

TEST_F(daemon_hard_days, a_termination_signal_ends_it)
{
    device.start_daemon();
    device.daemon().signal(SIGTERM);
    EXPECT_TRUE(eventually(
        SOON, [&] { return device.daemon().exit_code(); }, 128 + SIGTERM));
}

TEST_F(daemon_hard_days, it_can_be_stopped_and_continued)
{
    device.start_daemon();
    for (int i = 0; i < 3; i++) {
        device.daemon().signal(SIGSTOP);
        const auto state = [&] {
            std::ifstream stat(fmt::format("/proc/{}/stat", device.daemon().pid()));
            std::string number, name, letter;
            stat >> number >> name >> letter;
            return letter;
        };
        ASSERT_TRUE(eventually(SOON, state, "T"));
        device.daemon().signal(SIGCONT);
        EXPECT_TRUE(is_sound(device));
    }
}

TEST_F(daemon_hard_days, it_can_be_started_again)
{
    device.start_daemon();
    serve(device, port_config_message(enabled({1})));
    ASSERT_TRUE(ticks(device, 2));
    device.daemon().stop();
    watch.news();

    // It knows nothing of its former life: everything is written anew.
    device.start_daemon();
    actions_t boot;
    for (int port = 1; port <= 6; port++)
        boot.push_back(writes_rule(port, 0x000100 + static_cast<unsigned>(port) - 1));
    EXPECT_THAT(watch.news(), ElementsAreArray(boot + all_states() + actions_t{flushes()}));
    EXPECT_TRUE(is_sound(device));
}

} // namespace
