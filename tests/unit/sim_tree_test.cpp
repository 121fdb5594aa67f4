// Several switches, and hosts at their edges: who forwards, and from which moment on.
//
// A tick begins a pass over the ports, and the next event ends it; roles are chosen at its end and taken up in
// the pass after it. That, and no timer, is why what happens at once may take a second tick.
#include <algorithm>

#include <fmt/format.h>

#include "sim_net.h"
#include "tools/status_file.h"

namespace {

using namespace sim;

/// Lets `host` speak every hundredth of a second for a while.
void talk_for(net_t &net, neighbour_t &host, moment_t span)
{
    for (const moment_t end = net.world.now() + span; net.world.now() < end; net.world.run_for(SECOND / 100))
        host.send_data();
}

// ---- two switches -----------------------------------------------------------------------------

TEST(sim_tree, root_port_is_quick_and_designated_port_goes_by_its_timers)
{
    net_t net;
    const node_id_t a = net.add_bridge(4096, port_configs({1}));
    const node_id_t b = net.add_bridge(8192, port_configs({1}));
    net.connect(a, 1, b, 1);
    net.mark();
    net.world.run_for(30 * SECOND);

    EXPECT_EQ(net.roles(a, 1), "4 designated");
    EXPECT_EQ(net.roots(b), "4.001 4096/02:00:00:00:01:00") << "the first BPDU that it hears";
    EXPECT_EQ(net.roles(b, 1), "4.001 designated, 4.003 root");
    EXPECT_EQ(net.states(b, 1), "4.003 learning, 4.003 forwarding") << "the next event";
    // The first delay has begun before the port had its role; the second lasts for four ticks.
    EXPECT_EQ(net.states(a, 1), "6.101 learning, 10.101 forwarding");
    EXPECT_EQ(net.roots(a), "");

    // From then on one says hello every second, and the other one answers.
    net.mark();
    net.world.run_for(3 * SECOND);
    EXPECT_EQ(net.flags_sent(a, 1),
              "0.101 designated proposal learning forwarding agreement, "
              "1.101 designated proposal learning forwarding agreement, "
              "2.101 designated proposal learning forwarding agreement");
    EXPECT_EQ(net.flags_sent(b, 1),
              "0.1 root learning forwarding agreement, "
              "1.1 root learning forwarding agreement, "
              "2.1 root learning forwarding agreement");
}

/// The better switch `a` and the other one are joined by some cables; a host is at port 6 of each.
class sim_parallel : public testing::TestWithParam<unsigned> {};

TEST_P(sim_parallel, one_path_forwards)
{
    const unsigned cables = GetParam();
    net_t net;
    const node_id_t a = net.add_bridge(4096, port_configs({1, 2, 3}, {6}));
    const node_id_t b = net.add_bridge(8192, port_configs({1, 2, 3}, {6}));
    neighbour_t &left = net.add_neighbour(a, 6);
    neighbour_t &right = net.add_neighbour(b, 6);
    std::string at_a, at_b = "1 root forwards, ";
    for (unsigned port = 1; port <= cables; port++) {
        net.connect(a, port, b, port);
        at_a += fmt::format("{} designated forwards, ", port);
        if (port > 1)
            at_b += fmt::format("{} alternate discards, ", port);
    }
    net.mark();
    talk_for(net, left, 20 * SECOND);
    right.send_data();
    net.world.run_for(SECOND);

    EXPECT_EQ(net.ports(a), at_a + "6 designated forwards");
    EXPECT_EQ(net.ports(b), at_b + "6 designated forwards");
    for (unsigned port = 1; port <= cables; port++) {
        EXPECT_EQ(net.states(a, port), "6.101 learning, 10.101 forwarding") << port;
        EXPECT_EQ(net.state(b, port), port == 1 ? HW_FORWARDING : HW_DISCARDING) << port;
    }
    EXPECT_TRUE(net.is_root(a));
    EXPECT_EQ(net.roots(b), "4.001 4096/02:00:00:00:01:00");

    // Each frame once, from the first that found the way on; none twice, and none back.
    EXPECT_EQ(right.data_heard(), 2000u - 1010u);
    EXPECT_EQ(right.times_heard(left, 1010), 1u) << "sent a thousandth before the port forwards";
    EXPECT_EQ(right.most_copies(), 1u);
    EXPECT_EQ(left.data_heard(), 1u);
    EXPECT_EQ(left.times_heard(right, 0), 1u);
}

INSTANTIATE_TEST_SUITE_P(cables, sim_parallel, testing::Values(1, 2, 3));

/// Two switches with two cables, in all ways in which the daemons' seconds may lie. Hosts are at ports 6.
class sim_pair : public testing::TestWithParam<moment_t> {
protected:
    void SetUp() override
    {
        net.pass(30 * SECOND);
        ASSERT_EQ(net.ports(a), "1 designated forwards, 2 designated forwards, 6 designated forwards");
        ASSERT_EQ(net.ports(b), "1 root forwards, 2 alternate discards, 6 designated forwards");
    }

