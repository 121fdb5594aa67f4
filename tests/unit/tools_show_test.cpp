/// lvt_rstpctl show and monitor on prepared status files.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <regex>
#include <sstream>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <pty.h>
#include <sys/file.h>

#include "tools/printable.h"
#include "tools_ctl.h"

namespace {

using json_t = nlohmann::json;
using namespace std::chrono_literals;

constexpr char BRIDGE_TABLE[] =
    "bridge           61440/02:00:00:00:01:00\n"
    "root             32768/02:00:00:01:11:00 through port 1\n"
    "                 (with the default priority, so that the lowest address decided)\n"
    "root path cost   8000\n"
    "times            max age 20 s, hello time 2 s, forward delay 15 s\n"
    "topology change  none\n"
    "last change      by port 3, 72 passes ago, at 2026/11/20 14:08:15 or later\n";

constexpr char NOT_REGULAR[] = ": not a regular file. Put one in its place, or name another.";

constexpr char PORTS_TABLE[] =
    "port  role        state       cost  edge  p2p  neighbour  designated bridge        its port\n"
    "1     root        forwarding  8000  no    yes  STP        32768/02:00:00:01:11:00         1\n"
    "2     alternate   discarding  8000  no    yes  STP        32768/02:00:00:01:11:00         2\n"
    "3     designated  forwarding  8000  yes   yes  none       61440/02:00:00:00:01:00         3\n"
    "4     off         off\n"
    "5     off         off\n"
    "6     off         off\n";

constexpr char STATISTICS_TABLE[] =
    "port  sent RST  config  TCN  received RST  config  TCN  illegal  unknown\n"
    "1            4       5    6             7      20    8        9       10\n"
    "2            3       0    0             0      20    0        0        0\n"
    "3           23       0    0             0       0    0        0        0\n"
    "4            0       0    0             0       0    0        0        0\n"
    "5            0       0    0             0       0    0        0        0\n"
    "6            0       0    0             0       0    0        0        0\n";

/// Ports 1 and 2 in group 7, whose state is that of a root port.
std::string grouped()
{
    std::string text = replaced(STATUS, "port01=8000,0,1,1,3,4,0", "port01=8000,0,1,1,5,5,7");
    text = replaced(text, "port02=8000,0,1,1,1,1,0", "port02=0,1,1,0,5,5,7");
    text = replaced(text, "port07=0,0,0,0,0,0,0,0", "port07=0,0,0,9,0,0,0,0");
    return replaced(text, "port07=0,1,1,0,5,5,0,0:00-00-00-00-00-00/0",
                    "port07=4000,0,1,0,3,4,0,32768:02-00-00-01-11-00/1");
}

/// The machine's clock in a zone, for as long as this lives.
struct zone_t {
    explicit zone_t(const char *name) { setenv("TZ", name, 1); }
    ~zone_t() { unsetenv("TZ"); }
    zone_t(const zone_t &) = delete;
    zone_t &operator=(const zone_t &) = delete;
};

class show : public ctl {
protected:
    /// What `show` says when it refuses, with N for the number of seconds in it, which must be `seconds`
    /// but for the time that the command itself may take.
    std::string refused_some_seconds_from(long seconds)
    {
        const run_t result = run_on_board("show");
        EXPECT_EQ(result.status, 3);
        const size_t end = result.output.find(" s "), begin = result.output.rfind(' ', end - 1) + 1;
        if (end == std::string::npos)
            return result.output;
        EXPECT_NEAR(std::atol(result.output.c_str() + begin), seconds, 30) << result.output;
        return result.output.substr(0, begin) + "N" + result.output.substr(end);
    }
    json_t json_of(const std::string &arguments) { return json_t::parse(run_on_board(arguments).output); }
};

/// A pseudo terminal, or why there is none.
struct terminal_t {
    explicit terminal_t(const winsize &size = {})
    {
        if (openpty(&near, &far, name, nullptr, &size) != 0)
            fault = std::strerror(errno);
    }
    ~terminal_t()
    {
        close(near);
        close(far);
    }
    terminal_t(const terminal_t &) = delete;
    terminal_t &operator=(const terminal_t &) = delete;

    int near = -1, far = -1;
    char name[PATH_MAX] = "/dev/null";
    std::string fault;
};

class show_on_terminal : public show {
protected:
    void SetUp() override
    {
        if (const terminal_t trial; !trial.fault.empty())
            GTEST_SKIP() << "cannot run here: no pseudo terminal: " << trial.fault;
    }

    /// What a command writes on a terminal of its own.
    std::string run_on_terminal(const std::string &arguments, winsize size, const char *kind = "xterm")
    {
        setenv("TERM", kind, 1);
        terminal_t terminal(size);
        const run_t result = run_on_board(arguments + " >" + terminal.name);
        EXPECT_EQ(result.status, 0) << arguments;
        close(std::exchange(terminal.far, -1));

        std::string text;
        char buffer[4096];
        for (ssize_t count; (count = read(terminal.near, buffer, sizeof buffer)) > 0;)
            text.append(buffer, static_cast<size_t>(count));
        std::erase(text, '\r');
        return text;
    }
};

} // namespace

