/// lvt_rstpctl as its user meets it: what its commands for single messages write, say and return.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tools_ctl.h"

namespace {

std::vector<uint8_t> text_octets(const std::string &text) { return {text.begin(), text.end()}; }

} // namespace

TEST_F(ctl, bridge_sends_what_is_named_and_defaults_for_the_rest)
{
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    expect_sends("send bridge --priority 32768", system_config_message(config));

    config.bridge_priority = 4096;
    config.force_version = 0;
    expect_sends("send bridge --priority 4096 --force-version 0", system_config_message(config),
                 "bridge priority 4096, max age 20 s, hello time 2 s, forward delay 15 s, force version 0");

    config = {
        .bridge_priority = 0, .max_age = 6, .hello_time = 1, .forward_delay = 4, .force_version = 2, .reserved = 0};
    expect_sends("send bridge --priority 0 --max-age 6 --hello 1 --forward-delay 4", system_config_message(config));
}

TEST_F(ctl, bridge_keeps_to_the_standard)
{
    expect_refused("send bridge --priority 4097", "bridge priority 4097: allowed is 0 to 61440 in steps of 4096");
    expect_refused("send bridge --priority 65536", "bridge priority 65536: allowed is 0 to 61440 in steps of 4096");
    expect_refused("send bridge --max-age 41", "max age 41: allowed is 6 to 40 s");
    expect_refused("send bridge --hello 0", "hello time 0: allowed is 1 or 2 s");
    expect_refused("send bridge --forward-delay 3", "forward delay 3: allowed is 4 to 30 s");
    expect_refused("send bridge --force-version 3", "force version 3: allowed is 0 or 2");
    expect_refused("send bridge --max-age 30",
                   "max age 30 s is too long for forward delay 15 s: at most 2 * (15 - 1) = 28 s");
}

TEST_F(ctl, ports_sends_one_record_a_port)
{
    port_configs_t configs = default_port_configs();
    expect_sends("send ports --enable none", port_config_message(configs), "spanning tree off at all ports");

    // While some are on and some off, the last port that changes has to be one that is on.
    const auto twice = [](const port_configs_t &wanted, auto message) {
        port_configs_t marked = wanted;
        marked[1].reserved[0] = 1;
        std::vector<uint8_t> octets = port_config_only_message(marked);
        const std::vector<uint8_t> last = message(wanted);
        octets.insert(octets.end(), last.begin(), last.end());
        return octets;
    };
    configs[1].adminEnable = configs[2].adminEnable = configs[6].adminEnable = 1;
    expect_sends("send ports --enable 1,2,6", twice(configs, port_config_message),
                 "spanning tree on at port 1,2,6, off at 3-5; in two messages, so that BPDUs stay trapped");
    expect_sends("send ports --enable 1-2,6", twice(configs, port_config_message));

    configs[2].adminPathCost = 200'000'000;
    configs[3].adminPathCost = 7;
    configs[3].port_priority = 240;
    configs[4].adminEdge = configs[5].adminEdge = 0;
    configs[5].adminPointToPoint = 0;
    configs[6].adminPointToPoint = 1;
    const std::string settings =
        " --enable 1,2,6 --cost 2=200000000 --cost 3=7 --priority 3=240 --edge 4-5=off"
        " --edge 1=on --p2p 5=on --p2p 6=off --p2p 1=auto";
    expect_sends("send ports" + settings, twice(configs, port_config_message));
    expect_sends("send ports --no-groups" + settings, twice(configs, port_config_only_message));
}

TEST_F(ctl, messages_without_a_setting_are_not_sent)
{
    for (const std::string message : {"bridge", "ports", "aggr-config", "lacp"})
        expect_usage("send " + message, "send " + message + ": name at least one setting");
    expect_usage("send ports --no-groups", "send ports: name at least one setting");
    expect_usage("send groups", "send groups: name at least one group, or none");
    expect_usage("inject groups", "inject groups: name at least one group, or none");
    expect_usage("inject link", "inject link: name at least one link, as in all=down");
    expect_usage("send", "A subcommand is required");
}

