// Topology changes: how they are told, to whom, and what they do to learned addresses.
#include "tree_net.h"
#include "tree_speaker.h"
#include "tree_traffic.h"

using namespace lab;

namespace {

using clock_t = std::chrono::steady_clock;

bool tells_change(const bpdu_t &bpdu) { return has_flag(bpdu, BPDU_FLAG_TC); }

/// Our switch as root, with neighbours at ports 1 and 2 and a host at port 6.
class tree_topology : public network_test_t {
protected:
    void start(const bpdu_t &first_words, const bpdu_t &second_words)
    {
        ours = &add_bridge(4096, port_configs({1, 2}, {6}));
        first = std::make_unique<speaker_t>(add_machine(*ours, 1));
        second = std::make_unique<speaker_t>(add_machine(*ours, 2));
        host = &add_host(*ours, 6);
        station = std::make_unique<station_t>(host->node());
        first->say(first_words);
        second->say(second_words);
        ASSERT_TRUE(becomes(*ours, "1 designated forwards, 2 designated forwards, 6 designated forwards", BY_TIMERS));
    }

    testing::AssertionResult is_quiet(const speaker_t &neighbour, std::chrono::milliseconds patience) const
    {
        const auto start = clock_t::now();
        within(3s, [&] { return clock_t::now() - start > 2s; });
        const auto changes_told = [&] { return neighbour.count(tells_change, clock_t::now() - 2s); };
        return eventually(patience - 2s, changes_told, 0u);
    }

    /// Lets the chip learn the host; true when it has.
    testing::AssertionResult is_learned()
    {
        const auto learned_at = [&] {
            station->send(station->mac(), EVERYBODY, 0);
            return heard_at(*ours, station->mac());
        };
        return eventually(2s, learned_at, 6u);
    }

    switch_t *ours;
    host_t *host;
    std::unique_ptr<speaker_t> first, second;
    std::unique_ptr<station_t> station;
};

TEST_F(tree_topology, change_is_told_for_two_hellos_among_rstp_bridges)
{
    start(rst_bpdu(INFERIOR), rst_bpdu(INFERIOR));
    // Ports that began to forward have told it, and stopped.
    EXPECT_GT(first->count(tells_change), 0u);
    EXPECT_TRUE(is_quiet(*first, 8s));
    EXPECT_TRUE(is_quiet(*second, 8s));
    ASSERT_TRUE(is_learned());

    // A neighbour tells a change: addresses are forgotten, and the other neighbour hears of it.
    const double mark = now_of(*ours);
    const auto since = clock_t::now();
    first->say_once(rst_bpdu(INFERIOR, BPDU_FLAG_TC));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return events_with(*ours, "mdio", FLUSH_WORDS, mark).size(); }, Gt(0u)));
    EXPECT_EQ(heard_at(*ours, station->mac()), 0u);
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return second->count(tells_change, since); }, Gt(0)));
    EXPECT_TRUE(is_quiet(*second, 6s));
    const size_t times = second->count(tells_change, since);
    EXPECT_GE(times, 1u);
    EXPECT_LE(times, 4u);
    // Who told it is not told back, and an edge port has nobody to tell.
    EXPECT_EQ(first->count(tells_change, since), 0u);
    EXPECT_TRUE(is_learned());

    // The next BPDU without the flag changes nothing.
    const double later = now_of(*ours);
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return bpdu_events(*ours, "rx", 1, "rstp", later).size(); }, Ge(2)));
    EXPECT_TRUE(events_with(*ours, "mdio", FLUSH_WORDS, later).empty());
    EXPECT_EQ(heard_at(*ours, station->mac()), 6u);
}

TEST_F(tree_topology, notification_is_acknowledged)
{
    start(config_bpdu(INFERIOR), rst_bpdu(INFERIOR));
    ASSERT_TRUE(status_within(*ours, 8s, [](const bridge_status_t &status) { return status.port(1).stp_neighbour; }));
    EXPECT_TRUE(is_quiet(*second, 8s));
    ASSERT_TRUE(is_learned());
    EXPECT_EQ(first->count(is_ack), 0u);

    const double mark = now_of(*ours);
    const auto since = clock_t::now();
    first->say_once(tcn_bpdu());
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return first->count(is_ack, since); }, Gt(0)));
    EXPECT_FALSE(events_with(*ours, "mdio", FLUSH_WORDS, mark).empty());
    EXPECT_EQ(status_of(*ours).port(1).received.tcn, 1u);

    // One notification, one acknowledgement; the change itself is told for max age + forward delay
    // on a legacy link, and for two hellos on the other.
    EXPECT_TRUE(is_quiet(*second, 6s));
    EXPECT_GT(second->count(tells_change, since), 0u);
    EXPECT_EQ(first->count(is_ack, since), 1u);
    const auto last_heard = [&] {
        const bpdu_t last = first->heard().back().bpdu;
        return std::tuple(is_config(last), tells_change(last));
    };
    EXPECT_TRUE(eventually(15s, last_heard, testing::FieldsAre(true, false)));
    const size_t told = first->count(tells_change, since);
    EXPECT_GE(told, size_t{MAX_AGE + FORWARD_DELAY - 2});
    EXPECT_LE(told, size_t{MAX_AGE + FORWARD_DELAY + 2});
}

TEST_F(tree_topology, port_that_blocks_flushes)
{
    start(rst_bpdu(INFERIOR), rst_bpdu(INFERIOR));
    ASSERT_TRUE(is_learned());

    // Both neighbours lead to a better root now; the second one becomes a spare way.
    const double mark = now_of(*ours);
    told_t better = root_bridge(0, 200);
    first->say(rst_bpdu(better));
    better.port = 0x8002;
    second->say(rst_bpdu(better));
    EXPECT_TRUE(becomes(*ours, "1 root forwards, 2 alternate discards, 6 designated forwards", AT_ONCE));
    EXPECT_FALSE(events_with(*ours, "mdio", FLUSH_WORDS, mark).empty());
    EXPECT_TRUE(is_learned());
}

TEST_F(tree_topology, host_that_moves_is_found_again)
{
    switch_t &device = add_bridge(4096, port_configs({}, {1, 2, 3}));
    host_t &mover = add_host(device, 1);
    const cable_t &old_cable = last_cable();
    host_t &other = add_host(device, 3);
    ASSERT_TRUE(mover.reaches(other, 10s));
    EXPECT_EQ(heard_at(device, mover.node().mac()), 1u);

    old_cable.pull();
    ASSERT_TRUE(eventually(
        AT_ONCE, [&] { return role_of(device, 1); }, ROLE_DISABLED));
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return heard_at(device, mover.node().mac()); }, 0));
    mover.node().ip("link delete eth0");
    const cable_t new_cable(device.port(2), {&mover.node(), "eth0", mover.node().mac()});
    mover.set_address();
    EXPECT_TRUE(mover.reaches(other, 10s));
    EXPECT_EQ(heard_at(device, mover.node().mac()), 2u);
    EXPECT_EQ(heard_at(device, other.node().mac()), 3u);
}

} // namespace
