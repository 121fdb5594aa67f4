// Ports that are one: how groups come, change and go, how they speak, and that their members keep in step.
#include <fmt/format.h>

#include "daemon/rstp_aggr.h"
#include "sim_net.h"

namespace {

using namespace sim;
using ports_t = std::vector<int>;

class sim_group : public testing::Test {
protected:
    /// A switch whose groups take part in the spanning tree, too.
    node_id_t add_group_bridge(uint16_t priority, const port_configs_t &ports)
    {
        const node_id_t node = net.add_bridge(priority, ports);
        serve(node, aggr_config_message(group_config(true)));
        return node;
    }

    static lvt_rstp_port_config_t group_config(bool takes_part)
    {
        lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
        config.adminEnable = takes_part;
        return config;
    }

    /// Any message; the tables agree afterwards.
    void serve(node_id_t node, const std::vector<uint8_t> &message)
    {
        net.world.control(node, message);
        expect_tables_agree(node);
    }

    /// As the link-aggregation daemon does: first in the chip, then with a report.
    void report(node_id_t node, const aggr_status_t &status)
    {
        for (unsigned port = 1; port <= sim::FRONT_PORTS; port++) {
            const uint8_t group = status[port];
            const bool joins = group > RSTP_PHYSICAL_PORTS && group <= RSTP_PORTS;
            chip_trunk_set(net.world.device(node).chip, chip_port_of_front(port), joins ? group : 0);
        }
        serve(node, aggr_status_message(status));
    }

    /// Whether a frame comes once, and none comes back.
    testing::AssertionResult reaches(neighbour_t &from, neighbour_t &to)
    {
        const size_t returned = from.data_heard();
        from.send_data();
        net.world.run_for(SECOND);
        const size_t times = to.times_heard(from, from.data_sent() - 1);
        return times == 1 && from.data_heard() == returned
                   ? testing::AssertionSuccess()
                   : testing::AssertionFailure() << times << " times, " << from.data_heard() - returned << " back";
    }

    void expect_tables_agree(node_id_t node)
    {
        const ports_t engine = engine_groups(node);
        for (unsigned port = 1; port <= sim::FRONT_PORTS; port++) {
            EXPECT_EQ(net.status(node, port).part_of_aggr, static_cast<uint32_t>(engine[port - 1])) << port;
            uint8_t written, forwarding;
            lvt_rstp_read_hw_state(port, &written, &forwarding);
            EXPECT_EQ(written, net.state(node, port)) << port;
        }
    }

    /// What the engine goes by: entry p - 1 belongs to port p, 0 when it stands alone.
    ports_t engine_groups(node_id_t node)
    {
        const lvt_rstp_vars_t &vars = switch_vars(net.world.device(node));
        ports_t numbers;
        for (const port_t *standing : vars.representative)
            numbers.push_back(standing->port_number > RSTP_PHYSICAL_PORTS ? static_cast<int>(standing->port_number)
                                                                          : 0);
        return numbers;
    }

    /// What the daemon was told last.
    ports_t told_groups(node_id_t node)
    {
        switch_vars(net.world.device(node));
        ports_t numbers;
        for (int port = 1; port <= static_cast<int>(RSTP_PHYSICAL_PORTS); port++)
            numbers.push_back(aggr_port_status[port] == port ? 0 : aggr_port_status[port]);
        return numbers;
    }

    net_t net;
};

// ---- two switches -----------------------------------------------------------------------------

/// Ports 1 and 2 of both switches are group 7; a host is at port 6 of each.
class sim_group_pair : public sim_group {
protected:
    sim_group_pair()
    {
        for (const node_id_t node : {a, b})
            report(node, groups({7, 7}));
        net.mark();
    }

    node_id_t a = add_group_bridge(4096, port_configs({1, 2}, {6}));
    node_id_t b = add_group_bridge(8192, port_configs({1, 2}, {6}));
    neighbour_t &left = net.add_neighbour(a, 6);
    neighbour_t &right = net.add_neighbour(b, 6);
    cable_id_t first = net.connect(a, 1, b, 1);
    cable_id_t second = net.connect(a, 2, b, 2);
};

TEST_F(sim_group_pair, comes_up_as_one)
{
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.ports(a), "6 designated forwards, 7 designated forwards");
    EXPECT_EQ(net.ports(b), "6 designated forwards, 7 root forwards");
    for (const unsigned port : {1u, 2u}) {
        EXPECT_EQ(net.states(a, port), "4.101 learning, 8.101 forwarding");
        EXPECT_EQ(net.states(b, port), "2.003 learning, 2.003 forwarding");
    }
    EXPECT_TRUE(reaches(left, right));
    EXPECT_TRUE(reaches(right, left));
    EXPECT_EQ(net.status(b, 7).oper_pathcost, 10000u) << "2 x 1000 Mbit/s";
    EXPECT_TRUE(net.status(b, 7).is_p2p);
    expect_tables_agree(a);
    expect_tables_agree(b);
}

