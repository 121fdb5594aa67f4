// Neighbours that lie, and a cable that comes and goes. The daemon lives through it, and settles
// when it is over. All lies, to the tick: tests/unit/sim_neighbour_test.cpp.
#include <nlohmann/json.hpp>

#include "tests/lies.h"
#include "tree_net.h"
#include "tree_speaker.h"

using namespace lab;

namespace {

class tree_liar : public network_test_t, public testing::WithParamInterface<lie_t> {};

TEST_P(tree_liar, does_no_lasting_harm)
{
    switch_t &ours = add_bridge(32768, port_configs({1}, {6}));
    add_host(ours, 6);
    speaker_t liar(add_machine(ours, 1));
    liar.say(GetParam().words(status_of(ours).bridge), 3ms);
    ASSERT_TRUE(eventually(
        10s, [&] { return ours.client().show("counters").at("ports").at(0).at("trapped"); }, Ge(300)));
    EXPECT_TRUE(is_alive(ours)) << "while it lies";
    liar.be_silent();

    // Three BPDUs at most leave by each port, and one more a second, whatever comes in.
    EXPECT_LE(static_cast<double>(e2e::diary(ours, "tx").size()), 2 * (3 + now_of(ours)));

    ASSERT_TRUE(status_within(ours, 15s, [](const bridge_status_t &status) {
        return status.is_root() && status.port(1).role == ROLE_DESIGNATED;
    }));
    EXPECT_TRUE(becomes(ours, "1 designated forwards, 6 designated forwards", BY_TIMERS));
    const bridge_status_t status = status_of(ours);
    EXPECT_EQ(status.hello_time, HELLO_TIME);
    EXPECT_EQ(status.max_age, MAX_AGE);
    EXPECT_EQ(status.forward_delay, FORWARD_DELAY);
    EXPECT_EQ(status.port(1).illegal, 0u);
    EXPECT_TRUE(is_alive(ours)) << "afterwards";
}

/// The two that say most.
INSTANTIATE_TEST_SUITE_P(lies, tree_liar, testing::Values(LIES[4], LIES[5]),
                         [](const auto &test) { return std::string(test.param.name); });

class tree_cable : public network_test_t {};

TEST_F(tree_cable, that_flaps_settles)
{
    switch_t &a = add_bridge(4096, port_configs({1, 2}));
    switch_t &b = add_bridge(8192, port_configs({1, 2}));
    const cable_t &loose = connect(a, 1, b, 1);
    connect(a, 2, b, 2);
    ASSERT_TRUE(becomes(b, "1 root forwards, 2 alternate discards", BY_TIMERS));

    // The board sees each of them, so that none is over before it has begun.
    const auto changes = [&b] { return events_with(b, "link", "port 1: ").size(); };
    const auto seen = [&](size_t before) {
        return eventually(
            AT_ONCE, [&] { return changes(); }, Gt(before), 5ms);
    };
    const auto start = std::chrono::steady_clock::now();
    for (int flap = 1; flap <= 20; flap++) {
        const size_t before = changes();
        loose.pull();
        ASSERT_TRUE(seen(before));
        loose.plug();
        ASSERT_TRUE(seen(before + 1));
        ASSERT_TRUE(within(
            AT_ONCE, [&] { return std::chrono::steady_clock::now() - start >= flap * 100ms; }, 1ms));
    }
    EXPECT_TRUE(is_alive(a));
    EXPECT_TRUE(is_alive(b));
    EXPECT_TRUE(becomes(a, "1 designated forwards, 2 designated forwards", BY_TIMERS));
    EXPECT_TRUE(becomes(b, "1 root forwards, 2 alternate discards", BY_TIMERS));
    EXPECT_TRUE(follows(b, status_of(a).bridge));
}

} // namespace
