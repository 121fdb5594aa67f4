// lvt_rstpctl against running daemons: what it sends is in force, what it shows is so.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <list>
#include <optional>
#include <sstream>

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include "platform/messages.h"
#include "tools/messages.h"
#include "fixture.h"

namespace {

using namespace e2e;
using json_t = nlohmann::json;

constexpr char FAST_ROOT[] =
    "[bridge]\npriority = 4096\nmax_age = 6\nhello_time = 1\nforward_delay = 4\n"
    "[port.1]\nspanning_tree = true\nedge = false\n"
    "[port.2]\nspanning_tree = true\nedge = false\n";
constexpr char FAST_LEAF[] =
    "[bridge]\nmax_age = 6\nhello_time = 1\nforward_delay = 4\n"
    "[port.1]\nspanning_tree = true\nedge = false\n"
    "[port.2]\nspanning_tree = true\nedge = false\n";

/// The tool of this build, or that of the build under test.
const std::string TOOL = lab::program("LVT_RSTPCTL", "lvt_rstpctl");
const std::string TOOL_WORD = fmt::format("\"{}\"", TOOL); ///< for a shell: there may be blanks in it

class ctl : public switches_test_t {
protected:
    lab::switch_t &start_switch()
    {
        lab::switch_t &device = add_switch();
        device.start();
        return device;
    }

    void connect(const lab::switch_t &near, const lab::switch_t &far, int port)
    {
        cables_.emplace_back(near.port(port), far.port(port));
    }
    void connect_to_itself(const lab::switch_t &device, int port, int other)
    {
        cables_.emplace_back(device.port(port), device.port(other));
    }
    lab::cable_t &cable(size_t index) { return *std::next(cables_.begin(), static_cast<long>(index)); }

    /// Runs the tool in the switch, its arguments parted by blanks.
    static lab::outcome_t run(const lab::switch_t &device, const std::string &arguments)
    {
        return device.node().run({.argv = {"sh", "-c", fmt::format("{} {}", TOOL_WORD, arguments)}});
    }

    /// Runs the tool, which must succeed, and waits until what it sent is in force. Returns what it says.
    static std::string done(const lab::switch_t &device, const std::string &arguments)
    {
        const lab::outcome_t outcome = run(device, arguments);
        EXPECT_EQ(outcome.exit_code, 0) << arguments << "\n" << outcome.output;
        serve_all(device);
        return outcome.output;
    }
    static bool is_so(const lab::switch_t &device, const std::string &statement)
    {
        const lab::outcome_t outcome = run(device, fmt::format("expect '{}' --within 20", statement));
        EXPECT_EQ(outcome.exit_code, 0) << outcome.output;
        return outcome.exit_code == 0;
    }

