/// lvt_rstpctl, the operator's tool: sets up and watches the spanning tree daemon through its pipes and
/// its status file.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <string_view>

#include <fmt/format.h>

#include "tools/ctl/arguments.h"
#include "tools/ctl/cli.h"
#include "tools/ctl/letters.h"
#include "tools/ctl/output.h"
#include "tools/printable.h"

namespace {

enum exit_code_t { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2, EXIT_UNTOLD = 3 };

void trim_slashes(std::string &path)
{
    while (path.ends_with('/'))
        path.pop_back();
}

bool is_colour_wanted(const std::string &when)
{
    const char *no_colour = std::getenv("NO_COLOR");
    if (when == "auto")
        return screen() && !(no_colour && *no_colour);
    return when == "always";
}

void add_global_options(CLI::App &app, ctl_t &ctl, std::string &colour)
{
    app.add_option("--root", ctl.root, "Look for the daemon's pipes and files under DIR instead of /")
        ->type_name("DIR")
        ->envname("LVT_ROOT");
    app.add_flag("--dry-run", ctl.dry_run, "Show messages in words and hex instead of sending them");
    app.add_option("--color", colour, "auto (on a terminal, default), always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    app.set_version_flag("--version", LVT_VERSION, "Print the version and exit");
    app.parse_complete_callback([&ctl, &colour] {
        trim_slashes(ctl.root);
        ctl.colour = is_colour_wanted(colour);
    });
}

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
    return done ? EXIT_DONE : EXIT_USAGE;
}

/// "help show port" is "show port --help".
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
    ctl_t ctl;
    std::string colour = "auto";
    CLI::App app("Sets up and watches the spanning tree daemon of the switch", "lvt_rstpctl");
    app.fallthrough();
    app.require_subcommand(0, 1); // words after a command that name another one are the command's own
    add_global_options(app, ctl, colour);
    app.footer(
        "Each command has a --help of its own, with examples.\n"
        "Exit status: 0 done; 1 refused (a value that is not allowed, no daemon that takes it) or not so;\n"
        "2 the command line was not understood; 3 the daemon does not report, so that nobody can tell.\n"
        "Example, to speak to a board that runs in a namespace of its own:\n"
        "  lvt_rstpctl --root /proc/PID/root show");
    app.final_callback([&app] {
        if (app.get_subcommands().empty())
            throw CLI::RequiredError("A command");
    });
    add_status_commands(app, ctl);
    add_config_commands(app, ctl);
    add_message_commands(app, ctl);
    add_lab_commands(app, ctl);

    exit_code_t code = EXIT_DONE;
    try {
        refuse_empty_arguments(argc, argv);
        std::vector<std::string> words = with_known_letters({argv + 1, argv + argc});
        std::ranges::reverse(words); // as the parser takes them
        app.parse(words);
    } catch (const CLI::ParseError &error) {
        code = tell(app, error);
    }
    flush_output();
    return code;
}

} // namespace

int main(int argc, char **argv)
{
    understand_help(argc, argv);
    try {
        return run(argc, argv);
    } catch (const usage_t &error) {
        complain(fmt::format("{}\nRun with --help for more information.", error.what()));
        return EXIT_USAGE;
    } catch (const faults_t &faults) {
        complain(faults.what());
    } catch (const untold_t &untold) {
        complain(fmt::format("lvt_rstpctl: {}", untold.what()));
        return EXIT_UNTOLD;
    } catch (const std::exception &error) {
        complain(fmt::format("lvt_rstpctl: {}", error.what()));
    }
    return EXIT_REFUSED;
}
