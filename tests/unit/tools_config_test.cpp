/// lvt_rstpctl check, apply and set: the configuration file, its faults, and the messages it becomes.
#include <algorithm>
#include <sstream>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>

#include "tools_ctl.h"

namespace {

using frames_t = std::vector<std::vector<uint8_t>>;

constexpr char FULL[] = R"(# The switch in the cellar.

[bridge]
priority = 4096          # the root
max_age = 6
hello_time = 1
forward_delay = 4
force_version = 0

[port.1]
spanning_tree = true
path_cost = 20000
priority = 16
edge = false
point_to_point = true
lacp = true

[port.6]
point_to_point = false
path_cost = "auto"

[groups]
spanning_tree = true
path_cost = 100
priority = 240
point_to_point = "auto"
8 = [1, 2]
9 = [6]
)";

std::vector<uint8_t> joined(const frames_t &frames)
{
    std::vector<uint8_t> octets;
    for (const auto &frame : frames)
        octets.insert(octets.end(), frame.begin(), frame.end());
    return octets;
}

class config : public ctl {
protected:
    std::string file = path("switch.toml");

    void expect_faults(const std::string &text, const std::vector<std::string> &faults)
    {
        write_file(file, text);
        std::string output;
        for (const std::string &fault : faults)
            output += file + ":" + fault + "\n";
        expect_fails("check " + file, 1, output);
        expect_fails("apply " + file, 1, output);
    }

    void expect_applies(const std::string &text, const frames_t &frames)
    {
        write_file(file, text);
        expect_sends("apply " + file, joined(frames));
    }

    /// What a file without settings becomes while the daemon reports no groups.
    frames_t default_frames() const
    {
        return {lacp_enable_message({}), system_config_message(LVT_RSTP_SYSTEM_DEFAULTS),
                port_config_only_message(default_port_configs()), aggr_config_message(LVT_RSTP_PORT_DEFAULTS)};
    }
};

} // namespace

// ---- check -----------------------------------------------------------------------------

TEST_F(config, sound_files)
{
    for (const char *text : {"", "# nothing\n", FULL, "bridge = { priority = 0 }\n", "port.3.edge = true\n"}) {
        write_file(file, text);
        const run_t result = run_on_board("check " + file);
        EXPECT_EQ(result.status, 0) << text;
        EXPECT_TRUE(result.output.starts_with(file + " is in order: spanning tree o")) << result.output;
    }
    expect_says("check " + file, file + " is in order: spanning tree off at all ports\n");
    write_file(file, FULL);
    expect_says("check " + file, file + " is in order: spanning tree on at port 1, off at 2-6\n");
}

TEST_F(config, the_example_of_the_man_page_is_sound)
{
    const std::string page = read_file(LVT_DOCS "/man/lvt_rstp.toml.5.scd");
    const size_t begin = page.find("```\n") + 4;
    const std::string example = page.substr(begin, page.find("```", begin) - begin);
    EXPECT_NE(example.find("[port.1]"), std::string::npos);
    write_file(file, example);
    EXPECT_EQ(run_on_board("check " + file).status, 0);
}

TEST_F(config, standard_input)
{
    write_file(file, "[bridge]\npriority = 1\n");
    const run_t result = run_on_board("check - <" + file);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "-:2:12: bridge priority 1: allowed is 0 to 61440 in steps of 4096\n");
}

TEST_F(config, a_value_that_is_none_hides_no_later_fault)
{
    write_file(file,
               "[bridge]\npriority = high\nmax_age = 6 s\nhello_time = 9\n[port.1]\nedge = yes # a host\nlacp = 1\n");
    const run_t result = run_on_board("check " + file);
    EXPECT_EQ(result.status, 1);
    std::istringstream lines(result.output);
    std::vector<std::string> faults;
    for (std::string line; std::getline(lines, line);)
        faults.push_back(line.substr(file.size() + 1));
    ASSERT_EQ(faults.size(), 5u) << result.output;
    EXPECT_TRUE(faults[0].starts_with("2:")) << faults[0];
    EXPECT_NE(faults[0].find(". A value is a whole number, true, false, \"auto\" in quotes, or a list"),
              std::string::npos)
        << faults[0];
    EXPECT_TRUE(faults[1].starts_with("3:")) << faults[1];
    EXPECT_EQ(faults[2], "4:14: hello time 9: allowed is 1 or 2 s");
    EXPECT_TRUE(faults[3].starts_with("6:")) << faults[3];
    EXPECT_EQ(faults[4], "7:8: lacp should be true or false");
}

TEST_F(config, a_list_without_end_is_one_fault)
{
    write_file(file, "[groups]\n7 = [1, 2\nspanning_tree = true\n[port.1]\nedge = maybe\n");
    const run_t result = run_on_board("check " + file);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(std::ranges::count(result.output, '\n'), 1) << result.output;
}

TEST_F(config, every_fault_is_told_with_its_place)
{
    expect_faults(
        "[bridge]\n"
        "priority = 4097   # no step\n"
        "hello_time = \"two\"\n"
        "  force_version = 1\n"
        "hellotime = 2\n"
        "[port.1]\n"
        "spanning_tree = 1\n"
        "path_cost = 200000001\n"
        "priority = 8.0\n"
        "point_to_point = \"maybe\"\n"
        "[port.2]\n"
        "path_cost = \"cheap\"\n"
        "lacp = \"on\"\n"
        "speed = 100\n"
        "[port.7]\n"
        "[port.x]\n"
        "[port.01]\n"
        "[groups]\n"
        "07 = [5]\n"
        "edge = true\n"
        "7 = [1, 2]\n"
        "8 = [2, 9, \"3\"]\n"
        "9 = 4\n"
        "10 = [4]\n"
        "[switch]\n",
        {
            "2:12: bridge priority 4097: allowed is 0 to 61440 in steps of 4096",
            "3:14: hello time should be a whole number",
            "4:19: force version 1: allowed is 0 or 2",
            "5:1: there is no \"hellotime\" in [bridge]: known are priority, max_age, hello_time, "
            "forward_delay, force_version",
            "7:17: spanning_tree should be true or false",
            "8:13: path cost 200000001: allowed is 0 to 200000000",
            "9:12: port priority should be a whole number",
            "10:18: point_to_point should be true, false or \"auto\"",
            "12:13: path_cost should be a whole number or \"auto\"",
            "13:8: lacp should be true or false",
            "14:1: there is no \"speed\" in [port.2]: known are spanning_tree, path_cost, priority, "
            "point_to_point, edge, lacp",
            "15:7: there is no port \"7\": write [port.1] to [port.6]",
            "16:7: there is no port \"x\": write [port.1] to [port.6]",
            "17:7: there is no port \"01\": write [port.1] to [port.6]",
            "19:1: there is no \"07\" in [groups]: known are the groups 7 to 9, spanning_tree, path_cost, "
            "priority, point_to_point",
            "20:1: a group has no edge setting: it is edge when all its members are",
            "22:6: port 2 is in group 7 already",
            "22:9: port 9: allowed is 1 to 6",
            "22:12: port should be a whole number",
            "23:5: group 9 should be a list of ports, as in 9 = [1, 2]",
            "24:1: there is no \"10\" in [groups]: known are the groups 7 to 9, spanning_tree, path_cost, "
            "priority, point_to_point",
            "25:2: there is no \"switch\" in the file: known are [bridge], [port.1] to [port.6], [groups], [linux]",
        });
}