    net_t net;
    const node_id_t a = net.add_bridge(4096, port_configs({1, 2}, {6}));
    const node_id_t b = net.add_bridge(8192, port_configs({1, 2}, {6}), GetParam());
    neighbour_t &left = net.add_neighbour(a, 6);
    neighbour_t &right = net.add_neighbour(b, 6);
    const cable_id_t first_cable = net.connect(a, 1, b, 1);
    const cable_id_t second_cable = net.connect(a, 2, b, 2);
    const moment_t tick_of_b = GetParam() % SECOND; ///< the first after a mark
};

TEST_P(sim_pair, alternate_takes_over_at_once)
{
    net.world.pull(first_cable);
    net.world.run_for(10 * SECOND);
    const std::string second_tick = seconds(tick_of_b + SECOND);
    EXPECT_EQ(net.states(b, 2), second_tick + " learning, " + second_tick + " forwarding");
    EXPECT_EQ(net.states(b, 1), second_tick + " discarding");
    EXPECT_EQ(net.states(a, 2), "");
    EXPECT_EQ(net.ports(b), "2 root forwards, 6 designated forwards");
    EXPECT_EQ(net.ports(a), "2 designated forwards, 6 designated forwards");
    left.send_data();
    net.pass(SECOND);
    EXPECT_EQ(right.times_heard(left, 0), 1u);

    // The way back costs nobody a frame but for the moment of the change.
    net.world.plug(first_cable);
    talk_for(net, left, 20 * SECOND);
    EXPECT_EQ(net.states(b, 1), "2.003 learning, 2.003 forwarding") << "what it says with the second tick is heard";
    EXPECT_EQ(net.states(b, 2), "2.003 discarding");
    EXPECT_EQ(net.states(a, 1), seconds(tick_of_b + 4 * SECOND + MILLISECOND) + " learning, " +
                                    seconds(tick_of_b + 8 * SECOND + MILLISECOND) + " forwarding");
    EXPECT_EQ(net.states(a, 2), "");
    EXPECT_EQ(net.ports(b), "1 root forwards, 2 alternate discards, 6 designated forwards");
    EXPECT_EQ(net.ports(a), "1 designated forwards, 2 designated forwards, 6 designated forwards");
    EXPECT_EQ(right.most_copies(), 1u);
    EXPECT_EQ(left.data_heard(), 0u);
    EXPECT_EQ(right.times_heard(left, left.data_sent() - 1), 1u);
}

TEST_P(sim_pair, settles_when_a_cable_no_longer_flaps)
{
    for (int flap = 0; flap < 20; flap++) {
        net.world.pull(first_cable);
        net.world.run_for(SECOND / 20);
        net.world.plug(first_cable);
        net.world.run_for(SECOND / 20);
    }
    net.pass(2 * FORWARD_DELAY * SECOND);
    net.world.run_for(30 * SECOND);
    for (const node_id_t node : {a, b})
        for (const unsigned port : {1u, 2u, 6u})
            EXPECT_EQ(net.states(node, port), "") << node << ":" << port << " is at rest after both of its delays";
    EXPECT_EQ(net.ports(a), "1 designated forwards, 2 designated forwards, 6 designated forwards");
    EXPECT_EQ(net.ports(b), "1 root forwards, 2 alternate discards, 6 designated forwards");
    EXPECT_EQ(bridge_id_text(net.bridge(b).designated_root), "4096/02:00:00:00:01:00");
    left.send_data();
    net.world.run_for(SECOND);
    EXPECT_EQ(right.times_heard(left, 0), 1u);
    EXPECT_EQ(left.data_heard(), 0u);
}

INSTANTIATE_TEST_SUITE_P(other_ticks_from, sim_pair,
                         testing::Values(TENTH / 2, SECOND / 2, SECOND + TENTH, SECOND + 3 * TENTH, SECOND + 5 * TENTH,
                                         SECOND + 7 * TENTH, SECOND + 9 * TENTH),
                         [](const auto &test) { return fmt::format("{}_ms", test.param / MILLISECOND); });

// ---- rings and loops --------------------------------------------------------------------------

TEST(sim_tree, ring_of_three_has_one_gap)
{
    //   a
    //  / \.
    // b - c
    net_t net;
    const node_id_t a = net.add_bridge(4096, port_configs({1, 2}, {6}));
    const node_id_t b = net.add_bridge(8192, port_configs({1, 2}, {6}));
    const node_id_t c = net.add_bridge(12288, port_configs({1, 2}, {6}));
    neighbour_t &at_a = net.add_neighbour(a, 6);
    neighbour_t &at_b = net.add_neighbour(b, 6);
    neighbour_t &at_c = net.add_neighbour(c, 6);
    net.connect(a, 1, b, 1);
    net.connect(b, 2, c, 2);
    const cable_id_t a_to_c = net.connect(a, 2, c, 1);
    net.mark();
    talk_for(net, at_c, 20 * SECOND);

    EXPECT_EQ(net.ports(a), "1 designated forwards, 2 designated forwards, 6 designated forwards");
    EXPECT_EQ(net.ports(b), "1 root forwards, 2 designated forwards, 6 designated forwards");
    EXPECT_EQ(net.ports(c), "1 root forwards, 2 alternate discards, 6 designated forwards");
    EXPECT_EQ(net.states(a, 1), "6.101 learning, 10.101 forwarding");
    EXPECT_EQ(net.states(b, 1), "4.002 learning, 4.002 forwarding");
    EXPECT_EQ(net.states(b, 2), "6.102 learning, 10.102 forwarding");
    EXPECT_EQ(net.states(c, 1), "4.002 learning, 4.002 forwarding");
    EXPECT_EQ(net.states(c, 2), "");
    for (const node_id_t node : {b, c})
        EXPECT_EQ(bridge_id_text(net.bridge(node).designated_root), "4096/02:00:00:00:01:00");

    net.mark();
    net.world.pull(a_to_c);
    talk_for(net, at_c, 10 * SECOND);
    EXPECT_EQ(net.states(c, 2), "1.103 learning, 1.103 forwarding") << "b's hello ends the pass before the second tick";
    EXPECT_EQ(net.ports(c), "2 root forwards, 6 designated forwards");

    EXPECT_EQ(at_c.data_heard(), 0u);
    for (const neighbour_t *host : {&at_a, &at_b}) {
        EXPECT_EQ(host->most_copies(), 1u);
        EXPECT_EQ(host->times_heard(at_c, at_c.data_sent() - 1), 1u);
    }
}

TEST(sim_tree, port_cabled_to_its_own_switch_is_a_backup)
{
    net_t net;
    const node_id_t a = net.add_bridge(4096, port_configs({1, 2}, {6}));
    neighbour_t &host = net.add_neighbour(a, 6);
    net.connect(a, 1, a, 2);
    net.mark();
    talk_for(net, host, 30 * SECOND);
    EXPECT_EQ(net.ports(a), "1 designated forwards, 2 backup discards, 6 designated forwards");
    EXPECT_EQ(net.roles(a, 2), "4 designated, 4.002 backup") << "what it hears of itself";
    EXPECT_EQ(net.states(a, 2), "");
    EXPECT_EQ(net.state(a, 2), HW_DISCARDING);
    EXPECT_EQ(net.states(a, 1), "4.002 learning, 4.002 forwarding") << "it has its own agreement";
    EXPECT_TRUE(net.is_root(a));
    EXPECT_EQ(host.data_heard(), 0u);
}

// ---- edge ports -------------------------------------------------------------------------------

TEST(sim_edge, host_waits_three_seconds_for_bridges)
{
    port_configs_t configs = port_configs({2}, {1, 3});
    configs[3].adminEnable = 0;
    net_t net;
    const node_id_t ours = net.add_bridge(32768, configs);
    neighbour_t &host = net.add_neighbour(ours, 1);
    net.add_neighbour(ours, 2);
    neighbour_t &third = net.add_neighbour(ours, 3);
    net.mark();
    net.world.run_for(20 * SECOND);
    // The first tick sees the link, three more pass, and the pass that this begins ends with the next.
    EXPECT_EQ(net.states(ours, 1), "5 learning, 5 forwarding");
    EXPECT_EQ(net.states(ours, 2), "7 learning, 11 forwarding") << "an ordinary port, whoever is there";
    EXPECT_TRUE(net.status(ours, 1).is_edge);
    EXPECT_FALSE(net.status(ours, 2).is_edge);
    EXPECT_EQ(net.status(ours, 3).role, ROLE_NON_STP);
    third.send_data();
    net.world.run_for(SECOND);
    EXPECT_EQ(host.times_heard(third, 0), 1u);
}

TEST(sim_edge, port_without_spanning_tree_forwards_at_once)
{
    net_t net;
    const node_id_t ours = net.add_bridge(32768, port_configs({}, {3}));
    neighbour_t &first = net.add_neighbour(ours, 1);
    neighbour_t &second = net.add_neighbour(ours, 2);
    first.send_data();
    net.world.run_for(2 * MILLISECOND);
    EXPECT_EQ(second.times_heard(first, 0), 1u);
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.bpdus_sent(ours, 1).size(), 0u);
    EXPECT_EQ(net.status(ours, 1).role, ROLE_NON_STP);
}

