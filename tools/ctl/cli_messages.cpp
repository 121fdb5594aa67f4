/// The commands that set the bridge, the ports, the groups and LACP by one control message each, from
/// the command line alone.
#include <memory>
#include <span>

#include <fmt/format.h>

#include "tools/ctl/apply.h"
#include "tools/ctl/arguments.h"
#include "tools/ctl/cli.h"
#include "tools/ctl/memory.h"
#include "tools/ctl/send.h"
#include "tools/messages.h"
#include "tools/words.h"

namespace {

/// A message without a setting would take everything back to its default, which nobody means who only
/// forgets a word.
void demand_setting(const CLI::App &command)
{
    for (const CLI::Option *option : command.get_options())
        if (option->count() > 0 && !option->check_name("--no-groups"))
            return;
    throw usage_t(fmt::format("send {}: name at least one setting", command.get_name()));
}

// ---- bridge ----------------------------------------------------------------------------

struct bridge_args_t {
    std::string priority = fmt::to_string(LVT_RSTP_SYSTEM_DEFAULTS.bridge_priority);
    std::string max_age = fmt::to_string(LVT_RSTP_SYSTEM_DEFAULTS.max_age);
    std::string hello_time = fmt::to_string(LVT_RSTP_SYSTEM_DEFAULTS.hello_time);
    std::string forward_delay = fmt::to_string(LVT_RSTP_SYSTEM_DEFAULTS.forward_delay);
    std::string force_version = fmt::to_string(LVT_RSTP_SYSTEM_DEFAULTS.force_version);
};

lvt_rstp_system_config_t system_config_of(const bridge_args_t &args)
{
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.bridge_priority = static_cast<uint16_t>(parse_setting("--priority", args.priority, BRIDGE_PRIORITY));
    config.max_age = static_cast<uint16_t>(parse_setting("--max-age", args.max_age, MAX_AGE));
    config.hello_time = static_cast<uint16_t>(parse_setting("--hello", args.hello_time, HELLO_TIME));
    config.forward_delay = static_cast<uint16_t>(parse_setting("--forward-delay", args.forward_delay, FORWARD_DELAY));
    config.force_version = static_cast<uint8_t>(parse_setting("--force-version", args.force_version, FORCE_VERSION));
    const std::string fault = fault_of_times(config.max_age, config.hello_time, config.forward_delay);
    if (!fault.empty())
        throw refused_t(fault);
    return config;
}

void add_bridge_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("bridge", "Sets the bridge");
    command->footer(
        "What is not named goes back to its default.\n"
        "The times must go together: 2 * (forward delay - 1) >= max age >= 2 * (hello + 1).\n"
        "Example, to become the root quickly:\n"
        "  lvt_rstpctl send bridge --priority 4096 --max-age 6 --hello 1 --forward-delay 4");

    auto args = std::make_shared<bridge_args_t>();
    const auto option = [&](const char *name, std::string &value, const char *text) {
        command->add_option(name, value, text)->type_name("N")->capture_default_str();
    };
    option("--priority", args->priority, "0 to 61440 in steps of 4096; the lowest becomes the root");
    option("--max-age", args->max_age, "Seconds that information stays valid, 6 to 40");
    option("--hello", args->hello_time, "Seconds between two BPDUs, 1 or 2");
    option("--forward-delay", args->forward_delay, "Seconds in each state on the way to forwarding, 4 to 30");
    option("--force-version", args->force_version, "2 for RSTP, 0 for STP only");
    command->callback([args, command, &ctl] {
        demand_setting(*command);
        const lvt_rstp_system_config_t config = system_config_of(*args);
        send_message(
            ctl, system_config_message(config),
            fmt::format("bridge priority {}, max age {} s, hello time {} s, forward delay {} s, force version {}",
                        config.bridge_priority, config.max_age, config.hello_time, config.forward_delay,
                        config.force_version));
        remember(ctl, [&](settings_t &sent) { sent.bridge = config; });
    });
}

// ---- settings that ports and groups share ----------------------------------------------

void set_path_cost(lvt_rstp_port_config_t &config, const std::string &text)
{
    config.adminPathCost = parse_path_cost("--cost", text);
}

void set_priority(lvt_rstp_port_config_t &config, const std::string &text)
{
    config.port_priority = static_cast<uint16_t>(parse_setting("--priority", text, PORT_PRIORITY));
}

void set_edge(lvt_rstp_port_config_t &config, const std::string &text)
{
    config.adminEdge = static_cast<uint8_t>(parse_word("--edge", text, {"off", "on"}));
}

void set_point_to_point(lvt_rstp_port_config_t &config, const std::string &text)
{
    config.adminPointToPoint = static_cast<uint8_t>(parse_word("--p2p", text, {"on", "off", "auto"}));
}

struct record_option_t {
    const char *names;
    const char *value; ///< as the help shows it
    const char *text;
    void (*set)(lvt_rstp_port_config_t &config, const std::string &text);
};

