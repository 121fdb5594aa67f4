/// lvt_rstpctl, the operator's tool: sets up the spanning tree daemon through its pipes.
#include <cstdio>
#include <exception>

#include "tools/ctl.h"

namespace {

enum exit_code_t { EXIT_DONE = 0, EXIT_REFUSED = 1, EXIT_USAGE = 2 };

void trim_slashes(std::string &path)
{
    while (path.ends_with('/'))
        path.pop_back();
}

} // namespace

int main(int argc, char **argv)
{
    ctl_t ctl;
    CLI::App app("Sets up the spanning tree daemon of the switch", "lvt_rstpctl");
    app.fallthrough();
    app.add_option("--root", ctl.root, "Look for the daemon's pipes under DIR instead of /")->type_name("DIR");
    app.add_flag("--dry-run", ctl.dry_run, "Show the message in words and hex instead of sending it");
    app.footer("Exit status: 0 done; 1 refused (a value that is not allowed, no daemon that takes it);\n"
               "2 the command line was not understood.\n"
               "Example, to speak to a board that runs in a namespace of its own:\n"
               "  lvt_rstpctl --root /proc/PID/root bridge --priority 4096");
    app.parse_complete_callback([&ctl] { trim_slashes(ctl.root); });
    app.final_callback([&app] {
        if (app.get_subcommands().empty())
            throw CLI::RequiredError("A command");
    });
    add_settings_commands(app, ctl);
    add_debug_command(app, ctl);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? EXIT_DONE : EXIT_USAGE;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "lvt_rstpctl: %s\n", error.what());
        return EXIT_REFUSED;
    }
    return EXIT_DONE;
}
