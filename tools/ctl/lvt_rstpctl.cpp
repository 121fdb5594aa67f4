/// lvt_rstpctl, the operator's tool: sets up and watches the spanning tree daemon through its pipes and
/// its status file.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/ctl/arguments.h"
#include "tools/ctl/cli.h"
#include "tools/ctl/letters.h"
#include "tools/ctl/linux_bridge.h"
#include "tools/ctl/output.h"
#include "tools/command_line.h"

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
    auto *root = app.add_option("--root", ctl.root, "Look for the daemon's pipes and files under DIR instead of /");
    root->type_name("DIR")->envname("LVT_ROOT");
    app.add_option("--bridge", ctl.bridge, "Speak to the daemon with which lvt_bridge rules this Linux bridge")
        ->type_name("BRIDGE")
        ->excludes(root);
    app.add_option("--state-dir", ctl.bridges, "Where lvt_bridge notes what it rules")
        ->type_name("DIR")
        ->capture_default_str();
    app.add_flag("--dry-run", ctl.dry_run, "Show messages in words and hex instead of sending them");
    app.add_option("--color", colour, "auto (on a terminal, default), always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).description(""));
    app.set_version_flag("--version", LVT_VERSION, "Print the version and exit");
    app.parse_complete_callback([&ctl, &colour] {
        trim_slashes(ctl.root);
        find_bridge(ctl);
        ctl.colour = is_colour_wanted(colour);
    });
}

// ---- words that are shortened, or left out -----------------------------------------------

using words_t = std::vector<std::string>;

/// What show shows; alone, each of them is a command.
const words_t SUBJECTS = {"bridge", "port", "ports", "statistics", "config"};

/// The one of `known` that `word` is, or begins; else the word itself. Throws usage_t when there are several.
///
/// more  the word behind it is one, too, as in "port 1"
std::string whole_word(const std::string &word, const words_t &known, bool more)
{
    words_t found;
    for (const std::string &candidate : known) {
        if (candidate == word)
            return word;
        if (candidate.starts_with(word))
            found.push_back(candidate);
    }
    if (found == words_t{"port", "ports"})
        return found[more ? 0 : 1];
    if (found.size() > 1)
        throw usage_t(fmt::format("\"{}\" may be {}", word, fmt::join(found, ", ")));
    return found.empty() ? word : found.front();
}

words_t commands_of(const CLI::App &app)
{
    words_t names;
    for (const CLI::App *command : app.get_subcommands([](const CLI::App *) { return true; }))
        names.push_back(command->get_name());
    return names;
}

const CLI::App *find_command(const CLI::App &app, const std::string &name)
{
    const auto found = app.get_subcommands([&](const CLI::App *command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

/// An option whose value is the next word.
bool takes_next(const CLI::App &app, const CLI::App &command, const std::string &word)
{
    const CLI::Option *option = command.get_option_no_throw(word);
    if (!option)
        option = app.get_option_no_throw(word);
    return option && option->get_items_expected_max() > 0;
}

/// Words that look, with options of the message of the same name: throws usage_t.
void refuse_settings(const CLI::App &app, const std::string &word, std::span<const std::string> rest)
{
    const CLI::App *message = find_command(*find_command(app, "send"), word);
    for (const std::string &option : rest)
        if (message && option.starts_with("--") && message->get_option_no_throw(option.substr(0, option.find('='))) &&
            !find_command(app, "show")->get_option_no_throw(option))
            throw usage_t(fmt::format("{0} only looks: send {0} {1} sends settings", word, option));
}

/// The command line with whole words, and "show" before what alone is shown. Throws usage_t.
words_t whole_words(const CLI::App &app, words_t words)
{
    const CLI::App *command = &app;
    for (size_t at = 0; at < words.size(); at++) {
        std::string &word = words[at];
        if (word.starts_with('-')) {
            at += takes_next(app, *command, word);
            continue;
        }
        const bool more = at + 1 < words.size() && !words[at + 1].starts_with('-');
        const bool shows = command->get_name() == "show";
        words_t known = shows ? SUBJECTS : commands_of(*command);
        if (command == &app)
            known.insert(known.end(), SUBJECTS.begin(), SUBJECTS.end());
        if (known.empty())
            break;
        word = whole_word(word, known, more);
        if (shows)
            break;
        if (command == &app && std::ranges::count(SUBJECTS, word)) {
            refuse_settings(app, word, std::span(words).subspan(at + 1));
            words.insert(words.begin() + static_cast<std::ptrdiff_t>(at), "show");
            break;
        }
        const CLI::App *next = find_command(*command, word);
        if (!next && command == &app && find_command(*find_command(app, "send"), word))
            throw usage_t(fmt::format("\"{0}\" is no command: send {0} sends a message of it", word));
        if (!next)
            break;
        command = next;
    }
    return words;
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
        "Commands may be shortened as long as one alone begins so, and bridge, ports, port, statistics and config\n"
        "alone show these.\n"
        "Exit status: 0 done, or so; 1 refused, or not so; 2 the command line was not understood; 3 it cannot be\n"
        "told, for no daemon reports or takes anything.\n"
        "Examples, to speak to the daemon of a Linux bridge, which goes without saying where there is just one, and\n"
        "to that of a board that runs in a namespace of its own:\n"
        "  lvt_rstpctl --bridge br0 show\n"
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
        words_t words = with_known_letters(whole_words(app, words_t(argv + std::min(argc, 1), argv + argc)));
        std::ranges::reverse(words); // as the parser takes them
        app.parse(words);
    } catch (const CLI::ParseError &error) {
        code = tell(app, error) ? EXIT_DONE : EXIT_USAGE;
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