TEST_F(sim_group_pair, speaks_by_its_first_member)
{
    net.pass(20 * SECOND);
    const uint32_t heard = net.status(b, 7).rstp_frame_recvs;
    net.world.run_for(3 * SECOND);
    EXPECT_EQ(net.sent(a, 1, is_rst), "0.101 1.101 2.101");
    EXPECT_EQ(net.sent(a, 2, is_rst), "");
    EXPECT_EQ(net.status(b, 7).rstp_frame_recvs, heard + 3);
    EXPECT_EQ(net.status(b, 1).rstp_frame_recvs, 0u);
    EXPECT_EQ(net.status(a, 7).rstp_frame_xmits, 0u) << "its first member counts what it sends";
}

TEST_F(sim_group_pair, both_cables_gone_and_back)
{
    net.pass(20 * SECOND);
    net.world.pull(first);
    net.world.pull(second);
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.ports(b), "6 designated forwards");
    EXPECT_EQ(net.roots(b), "1.1 8192/02:00:00:00:02:00");
    EXPECT_EQ(net.roles(b, 7), "2.1 disabled");
    for (const unsigned port : {1u, 2u}) {
        EXPECT_EQ(net.states(a, port), "3 discarding");
        EXPECT_EQ(net.states(b, port), "2.1 discarding");
    }
    expect_tables_agree(b);

    // One cable is enough.
    net.mark();
    net.world.plug(first);
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.ports(b), "6 designated forwards, 7 root forwards");
    EXPECT_EQ(net.ports(a), "6 designated forwards, 7 designated forwards");
    for (const unsigned port : {1u, 2u}) {
        EXPECT_EQ(net.states(a, port), "6.002 learning, 10.101 forwarding");
        EXPECT_EQ(net.states(b, port), "4.1 learning, 4.1 forwarding");
    }
    expect_tables_agree(a);
    expect_tables_agree(b);
}

TEST_F(sim_group_pair, member_that_goes_and_comes_moves_nothing)
{
    net.pass(20 * SECOND);
    net.world.pull(second);
    net.world.run_for(5 * SECOND);
    net.world.plug(second);
    net.world.run_for(10 * SECOND);
    for (const node_id_t node : {a, b})
        for (const unsigned port : {1u, 2u})
            EXPECT_EQ(net.states(node, port), "");
    EXPECT_EQ(net.ports(a), "6 designated forwards, 7 designated forwards");
}

TEST_F(sim_group_pair, first_member_fails_and_the_report_follows)
{
    net.pass(20 * SECOND);
    net.world.pull(first);
    report(a, groups({0, 7}));
    report(b, groups({0, 7}));
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.ports(b), "6 designated forwards, 7 root forwards");
    EXPECT_EQ(net.roles(a, 7), "0.002 disabled, 0.002 designated");
    EXPECT_EQ(net.roles(b, 7), "0.001 disabled, 0.001 designated, 0.1 root");
    EXPECT_EQ(net.states(b, 2), "0.001 discarding, 0.001 learning, 0.1 forwarding");
    EXPECT_EQ(net.sent(a, 2, is_rst), "0 0 0.002 0.002 1.101 2.101 3.101 4.101 5.101 6.101 7.101 8.101 9.101");
    EXPECT_EQ(net.sent(a, 1, is_rst), "");
    EXPECT_EQ(engine_groups(a), ports_t({0, 7, 0, 0, 0, 0}));
    EXPECT_EQ(net.status(a, 1).role, ROLE_DISABLED);

    // It comes back: first on its own, and preferred to the group of one for its number; then as a
    // member again.
    net.mark();
    net.world.plug(first);
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.ports(b), "1 root forwards, 6 designated forwards, 7 alternate discards");
    EXPECT_EQ(net.states(b, 1), "2.1 learning, 2.1 forwarding");
    EXPECT_EQ(net.states(b, 2), "2.1 discarding");
    net.mark();
    report(b, groups({7, 7}));
    report(a, groups({7, 7}));
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.ports(b), "6 designated forwards, 7 root forwards");
    EXPECT_EQ(net.states(b, 1), "0 discarding, 0.001 learning, 0.001 forwarding");
    EXPECT_EQ(net.states(b, 2), "0.001 learning, 0.001 forwarding");
}

