/// lvt_sim shrink: what is left of a seed's network when everything is gone that it does not need to fail.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include <fmt/format.h>

#include "sim/campaign.h"
#include "sim/commands.h"
#include "sim/shrink.h"
#include "sim/topology_file.h"
#include "tools/topology/read.h"

namespace sim {

namespace {

struct shrink_args_t {
    std::string seed, file, test;
    wish_words_t wishes;
};

/// "-" is standard output.
void write_text(const std::string &path, const std::string &text)
{
    if (path == "-") {
        fmt::print("{}", text);
        return;
    }
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file)
        throw could_not_t(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
}

std::string test_text(uint64_t seed, const std::string &property, const std::string &network)
{
    return fmt::format(
        "#include <gtest/gtest.h>\n\n"
        "#include \"sim/shrink.h\"\n"
        "#include \"sim/topology_file.h\"\n"
        "#include \"tools/topology/read.h\"\n\n"
        "// It breaks {}.\n"
        "TEST(sim_found, seed_{})\n"
        "{{\n"
        "    const topology::network_t network = topology::read_network(R\"yaml({})yaml\", \"\");\n"
        "    EXPECT_EQ(sim::broken_property(sim::story_of(network)), \"\");\n"
        "}}\n",
        property, seed, network);
}

void run_shrink(const shrink_args_t &args, result_t &result)
{
    const uint64_t seed = parse_whole("SEED", args.seed);
    story_t story = draw(seed, args.wishes.wishes());
    const std::string property = broken_property(story);
    if (property.empty()) {
        fmt::print("seed {} ({}) holds: there is nothing to shrink\n", seed, story_words(story));
        return;
    }
    result.code = EXIT_NOT_HELD;
    story.name = fmt::format("seed {} ({}): not {}", seed, story_words(story), property);
    const story_t small = shrink(story);
    const std::string network = topology::network_text(network_of(small));
    fmt::print("# {}: of {} nodes, {} cables and {} events, {}, {} and {} are left\n", story.name, story.nodes.size(),
               story.cables.size(), story.events.size(), small.nodes.size(), small.cables.size(), small.events.size());
    write_text(args.file, network);
    if (!args.test.empty())
        write_text(args.test, test_text(seed, property, network));
}

} // namespace

void add_shrink_command(CLI::App &app, result_t &result)
{
    auto *command = app.add_subcommand("shrink", "Makes a seed's network that does not hold as small as can be");
    command->footer(
        "What comes out is a topology file for lvt_sim play, and the text of a unit test.\n"
        "Exit status: 0 the seed holds, there is nothing to shrink; 1 it does not, and was made smaller.\n"
        "Example:\n"
        "  lvt_sim shrink 17 --file small.yml --test small_test.cpp");
    auto args = std::make_shared<shrink_args_t>();
    args->file = "-";
    command->add_option("SEED", args->seed, "The seed")->type_name("")->required();
    command->add_option("--file", args->file, "Where the topology file goes, by default standard output")
        ->type_name("FILE");
    command->add_option("--test", args->test, "Where the unit test's text goes, \"-\" for standard output")
        ->type_name("FILE");
    args->wishes.add_to(*command);
    command->callback([args, &result] { run_shrink(*args, result); });
}

} // namespace sim