/// Those that groups have, too, come first: a group's edge the daemon takes from its members.
constexpr record_option_t RECORD_OPTIONS[] = {
    {"--cost,--path-cost", "VALUE", "Path cost, 1 to 200000000; auto or 0, the default: from the speed", set_path_cost},
    {"--priority", "VALUE", "Port priority, 0 to 240 in steps of 16, default 128", set_priority},
    {"--p2p,--point-to-point", "on|off|auto", "Whether one bridge at most is there, default auto (from the duplex)",
     set_point_to_point},
    {"--edge", "on|off", "Whether a host is expected there, default on", set_edge},
};
constexpr std::span<const record_option_t> GROUP_RECORD_OPTIONS = std::span(RECORD_OPTIONS).first(3);

// ---- ports -----------------------------------------------------------------------------

struct ports_args_t {
    std::string enable;
    std::vector<std::string> assignments[std::size(RECORD_OPTIONS)]; ///< in the order of RECORD_OPTIONS
    bool no_groups = false;
};

std::string port_form(const record_option_t &setting) { return fmt::format("LIST={}", setting.value); }

port_configs_t port_configs_of(const ports_args_t &args)
{
    port_configs_t configs = default_port_configs();
    if (!args.enable.empty())
        for (const unsigned port : parse_ports_or_none("--enable", args.enable))
            configs[port].adminEnable = 1;

    for (size_t i = 0; i < std::size(RECORD_OPTIONS); i++)
        for (const std::string &text : args.assignments[i]) {
            const record_option_t &setting = RECORD_OPTIONS[i];
            const std::string option = first_name(setting.names);
            const assignment_t assignment = parse_assignment(option, text, port_form(setting));
            for (const unsigned port : parse_ports(option, assignment.left))
                setting.set(configs[port], assignment.right);
        }
    return configs;
}

void add_ports_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("ports", "Sets all six ports");
    command->footer(
        "One message sets all ports: a port that --enable does not name leaves the spanning tree,\n"
        "and what is not named goes back to its default. LIST is ports as in 2 or 1,3-5, or all.\n"
        "While some are on and others off it takes two messages to keep BPDUs trapped.\n"
        "Example, three ports of which the third leads to another bridge over a slow line:\n"
        "  lvt_rstpctl send ports --enable 1,2,3 --cost 3=2000000 --edge 3=off");

    auto args = std::make_shared<ports_args_t>();
    command->add_option("--enable", args->enable, "Ports that take part in the spanning tree")->type_name("LIST|none");
    for (size_t i = 0; i < std::size(RECORD_OPTIONS); i++)
        command->add_option(RECORD_OPTIONS[i].names, args->assignments[i], RECORD_OPTIONS[i].text)
            ->type_name(port_form(RECORD_OPTIONS[i]))
            ->allow_extra_args(false);
    command->add_flag("--no-groups", args->no_groups, "Leave queued group work queued (type 9 instead of 5)");
    command->callback([args, command, &ctl] {
        demand_setting(*command);
        send_ports(ctl, port_configs_of(*args), args->no_groups);
    });
}

// ---- aggr-config -----------------------------------------------------------------------

struct aggr_args_t {
    bool enable = false;
    std::string values[GROUP_RECORD_OPTIONS.size()]; ///< in the order of GROUP_RECORD_OPTIONS
};

lvt_rstp_port_config_t aggr_config_of(const aggr_args_t &args)
{
    lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
    config.adminEnable = args.enable;
    for (size_t i = 0; i < GROUP_RECORD_OPTIONS.size(); i++)
        if (!args.values[i].empty())
            GROUP_RECORD_OPTIONS[i].set(config, args.values[i]);
    return config;
}

void add_aggr_config_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("aggr-config", "Sets what the groups 7, 8 and 9 have in common");
    command->footer(
        "What is not named goes back to its default. A group is edge when all its members are.\n"
        "Example, groups take part and are preferred to single ports:\n"
        "  lvt_rstpctl send aggr-config --enable --cost 10000");

    auto args = std::make_shared<aggr_args_t>();
    command->add_flag("--enable,!--disable", args->enable, "Groups take part in the spanning tree, or do not");
    for (size_t i = 0; i < GROUP_RECORD_OPTIONS.size(); i++)
        command->add_option(GROUP_RECORD_OPTIONS[i].names, args->values[i], GROUP_RECORD_OPTIONS[i].text)
            ->type_name(GROUP_RECORD_OPTIONS[i].value);
    command->callback([args, command, &ctl] {
        demand_setting(*command);
        const lvt_rstp_port_config_t config = aggr_config_of(*args);
        send_message(ctl, aggr_config_message(config),
                     fmt::format("all groups: spanning tree {}, path cost {}, priority {}, point-to-point {}",
                                 on_off(config.adminEnable), path_cost_word(config.adminPathCost),
                                 uint16_t{config.port_priority}, point_to_point_word(config.adminPointToPoint)));
        remember(ctl, [&](settings_t &sent) { sent.ports[0] = config; });
    });
}