TEST_F(sim_group, form_reform_dissolve_and_form_again)
{
    const node_id_t a = add_group_bridge(4096, port_configs({1, 2, 3}, {6}));
    const node_id_t b = add_group_bridge(8192, port_configs({1, 2, 3}, {6}));
    neighbour_t &left = net.add_neighbour(a, 6);
    neighbour_t &right = net.add_neighbour(b, 6);
    for (const unsigned port : {1u, 2u, 3u})
        net.connect(a, port, b, port);
    const auto report_to_both = [&](const aggr_status_t &status) {
        net.mark();
        report(b, status);
        report(a, status);
        net.world.run_for(20 * SECOND);
        expect_tables_agree(a);
        expect_tables_agree(b);
        EXPECT_TRUE(reaches(left, right));
    };

    report_to_both(groups({7, 7}));
    EXPECT_EQ(engine_groups(b), ports_t({7, 7, 0, 0, 0, 0}));
    EXPECT_EQ(net.ports(b), "3 alternate discards, 6 designated forwards, 7 root forwards");
    EXPECT_EQ(net.roles(b, 7), "0 disabled, 0.001 designated, 1.1 root");
    EXPECT_EQ(net.states(b, 1), "0 learning, 0 discarding, 2.001 learning, 2.001 forwarding");
    EXPECT_EQ(net.states(a, 1), "0 learning, 0 discarding, 5 learning, 8.002 forwarding");

    // Other members; port 1 gets its own place back.
    report_to_both(groups({0, 7, 7}));
    EXPECT_EQ(engine_groups(b), ports_t({0, 7, 7, 0, 0, 0}));
    EXPECT_EQ(net.ports(b), "1 alternate discards, 6 designated forwards, 7 root forwards");
    EXPECT_EQ(net.roles(b, 7), "0.001 disabled, 0.001 designated, 0.001 root, 3.001 designated, 3.003 root");
    EXPECT_EQ(net.states(b, 1),
              "0 discarding, 0 learning, 0 forwarding, 0 discarding, 0 learning, 0.001 forwarding, 0.001 discarding");
    EXPECT_EQ(net.states(b, 2), "0.001 discarding, 0.001 learning, 0.001 forwarding");
    EXPECT_EQ(net.states(b, 3), "0 forwarding, 0.001 discarding, 0.001 learning, 0.001 forwarding");
    net.mark();
    net.world.run_for(3 * SECOND);
    EXPECT_EQ(net.sent(a, 2, is_rst), "0.002 1.101 3");
    EXPECT_EQ(net.sent(a, 3, is_rst), "");

    report_to_both(AGGR_STATUS_ALONE);
    EXPECT_EQ(engine_groups(b), ports_t({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(net.ports(b), "1 root forwards, 2 alternate discards, 3 alternate discards, 6 designated forwards");
    EXPECT_EQ(net.states(b, 1), "0 learning, 0 forwarding");
    EXPECT_EQ(net.status(b, 7).role, ROLE_NON_STP);

    report_to_both(groups({8, 8, 8}));
    EXPECT_EQ(net.ports(b), "6 designated forwards, 8 root forwards");
    EXPECT_EQ(net.ports(a), "6 designated forwards, 8 designated forwards");
    EXPECT_EQ(net.states(a, 1), "0 discarding, 0 learning, 0 discarding, 4.101 learning, 8.101 forwarding");
    EXPECT_EQ(net.states(b, 1), "0 discarding, 0 learning, 0 discarding, 0.003 learning, 0.003 forwarding");
}

// ---- one switch -------------------------------------------------------------------------------

TEST_F(sim_group, any_member_hears_for_the_group)
{
    const node_id_t ours = add_group_bridge(32768, port_configs({1, 2, 3}));
    neighbour_t &at_first = net.add_neighbour(ours, 1);
    neighbour_t &at_second = net.add_neighbour(ours, 2);
    report(ours, groups({9, 9}));
    net.pass(SECOND / 2);

    at_second.say(rst_bpdu(root_bridge(0, 200)));
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.ports(ours), "9 root forwards");
    EXPECT_EQ(net.roots(ours), "0.5 0/02:00:00:00:c8:00");
    EXPECT_EQ(net.states(ours, 1), "0.5 learning, 0.5 forwarding");
    EXPECT_EQ(net.states(ours, 2), "0.5 learning, 0.5 forwarding");
    EXPECT_EQ(net.status(ours, 9).rstp_frame_recvs, 10u);
    EXPECT_EQ(net.status(ours, 2).rstp_frame_recvs, 0u);
    // What it says leaves by the first member, whoever is there.
    EXPECT_EQ(net.sent(ours, 1, is_rst), "0.001 0.001 0.5 0.5 1.5");
    EXPECT_EQ(net.bpdus_sent(ours, 2).size(), 0u);

    // A frame that is none counts for the group, too.
    bpdu_t broken = rst_bpdu(root_bridge(0, 200));
    broken.protocol[1] = 1;
    at_second.say_once(broken);
    net.world.run_for(2 * MILLISECOND);
    EXPECT_EQ(net.status(ours, 9).illegal_frame_recvs, 1u);
    EXPECT_EQ(net.status(ours, 2).illegal_frame_recvs, 0u);

    // And the other member is heard just as well.
    net.mark();
    at_second.be_silent();
    at_first.say(rst_bpdu(root_bridge(0, 100)));
    net.world.run_for(10 * SECOND);
    EXPECT_EQ(net.roots(ours), "0.498 0/02:00:00:00:64:00");
}

TEST_F(sim_group, reports_with_strange_values)
{
    const node_id_t ours = add_group_bridge(32768, port_configs({1, 2, 3, 4, 5, 6}));

    // No group has a number above 9: such ports stand alone.
    report(ours, groups({10, 255, 7, 7, 128, 200}));
    EXPECT_EQ(told_groups(ours), ports_t({0, 0, 7, 7, 0, 0}));
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 7, 7, 0, 0}));

    // Numbers of other ports are no groups either.
    report(ours, groups({6, 5, 7, 7, 2, 1}));
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 7, 7, 0, 0}));

    // Three groups, and all gone in one report.
    report(ours, groups({7, 7, 8, 8, 9, 9}));
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 8, 8, 9, 9}));
    report(ours, AGGR_STATUS_ALONE);
    EXPECT_EQ(told_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));

    // A report of zeros is taken, but does not touch the groups that are set up.
    report(ours, groups({7, 7, 8, 8, 9, 9}));
    report(ours, aggr_status_t{});
    EXPECT_EQ(told_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 8, 8, 9, 9}));
    report(ours, groups({7, 7, 8, 8, 9, 9}));
    report(ours, AGGR_STATUS_ALONE);
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
}