    static void write_config(const lab::switch_t &device, const std::string &text)
    {
        std::ofstream(device.node().path("/tmp/switch.toml")) << text;
    }
    static void apply(const lab::switch_t &device, const std::string &text)
    {
        write_config(device, text);
        done(device, "apply /tmp/switch.toml");
    }

private:
    std::list<lab::cable_t> cables_;
};

TEST_F(ctl, apply_puts_the_file_in_force)
{
    lab::switch_t &device = start_switch();
    write_config(device,
                 "[bridge]\npriority = 8192\nhello_time = 1\n"
                 "[port.2]\nspanning_tree = true\npath_cost = 77\npriority = 16\nedge = false\n"
                 "point_to_point = false\nlacp = true\n"
                 "[groups]\nspanning_tree = true\npath_cost = 99\n3 = []\n");
    EXPECT_EQ(run(device, "apply /tmp/switch.toml").exit_code, 1); // 3 is no group: nothing is sent
    EXPECT_THAT(ask(device, "debug show system_config"), testing::HasSubstr("      32768        20"));

    write_config(device,
                 "[bridge]\npriority = 8192\nhello_time = 1\n"
                 "[port.2]\nspanning_tree = true\npath_cost = 77\npriority = 16\nedge = false\n"
                 "point_to_point = false\nlacp = true\n"
                 "[groups]\nspanning_tree = true\npath_cost = 99\n7 = [5, 6]\n");
    EXPECT_THAT(done(device, "apply /tmp/switch.toml"), testing::StartsWith("applied /tmp/switch.toml: "));
    EXPECT_THAT(ask(device, "debug show system_config"), testing::HasSubstr("       8192        20            1"));
    const std::string ports = ask(device, "debug show port_config");
    EXPECT_THAT(ports, testing::HasSubstr("Aggr          99         128        1      1     2\n"));
    EXPECT_THAT(ports, testing::HasSubstr("   2          77          16        1      0     1\n"));
    EXPECT_THAT(ports, testing::HasSubstr("   1           0         128        0      1     2\n"));
    EXPECT_THAT(ask(device, "debug show lacp_port_config"), testing::HasSubstr("   1           1\n   2           0\n"));
    EXPECT_THAT(ask(device, "debug show rstp_aggr_status"), testing::HasSubstr("   5         7\n   6         7\n"));

    // What is no longer in the file is as it was at first.
    apply(device, "[groups]\n7 = []\n");
    EXPECT_THAT(ask(device, "debug show system_config"), testing::HasSubstr("      32768        20            2"));
    EXPECT_THAT(ask(device, "debug show port_config"), testing::HasSubstr("   2           0         128        0"));
    EXPECT_THAT(ask(device, "debug show rstp_aggr_status"), testing::HasSubstr("   5         0\n   6         0\n"));
}

TEST_F(ctl, a_tree_of_two_switches_is_shown_as_it_is)
{
    lab::switch_t &root = start_switch(), &leaf = start_switch();
    apply(root, FAST_ROOT);
    apply(leaf, FAST_LEAF);
    connect(root, leaf, 1);
    connect(root, leaf, 2);

    const std::string root_id = fmt::format("4096/{}", root.node().mac());
    ASSERT_TRUE(is_so(root, "root is this bridge"));
    ASSERT_TRUE(is_so(leaf, "root is " + root_id));
    ASSERT_TRUE(is_so(leaf, "port 1 is root"));
    ASSERT_TRUE(is_so(leaf, "port 2 is alternate"));
    ASSERT_TRUE(is_so(root, "ports 1,2 forward"));
    ASSERT_TRUE(is_so(leaf, "port 1 forwards"));
    EXPECT_EQ(run(leaf, "expect root is this bridge").exit_code, 1);

    const json_t document = json_t::parse(done(leaf, "show -j"));
    EXPECT_EQ(document["bridge"]["root"], root_id);
    EXPECT_EQ(document["bridge"]["hello_time"], 1);
    EXPECT_EQ(document["ports"][1]["role"], "alternate");
    EXPECT_EQ(document["ports"][1]["designated_bridge"], root_id);
    EXPECT_EQ(document["ports"][2]["role"], "off");
    EXPECT_GT(document["ports"][0]["received"]["rst"], 0);
    EXPECT_THAT(done(leaf, "show ports"), testing::ContainsRegex("\n2 +alternate +discarding +[0-9]+ +no +yes +RSTP"));

    // From outside, through the daemon's own root folder.
    const std::string outside = fmt::format("/proc/{}/root", leaf.daemon().pid());
    const lab::outcome_t shown = lab::run({.argv = {TOOL, "--root", outside, "show", "bridge", "-o"}});
    EXPECT_EQ(shown.exit_code, 0) << shown.output;
    EXPECT_THAT(shown.output, testing::HasSubstr(" root=" + root_id + " "));

    // The monitor sees the second way taken.
    lab::process_t watcher =
        leaf.node().start({.argv = {"sh", "-c", fmt::format("exec {} monitor > /tmp/changes", TOOL_WORD)}});
    ASSERT_TRUE(eventually(
        SOON, [&] { return leaf.node().read("/proc/" + std::to_string(watcher.pid()) + "/comm"); }, "lvt_rstpctl\n"));
    ASSERT_TRUE(ticks(leaf, 2));
    cable(0).pull();
    EXPECT_TRUE(is_so(leaf, "root port is 2"));
    EXPECT_TRUE(eventually(
        SOON, [&] { return leaf.node().read("/tmp/changes"); },
        AllOf(HasSubstr(" root port 1 -> 2\n"), HasSubstr(" port 1 role root -> disabled\n"),
              HasSubstr(" port 2 role alternate -> root\n"))));
    watcher.stop();
}

TEST_F(ctl, a_looped_cable_is_told_with_its_other_end)
{
    lab::switch_t &device = start_switch();
    apply(device, FAST_ROOT);
    connect_to_itself(device, 1, 2);
    ASSERT_TRUE(is_so(device, "port 2 is backup"));
    EXPECT_THAT(done(device, "show ports"),
                testing::ContainsRegex("\n2 +backup +discarding +[0-9]+ +no +yes +own port 1 "));
    EXPECT_EQ(run(device, "expect 'port 1 is designated' 'port 2 blocks' 'port 1,2 is up'").exit_code, 0);
}

TEST_F(ctl, who_hears_and_who_does_not)
{
    lab::switch_t &root = start_switch(), &leaf = start_switch();
    apply(root, FAST_ROOT);
    apply(leaf, FAST_LEAF);
    connect(root, leaf, 1);
    ASSERT_TRUE(is_so(leaf, "port 1 is root"));
    EXPECT_TRUE(is_so(leaf, "port 1 hears"));
    EXPECT_THAT(done(leaf, "show ports --watch --for 4"), testing::Not(HasSubstr("deaf")));

    // A single message turns port 2 off, the last one that changes, and the trap with it.
    lab::process_t watch =
        leaf.node().start({.argv = {"sh", "-c", fmt::format("exec {} show ports --watch >/tmp/shown", TOOL_WORD)}});
    EXPECT_TRUE(eventually(
        SOON, [&] { return leaf.node().read("/tmp/shown"); }, HasSubstr("root")));
    port_configs_t ports = default_port_configs();
    ports[1].adminEnable = 1;
    ports[1].adminEdge = 0;
    const std::vector<uint8_t> message = port_config_message(ports);
    const fd_t pipe(open(leaf.node().path(RSTP_IF_PIPE).c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(write(pipe.number(), message.data(), message.size()), static_cast<ssize_t>(message.size()));
    EXPECT_TRUE(eventually(
        15s, [&] { return leaf.node().read("/tmp/shown"); }, HasSubstr("\nport 1 is deaf, no BPDU for ")));
    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait(), 128 + SIGINT);
    ASSERT_TRUE(is_so(leaf, "port 1 is designated"));
    EXPECT_THAT(done(leaf, "show ports"), HasSubstr("\nport 1 heard its last BPDU "));
    EXPECT_EQ(run(leaf, "expect port 1 hears --within 2").exit_code, 1);
    EXPECT_THAT(done(leaf, "show port 1"), HasSubstr("which may have taken back the trap of BPDUs:\n"));

    // What that hint says is the cure; the tool itself would not have done it.
    apply(leaf, "[port.1]\nspanning_tree = true\nedge = false\n");
    EXPECT_TRUE(is_so(leaf, "port 1 hears"));
    done(leaf, "send ports --enable 1 --edge 1=off");
    EXPECT_TRUE(is_so(leaf, "port 1 hears"));
    EXPECT_THAT(done(leaf, "show ports"), testing::Not(HasSubstr("BPDU for")));
}

TEST_F(ctl, debug_shows_what_comes_on_a_simulated_console)
{
    lab::switch_t &device = start_switch();
    EXPECT_THAT(done(device, "debug show system_config"),
                testing::AllOf(testing::StartsWith("====="), testing::HasSubstr("RSTP SYSTEM CONFIG:\n"),
                               testing::EndsWith("=====\n")));
    EXPECT_THAT(done(device, "debug"), testing::HasSubstr("bpdu_filter"));
    EXPECT_EQ(done(device, "debug bpdu_filter enable").find("RSTP SYSTEM CONFIG"), std::string::npos);
}

TEST_F(ctl, set_keeps_the_rest_and_the_trap)
{
    lab::switch_t &root = start_switch(), &leaf = start_switch();
    apply(root, FAST_ROOT);
    apply(leaf, FAST_LEAF);
    connect(root, leaf, 1);
    ASSERT_TRUE(is_so(leaf, "port 1 is root"));

    // Port 2, the last, goes off: BPDUs are still heard on port 1.
    done(leaf, "set port 2 --spanning-tree off --file /tmp/switch.toml");
    ASSERT_TRUE(is_so(leaf, "port 2 is off"));
    const uint32_t heard = leaf.status()->port(1).received.rstp;
    EXPECT_TRUE(
        status_within(leaf, SOON, [&](const auto &status) { return status.port(1).received.rstp > heard + 2; }));
    EXPECT_TRUE(is_so(leaf, "port 1 is root"));
    EXPECT_THAT(leaf.node().read("/tmp/switch.toml"), testing::StartsWith("[bridge]\nmax_age = 6\n"));

    done(leaf, "set bridge --priority 0 --file /tmp/switch.toml");
    EXPECT_TRUE(is_so(leaf, "root is this bridge"));
    EXPECT_TRUE(is_so(root, fmt::format("root is 0/{}", leaf.node().mac())));
}

TEST_F(ctl, the_stored_file_is_the_switchs_own)
{
    lab::switch_t &device = start_switch(), &other = start_switch();
    ASSERT_EQ(device.node().run({.argv = {"test", "-w", "/etc"}}).exit_code, 0);
    const bool machine_has_one = std::filesystem::exists("/etc/lvt_rstp.toml");
    EXPECT_EQ(run(device, "apply").exit_code, machine_has_one ? 0 : 1);
    done(device, "set bridge --priority 4096 --force");
    done(device, "check");
    ask(device, "debug show system_config");
    done(device, "send bridge --priority 8192");
    EXPECT_TRUE(status_within(device, SOON, [](const auto &status) { return status.bridge.prio == 8192; }));
    done(device, "apply");
    EXPECT_TRUE(status_within(device, SOON, [](const auto &status) { return status.bridge.prio == 4096; }));

    EXPECT_EQ(std::filesystem::exists(other.node().path("/etc/lvt_rstp.toml")), machine_has_one);
    EXPECT_EQ(std::filesystem::exists("/etc/lvt_rstp.toml"), machine_has_one);
}

/// The octets of a file, or that there is none.
std::optional<std::string> content_of(const std::string &path)
{
    std::ifstream file(path);
    if (!file)
        return {};
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST_F(ctl, set_from_outside_stores_in_the_switch)
{
    lab::switch_t &device = start_switch();
    ASSERT_EQ(device.node().run({.argv = {"test", "-w", "/etc"}}).exit_code, 0);
    const std::string machines = "/etc/lvt_rstp.toml";
    const auto before = content_of(machines);
    const std::string root = fmt::format("/proc/{}/root", device.daemon().pid());
    const auto set_outside = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {TOOL, "--root", root, "set"});
        const lab::outcome_t outcome = lab::run({.argv = std::move(words)});
        EXPECT_EQ(outcome.exit_code, 0) << outcome.output;
        serve_all(device);
    };
    ASSERT_TRUE(ticks(device, 1));
    device.node().run({.argv = {"rm", "-f", machines}});

    set_outside({"bridge", "--priority", "4096"});
    set_outside({"port", "3", "--spanning-tree", "on"});
    const auto after = content_of(machines);
    if (after != before && !before)
        std::filesystem::remove(machines);
    EXPECT_EQ(after, before) << "the machine's own file";
    EXPECT_EQ(device.node().read(machines), "[bridge]\npriority = 4096\n\n[port.3]\nspanning_tree = true\n");
    EXPECT_TRUE(status_within(device, SOON, [](const auto &status) {
        return status.bridge.prio == 4096 && status.port(3).role != ROLE_NON_STP;
    }));
}

TEST_F(ctl, set_opens_no_loop_that_single_messages_have_cut)
{
    lab::switch_t &root = start_switch(), &leaf = start_switch();
    done(root, "send bridge --priority 4096");
    done(root, "send ports --enable 1,2 --edge 1=off --edge 2=off");
    done(leaf, "send ports --enable 1,2 --edge 1=off --edge 2=off");
    connect(root, leaf, 1);
    connect(root, leaf, 2);
    ASSERT_TRUE(is_so(leaf, "port 2 is alternate"));
    const lab::outcome_t refused = run(leaf, "set bridge --max-age 10 --file /tmp/switch.toml");
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.output, testing::HasSubstr("spanning tree is on at port 1,2 now"));
    ASSERT_TRUE(ticks(leaf, 2));
    EXPECT_EQ(run(leaf, "expect port 2 is alternate").exit_code, 0);
    EXPECT_EQ(leaf.node().read("/tmp/switch.toml"), "");
}

