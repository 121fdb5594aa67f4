// One neighbour, played by the test: how long it is believed, and what makes a designated port forward. To the
// tick, and with its language: tests/unit/sim_neighbour_test.cpp.
#include <chrono>
#include <memory>
#include <vector>

#include "tree_net.h"
#include "tree_speaker.h"

using namespace lab;

namespace {

class tree_neighbour : public network_test_t {};

const told_t SUPERIOR = root_bridge(0, 200);

TEST_F(tree_neighbour, information_ages_out_after_three_hellos)
{
    switch_t &ours = add_bridge(4096, port_configs({1, 2}));
    speaker_t neighbour(add_machine(ours, 1));
    neighbour.say(rst_bpdu(SUPERIOR));
    ASSERT_TRUE(becomes(ours, "1 root forwards", 10s));
    EXPECT_TRUE(follows(ours, SUPERIOR.root));

    neighbour.be_silent();
    const auto silent_since = std::chrono::steady_clock::now();
    ASSERT_TRUE(status_within(ours, 8s, &bridge_status_t::is_root));
    EXPECT_TRUE(becomes(ours, "1 designated forwards", AT_ONCE));
    EXPECT_EQ(status_of(ours).root_port, 0);

    // Its last word is up to a second old. What we tell three seconds after it is our own.
    std::vector<heard_bpdu_t> told;
    const auto told_since = [&] {
        told = neighbour.heard();
        std::erase_if(told, [&](const heard_bpdu_t &bpdu) {
            return bpdu.at < silent_since || bpdu_get16(bpdu.bpdu.root_priority) != 4096;
        });
        return told.size();
    };
    ASSERT_TRUE(eventually(AT_ONCE, told_since, Gt(0u)));
    EXPECT_GT(told.front().at - silent_since, 1s);
    EXPECT_LT(told.front().at - silent_since, 7s);
}

/// A designated port proposes. It forwards at once when the neighbour on a point-to-point link agrees
/// and names, as the designated bridge, the one that it agrees with; on a shared link its timers decide.
class tree_agreement : public tree_neighbour {
protected:
    void agree(bool full_duplex)
    {
        ours = &add_bridge(4096, port_configs({1}));
        ours->client().set_speed(1, 100, full_duplex);
        neighbour = std::make_unique<speaker_t>(add_machine(*ours, 1));
        ASSERT_TRUE(eventually(
            8s, [&] { return neighbour->count([](const bpdu_t &bpdu) { return has_flag(bpdu, BPDU_FLAG_PROPOSAL); }); },
            Gt(0)));
        EXPECT_EQ(chip_state(*ours, 1), HW_DISCARDING);

        const bridge_id_t us = status_of(*ours).bridge;
        const told_t told = {.root = us, .cost = 200000, .bridge = us, .times = SHORT_TIMES};
        neighbour->say(rst_bpdu(told, BPDU_FLAG_AGREEMENT, BPDU_ROLE_ROOT), 300ms);
        ASSERT_TRUE(eventually(
            AT_ONCE, [&] { return status_of(*ours).port(1).received.rstp; }, Gt(0)));
        EXPECT_EQ(status_of(*ours).port(1).point_to_point, full_duplex);
    }

    switch_t *ours;
    std::unique_ptr<speaker_t> neighbour;
};

TEST_F(tree_agreement, by_full_duplex_counts_at_once)
{
    agree(true);
    EXPECT_TRUE(becomes(*ours, "1 designated forwards", AT_ONCE));
    const double agreed = bpdu_events(*ours, "rx", 1, "rstp").at(0).seconds;
    const auto forwards = events_with(*ours, "mdio", state_words(1, HW_FORWARDING), agreed);
    ASSERT_FALSE(forwards.empty());
    EXPECT_LT(forwards.at(0).seconds - agreed, 2);
}

TEST_F(tree_agreement, by_half_duplex_counts_for_nothing)
{
    agree(false);
    // A port that hurries learns and forwards in the same moment.
    EXPECT_TRUE(eventually(
        BY_TIMERS, [&] { return chip_state(*ours, 1); }, HW_LEARNING));
    EXPECT_TRUE(e2e::ticks(*ours, 1));
    EXPECT_EQ(chip_state(*ours, 1), HW_LEARNING);
}

} // namespace