TEST_F(config, times_have_to_go_together)
{
    expect_faults("[bridge]\nhello_time = 1\nmax_age = 30\n",
                  {"3:11: max age 30 s is too long for forward delay 15 s: at most 2 * (15 - 1) = 28 s"});
    expect_faults("[bridge]\nforward_delay = 10\n",
                  {"2:17: max age 20 s is too long for forward delay 10 s: at most 2 * (10 - 1) = 18 s"});
    write_file(file, "[bridge]\nforward_delay = 11\n");
    EXPECT_EQ(run_on_board("check " + file).status, 0);
}

TEST_F(config, sections_have_to_be_sections)
{
    expect_faults("bridge = 3\n[port]\n1 = true\n",
                  {"1:10: bridge should be a section, [bridge]", "3:5: port.1 should be a section, [port.1]"});
}

TEST_F(config, faults_of_grammar_are_told_with_their_place)
{
    write_file(file, "[bridge]\npriority == 3\n");
    const run_t syntax = run_on_board("check " + file);
    EXPECT_EQ(syntax.status, 1);
    EXPECT_TRUE(syntax.output.starts_with(file + ":2:11: ")) << syntax.output;

    write_file(file, "[bridge]\npriority = 0\npriority = 4096\n");
    const run_t twice = run_on_board("check " + file);
    EXPECT_EQ(twice.status, 1);
    EXPECT_TRUE(twice.output.starts_with(file + ":3:")) << twice.output;
    EXPECT_NE(twice.output.find("cannot redefine"), std::string::npos) << twice.output;
}

