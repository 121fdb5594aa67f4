/// lvt_sim merge: one report of what several runs of lvt_sim seeds told.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include <fmt/format.h>

#include "sim/commands.h"
#include "sim/report.h"

namespace sim {

namespace {

struct merge_args_t {
    std::vector<std::string> files;
    bool json = false;
};

void read_lines(merge_t &merge, std::istream &stream, const std::string &name)
{
    std::string line;
    for (unsigned number = 1; std::getline(stream, line); number++)
        try {
            merge.add_line(line);
        } catch (const std::exception &error) {
            throw faults_t(fmt::format("{}:{}:1: {}", name, number, error.what()));
        }
    if (stream.bad())
        throw could_not_t(fmt::format("cannot read {}: {}", name, std::strerror(errno)));
}

void run_merge(const merge_args_t &args, result_t &result)
{
    merge_t merge;
    if (args.files.empty())
        read_lines(merge, std::cin, "standard input");
    for (const std::string &name : args.files) {
        std::ifstream file(name);
        if (!file)
            throw could_not_t(fmt::format("cannot read {}: {}", name, std::strerror(errno)));
        read_lines(merge, file, name);
    }
    const report_t report = merge.whole();
    fmt::print("{}", args.json ? report_json(report) : report_text(report));
    if (!report.failures.empty())
        result.code = EXIT_NOT_HELD;
}

} // namespace

void add_merge_command(CLI::App &app, result_t &result)
{
    auto *command = app.add_subcommand("merge", "Puts the JSON lines of several runs of \"seeds\" together");
    command->footer(
        "Each seed counts once: ranges that overlap are refused.\n"
        "Example, with GNU parallel, on the hosts of a list, ten ranges of a thousand seeds each:\n"
        "  seq 1 1000 9001 | parallel --sshloginfile hosts 'lvt_sim seeds {}..$(({} + 999)) -j' |\n"
        "      lvt_sim merge");
    auto args = std::make_shared<merge_args_t>();
    command->add_option("FILE", args->files, "Files of JSON lines, by default standard input")->type_name("");
    command->add_flag("-j,--json", args->json, "JSON lines again");
    command->callback([args, &result] { run_merge(*args, result); });
}

} // namespace sim
