/// Random networks of whole switches: no ring at any instant, and the right tree once they are quiet; and
/// that the judge would see it otherwise.
#include <gtest/gtest.h>

#include "sim/judge.h"
#include "sim/story.h"
#include "tests/seed.h"
#include "tools/messages.h"

namespace {

using namespace sim;

constexpr moment_t SETTLED = 120 * SECOND; ///< more than any of these networks needs

/// Cables two switches by the first free port of each; false when one has none.
bool cable(world_t &world, node_id_t a, node_id_t b)
{
    const auto free_port = [&](node_id_t node, unsigned taken) {
        for (unsigned port = 1; port <= sim::FRONT_PORTS; port++)
            if (port != taken && world.cable_at({node, port}) == NO_CABLE)
                return port;
        return 0u;
    };
    const unsigned at_a = free_port(a, 0), at_b = free_port(b, a == b ? at_a : 0);
    if (!at_a || !at_b)
        return false;
    constexpr uint32_t speeds[] = {10, 100, 1000, 1000, 2500};
    const way_t way = {.delay = world.random().between(1, 3000)};
    world.connect({a, at_a}, {b, at_b}, way, speeds[world.random().below(5)]);
    return true;
}

void build(world_t &world, bool to_themselves, rapid_t rapid = rapid_t::NONE) // SOME: every other
{
    random_t &random = world.random();
    const auto switches = static_cast<node_id_t>(random.between(2, 8));
    for (node_id_t i = 0; i < switches; i++) {
        world.add_switch();
        if (i > 0)
            cable(world, i, static_cast<node_id_t>(random.below(i)));
    }
    for (uint64_t extra = random.below(switches + 1); extra; extra--) {
        const auto a = static_cast<node_id_t>(random.below(switches)),
                   b = static_cast<node_id_t>(random.below(switches));
        if (a != b || to_themselves)
            cable(world, a, b);
    }
    // A switch forwards everywhere until it is told to take part: nobody cables it before.
    for (cable_id_t i = 0; i < world.cables(); i++)
        world.pull(i);
    for (node_id_t i = 0; i < switches; i++) {
        world.device(i).rapid = rapid == rapid_t::ALL || (rapid == rapid_t::SOME && i % 2);
        world.power_on(i, random.below(SECOND));
        lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
        bridge.bridge_priority = static_cast<uint16_t>(4096 * random.between(7, 8));
        world.control(i, system_config_message(bridge));
        port_configs_t ports = default_port_configs();
        for (unsigned port = 1; port <= sim::FRONT_PORTS; port++) {
            ports[port].adminEnable = 1;
            ports[port].adminEdge = 0;
            ports[port].port_priority = static_cast<uint16_t>(16 * random.between(7, 8));
        }
        world.control(i, port_config_message(ports));
    }
    for (cable_id_t i = 0; i < world.cables(); i++)
        world.plug(i);
}

/// Expects the right tree so long after the boot, after any cable was pulled, and after it was plugged in again.
void boot_cut_and_mend(world_t &world, moment_t booted, moment_t healed, moment_t mended)
{
    world.run_for(booted);
    EXPECT_EQ(wrong_ports(world), "") << "after boot";

    const auto cut = static_cast<cable_id_t>(world.random().below(world.cables()));
    world.pull(cut);
    world.run_for(healed);
    EXPECT_EQ(wrong_ports(world), "") << "after the cut of cable " << cut;

    world.plug(cut);
    world.run_for(mended);
    EXPECT_EQ(wrong_ports(world), "") << "after the mend of cable " << cut;
}

class random_network : public testing::TestWithParam<uint64_t> {};

} // namespace

TEST_P(random_network, is_a_tree_after_boot_cut_and_mend)
{
    const bool to_themselves = GetParam() % 4 == 0;
    world_t world(GetParam());
    loop_watcher_t loops(world);
    world.watch(&loops);
    build(world, to_themselves);
    boot_cut_and_mend(world, SETTLED, SETTLED, SETTLED);
    EXPECT_EQ(to_themselves ? "" : loops.ring(), "");
}

