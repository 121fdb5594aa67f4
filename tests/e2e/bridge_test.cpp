// A Linux bridge that the daemon rules: one alone, and rings of them.
#include "bridge_net.h"

#include <csignal>

#include <fmt/format.h>

#include "platform/messages.h"

using namespace e2e;
using lab::host_t;
using lab::ruled_bridge_t;
using lab::within;

namespace {

class ruled_bridge : public bridges_test_t {
protected:
    /// Runs lvt_bridge once more, to its end.
    static lab::outcome_t once_more(const ruled_bridge_t &bridge)
    {
        return bridge.node().run({.argv = bridge.command()});
    }

    static testing::AssertionResult becomes(const ruled_bridge_t &bridge, int port, int state,
                                            std::chrono::milliseconds limit = BY_TIMERS)
    {
        return eventually(
            limit, [&] { return bridge.state(port); }, state);
    }

    static testing::AssertionResult kernel_becomes(const ruled_bridge_t &bridge, const std::string &interface,
                                                   const std::string &state,
                                                   std::chrono::milliseconds limit = BY_TIMERS)
    {
        return eventually(
            limit, [&] { return bridge.kernel_state(interface); }, state);
    }
};

TEST_F(ruled_bridge, lets_hosts_reach_each_other_once_its_ports_forward)
{
    const ruled_bridge_t &bridge = bridge_with_hosts(2);
    EXPECT_THAT(bridge.said(), HasSubstr("the firewall's table lvt_bridge_br0 keeps the kernel from forwarding"));
    EXPECT_TRUE(hosts_.front().reaches(hosts_.back(), BY_TIMERS));
    EXPECT_TRUE(kernel_becomes(bridge, "lan1", "forwarding"));
    EXPECT_TRUE(kernel_becomes(bridge, "lan2", "forwarding"));
}

TEST_F(ruled_bridge, blocks_every_port_until_the_daemon_rules)
{
    ruled_bridge_t &bridge = add_bridge();
    const host_t &a = add_host(bridge, 1), &b = add_host(bridge, 2);
    ASSERT_TRUE(a.reaches(b, SOON)); // the kernel's bridge as it is
    lab::station_t listener(b.node());
    {
        const counting_t counting(a);
        bridge.start();
        EXPECT_NE(bridge.kernel_state("lan1"), "forwarding");
        EXPECT_TRUE(becomes(bridge, 1, HW_FORWARDING));
        EXPECT_TRUE(becomes(bridge, 2, HW_FORWARDING));
        EXPECT_TRUE(eventually(
            SOON, [&] { return listener.received().empty() ? 0 : listener.received().back().number; }, Gt(2000u)));
    }
    // What came before and after the time without forwarding, which was at least a learning delay long.
    uint32_t gap = 0, last = 0;
    for (const lab::numbered_frame_t &frame : listener.received()) {
        gap = std::max(gap, frame.number - last);
        last = frame.number;
    }
    EXPECT_GT(gap, 2000u);
}

TEST_F(ruled_bridge, makes_no_loop_in_a_ring_of_three)
{
    std::vector<ruled_bridge_t *> ring;
    for (int i = 0; i < 3; i++)
        ring.push_back(&add_bridge(
            {.settings = fast_settings(4096 * (i + 1)), .options = {"--rapid", "--ports", "lan1,lan2,lan3"}}));
    for (ruled_bridge_t *each : ring) {
        add_host(*each, 1);
        each->start();
    }
    connect(*ring[0], 2, *ring[1], 3);
    connect(*ring[1], 2, *ring[2], 3);
    const lab::cable_t &last = connect(*ring[2], 2, *ring[0], 3);
    const host_t &a = hosts_.front(), &c = hosts_.back();
    lab::station_t listener(c.node());
    const counting_t counting(a);

    EXPECT_TRUE(becomes(*ring[2], 3, HW_DISCARDING)); // the cable between those that are not the root
    EXPECT_TRUE(a.reaches(c, BY_TIMERS));
    EXPECT_TRUE(kernel_becomes(*ring[0], "lan2", "forwarding"));
    EXPECT_EQ(ring[2]->kernel_state("lan3"), "disabled");
    EXPECT_TRUE(eventually(
        SOON, [&] { return listener.received().size(); }, Gt(500u)));
    EXPECT_THAT(doubles(listener, counting.mac()), testing::IsEmpty());

    last.pull();
    EXPECT_TRUE(becomes(*ring[2], 3, HW_FORWARDING));
    EXPECT_TRUE(a.reaches(c, SOON));
    last.plug();
    EXPECT_TRUE(becomes(*ring[2], 2, HW_FORWARDING));
    EXPECT_TRUE(a.reaches(c, SOON));
    EXPECT_THAT(doubles(listener, counting.mac()), testing::IsEmpty());
}

TEST_F(ruled_bridge, refuses_what_it_cannot_rule)
{
    ruled_bridge_t &bridge = add_bridge();
    bridge.node().ip("link set br0 type bridge stp_state 1");
    lab::outcome_t refused = once_more(bridge);
    EXPECT_EQ(refused.exit_code, 3);
    EXPECT_THAT(refused.output, HasSubstr("ip link set br0 type bridge stp_state 0"));

    bridge.node().ip("link set br0 type bridge stp_state 0");
    for (int port = 1; port <= 7; port++)
        bridge.node().ip(fmt::format("link add lan{0} type veth peer name far{0}\nlink set lan{0} master br0", port));
    refused = once_more(bridge);
    EXPECT_EQ(refused.exit_code, 3);
    EXPECT_THAT(refused.output, HasSubstr("7 ports"));
    EXPECT_THAT(refused.output, HasSubstr("lan1, lan2, lan3, lan4, lan5, lan6, lan7"));

    bridge.node().ip("link set br0 name br1");
    EXPECT_EQ(once_more(bridge).exit_code, 3);
    bridge.node().ip("link set far1 down\nlink set far1 name br0");
    refused = once_more(bridge);
    EXPECT_EQ(refused.exit_code, 3);
    EXPECT_THAT(refused.output, HasSubstr("br0 is no bridge"));
}

TEST_F(ruled_bridge, refuses_to_rule_a_bridge_twice)
{
    ruled_bridge_t &bridge = bridge_with_hosts(1);
    const lab::outcome_t refused = once_more(bridge);
    EXPECT_EQ(refused.exit_code, 3);
    EXPECT_THAT(refused.output, HasSubstr("br0 is ruled by another lvt_bridge already"));
    EXPECT_TRUE(bridge.program().running());
}

TEST_F(ruled_bridge, says_what_it_did_not_understand)
{
    const ruled_bridge_t &bridge = add_bridge({.settings = "[linux]\nports = [\"lan1\", \"lan1\"]\n"});
    const lab::outcome_t faulty = once_more(bridge);
    EXPECT_EQ(faulty.exit_code, 2);
    EXPECT_THAT(faulty.output, HasSubstr("br0.toml:2:18: \"lan1\" is port 1 already"));
    const std::string program = bridge.command().front();
    EXPECT_EQ(bridge.node().run({.argv = {program}}).exit_code, 2);
    EXPECT_EQ(bridge.node().run({.argv = {program, "--at-end", "whatever", "br0"}}).exit_code, 2);
    EXPECT_EQ(bridge.node().run({.argv = {program, "--ports", "a,a", "br0"}}).exit_code, 2);
    EXPECT_EQ(bridge.node().run({.argv = {program, "--ports", "a,b,c,d,e,f,g", "br0"}}).exit_code, 3);
    EXPECT_EQ(bridge.node().run({.argv = {program, "--help"}}).exit_code, 0);
    EXPECT_EQ(bridge.node().run({.argv = {program, "--version"}}).exit_code, 0);
}

TEST_F(ruled_bridge, sets_back_what_others_set)
{
    const ruled_bridge_t &bridge = bridge_with_hosts(2);
    const host_t &a = hosts_.front(), &b = hosts_.back();
    ASSERT_TRUE(a.reaches(b, BY_TIMERS));
    ASSERT_TRUE(kernel_becomes(bridge, "lan1", "forwarding"));

    bridge.node().run({.argv = {"bridge", "link", "set", "dev", "lan1", "state", "0"}});
    EXPECT_TRUE(kernel_becomes(bridge, "lan1", "forwarding", 1s));
    EXPECT_THAT(bridge.said(), HasSubstr("lan1 was found disabled: it is set back to forwarding"));

    bridge.node().ip("link set br0 type bridge stp_state 1");
    EXPECT_TRUE(eventually(
        1s, [&] { return bridge.node().read("/sys/class/net/br0/bridge/stp_state"); }, "0\n"));
    EXPECT_THAT(bridge.said(), HasSubstr("STP was switched on; it is switched back"));
    EXPECT_TRUE(a.reaches(b, BY_TIMERS));
}

TEST_F(ruled_bridge, puts_its_table_back_into_the_firewall)
{
    const ruled_bridge_t &bridge = bridge_with_hosts(2);
    hosts_.back().node().ip("link set eth0 down"); // so that a port is deaf
    const auto ruleset = [&] { return bridge.node().run({.argv = {"nft", "list", "ruleset"}}).output; };
    ASSERT_TRUE(becomes(bridge, 1, HW_FORWARDING));
    ASSERT_TRUE(eventually(
        SOON, [&] { return ruleset(); }, testing::ContainsRegex("hook ingress devices? .*lan2")));
    const std::string before = ruleset();
    for (const char *what : {"flush ruleset", "delete table bridge lvt_bridge_br0",
                             "flush chain bridge lvt_bridge_br0 forward", "delete table netdev lvt_bridge_br0"}) {
        ASSERT_EQ(bridge.node().run({.argv = {"nft", what}}).exit_code, 0) << what;
        EXPECT_TRUE(eventually(SOON, ruleset, before)) << what;
    }
    EXPECT_THAT(bridge.said(), HasSubstr("something took away from the firewall's table lvt_bridge_br0"));
}

TEST_F(ruled_bridge, blocks_what_joins_later_and_follows_what_is_renamed_or_leaves)
{
    const ruled_bridge_t &bridge = bridge_with_hosts(1);
    ASSERT_TRUE(becomes(bridge, 1, HW_FORWARDING));
    const host_t &late = add_host(bridge, 2);
    EXPECT_TRUE(eventually(
        SOON, [&] { return bridge.said(); }, HasSubstr("lan2 is port 2")));
    EXPECT_TRUE(kernel_becomes(bridge, "lan2", "disabled", SOON));
    EXPECT_TRUE(hosts_.front().reaches(late, BY_TIMERS));

    bridge.node().ip("link set lan2 name office");
    EXPECT_TRUE(eventually(
        SOON,
        [&] {
            return bridge.ctl({"show", "port", "2"}).output;
        },
        HasSubstr("interface       office")));
    EXPECT_TRUE(hosts_.front().reaches(late, SOON));

    bridge.node().ip("link set office nomaster");
    EXPECT_TRUE(eventually(
        SOON, [&] { return bridge.said(); }, HasSubstr("office left: port 2 is free")));
    EXPECT_TRUE(becomes(bridge, 2, HW_DISABLED));
    bridge.node().ip("link set office master br0");
    EXPECT_TRUE(becomes(bridge, 2, HW_FORWARDING));
    bridge.node().ip("link del office");
    EXPECT_TRUE(becomes(bridge, 2, HW_DISABLED));
    EXPECT_EQ(bridge.node().read("/tmp/state/br0.ports"), "1 lan1\n2 office\n");
}

TEST_F(ruled_bridge, leaves_ports_alone_that_are_not_listed)
{
    ruled_bridge_t &bridge = add_bridge({.settings = "[linux]\nports = [\"lan3\", \"lan1\"]\n" + fast_settings()});
    const host_t &listed = add_host(bridge, 1), &other = add_host(bridge, 2);
    bridge.start();
    EXPECT_THAT(bridge.said(), HasSubstr("lan1 is port 2"));
    EXPECT_THAT(bridge.said(), HasSubstr("lan2 is not listed: it forwards, without spanning tree"));
    EXPECT_TRUE(eventually(
        SOON, [&] { return bridge.kernel_state("lan2"); }, "forwarding"));
    EXPECT_TRUE(listed.reaches(other, BY_TIMERS));
}

TEST_F(ruled_bridge, forgets_what_was_learned_and_nothing_else)
{
    ruled_bridge_t &bridge = add_bridge();
    add_host(bridge, 1);
    add_host(bridge, 2);
    bridge.start();
    ASSERT_TRUE(hosts_.front().reaches(hosts_.back(), BY_TIMERS));
    bridge.node().run({.argv = {"bridge", "fdb", "add", "02:11:22:33:44:55", "dev", "lan1", "master", "static"}});
    bridge.node().run({.argv = {"bridge", "fdb", "add", "02:11:22:33:44:66", "dev", "lan1", "master"}});
    const auto table = [&] { return bridge.node().run({.argv = {"bridge", "fdb", "show", "dev", "lan1"}}).output; };
    ASSERT_THAT(table(), HasSubstr(hosts_.front().node().mac()));

    // A neighbour's news of another tree.
    bridge.ctl({"inject", "bpdu", "2", "--root-id", "32768/ff:00:00:00:99:00", "--flags", "tc"});
    EXPECT_TRUE(eventually(
        SOON, [&] { return table(); }, testing::Not(HasSubstr(hosts_.front().node().mac()))));
    EXPECT_THAT(table(), HasSubstr("02:11:22:33:44:55"));
    EXPECT_THAT(table(), HasSubstr("02:11:22:33:44:66"));
}

TEST_F(ruled_bridge, lets_nobody_forward_for_another)
{
    // The new interface gets the number of one that forwards, at once and with its link up.
    ruled_bridge_t &bridge = bridge_with_hosts(2);
    ASSERT_TRUE(hosts_.front().reaches(hosts_.back(), BY_TIMERS));
    ASSERT_TRUE(kernel_becomes(bridge, "lan2", "forwarding"));
    bridge.node().ip("link add other type veth peer name far\nlink set other up\nlink set far up");
    const lab::process_t monitor = bridge.node().start({.argv = {"sh", "-c", "exec nft monitor >/tmp/firewall"}});
    const auto firewall = [&] { return bridge.node().read("/tmp/firewall"); };
    ASSERT_TRUE(eventually(
        SOON,
        [&] {
            bridge.node().run({.argv = {"nft", "add table bridge probe; delete table bridge probe"}});
            return firewall();
        },
        HasSubstr("probe")));

    bridge.program().signal(SIGSTOP); // it learns of both at the same time
    const size_t before = firewall().size();
    bridge.node().ip(
        "link set lan2 nomaster\nlink set lan2 name old\nlink set other name lan2\nlink set lan2 master br0");
    bridge.program().signal(SIGCONT);
    EXPECT_TRUE(eventually(
        SOON, [&] { return bridge.said(); },
        HasSubstr("lan2 left: port 2 is free\nlvt_bridge: br0: lan2 is port 2\n")));
    EXPECT_TRUE(kernel_becomes(bridge, "lan2", "disabled"));
    EXPECT_TRUE(becomes(bridge, 2, HW_DISCARDING));
    int tables = 0;
    std::string told = firewall().substr(before);
    for (size_t end; (end = told.find("# new generation")) != std::string::npos; told.erase(0, end + 1))
        if (const std::string table = told.substr(0, end); table.find("add table bridge lvt_bridge_br0") < end) {
            tables++;
            EXPECT_THAT(table, HasSubstr("forward oif \"lan2\" drop"));
        }
    EXPECT_GT(tables, 0);
    EXPECT_TRUE(becomes(bridge, 2, HW_FORWARDING));
}

TEST_F(ruled_bridge, has_neighbours_on_the_same_machine)
{
    ruled_bridge_t &bridge = bridge_with_hosts(1);
    bridge.node().ip(
        "link add name br-lan address 02:00:00:00:77:00 type bridge\n"
        "link set br-lan up\n"
        "link add eth9 type veth peer name far9\n"
        "link set eth9 up\n"
        "link set far9 up\n"
        "link set eth9 master br-lan");
    std::vector<std::string> command = bridge.command();
    command.back() = "br-lan";
    lab::process_t other = bridge.node().start({.argv = command});
    EXPECT_TRUE(kernel_becomes(bridge, "eth9", "forwarding"));
    EXPECT_TRUE(kernel_becomes(bridge, "lan1", "forwarding"));
    const std::string ruleset = bridge.node().run({.argv = {"nft", "list", "ruleset"}}).output;
    EXPECT_THAT(ruleset, HasSubstr("table bridge lvt_bridge_br0 {"));
    EXPECT_THAT(ruleset, HasSubstr("table bridge lvt_bridge_br_2dlan {"));
    EXPECT_EQ(bridge.said().find("something took away"), std::string::npos);
    EXPECT_EQ(other.stop(SOON), 0);
    EXPECT_TRUE(bridge.program().running());
}

// ---- ends --------------------------------------------------------------------------------

TEST_F(ruled_bridge, keeps_its_states_when_it_is_killed_and_begins_anew_from_blocking)
{
    ruled_bridge_t &bridge = bridge_with_hosts(2);
    ASSERT_TRUE(hosts_.front().reaches(hosts_.back(), BY_TIMERS));
    ASSERT_TRUE(becomes(bridge, 1, HW_FORWARDING));
    const auto daemons = [&] { return bridge.node().run({.argv = {"pgrep", "-x", "lvt_rstpd"}}).output; };
    EXPECT_NE(daemons(), "");
    bridge.program().signal(SIGKILL);
    bridge.program().wait();
    EXPECT_TRUE(eventually(SOON, daemons, ""));
    EXPECT_EQ(bridge.kernel_state("lan1"), "forwarding");
    EXPECT_TRUE(hosts_.front().reaches(hosts_.back(), SOON));

    bridge.start();
    EXPECT_EQ(bridge.kernel_state("lan1"), "disabled");
    EXPECT_TRUE(hosts_.front().reaches(hosts_.back(), BY_TIMERS));
}

TEST_F(ruled_bridge, ends_with_its_daemon)
{
    ruled_bridge_t &bridge = bridge_with_hosts(1);
    ASSERT_TRUE(kernel_becomes(bridge, "lan1", "forwarding"));
    bridge.node().run({.argv = {"pkill", "-P", std::to_string(bridge.program().pid()), "-x", "lvt_rstpd"}});
    EXPECT_TRUE(within(SOON, [&] { return !bridge.program().running(); }));
    EXPECT_EQ(bridge.program().exit_code(), 1);
    EXPECT_THAT(bridge.said(), HasSubstr("the daemon ended"));
    EXPECT_EQ(bridge.kernel_state("lan1"), "forwarding");
}

TEST_F(ruled_bridge, ends_when_its_bridge_is_deleted)
{
    ruled_bridge_t &bridge = bridge_with_hosts(1);
    bridge.node().ip("link del br0");
    EXPECT_TRUE(within(SOON, [&] { return !bridge.program().running(); }));
    EXPECT_EQ(bridge.program().exit_code(), 1);
    EXPECT_THAT(bridge.said(), HasSubstr("the bridge br0 is gone"));
}

TEST_F(ruled_bridge, does_at_its_end_what_it_was_told)
{
    ruled_bridge_t &keeps = bridge_with_hosts(1);
    ruled_bridge_t &blocks = bridge_with_hosts(1, {.settings = fast_settings(), .options = {"--at-end", "block"}});
    ruled_bridge_t &forwards = bridge_with_hosts(1, {.settings = fast_settings(), .options = {"--at-end", "forward"}});
    for (ruled_bridge_t *each : {&keeps, &blocks, &forwards}) {
        EXPECT_TRUE(each == &forwards || kernel_becomes(*each, "lan1", "forwarding"));
        EXPECT_EQ(each->program().stop(SOON), 0);
    }
    const auto tables = [](const ruled_bridge_t &bridge) {
        return bridge.node().run({.argv = {"nft", "list", "ruleset"}}).output;
    };
    EXPECT_EQ(keeps.kernel_state("lan1"), "forwarding");
    EXPECT_THAT(tables(keeps), HasSubstr("lvt_bridge_br0"));
    EXPECT_EQ(blocks.kernel_state("lan1"), "disabled");
    EXPECT_THAT(tables(blocks), testing::ContainsRegex("hook ingress devices? .*lan1"));
    EXPECT_EQ(forwards.kernel_state("lan1"), "forwarding");
    EXPECT_EQ(tables(forwards), "");
}

} // namespace