// ---- groups ----------------------------------------------------------------------------

constexpr char GROUP_FORM[] = "G=LIST";

/// "group 7 of port 1,2; 3-6 alone"
std::string groups_text(const aggr_status_t &groups)
{
    std::string text;
    std::vector<unsigned> alone;
    for (auto group = static_cast<unsigned>(GROUP.min); group <= GROUP.max; group++) {
        std::vector<unsigned> members;
        for (unsigned port = 1; port <= FRONT_PORTS; port++)
            if (groups[port] == group)
                members.push_back(port);
        if (!members.empty())
            text += fmt::format("group {} of port {}; ", group, ports_text(members));
    }
    for (unsigned port = 1; port <= FRONT_PORTS; port++)
        if (groups[port] == port)
            alone.push_back(port);
    if (text.empty())
        return "all ports alone";
    return text + (alone.empty() ? "none alone" : ports_text(alone) + " alone");
}

aggr_status_t aggr_status_of(const std::vector<std::string> &assignments)
{
    aggr_status_t groups = AGGR_STATUS_ALONE;
    for (const std::string &text : assignments) {
        const assignment_t assignment = parse_assignment("GROUP", text, GROUP_FORM);
        const int64_t group = parse_setting("GROUP", assignment.left, GROUP);
        for (const unsigned port : parse_ports("GROUP", assignment.right)) {
            if (groups[port] != port)
                throw refused_t(fmt::format("port {} is named twice: it belongs to one group at most", port));
            groups[port] = static_cast<uint8_t>(group);
        }
    }
    return groups;
}

} // namespace

CLI::App *add_groups_command(CLI::App &app, const ctl_t &ctl)
{
    const std::string parent = app.get_parent() ? app.get_name() + " " : "";
    auto *command = app.add_subcommand("groups", "Joins ports into the groups 7, 8 and 9");
    command->footer(
        fmt::format("One message tells of all groups: a port that is not named stands alone. With none all\n"
                    "groups are dissolved.\n"
                    "Example, two groups of two ports:\n"
                    "  lvt_rstpctl {}groups 7=1,2 8=3,4",
                    parent));

    auto assignments = std::make_shared<std::vector<std::string>>();
    command->add_option("GROUP", *assignments, "A group, 7 to 9, and its ports; or none")->type_name(GROUP_FORM);
    command->callback([assignments, parent, &ctl] {
        if (assignments->empty())
            throw usage_t(fmt::format("{}groups: name at least one group, or none", parent));
        const aggr_status_t groups =
            *assignments == std::vector<std::string>{"none"} ? AGGR_STATUS_ALONE : aggr_status_of(*assignments);
        send_message(ctl, aggr_status_message(groups), groups_text(groups));
        remember(ctl, [&](settings_t &sent) {
            sent.groups = groups;
            sent.groups_stated = true;
        });
    });
    return command;
}

// ---- lacp ------------------------------------------------------------------------------

namespace {

void add_lacp_command(CLI::App &app, const ctl_t &ctl)
{
    auto *command = app.add_subcommand("lacp", "Tells on which ports LACP runs");
    command->footer(
        "A port that --enable does not name runs no LACP. The spanning tree leaves the state of a\n"
        "port alone while LACP runs there and spanning tree does not.\n"
        "Example:\n"
        "  lvt_rstpctl send lacp --enable 1,2");

    auto enable = std::make_shared<std::string>();
    command->add_option("--enable", *enable, "Ports with LACP")->type_name("LIST|none");
    command->callback([enable, command, &ctl] {
        demand_setting(*command);
        lacp_enables_t enables{};
        if (!enable->empty())
            for (const unsigned port : parse_ports_or_none("--enable", *enable))
                enables[port - 1] = 1;
        send_message(ctl, lacp_enable_message(enables),
                     on_at_text("LACP", [&](unsigned port) { return enables[port - 1] != 0; }));
        remember(ctl, [&](settings_t &sent) { sent.lacp = enables; });
    });
}

} // namespace

void add_message_commands(CLI::App &app, const ctl_t &ctl)
{
    auto *send = app.add_subcommand("send", "Sends settings of one kind, without the file")->group(HEADING_TEST);
    send->require_subcommand(1);
    send->footer(
        "No file is read or written, and what is not named goes back to its default: set and apply are the\n"
        "way to set a switch up.\n"
        "Example:\n"
        "  lvt_rstpctl send bridge --priority 4096");
    add_bridge_command(*send, ctl);
    add_ports_command(*send, ctl);
    add_aggr_config_command(*send, ctl);
    add_groups_command(*send, ctl);
    add_lacp_command(*send, ctl);
}