TEST_F(show, everything_by_default)
{
    report(STATUS);
    expect_says("show", fmt::format("{}\n{}\n{}", BRIDGE_TABLE, PORTS_TABLE, STATISTICS_TABLE));
}

TEST_F(show, one_subject)
{
    report(STATUS);
    // The first look at it each time: where programs start slowly, ports would be silent long by the last one.
    const auto forget = [this] { std::filesystem::remove_all(path("tmp/lvt_rstpctl")); };
    expect_says("show bridge", BRIDGE_TABLE);
    forget();
    expect_says("show ports", PORTS_TABLE);
    forget();
    expect_says("show statistics", STATISTICS_TABLE);
    forget();
    expect_says("show port 2",
                "port            2\n"
                "role            alternate\n"
                "state           discarding\n"
                "edge            no\n"
                "point-to-point  yes\n"
                "cost            8000\n"
                "priority        not told\n"
                "neighbour       STP\n"
                "designated      32768/02:00:00:01:11:00 port 2\n"
                "sent            3 RST, 0 configuration, 0 TCN\n"
                "received        0 RST, 20 configuration, 0 TCN, 0 illegal, 0 unknown\n");
}

TEST_F(show, the_root_itself_during_a_topology_change)
{
    report(replaced(replaced(STATUS, "15,0,32768:02-00-00-01-11-00,1", "15,1,61440:02-00-00-00-01-00,0"),
                    "2026/11/20 14:08:15,3,72", ",0,0"));
    expect_says("show bridge",
                "bridge           61440/02:00:00:00:01:00\n"
                "root             this bridge\n"
                "root path cost   0\n"
                "times            max age 20 s, hello time 2 s, forward delay 15 s\n"
                "topology change  running\n");
}

TEST_F(show, groups_and_their_members)
{
    report(grouped());
    expect_says(
        "show ports",
        "port      role        state       cost        edge  p2p  neighbour  designated bridge        its port\n"
        "1         member      forwarding  of group 7\n"
        "2         member      forwarding  of group 7\n"
        "3         designated  forwarding        8000  yes   yes  none       61440/02:00:00:00:01:00         3\n"
        "4         off         off\n"
        "5         off         off\n"
        "6         off         off\n"
        "7 (1, 2)  root        forwarding        4000  no    yes  RSTP       32768/02:00:00:01:11:00         1\n");
    EXPECT_NE(run_on_board("show port 7").output.find("members         1, 2\n"), std::string::npos);
    EXPECT_NE(run_on_board("show port 8").output.find("members         none\n"), std::string::npos);
    EXPECT_NE(run_on_board("show port 1").output.find("group           7\n"), std::string::npos);
}

TEST_F(show, several_ports_one_by_one)
{
    report(STATUS);
    const std::string first = run_on_board("show port 1").output, second = run_on_board("show port 2").output;
    expect_says("show port 1-2", first + "\n" + second);
    EXPECT_EQ(json_of("show port 2,4 -j")["ports"].size(), 2u);
    EXPECT_EQ(json_of("show port all -j")["ports"].size(), 9u);
}

TEST_F(show, the_cost_of_the_way_to_the_root_as_far_as_it_is_told)
{
    report(replaced(STATUS, "0,1,1,3,4,0,32768:02-00-00-01-11-00/1", "0,1,1,3,4,0,40960:02-00-00-01-12-00/1"));
    EXPECT_NE(run_on_board("show bridge").output.find("root path cost   not told, more than the 8000 of port 1\n"),
              std::string::npos);
    EXPECT_EQ(json_of("show -j")["bridge"]["root_path_cost"], nullptr);
}

TEST_F(show, what_is_set_beside_what_runs)
{
    const std::string file = path("switch.toml");
    write_file(file,
               "[bridge]\npriority = 4096\n[port.1]\nspanning_tree = true\nedge = false\n[port.2]\n"
               "spanning_tree = true\npath_cost = 8000\npoint_to_point = false\n[port.4]\nspanning_tree = true\n");
    report(STATUS);
    expect_says("show config --file " + file,
                "priority       4096 / 61440 !\n"
                "max_age        20 / -\n"
                "hello_time     2 / -\n"
                "forward_delay  15 / -\n"
                "force_version  2 / -\n"
                "\n"
                "port  tree        cost         edge       p2p         priority  LACP     group\n"
                "1     on / on     auto / 8000  off / off  auto / on   128 / -   off / -  - / 0\n"
                "2     on / on     8000 / 8000  on / off   off / on !  128 / -   off / -  - / 0\n"
                "3     off / on !  auto / 8000  on / on    auto / on   128 / -   off / -  - / 0\n"
                "4     on / off !  auto / -     on / -     auto / -    128 / -   off / -  - / 0\n"
                "5     off / off   auto / -     on / -     auto / -    128 / -   off / -  - / 0\n"
                "6     off / off   auto / -     on / -     auto / -    128 / -   off / -  - / 0\n"
                "\n"
                "SET / RUNS: as set in " +
                    file + ", and as it runs; - is not told. The root's times rule.\n");
    const json_t document = json_of("show config -j --file " + file);
    EXPECT_EQ(document["bridge"]["priority"], json_t::parse(R"({"set": 4096, "runs": 61440, "differs": true})"));
    EXPECT_EQ(document["bridge"]["max_age"]["runs"], nullptr); // another bridge is the root
    EXPECT_EQ(document["ports"][0]["path_cost"], json_t::parse(R"({"set": null, "runs": 8000, "differs": false})"));
    EXPECT_EQ(document["ports"][1]["point_to_point"]["differs"], true);
    EXPECT_EQ(document["ports"][3]["spanning_tree"], json_t::parse(R"({"set": true, "runs": false, "differs": true})"));
    expect_refused("show config", "cannot read " + board.path +
                                      "/etc/lvt_rstp.toml: No such file or directory. Write it, see man lvt_rstp.toml; "
                                      "set makes one, too.");
    expect_usage("show ports --file " + file, "--file goes with show config");
    expect_usage("show config --watch", "show config knows --json and --file only");
}