TEST_F(sim_group, ports_that_move_leave_an_empty_group_until_it_is_told)
{
    const node_id_t ours = add_group_bridge(32768, port_configs({1, 2, 3}));
    net.add_neighbour(ours, 1);
    report(ours, groups({7, 7}));
    report(ours, groups({8, 8}));
    EXPECT_EQ(engine_groups(ours), ports_t({8, 8, 0, 0, 0, 0}));
    net.mark();
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.roles(ours, 8), "2 designated");
    EXPECT_EQ(net.states(ours, 1), "5 learning, 9 forwarding");
    EXPECT_EQ(net.states(ours, 2), "5 learning, 9 forwarding");
    EXPECT_EQ(net.status(ours, 7).role, ROLE_DESIGNATED);

    // Another port comes to the empty group and leaves it: now it is gone.
    report(ours, groups({8, 8, 7}));
    EXPECT_EQ(engine_groups(ours), ports_t({8, 8, 7, 0, 0, 0}));
    net.mark();
    report(ours, groups({8, 8, 3}));
    EXPECT_EQ(engine_groups(ours), ports_t({8, 8, 0, 0, 0, 0}));
    net.world.run_for(5 * SECOND);
    EXPECT_EQ(net.roles(ours, 7), "0 off");
}

TEST_F(sim_group, spanning_tree_off_and_on_for_the_groups)
{
    const node_id_t ours = add_group_bridge(4096, port_configs({1, 2}, {6}));
    net.add_neighbour(ours, 1);
    net.add_neighbour(ours, 2);
    report(ours, groups({7, 7}));
    net.mark();
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.ports(ours), "7 designated forwards");
    EXPECT_EQ(net.states(ours, 1), "5 learning, 9 forwarding");
    EXPECT_EQ(net.states(ours, 2), "5 learning, 9 forwarding");

    // Off: both members forward without a spanning tree, at once, and nobody speaks for them.
    net.mark();
    serve(ours, aggr_config_message(group_config(false)));
    EXPECT_EQ(net.writes(ours),
              "0 port 1 forwarding (no spanning tree), 0 port 2 forwarding (no spanning tree), 0 port 1 forwarding (no "
              "spanning tree), 0 port 2 forwarding (no spanning tree)");
    net.pass(SECOND);
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.ports(ours), "");
    EXPECT_EQ(net.bpdus_sent(ours, 1).size(), 0u);

    // On: they discard, and go through the delays together.
    net.mark();
    serve(ours, aggr_config_message(group_config(true)));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.states(ours, 1), "1 discarding, 2 learning, 6 forwarding");
    EXPECT_EQ(net.states(ours, 2), "1 discarding, 2 learning, 6 forwarding");
    EXPECT_EQ(net.ports(ours), "7 designated forwards");
}