TEST_F(config, a_name_of_too_many_parts)
{
    for (const size_t parts : {1'500, 40'000}) {
        std::string name = "a";
        for (size_t i = 1; i < parts; i++)
            name += ".a";
        const std::string fault = "2:1: a file has at most 1000 dots in all";
        expect_faults("\n[" + name + "]\n", {fault});
        expect_faults("\n[\"#\"." + name + "]\n", {fault});
    }
    std::string name = "a";
    for (size_t i = 0; i < 1'000; i++)
        name += ".a";
    expect_faults("[" + name + "]\n", {"1:2: there is no \"a\" in the file: known are [bridge], [port.1] to [port.6], "
                                       "[groups], [linux]"});
}

TEST_F(config, ports_of_a_linux_bridge)
{
    write_file(file, "[linux]\nports = [\"lan1\", \"lan-2\", \"eth0.3\", \"a\", \"b\", \"c\"]\n");
    EXPECT_EQ(run_on_board("check " + file).status, 0);

    const std::string list = "ports should be a list of 1 to 6 interfaces, as in [\"lan1\", \"lan2\"]";
    const std::string name = "a port should be the name of an interface, as in \"lan1\"";
    expect_faults("[linux]\nports = []\n", {"2:9: " + list});
    expect_faults("[linux]\nports = \"lan1\"\n", {"2:9: " + list});
    expect_faults("[linux]\nports = [\"1\", \"2\", \"3\", \"4\", \"5\", \"6\", \"7\"]\n", {"2:9: " + list});
    expect_faults("[linux]\nports = [\"lan1\", \"lan2\", \"lan1\"]\n", {"2:26: \"lan1\" is port 1 already"});
    expect_faults(
        "[linux]\nports = [1, \"\", \"a b\", \"..\", \"a/b\", \"abcdefghijklmnop\"]\n",
        {"2:10: " + name, "2:13: " + name, "2:17: " + name, "2:24: " + name, "2:30: " + name, "2:37: " + name});
    expect_faults("[linux]\nport = [\"lan1\"]\n", {"2:1: there is no \"port\" in [linux]: known are ports"});
    expect_faults("linux = 1\n", {"1:9: linux should be a section, [linux]"});
}

TEST_F(config, ports_of_a_linux_bridge_change_no_message)
{
    write_file(file, "[bridge]\npriority = 4096\n");
    const run_t without = run_on_board("--dry-run apply " + file);
    write_file(file, "[linux]\nports = [\"lan1\"]\n[bridge]\npriority = 4096\n");
    const run_t with = run_on_board("--dry-run apply " + file);
    EXPECT_EQ(with.status, 0) << with.output;
    EXPECT_EQ(with.output, without.output);
}

TEST_F(config, files_that_cannot_be_read)
{
    const std::string why = ": No such file or directory. Write it, see man lvt_rstp.toml; set makes one, too.";
    expect_refused("check " + file, "cannot read " + file + why);
    expect_refused("apply", "cannot read " + board.path + "/etc/lvt_rstp.toml" + why);
    expect_refused("check " + board.path,
                   "cannot read " + board.path + ": not a regular file. Put one in its place, or name another.");
}

// ---- apply -----------------------------------------------------------------------------

TEST_F(config, an_empty_file_is_all_defaults)
{
    report(STATUS);
    expect_applies("", default_frames());
}

TEST_F(config, the_file_is_the_stored_one_by_default)
{
    report(STATUS);
    std::filesystem::create_directory(path("etc"));
    write_file(path("etc/lvt_rstp.toml"), "[bridge]\npriority = 0\n");
    frames_t frames = default_frames();
    frames[1] = system_config_message(
        {.bridge_priority = 0, .max_age = 20, .hello_time = 2, .forward_delay = 15, .force_version = 2, .reserved = 0});
    expect_sends("apply", joined(frames));
}

TEST_F(config, every_setting_finds_its_place)
{
    port_configs_t ports = default_port_configs();
    ports[1] = {.adminPathCost = 20000,
                .port_priority = 16,
                .adminEnable = 1,
                .adminEdge = 0,
                .adminPointToPoint = 0,
                .reserved = {}};
    ports[6].adminPointToPoint = 1;
    port_configs_t marked = ports;
    const lvt_rstp_port_config_t groups = {.adminPathCost = 100,
                                           .port_priority = 240,
                                           .adminEnable = 1,
                                           .adminEdge = 1,
                                           .adminPointToPoint = 2,
                                           .reserved = {}};
    ports[0] = marked[0] = groups;
    marked[1].reserved[0] = 1;

    report(STATUS);
    expect_applies(FULL, {lacp_enable_message({1, 0, 0, 0, 0, 0}),
                          system_config_message({.bridge_priority = 4096,
                                                 .max_age = 6,
                                                 .hello_time = 1,
                                                 .forward_delay = 4,
                                                 .force_version = 0,
                                                 .reserved = 0}),
                          port_config_only_message(marked), port_config_only_message(ports),
                          aggr_config_message(groups), aggr_status_message({0, 8, 8, 3, 4, 5, 9})});
}

TEST_F(config, ports_leave_their_group_by_standing_alone)
{
    // Ports 1 and 2 are in group 7 now.
    report(replaced(replaced(STATUS, "0,1,1,3,4,0", "0,1,1,5,5,7"), "0,1,1,1,1,0", "0,1,1,5,5,7"));
    frames_t frames = default_frames();

    // Port 2 stays, port 1 moves.
    frames.insert(frames.begin() + 2, aggr_status_message({0, 1, 7, 3, 4, 5, 6}));
    frames.push_back(aggr_status_message({0, 8, 7, 3, 4, 5, 6}));
    expect_applies("[groups]\n7 = [2]\n8 = [1]\n", frames);

    // All go.
    frames[2] = aggr_status_message(AGGR_STATUS_ALONE);
    frames[5] = aggr_status_message(AGGR_STATUS_ALONE);
    expect_applies("[groups]\n7 = []\n", frames);

    // Both stay and a third one comes: nobody has to leave.
    frames.erase(frames.begin() + 2);
    frames[4] = aggr_status_message({0, 7, 7, 7, 4, 5, 6});
    expect_applies("[groups]\n7 = [1, 2, 3]\n", frames);

    // As it is already, or not told.
    expect_applies("[groups]\n7 = [1, 2]\n", default_frames());
    expect_applies("", default_frames());
}

TEST_F(config, without_a_report_all_ports_stand_alone_first)
{
    frames_t frames = default_frames();
    frames.insert(frames.begin() + 2, aggr_status_message(AGGR_STATUS_ALONE));
    frames.push_back(aggr_status_message({0, 7, 7, 3, 4, 5, 6}));
    expect_applies("[groups]\n7 = [1, 2]\n", frames);
}

TEST_F(config, the_last_port_that_changes_is_on)
{
    // Ports 1 to 3 are on now; 3 goes off. Port 2, alternate, minds least to be sent twice.
    const auto section = [](int port, const char *more = "") {
        return fmt::format("[port.{}]\nspanning_tree = true\nedge = false\n{}", port, more);
    };
    report(replaced(STATUS, "0,1,1,3,4,0,32768", "0,1,1,4,4,0,32768"));
    port_configs_t ports = default_port_configs();
    for (const size_t port : {1, 2}) {
        ports[port].adminEnable = 1;
        ports[port].adminEdge = 0;
    }
    port_configs_t marked = ports;
    marked[2].reserved[0] = 1;
    frames_t frames = default_frames();
    frames[2] = port_config_only_message(ports);
    frames.insert(frames.begin() + 2, port_config_only_message(marked));
    expect_applies(section(1) + section(2), frames);

    // What a port had that is off now is not known: a changed cost would be a change, too.
    report(replaced(replaced(STATUS, "0,1,1,3,4,0,32768", "0,1,1,4,4,0,32768"), "1,1,0,4,4,0", "1,1,0,5,5,0"));
    expect_applies(section(1) + section(2), frames);

    // Nobody is off: once is enough.
    std::string all_on;
    for (int port = 1; port <= 6; port++) {
        all_on += section(port);
        ports[static_cast<size_t>(port)].adminEnable = 1;
        ports[static_cast<size_t>(port)].adminEdge = 0;
    }
    frames.erase(frames.begin() + 2);
    frames[2] = port_config_only_message(ports);
    expect_applies(all_on, frames);

    // All go off: then the trap may, too.
    report(STATUS);
    expect_applies("", default_frames());
}

TEST_F(config, dry_run_cannot_steer_the_terminal)
{
    const std::string root = board.path + "/\x1b[2J";
    const run_t result = run("--root '" + root + "' --dry-run send lacp --enable none");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output.find('\x1b'), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("\\x1b[2J"), std::string::npos) << result.output;
}

TEST_F(config, dry_run_tells_the_messages_and_why)
{
    report(STATUS);
    write_file(file,
               "[port.1]\nspanning_tree = true\n[port.2]\nspanning_tree = true\n[port.3]\nspanning_tree = true\n");
    const run_t result = run_on_board("apply --dry-run " + file);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.output.starts_with(
        "what would change:\n"
        "  bridge priority 61440 -> 32768: this bridge may become the root, and all roles may "
        "change\n"
        "  while roles change, a port toward another bridge may be dark for 30 s\n"
        "\n"
        "1. where LACP runs, before a port's state changes\n"
        "to " +
        control.path +
        ", 22 octets:\n"
        "LACP on ports (type 10)\n"))
        << result.output;
    EXPECT_NE(result.output.find("\n\n5. what all groups have in common\n"), std::string::npos) << result.output;
    EXPECT_EQ(control.read_all().size(), 0u);
}

TEST_F(config, no_daemon)
{
    write_file(file, "");
    close(control.fd);
    control.fd = -1;
    const run_t result = run_on_board("apply " + file);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "lvt_rstpctl: no reader on " + control.path + ": is the daemon running? Start it.\n");
}

TEST_F(config, a_daemon_that_does_not_report)
{
    using namespace std::chrono_literals;
    write_file(file, "");
    report(STATUS);
    age = 5s;
    for (const std::string &command :
         {"apply " + file, std::string("send bridge --priority 0"), std::string("inject link 1=up")}) {
        const run_t result = run_on_board(command);
        EXPECT_EQ(result.status, 3) << command;
        EXPECT_TRUE(result.output.starts_with("lvt_rstpctl: sent, but " + board.path + RSTP_MONITOR_FILE + " is "))
            << result.output;
        EXPECT_NE(result.output.find("so it has ended or hangs"), std::string::npos) << result.output;
        EXPECT_NE(control.read_all().size(), 0u) << command;
    }
    EXPECT_EQ(run_on_board("debug show").status, 3);
    EXPECT_NE(debug.read_all().size(), 0u);
    const run_t changed = run_on_board("set bridge --priority 0 --force --file " + file);
    EXPECT_EQ(changed.status, 3);
    EXPECT_NE(changed.output.find("\n" + file + " is changed all the same: apply it"), std::string::npos)
        << changed.output;
    EXPECT_EQ(run_on_board("send bridge --priority 0 --dry-run").status, 0);

    report("nonsense");
    EXPECT_EQ(run_on_board("send bridge --priority 0").status, 3);
}