TEST_F(ctl, groups_of_the_file_are_formed)
{
    lab::switch_t &root = start_switch(), &leaf = start_switch();
    const std::string groups = "[groups]\nspanning_tree = true\n7 = [1, 2]\n";
    write_config(root, FAST_ROOT + groups);
    write_config(leaf, FAST_LEAF + groups);
    connect(root, leaf, 1);
    connect(root, leaf, 2);
    done(root, "apply /tmp/switch.toml");
    done(leaf, "apply /tmp/switch.toml");
    ASSERT_TRUE(is_so(leaf, "port 7 is root"));
    ASSERT_TRUE(is_so(leaf, "ports 1,2 are member"));
    ASSERT_TRUE(ticks(leaf, 2)); // and so both links are known, by which the group is formed
    ASSERT_TRUE(is_so(leaf, "ports 1,2,7 forward"));
    EXPECT_THAT(done(leaf, "show ports"), testing::HasSubstr("\n7 (1, 2)  root  "));

    // A setting of something else leaves the group in peace.
    const auto stops = [&leaf] { return count_of(leaf.node().read(lab::BOARD_LOG_FILE), "mux port=1 forwarding=0"); };
    const size_t stops_before = stops();
    ASSERT_GT(stops_before, 0u);
    done(leaf, "set port 6 --edge off --file /tmp/switch.toml");
    EXPECT_THAT(ask(leaf, "debug show port_config"),
                testing::HasSubstr("   6           0         128        0      0     2\n"));
    ASSERT_TRUE(is_so(leaf, "ports 1,2,7 forward"));
    EXPECT_EQ(stops(), stops_before);
}

