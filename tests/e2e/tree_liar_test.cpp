// Neighbours that lie, and a cable that comes and goes. The daemon lives through it, and settles
// when it is over.
#include <memory>

#include <nlohmann/json.hpp>

#include "tree_net.h"
#include "tree_speaker.h"

using namespace lab;

namespace {

struct lie_t {
    const char *name;
    std::vector<bpdu_t> (*words)(const bridge_id_t &ours);
    std::chrono::milliseconds pause;
};

void PrintTo(const lie_t &lie, std::ostream *stream) { *stream << lie.name; }

told_t with_times(told_t told, timevalues_t times)
{
    told.times = times;
    return told;
}

std::vector<bpdu_t> our_own_identifier(const bridge_id_t &ours)
{
    const told_t by_us = {.root = ours, .cost = 0, .bridge = ours, .times = SHORT_TIMES};
    const told_t by_a_better_one = {.root = ours, .cost = 0, .bridge = made_up_bridge(0, 1), .times = SHORT_TIMES};
    told_t other_port = by_us;
    other_port.port = 0x8002;
    return {rst_bpdu(by_us), rst_bpdu(by_us, BPDU_FLAG_PROPOSAL), config_bpdu(other_port), rst_bpdu(by_a_better_one),
            config_bpdu(by_a_better_one)};
}

std::vector<bpdu_t> too_old(const bridge_id_t &)
{
    const told_t best = root_bridge(0, 1);
    return {rst_bpdu(with_times(best, {.MessageAge = 6, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1})),
            rst_bpdu(with_times(best, {.MessageAge = 255, .MaxAge = 6, .ForwardDelay = 4, .HelloTime = 1})),
            config_bpdu(with_times(best, {.MessageAge = 255, .MaxAge = 0, .ForwardDelay = 4, .HelloTime = 1}))};
}

std::vector<bpdu_t> absurd_times(const bridge_id_t &)
{
    const told_t best = root_bridge(0, 1);
    return {rst_bpdu(with_times(best, {.MessageAge = 0, .MaxAge = 255, .ForwardDelay = 255, .HelloTime = 0})),
            rst_bpdu(with_times(best, {.MessageAge = 255, .MaxAge = 255, .ForwardDelay = 0, .HelloTime = 255})),
            config_bpdu(with_times(best, {.MessageAge = 0, .MaxAge = 0, .ForwardDelay = 0, .HelloTime = 0})),
            rst_bpdu(with_times(best, {.MessageAge = 254, .MaxAge = 255, .ForwardDelay = 255, .HelloTime = 0}))};
}

std::vector<bpdu_t> no_hello(const bridge_id_t &)
{
    return {
        rst_bpdu(with_times(root_bridge(0, 1), {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 0}))};
}

std::vector<bpdu_t> ever_other_roots(const bridge_id_t &)
{
    std::vector<bpdu_t> words;
    for (uint8_t i = 0; i < 100; i++) {
        const told_t root = root_bridge(static_cast<uint16_t>(i % 3 * 4096), static_cast<uint8_t>(i * 37));
        words.push_back(i % 2 == 0 ? rst_bpdu(root, BPDU_FLAG_PROPOSAL | BPDU_FLAG_TC)
                                   : config_bpdu(root, BPDU_FLAG_TC));
    }
    words.push_back(tcn_bpdu());
    return words;
}

std::vector<bpdu_t> every_role_and_flag(const bridge_id_t &ours)
{
    std::vector<bpdu_t> words;
    const told_t by_us = {.root = ours, .cost = 7, .bridge = ours, .times = SHORT_TIMES};
    for (int flags = 0; flags < 256; flags++) {
        bpdu_t bpdu = rst_bpdu(flags % 5 == 0 ? by_us : root_bridge(0, 1));
        bpdu.flags = static_cast<uint8_t>(flags);
        words.push_back(bpdu);
    }
    return words;
}

constexpr std::chrono::milliseconds FAST = 3ms;

class tree_liar : public network_test_t, public testing::WithParamInterface<lie_t> {};

TEST_P(tree_liar, does_no_lasting_harm)
{
    switch_t &ours = add_bridge(32768, port_configs({1}, {6}));
    add_host(ours, 6);
    speaker_t liar(add_machine(ours, 1));
    liar.say(GetParam().words(status_of(ours).bridge), GetParam().pause);
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

INSTANTIATE_TEST_SUITE_P(lies, tree_liar,
                         testing::Values(lie_t{"our_own_identifier", our_own_identifier, FAST},
                                         lie_t{"too_old", too_old, FAST}, lie_t{"absurd_times", absurd_times, FAST},
                                         lie_t{"no_hello", no_hello, FAST},
                                         lie_t{"ever_other_roots", ever_other_roots, FAST},
                                         lie_t{"every_role_and_flag", every_role_and_flag, FAST}),
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

TEST_F(tree_cable, that_is_pulled_ends_the_longest_promise)
{
    switch_t &ours = add_bridge(32768, port_configs({1}));
    speaker_t neighbour(add_machine(ours, 1));
    const told_t for_minutes =
        with_times(root_bridge(0, 1), {.MessageAge = 0, .MaxAge = 255, .ForwardDelay = 4, .HelloTime = 255});
    neighbour.say(rst_bpdu(for_minutes), 200ms);
    ASSERT_TRUE(becomes(ours, "1 root forwards", 8s));

    // It need not say so again for four minutes.
    neighbour.be_silent();
    EXPECT_FALSE(within(
        5s, [&] { return is_root(ours); }, 100ms));
    EXPECT_EQ(status_of(ours).hello_time, 255);

    last_cable().pull();
    EXPECT_TRUE(status_within(ours, AT_ONCE, &bridge_status_t::is_root));
    EXPECT_EQ(status_of(ours).hello_time, HELLO_TIME);
    last_cable().plug();
    EXPECT_TRUE(becomes(ours, "1 designated forwards", BY_TIMERS));
}

} // namespace