TEST_F(show, its_own_former_identifier_as_root)
{
    report(replaced(STATUS, "0,32768:02-00-00-01-11-00,1\n", "0,4096:02-00-00-00-01-00,1\n"));
    EXPECT_NE(run_on_board("show").output.find("root             4096/02:00:00:00:01:00 through port 1\n"
                                               "                 (this bridge's own former identifier, ages out)\n"),
              std::string::npos);
    EXPECT_EQ(json_of("show -j")["bridge"]["root_is_former_self"], true);
}

TEST_F(show, to_which_port_a_backup_is_looped)
{
    report(replaced(STATUS, "0,1,1,1,1,0,32768:02-00-00-01-11-00/2", "0,1,0,2,1,0,61440:02-00-00-00-01-00/3"));
    EXPECT_NE(run_on_board("show ports").output.find("backup      discarding  8000  no    yes  own port 3 "),
              std::string::npos);
    EXPECT_NE(run_on_board("show port 2").output.find("neighbour       own port 3\n"), std::string::npos);
    EXPECT_EQ(json_of("show port 2 -j")["ports"][0]["looped_to"], 3);
}

TEST_F(show, letters_that_people_know_before_and_behind_the_command)
{
    report(STATUS);
    const std::string table = run_on_board("show ports").output;
    EXPECT_EQ(run_on_board("-o show ports").output, run_on_board("show ports -o").output);
    EXPECT_EQ(json_of("-j -p show ports")["ports"], json_of("show -pj ports")["ports"]);
    EXPECT_EQ(json_of("-json show port 1")["ports"], json_of("-jp show port 1")["ports"]);
    expect_says("-s show ports", table + "\n" + STATISTICS_TABLE);
    expect_says("show ports -c=never", table);
    EXPECT_NE(run_on_board("-c show ports").output.find("\033[32mforwarding"), std::string::npos);
    EXPECT_EQ(run_through({STATUS}, "-ts monitor").status, 3); // as without
    report(STATUS);
    expect_usage("-d show ports", "-d: show port LIST has all that is known of a port");
    expect_usage("-br show", "-br: show ports has one line for each port");
    expect_usage("-ts show", "-ts: only monitor tells times, and always does");
    expect_usage("-n blue show", "-n: a board is named by its folder, --root /proc/PID/root");
    expect_says("-br decode bc301182 00000000 0600000000000000", "control message, empty the work table\n");
}

TEST_F(show, states_have_colours_when_wanted)
{
    report(STATUS);
    EXPECT_EQ(run_on_board("show").output.find('\033'), std::string::npos);
    const std::string text = run_on_board("show --color always").output;
    EXPECT_NE(text.find("\033[32mforwarding\033[0m"), std::string::npos) << text;
    EXPECT_EQ(text.find("\033[31m"), std::string::npos) << text; // a healthy alternate is no trouble
    report(replaced(STATUS, "0,1,1,1,1,0", "0,1,1,4,1,0"));
    EXPECT_NE(run_on_board("show --color always").output.find("\033[33mdiscarding\033[0m"), std::string::npos);
    EXPECT_EQ(run_on_board("show --color perhaps").status, 2);
}