TEST_F(ctl, injected_messages_are_heard)
{
    lab::switch_t &device = start_switch();
    apply(device, "[port.5]\nspanning_tree = true\n[port.6]\nspanning_tree = true\n");
    done(device, "inject link 5=1000/full 6=100/full");
    EXPECT_TRUE(is_so(device, "port 5,6 is designated"));
    EXPECT_THAT(ask(device, "debug show port_status"), testing::HasSubstr("   6      1       1     1\n"));

    done(device, "inject bpdu 5 --root-id 4096/02:00:00:00:99:00 --bridge-id 8192/02:00:00:00:99:01 --cost 5");
    EXPECT_TRUE(is_so(device, "root is 4096/02:00:00:00:99:00"));
    EXPECT_TRUE(is_so(device, "root port is 5"));
    const lab::bridge_status_t status = *device.status();
    EXPECT_EQ(status.port(5).received.rstp, 1u);
    EXPECT_EQ(status.port(6).received.all(), 0u);
    EXPECT_EQ(lab::bridge_id_text(status.port(5).designated_bridge), "8192/02:00:00:00:99:01");

    // A better one in hex, as a dry run shows it; the dry run itself sends nothing.
    const std::string dry = done(device, "inject bpdu 6 --root-id 0/02:00:00:00:98:00 --dry-run");
    ASSERT_TRUE(ticks(device, 2));
    EXPECT_EQ(device.status()->port(6).received.all(), 0u);
    constexpr size_t headers = 16;
    std::string hex = dry.substr(dry.find("  bc 30"));
    std::erase_if(hex, [](char letter) { return letter == ' ' || letter == '\n'; });
    done(device, "inject bpdu 6 --hex " + hex.substr(2 * headers));
    EXPECT_TRUE(is_so(device, "root is 0/02:00:00:00:98:00"));
    EXPECT_TRUE(is_so(device, "root port is 6"));

    done(device, "inject groups 9=5,6");
    EXPECT_TRUE(is_so(device, "port 5-6 is member"));
    done(device, "inject link all=down");
    EXPECT_THAT(ask(device, "debug show port_status"), testing::HasSubstr("   5      0       0     0\n"));
}