TEST(sim_edge, bridge_heard_in_the_first_seconds_keeps_a_port_ordinary)
{
    struct row_t {
        moment_t heard;
        const char *states;
    };
    // The first tick has seen the link; the fourth decides. After it, the port forwards at once.
    constexpr row_t ROWS[] = {
        {MILLISECOND, "6 learning, 10 forwarding"},
        {SECOND + MILLISECOND, "6 learning, 10 forwarding"},
        {2 * SECOND + MILLISECOND, "7 learning, 11 forwarding"},
        {3 * SECOND + MILLISECOND, "7 learning, 11 forwarding"},
        {4 * SECOND - MILLISECOND, "7 learning, 11 forwarding"},
        {4 * SECOND + MILLISECOND, "4.001 learning, 4.001 forwarding"},
        {5 * SECOND - MILLISECOND, "4.999 learning, 4.999 forwarding"},
    };
    for (const row_t &row : ROWS) {
        net_t net;
        const node_id_t ours = net.add_bridge(4096, port_configs({}, {1}));
        neighbour_t &neighbour = net.add_neighbour(ours, 1);
        net.mark();
        net.world.run_for(row.heard - MILLISECOND);
        neighbour.say_once(rst_bpdu(root_bridge(61440, 200)));
        net.world.run_for(20 * SECOND);
        EXPECT_EQ(net.states(ours, 1), row.states) << "heard at " << seconds(row.heard);
        EXPECT_FALSE(net.status(ours, 1).is_edge) << "heard at " << seconds(row.heard);
    }
}

