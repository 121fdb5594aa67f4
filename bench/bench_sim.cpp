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
constexpr int RUNS = 9;

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

size_t heap() { return mallinfo2().uordblks + mallinfo2().hblkhd; }

/// Switch-seconds a second of a network that plays on.
double speed_of(world_t &world, moment_t span)
{
    const double begin = cpu_seconds();
    world.run_for(span);
    return static_cast<double>(world.nodes()) * static_cast<double>(span / SECOND) / (cpu_seconds() - begin);
}

double median(std::vector<double> of)
{
    std::sort(of.begin(), of.end());
    return of[of.size() / 2];
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
    world_t few(1), many(1);
    build(few, 100);
    few.run_for(SETTLED);
    const size_t before = heap();
    build(many, 10000);
    many.run_for(SETTLED);
    const size_t octets = (heap() - before) / many.nodes();
    // In turns, since what else the machine does changes by the second.
    std::vector<double> of_few, of_many, ratios;
    for (int run = 0; run < RUNS; run++) {
        of_few.push_back(speed_of(few, 1000 * SECOND));
        of_many.push_back(speed_of(many, 10 * SECOND));
        ratios.push_back(of_few.back() / of_many.back());
    }
    fmt::print("| switch-seconds a second, 100 switches | {:.0f} |\n", median(of_few));
    fmt::print("| the same, 10,000 switches | {:.0f} |\n", median(of_many));
    fmt::print("| cost of a switch among 10,000 against among 100 | {:.2f} |\n", median(ratios));
    fmt::print("| octets a switch, among 10,000 | {} |\n", octets);
}