TEST_F(ctl, a_message_of_each_kind_is_obeyed)
{
    lab::switch_t &device = start_switch();
    done(device, "send bridge --priority 4096 --max-age 6 --hello 1 --forward-delay 4");
    done(device, "send ports --enable 5,6 --cost 6=2000000");
    done(device, "send aggr-config --enable --cost 10000");
    EXPECT_THAT(ask(device, "debug show system_config"),
                testing::HasSubstr("       4096         6            1           4           2\n"));
    EXPECT_THAT(ask(device, "debug show port_config"),
                testing::AllOf(testing::HasSubstr("Aggr       10000         128        1      1     2\n"),
                               testing::HasSubstr("   4           0         128        0      1     2\n"
                                                  "   5           0         128        1      1     2\n"
                                                  "   6     2000000         128        1      1     2\n")));

    done(device, "send groups 7=5,6");
    done(device, "send lacp --enable 1,2");
    EXPECT_THAT(ask(device, "debug show rstp_aggr_status"), testing::HasSubstr("   5         7\n   6         7\n"));
    EXPECT_THAT(ask(device, "debug show lacp_port_config"),
                testing::HasSubstr("   0           1\n   1           1\n   2           0\n"));
}

TEST_F(ctl, apply_leaves_the_trap_armed)
{
    lab::switch_t &device = start_switch();
    const auto is_trapped = [&device] {
        serve_all(device);
        return device.client().is_trapped("01:80:c2:00:00:00");
    };
    write_config(device, "[port.1]\nspanning_tree = true\n[port.3]\npath_cost = 5\n");
    done(device, "check /tmp/switch.toml");
    EXPECT_FALSE(is_trapped());
    done(device, "apply /tmp/switch.toml");
    EXPECT_TRUE(is_trapped());

    // Port 3, off before and after, is the only one that changes.
    apply(device, "[port.1]\nspanning_tree = true\n");
    EXPECT_TRUE(is_trapped());
    apply(device, "");
    EXPECT_FALSE(is_trapped());
}

TEST_F(ctl, send_leaves_the_trap_armed)
{
    lab::switch_t &root = start_switch(), &leaf = start_switch();
    apply(root, FAST_ROOT);
    connect(root, leaf, 1);
    connect(root, leaf, 2);
    done(leaf, "send bridge --max-age 6 --hello 1 --forward-delay 4");
    done(leaf, "send ports --enable 1-3 --edge 1-2=off");
    ASSERT_TRUE(is_so(leaf, "port 2 is alternate"));
    // Port 3 was the last that changed; now it goes off.
    done(leaf, "send ports --enable 1,2 --edge 1-2=off");
    EXPECT_TRUE(leaf.client().is_trapped("01:80:c2:00:00:00"));
    const uint32_t heard = leaf.status()->port(1).received.rstp;
    EXPECT_TRUE(
        status_within(leaf, SOON, [&](const auto &status) { return status.port(1).received.rstp > heard + 2; }));
    EXPECT_TRUE(is_so(leaf, "port 2 is alternate"));

    // What runs may be kept, and then be changed in part; but not by opening the loop unasked.
    done(leaf, "save /tmp/switch.toml");
    done(leaf, "check /tmp/switch.toml");
    EXPECT_THAT(leaf.node().read("/tmp/switch.toml"),
                testing::HasSubstr("[port.2]\nspanning_tree = true\nedge = false\n"));
    const lab::outcome_t refused = run(leaf, "set port 2 --spanning-tree off --file /tmp/switch.toml");
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.output, testing::HasSubstr("port 2 is alternate and cuts a loop"));
    EXPECT_THAT(run(leaf, "--dry-run set port 2 --spanning-tree off --file /tmp/switch.toml").output,
                HasSubstr("  port 2 leaves the tree: alternate -> off; it will forward, which it does not do now\n"));
    EXPECT_THAT(done(leaf, "apply /tmp/switch.toml --dry-run -j"),
                HasSubstr(R"("changes":["nothing changes that is known"])"));
    EXPECT_THAT(done(leaf, "show config --file /tmp/switch.toml"), testing::Not(HasSubstr("!")));
    done(leaf, "set port 3 --cost 7 --file /tmp/switch.toml");
    ASSERT_TRUE(ticks(leaf, 2));
    EXPECT_THAT(done(leaf, "config --file /tmp/switch.toml"), HasSubstr("7 / -"));
    EXPECT_TRUE(is_so(leaf, "port 2 is alternate"));

    // Nouns look.
    done(leaf, "ports");
    done(leaf, "bridge");
    ASSERT_TRUE(ticks(leaf, 2));
    EXPECT_TRUE(is_so(leaf, "port 1,2 is not off"));
}

