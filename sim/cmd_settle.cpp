/// lvt_sim settle and cost: what the plots of docs/network.md are made of.
#include <chrono>
#include <ctime>
#include <fstream>
#include <memory>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include "sim/commands.h"
#include "sim/judge.h"
#include "sim/stage.h"
#include "sim/topology_file.h"
#include "tools/bpdu_frame.h"
#include "tools/ctl/ctl.h"
#include "tools/topology/shapes.h"

namespace sim {

namespace {

/// Sees when roles, states and address tables change, and counts BPDUs until then.
class changes_t : public watcher_t {
public:
    explicit changes_t(world_t &world) : world_(world), seen_(world.nodes()) { world.watch(this); }

    /// From now on.
    void begin()
    {
        from_ = moved_ = flushed_ = world_.now();
        bpdus_ = bpdus_until_change_ = flushes_ = 0;
    }

    moment_t until_moved() const { return moved_ - from_; }     ///< the last role or state
    moment_t until_flushed() const { return flushed_ - from_; } ///< the last address table
    uint64_t bpdus() const { return bpdus_until_change_; }
    uint64_t flushes() const { return flushes_; }
    moment_t quiet() const { return world_.now() - std::max(moved_, flushed_); }

private:
    struct seen_t {
        std::array<unsigned, FRONT_PORTS> states = {};
        std::array<lvt_rstp_port_role_t, RSTP_PORTS> roles = {};
    };

    void sent(cable_id_t, unsigned, const frame_t &) override { bpdus_++; }

    void chip_written(node_id_t, const mdio_multi_t &batch) override
    {
        for (const mdio_op_t &op : std::span(batch.operations, batch.count))
            if (empties_addresses(op)) {
                flushes_++;
                change(flushed_);
            }
    }

    void event_done(node_id_t node) override
    {
        seen_t &seen = seen_[node];
        for (unsigned port = 1; port <= FRONT_PORTS; port++)
            if (const unsigned state = switch_port_state(world_.device(node), port); seen.states[port - 1] != state) {
                seen.states[port - 1] = state;
                change(moved_);
            }
        const lvt_rstp_vars_t &vars = switch_vars(world_.device(node));
        for (unsigned port = 0; port < RSTP_PORTS; port++)
            if (seen.roles[port] != vars.ports[port].role) {
                seen.roles[port] = vars.ports[port].role;
                change(moved_);
            }
    }

    void change(moment_t &moment)
    {
        moment = world_.now();
        bpdus_until_change_ = bpdus_;
    }