TEST_F(config, a_daemon_that_has_just_been_started_over_an_old_report)
{
    write_file(file, "");
    report("nonsense");
    const reads_t reads(board.path + "/tmp");
    std::thread daemon([&] {
        reads.wait();
        put_report(STATUS);
    });
    const run_t result = run_on_board("apply " + file);
    daemon.join();
    EXPECT_EQ(result.status, 0) << result.output;
}

TEST_F(config, a_pipe_that_fills_in_between)
{
    write_file(file, "");
    const int writer = open(control.path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    const int capacity = fcntl(writer, F_SETPIPE_SZ, 4096);
    const std::vector<uint8_t> filling(static_cast<size_t>(capacity) - 60); // room for two of four messages
    ASSERT_EQ(write(writer, filling.data(), filling.size()), static_cast<ssize_t>(filling.size()));
    const run_t result = run_on_board("apply " + file);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "lvt_rstpctl: " + control.path +
                                 " is full: the daemon hangs or is stopped. Look at what it printed last, and "
                                 "start it again.\n"
                                 "Only 2 of 4 messages were sent: send them again.\n");
    close(writer);
}

// ---- set -------------------------------------------------------------------------------

namespace {

/// What a daemon reports with spanning tree off on its single ports.
std::string all_off()
{
    std::string text = replaced(STATUS, "port01=8000,0,1,1,3,4,0,32768:02-00-00-01-11-00/1",
                                "port01=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0");
    text = replaced(text, "port02=8000,0,1,1,1,1,0,32768:02-00-00-01-11-00/2",
                    "port02=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0");
    return replaced(text, "port03=8000,1,1,0,4,4,0,61440:02-00-00-00-01-00/3",
                    "port03=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0");
}

class set : public config {
protected:
    void SetUp() override { report(all_off()); }

    /// Runs a set command that must turn the file's text into another.
    void expect_edits(const std::string &text, const std::string &arguments, const std::string &edited)
    {
        write_file(file, text);
        const run_t result = run_on_board(fmt::format("set {} --file {}", arguments, file));
        EXPECT_EQ(result.status, 0) << arguments;
        EXPECT_TRUE(is_one_line(result.output, {"set in " + file + ", and applied: "})) << result.output;
        EXPECT_EQ(read_file(file), edited) << arguments;
        control.read_all();
    }
};

} // namespace

TEST_F(set, values_are_replaced_where_they_stand)
{
    expect_edits("# é\n[bridge] # b\n  priority = 0x1000   # \"the root\"\nmax_age=20\n[port.3]\nedge = true\n",
                 "bridge --priority 8192 --max-age 18",
                 "# é\n[bridge] # b\n  priority = 8192   # \"the root\"\nmax_age=18\n[port.3]\nedge = true\n");
    expect_edits("[port.3]\npath_cost = \"auto\" # é\nedge = true", "port 3 --cost 7 --edge off",
                 "[port.3]\npath_cost = 7 # é\nedge = false");
    expect_edits("port.3.edge = true\nport.4 = { edge = true, priority = 16 } # ä\n", "port 3,4 --edge off",
                 "port.3.edge = false\nport.4 = { edge = false, priority = 16 } # ä\n");
    expect_edits("[port.2]\r\nedge = true\r\n", "port 2 --edge off", "[port.2]\r\nedge = false\r\n");
}

TEST_F(set, a_byte_order_mark_moves_nothing)
{
    expect_edits(
        "\xEF\xBB\xBF"
        "bridge.priority = 0\n",
        "bridge --priority 4096",
        "\xEF\xBB\xBF"
        "bridge.priority = 4096\n");
    expect_edits(
        "\xEF\xBB\xBF"
        "# é\n[bridge]\npriority = 0\n",
        "bridge --priority 4096 --max-age 18",
        "\xEF\xBB\xBF"
        "# é\n[bridge]\npriority = 4096\nmax_age = 18\n");
}

TEST_F(set, lines_are_added_to_their_section)
{
    expect_edits("[bridge]\npriority = 0 # first\n\n[port.1]\n", "bridge --hello 1",
                 "[bridge]\npriority = 0 # first\nhello_time = 1\n\n[port.1]\n");
    expect_edits("[port.1]\n# nothing yet\n[bridge]\n", "port 1 --spanning-tree on --p2p auto",
                 "[port.1]\nspanning_tree = true\npoint_to_point = \"auto\"\n# nothing yet\n[bridge]\n");
    expect_edits("[bridge]", "bridge --force-version 0", "[bridge]\nforce_version = 0");
}

TEST_F(set, sections_are_added_to_the_end)
{
    expect_edits("# mine\n[bridge]", "port 2-3 --lacp on",
                 "# mine\n[bridge]\n\n[port.2]\nlacp = true\n\n[port.3]\nlacp = true\n");
    expect_edits("", "bridge --priority 0", "[bridge]\npriority = 0\n");
}

TEST_F(set, a_file_that_is_not_there_is_made)
{
    std::filesystem::create_directory(path("etc"));
    frames_t frames = default_frames();
    lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
    bridge.bridge_priority = 4096;
    frames[1] = system_config_message(bridge);
    expect_sends("set bridge --priority 4096", joined(frames));
    EXPECT_EQ(read_file(path("etc/lvt_rstp.toml")), "[bridge]\npriority = 4096\n");
}