TEST_F(ctl, a_noun_alone_changes_nothing)
{
    report(STATUS);
    for (const std::string noun : {"bridge", "ports", "statistics", "port 3"}) {
        expect_says(noun, run_on_board("show " + noun).output);
        EXPECT_EQ(control.read_all().size(), 0u) << noun;
    }
    expect_usage("lacp", "\"lacp\" is no command: send lacp sends a message of it");
    expect_usage("aggr-config --enable", "\"aggr-config\" is no command: send aggr-config sends a message of it");
    EXPECT_EQ(run_on_board("ports --enable 1,2").status, 2);
    EXPECT_EQ(control.read_all().size(), 0u);
}

TEST_F(ctl, words_may_be_shortened)
{
    report(STATUS);
    expect_says("sh po 1", run_on_board("show port 1").output);
    expect_says("sh po", run_on_board("show ports").output);
    expect_says("st", run_on_board("show statistics").output);
    expect_says("po 2 -o", run_on_board("show port 2 -o").output);
    EXPECT_EQ(run("help sen br").output, run("send bridge --help").output);
    expect_sends("sen la --enable 1", lacp_enable_message({1, 0, 0, 0, 0, 0}), "LACP on at port 1, off at 2-6");
    expect_usage("ports --enable 1", "ports only looks: send ports --enable sends settings");
    expect_usage("bridge --priority=0", "bridge only looks: send bridge --priority=0 sends settings");
    EXPECT_EQ(run_on_board("ports --help").status, 0);
    expect_usage("s", "\"s\" may be " + std::string("show, set, save, send, statistics"));
    expect_usage("send b --dance", "The following argument was not expected: --dance");
    expect_usage("inject l", "inject link: name at least one link, as in all=down");
}

TEST_F(ctl, ports_all_are_six)
{
    port_configs_t configs = default_port_configs();
    for (size_t port = 1; port <= FRONT_PORTS; port++)
        configs[port].adminEnable = 1;
    expect_sends("send ports --enable all", port_config_message(configs));
}

TEST_F(ctl, ports_refuses_what_is_no_port_or_setting)
{
    expect_refused("send ports --enable 0", "port 0: allowed is 1 to 6");
    expect_refused("send ports --enable 1,7", "port 7: allowed is 1 to 6");
    expect_refused("send ports --cost 9=1", "port 9: allowed is 1 to 6");
    expect_refused("send ports --cost 1=200000001", "path cost 200000001: allowed is 0 to 200000000");
    expect_refused("send ports --priority 1=17", "port priority 17: allowed is 0 to 240 in steps of 16");
    expect_refused("send ports --enable 1-7", "port 7: allowed is 1 to 6");
    expect_usage("send ports --enable 3-1", "--enable: \"3-1\" runs backwards");
    expect_usage("send ports --enable 1-", "--enable: \"\" is not a number");
    expect_usage("send ports --enable 1,x", "--enable: \"x\" is not a number");
    expect_usage("send ports --enable 1,", "--enable: \"\" is not a number");
    expect_usage("send ports --cost 5", "--cost: \"5\" should read LIST=VALUE");
    expect_usage("send ports --cost 1=", "--cost: \"1=\" should read LIST=VALUE");
    expect_usage("send ports --edge on", "--edge: \"on\" should read LIST=on|off");
    expect_usage("send ports --edge 1=maybe", "--edge: \"maybe\" is none of off, on");
    expect_usage("send ports --p2p 1=2", "--p2p: \"2\" is none of on, off, auto");
}