    world_t &world_;
    std::vector<seen_t> seen_;
    moment_t from_ = 0, moved_ = 0, flushed_ = 0;
    uint64_t bpdus_ = 0, bpdus_until_change_ = 0, flushes_ = 0;
};

struct args_t {
    std::vector<std::string> words;
    std::string seeds = "1";
    bool fast = false;
    rapid_words_t rapid;
};

topology::network_t network_of_args(const args_t &args)
{
    topology::network_t network;
    try {
        network = topology::shape_network(args.words);
    } catch (const refused_t &refused) {
        throw usage_t(refused.what());
    }
    if (args.fast)
        for (topology::node_t &node : network.nodes) {
            node.settings.bridge.hello_time = 1;
            node.settings.bridge.max_age = 6;
            node.settings.bridge.forward_delay = 4;
        }
    return network;
}

/// How long after an event nothing changes any more, in all shapes that were tried.
moment_t patience(const args_t &args) { return args.fast ? 60 * SECOND : 200 * SECOND; }

void settle_once(const args_t &args, topology::network_t network, uint64_t seed)
{
    using topology::verb_t;
    constexpr const char *EVENTS[] = {"boot", "cut", "mend", "death"};
    constexpr verb_t VERBS[] = {verb_t::PULL, verb_t::PLUG, verb_t::POWER_OFF};
    const moment_t pause = patience(args);
    network.seed = seed;
    for (size_t i = 0; i < std::size(VERBS); i++) {
        topology::event_t event = {};
        event.at = topology::span_t((i + 1) * pause);
        event.verb = VERBS[i];
        event.subject = 0; // the first cable, the first switch
        network.story.push_back(event);
    }
    story_t story = story_of(network);
    make_rapid(story, args.rapid.choice());
    stage_t stage(story);
    world_t &world = stage.world();
    changes_t changes(world);
    for (size_t i = 0; i < std::size(EVENTS); i++) {
        changes.begin();
        world.run((i + 1) * pause - 1);
        const right_tree_t right = right_tree(world);
        const bool settled = changes.quiet() > 10 * SECOND && wrong_ports(world, right).empty();
        fmt::print("{} {} {} {} {} {} {:.3f} {:.3f} {} {} {}\n", args.words[0], network.nodes.size(), right.depth,
                   args.fast ? "fast" : "default", seed, EVENTS[i], static_cast<double>(changes.until_moved()) / SECOND,
                   static_cast<double>(changes.until_flushed()) / SECOND, changes.bpdus(), changes.flushes(),
                   settled ? "right" : "not");
    }
}

void settle(const args_t &args)
{
    const topology::network_t network = network_of_args(args);
    if (network.links.empty())
        throw usage_t("there is no cable to cut: name a larger network");
    const uint64_t seeds = parse_whole("--seeds", args.seeds);
    fmt::print("# shape switches depth timers seed event last-role-or-state-s last-flush-s bpdus flushes tree\n");
    for (uint64_t seed = 1; seed <= seeds; seed++)
        settle_once(args, network, seed);
}

// ---- cost ---------------------------------------------------------------------------------

double processor_seconds()
{
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/// Octets of memory that the process has in use.
uint64_t resident_octets()
{
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

/// Switches with five cables each, but for some at the edges: a tree with four below each, whose leaves are joined
/// with the next two leaves. No switch is far from the root.
topology::network_t five_cables(unsigned switches)
{
    topology::network_t network;
    network.nodes.resize(switches);
    const auto join = [&](unsigned a, unsigned a_port, unsigned b, unsigned b_port) {
        network.links.push_back({.ends = {{{a, a_port}, {b, b_port}}}});
    };
    for (unsigned i = 0; i < switches; i++) {
        network.nodes[i].name = fmt::format("sw{}", i + 1);
        if (i > 0)
            join((i - 1) / 4, 2 + (i - 1) % 4, i, 1);
    }
    const unsigned first = (switches + 2) / 4, leaves = switches - first; // those with nobody below
    for (unsigned i = 0; i < leaves && leaves > 4; i++) {
        join(first + i, 2, first + (i + 1) % leaves, 3);
        join(first + i, 4, first + (i + 2) % leaves, 5);
    }
    topology::give_usual_settings(network);
    return network;
}

void cost(const std::string &switches)
{
    constexpr moment_t BOOTED = 200 * SECOND, MEASURED = 60 * SECOND;
    const uint64_t count = parse_whole("--switches", switches);
    if (count < 1 || count > MOST_SWITCHES)
        throw usage_t(fmt::format("--switches: 1 to {}", MOST_SWITCHES));
    const story_t story = story_of(five_cables(static_cast<unsigned>(count)));
    const uint64_t before = resident_octets();
    stage_t stage(story);
    stage.world().run(BOOTED);
    const double begin = processor_seconds();
    stage.world().run(BOOTED + MEASURED);
    const double spent = processor_seconds() - begin;
    const uint64_t octets = resident_octets() - before;
    if (const std::string wrong = wrong_ports(stage.world()); !wrong.empty())
        throw could_not_t("the network has not come to rest: " + wrong.substr(0, wrong.find('\n')));
    fmt::print("# switches cables-per-switch microseconds-per-switch-second octets-per-switch\n");
    fmt::print("{} {:.2f} {:.3f} {}\n", count, static_cast<double>(story.cables.size()) / static_cast<double>(count),
               spent * 1e6 / static_cast<double>(count) / (MEASURED / SECOND), octets / count);
}

} // namespace

void add_settle_command(CLI::App &app, result_t &)
{
    auto *command = app.add_subcommand(
        "settle", "Tells how soon a network settles after boot, a cut, a mend, and the root's death");
    command->footer(
        fmt::format("The first cable is cut and mended, then the first switch, which is the root, loses power.\n"
                    "A line for each: until the last role or state changed, until the last address table was\n"
                    "emptied, and the BPDUs and flushes until then.\n"
                    "Names: {}.\n"
                    "Examples:\n"
                    "  lvt_sim settle ring 10\n"
                    "  lvt_sim settle grid 4x4 --seeds 20 --fast",
                    fmt::join(topology::shape_forms(), ", ")));
    auto args = std::make_shared<args_t>();
    command->add_option("network", args->words, "The name of a network, and its size")
        ->type_name("NAME SIZE")
        ->required();
    command->add_option("--seeds", args->seeds, "How many seeds: they draw when each switch's seconds begin")
        ->type_name("N");
    command->add_flag("--fast", args->fast, "With the shortest times: hello 1 s, max age 6 s, forward delay 4 s");
    args->rapid.add_to(*command);
    command->callback([args] { settle(*args); });
}

void add_cost_command(CLI::App &app, result_t &)
{
    auto *command = app.add_subcommand("cost", "Measures what a switch with five cables, at rest, costs the simulator");
    command->footer(
        "Example:\n"
        "  lvt_sim cost --switches 1000");
    auto switches = std::make_shared<std::string>();
    command->add_option("--switches", *switches, "How many")->type_name("N")->required();
    command->callback([switches] { cost(*switches); });
}

} // namespace sim