TEST_F(set, what_the_file_does_not_say_is_not_taken_back_unasked)
{
    const std::string next_step =
        "Nothing was changed or sent. Put into the file what is to stay, as "
        "lvt_rstpctl save does, or say --force.";
    const std::string at = " --file " + file;
    report(STATUS);
    expect_refused("set bridge --max-age 10" + at, "spanning tree is on at port 1,2,3 now, but there is no " + file +
                                                       ": it would go off there. " + next_step);
    EXPECT_FALSE(std::filesystem::exists(file));

    write_file(file, "[port.1]\nspanning_tree = true\n");
    const std::string refusal =
        "spanning tree is on at port 2,3 now, but " + file + " says otherwise: it would go off there. " + next_step;
    expect_refused("set bridge --max-age 10" + at, refusal);
    const run_t dry = run_on_board("--dry-run set bridge --max-age 10" + at);
    EXPECT_EQ(dry.status, 1);
    EXPECT_TRUE(dry.output.starts_with("what would change:\n") &&
                dry.output.ends_with("\n\nlvt_rstpctl: " + refusal + "\n"))
        << dry.output;
    EXPECT_EQ(read_file(file), "[port.1]\nspanning_tree = true\n");

    // Asked for, in the file before, or forced.
    EXPECT_EQ(run_on_board("set port 2-3 --spanning-tree off --force" + at).status, 0);
    write_file(file, "[port.1]\nspanning_tree = true\n");
    EXPECT_EQ(run_on_board("set port 2-3 --spanning-tree on" + at).status, 0);
    EXPECT_EQ(run_on_board("set port 3 --spanning-tree off" + at).status, 0);
    write_file(file, "");
    EXPECT_EQ(run_on_board("set bridge --max-age 10 --force" + at).status, 0);
    EXPECT_EQ(read_file(file), "[bridge]\nmax_age = 10\n");
    control.read_all();

    // A group, and its members.
    report(replaced(replaced(all_off(), "port01=0,1,1,0,5,5,0", "port01=8000,0,1,0,4,4,7"), "port07=0,1,1,0,5,5,0",
                    "port07=8000,0,1,0,4,4,0"));
    expect_refused("set bridge --max-age 10" + at, "spanning tree is on at port 7 now, but " + file +
                                                       " says otherwise: it would go off there. " + next_step);
    write_file(file, "[groups]\nspanning_tree = true\n");
    EXPECT_EQ(run_on_board("set bridge --max-age 10" + at).status, 0);
}

TEST_F(set, may_follow_another_that_is_not_reported_yet)
{
    report(STATUS);
    write_file(file, "");
    const reads_t reads(board.path + "/tmp");
    std::thread daemon([&] {
        reads.wait();
        report(all_off());
    });
    const run_t result = run_on_board("set bridge --priority 0 --file " + file);
    daemon.join();
    EXPECT_EQ(result.status, 0) << result.output;
}

TEST_F(set, a_missing_file_does_not_take_back_the_bridge_priority_unasked)
{
    report(replaced(all_off(), "bridge_overview=61440:", "bridge_overview=4096:"));
    expect_refused("set port 1 --spanning-tree on --file " + file,
                   "the bridge priority is 4096 now, but there is no " + file +
                       ": it would become 32768. Nothing was changed or sent. Put into the file what is to stay, as "
                       "lvt_rstpctl save does, or say --force.");
    EXPECT_EQ(run_on_board("set port 1 --spanning-tree on --force --file " + file).status, 0);
    std::filesystem::remove(file);
    EXPECT_EQ(run_on_board("set bridge --priority 0 --file " + file).status, 0);
}

TEST_F(set, groups_that_are_as_they_should_be_are_left_in_peace)
{
    report(replaced(replaced(all_off(), "port01=0,1,1,0,5,5,0", "port01=0,1,1,0,5,5,7"), "port02=0,1,1,0,5,5,0",
                    "port02=0,1,1,0,5,5,7"));
    for (const char *text : {"[groups]\n7 = [1, 2]\n", ""}) {
        write_file(file, text);
        expect_sends(fmt::format("set bridge --priority 32768 --file {}", file),
                     joined({lacp_enable_message({}), system_config_message(LVT_RSTP_SYSTEM_DEFAULTS),
                             port_config_message(default_port_configs())}));
    }

    write_file(file, "[groups]\n7 = [1]\n");
    frames_t frames = default_frames();
    frames.insert(frames.begin() + 2, aggr_status_message({0, 7, 2, 3, 4, 5, 6}));
    frames.push_back(aggr_status_message({0, 7, 2, 3, 4, 5, 6}));
    expect_sends(fmt::format("set bridge --priority 32768 --file {}", file), joined(frames));
}

TEST_F(set, ports_that_stay_off_do_not_touch_the_trap)
{
    // Ports 1 to 3 are on; a group is formed, so that its settings need no message.
    const std::string on =
        "[port.1]\nspanning_tree = true\n[port.2]\nspanning_tree = true\n"
        "[port.3]\nspanning_tree = true\n";
    const std::string grouped = replaced(STATUS, "port06=0,1,1,0,5,5,0", "port06=0,1,1,0,5,5,9");
    port_configs_t ports = default_port_configs();
    for (const size_t port : {1, 2, 3})
        ports[port].adminEnable = 1;
    port_configs_t marked = ports;
    marked[1].reserved[0] = 1; // the root port
    const std::vector<uint8_t> lacp = lacp_enable_message({});
    const std::vector<uint8_t> bridge = system_config_message(LVT_RSTP_SYSTEM_DEFAULTS);
    const std::string command = "set bridge --priority 32768 --file " + file;

    report(grouped);
    write_file(file, on);
    expect_sends(command, joined({lacp, bridge, port_config_message(ports)}));

    // A port that is off with settings of its own may never have got them.
    write_file(file, on + "[port.5]\npath_cost = 9\n");
    ports[5].adminPathCost = marked[5].adminPathCost = 9;
    expect_sends(command, joined({lacp, bridge, port_config_only_message(marked), port_config_message(ports)}));

    // One that loses them.
    write_file(file, on + "[port.5]\npath_cost = 9\n");
    ports[5].adminPathCost = marked[5].adminPathCost = 0;
    expect_sends("set port 5 --cost 0 --file " + file,
                 joined({lacp, bridge, port_config_only_message(marked), port_config_message(ports)}));
}

TEST_F(set, all_of_several_at_once_are_kept)
{
    write_file(file, "");
    std::vector<std::thread> people;
    for (int port = 1; port <= 3; port++)
        people.emplace_back([this, port] {
            EXPECT_EQ(run_on_board(fmt::format("set port {} --edge off --file {}", port, file)).status, 0);
        });
    for (std::thread &person : people)
        person.join();
    const std::string text = read_file(file);
    for (int port = 1; port <= 3; port++)
        EXPECT_NE(text.find(fmt::format("[port.{}]\nedge = false\n", port)), std::string::npos) << text;
}

TEST_F(set, does_not_wait_for_ever_for_another)
{
    write_file(file, "");
    const int folder = open(board.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(folder, LOCK_EX), 0);
    expect_refused("set bridge --priority 0 --file " + file,
                   "another program has held a lock on the folder of " + file +
                       " for 10 s, as an lvt_rstpctl does that is stopped. Nothing was changed or sent: end it, and "
                       "try again.");
    EXPECT_EQ(read_file(file), "");
    EXPECT_EQ(run_on_board("--dry-run set bridge --priority 0 --file " + file).status, 0);
    close(folder);
}

