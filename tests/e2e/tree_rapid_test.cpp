// Switches that are asked to be rapid, as real daemons. To the millisecond, and in all shapes:
// tests/unit/sim_rapid_test.cpp.
#ifdef LVT_RAPID
#include "tree_net.h"

using namespace lab;

namespace {

class tree_rapid : public network_test_t {};

TEST_F(tree_rapid, a_ring_of_three_settles_and_heals_without_a_timer)
{
    //   a
    //  / \.
    // b - c
    const switch_t &a = add_bridge(4096, port_configs({1, 2}), true);
    const switch_t &b = add_bridge(8192, port_configs({1, 2}), true);
    const switch_t &c = add_bridge(12288, port_configs({1, 2}), true);
    connect(a, 1, b, 1);
    connect(b, 2, c, 2);
    const cable_t &a_to_c = connect(a, 2, c, 1);
    ASSERT_TRUE(becomes(a, "1 designated forwards, 2 designated forwards", AT_ONCE));
    ASSERT_TRUE(becomes(b, "1 root forwards, 2 designated forwards", AT_ONCE));
    ASSERT_TRUE(becomes(c, "1 root forwards, 2 alternate discards", AT_ONCE));

    const double mark = now_of(c);
    a_to_c.pull();
    EXPECT_TRUE(becomes(c, "2 root forwards", AT_ONCE));
    const auto told = events_with(c, "link", "daemon told of all links", mark);
    const auto forwards = events_with(c, "mdio", state_words(2, HW_FORWARDING), mark);
    ASSERT_FALSE(told.empty());
    ASSERT_EQ(forwards.size(), 1u);
    EXPECT_LT(forwards.front().seconds - told.front().seconds, 0.5) << "the event itself, not the tick after it";

    a_to_c.plug();
    EXPECT_TRUE(becomes(c, "1 root forwards, 2 alternate discards", AT_ONCE));
    EXPECT_TRUE(becomes(a, "1 designated forwards, 2 designated forwards", AT_ONCE));
}

TEST_F(tree_rapid, beside_a_switch_that_is_not_the_tree_is_the_same)
{
    const switch_t &rapid = add_bridge(4096, port_configs({1, 2}), true);
    const switch_t &other = add_bridge(8192, port_configs({1, 2}));
    connect(rapid, 1, other, 1);
    connect(rapid, 2, other, 2);
    EXPECT_TRUE(becomes(other, "1 root forwards, 2 alternate discards", BY_TIMERS));
    EXPECT_TRUE(becomes(rapid, "1 designated forwards, 2 designated forwards", BY_TIMERS));
}

} // namespace
#endif