TEST_F(show, json_has_a_version_and_every_value)
{
    report(STATUS);
    const zone_t zone("CET-1CEST");
    const json_t document = json_of("show -j");
    EXPECT_EQ(document["version"], 2);
    EXPECT_EQ(document["bridge"], json_t::parse(R"({
        "id": "61440/02:00:00:00:01:00", "root": "32768/02:00:00:01:11:00", "is_root": false, "root_is_former_self": false,
        "root_port": 1, "root_path_cost": 8000,
        "max_age": 20, "hello_time": 2, "forward_delay": 15,
        "topology_change": {"running": false, "last_not_before": "2026-11-20T13:08:15Z", "port": 3, "passes_since": 72}})"));
    ASSERT_EQ(document["ports"].size(), 9u);
    EXPECT_EQ(document["ports"][0], json_t::parse(R"({
        "port": 1, "role": "root", "state": "forwarding", "path_cost": 8000, "edge": false,
        "point_to_point": true, "neighbour": "stp", "deaf": false, "looped_to": null, "group": null, "members": [],
        "designated_bridge": "32768/02:00:00:01:11:00", "designated_port": 1,
        "sent": {"rst": 4, "configuration": 5, "tcn": 6},
        "received": {"rst": 7, "configuration": 20, "tcn": 8, "illegal": 9, "unknown": 10}})"));
    EXPECT_EQ(document["ports"][8]["designated_bridge"], nullptr);
}

TEST_F(show, json_keeps_its_shape_whatever_is_shown)
{
    report(grouped());
    const json_t all = json_of("show -j");
    for (const char *subject : {"bridge", "ports", "statistics", "port 7"}) {
        const json_t document = json_of(fmt::format("show {} -j", subject));
        EXPECT_EQ(document["bridge"], all["bridge"]) << subject;
        EXPECT_TRUE(document["ports"].is_array()) << subject;
        for (const json_t &port : document["ports"])
            EXPECT_EQ(port, all["ports"][port["port"].get<size_t>() - 1]) << subject;
    }
    EXPECT_EQ(json_of("show bridge -j")["ports"].size(), 0u);
    EXPECT_EQ(json_of("show port 7 -p")["ports"][0]["members"], json_t({1, 2}));
    EXPECT_EQ(json_of("show port 1 -p")["ports"][0]["role"], "member");
}

TEST_F(show, pretty_is_the_same_document_over_lines)
{
    report(STATUS);
    const std::string compact = run_on_board("show --json").output, pretty = run_on_board("show --pretty").output;
    EXPECT_EQ(std::ranges::count(compact, '\n'), 1);
    EXPECT_GT(std::ranges::count(pretty, '\n'), 100);
    json_t first = json_t::parse(compact), second = json_t::parse(pretty);
    EXPECT_EQ(first.erase("written") + second.erase("written"), 2u); // the second report may be of the next second
    EXPECT_EQ(first, second);
}

TEST_F(show, one_line_each)
{
    report(STATUS);
    EXPECT_EQ(
        run_on_board("show port 1 -o").output,
        "port 1 role=root state=forwarding path_cost=8000 edge=false point_to_point=true neighbour=stp deaf=false "
        "looped_to=null group=null "
        "members=[] designated_bridge=32768/02:00:00:01:11:00 designated_port=1 sent.rst=4 "
        "sent.configuration=5 sent.tcn=6 received.rst=7 received.configuration=20 received.tcn=8 "
        "received.illegal=9 received.unknown=10\n");
    const std::string all = run_on_board("show -o").output;
    EXPECT_EQ(std::ranges::count(all, '\n'), 10);
    EXPECT_TRUE(all.starts_with("bridge id=61440/02:00:00:00:01:00 root=32768/02:00:00:01:11:00 is_root=false "));
    expect_usage("show -o -j", "--json excludes --oneline");
}

TEST_F(show, no_status_file)
{
    expect_untold("show", "no status file at " + board.path +
                              "/tmp/rstp_monitor: is the daemon running? It writes the file every second.");
}

TEST_F(show, a_stale_status_file)
{
    report(STATUS);
    age = 0ms;
    EXPECT_EQ(run_on_board("show").status, 0);
    age = 1h;
    EXPECT_EQ(refused_some_seconds_from(60 * 60),
              "lvt_rstpctl: " + board.path +
                  "/tmp/rstp_monitor is N s old: the daemon writes it every second, so it has ended or hangs. Look "
                  "at what it printed last, and start it again.\n");
}

TEST_F(show, a_malformed_status_file)
{
    report(replaced(STATUS, "port02=8000", "port02=eight"));
    expect_untold("show -j", board.path +
                                 "/tmp/rstp_monitor is no status file of this daemon: line 9 is not the state "
                                 "of port 2. Does another program write there? The daemon puts a sound one "
                                 "in its place within a second.");
}

TEST_F(show, what_cannot_be_read)
{
    std::filesystem::create_directory(board.path + RSTP_MONITOR_FILE);
    expect_untold("show", "cannot read " + board.path + "/tmp/rstp_monitor" + NOT_REGULAR);
}

TEST_F(show, a_pipe_instead_of_the_status_file)
{
    const pipe_reader_t pipe(board.path + RSTP_MONITOR_FILE);
    expect_untold("show", "cannot read " + pipe.path + NOT_REGULAR);
    expect_refused("check " + pipe.path, "cannot read " + pipe.path + NOT_REGULAR);
    expect_refused("set bridge --priority 0 --file /dev/full", std::string("cannot read /dev/full") + NOT_REGULAR);
}