INSTANTIATE_TEST_SUITE_P(seeds, random_network, testing::Range<uint64_t>(1, 1 + seeds_here(100)));

#ifdef LVT_RAPID
class rapid_network : public testing::TestWithParam<uint64_t> {};

TEST_P(rapid_network, is_a_tree_within_seconds_and_never_a_ring)
{
    world_t world(GetParam());
    loop_watcher_t loops(world);
    world.watch(&loops);
    build(world, false, rapid_t::ALL);
    // A root that has died may be remembered for three hellos, and some more.
    boot_cut_and_mend(world, 4 * SECOND, 20 * SECOND, 2 * SECOND);
    EXPECT_EQ(loops.ring(), "");
}

INSTANTIATE_TEST_SUITE_P(seeds, rapid_network, testing::Range<uint64_t>(1, 1 + seeds_here(100)));

class mixed_network : public testing::TestWithParam<uint64_t> {};

TEST_P(mixed_network, is_a_tree_after_boot_cut_and_mend)
{
    world_t world(GetParam());
    loop_watcher_t loops(world);
    world.watch(&loops);
    build(world, false, rapid_t::SOME);
    boot_cut_and_mend(world, SETTLED, SETTLED, SETTLED);
    EXPECT_EQ(loops.ring(), "");
}

INSTANTIATE_TEST_SUITE_P(seeds, mixed_network, testing::Range<uint64_t>(1, 1 + seeds_here(250)));
#endif

// A port that hears its own bridge takes the flags of that BPDU for an agreement with itself: two ports of one
// switch may both forward, until one of them has taken its role as a backup.
TEST(sim_judge, a_cable_of_a_switch_to_itself_may_be_a_ring_for_a_moment)
{
    for (const uint64_t seed : {64, 80, 99}) { // of the first hundred, the ones that show it
        world_t world(seed);
        loop_watcher_t loops(world);
        world.watch(&loops);
        build(world, true);
        moment_t carried = 0;
        while (world.now() < 60 * SECOND) {
            world.run_for(MILLISECOND);
            for (cable_id_t id = 0; id < world.cables(); id++)
                if (world.cable(id).ends[0].node == world.cable(id).ends[1].node && loops.carries(id))
                    carried += MILLISECOND;
        }
        EXPECT_GT(carried, 0u) << seed;
        EXPECT_LE(carried, 2 * SECOND) << seed;
        EXPECT_EQ(wrong_ports(world), "") << seed;
    }
}

TEST(sim_judge, a_ring_without_spanning_tree_is_seen_at_once)
{
    world_t world(1);
    loop_watcher_t loops(world);
    world.watch(&loops);
    for (int i = 0; i < 3; i++)
        world.add_switch();
    for (node_id_t i = 0; i < 3; i++)
        world.connect({i, 1}, {(i + 1) % 3, 2});
    for (node_id_t i = 0; i < 2; i++)
        world.power_on(i);
    EXPECT_EQ(loops.ring(), "");
    world.power_on(2); // every port forwards until it is told to take part
    EXPECT_EQ(loops.ring(), "0.000000 s: sw2:1 sw3:2, sw3:1 sw1:2, sw1:1 sw2:2");
}

TEST(sim_judge, a_port_of_a_wrong_role_is_named)
{
    world_t world(1);
    world.add_switch();
    world.add_switch();
    world.connect({0, 3}, {1, 4});
    for (node_id_t i = 0; i < 2; i++) {
        world.power_on(i);
        port_configs_t ports = default_port_configs();
        ports[3].adminEnable = ports[4].adminEnable = 1;
        world.control(i, port_config_message(ports));
    }
    EXPECT_EQ(wrong_ports(world).substr(0, 15), "sw1:3 has role ");
    world.run_for(60 * SECOND);
    EXPECT_EQ(wrong_ports(world), "");
}