TEST_F(ctl, aggr_config_sends_one_record)
{
    lvt_rstp_port_config_t config = LVT_RSTP_PORT_DEFAULTS;
    expect_sends("send aggr-config --disable", aggr_config_message(config));

    config = {.adminPathCost = 10000,
              .port_priority = 16,
              .adminEnable = 1,
              .adminEdge = 1,
              .adminPointToPoint = 1,
              .reserved = {}};
    expect_sends("send aggr-config --enable --cost 10000 --priority 16 --p2p off", aggr_config_message(config),
                 "all groups: spanning tree on, path cost 10000, priority 16, point-to-point off");
    expect_refused("send aggr-config --priority 256", "port priority 256: allowed is 0 to 240 in steps of 16");
    expect_usage("send aggr-config --edge off", "The following arguments were not expected: off --edge");
    EXPECT_NE(run("--dry-run send aggr-config --disable")
                  .output.find("  7 to 9  off                 auto       128  -     auto\n"),
              std::string::npos);
}

TEST_F(ctl, groups_sends_the_group_of_each_port)
{
    expect_sends("send groups none", aggr_status_message(AGGR_STATUS_ALONE), "all ports alone");
    expect_sends("send groups 7=1,2 8=3,4", aggr_status_message({0, 7, 7, 8, 8, 5, 6}),
                 "group 7 of port 1,2; group 8 of port 3,4; 5,6 alone");
    expect_sends("send groups 9=all", aggr_status_message({0, 9, 9, 9, 9, 9, 9}));
    expect_refused("send groups 6=1", "group 6: allowed is 7 to 9");
    expect_refused("send groups 7=1,8", "port 8: allowed is 1 to 6");
    expect_refused("send groups 7=1,2 8=2", "port 2 is named twice: it belongs to one group at most");
    expect_usage("send groups 7", "GROUP: \"7\" should read G=LIST");
}

TEST_F(ctl, lacp_sends_an_octet_a_port)
{
    expect_sends("send lacp --enable none", lacp_enable_message({}), "LACP off at all ports");
    expect_sends("send lacp --enable 1,6", lacp_enable_message({1, 0, 0, 0, 0, 1}));
    expect_refused("send lacp --enable 7", "port 7: allowed is 1 to 6");
}

TEST_F(ctl, debug_sends_the_words)
{
    expect_says("debug show rstp_port_status 3",
                "sent: debug show rstp_port_status 3; the answer comes on the board's console\n");
    EXPECT_EQ(debug.read_all(), text_octets("debug show rstp_port_status 3\n"));

    expect_says("debug", "sent: debug; the answer comes on the board's console\n");
    EXPECT_EQ(debug.read_all(), text_octets("debug\n"));
    EXPECT_EQ(control.read_all().size(), 0u);
}

TEST_F(ctl, debug_adds_nothing_to_what_is_unread)
{
    EXPECT_EQ(run_on_board("debug bpdu_filter enable").status, 0);
    const run_t result = run_on_board("debug show bpdu_filter");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "lvt_rstpctl: " + board.path + RSTP_DBG_IF_PIPE +
                                 " holds what the daemon has not read: it hangs or is stopped. Look at what it "
                                 "printed last, and start it again.\n");
    EXPECT_EQ(debug.read_all(), text_octets("debug bpdu_filter enable\n"));
}

TEST_F(ctl, debug_refuses_what_would_end_or_confuse_the_daemon)
{
    expect_refused("debug show rstp_port_status 0", "logical port 0: allowed is 1 to 9");
    expect_refused("debug show rstp_port_status 10", "logical port 10: allowed is 1 to 9");
    expect_refused("debug 'show rstp_port_status 10'", "logical port 10: allowed is 1 to 9");
    for (const char *between : {"\\n", "\\t", "\\r", "\\v"})
        expect_refused(fmt::format("debug \"$(printf 'show rstp_port_status 99{}x')\"", between),
                       "a debug command is one line without control characters");
    expect_refused("debug show rstp_port_status all", "logical port 0: allowed is 1 to 9");
    expect_refused("debug " + std::string(94, 'x'), "a debug command has at most 100 characters, this one has 101");
}

