/// lvt_sim play: a network from a topology file, told in words.
#include <fstream>
#include <memory>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "sim/commands.h"
#include "sim/judge.h"
#include "sim/pcapng.h"
#include "sim/picture.h"
#include "sim/teller.h"
#include "sim/topology_file.h"
#include "tools/ctl/ctl.h"
#include "tools/printable.h"
#include "tools/topology/read.h"
#include "tools/topology/shapes.h"
#include "tools/topology/story.h"
#include "tools/topology/svg.h"
#include "tools/topology/values.h"

namespace sim {

namespace {

/// After so long without any change a network is at rest: longer than its slowest default timer.
constexpr moment_t REST = 25 * SECOND;

struct play_args_t {
    std::vector<std::string> words;
    std::string until, at, seed, pcapng, svg;
    bool file = false, quiet = false;
    rapid_words_t rapid;
};

moment_t parse_moment(const std::string &option, const std::string &text)
{
    const auto span = topology::parse_span(text);
    if (!span)
        throw usage_t(fmt::format("{}: \"{}\" should be {}", option, text, topology::SPAN_FORM));
    return static_cast<moment_t>(span->count());
}

topology::network_t network_of_words(const std::vector<std::string> &words)
{
    try {
        return topology::load_network(words);
    } catch (const ::faults_t &faults) {
        throw faults_t(faults.what());
    } catch (const refused_t &refused) {
        if (words.size() == 1 && !topology::is_shape(words))
            throw could_not_t(refused.what());
        throw usage_t(refused.what());
    }
}

class capture_t : public watcher_t {
public:
    capture_t(world_t &world, const std::string &path) : world_(world), file_(path, interfaces(world))
    {
        world.watch(this);
    }

    void close() { file_.close(); }

private:
    static std::vector<std::string> interfaces(const world_t &world)
    {
        std::vector<std::string> names;
        for (cable_id_t id = 0; id < world.cables(); id++)
            for (const unsigned from : {0u, 1u})
                names.push_back(fmt::format("{}>{}", name_of(world, world.cable(id).ends[from]),
                                            name_of(world, world.cable(id).ends[1 - from])));
        return names;
    }

    void sent(cable_id_t cable, unsigned from, const frame_t &frame) override
    {
        file_.put(2 * cable + from, world_.now(), {frame.octets.data(), frame.length});
    }

