/// The commands around the configuration file: check, apply, set.
#include <functional>
#include <memory>

#include <fmt/format.h>

#include "tools/ctl/apply.h"
#include "tools/ctl/arguments.h"
#include "tools/ctl/cli.h"
#include "tools/ctl/config_file.h"
#include "tools/ctl/confirm.h"

namespace {

/// Returns the command, and where it has its file.
std::pair<CLI::App *, std::shared_ptr<std::string>> add_file_command(CLI::App &app, const char *name, const char *text,
                                                                     const char *footer)
{
    auto *command = app.add_subcommand(name, text)->group(HEADING_CONFIGURE);
    command->footer(footer);
    auto path = std::make_shared<std::string>();
    command->add_option("FILE", *path, fmt::format("The configuration file, by default {}", CONFIG_FILE))
        ->type_name("");
    return {command, path};
}

void add_check_command(CLI::App &app, const ctl_t &ctl)
{
    const auto [command, path] = add_file_command(app, "check", "Checks a configuration file",
                                                  "Every fault is told with its line and column. Nothing is sent.\n"
                                                  "Example:\n"
                                                  "  lvt_rstpctl check switch.toml");
    auto json = std::make_shared<bool>();
    command->add_flag("-j,--json", *json, "JSON, one document, also of a sound file");
    command->callback([path = path, json, &ctl] { check_config(place_of(ctl, *path), *json); });
}

void add_confirm_option(CLI::App &command, std::string &seconds)
{
    command.add_option("--confirm", seconds, "Go back after so long unless lvt_rstpctl confirm comes")
        ->type_name("SECONDS");
}

confirm_within_t confirm_within(const std::string &seconds)
{
    if (seconds.empty())
        return {};
    return parse_seconds("--confirm", seconds);
}

void add_apply_command(CLI::App &app, const ctl_t &ctl)
{
    const auto [command, path] = add_file_command(
        app, "apply", "Puts a configuration file in force",
        "The file is checked as a whole, then sent. What it does not set goes back to its default; the\n"
        "members of groups stay as they are unless it names some. See lvt_rstp.toml(5).\n"
        "Examples:\n"
        "  lvt_rstpctl apply switch.toml\n"
        "  lvt_rstpctl apply switch.toml --dry-run\n"
        "  lvt_rstpctl apply switch.toml --confirm 60");
    auto seconds = std::make_shared<std::string>();
    add_confirm_option(*command, *seconds);
    auto json = std::make_shared<bool>();
    command->add_flag("-j,--json", *json, "With --dry-run: JSON, one document");
    command->callback([path = path, seconds, json, &ctl] {
        if (*json && !ctl.dry_run)
            throw usage_t("apply: --json goes with --dry-run");
        apply_config(ctl, place_of(ctl, *path), {.confirm = confirm_within(*seconds), .json = *json});
    });
}

void add_confirm_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("confirm", "Lets a change stay that would go back")->group(HEADING_CONFIGURE);
    command->footer(
        "Exit status 1: nothing waits; how the last change ended is told.\n"
        "Example:\n"
        "  lvt_rstpctl confirm");
    command->callback([&ctl] { confirm_change(ctl); });
}

void add_save_command(CLI::App &app, const ctl_t &ctl)
{
    const auto [command, path] =
        add_file_command(app, "save", "Puts what is in force into the configuration file",
                         "Comments and order of the file stay. What the daemon does not report is as it was last sent\n"
                         "by this tool, or as the file has it.\n"
                         "Example:\n"
                         "  lvt_rstpctl save");
    command->callback([path = path, &ctl] { save_config_in_force(ctl, place_of(ctl, *path)); });
}

// ---- set -------------------------------------------------------------------------------

/// How an option's value is checked and written into the file. Throws refused_t or usage_t.
using writer_t = std::string (*)(const std::string &option, const std::string &text);

template <const setting_rule_t &rule>
std::string write_number(const std::string &option, const std::string &text)
{
    return fmt::to_string(parse_setting(option, text, rule));
}

std::string write_flag(const std::string &option, const std::string &text)
{
    return parse_word(option, text, {"off", "on"}) ? "true" : "false";
}

std::string write_path_cost(const std::string &option, const std::string &text)
{
    const unsigned cost = parse_path_cost(option, text);
    return cost ? fmt::to_string(cost) : "\"auto\"";
}

std::string write_point_to_point(const std::string &option, const std::string &text)
{
    const size_t word = parse_word(option, text, {"off", "on", "auto"});
    return word == 2 ? "\"auto\"" : word ? "true" : "false";
}

struct set_option_t {
    const char *names;
    const char *key; ///< in the file
    const char *value;
    const char *text;
    writer_t write;
};