TEST_F(ctl, short_words_and_the_letters_of_others)
{
    lab::switch_t &device = start_switch();
    done(device, "send ports --enable 1-3");
    ASSERT_TRUE(is_so(device, "port 1-3 is not off"));
    EXPECT_EQ(json_t::parse(done(device, "-j sh po 1-2")).at("ports").size(), 2u);
    EXPECT_EQ(json_t::parse(done(device, "po all -p")).at("ports").size(), 9u);
    EXPECT_THAT(done(device, "-s -c po"), testing::AllOf(HasSubstr("sent RST"), HasSubstr("\033[")));
    const lab::outcome_t refused = run(device, "-d show");
    EXPECT_EQ(refused.exit_code, 2);
    EXPECT_THAT(refused.output, testing::StartsWith("-d: show port LIST has all that is known of a port\n"));

    std::ofstream(device.node().path("/tmp/baseline")) << "# as it was\nport 4-6 is off\nport 1-3 is down\n";
    done(device, "expect --all /tmp/baseline 'root is this bridge'");
    done(device, "inject link 3=up");
    ASSERT_TRUE(is_so(device, "port 3 is up"));
    const lab::outcome_t outcome = run(device, "expect -j --all /tmp/baseline 2>/dev/null --within 0");
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(json_t::parse(outcome.output).at("so"), false);
    EXPECT_EQ(run(device, "expect port 4 is up").exit_code, 3);
}

TEST_F(ctl, an_unconfirmed_change_goes_back)
{
    lab::switch_t &device = start_switch();
    done(device, "send bridge --priority 8192");
    apply(device, "[bridge]\npriority = 8192\n[port.1]\nspanning_tree = true\nedge = false\n");
    ASSERT_TRUE(is_so(device, "port 1 is not off"));
    done(device, "set bridge --priority 4096 --confirm 2 --file /tmp/switch.toml");
    EXPECT_TRUE(status_within(device, SOON, [](const auto &status) { return status.bridge.prio == 4096; }));
    EXPECT_TRUE(status_within(device, SOON, [](const auto &status) { return status.bridge.prio == 8192; }));
    EXPECT_TRUE(
        lab::within(SOON, [&] { return run(device, "confirm").output.find(" went back at ") != std::string::npos; }));
    EXPECT_EQ(run(device, "confirm").exit_code, 1);
    EXPECT_THAT(device.node().read("/tmp/switch.toml"), testing::HasSubstr("priority = 8192\n"));
    EXPECT_THAT(ask(device, "debug show port_config"),
                testing::HasSubstr("   1           0         128        1      0     2\n"));

    done(device, "set bridge --priority 4096 --confirm 30 --file /tmp/switch.toml");
    done(device, "confirm");
    EXPECT_TRUE(status_within(device, SOON, [](const auto &status) { return status.bridge.prio == 4096; }));
    done(device, "set port 1 --edge on --file /tmp/switch.toml");
}