    world_t &world_;
    pcapng_t file_;
};

/// What is done to the network and no watcher sees.
void tell_commands(stage_t &stage, teller_t &teller, const topology::network_t &network)
{
    using topology::verb_t;
    topology::network_t so_far = network;
    so_far.story.clear();
    for (const topology::event_t &event : network.story) {
        const bool is_seen = event.verb == verb_t::PULL || event.verb == verb_t::PLUG || event.verb == verb_t::FLAP ||
                             event.verb == verb_t::KILL || event.verb == verb_t::POWER_ON ||
                             event.verb == verb_t::POWER_OFF;
        if (!is_seen) {
            const settings_t before =
                event.verb == verb_t::SET ? topology::settings_now(so_far, event.subject) : settings_t();
            stage.world().at(
                static_cast<moment_t>(event.at.count()),
                [&teller, words = topology::command_text(network, event, before)] { teller.tell_deed(words); });
        }
        so_far.story.push_back(event);
    }
}

void write_svg(stage_t &stage, const std::string &path)
{
    std::ofstream file(path);
    file << topology::svg_of(picture_of(stage));
    file.close();
    if (!file)
        throw could_not_t(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
}

/// How it all ended. Returns whether it ended well.
bool tell_end(stage_t &stage, const teller_t &teller, const loop_watcher_t &loops)
{
    world_t &world = stage.world();
    std::vector<std::string> roots;
    for (node_id_t id = 0; id < world.nodes(); id++)
        if (world.node(id).kind == node_kind_t::SWITCH && world.device(id).daemon_runs &&
            switch_vars(world.device(id)).bridge.rootPortId == 0)
            roots.push_back(world.node(id).name);
    fmt::print("\nAfter {} s ", world.now() / SECOND);
    if (roots.size() == 1)
        fmt::print("the root is {}.\n", roots[0]);
    else
        fmt::print("{} switches are roots: {}.\n", roots.size(), fmt::join(roots, ", "));
    fmt::print("{} BPDUs have arrived, and address tables were emptied {} times.\n", teller.bpdus(), teller.flushes());
    fmt::print("{}\n", loops.ring().empty() ? "At no moment was there a loop." : "There was a loop: " + loops.ring());

    const moment_t quiet = world.now() - teller.last_change();
    if (quiet < REST) {
        fmt::print("It is not at rest: the last change was {:.3f} s before the end.\n",
                   static_cast<double>(quiet) / SECOND);
        return loops.ring().empty();
    }
    std::vector<outsider_t> outsiders;
    for (node_id_t id = 0; id < world.nodes(); id++)
        if (const story_node_t &node = stage.story().nodes[id];
            node.kind == node_kind_t::SPEAKER && world.now() < node.hush &&
            (node.manner == manner_t::STP || node.manner == manner_t::BETTER))
            outsiders.push_back({id, stage.identifier_of(id), node.bridge.max_age, node.bridge.hello_time});
    const std::string wrong = wrong_ports(world, right_tree(world, outsiders));
    if (wrong.empty())
        fmt::print("At rest since {:.3f} s, and every port is as IEEE 802.1D has it.\n",
                   static_cast<double>(teller.last_change()) / SECOND);
    else
        fmt::print("At rest since {:.3f} s, but not as IEEE 802.1D has it:\n{}",
                   static_cast<double>(teller.last_change()) / SECOND, wrong);
    return loops.ring().empty() && wrong.empty();
}

void play(const play_args_t &args, result_t &result)
{
    topology::network_t network = network_of_words(args.words);
    if (!args.seed.empty())
        network.seed = parse_whole("--seed", args.seed);
    story_t story = story_of(network);
    make_rapid(story, args.rapid.choice());
    for (size_t i = 0; i < network.nodes.size(); i++)
        network.nodes[i].rapid = story.nodes[i].rapid;
    if (args.file)
        return fmt::print("{}", topology::network_text(network));
    const moment_t until = !args.until.empty() ? parse_moment("--until", args.until)
                           : network.until     ? static_cast<moment_t>(network.until->count())
                                               : story.rests.back();
    const moment_t picture_at = args.at.empty() ? until : parse_moment("--at", args.at);
    if (picture_at > until)
        throw usage_t("--at: the picture is of a moment after the end");

    stage_t stage(story);
    loop_watcher_t loops(stage.world());
    stage.world().watch(&loops);
    teller_t teller(stage, [&](const std::string &line) {
        if (!args.quiet)
            fmt::print("{}\n", printable(line));
    });
    tell_commands(stage, teller, network);
    std::unique_ptr<capture_t> capture;
    if (!args.pcapng.empty())
        capture = std::make_unique<capture_t>(stage.world(), args.pcapng);

    stage.world().run(picture_at);
    if (!args.svg.empty())
        write_svg(stage, args.svg);
    stage.world().run(until);
    teller.finish();
    if (capture)
        capture->close();
    if (!tell_end(stage, teller, loops))
        result.code = EXIT_NOT_HELD;
}

} // namespace

void add_play_command(CLI::App &app, result_t &result)
{
    auto *command = app.add_subcommand("play", "Plays a topology file and tells the story in words");
    command->footer(
        fmt::format("A name stands for a file: {}.\n"
                    "Exit status: 1 when there was a loop, or when the network is at rest and not as it should be.\n"
                    "Examples:\n"
                    "  lvt_sim play ring 4\n"
                    "  lvt_sim play office.yml --pcapng office.pcapng\n"
                    "  lvt_sim play office.yml --svg cut.svg --at 65s\n"
                    "  lvt_sim play grid 3x3 --file > grid.yml",
                    fmt::join(topology::shape_forms(), ", ")));
    auto args = std::make_shared<play_args_t>();
    command->add_option("network", args->words, "A topology file, - for standard input, or a name and its size")
        ->type_name("FILE|NAME SIZE")
        ->required();
    command->add_option("--until", args->until, "How long, as in 90s; else as the file says")->type_name("TIME");
    command->add_option("--seed", args->seed, "Of all that is drawn, instead of the file's")->type_name("N");
    command->add_option("--pcapng", args->pcapng, "Capture every cable, with an interface for each direction")
        ->type_name("FILE");
    command->add_option("--svg", args->svg, "Draw the tree at the end")->type_name("FILE");
    command->add_option("--at", args->at, "Draw it at this moment instead")->type_name("TIME");
    command->add_flag("--quiet", args->quiet, "Only how it ended");
    command->add_flag("--file", args->file, "Print the network as a topology file, and do not play it");
    args->rapid.add_to(*command);
    command->callback([args, &result] { play(*args, result); });
}

} // namespace sim