TEST_F(set, nothing_unasked_while_nobody_tells_what_is_on)
{
    const std::string status = board.path + RSTP_MONITOR_FILE;
    const std::string end = "\nNothing was changed or sent; --force does it all the same.";
    const std::string command = "set port 4 --edge off --file " + file;
    std::filesystem::remove(status);
    expect_untold(command, "it cannot be told what is on now: no status file at " + status +
                               ": is the daemon running? It writes the file every second." + end);
    std::filesystem::create_directory(status);
    expect_untold(command, "it cannot be told what is on now: cannot read " + status +
                               ": not a regular file. Put one in its place, or name another." + end);
    std::filesystem::remove(status);
    report("nonsense");
    EXPECT_EQ(run_on_board(command).status, 3);
    age = std::chrono::hours(1);
    EXPECT_EQ(run_on_board(command).status, 3);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(control.read_all().size(), 0u);

    std::filesystem::remove(status);
    EXPECT_EQ(run_on_board("--dry-run " + command).status, 0);
    EXPECT_EQ(run_on_board(command + " --force").status, 0);
    EXPECT_NE(control.read_all().size(), 0u);
}

TEST_F(set, writes_into_no_file_that_was_there)
{
    write_file(path("victim"), "mine");
    write_file(file, "");
    std::filesystem::create_symlink("victim", file + ".new");
    EXPECT_EQ(run_on_board("set bridge --priority 0 --file " + file).status, 0);
    EXPECT_EQ(read_file(path("victim")), "mine");
    EXPECT_EQ(read_file(file), "[bridge]\npriority = 0\n");
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(board.path))
        files += entry.path().filename().string().starts_with("switch.toml");
    EXPECT_EQ(files, 2u) << "the file and the planted link";
}

TEST_F(set, keeps_the_owner)
{
    write_file(file, "");
    if (chown(file.c_str(), 1000, 1001) != 0)
        GTEST_SKIP() << "cannot run here: only root may give files away";
    EXPECT_EQ(run_on_board("set bridge --priority 0 --file " + file).status, 0);
    struct stat after = {};
    ASSERT_EQ(stat(file.c_str(), &after), 0);
    EXPECT_EQ(after.st_uid, 1000u);
    EXPECT_EQ(after.st_gid, 1001u);
}

TEST_F(set, keeps_links_and_permissions)
{
    write_file(path("real.toml"), "");
    std::filesystem::permissions(path("real.toml"), std::filesystem::perms(0640));
    std::filesystem::create_symlink("real.toml", file);
    EXPECT_EQ(run_on_board(fmt::format("set bridge --priority 0 --file {}", file)).status, 0);
    EXPECT_TRUE(std::filesystem::is_symlink(file));
    EXPECT_EQ(read_file(path("real.toml")), "[bridge]\npriority = 0\n");
    EXPECT_EQ(std::filesystem::status(path("real.toml")).permissions(), std::filesystem::perms(0640));
}

TEST_F(set, does_not_open_a_loop_unasked)
{
    // Port 1 leads to the root, port 2 cuts the loop.
    const std::string on =
        "[port.1]\nspanning_tree = true\n[port.2]\nspanning_tree = true\n"
        "[port.3]\nspanning_tree = true\n";
    const std::string end =
        ", and frames would run in the loop. Nothing was changed or sent. Pull a cable first, or say "
        "--force.";
    report(STATUS);
    write_file(file, on);
    expect_refused("set port 2 --spanning-tree off --file " + file,
                   "port 2 is alternate and cuts a loop: with spanning tree off there it forwards" + end);
    expect_refused(
        "set port 1 --spanning-tree off --file " + file,
        "port 1 leads to another bridge, and port 2 cuts a loop: with spanning tree off at port 1, port 2 may "
        "forward" +
            end);
    EXPECT_EQ(read_file(file), on);
    EXPECT_EQ(run_on_board("set port 3 --spanning-tree off --file " + file).status, 0) << "a host's";
    EXPECT_EQ(run_on_board("set port 2 --spanning-tree off --force --file " + file).status, 0);
    write_file(file, on);
    const std::string dry = run_on_board("set port 2 --spanning-tree off --dry-run --file " + file).output;
    EXPECT_NE(dry.find("\nlvt_rstpctl: port 2 is alternate and cuts a loop: "), std::string::npos) << dry;
    EXPECT_NE(dry.find("  port 2 leaves the tree: alternate -> off; it will forward, which it does not do now\n"
                       "  port 2 cuts a loop now, in which frames would run\n"),
              std::string::npos)
        << dry;
}

TEST_F(set, dry_run_tells_what_would_change)
{
    const auto told = [this](const std::string &arguments) {
        const std::string text = run_on_board("--dry-run set " + arguments + " --file " + file).output;
        return text.substr(0, text.find("\n\n"));
    };
    const std::string head = "what would change:\n  ";
    write_file(file,
               "[bridge]\npriority = 61440\n[port.1]\nspanning_tree = true\n[port.2]\nspanning_tree = true\n"
               "[port.3]\nspanning_tree = true\n");
    report(STATUS);
    EXPECT_EQ(told("bridge --priority 61440"), head + "nothing changes that is known");
    EXPECT_EQ(told("port 4 --spanning-tree on"),
              head +
                  "port 4 joins the tree: it forwards now, and is dark for 30 s toward another bridge, 3 s toward a "
                  "host");
    EXPECT_EQ(told("port 2 --cost 5"), head +
                                           "port 2 gets other settings: roles may change, of this port (alternate) and "
                                           "others; one that changes may be dark for 30 s");
    EXPECT_EQ(told("bridge --max-age 18"), head +
                                               "times of the bridge: max age 18 s, hello time 2 s, forward delay 15 s; "
                                               "they count once this bridge is the root");
    std::filesystem::remove(board.path + RSTP_MONITOR_FILE);
    EXPECT_TRUE(
        told("port 4 --spanning-tree on").starts_with("it cannot be told what would change: no status file at "));
}

