/// lvt_rstpctl, the operator's tool: sets up and watches the spanning tree daemon through its pipes and
/// its status file.
#include <cstdio>
#include <cstdlib>
#include <exception>

#include <fmt/format.h>
#include <unistd.h>

#include "tools/ctl/cli.h"

namespace {

enum exit_code_t { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

void trim_slashes(std::string &path)
{
    while (path.ends_with('/'))
        path.pop_back();
}

bool is_colour_wanted(const std::string &when)
{
    if (when == "auto")
        return isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR");
    return when == "always";
}

void add_global_options(CLI::App &app, ctl_t &ctl, std::string &colour)
{
    app.add_option("--root", ctl.root, "Look for the daemon's pipes and files under DIR instead of /")
        ->type_name("DIR");
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
    fmt::print(stderr, "{}\n", text);
}

} // namespace

int main(int argc, char **argv)
{
    ctl_t ctl;
    std::string colour = "auto";
    CLI::App app("Sets up and watches the spanning tree daemon of the switch", "lvt_rstpctl");
    app.fallthrough();
    app.require_subcommand(0, 1); // words after a command that name another one are the command's own
    add_global_options(app, ctl, colour);
    app.footer("Each command has a --help of its own, with examples.\n"
               "Exit status: 0 done; 1 refused (a value that is not allowed, no daemon that takes it) or not so;\n"
               "2 the command line was not understood.\n"
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

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    } catch (const usage_t &error) {
        complain(fmt::format("{}\nRun with --help for more information.", error.what()));
        return EXIT_USAGE;
    } catch (const faults_t &faults) {
        complain(faults.what());
        return EXIT_REFUSED;
    } catch (const std::exception &error) {
        complain(fmt::format("lvt_rstpctl: {}", error.what()));
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}
