/// lvt_sim, the network simulator: plays networks of whole switches and judges what they do.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>
#include <string_view>

#include <fmt/format.h>

#include "sim/commands.h"
#include "tools/printable.h"

namespace sim {

void flush_output()
{
    if (std::fflush(stdout) != 0)
        throw could_not_t(fmt::format("cannot write to standard output: {}", std::strerror(errno)));
}

} // namespace sim

namespace {

using namespace sim;

/// What was said until then comes first, also where both streams lead to the same place.
void complain(const std::string &text)
{
    std::fflush(stdout);
    std::fputs(printable(text + "\n").c_str(), stderr);
}

/// Help, a version or a fault of the command line, as the parser words them.
exit_code_t tell(const CLI::App &app, const CLI::ParseError &error)
{
    std::ostringstream out, fault;
    const bool done = app.exit(error, out, fault) == 0;
    fmt::print("{}", out.str());
    std::fputs(printable(fault.str()).c_str(), stderr);
    return done ? EXIT_HELD : EXIT_USAGE;
}

/// "help run" is "run --help".
void understand_help(int argc, char **argv)
{
    static char option[] = "--help";
    if (argc < 2 || std::string_view(argv[1]) != "help")
        return;
    std::rotate(argv + 1, argv + 2, argv + argc);
    argv[argc - 1] = option;
}

exit_code_t run(int argc, char **argv)
{
    result_t result;
    CLI::App app("Plays networks of whole switches in virtual time and judges what they do", "lvt_sim");
    app.require_subcommand(0, 1);
    app.set_version_flag("--version", LVT_VERSION, "Print the version and exit");
    app.footer(
        "Each command has a --help of its own, with examples.\n"
        "Exit status: 0 all that was judged held; 1 something did not; 2 the command line or a file was not\n"
        "understood; 3 a file or the output could not be used.");
    app.final_callback([&app] {
        if (app.get_subcommands().empty())
            throw CLI::RequiredError("A command");
    });
    add_run_command(app, result);
    add_seeds_command(app, result);
    add_merge_command(app, result);
    add_promises_command(app, result);
#ifdef LVT_PLAY
    add_shrink_command(app, result);
    add_play_command(app, result);
    add_settle_command(app, result);
    add_cost_command(app, result);
#endif
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        result.code = tell(app, error);
    }
    flush_output();
    return result.code;
}

} // namespace

int main(int argc, char **argv)
{
    understand_help(argc, argv);
    try {
        return run(argc, argv);
    } catch (const faults_t &faults) {
        complain(faults.what());
        return EXIT_USAGE;
    } catch (const usage_t &error) {
        complain(fmt::format("lvt_sim: {}\nRun with --help for more information.", error.what()));
        return EXIT_USAGE;
    } catch (const std::exception &error) {
        complain(fmt::format("lvt_sim: {}", error.what()));
    }
    return EXIT_COULD_NOT;
}