TEST_F(set, a_link_of_the_board_leads_to_what_is_below_its_root)
{
    // As an image has it that is to run elsewhere: / is the board's own.
    std::filesystem::create_directories(path("etc"));
    std::filesystem::create_directories(path("flash"));
    std::filesystem::create_symlink("/flash/../flash/switch.toml", path("etc/lvt_rstp.toml"));
    for (const char *command : {"set bridge --priority 4096", "set bridge --max-age 18"})
        EXPECT_EQ(run_on_board(command).status, 0);
    EXPECT_EQ(read_file(path("flash/switch.toml")), "[bridge]\npriority = 4096\nmax_age = 18\n");
    EXPECT_TRUE(std::filesystem::is_symlink(path("etc/lvt_rstp.toml")));
    EXPECT_EQ(run_on_board("check").status, 0);

    std::filesystem::remove(path("etc/lvt_rstp.toml"));
    std::filesystem::create_symlink("../../../../../flash/switch.toml", path("etc/lvt_rstp.toml"));
    EXPECT_EQ(run_on_board("set bridge --priority 0").status, 0);
    EXPECT_EQ(read_file(path("flash/switch.toml")), "[bridge]\npriority = 0\nmax_age = 18\n");
    control.read_all();

    std::filesystem::remove(path("etc/lvt_rstp.toml"));
    std::filesystem::create_symlink("lvt_rstp.toml", path("etc/lvt_rstp.toml"));
    expect_refused("set bridge --priority 0",
                   "cannot write " + path("etc/lvt_rstp.toml") + ": Too many levels of symbolic links");
}

TEST_F(set, no_folder_of_the_board_is_a_way_out_of_it)
{
    const temp_folder_t machine;
    std::filesystem::create_symlink(machine.path, path("etc"));
    const run_t result = run_on_board("set bridge --priority 0");
    EXPECT_EQ(result.status, 1);
    EXPECT_FALSE(std::filesystem::exists(machine.path + "/lvt_rstp.toml")) << result.output;
}

TEST_F(set, what_is_not_allowed_changes_nothing)
{
    write_file(file, "[bridge]\nmax_age = 20\n");
    const std::string at = " --file " + file;
    expect_refused("set bridge --priority 1" + at, "bridge priority 1: allowed is 0 to 61440 in steps of 4096");
    expect_refused("set port 7 --edge on" + at, "port 7: allowed is 1 to 6");
    expect_refused("set port 1 --cost 200000001" + at, "path cost 200000001: allowed is 0 to 200000000");
    expect_usage("set port 1 --cost cheap" + at, "--cost: \"cheap\" is not a number");
    expect_usage("set port 1 --edge maybe" + at, "--edge: \"maybe\" is none of off, on");
    expect_usage("set port 1 --p2p 2" + at, "--p2p: \"2\" is none of off, on, auto");
    expect_usage("set port 1" + at, "set: name at least one setting");
    expect_usage("set", "A subcommand is required");
    expect_fails("set bridge --forward-delay 4" + at, 1,
                 "nothing was changed, for the file would then have this fault:\n" + file +
                     ":2:11: max age 20 s is too long for forward delay 4 s: at most 2 * (4 - 1) = 6 s\n");
    EXPECT_EQ(read_file(file), "[bridge]\nmax_age = 20\n");
}

TEST_F(set, a_file_with_faults_or_without_place_is_left_alone)
{
    write_file(file, "[bridge]\npriority = 1\n");
    expect_fails("set port 1 --edge on --file " + file, 1,
                 file + ":2:12: bridge priority 1: allowed is 0 to 61440 in steps of 4096\n");
    write_file(file, "port.1 = { edge = true }\n");
    expect_refused("set port 1 --priority 0 --file " + file,
                   "there is no place for a new line \"priority = 0\": write [port.1] as a section of its own");
    expect_refused("set port 1 --edge on --file " + path("none/switch.toml"),
                   "cannot write " + path("none/switch.toml") + ": No such file or directory. Make its folder first.");
}

TEST_F(set, dry_run_writes_nothing)
{
    write_file(file, "");
    const run_t result = run_on_board("--dry-run set port 1-2 --edge off --file " + file);
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(
        result.output.starts_with("what would change:\n"
                                  "  bridge priority 61440 -> 32768: this bridge may become the root, and all "
                                  "roles may change\n"
                                  "  while roles change, a port toward another bridge may be dark for 30 s\n"
                                  "\n"
                                  "in " +
                                  file +
                                  ": [port.1] edge = false\n"
                                  "in " +
                                  file +
                                  ": [port.2] edge = false\n"
                                  "1. where LACP runs"))
        << result.output;
    EXPECT_EQ(read_file(file), "");
    EXPECT_EQ(control.read_all().size(), 0u);
}

TEST_F(set, no_daemon)
{
    write_file(file, "");
    close(control.fd);
    control.fd = -1;
    const run_t result = run_on_board("set bridge --priority 0 --file " + file);
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "lvt_rstpctl: no reader on " + control.path + ": is the daemon running? Start it.\n" +
                                 file + " is changed all the same: apply it when the daemon takes messages.\n");
    EXPECT_EQ(read_file(file), "[bridge]\npriority = 0\n");
}

// ---- save ------------------------------------------------------------------------------

TEST_F(config, save_writes_what_is_in_force)
{
    std::filesystem::create_directory(path("etc"));
    const std::string stored = path("etc/lvt_rstp.toml");
    report(STATUS);
    EXPECT_EQ(run_on_board("send ports --enable 1-3 --cost 2=77 --edge 1-2=off").status, 0);
    EXPECT_EQ(run_on_board("send lacp --enable 6").status, 0);
    expect_says("save", stored + " says what is in force: 8 settings were different\n");
    EXPECT_EQ(read_file(stored),
              "[bridge]\npriority = 61440\n\n"
              "[port.1]\nspanning_tree = true\nedge = false\n\n"
              "[port.2]\nspanning_tree = true\npath_cost = 77\nedge = false\n\n"
              "[port.3]\nspanning_tree = true\n\n"
              "[port.6]\nlacp = true\n");
    expect_says("save", stored + " says what is in force: 0 settings were different\n");

    // The rest of a file stays, and what is sent to one port by set is not taken for lost.
    write_file(stored, "# mine\n[port.4]\nspanning_tree = true # no\n");
    EXPECT_EQ(run_on_board("save --dry-run").status, 0);
    EXPECT_EQ(read_file(stored), "# mine\n[port.4]\nspanning_tree = true # no\n");
    EXPECT_EQ(run_on_board("save").status, 0);
    EXPECT_TRUE(read_file(stored).starts_with("# mine\n[port.4]\nspanning_tree = false # no\n"));
    EXPECT_EQ(run_on_board("set bridge --max-age 18").status, 0);
    control.read_all();

    std::filesystem::remove(board.path + RSTP_MONITOR_FILE);
    EXPECT_EQ(run_on_board("save").status, 3);
}

