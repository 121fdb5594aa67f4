// Ports that lead to hosts, and those that only seemed to.
#include "tree_net.h"
#include "tree_speaker.h"
#include "tree_traffic.h"

using namespace lab;

namespace {

class tree_edge : public network_test_t {};

double seconds_from_link_to_forwarding(const switch_t &device, int port)
{
    double link = -1;
    for (const e2e::event_t &event : e2e::diary(device, "link"))
        if (event.values.count("port") != 0 && event.values.at("port") == std::to_string(port) &&
            event.values.at("up") == "1")
            link = event.seconds;
    const auto forwarding = events_with(device, "mdio", state_words(port, HW_FORWARDING), link);
    return link < 0 || forwarding.empty() ? -1 : forwarding.front().seconds - link;
}

TEST_F(tree_edge, host_waits_three_seconds_for_bridges)
{
    port_configs_t configs = port_configs({2}, {1, 3});
    configs[3].adminEnable = 0;
    switch_t &ours = add_bridge(32768, configs);
    host_t &host = add_host(ours, 1);
    add_machine(ours, 2); // an ordinary port goes by its timers, whoever is there
    host_t &third = add_host(ours, 3);

    EXPECT_TRUE(becomes(ours, "1 designated forwards, 2 designated forwards", BY_TIMERS));
    const double edge = seconds_from_link_to_forwarding(ours, 1);
    EXPECT_GT(edge, 2.5);
    EXPECT_LT(edge, 6.5);
    const double ordinary = seconds_from_link_to_forwarding(ours, 2);
    EXPECT_GT(ordinary, 2 * FORWARD_DELAY - 1);
    EXPECT_LT(ordinary, 2 * FORWARD_DELAY + 4.5);

    EXPECT_TRUE(status_of(ours).port(1).edge);
    EXPECT_FALSE(status_of(ours).port(2).edge);
    EXPECT_EQ(role_of(ours, 3), ROLE_NON_STP);
    EXPECT_TRUE(third.reaches(host, AT_ONCE));
}

TEST_F(tree_edge, port_without_spanning_tree_forwards_at_once)
{
    switch_t &ours = add_bridge(32768, port_configs({}, {3}));
    station_t first(add_host(ours, 1).node());
    station_t second(add_host(ours, 2).node());

    uint32_t number = 0;
    const auto arrived = [&] {
        first.send(first.mac(), EVERYBODY, number++);
        return second.received().size();
    };
    EXPECT_TRUE(eventually(AT_ONCE, arrived, Gt(0u)));
    EXPECT_EQ(chip_state(ours, 1), HW_FORWARDING);
    EXPECT_EQ(role_of(ours, 1), ROLE_NON_STP);
    EXPECT_TRUE(bpdu_events(ours, "tx", 1, "rstp").empty());
}

TEST_F(tree_edge, bridge_on_an_edge_port_ends_that)
{
    switch_t &ours = add_bridge(4096, port_configs({}, {1}));
    speaker_t neighbour(add_machine(ours, 1));
    ASSERT_TRUE(becomes(ours, "1 designated forwards", 10s));
    ASSERT_TRUE(status_of(ours).port(1).edge);
    // It became an edge port without a topology change.
    EXPECT_EQ(neighbour.count([](const bpdu_t &bpdu) { return has_flag(bpdu, BPDU_FLAG_TC); }), 0u);

    // A bridge there is a topology change, and the port an ordinary one until the link goes.
    neighbour.say_once(rst_bpdu(root_bridge(61440, 200)));
    EXPECT_TRUE(status_within(ours, AT_ONCE, [](const bridge_status_t &status) { return !status.port(1).edge; }));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return neighbour.count([](const bpdu_t &bpdu) { return has_flag(bpdu, BPDU_FLAG_TC); }); },
        Gt(0)));
    EXPECT_FALSE(within(
        2500ms, [&] { return status_of(ours).port(1).edge; }, 100ms));

    last_cable().pull();
    ASSERT_TRUE(eventually(
        AT_ONCE, [&] { return role_of(ours, 1); }, ROLE_DISABLED));
    last_cable().plug();
    EXPECT_TRUE(status_within(ours, 10s, [](const bridge_status_t &status) {
        return status.port(1).edge && status.port(1).state == HW_FORWARDING;
    }));
}

TEST_F(tree_edge, bridge_heard_in_the_first_seconds_keeps_a_port_ordinary)
{
    switch_t &ours = add_bridge(4096, port_configs({}, {1}));
    speaker_t neighbour(add_machine(ours, 1));
    neighbour.say(rst_bpdu(root_bridge(61440, 200)), 500ms);
    EXPECT_TRUE(becomes(ours, "1 designated forwards", BY_TIMERS));
    EXPECT_FALSE(status_of(ours).port(1).edge);
    EXPECT_GT(seconds_from_link_to_forwarding(ours, 1), 2 * FORWARD_DELAY - 1);
}

} // namespace