TEST(sim_edge, bridge_on_an_edge_port_ends_that)
{
    net_t net;
    const node_id_t ours = net.add_bridge(4096, port_configs({}, {1}));
    neighbour_t &neighbour = net.add_neighbour(ours, 1);
    const cable_id_t cable = net.world.cable_at({ours, 1});
    net.mark();
    net.world.run_for(30 * SECOND);
    EXPECT_EQ(net.states(ours, 1), "5 learning, 5 forwarding");
    EXPECT_TRUE(net.status(ours, 1).is_edge);
    EXPECT_EQ(net.sent(ours, 1, tells_change), "") << "it became an edge port without a topology change";

    // A bridge there is one, and the port an ordinary one until the link goes.
    net.mark();
    neighbour.say_once(rst_bpdu(root_bridge(61440, 200)));
    net.world.run_for(MILLISECOND);
    EXPECT_FALSE(net.status(ours, 1).is_edge);
    net.world.run_for(60 * SECOND - MILLISECOND);
    EXPECT_EQ(net.sent(ours, 1, tells_change), "2") << "a tick after the change, and no longer than two hellos";
    EXPECT_FALSE(net.status(ours, 1).is_edge);
    EXPECT_EQ(net.states(ours, 1), "");

    net.mark();
    net.world.pull(cable);
    net.pass(5 * SECOND);
    EXPECT_EQ(net.status(ours, 1).role, ROLE_DISABLED);
    net.world.plug(cable);
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.states(ours, 1), "5 learning, 5 forwarding");
    EXPECT_TRUE(net.status(ours, 1).is_edge);
}