TEST_F(config, save_keeps_groups_that_were_sent)
{
    report(replaced(replaced(STATUS, "0,1,1,3,4,0", "0,1,1,5,5,7"), "0,1,1,1,1,0", "0,1,1,5,5,7"));
    EXPECT_EQ(run_on_board("save " + file).status, 0);
    EXPECT_EQ(read_file(file).find("[groups]"), std::string::npos)
        << "the link-aggregation daemon's: " << read_file(file);
    EXPECT_EQ(run_on_board("send groups 7=1,2").status, 0);
    EXPECT_EQ(run_on_board("save " + file).status, 0);
    EXPECT_NE(read_file(file).find("[groups]\n7 = [1, 2]\n"), std::string::npos) << read_file(file);
}

// ---- confirm ---------------------------------------------------------------------------

namespace {

class confirm : public config {
protected:
    /// Waits until the last change has ended, and tells how.
    std::string end_of_wait()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        std::string text = "waiting";
        while (text.starts_with("waiting") && std::chrono::steady_clock::now() < deadline) {
            date_report(std::chrono::milliseconds(0));
            text = read_file(path("tmp/lvt_rstpctl/confirm"));
        }
        return text;
    }

    const std::string NOTHING = "nothing waits to be confirmed";
};

} // namespace

TEST_F(confirm, keeps_a_change_that_is_confirmed)
{
    report(STATUS);
    write_file(file, "[port.1]\nspanning_tree = true\n");
    expect_refused("confirm", NOTHING);
    const run_t applied = run_on_board("apply --confirm 30 " + file);
    EXPECT_EQ(applied.status, 0);
    EXPECT_NE(
        applied.output.find("\nit goes back in 30 s unless you say: lvt_rstpctl --root " + board.path + " confirm\n"),
        std::string::npos)
        << applied.output;
    control.read_all();
    const std::string refusal =
        "a change waits to be confirmed, and going back would undo this one as well. Say "
        "lvt_rstpctl confirm, or wait. Nothing was changed or sent.";
    expect_refused("apply " + file, refusal);
    expect_refused("apply --confirm 5 " + file, refusal);
    expect_refused("set bridge --priority 0 --force --file " + file, refusal);
    EXPECT_EQ(run_on_board("--dry-run confirm").status, 0);
    expect_says("confirm", "confirmed: the change stays\n");
    const run_t again = run_on_board("confirm");
    EXPECT_EQ(again.status, 1);
    EXPECT_TRUE(again.output.starts_with("lvt_rstpctl: " + NOTHING + ": the last change was confirmed at "))
        << again.output;
    EXPECT_EQ(run_on_board("apply --confirm 30 " + file).status, 0) << "the next may start at once";
    EXPECT_EQ(run_on_board("confirm").status, 0);
    EXPECT_EQ(control.read_all().empty(), false);
}

TEST_F(confirm, goes_back_to_what_was_in_force)
{
    // What the daemon does not report, the edge setting, was sent before.
    report(STATUS);
    EXPECT_EQ(run_on_board("send ports --enable 1-3 --edge 2=off --cost 2=77").status, 0);
    control.read_all();
    write_file(file, "[bridge]\npriority = 0\n");
    EXPECT_EQ(run_on_board("apply --confirm 0.5 " + file).status, 0);
    EXPECT_TRUE(end_of_wait().starts_with("the last change went back at ")) << end_of_wait();

    lvt_rstp_system_config_t bridge = LVT_RSTP_SYSTEM_DEFAULTS;
    bridge.bridge_priority = 61440;
    port_configs_t ports = default_port_configs();
    for (const size_t port : {1, 2, 3})
        ports[port].adminEnable = 1;
    ports[2].adminEdge = 0;
    ports[2].adminPathCost = 77;
    const std::vector<uint8_t> back =
        joined({lacp_enable_message({}), system_config_message(bridge), port_config_only_message(ports),
                aggr_config_message(LVT_RSTP_PORT_DEFAULTS)});
    const std::vector<uint8_t> sent = control.read_all();
    ASSERT_GT(sent.size(), back.size());
    EXPECT_EQ(std::vector<uint8_t>(sent.end() - static_cast<long>(back.size()), sent.end()), back);

    const run_t late = run_on_board("confirm");
    EXPECT_EQ(late.status, 1);
    EXPECT_TRUE(late.output.starts_with("lvt_rstpctl: " + NOTHING + ": the last change went back at ")) << late.output;
    EXPECT_NE(late.output.find(": nobody had confirmed it\n"), std::string::npos);
}

TEST_F(confirm, set_takes_its_file_back_as_well)
{
    report(all_off());
    for (const std::string before : {"# mine\n", ""}) {
        std::filesystem::remove(file);
        if (!before.empty())
            write_file(file, before);
        EXPECT_EQ(run_on_board("set port 4 --spanning-tree on --confirm 2 --force --file " + file).status, 0);
        EXPECT_NE(read_file(file).find("[port.4]\nspanning_tree = true\n"), std::string::npos);
        EXPECT_TRUE(end_of_wait().starts_with("the last change went back at ")) << end_of_wait();
        EXPECT_EQ(read_file(file), before);
        EXPECT_EQ(std::filesystem::exists(file), !before.empty());
    }
}

TEST_F(confirm, tells_what_kept_it_from_going_back)
{
    report(STATUS);
    write_file(file, "");
    EXPECT_EQ(run_on_board("apply --confirm 3 " + file).status, 0);
    close(control.fd);
    control.fd = -1;
    const std::string end = end_of_wait();
    EXPECT_TRUE(end.starts_with("the last change should have gone back at ")) << end;
    EXPECT_NE(end.find(", but: no reader on "), std::string::npos) << end;
}

TEST_F(confirm, survives_its_terminal)
{
    report(STATUS);
    write_file(file, "");
    // A terminal of its own, which ends with the command.
    const run_t result = run_on_board(
        fmt::format("--help >/dev/null; setsid -w script -qec '\"{}\" --root {} apply --confirm 1 {}' /dev/null",
                    rstpctl_program(), board.path, file));
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_TRUE(end_of_wait().starts_with("the last change went back at ")) << end_of_wait();
}

TEST_F(confirm, needs_to_know_what_is_in_force)
{
    write_file(file, "");
    expect_untold("apply --confirm 5 " + file,
                  "it cannot be told what is on now: no status file at " + board.path + RSTP_MONITOR_FILE +
                      ": is the daemon running? It writes the file every second.\nNothing was changed or sent.");
    std::filesystem::create_symlink("/etc", path("tmp/lvt_rstpctl"));
    report(STATUS);
    expect_refused("apply --confirm 5 " + file,
                   path("tmp/lvt_rstpctl") + " is no folder that only this user may write: remove it");
}
