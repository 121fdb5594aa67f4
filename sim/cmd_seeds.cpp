/// lvt_sim seeds: a range of networks, judged.
#include <chrono>
#include <memory>
#include <thread>

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "sim/campaign.h"
#include "sim/commands.h"
#include "sim/report.h"

namespace sim {

namespace {

struct seeds_args_t {
    std::string range, jobs;
    bool json = false;
    wish_words_t wishes;
};

/// A bar on standard error, where that is a terminal.
class bar_t {
public:
    explicit bar_t(uint64_t seeds) : seeds_(seeds), shown_(isatty(STDERR_FILENO)) {}
    ~bar_t()
    {
        if (shown_)
            fmt::print(stderr, "\r\033[K");
    }

    void show(uint64_t done, uint64_t switch_seconds)
    {
        if (!shown_)
            return;
        constexpr uint64_t WIDTH = 30;
        const auto full = static_cast<int>(WIDTH * done / seeds_);
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
        fmt::print(stderr, "\r[{:<30}] {}/{} seeds, {:.0f} seeds/s, {:.0f} switch-seconds/s\033[K",
                   std::string(static_cast<size_t>(full), '#'), done, seeds_, static_cast<double>(done) / seconds,
                   static_cast<double>(switch_seconds) / seconds);
    }

private:
    uint64_t seeds_;
    bool shown_;
    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

void run_seeds(const seeds_args_t &args, result_t &result)
{
    const size_t dots = args.range.find("..");
    if (dots == std::string::npos)
        throw usage_t(fmt::format("\"{}\" is no range as in 1..1000", args.range));
    const uint64_t first = parse_whole("the first seed", args.range.substr(0, dots));
    const uint64_t last = parse_whole("the last seed", args.range.substr(dots + 2));
    if (first == 0 || last < first || last == UINT64_MAX)
        throw usage_t(fmt::format("{} to {} is no range of seeds: the first is at least 1", first, last));
    uint64_t jobs = std::max(1u, std::thread::hardware_concurrency());
    if (!args.jobs.empty())
        jobs = parse_whole("--jobs", args.jobs);
    if (jobs < 1 || jobs > 1024)
        throw usage_t(fmt::format("--jobs: {} is not between 1 and 1024", jobs));

    report_t report;
    {
        bar_t bar(last - first + 1);
        report = try_seeds(first, last, static_cast<unsigned>(jobs), args.wishes.wishes(),
                           [&](uint64_t done, uint64_t switch_seconds) { bar.show(done, switch_seconds); });
    }
    fmt::print("{}", args.json ? report_json(report) : report_text(report, args.wishes.again()));
    if (!report.failures.empty())
        result.code = EXIT_NOT_HELD;
}

} // namespace

void add_seeds_command(CLI::App &app, result_t &result)
{
    auto *command = app.add_subcommand("seeds", "Plays the networks of a range of seeds and judges them");
    command->footer(
        "Each seed that does not hold is told with the commands that play it again and make it smaller.\n"
        "Examples:\n"
        "  lvt_sim seeds 1..2000\n"
        "  lvt_sim seeds 1..100 --shape ring --faults flaps --jobs 1");
    auto args = std::make_shared<seeds_args_t>();
    command->add_option("RANGE", args->range, "The first and the last seed, as in 1..2000")->type_name("")->required();
    command->add_option("--jobs", args->jobs, "Processes, by default as many as there are cores")->type_name("CORES");
    command->add_flag("-j,--json", args->json, "JSON lines, for lvt_sim merge");
    args->wishes.add_to(*command);
    command->callback([args, &result] { run_seeds(*args, result); });
}

} // namespace sim
