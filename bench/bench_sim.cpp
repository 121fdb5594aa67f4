/// What a network of whole switches costs in the simulator: switches with five cables to others each, at rest.
///
///     bench_sim                      the table
///     bench_sim SWITCHES SECONDS     plays that many seconds at rest, for valgrind to count `measured`
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include <fmt/format.h>
#include <malloc.h>

#include "sim/world.h"
#include "tools/messages.h"

namespace {

using namespace sim;

constexpr unsigned CABLES = 5;
constexpr moment_t SETTLED = 150 * SECOND;
constexpr int RUNS = 5;

/// Each port of all switches is cabled to the same port of another one, drawn at random.
void build(world_t &world, unsigned switches)
{
    port_configs_t ports = default_port_configs();
    for (unsigned port = 1; port <= CABLES; port++) {
        ports[port].adminEnable = 1;
        ports[port].adminEdge = 0;
    }
    for (node_id_t id = 0; id < switches; id++) {
        world.add_switch();
        world.power_on(id, world.random().between(1, SECOND), SECOND);
        world.control(id, port_config_message(ports));
    }
    std::vector<node_id_t> order(switches);
    for (node_id_t id = 0; id < switches; id++)
        order[id] = id;
    for (unsigned port = 1; port <= CABLES; port++) {
        for (size_t left = switches; left > 1; left--)
            std::swap(order[left - 1], order[world.random().below(left)]);
        for (size_t i = 0; i + 1 < switches; i += 2)
            world.connect({order[i], port}, {order[i + 1], port});
    }
}

double cpu_seconds()
{
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

struct cost_t {
    double switch_seconds_a_second;
    size_t octets_a_switch;
};

cost_t cost_of(unsigned switches, moment_t span)
{
    const size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    world_t world(1);
    build(world, switches);
    world.run_for(SETTLED);
    std::vector<double> runs;
    for (int run = 0; run < RUNS; run++) {
        const double begin = cpu_seconds();
        world.run_for(span);
        runs.push_back(static_cast<double>(switches) * static_cast<double>(span / SECOND) / (cpu_seconds() - begin));
    }
    std::sort(runs.begin(), runs.end());
    const size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
    return {runs[RUNS / 2], (after - before) / switches};
}

} // namespace

extern "C" void measured(world_t *world, moment_t span) { world->run_for(span); }

int main(int argc, char **argv)
{
    if (argc == 3) {
        void (*volatile call)(world_t *, moment_t) = measured; // so that it stays a function of that name
        world_t world(1);
        build(world, static_cast<unsigned>(atoi(argv[1])));
        world.run_for(SETTLED);
        call(&world, static_cast<moment_t>(atoi(argv[2])) * SECOND);
        return 0;
    }
    const cost_t few = cost_of(100, 1000 * SECOND), many = cost_of(10000, 10 * SECOND);
    fmt::print("| switch-seconds a second, 100 switches | {:.0f} |\n", few.switch_seconds_a_second);
    fmt::print("| the same, 10,000 switches | {:.0f} |\n", many.switch_seconds_a_second);
    fmt::print("| cost of a switch among 10,000 against among 100 | {:.2f} |\n",
               few.switch_seconds_a_second / many.switch_seconds_a_second);
    fmt::print("| octets a switch, among 10,000 | {} |\n", many.octets_a_switch);
}
