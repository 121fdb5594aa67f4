/// The simulator's switches and cables, before anything is judged by them.
#include <gtest/gtest.h>

#include "sim/world.h"
#include "tools/messages.h"

namespace {

using namespace sim;

std::vector<uint8_t> all_ports_on()
{
    port_configs_t configs = default_port_configs();
    for (unsigned port = 1; port <= sim::FRONT_PORTS; port++)
        configs[port].adminEnable = 1;
    return port_config_message(configs);
}

/// A ring: port 2 of each switch leads to port 1 of the next.
void build_ring(world_t &world, unsigned switches)
{
    for (unsigned i = 0; i < switches; i++)
        world.add_switch();
    for (node_id_t i = 0; i < switches; i++)
        world.connect({i, 2}, {(i + 1) % switches, 1});
    for (node_id_t i = 0; i < switches; i++) {
        world.power_on(i, SECOND + i * MILLISECOND);
        world.control(i, all_ports_on());
    }
}

std::string roles(world_t &world)
{
    std::string text;
    for (node_id_t node = 0; node < world.nodes(); node++)
        for (unsigned port = 1; port <= 2; port++)
            text += "-ABRDN"[world.port(node, port).role];
    return text;
}

} // namespace

TEST(sim_world, a_ring_of_four_is_cut_once)
{
    world_t world(1);
    build_ring(world, 4);
    world.run(60 * SECOND);
    // The first has the lowest address; the third is as far by either way and takes the way by the second.
    EXPECT_EQ(roles(world), "DDRDRADR");
    std::string forwarding;
    for (node_id_t node = 0; node < 4; node++)
        for (unsigned port = 1; port <= 2; port++)
            forwarding += switch_forwards(world.device(node), port) ? 'f' : 'b';
    EXPECT_EQ(forwarding, "fffffbff");
}

TEST(sim_world, a_cable_that_is_pulled_opens_the_gap)
{
    world_t world(1);
    build_ring(world, 4);
    world.run(60 * SECOND);
    world.pull(0); // between the first and the second
    world.run_for(60 * SECOND);
    EXPECT_EQ(roles(world), "D--RDRDR"); // the pulled ends have no role
}

TEST(sim_world, the_same_seed_tells_the_same_story)
{
    uint64_t events[2];
    for (uint64_t &count : events) {
        world_t world(7);
        build_ring(world, 5);
        for (cable_id_t cable = 0; cable < world.cables(); cable++)
            for (way_t &way : world.cable(cable).ways)
                way = {.delay = MILLISECOND, .jitter = 500, .lost = 100000, .doubled = 100000};
        world.run(100 * SECOND);
        count = world.events();
    }
    EXPECT_EQ(events[0], events[1]);
}

TEST(sim_world, hosts_reach_each_other_through_a_tree)
{
    world_t world(1);
    build_ring(world, 3);
    const node_id_t a = world.add_host(), b = world.add_host();
    world.connect({0, 3}, {a, 1});
    world.connect({2, 4}, {b, 1});
    world.run(60 * SECOND);
    std::array<uint8_t, 60> frame = {};
    const auto from = world.host_address(a), to = world.host_address(b);
    std::copy(to.begin(), to.end(), frame.begin());
    std::copy(from.begin(), from.end(), frame.begin() + 6);
    world.send(a, frame);
    world.run_for(SECOND);
    EXPECT_EQ(world.host_received(b), 1u);
}

TEST(sim_world, a_switch_that_lost_its_power_forgets_and_comes_back)
{
    world_t world(1);
    build_ring(world, 3);
    world.run(60 * SECOND);
    world.power_off(0);
    world.run_for(60 * SECOND);
    EXPECT_EQ(world.port(1, 2).role, ROLE_DESIGNATED);
    EXPECT_EQ(world.port(2, 1).role, ROLE_ROOT);
    world.power_on(0);
    world.control(0, all_ports_on());
    world.run_for(60 * SECOND);
    EXPECT_EQ(roles(world).substr(0, 2), "DD");
}