constexpr set_option_t BRIDGE_OPTIONS[] = {
    {"--priority", "priority", "N", "0 to 61440 in steps of 4096; the lowest becomes the root",
     write_number<BRIDGE_PRIORITY>},
    {"--max-age", "max_age", "N", "Seconds that information stays valid, 6 to 40", write_number<MAX_AGE>},
    {"--hello", "hello_time", "N", "Seconds between two BPDUs, 1 or 2", write_number<HELLO_TIME>},
    {"--forward-delay", "forward_delay", "N", "Seconds in each state on the way to forwarding, 4 to 30",
     write_number<FORWARD_DELAY>},
    {"--force-version", "force_version", "N", "2 for RSTP, 0 for STP only", write_number<FORCE_VERSION>},
};

constexpr set_option_t PORT_OPTIONS[] = {
    {"--spanning-tree", "spanning_tree", "on|off", "Whether the port takes part in the spanning tree", write_flag},
    {"--cost,--path-cost", "path_cost", "N|auto", "Path cost, 1 to 200000000; auto or 0: from the speed",
     write_path_cost},
    {"--priority", "priority", "N", "Port priority, 0 to 240 in steps of 16", write_number<PORT_PRIORITY>},
    {"--edge", "edge", "on|off", "Whether a host is expected there", write_flag},
    {"--p2p,--point-to-point", "point_to_point", "on|off|auto",
     "Whether one bridge at most is there; auto: from the duplex", write_point_to_point},
    {"--lacp", "lacp", "on|off", "Whether LACP runs on the port", write_flag},
};

struct set_words_t {
    std::string file;
    std::string confirm;
    std::string ports;
    std::vector<std::string> values; ///< in the order of the options; empty: not named
    bool force = false;
};

std::shared_ptr<set_words_t> add_set_options(CLI::App &command, std::span<const set_option_t> options)
{
    auto args = std::make_shared<set_words_t>();
    args->values.resize(options.size());
    for (size_t i = 0; i < options.size(); i++)
        command.add_option(options[i].names, args->values[i], options[i].text)->type_name(options[i].value);
    command.add_option("--file", args->file, fmt::format("The file to change, by default {}", CONFIG_FILE))
        ->type_name("FILE");
    command.add_flag("--force", args->force,
                     "Even if ports leave the spanning tree that are on, but not in the file, or that cut a loop");
    add_confirm_option(command, args->confirm);
    return args;
}

void run_set(const ctl_t &ctl, const set_words_t &args, std::span<const set_option_t> options,
             const std::vector<std::string> &sections)
{
    std::vector<edit_t> edits;
    for (const std::string &section : sections)
        for (size_t i = 0; i < options.size(); i++)
            if (!args.values[i].empty()) {
                const std::string value = options[i].write(first_name(options[i].names), args.values[i]);
                edits.push_back({section, options[i].key, value});
            }
    if (edits.empty())
        throw usage_t("set: name at least one setting");
    set_in_config(ctl, place_of(ctl, args.file), {edits, args.force, confirm_within(args.confirm)});
}

void add_set_bridge_command(CLI::App &set, const ctl_t &ctl)
{
    auto *command = set.add_subcommand("bridge", "Changes settings of the bridge");
    command->footer(
        "What is not named stays as it is in the file.\n"
        "Example:\n"
        "  lvt_rstpctl set bridge --priority 4096");
    auto args = add_set_options(*command, BRIDGE_OPTIONS);
    command->callback([args, &ctl] { run_set(ctl, *args, BRIDGE_OPTIONS, {"bridge"}); });
}

void add_set_port_command(CLI::App &set, const ctl_t &ctl)
{
    auto *command = set.add_subcommand("port", "Changes settings of one or more ports");
    command->footer(
        "What is not named stays as it is in the file. LIST is a port, or several as in 1,3-5, or all.\n"
        "Example:\n"
        "  lvt_rstpctl set port 1-3 --spanning-tree on --edge off");
    auto args = add_set_options(*command, PORT_OPTIONS);
    command->add_option("LIST", args->ports, "Ports, 1 to 6")->type_name("")->required();
    command->callback([args, &ctl] {
        std::vector<std::string> sections;
        for (const unsigned port : parse_ports("LIST", args->ports))
            sections.push_back(fmt::format("port.{}", port));
        run_set(ctl, *args, PORT_OPTIONS, sections);
    });
}

} // namespace

void add_config_commands(CLI::App &app, const ctl_t &ctl)
{
    add_check_command(app, ctl);
    add_apply_command(app, ctl);

    auto *set = app.add_subcommand("set", "Changes settings of the configuration file and applies it");
    set->group(HEADING_CONFIGURE);
    set->require_subcommand(1);
    set->footer(
        "Comments and order of the file stay. A file that is not there is made.\n"
        "The daemon then gets the whole file, so nothing is done if ports take part in the spanning\n"
        "tree now that are not in the file, or if one is to go off that cuts a loop; --force does it all\n"
        "the same.\n"
        "Examples:\n"
        "  lvt_rstpctl set bridge --priority 4096\n"
        "  lvt_rstpctl set port 3 --cost 2000000 --edge off");
    add_set_bridge_command(*set, ctl);
    add_set_port_command(*set, ctl);
    add_confirm_command(app, ctl);
    add_save_command(app, ctl);
}
