/// lvt_sim, the network simulator: plays networks of whole switches and judges what they do.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include <fmt/format.h>

#include "sim/commands.h"
#include "tools/command_line.h"

namespace sim {

void flush_output()
{
    if (std::fflush(stdout) != 0)
        throw could_not_t(fmt::format("cannot write to standard output: {}", std::strerror(errno)));
}

} // namespace sim

namespace {

using namespace sim;

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
        result.code = tell(app, error) ? EXIT_HELD : EXIT_USAGE;
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