TEST_F(ctl, dry_run_shows_the_message_and_sends_nothing)
{
    const run_t result = run_on_board("send bridge --priority 4096 --force-version 0 --dry-run");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "to " + board.path +
                                 "/tmp/rstp_if_pipe, 26 octets:\n"
                                 "bridge settings (type 3)\n"
                                 "  priority       4096\n"
                                 "  max age        20 s\n"
                                 "  hello time     2 s\n"
                                 "  forward delay  15 s\n"
                                 "  force version  0 (STP only)\n"
                                 "  bc 30 11 82 0a 00 00 00 03 00 0a 00 00 00 00 00\n"
                                 "  00 10 14 00 02 00 0f 00 00 00\n");
    EXPECT_EQ(control.read_all().size(), 0u);
}

TEST_F(ctl, dry_run_of_the_ports)
{
    const run_t result = run("--dry-run send ports --enable none --cost 3=2000000 --edge 3=off --p2p 1=off --p2p 2=on");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output,
              "to /tmp/rstp_if_pipe, 100 octets:\n"
              "port settings (type 5)\n"
              "  port    spanning tree  path cost  priority  edge  point-to-point\n"
              "  1       off                 auto       128  on    off\n"
              "  2       off                 auto       128  on    on\n"
              "  3       off              2000000       128  off   auto\n"
              "  4       off                 auto       128  on    auto\n"
              "  5       off                 auto       128  on    auto\n"
              "  6       off                 auto       128  on    auto\n"
              "  bc 30 11 82 54 00 00 00 05 00 54 00 00 00 00 00\n"
              "  00 00 00 00 80 00 00 01 02 00 00 00 00 00 00 00\n"
              "  80 00 00 01 01 00 00 00 00 00 00 00 80 00 00 01\n"
              "  00 00 00 00 80 84 1e 00 80 00 00 00 02 00 00 00\n"
              "  00 00 00 00 80 00 00 01 02 00 00 00 00 00 00 00\n"
              "  80 00 00 01 02 00 00 00 00 00 00 00 80 00 00 01\n"
              "  02 00 00 00\n");
}

TEST_F(ctl, dry_run_names_every_type)
{
    const auto first_words = [](const std::string &arguments) {
        const std::string output = run("--dry-run " + arguments).output;
        const size_t start = output.find('\n') + 1;
        return output.substr(start, output.find('\n', start) - start);
    };
    EXPECT_EQ(first_words("send groups 7=1"), "groups of ports (type 2)");
    EXPECT_EQ(first_words("send aggr-config --disable"), "settings of all groups (type 4)");
    EXPECT_EQ(first_words("send ports --no-groups --enable none"),
              "port settings, queued group work stays queued (type 9)");
    EXPECT_EQ(first_words("send lacp --enable none"), "LACP on ports (type 10)");
    EXPECT_EQ(first_words("debug show"), "debug command");
}

TEST_F(ctl, dry_run_still_refuses)
{
    expect_refused("--dry-run send bridge --priority 1", "bridge priority 1: allowed is 0 to 61440 in steps of 4096");
}

TEST_F(ctl, root_may_end_in_slashes)
{
    const run_t result = run("--root " + board.path + "// send lacp --enable none");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(control.read_all(), lacp_enable_message({}));
}

TEST_F(ctl, root_may_come_from_the_environment)
{
    const temp_folder_t other;
    setenv("LVT_ROOT", board.path.c_str(), 1);
    run_t result = run("send lacp --enable none");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_EQ(control.read_all(), lacp_enable_message({}));
    result = run("--root " + other.path + " send lacp --enable none");
    EXPECT_EQ(control.read_all().size(), 0u);
    EXPECT_NE(result.output.find(other.path), std::string::npos) << "the option wins: " << result.output;
    setenv("LVT_ROOT", "", 1);
    EXPECT_NE(run("--dry-run send lacp --enable none").output.find("to /tmp/rstp_if_pipe"), std::string::npos);
    unsetenv("LVT_ROOT");
}