TEST_F(ctl, what_the_daemon_says_is_explained_and_heard_elsewhere)
{
    if (lab::find_program("tshark").empty())
        GTEST_SKIP() << "cannot run here: there is no tshark";
    lab::switch_t &speaker = start_switch(), &listener = start_switch();
    done(speaker, "send bridge --priority 4096");
    done(speaker, "send ports --enable 5");
    done(speaker, "send lacp --enable 5");
    done(speaker, "inject link 5=up");
    const lab::outcome_t captured = speaker.node().run(
        {.argv = {"timeout", "20", "tshark", "-q", "-i", "cpu0", "-c", "2", "-w", "/tmp/bpdus.pcap"}});
    ASSERT_EQ(captured.exit_code, 0) << captured.output;

    const std::string root = fmt::format("4096/{}", speaker.node().mac());
    const std::string words = done(speaker, "decode --capture /tmp/bpdus.pcap");
    EXPECT_EQ(count_of(words, "out of front port 5"), 2u) << words;
    EXPECT_EQ(count_of(words, "RST BPDU of " + root), 2u) << words;
    EXPECT_EQ(count_of(words, " on cpu0: "), 2u) << words;
    EXPECT_EQ(count_of(done(speaker, "decode -j --bpdu --capture - </tmp/bpdus.pcap"), R"("interface":"cpu0")"), 2u);

    std::string kinds;
    for (const json_t &message : speaker.client().messages())
        kinds += done(speaker, "decode " + message.at("raw").get<std::string>());
    EXPECT_THAT(kinds, testing::HasSubstr("spanning tree on ports"));
    EXPECT_THAT(kinds, testing::HasSubstr(", forwarding"));

    std::filesystem::copy_file(speaker.node().path("/tmp/bpdus.pcap"), listener.node().path("/tmp/bpdus.pcap"));
    done(listener, "send ports --enable 3");
    done(listener, "inject link 3=up");
    done(listener, "inject bpdu 3 --capture /tmp/bpdus.pcap");
    EXPECT_TRUE(is_so(listener, "root is " + root));
    EXPECT_TRUE(is_so(listener, "root port is 3"));
}

TEST_F(ctl, parts_of_a_report)
{
    lab::switch_t &device = start_switch();
    done(device, "send ports --enable 5");
    done(device, "inject link 5=up");
    ASSERT_TRUE(is_so(device, "port 5 is designated"));
    done(device, "inject bpdu 5 --root-id 4096/02:00:00:00:99:00");
    ASSERT_TRUE(is_so(device, "port 5 is root"));

    EXPECT_THAT(done(device, "show statistics"), testing::ContainsRegex("\n5 +[1-9][0-9]* +0 +0 +1 +0 +0 +0 +0\n"));
    EXPECT_THAT(done(device, "show port 5"),
                testing::AllOf(testing::StartsWith("port            5\nrole            root\n"),
                               testing::HasSubstr("\ndesignated      4096/02:00:00:00:99:00 port "),
                               testing::EndsWith("received        1 RST, 0 configuration, 0 TCN, 0 illegal, "
                                                 "0 unknown\n")));
    const std::string pretty = done(device, "show ports -p");
    EXPECT_GT(count_of(pretty, "\n"), 100u);
    EXPECT_EQ(json_t::parse(pretty)["ports"][4]["role"], "root");
}

TEST_F(ctl, when_the_tree_changed_and_who_the_root_once_was)
{
    lab::switch_t &root = start_switch(), &leaf = start_switch();
    apply(root, FAST_ROOT);
    apply(leaf, FAST_LEAF);
    connect(root, leaf, 1);
    const auto changed_at = [&] {
        const std::string text = run(leaf, "show bridge").output;
        const size_t start = std::min(text.find(" passes ago, at "), text.size());
        return text.substr(start, text.find(" or later", start) - start);
    };
    ASSERT_TRUE(is_so(leaf, "port 1 forwards"));
    EXPECT_TRUE(eventually(20s, changed_at, HasSubstr(" passes ago, at 20")));
    const std::string told = changed_at();
    const unsigned passes = leaf.status()->since_change;
    // With each BPDU there is one pass more in a second, so that the daemon's own estimate walks.
    EXPECT_TRUE(status_within(leaf, SOON, [&](const auto &status) { return status.since_change > passes + 6; }));
    EXPECT_EQ(changed_at(), told);

    done(leaf, "inject link 1-2=up");
    ASSERT_TRUE(is_so(leaf, "port 2 is designated"));
    done(leaf, fmt::format("inject bpdu 2 --root-id 0/{} --bridge-id 32768/02:00:00:00:99:00", leaf.node().mac()));
    ASSERT_TRUE(is_so(leaf, "root port is 2"));
    EXPECT_THAT(done(leaf, "show bridge"), HasSubstr("(this bridge's own former identifier, ages out)"));
}

TEST_F(ctl, what_watches_goes_on_until_it_is_interrupted)
{
    lab::switch_t &device = start_switch();
    done(device, "send ports --enable 5");
    ASSERT_TRUE(is_so(device, "port 5 is disabled"));
    const auto start_tool = [&](const std::string &arguments) {
        return device.node().start({.argv = {"sh", "-c", fmt::format("exec {} {}", TOOL_WORD, arguments)}});
    };
    const auto interrupted = [](lab::process_t &process) {
        process.signal(SIGINT);
        return eventually(
            SOON, [&] { return process.exit_code(); }, 128 + SIGINT);
    };

    lab::process_t show = start_tool("show bridge --watch >/tmp/shown");
    lab::process_t monitor = start_tool("monitor -j >/tmp/changes");
    EXPECT_TRUE(eventually(
        SOON, [&] { return count_of(device.node().read("/tmp/shown"), "\nbridge           "); }, Ge(3u)));
    done(device, "inject link 5=up");
    EXPECT_TRUE(eventually(
        SOON, [&] { return device.node().read("/tmp/changes"); }, HasSubstr("\"from\":\"disabled\"")));

    EXPECT_TRUE(interrupted(show));
    EXPECT_TRUE(interrupted(monitor));
    std::istringstream changes(device.node().read("/tmp/changes"));
    for (std::string line; std::getline(changes, line);)
        EXPECT_EQ(json_t::parse(line)["version"], 2) << line;
}