TEST_F(show, a_status_file_without_end)
{
    report(STATUS + std::string(1 << 16, '!'));
    expect_untold("show", "cannot read " + board.path + "/tmp/rstp_monitor: it has more than 65536 octets");
}

TEST_F(show, a_status_file_of_the_future)
{
    report(STATUS);
    age = -2000ms;
    EXPECT_EQ(run_on_board("show").status, 0);
    age = -1h;
    EXPECT_EQ(refused_some_seconds_from(60 * 60),
              "lvt_rstpctl: " + board.path +
                  "/tmp/rstp_monitor is dated N s ahead: the clock was set back, and the daemon, which writes it "
                  "every second, has not written it since. Look at what it printed last, and start it again.\n");
}

TEST_F(show, no_neighbour_where_none_was_heard)
{
    report(replaced(STATUS, "port03=8000,1,1,0", "port03=8000,0,1,0"));
    EXPECT_EQ(json_of("show port 3 -j")["ports"][0]["neighbour"], "none");
    const std::string table = run_on_board("show ports").output;
    EXPECT_NE(table.find("no    yes  none       61440/"), std::string::npos) << table;
}

TEST_F(show, no_topology_change_until_a_port_told_of_one)
{
    report(replaced(STATUS, ",3,72", ",0,72"));
    EXPECT_NE(run_on_board("show bridge").output.find("topology change  none\n"), std::string::npos);
    EXPECT_EQ(json_of("show -j")["bridge"]["topology_change"]["last_not_before"], nullptr);
}

// ---- the output -------------------------------------------------------------------------

TEST_F(show, output_that_does_not_arrive)
{
    report(STATUS);
    const std::string full = " 3>&1 >/dev/full 2>&3 #";
    const std::string reason = "lvt_rstpctl: cannot write to standard output: No space left on device\n";
    for (const char *arguments : {"show", "show bridge --watch", "show -j --watch",
                                  "send bridge --priority 0 --dry-run", "--help", "show --help", "--version"}) {
        const run_t result = run_on_board(arguments + full);
        EXPECT_EQ(result.status, 1) << arguments;
        EXPECT_EQ(result.output, reason) << arguments;
    }
    EXPECT_EQ(run_on_board("show 3>&1 >&- 2>&3 #").output,
              "lvt_rstpctl: cannot write to standard output: Bad file descriptor\n");
    EXPECT_EQ(run_on_board("expect port 1 is root >/dev/full").status, 0); // which says nothing
    const std::string changed = replaced(STATUS, "0,1,1,1,1,0", "0,1,1,1,4,0");
    EXPECT_EQ(run_through({STATUS, changed}, "monitor -j" + full).output, reason);
}

TEST_F(show, faults_when_nobody_hears_them)
{
    EXPECT_EQ(run_on_board("show 2>&- #").status, 3);
    EXPECT_EQ(run_on_board("dance 2>&- #").status, 2);
}

TEST_F(show, reports_that_nobody_reads)
{
    report(STATUS);
    pipe_reader_t pipe(path("pipe"));
    const reads_t reads(board.path + "/tmp");
    std::thread reader([&] {
        reads.wait();
        close(pipe.fd);
        pipe.fd = -1;
        report(STATUS);
    });
    const run_t result = run_on_board("monitor 3>&1 >" + pipe.path + " 2>&3 #");
    reader.join();
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "lvt_rstpctl: nobody reads the output any more\n");
}

TEST_F(show, foreign_text_does_not_reach_the_terminal_as_it_is)
{
    report(STATUS);
    expect_usage("show \"$(printf '\\033[2J')\"",
                 "SUBJECT: \"\\x1b[2J\" is none of bridge, ports, statistics, port, config");
    expect_usage("\"$(printf -- '--a\\033[2J')\"", "The following argument was not expected: --a\\x1b[2J");
    EXPECT_EQ(printable("a\x1b[2J\x9b\x7f\r\xc3\xbc\n~"), "a\\x1b[2J\\x9b\\x7f\\x0d\\xc3\\xbc\n~");
}

TEST_F(show_on_terminal, fits_the_terminal)
{
    report(STATUS);
    EXPECT_EQ(run_on_terminal("show ports --color never", {24, 91, 0, 0}), PORTS_TABLE);
    EXPECT_EQ(run_on_terminal("show ports --color never", {24, 80, 0, 0}),
              "port  role        state       cost  edge  p2p  designated bridge\n"
              "1     root        forwarding  8000  no    yes  32768/02:00:00:01:11:00\n"
              "2     alternate   discarding  8000  no    yes  32768/02:00:00:01:11:00\n"
              "3     designated  forwarding  8000  yes   yes  61440/02:00:00:00:01:00\n"
              "4     off         off\n"
              "5     off         off\n"
              "6     off         off\n"
              "no room for: its port, neighbour\n");
    report(grouped());
    std::istringstream all(run_on_terminal("show --color never", {24, 80, 0, 0}));
    for (std::string line; std::getline(all, line);)
        EXPECT_LE(line.size(), 80u) << line;
}

