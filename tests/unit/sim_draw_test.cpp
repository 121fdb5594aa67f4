// What seeds draw, how it is judged, and how it is made smaller.
#include <cmath>
#include <utility>

#include <gtest/gtest.h>

#include "sim/campaign.h"
#include "sim/draw.h"
#include "sim/faults.h"
#include "sim/shrink.h"
#include "sim/trial.h"

namespace {

using namespace sim;

std::string told(const story_t &story)
{
    std::string text;
    for (const std::string &line : network_words(story))
        text += line + "\n";
    for (const story_event_t &event : story.events)
        text += std::to_string(event.at) + " " + event_words(story, event) + "\n";
    return text;
}

size_t switches_of(const story_t &story)
{
    size_t count = 0;
    for (const story_node_t &node : story.nodes)
        count += node.kind == node_kind_t::SWITCH;
    return count;
}

bool breaks(uint64_t seed, property_t property)
{
    for (const finding_t &finding : try_story(draw(seed)).findings)
        if (finding.property == property)
            return true;
    return false;
}

} // namespace

TEST(sim_draw, a_seed_draws_the_same_again_and_others_draw_otherwise)
{
    for (uint64_t seed = 1; seed <= 20; seed++) {
        EXPECT_EQ(told(draw(seed)), told(draw(seed))) << seed;
        EXPECT_NE(told(draw(seed)), told(draw(seed + 1))) << seed;
    }
}

TEST(sim_draw, who_is_rapid_changes_nothing_else)
{
    size_t switches = 0, rapid = 0;
    for (uint64_t seed = 1; seed <= 50; seed++) {
        story_t all = draw(seed, {.rapid = rapid_t::ALL}), some = draw(seed, {.rapid = rapid_t::SOME});
        EXPECT_EQ(told(some), told(draw(seed, {.rapid = rapid_t::SOME}))) << seed;
        for (story_node_t &node : all.nodes)
            EXPECT_EQ(std::exchange(node.rapid, false), node.kind == node_kind_t::SWITCH) << seed;
        for (story_node_t &node : some.nodes)
            rapid += std::exchange(node.rapid, false);
        switches += switches_of(some);
        EXPECT_EQ(told(all), told(draw(seed))) << seed;
        EXPECT_EQ(told(some), told(draw(seed))) << seed;
    }
    EXPECT_GT(rapid, switches / 3);
    EXPECT_LT(rapid, 2 * switches / 3);
}

TEST(sim_draw, a_seed_happens_the_same_again)
{
    const auto played = [](uint64_t seed) {
        std::string text;
        try_story(draw(seed), [&](std::string_view line) { text.append(line).append("\n"); });
        return text;
    };
    for (const uint64_t seed : {3, 8, 12}) {
        EXPECT_EQ(played(seed), played(seed)) << seed;
        EXPECT_GT(played(seed).size(), 1000u) << seed;
    }
}

TEST(sim_draw, every_shape_has_as_many_switches_as_it_can)
{
    struct row_t {
        shape_t shape;
        size_t of_ten, of_ten_thousand;
    };
    constexpr row_t ROWS[] = {{shape_t::RING, 10, 10000},    {shape_t::LINE, 10, 10000}, {shape_t::STAR, 10, 10000},
                              {shape_t::GRID, 10, 10000},    {shape_t::MESH, 7, 7},      {shape_t::TREE, 10, 10000},
                              {shape_t::SEGMENTS, 10, 10000}};
    for (const row_t &row : ROWS) {
        const auto size = [&](unsigned wished) {
            return switches_of(draw(1, {.shape = row.shape, .switches = wished, .faults = 0}));
        };
        EXPECT_EQ(size(10), row.of_ten) << shape_names()[static_cast<size_t>(row.shape)];
        EXPECT_EQ(size(10000), row.of_ten_thousand) << shape_names()[static_cast<size_t>(row.shape)];
    }
    const size_t fat = switches_of(draw(1, {.shape = shape_t::FAT_TREE, .switches = 10000, .faults = 0}));
    EXPECT_TRUE(fat > 5000 && fat <= 10000) << fat;
}

TEST(sim_draw, every_fault_is_drawn_within_some_hundred_seeds)
{
    uint64_t seen = 0;
    for (uint64_t seed = 1; seed <= 500; seed++)
        seen |= draw(seed).faults;
    EXPECT_EQ(faults_text(((uint64_t{1} << FAULTS) - 1) & ~seen), "wide") << "which is found while playing";
}

// ---- the table of what need not hold --------------------------------------------------------------

TEST(sim_promises, a_plain_network_is_promised_everything)
{
    EXPECT_EQ(promised(0), (1u << PROPERTIES) - 1);
    EXPECT_EQ(promised(bit(CUTS) | bit(OUTAGES) | bit(PRIORITIES) | bit(COSTS) | bit(PARALLEL) | bit(LATE)),
              (1u << PROPERTIES) - 1);
    EXPECT_EQ(promised(bit(FLAPS)) & bit(NO_LOOP), 0u);
}

TEST(sim_promises, each_exception_names_a_seed_that_shows_it)
{
    for (const exception_t &exception : exceptions()) {
        const std::string name = std::string(fault_name(exception.fault)) + " " + property_name(exception.property);
        EXPECT_NE(exception.rule, nullptr) << name;
        if (exception.seed != 0) {
            EXPECT_TRUE(breaks(exception.seed, exception.property)) << name << ", seed " << exception.seed;
        }
    }
}

// ---- making smaller ---------------------------------------------------------------------------------

TEST(sim_shrink, what_is_not_needed_is_left_out)
{
    // What is wrong with a network is that a cable is cut.
    const story_t story = draw(1, {.shape = shape_t::GRID, .switches = 9, .faults = bit(CUTS)});
    const auto verdict_of = [](const story_t &candidate) -> std::string {
        for (const story_event_t &event : candidate.events)
            if (event.deed == deed_t::CUT)
                return "cut";
        return "";
    };
    ASSERT_GT(story.nodes.size(), 8u);
    ASSERT_EQ(verdict_of(story), "cut");
    const story_t small = shrink(story, verdict_of);
    EXPECT_EQ(verdict_of(small), "cut");
    EXPECT_EQ(small.nodes.size(), 2u);
    EXPECT_EQ(small.cables.size(), 1u);
    EXPECT_EQ(small.events.size(), 1u);
}

TEST(sim_shrink, what_holds_stays_as_it_is)
{
    const story_t story = draw(1);
    EXPECT_EQ(broken_property(story), "");
    EXPECT_EQ(told(shrink(story)), told(story));
}

TEST(sim_shrink, a_trial_that_crashes_is_told)
{
    story_t story = draw(1, {.shape = shape_t::LINE, .switches = 2, .faults = 0});
    story.events.push_back({.at = SECOND, .deed = deed_t::CUT, .subject = 1000000}); // no cable of this world
    EXPECT_EQ(broken_property(story), "no-crash");
}
