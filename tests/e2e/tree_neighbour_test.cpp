// One neighbour, played by the test: which language our port speaks, what it believes and for how
// long, and what makes a designated port forward.
#include "tree_net.h"
#include "tree_speaker.h"

using namespace lab;

namespace {

class tree_neighbour : public network_test_t {};

using clock_t = std::chrono::steady_clock;

const told_t SUPERIOR = root_bridge(0, 200);

TEST_F(tree_neighbour, language_follows_the_neighbour)
{
    switch_t &ours = add_bridge(4096, port_configs({1}));
    speaker_t neighbour(add_machine(ours, 1));
    neighbour.say(config_bpdu(INFERIOR));

    // RST BPDUs first; STP's when the migration delay of three seconds has run out.
    ASSERT_TRUE(eventually(
        6s, [&] { return neighbour.count(is_rst); }, Gt(0)));
    const auto first = neighbour.heard().front();
    EXPECT_TRUE(is_rst(first.bpdu));
    ASSERT_TRUE(eventually(
        6s, [&] { return neighbour.count(is_config); }, Gt(0)));
    const auto legacy_since = neighbour.heard().back().at;
    EXPECT_GT(legacy_since - first.at, 1900ms);
    EXPECT_TRUE(status_within(ours, 3s, [](const bridge_status_t &status) { return status.port(1).stp_neighbour; }));
    EXPECT_EQ(neighbour.count(is_rst, legacy_since), 0u);

    // The other way round.
    neighbour.say(rst_bpdu(INFERIOR));
    EXPECT_TRUE(eventually(
        6s, [&] { return neighbour.count(is_rst, legacy_since); }, Gt(0)));
    const auto rapid_since = neighbour.heard().back().at;
    EXPECT_GT(rapid_since - legacy_since, 1900ms);
    EXPECT_TRUE(status_within(ours, 3s, [](const bridge_status_t &status) { return !status.port(1).stp_neighbour; }));
    EXPECT_TRUE(eventually(
        3s, [&] { return neighbour.count(is_rst, rapid_since); }, Ge(3)));
    EXPECT_EQ(neighbour.count(is_config, rapid_since), 0u);

    // And back again; this time a notification is enough.
    neighbour.be_silent();
    ASSERT_TRUE(within(5s, [&] { return clock_t::now() - rapid_since > 4s; }));
    neighbour.say_once(tcn_bpdu());
    EXPECT_TRUE(eventually(
        3s, [&] { return neighbour.count(is_config, rapid_since); }, Gt(0)));
}

TEST_F(tree_neighbour, information_ages_out_after_three_hellos)
{
    switch_t &ours = add_bridge(4096, port_configs({1, 2}));
    speaker_t neighbour(add_machine(ours, 1));
    neighbour.say(rst_bpdu(SUPERIOR));
    ASSERT_TRUE(becomes(ours, "1 root forwards", 10s));
    EXPECT_TRUE(follows(ours, SUPERIOR.root));

    // As long as it speaks, it is believed.
    EXPECT_FALSE(within(
        5s, [&] { return is_root(ours); }, 100ms));

    const double mark = now_of(ours);
    neighbour.be_silent();
    ASSERT_TRUE(status_within(ours, 8s, &bridge_status_t::is_root));
    EXPECT_TRUE(becomes(ours, "1 designated forwards", AT_ONCE));
    EXPECT_EQ(status_of(ours).root_port, 0);

    // Three seconds and the ticks that notice it: what we tell then is our own.
    const auto told_since = [&] { return bpdu_events(ours, "tx", 1, "rstp", mark); };
    ASSERT_TRUE(eventually(
        AT_ONCE, [&] { return told_since().size(); }, Gt(0u)));
    const auto heard = bpdu_events(ours, "rx", 1, "rstp");
    const auto told = told_since();
    ASSERT_FALSE(heard.empty());
    EXPECT_GT(told.front().seconds - heard.back().seconds, 2);
    EXPECT_LT(told.front().seconds - heard.back().seconds, 7);
    EXPECT_TRUE(eventually(
        AT_ONCE, [&] { return bpdu_get16(neighbour.heard().back().bpdu.root_priority); }, 4096));
}

TEST_F(tree_neighbour, information_that_is_nearly_too_old_ages_out_sooner)
{
    switch_t &ours = add_bridge(4096, port_configs({1}));
    speaker_t neighbour(add_machine(ours, 1));
    told_t old = SUPERIOR;
    old.times.MessageAge = 4; // one step more makes five of six: one second is left
    neighbour.say(rst_bpdu(old), 200ms);
    ASSERT_TRUE(becomes(ours, "1 root forwards", 10s));

    neighbour.be_silent();
    const auto silent_since = clock_t::now();
    EXPECT_TRUE(status_within(ours, 6s, &bridge_status_t::is_root));
    EXPECT_LT(clock_t::now() - silent_since, 4500ms);
}

struct agreement_t {
    const char *name;
    bool full_duplex;
    uint8_t point_to_point; ///< administrative: 0 true, 1 false, 2 from the duplex
    bool names_our_bridge;  ///< as designated bridge
    bool at_once;
};

void PrintTo(const agreement_t &agreement, std::ostream *stream) { *stream << agreement.name; }

class tree_agreement : public tree_neighbour, public testing::WithParamInterface<agreement_t> {};

/// A designated port proposes. It forwards at once when the neighbour on a point-to-point link agrees
/// and names, as the designated bridge, the one that it agrees with; otherwise its timers decide.
TEST_P(tree_agreement, decides_how_fast_a_designated_port_forwards)
{
    port_configs_t configs = port_configs({1});
    configs[1].adminPointToPoint = GetParam().point_to_point;
    switch_t &ours = add_bridge(4096, configs);
    ours.client().set_speed(1, 100, GetParam().full_duplex);
    speaker_t neighbour(add_machine(ours, 1));
    ASSERT_TRUE(eventually(
        8s, [&] { return neighbour.count([](const bpdu_t &bpdu) { return has_flag(bpdu, BPDU_FLAG_PROPOSAL); }); },
        Gt(0)));
    EXPECT_EQ(chip_state(ours, 1), HW_DISCARDING);

    const bridge_id_t root = status_of(ours).bridge;
    const told_t told = {.root = root,
                         .cost = 200000,
                         .bridge = GetParam().names_our_bridge ? root : made_up_bridge(32768, 200),
                         .times = SHORT_TIMES};
    neighbour.say(rst_bpdu(told, BPDU_FLAG_AGREEMENT, BPDU_ROLE_ROOT), 300ms);
    ASSERT_TRUE(becomes(ours, "1 designated forwards", BY_TIMERS));
    EXPECT_EQ(status_of(ours).port(1).point_to_point,
              GetParam().full_duplex ? GetParam().point_to_point != 1 : GetParam().point_to_point == 0);

    const double agreed = bpdu_events(ours, "rx", 1, "rstp").at(0).seconds;
    const double forwards = events_with(ours, "mdio", state_words(1, HW_FORWARDING), agreed).at(0).seconds;
    if (GetParam().at_once)
        EXPECT_LT(forwards - agreed, 2);
    else
        EXPECT_GT(forwards - agreed, 2 * FORWARD_DELAY - 3);
}

INSTANTIATE_TEST_SUITE_P(neighbours, tree_agreement,
                         testing::Values(agreement_t{"full_duplex", true, 2, true, true},
                                         agreement_t{"half_duplex", false, 2, true, false},
                                         agreement_t{"half_duplex_forced", false, 0, true, true},
                                         agreement_t{"full_duplex_forbidden", true, 1, true, false},
                                         agreement_t{"other_bridge", true, 2, false, false}),
                         [](const auto &test) { return std::string(test.param.name); });

} // namespace