TEST_F(ctl, usage_errors_have_a_status_of_their_own)
{
    expect_usage("", "A command is required");
    expect_usage("dance", "The following argument was not expected: dance");
    expect_usage("send bridge --dance", "The following argument was not expected: --dance");
}

TEST_F(ctl, numbers_are_read_in_one_way)
{
    lvt_rstp_system_config_t config = LVT_RSTP_SYSTEM_DEFAULTS;
    config.bridge_priority = 4096;
    expect_sends("send bridge --priority 04096", system_config_message(config));
    expect_sends("send bridge --priority 0x1000", system_config_message(config));
    expect_refused("send bridge --priority 010000", "bridge priority 10000: allowed is 0 to 61440 in steps of 4096");
    expect_refused("send bridge --priority=-4096", "bridge priority -4096: allowed is 0 to 61440 in steps of 4096");
    expect_usage("send bridge --priority x", "--priority: \"x\" is not a number");
    expect_usage("send bridge --priority +4096", "--priority: \"+4096\" is not a number");
    expect_usage("send bridge --priority ' 4096'", "--priority: \" 4096\" is not a number");
    expect_usage("send bridge --priority 99999999999999999999",
                 "--priority: 99999999999999999999 is too large a number");

    port_configs_t configs = default_port_configs();
    expect_sends("send ports --cost 1=auto --cost 2=0", port_config_message(configs), "spanning tree off at all ports");
}

TEST_F(ctl, what_is_empty_is_no_argument)
{
    const auto at = [](int place) { return fmt::format("argument {} is empty: is a variable not set?", place); };
    expect_usage("inject bpdu 1 --hex ''", at(7)); // after --root and its folder
    expect_usage("inject bpdu 1 --capture ''", at(7));
    expect_usage("send ports --enable ''", at(6));
    expect_usage("set port 1 --cost '' --edge on", at(7));
    expect_usage("debug ''", at(4));
    expect_usage("send ports --enable=", "argument 5, --enable=, is empty: is a variable not set?");
    const run_t result = run("--root '' send bridge");
    EXPECT_EQ(result.status, 2) << result.output;
}

TEST_F(ctl, a_board_without_pipes)
{
    const temp_folder_t empty;
    const run_t result = run("--root " + empty.path + " send bridge --priority 0");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "lvt_rstpctl: no pipe at " + empty.path +
                                 "/tmp/rstp_if_pipe: is the daemon's board running? Start it, and then the daemon.\n");
}

TEST_F(ctl, a_board_without_daemon)
{
    close(control.fd);
    control.fd = -1;
    const run_t result = run_on_board("send bridge --priority 0");
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "lvt_rstpctl: no reader on " + control.path + ": is the daemon running? Start it.\n");
}

TEST_F(ctl, help_has_an_example_for_every_command)
{
    for (const char *command : {"",
                                "show",
                                "monitor",
                                "expect",
                                "check",
                                "apply",
                                "confirm",
                                "save",
                                "set",
                                "set bridge",
                                "set port",
                                "send",
                                "send bridge",
                                "send ports",
                                "send aggr-config",
                                "send groups",
                                "send lacp",
                                "inject",
                                "inject link",
                                "inject groups",
                                "inject bpdu",
                                "decode",
                                "debug"}) {
        const run_t result = run(std::string(command) + " --help");
        EXPECT_EQ(result.status, 0) << command;
        EXPECT_NE(result.output.find("Example"), std::string::npos) << command;
        EXPECT_NE(result.output.find(std::string("  lvt_rstpctl ") + command), std::string::npos) << command;
    }
}

TEST_F(ctl, help_may_be_a_command)
{
    for (const char *command : {"", "show", "set port"})
        expect_says(std::string(command) + " --help", run(std::string("help ") + command).output);
}

TEST_F(ctl, version) { expect_says("--version", LVT_VERSION "\n"); }