TEST_F(sim_group, spanning_tree_off_and_on_for_a_member)
{
    const node_id_t ours = add_group_bridge(4096, port_configs({1, 2}));
    net.add_neighbour(ours, 1);
    net.add_neighbour(ours, 2);
    report(ours, groups({7, 7}));
    net.pass(20 * SECOND);
    ASSERT_EQ(net.ports(ours), "7 designated forwards");

    // A member without spanning tree of its own forwards whatever its group does.
    serve(ours, port_config_message(port_configs({1})));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.states(ours, 1), "1 discarding, 2 learning, 6 forwarding");
    EXPECT_EQ(net.states(ours, 2), "");
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 0, 0, 0, 0}));
    EXPECT_EQ(net.ports(ours), "7 designated forwards");

    net.mark();
    serve(ours, port_config_message(port_configs({1, 2})));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.states(ours, 1), "1 discarding, 2 learning, 6 forwarding");
    EXPECT_EQ(net.states(ours, 2),
              "0 forwarding (no spanning tree), 0 forwarding, 1 discarding, 2 learning, 6 forwarding");
    EXPECT_EQ(engine_groups(ours), ports_t({7, 7, 0, 0, 0, 0}));
}

/// The members' own spanning tree is off. LACP then says who decides about their state.
TEST_F(sim_group, members_without_spanning_tree_are_forced_to_forward)
{
    const node_id_t ours = add_group_bridge(4096, port_configs({3}));
    net.add_neighbour(ours, 1);
    net.add_neighbour(ours, 2);
    net.mark();
    report(ours, groups({7, 7}));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.ports(ours), "7 designated forwards");
    // Whatever state the group comes to: the first ones at once, learning and forwarding after its delay.
    EXPECT_EQ(net.writes(ours),
              "0 flush, 0 port 1 forwarding, 0 port 2 forwarding, "
              "0 port 1 forwarding, 0 port 2 forwarding, 0 flush, "
              "0 port 1 forwarding, 0 port 2 forwarding, 0 flush, "
              "4 port 1 forwarding, 4 port 2 forwarding, "
              "4 port 1 forwarding, 4 port 2 forwarding");
    net.mark();
    report(ours, AGGR_STATUS_ALONE);
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.writes(ours), "0 port 1 forwarding, 0 port 1 forwarding, 0 port 2 forwarding, 0 port 2 forwarding");
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
}

TEST_F(sim_group, members_without_spanning_tree_are_left_to_lacp)
{
    const node_id_t ours = add_group_bridge(4096, port_configs({3}));
    serve(ours, lacp_enable_message({1, 1, 0, 0, 0, 0}));
    net.add_neighbour(ours, 1);
    net.add_neighbour(ours, 2);
    net.mark();
    report(ours, groups({7, 7}));
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.ports(ours), "7 designated forwards");
    report(ours, AGGR_STATUS_ALONE);
    net.world.run_for(20 * SECOND);
    EXPECT_EQ(net.writes(ours), "0 flush, 0 flush, 0 flush");
    EXPECT_EQ(engine_groups(ours), ports_t({0, 0, 0, 0, 0, 0}));
    for (const unsigned port : {1u, 2u})
        EXPECT_EQ(net.state(ours, port), HW_FORWARDING);
}

} // namespace
