/// The simulator's switches and cables, before anything is judged by them.
#include <map>

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

/// At one moment, what was put in first comes first.
TEST(sim_queue, gives_the_earliest_first)
{
    queue_t<unsigned> queue;
    std::multimap<moment_t, unsigned> expected;
    random_t random = {1};
    constexpr moment_t SPANS[] = {1, 2, MILLISECOND, 20 * MILLISECOND, 2 * SECOND, 3 * SECOND, 600 * SECOND};
    moment_t now = 0;
    for (unsigned number = 0; number < 20000; number++) {
        const moment_t at = now + random.below(SPANS[random.below(std::size(SPANS))]);
        queue.put(at, number);
        expected.emplace(at, number);
        const bool looks = random.one_in(3);
        for (uint64_t takes = random.below(number < 10000 ? 2 : 3); takes && !queue.empty(); takes--) {
            if (looks) { // which may not disturb what is put in next
                ASSERT_EQ(queue.next().what, expected.begin()->second);
            }
            const auto entry = queue.take();
            ASSERT_EQ(entry.at, expected.begin()->first);
            ASSERT_EQ(entry.what, expected.begin()->second);
            expected.erase(expected.begin());
            now = entry.at;
        }
        if (looks && !queue.empty()) {
            ASSERT_EQ(queue.next().at, expected.begin()->first);
        }
    }
    ASSERT_EQ(queue.size(), expected.size());
    for (; !queue.empty(); expected.erase(expected.begin()))
        ASSERT_EQ(queue.take().what, expected.begin()->second);
}
