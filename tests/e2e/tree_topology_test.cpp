// A topology change: how it is told, to whom, and what it does to learned addresses. To the tick, and in the
// older language: tests/unit/sim_neighbour_test.cpp.
#include "tree_net.h"
#include "tree_speaker.h"
#include "tree_traffic.h"

using namespace lab;

namespace {

using clock_t = std::chrono::steady_clock;

class tree_topology : public network_test_t {
protected:
    static testing::AssertionResult is_quiet(const speaker_t &neighbour, std::chrono::milliseconds patience)
    {
        const auto start = clock_t::now();
        within(3s, [&] { return clock_t::now() - start > 2s; });
        const auto changes_told = [&] { return neighbour.count(tells_change, clock_t::now() - 2s); };
        return eventually(patience - 2s, changes_told, 0u);
    }
};

TEST_F(tree_topology, change_is_told_for_two_hellos_among_rstp_bridges)
{
    // Our switch is the root, with neighbours at ports 1 and 2 that agree with all it says and a host at port 6.
    const switch_t &ours = add_bridge(4096, port_configs({1, 2}, {6}));
    speaker_t first(add_machine(ours, 1)), second(add_machine(ours, 2));
    const station_t station(add_host(ours, 6).node());
    const bridge_id_t us = status_of(ours).bridge;
    const auto agreement = [&](uint8_t flags) {
        return rst_bpdu({.root = us, .cost = 20000, .bridge = us, .times = SHORT_TIMES}, BPDU_FLAG_AGREEMENT | flags,
                        BPDU_ROLE_ROOT);
    };
    first.say(agreement(0));
    second.say(agreement(0));
    ASSERT_TRUE(becomes(ours, "1 designated forwards, 2 designated forwards, 6 designated forwards", BY_TIMERS));
    const auto is_learned = [&] {
        const auto learned_at = [&] {
            station.send(station.mac(), EVERYBODY, 0);
            return heard_at(ours, station.mac());
        };
        return eventually(2s, learned_at, 6u);
    };

    // Ports that began to forward have told it, and stopped.
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return first.count(tells_change); }, Gt(0)));
    EXPECT_TRUE(is_quiet(first, 8s));
    EXPECT_TRUE(is_quiet(second, 8s));
    ASSERT_TRUE(is_learned());

    // A neighbour tells a change: addresses are forgotten, and the other neighbour hears of it.
    const double mark = now_of(ours);
    const auto since = clock_t::now();
    first.say_once(agreement(BPDU_FLAG_TC));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return events_with(ours, "mdio", FLUSH_WORDS, mark).size(); }, Gt(0u)));
    EXPECT_EQ(heard_at(ours, station.mac()), 0u);
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return second.count(tells_change, since); }, Gt(0)));
    EXPECT_TRUE(is_quiet(second, 6s));
    const size_t times = second.count(tells_change, since);
    EXPECT_GE(times, 1u);
    EXPECT_LE(times, 4u);
    // Who told it is not told back, and an edge port has nobody to tell.
    EXPECT_EQ(first.count(tells_change, since), 0u);
    EXPECT_TRUE(is_learned());

    // The next BPDU without the flag changes nothing.
    const double later = now_of(ours);
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return bpdu_events(ours, "rx", 1, "rstp", later).size(); }, Ge(2)));
    EXPECT_TRUE(events_with(ours, "mdio", FLUSH_WORDS, later).empty());
    EXPECT_EQ(heard_at(ours, station.mac()), 6u);
}

} // namespace