// ---- what links do to addresses and registers -------------------------------------------------

TEST(sim_link, address_of_a_host_that_moves_is_forgotten_and_learned_again)
{
    net_t net;
    const node_id_t ours = net.add_bridge(4096, port_configs({}, {1, 2, 3}));
    neighbour_t &mover = net.add_neighbour(ours, 1);
    neighbour_t &other = net.add_neighbour(ours, 3);
    net.pass(10 * SECOND);
    mover.send_data();
    other.send_data();
    net.pass(SECOND);
    EXPECT_EQ(net.heard_at(ours, mover.address()), 1u);
    EXPECT_EQ(net.heard_at(ours, other.address()), 3u);

    net.world.pull(net.world.cable_at({ours, 1}));
    net.world.run_for(3 * SECOND - MILLISECOND);
    EXPECT_EQ(net.heard_at(ours, mover.address()), 1u);
    net.world.run_for(MILLISECOND);
    EXPECT_EQ(net.heard_at(ours, mover.address()), 0u) << "flushed when the port leaves its state";
    EXPECT_EQ(net.flushes(ours), "3");
    EXPECT_EQ(net.status(ours, 1).role, ROLE_DISABLED);

    neighbour_t &moved = net.add_neighbour(ours, 2);
    moved.become(mover);
    net.world.run_for(10 * SECOND);
    moved.send_data();
    other.send_data();
    net.world.run_for(SECOND);
    EXPECT_EQ(other.times_heard(moved, 0), 2u) << "once from either place";
    EXPECT_EQ(moved.times_heard(other, 1), 1u);
    EXPECT_EQ(net.heard_at(ours, mover.address()), 2u);
    EXPECT_EQ(net.heard_at(ours, other.address()), 3u);
}

TEST(sim_link, flushes_at_once_and_moves_the_port_with_its_ticks)
{
    net_t net;
    const node_id_t ours = net.add_switch();
    net.world.control(ours, port_config_message(port_configs({}, {3})));
    net.pass(5 * SECOND);
    net.add_neighbour(ours, 3);
    net.add_neighbour(ours, 4); // where spanning tree is off
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.writes(ours), "0 flush, 5 port 3 learning, 5 port 3 forwarding") << "a host is expected there";

    net.mark();
    const rstp_port_status_t up = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
    net.world.control(ours, port_status_message({{{}, {}, up, up, {}, {}}}));
    net.world.run_for(5 * SECOND);
    EXPECT_EQ(net.writes(ours), "") << "nothing has changed";

    net.mark();
    net.world.pull(net.world.cable_at({ours, 3}));
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.writes(ours), "3 flush, 3 port 3 discarding");
}

} // namespace
