/// lvt_sim run: one network, told as it goes.
#include <memory>

#include <fmt/format.h>

#include "sim/campaign.h"
#include "sim/commands.h"

namespace sim {

namespace {

struct run_args_t {
    std::string seed;
    bool quiet = false;
    wish_words_t wishes;
};

void run_seed(const run_args_t &args, result_t &result)
{
    const uint64_t seed = parse_whole("--seed", args.seed);
    const story_t story = draw(seed, args.wishes.wishes());
    fmt::print("seed {}: {}\n", seed, story_words(story));
    if (!args.quiet)
        for (const std::string &line : network_words(story))
            fmt::print("{}\n", line);
    const auto print_line = [](std::string_view line) { fmt::print("{}\n", line); };
    const outcome_t outcome = try_story(story, args.quiet ? listener_t() : print_line);
    for (const finding_t &finding : outcome.findings)
        fmt::print("{} {} at {}.{:06} s: {}\n", finding.promised ? "not" : "not, as it need not,",
                   property_name(finding.property), finding.at / SECOND, finding.at % SECOND, finding.words);
    fmt::print("{}: {} events in {} switch-seconds\n", outcome.held() ? "held" : "NOT HELD", outcome.events,
               outcome.switch_seconds);
    if (!outcome.held())
        result.code = EXIT_NOT_HELD;
}

} // namespace

void add_run_command(CLI::App &app, result_t &result)
{
    auto *command = app.add_subcommand("run", "Plays the network of a seed and tells what happens");
    command->footer(
        "The same seed tells the same on every machine.\n"
        "Examples:\n"
        "  lvt_sim run --seed 17\n"
        "  lvt_sim run --seed 1 --shape grid --switches 100 --faults cuts --quiet");
    auto args = std::make_shared<run_args_t>();
    command->add_option("--seed", args->seed, "The whole story")->type_name("N")->required();
    command->add_flag("--quiet", args->quiet, "Only what came of it");
    args->wishes.add_to(*command);
    command->callback([args, &result] { run_seed(*args, result); });
}

} // namespace sim