TEST_F(show_on_terminal, watching_redraws_a_screen_in_place)
{
    report(STATUS);
    age = FRESH_FOR_LONG;
    const std::string text = run_on_terminal("show --color never --watch --for 0.1", {10, 80, 0, 0});
    EXPECT_TRUE(text.starts_with("\033[?7l\033[H20")) << text;
    EXPECT_TRUE(text.ends_with("\033[J\033[?7h")) << text;
    EXPECT_EQ(std::ranges::count(text, '\n'), 9) << text;
    // In all: the time, seven lines of the bridge, and two tables, each after a blank line, of seven
    // lines and one about columns.
    EXPECT_NE(text.find("... and 18 lines for which there is no room\033[K\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("\033[2J"), std::string::npos) << text;

    const std::string whole = run_on_terminal("show bridge --color never --watch --for 0.1", {9, 80, 0, 0});
    EXPECT_EQ(std::ranges::count(whole, '\n'), 8) << whole;
    EXPECT_EQ(whole.find("no room"), std::string::npos) << whole;
}

TEST_F(show_on_terminal, colours_only_where_they_are_wanted)
{
    report(STATUS);
    const auto is_coloured = [this](const char *kind) {
        return run_on_terminal("show ports", {24, 80, 0, 0}, kind).find('\033') != std::string::npos;
    };
    unsetenv("NO_COLOR");
    EXPECT_TRUE(is_coloured("xterm"));
    EXPECT_FALSE(is_coloured("dumb"));
    setenv("NO_COLOR", "", 1);
    EXPECT_TRUE(is_coloured("xterm"));
    setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(is_coloured("xterm"));
    unsetenv("NO_COLOR");
}

// ---- what cannot be shown ----------------------------------------------------------------

TEST_F(show, subjects_that_are_none)
{
    report(STATUS);
    expect_usage("show weather", "SUBJECT: \"weather\" is none of bridge, ports, statistics, port, config");
    expect_usage("show port", "SUBJECT: port should read port LIST");
    expect_usage("show ports 3", "SUBJECT: one is enough");
    expect_usage("show port x", "port: \"x\" is not a number");
    expect_refused("show port 10", "logical port 10: allowed is 1 to 9");
    expect_usage("show --for 3", "--for requires --watch");
    expect_usage("show --watch --for inf", "--for: \"inf\" is no number of seconds from 0 to 1000000000");
    expect_usage("monitor --for -1", "--for: \"-1\" is no number of seconds from 0 to 1000000000");
}

TEST_F(show, watch_marks_what_changed)
{
    const run_t result = run_through({STATUS, replaced(STATUS, "0,1,1,1,1,0", "0,1,1,1,4,0")}, "show ports --watch");
    EXPECT_NE(result.output.find("2      alternate    discarding   8000"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("2      alternate    forwarding*  8000"), std::string::npos) << result.output;
    EXPECT_EQ(std::ranges::count(result.output, '*'), 1) << result.output;
}

TEST_F(show, watch_holds_the_time_of_a_topology_change)
{
    const std::string later = replaced(STATUS, "14:08:15,3,72", "14:08:09,3,79");
    const std::string anew = replaced(STATUS, "14:08:15,3,72", "14:09:00,3,4");
    const std::string text = run_through({STATUS, later, anew}, "show bridge --watch").output;
    EXPECT_NE(text.find("by port 3, 72 passes ago, at 2026/11/20 14:08:15 or later\n"), std::string::npos) << text;
    EXPECT_NE(text.find("by port 3, 79 passes ago, at 2026/11/20 14:08:15 or later\n"), std::string::npos) << text;
    EXPECT_NE(text.find("by port 3, 4 passes ago, at 2026/11/20 14:09:00 or later*\n"), std::string::npos) << text;
    EXPECT_EQ(std::ranges::count(text, '*'), 1) << text;
}

TEST_F(show, watch_tells_of_ports_that_hear_nothing)
{
    const std::string quick = replaced(STATUS, ",20,2,15,", ",20,1,15,");
    report(quick);
    std::string text = run_on_board("show ports --watch --for 3.5").output;
    EXPECT_NE(text.find("\nport 1, 2 is deaf, no BPDU for 3 s: port 4, 5, 6 is off, which may have taken back the "
                        "trap of BPDUs:\n  lvt_rstpctl apply arms it.\n"),
              std::string::npos)
        << text;

    // All stand where neighbours that follow are silent: this alone is no fault.
    std::filesystem::remove_all(path("tmp/lvt_rstpctl"));
    report(replaced(replaced(quick, "0,1,1,3,4,0", "0,1,1,4,4,0"), "0,1,1,1,1,0", "0,1,1,4,4,0"));
    text = run_on_board("show ports --watch --for 3.5").output;
    EXPECT_EQ(text.find("is deaf, no"), std::string::npos) << text;
    EXPECT_NE(text.find("\nnobody is heard, no BPDU for 3 s on port 1, 2: as it should be if the other\n"
                        "  ends are root ports or alternates. Else this bridge is deaf:\n"),
              std::string::npos)
        << text;
}

TEST_F(show, one_look_after_the_other_tells_of_ports_that_hear_nothing)
{
    const auto shown_later = [this](const std::string &first, const std::string &second, const char *command) {
        std::filesystem::remove_all(path("tmp/lvt_rstpctl"));
        report(first);
        age = 1500ms;
        const std::string text = run_on_board(command).output;
        EXPECT_EQ(text.find("BPDU for"), std::string::npos) << text;
        report(second);
        age = FRESH_FOR_LONG;
        return std::regex_replace(run_on_board(command).output, std::regex(" [4-9] s"), " several s");
    };
    const std::string quick = replaced(STATUS, ",20,2,15,", ",20,1,15,");
    const std::string took_over = replaced(replaced(quick, "0,1,1,3,4,0", "0,1,1,4,4,0"), "0,1,1,1,1,0", "0,1,1,4,4,0");
    std::string text = shown_later(quick, quick, "show ports");
    EXPECT_NE(text.find("\nport 1, 2 is deaf, no BPDU for several s: port 4, 5, 6 is off"), std::string::npos) << text;
    text = shown_later(quick, quick, "show -j");
    EXPECT_EQ(json_t::parse(text)["ports"][1]["deaf"], true);
    EXPECT_EQ(json_t::parse(text)["ports"][2]["deaf"], false); // a host is there
    text = shown_later(quick, took_over, "show ports");
    EXPECT_NE(text.find("\nport 1, 2 heard its last BPDU several s ago, when it was no designated port. Either"),
              std::string::npos)
        << text;
    EXPECT_EQ(json_t::parse(shown_later(quick, took_over, "show -j"))["ports"][0]["deaf"], false);

    // What is heard in between, a port that was down, and the counters of another daemon.
    text = shown_later(quick, replaced(replaced(quick, "20,8,9,10", "21,8,9,10"), "=3,0,0,0,20,", "=3,0,0,0,21,"),
                       "show ports");
    EXPECT_EQ(text.find("BPDU for"), std::string::npos) << text;
    text = shown_later(replaced(replaced(quick, "0,1,1,3,4,0", "0,1,1,0,0,0"), "0,1,1,1,1,0", "0,1,1,0,0,0"), took_over,
                       "show ports");
    EXPECT_NE(text.find("\nnobody is heard, no BPDU for several s on port 1, 2: as it should be"), std::string::npos)
        << text;
    text = shown_later(quick, replaced(quick, "port03=23,", "port03=2,"), "show ports");
    EXPECT_EQ(text.find("BPDU for"), std::string::npos) << text;

    // What others left there is not taken for ours.
    write_file(path("tmp/lvt_rstpctl/seen.json"), "[]");
    EXPECT_EQ(run_on_board("show").status, 0);
}

TEST_F(show, another_users_look_leaves_nothing)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "cannot run here: only root can give a file away";
    report(STATUS);
    ASSERT_EQ(chown(path(RSTP_MONITOR_FILE).c_str(), 1, 1), 0);
    EXPECT_EQ(run_on_board("show").status, 0);
    EXPECT_FALSE(std::filesystem::exists(path("tmp/lvt_rstpctl")));
    report(STATUS);
    EXPECT_EQ(run_on_board("show").status, 0);
    EXPECT_TRUE(std::filesystem::exists(path("tmp/lvt_rstpctl/seen.json")));
}

TEST_F(show, the_bridge_that_is_named_has_to_be_ruled)
{
    const std::string asked = fmt::format("--state-dir {} --bridge br0 show", board.path);
    const std::string nobody = "lvt_rstpctl: no lvt_bridge rules br0, or it is not ready yet\n";
    const auto expect_untold = [&](const std::string &text) {
        const run_t told = run(asked);
        EXPECT_EQ(told.status, 3);
        EXPECT_EQ(told.output, text);
    };
    expect_untold(nobody);
    write_file(board.path + "/br0.json", R"({"pid": 1, "config": "", "ports": []})");
    write_file(board.path + "/br0.lock", "");
    expect_untold(nobody); // of an lvt_bridge that is no more

    const int lock = open((board.path + "/br0.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX), 0);
    write_file(board.path + "/br0.json", "{");
    expect_untold(fmt::format("lvt_rstpctl: {}/br0.json is no report of lvt_bridge\n", board.path));
    write_file(board.path + "/br0.json", R"({"config": ""})");
    expect_untold("lvt_rstpctl: the report of br0 is not understood\n");
    close(lock);
    EXPECT_EQ(run("--root / --bridge br0 show").status, 2);
}

TEST_F(show, one_look_after_the_other_holds_the_time_of_a_topology_change)
{
    report(STATUS);
    EXPECT_EQ(json_of("show -j")["bridge"]["topology_change"]["passes_since"], 72);
    report(replaced(STATUS, "14:08:15,3,72", "11:38:15,3,9072"));
    EXPECT_NE(run_on_board("show bridge").output.find("by port 3, 9072 passes ago, at 2026/11/20 14:08:15 or later\n"),
              std::string::npos);
    report(replaced(STATUS, "14:08:15,3,72", "14:20:00,3,7"));
    EXPECT_NE(run_on_board("show bridge").output.find("by port 3, 7 passes ago, at 2026/11/20 14:20:00 or later\n"),
              std::string::npos);
}

TEST_F(show, watch_as_json_is_a_document_a_line)
{
    std::istringstream lines(run_through({STATUS, STATUS, STATUS}, "show -j --watch").output);
    std::string line;
    for (int i = 0; i < 3; i++) {
        std::getline(lines, line);
        EXPECT_EQ(json_t::parse(line)["version"], 2);
    }
}

TEST_F(show, watch_may_have_an_end)
{
    report(STATUS);
    const run_t result = run_on_board("show bridge --watch --for 0.1");
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(result.output.ends_with("\n\n")) << result.output;
}

TEST_F(show, watch_ends_when_the_daemon_does)
{
    report(STATUS);
    age = 2000ms;
    const run_t result = run_on_board("show bridge --watch");
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find(" s old: the daemon writes it every second"), std::string::npos) << result.output;
}

// ---- monitor ---------------------------------------------------------------------------

namespace {

class monitor : public show {
protected:
    /// What the command prints while the reports come, without the times.
    std::string changes_of(const std::vector<std::string> &reports)
    {
        const std::string time = "2026-11-20 14:08:15 ";
        std::istringstream lines(run_through(reports, "monitor").output);
        std::string changes;
        for (std::string line; std::getline(lines, line) && !line.starts_with("lvt_rstpctl: ");) {
            EXPECT_EQ(line.find_first_not_of("0123456789-: "), time.size()) << line;
            changes += line.substr(time.size()) + "\n";
        }
        return changes;
    }
};

} // namespace

TEST_F(monitor, tells_each_change_once)
{
    const std::string second =
        replaced(replaced(replaced(STATUS, "0,1,1,1,1,0", "0,1,1,3,4,0"), "0,1,1,3,4,0,32768:02-00-00-01-11-00/1",
                          "0,1,1,0,0,0,0:00-00-00-00-00-00/0"),
                 "0,32768:02-00-00-01-11-00,1", "0,4096:02-00-00-01-12-00,2");
    EXPECT_EQ(changes_of({STATUS, STATUS, second}),
              "root 32768/02:00:00:01:11:00 -> 4096/02:00:00:01:12:00\n"
              "root port 1 -> 2\n"
              "port 1 role root -> disabled\n"
              "port 1 state forwarding -> down\n"
              "port 2 role alternate -> root\n"
              "port 2 state discarding -> forwarding\n");
}

TEST_F(monitor, tells_topology_changes)
{
    const std::string during = replaced(replaced(STATUS, "15,0,", "15,1,"), "2026/11/20 14:08:15,3,72", ",0,0");
    const std::string after = replaced(STATUS, ",3,72", ",1,2");
    EXPECT_EQ(changes_of({STATUS, during, after}),
              "topology change none -> running\n"
              "topology change running -> over\n");
    EXPECT_EQ(changes_of({STATUS, after}), "topology change none -> over\n");  // between two reports
    EXPECT_EQ(changes_of({replaced(STATUS, ",3,72", ",3,65530"), after}), ""); // the count went round
}

TEST_F(monitor, as_json_lines)
{
    const std::string output =
        run_through({STATUS, replaced(STATUS, "0,1,1,1,1,0", "0,1,1,1,4,0")}, "monitor -j").output;
    const json_t change = json_t::parse(output.substr(0, output.find('\n')));
    EXPECT_EQ(change["version"], 2);
    EXPECT_EQ(change["what"], "state");
    EXPECT_EQ(change["port"], 2);
    EXPECT_EQ(change["from"], "discarding");
    EXPECT_EQ(change["to"], "forwarding");
    EXPECT_EQ(change["time"].get<std::string>().size(), std::string("2026-11-20T14:08:15Z").size());
}

TEST_F(monitor, numbers_are_numbers_in_json)
{
    const std::string self = replaced(STATUS, "32768:02-00-00-01-11-00,1\n", "61440:02-00-00-00-01-00,0\n");
    std::istringstream lines(run_through({STATUS, self}, "monitor -j").output);
    std::string line;
    std::getline(lines, line);
    std::getline(lines, line);
    const json_t change = json_t::parse(line);
    EXPECT_EQ(change["what"], "root port");
    EXPECT_EQ(change["from"], 1);
    EXPECT_EQ(change["to"], nullptr);
}

TEST_F(monitor, ends_when_the_daemon_does)
{
    report(STATUS);
    age = 2000ms;
    run_t result = run_on_board("monitor");
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find("so it has ended or hangs"), std::string::npos) << result.output;

    result = run_through({STATUS}, "monitor");
    EXPECT_EQ(result.status, 3);
    EXPECT_NE(result.output.find("no status file at"), std::string::npos) << result.output;
}
