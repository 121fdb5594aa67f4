// Two and three of our switches with one another. To the tick: tests/unit/sim_tree_test.cpp.
#include "tree_net.h"
#include "tree_traffic.h"

using namespace lab;

namespace {

class tree_boards : public network_test_t {};

TEST_F(tree_boards, of_three_cables_one_forwards)
{
    switch_t &a = add_bridge(4096, port_configs({1, 2, 3}, {6}));
    switch_t &b = add_bridge(8192, port_configs({1, 2, 3}, {6}));
    station_t left(add_host(a, 6).node());
    station_t right(add_host(b, 6).node());
    for (const int port : {1, 2, 3})
        connect(a, port, b, port);
    const std::string at_a =
        "1 designated forwards, 2 designated forwards, 3 designated forwards, 6 designated forwards";
    const std::string at_b = "1 root forwards, 2 alternate discards, 3 alternate discards, 6 designated forwards";

    // From the first moment on no frame may come twice, or come back.
    uint32_t number = 0;
    const bool settled = within(BY_TIMERS, [&] {
        left.send(left.mac(), EVERYBODY, number++);
        EXPECT_TRUE(left.received().empty());
        return ports_text(a) == at_a && ports_text(b) == at_b && number >= 2 &&
               right.times_received(left.mac(), number - 2) > 0;
    });
    EXPECT_TRUE(settled) << ports_text(a) << " and " << ports_text(b);

    for (const uint32_t last = number + 100; number < last; number++)
        left.send(left.mac(), EVERYBODY, number);
    EXPECT_TRUE(eventually(
        5s, [&] { return right.times_received(left.mac(), number - 1); }, Gt(0)));
    right.send(right.mac(), left.mac(), 0);
    EXPECT_TRUE(eventually(
        5s, [&] { return left.times_received(right.mac(), 0); }, 1));
    for (uint32_t sent = number - 100; sent < number; sent++)
        ASSERT_EQ(right.times_received(left.mac(), sent), 1u) << "frame " << sent;
    for (uint32_t sent = 0; sent < number; sent++)
        ASSERT_LE(right.times_received(left.mac(), sent), 1u) << "frame " << sent;
    EXPECT_EQ(left.received().size(), 1u);

    EXPECT_TRUE(is_root(a));
    EXPECT_TRUE(follows(b, status_of(a).bridge));
    for (const int port : {1, 2, 3}) {
        EXPECT_EQ(chip_state(a, port), HW_FORWARDING);
        EXPECT_EQ(chip_state(b, port), port == 1 ? HW_FORWARDING : HW_DISCARDING);
    }
}

TEST_F(tree_boards, root_port_is_quick_and_designated_port_goes_by_its_timers)
{
    switch_t &a = add_bridge(4096, port_configs({1}));
    switch_t &b = add_bridge(8192, port_configs({1}));
    connect(a, 1, b, 1);
    ASSERT_TRUE(becomes(a, "1 designated forwards", BY_TIMERS));
    ASSERT_TRUE(becomes(b, "1 root forwards", AT_ONCE));

    const auto heard_by_b = bpdu_events(b, "rx", 1, "rstp");
    const auto b_forwards = events_with(b, "mdio", state_words(1, HW_FORWARDING), heard_by_b.at(0).seconds);
    ASSERT_FALSE(b_forwards.empty());
    EXPECT_LT(b_forwards.at(0).seconds - heard_by_b.at(0).seconds, 2.5);

    const auto told_by_a = bpdu_events(a, "tx", 1, "rstp");
    const double start = told_by_a.at(0).seconds;
    const auto a_learns = events_with(a, "mdio", state_words(1, HW_LEARNING), start);
    const auto a_forwards = events_with(a, "mdio", state_words(1, HW_FORWARDING), start);
    ASSERT_FALSE(a_learns.empty() || a_forwards.empty());
    // The first delay has begun when the link came up, a few ticks before the first BPDU.
    EXPECT_GT(a_learns.at(0).seconds - start, FORWARD_DELAY - 3);
    EXPECT_LT(a_learns.at(0).seconds - start, FORWARD_DELAY + 1.5);
    EXPECT_NEAR(a_forwards.at(0).seconds - a_learns.at(0).seconds, FORWARD_DELAY, 1.5);
}

TEST_F(tree_boards, ring_of_three_has_one_gap)
{
    //   a
    //  / \.
    // b - c
    switch_t &a = add_bridge(4096, port_configs({1, 2}, {6}));
    switch_t &b = add_bridge(8192, port_configs({1, 2}, {6}));
    switch_t &c = add_bridge(12288, port_configs({1, 2}, {6}));
    station_t at_a(add_host(a, 6).node());
    station_t at_b(add_host(b, 6).node());
    station_t at_c(add_host(c, 6).node());
    connect(a, 1, b, 1);
    connect(b, 2, c, 2);
    const cable_t &a_to_c = connect(a, 2, c, 1);

    EXPECT_TRUE(becomes(a, "1 designated forwards, 2 designated forwards, 6 designated forwards", BY_TIMERS));
    EXPECT_TRUE(becomes(b, "1 root forwards, 2 designated forwards, 6 designated forwards", BY_TIMERS));
    EXPECT_TRUE(becomes(c, "1 root forwards, 2 alternate discards, 6 designated forwards", BY_TIMERS));
    for (const switch_t *device : {&b, &c})
        EXPECT_TRUE(follows(*device, status_of(a).bridge));

    const auto everybody_hears_once = [&](uint32_t number) {
        at_c.send(at_c.mac(), EVERYBODY, number);
        EXPECT_TRUE(eventually(
            5s, [&] { return at_a.times_received(at_c.mac(), number); }, Gt(0)));
        EXPECT_TRUE(eventually(
            5s, [&] { return at_b.times_received(at_c.mac(), number); }, Gt(0)));
        EXPECT_FALSE(within(300ms, [&] {
            return at_a.times_received(at_c.mac(), number) > 1 || at_b.times_received(at_c.mac(), number) > 1 ||
                   !at_c.received().empty();
        }));
    };
    everybody_hears_once(1);

    a_to_c.pull();
    EXPECT_TRUE(becomes(c, "2 root forwards, 6 designated forwards", AT_ONCE));
    everybody_hears_once(2);
}

TEST_F(tree_boards, port_cabled_to_its_own_switch_is_a_backup)
{
    switch_t &a = add_bridge(4096, port_configs({1, 2}, {6}));
    station_t host(add_host(a, 6).node());
    connect(a, 1, a, 2);
    EXPECT_TRUE(becomes(a, "1 designated forwards, 2 backup discards, 6 designated forwards", BY_TIMERS));
    EXPECT_TRUE(is_root(a));
    EXPECT_EQ(chip_state(a, 2), HW_DISCARDING);

    host.send(host.mac(), EVERYBODY, 1);
    EXPECT_FALSE(within(300ms, [&] { return !host.received().empty(); }));
}

} // namespace