TEST_F(ctl, output_that_is_lost_ends_it)
{
    lab::switch_t &device = start_switch();
    ASSERT_TRUE(ticks(device, 1));
    const auto told = [&](const std::string &line) {
        return device.node().run({.argv = {"sh", "-c", fmt::format("exec 3>&1; {}", line)}}).output;
    };
    for (const char *arguments : {"show", "show --watch", "show -j --watch"})
        EXPECT_EQ(told(fmt::format("timeout 20 {} {} >/dev/full 2>&3", TOOL_WORD, arguments)),
                  "lvt_rstpctl: cannot write to standard output: No space left on device\n")
            << arguments;
    for (const char *command : {"monitor", "monitor -j"})
        EXPECT_EQ(told(fmt::format("trap '' PIPE; timeout 20 {} {} 2>&3 | true", TOOL_WORD, command)),
                  "lvt_rstpctl: nobody reads the output any more\n")
            << command;
}

TEST_F(ctl, debug_words_reach_the_console)
{
    lab::switch_t &device = start_switch();
    const lab::outcome_t fatal = run(device, "debug \"$(printf 'show rstp_port_status 99\\nx')\"");
    EXPECT_EQ(fatal.exit_code, 1);
    EXPECT_THAT(fatal.output, testing::HasSubstr("one line without control characters"));
    // However fast they follow, none is lost.
    constexpr int ANSWERS = 20;
    const std::string console = device.node().read(lab::CONSOLE_FILE);
    const auto sent = [&](const char *words) { // once more where the daemon is too slow, which is refused
        return eventually(
            SOON, [&] { return run(device, words).exit_code; }, 0);
    };
    EXPECT_TRUE(sent("debug bpdu_filter enable"));
    for (int i = 0; i < ANSWERS; i++)
        EXPECT_TRUE(sent("debug show bpdu_filter"));
    serve_all(device);
    EXPECT_EQ(count_of(device.node().read(lab::CONSOLE_FILE).substr(console.size()), "bpdu_filter_en = 1\n"),
              size_t{ANSWERS});
}

TEST_F(ctl, a_daemon_that_hangs_or_is_no_more)
{
    lab::switch_t &device = start_switch();
    ASSERT_TRUE(is_so(device, "root is this bridge"));
    const auto ends = [&](int status, const std::string &arguments, const std::string &words,
                          std::chrono::milliseconds patience = 0ms) {
        return eventually(
            patience,
            [&] {
                const lab::outcome_t outcome = run(device, arguments);
                return std::tuple(outcome.exit_code, outcome.output);
            },
            testing::FieldsAre(status, HasSubstr(words)));
    };
    const auto told = [&](const std::string &arguments, const std::string &words,
                          std::chrono::milliseconds patience = 0ms) { return ends(3, arguments, words, patience); };

    device.daemon().signal(SIGSTOP);
    EXPECT_TRUE(ends(3, "show", "so it has ended or hangs", SOON));
    EXPECT_TRUE(ends(3, "monitor", "so it has ended or hangs"));
    EXPECT_TRUE(ends(3, "expect root is this bridge", "so it has ended or hangs"));
    write_config(device, "");
    for (const char *command : {"apply /tmp/switch.toml", "set bridge --priority 0 --force --file /tmp/switch.toml",
                                "debug show bridge_status", "send bridge --priority 0", "inject bpdu 1"})
        EXPECT_TRUE(told(command, "sent, but /tmp/rstp_monitor is ")) << command;
    EXPECT_TRUE(told("set bridge --priority 4096 --file /tmp/switch.toml", "it cannot be told what is on now: "));

    // It takes no more than its pipe holds.
    const fd_t pipe(open(device.node().path(RSTP_IF_PIPE).c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    const std::vector<uint8_t> filling(4096);
    while (write(pipe.number(), filling.data(), filling.size()) > 0) {
    }
    EXPECT_TRUE(told("send lacp --enable none",
                     "/tmp/rstp_if_pipe is full: the daemon hangs or is stopped. Look at what it printed last, and "
                     "start it again."));

    device.daemon().signal(SIGKILL);
    EXPECT_EQ(device.daemon().wait(), 128 + SIGKILL);
    EXPECT_TRUE(
        told("send lacp --enable none", "no reader on /tmp/rstp_if_pipe: is the daemon running? Start it.", SOON));
    device.board().stop();
    EXPECT_TRUE(told("send lacp --enable none",
                     "no pipe at /tmp/rstp_if_pipe: is the daemon's board running? Start it, and then the daemon."));
}

} // namespace
