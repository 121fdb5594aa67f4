// Ports that lead to hosts. To the tick: tests/unit/sim_tree_test.cpp.
#include "tree_net.h"
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
    switch_t &ours = add_bridge(32768, port_configs({}, {1}));
    host_t &host = add_host(ours, 1);
    host_t &outside = add_host(ours, 3);

    EXPECT_TRUE(becomes(ours, "1 designated forwards", BY_TIMERS));
    const double edge = seconds_from_link_to_forwarding(ours, 1);
    EXPECT_GT(edge, 2.5);
    EXPECT_LT(edge, 6.5);
    EXPECT_TRUE(status_of(ours).port(1).edge);
    EXPECT_TRUE(outside.reaches(host, AT_ONCE));
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

} // namespace
