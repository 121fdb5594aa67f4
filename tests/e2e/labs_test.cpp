// Labs of switches: what is told to them happens, and whatever way they end, nothing of them is left behind.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sys/mman.h>
#include <unistd.h>

#include "fixture.h"

namespace {

using namespace e2e;
using nlohmann::json;

const std::string LAB = lab::program("LVT_LAB_PROGRAM", "lvt_lab");

/// All processes by number, with their command lines, in this world of the test's own.
std::map<std::string, std::string> processes()
{
    std::map<std::string, std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        std::string line;
        std::getline(std::ifstream(entry.path() / "cmdline"), line);
        std::ranges::replace(line, '\0', ' ');
        if (const std::string number = entry.path().filename(); isdigit(number.front()) && !line.empty())
            found[number] = line;
    }
    return found;
}

/// The numbers of the processes whose command line begins so.
std::vector<pid_t> named(const std::string &start)
{
    std::vector<pid_t> numbers;
    for (const auto &[number, line] : processes())
        if (line.starts_with(start))
            numbers.push_back(std::stoi(number));
    std::ranges::sort(numbers);
    return numbers;
}

/// The interfaces, the mounts and the names of sockets of this world.
std::string traces()
{
    const lab::outcome_t interfaces = lab::run({.argv = {"ip", "-brief", "link"}});
    std::ifstream mounts("/proc/self/mounts"), sockets("/proc/net/unix");
    std::string lines;
    for (std::string line; std::getline(mounts, line);)
        if (!line.starts_with("nsfs ")) // those of others come and go
            lines += line + "\n";
    for (std::string line; std::getline(sockets, line);)
        if (const size_t at = line.find('@'); at != std::string::npos)
            lines += line.substr(at) + "\n";
    return interfaces.output + lines;
}

/// Runs the program with these words.
lab::outcome_t lvt_lab(const std::string &words, const std::string &input = {})
{
    std::vector<std::string> argv = {LAB};
    std::istringstream stream(words);
    for (std::string word; stream >> word;)
        argv.push_back(word);
    return lab::run({.argv = std::move(argv)}, input);
}

testing::AssertionResult does(const std::string &words)
{
    const lab::outcome_t outcome = lvt_lab(words);
    if (outcome.exit_code == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << words << " ended with status " << outcome.exit_code << ":\n"
                                       << outcome.output;
}

/// A script that has to hold.
testing::AssertionResult holds(const std::string &script)
{
    const lab::outcome_t outcome = lvt_lab("run -", script);
    if (outcome.exit_code == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << "status " << outcome.exit_code << ":\n" << outcome.output;
}

class labs : public testing::Test {
protected:
    void SetUp() override
    {
        char name[] = "/tmp/labs.XXXXXX";
        folder_ = mkdtemp(name);
        processes_before_ = processes();
        traces_before_ = traces();
    }

    void TearDown() override
    {
        for (const json &lab : json::parse(lvt_lab("ls -j").output))
            EXPECT_TRUE(does("down --lab " + lab.at("lab").get<std::string>()));
        expect_nothing_left();
        std::filesystem::remove_all(folder_);
    }

    /// A path in a folder of the test's own.
    std::string path(const std::string &name) const { return folder_ / name; }

    void expect_nothing_left() const
    {
        EXPECT_TRUE(eventually(
            SOON, [] { return processes(); }, processes_before_));
        EXPECT_TRUE(eventually(
            SOON, [] { return traces(); }, traces_before_));
    }

    std::map<std::string, std::string> processes_before_;
    std::string traces_before_;
    std::filesystem::path folder_;
};

// ---- what happens -----------------------------------------------------------------------------

TEST_F(labs, a_ring_cuts_its_loop_and_heals)
{
    const std::string file = path("fast.yml");
    std::ofstream(file) << R"(topology:
  nodes:
    sw1: {config: {bridge: {priority: 4096, max_age: 6, hello_time: 1, forward_delay: 4}}}
    sw2: {config: {bridge: {max_age: 6, hello_time: 1, forward_delay: 4}}}
    sw3: {config: {bridge: {max_age: 6, hello_time: 1, forward_delay: 4}}}
    sw4: {config: {bridge: {max_age: 6, hello_time: 1, forward_delay: 4}}}
    h1: {kind: host}
    h2: {kind: host}
  links:
    - endpoints: [sw1:1, sw2:2]
    - endpoints: [sw2:1, sw3:2]
    - endpoints: [sw3:1, sw4:2]
    - endpoints: [sw4:1, sw1:2]
    - endpoints: [sw1:6, h1]
    - endpoints: [sw3:6, h2]
)";
    EXPECT_TRUE(holds("up " + file + R"( --lab ring
        expect root is sw1 within 30s
        expect 3-4 is cut within 30s
        expect rest
        expect sw3:1 is alternate
        ping h1 h2
        pull 1-2
        expect 1-2 is pulled
        expect 3-4 carries within 30s
        ping h1 h2 --within 20s
    )"));
}

#ifdef LVT_RAPID
TEST_F(labs, a_rapid_ring_heals_at_once_and_tells_how)
{
    ASSERT_TRUE(does("up ring 4 --rapid"));
    ASSERT_TRUE(holds("expect rest\nping h1 h2"));
    const lab::outcome_t told = lvt_lab("pull 1-2");
    EXPECT_EQ(told.exit_code, 0) << told.output;
    for (const char *line :
         {"  the cable sw1:1-sw2:2 is pulled out\n", "  sw1:1 has lost its link\n", "  sw2:2 has lost its link\n",
          "  sw2 says that it is the root\n", "  sw3:1 forwards\n", " ms  at rest, after "})
        EXPECT_THAT(told.output, HasSubstr(line));
    // It may heal between two pings.
    EXPECT_THAT(told.output, testing::ContainsRegex("(first ping through from h1 to h2 after [0-9]{2,4} ms without"
                                                    "|no ping between h1 and h2 was lost)\n"));
    EXPECT_THAT(lvt_lab("outage").output, HasSubstr("  sw3:1 forwards\n"));
    EXPECT_TRUE(holds("expect outage under 1500ms\nexpect 3-4 carries\nplug 1-2\nexpect rest\nexpect 3-4 is cut"));
    EXPECT_THAT(lvt_lab("pull 1-h1").output, HasSubstr("  h1 and h2 reach each other no more\n"));
    EXPECT_THAT(lvt_lab("plug 1-h1").output,
                testing::ContainsRegex("first ping .* after [0-9]{2,4} ms without: they were apart before\n"));
}
#endif

TEST_F(labs, daemons_and_power_come_and_go)
{
    EXPECT_TRUE(holds(R"(
        up ring 3
        kill sw2
        expect sw2 has no daemon
        restart sw2
        expect sw2:2 is root
        power sw3 off
        expect sw3 has no power
        expect sw1:2 has no link
        power sw3 on
        expect sw3:1 is root within 20s
        set sw2 bridge.priority=4096
        expect root is sw2 within 40s
    )"));
}

TEST_F(labs, cables_lose_frames_as_they_are_told)
{
    EXPECT_TRUE(holds(R"(
        up line 1 --lab one
        expect sw1:6 forwards within 20s
        ping h1 h2
        degrade 1-h1 loss 100%
        expect h1 does not reach h2
        degrade 1-h1 delay 50ms
        ping h1 h2
        degrade h1-1 one-way
        expect h1 does not reach h2
        degrade 1-h1
        ping h1 h2
        deafen h1-1
        expect h1 does not reach h2
        heal h1-1
        ping h1 h2
    )"));
    EXPECT_TRUE(does("up line 1 --hosts 2"));
    EXPECT_TRUE(holds("expect sw1:6 forwards within 20s\nping h1 h2\ndegrade 1-h1 delay 150ms"));
    const std::string said = lvt_lab("exec h1 -- ping -c 1 10.0.0.2").output;
    double ms = 0;
    ASSERT_NE(said.find("time="), std::string::npos) << said;
    sscanf(said.c_str() + said.find("time="), "time=%lf", &ms);
    EXPECT_GE(ms, 300);
    EXPECT_LT(ms, 600);
}

TEST_F(labs, a_flapping_cable_is_pulled_and_plugged)
{
    ASSERT_TRUE(does("up line 2 --rapid"));
    const auto began = std::chrono::steady_clock::now();
    ASSERT_TRUE(does("flap 1-2 3 100ms --now"));
    EXPECT_GE(std::chrono::steady_clock::now() - began, 600ms);
    EXPECT_EQ(json::parse(lvt_lab("show -j").output).at("cables").at(0).at("plugged"), true);
    const std::string told = lvt_lab("outage").output;
    EXPECT_EQ(count_of(told, "the cable sw1:1-sw2:2 is pulled out\n"), 3u) << told;
    EXPECT_EQ(count_of(told, "the cable sw1:1-sw2:2 is plugged in\n"), 3u) << told;
}

TEST_F(labs, a_file_has_bridges_hosts_settings_and_addresses)
{
    const std::string file = path("office.yml");
    std::ofstream(file) << R"(name: an office
topology:
  nodes:
    core: {config: {bridge: {priority: 4096, max_age: 6, hello_time: 1, forward_delay: 4}}}
    floor: {options: [--rapid]}
    old: {kind: linux-bridge, config: {bridge: {max_age: 6, hello_time: 1, forward_delay: 4}}}
    printer: {kind: host, address: 192.168.7.5/16}
    desk: {kind: host, address: 192.168.7.6/16}
  links:
    - endpoints: [core:1, floor:1]
    - endpoints: [floor:2, old]
    - endpoints: [old, core:2]
    - {endpoints: [floor:6, printer], delay: 2ms}
    - endpoints: [core:6, desk]
    - {endpoints: [core:3, floor:3], plugged: never}
)";
    ASSERT_TRUE(does("up " + file));
    EXPECT_TRUE(holds(R"(
        expect root is core within 40s
        expect rest
        ping printer desk
        expect floor:1 is root
        expect core:3-floor:3 is pulled
    )"));
    const json told = json::parse(lvt_lab("show -j").output);
    EXPECT_EQ(told.at("network"), "an office");
    EXPECT_EQ(told.at("nodes").at(1).at("rapid"), true);
    EXPECT_EQ(told.at("nodes").at(2).at("kind"), "linux-bridge");
    EXPECT_EQ(told.at("nodes").at(3).at("bridge"), "192.168.7.5");
    EXPECT_THAT(told.at("cables").at(2).at("ends").at(0).at("role").get<std::string>(),
                testing::AnyOf("root", "alternate", "designated"));
    EXPECT_THAT(lvt_lab("exec core -- cat /etc/lvt_rstp.toml").output, HasSubstr("[bridge]\npriority = 4096\n"));
}

TEST_F(labs, the_times_of_a_file_hold)
{
    const std::string file = path("times.yml");
    std::ofstream(file) << R"(topology:
  nodes:
    sw1: {rapid: true}
    sw2: {rapid: true, boot: 1500ms}
  links:
    - {endpoints: [sw1:1, sw2:1], plugged: 500ms}
story:
  9s: [set sw2 bridge.priority=0, pull 1-2]
)";
    ASSERT_TRUE(does("up " + file + " --story"));
    EXPECT_TRUE(holds(R"(
        expect sw2 has no power within 100ms
        expect 1-2 carries within 6s
        expect root is sw1
        expect 1-2 is pulled within 12s
        expect sw1:1 has no link
    )"));
    EXPECT_THAT(lvt_lab("exec sw2 -- cat /etc/lvt_rstp.toml").output, HasSubstr("priority = 0\n"));
}

#ifdef LVT_BRIDGE
TEST_F(labs, bridges_that_the_daemon_rules_are_switches_like_others)
{
    const std::string file = path("bridges.yml");
    std::ofstream(file) << R"(topology:
  nodes:
    sw1: {rapid: true, config: {bridge: {priority: 4096}}}
    br1: {kind: lvt-bridge, rapid: true}
    br2: {kind: lvt-bridge, options: [--rapid], config: {bridge: {priority: 8192}}}
    h1: {kind: host}
    h2: {kind: host}
  links:
    - endpoints: [sw1:1, br1:1]
    - endpoints: [br1:2, br2:2]
    - endpoints: [br2:1, sw1:2]
    - endpoints: [br1:4, h1]
    - endpoints: [sw1:6, h2]
)";
    ASSERT_TRUE(does("up " + file));
    EXPECT_TRUE(holds(R"(
        expect rest
        expect root is sw1
        expect br1:1 is root
        expect br1:2 is alternate
        expect br1:2 discards
        ping h1 h2
        exec br1 -- lvt_rstpctl expect port 2 is alternate
        pull sw1-br1
        expect outage under 1500ms
        expect br1:2 is root
        plug sw1-br1
        expect br1:2 is alternate
        set br2 bridge.priority=0
        expect root is br2 within 20s
        kill br1
        expect br1 has no daemon
        restart br1
        power br2 off
        expect root is sw1 within 30s
        power br2 on
        expect root is br2 within 30s
    )"));
}
#endif

// ---- what is told --------------------------------------------------------------------------------

TEST_F(labs, all_that_a_picture_needs_is_in_json)
{
    ASSERT_TRUE(does("up ring 3 --rapid"));
    ASSERT_TRUE(holds("expect rest\nping h1 h2"));
    const json told = json::parse(lvt_lab("show -j").output);
    EXPECT_EQ(told.at("nodes").size(), 5u);
    ASSERT_EQ(told.at("cables").size(), 5u);
    EXPECT_GT(told.at("event"), 0);
    for (const json &cable : told.at("cables")) {
        EXPECT_EQ(cable.at("plugged"), true);
        for (const json &end : cable.at("ends"))
            for (const char *key : {"role", "state", "frames", "octets", "bpdus", "lost", "link", "quality"})
                EXPECT_TRUE(end.contains(key)) << key;
    }
    EXPECT_GT(told.at("cables").at(0).at("ends").at(0).at("bpdus"), 0);
    EXPECT_EQ(told.at("cables").at(0).at("ends").at(0).at("claim").at("root"), "32768/02:00:00:00:01:00");

    const fd_t output(lab::checked(memfd_create("output", MFD_CLOEXEC), "memory"));
    lab::process_t monitor = lab::start({.argv = {LAB, "monitor", "-j"}, .out = output.number()});
    const auto said = [&] {
        std::ifstream text(fmt::format("/proc/self/fd/{}", output.number()));
        return std::string(std::istreambuf_iterator<char>(text), {});
    };
    ASSERT_TRUE(eventually(
        SOON,
        [&] {
            lvt_lab("degrade 1-2");
            return said();
        },
        HasSubstr("degrade")));
    ASSERT_TRUE(does("pull 1-2 --now"));
    EXPECT_TRUE(eventually(SOON, said,
                           AllOf(HasSubstr(R"("text":"sw1:1 has lost its link")"), HasSubstr(R"("what":"state")"))));
    monitor.signal(SIGINT);
    EXPECT_TRUE(eventually(
        SOON, [&] { return monitor.exit_code(); }, 0));
    std::istringstream lines(said());
    double last = 0;
    for (std::string line; std::getline(lines, line);) {
        const json event = json::parse(line);
        EXPECT_GE(event.at("ms").get<double>(), last);
        last = event.at("ms");
    }
}

TEST_F(labs, captures_open_in_a_protocol_analyser)
{
    ASSERT_TRUE(does("up ring 3 --rapid"));
    ASSERT_TRUE(holds("expect rest"));
    const std::string file = path("ring.pcapng");
    ASSERT_TRUE(does("capture all " + file + " --for 2500ms"));
    const lab::outcome_t read =
        lab::run({.argv = {"tshark", "-r", file, "-T", "fields", "-e", "frame.interface_name", "-e", "stp.root.hw"}});
    EXPECT_EQ(read.exit_code, 0) << read.output;
    EXPECT_THAT(read.output, HasSubstr("sw1:1-sw2:2\t02:00:00:00:01:00\n"));
    EXPECT_THAT(read.output, HasSubstr("sw3:1-sw1:2\t02:00:00:00:01:00\n"));
}

TEST_F(labs, draws_explains_and_exports_the_tree)
{
    ASSERT_TRUE(does("up ring 3 --rapid"));
    ASSERT_TRUE(holds("expect rest\nexpect 2-3 is cut"));
    EXPECT_THAT(lvt_lab("tree").output, AllOf(testing::StartsWith("sw1, the root  32768/02:00:00:00:01:00\n"),
                                              HasSubstr("- to sw3"), HasSubstr(" - - 2 alternate, discards\n")));
    EXPECT_THAT(lvt_lab("why 2-3").output,
                AllOf(HasSubstr("sw3:2 cuts it: the port is alternate and discards.\n"),
                      HasSubstr("it costs 0 + 8000 = 8000, and the other 8000 + 8000 = 16000.\n")));
    EXPECT_THAT(lvt_lab("why 1-2").output, HasSubstr("Nobody cuts sw1:1-sw2:2: it carries data.\n"));
    EXPECT_THAT(lvt_lab("show").output, HasSubstr("alternate   discards"));
    EXPECT_THAT(lvt_lab("export dot").output, HasSubstr("<b>sw1</b><br/><font point-size=\"11\">root</font>"));
    EXPECT_THAT(lvt_lab("export mermaid").output, HasSubstr("-.-|\""));
    EXPECT_THAT(lvt_lab("export svg").output, HasSubstr("</svg>"));

    const fd_t output(lab::checked(memfd_create("output", MFD_CLOEXEC), "memory"));
    lab::process_t watch = lab::start({.argv = {LAB, "tree", "--watch"}, .out = output.number()});
    const auto drawn = [&] {
        std::ifstream text(fmt::format("/proc/self/fd/{}", output.number()));
        return std::string(std::istreambuf_iterator<char>(text), {});
    };
    ASSERT_TRUE(eventually(SOON, drawn, HasSubstr("sw1, the root")));
    ASSERT_TRUE(does("pull 2-3 --now"));
    EXPECT_TRUE(eventually(SOON, drawn, HasSubstr("\npulled out: sw2:1-sw3:2\n")));
    watch.signal(SIGINT);
    EXPECT_TRUE(eventually(
        SOON, [&] { return watch.exit_code(); }, 0));
}

TEST_F(labs, the_picture_of_the_first_page_is_made_by_one_command)
{
    const std::string drawn = path("ring.svg");
    const lab::outcome_t made = lab::run({.argv = {LVT_PICTURE, drawn}, .environment = {"LVT_LAB_PROGRAM=" + LAB}});
    ASSERT_EQ(made.exit_code, 0) << made.output;
    // Where it is drawn is up to Graphviz and its fonts.
    const auto texts = [](const std::string &file) {
        std::ifstream stream(file);
        const std::string svg(std::istreambuf_iterator<char>(stream), {});
        std::vector<std::string> found;
        for (size_t end = 0, begin; (end = svg.find("</text>", end)) != std::string::npos; end++) {
            begin = svg.rfind('>', end) + 1;
            found.push_back(svg.substr(begin, end - begin));
        }
        return found;
    };
    EXPECT_THAT(texts(drawn), testing::IsSupersetOf({"sw1", "root", "1: alternate, discards"}));
    EXPECT_EQ(texts(drawn), texts(LVT_DOCS "/ring.svg"));
}

// ---- several, and none ------------------------------------------------------------------------------

TEST_F(labs, several_are_up_at_once_and_know_nothing_of_each_other)
{
    ASSERT_TRUE(does("up line 2 --lab one"));
    const lab::outcome_t again = lvt_lab("up line 2 --lab one");
    EXPECT_EQ(again.exit_code, 1);
    EXPECT_THAT(again.output, HasSubstr("a lab \"one\" is up already"));
    ASSERT_TRUE(does("up line 3 --lab two"));
    EXPECT_EQ(json::parse(lvt_lab("ls -j").output).size(), 2u);
    const lab::outcome_t which = lvt_lab("show");
    EXPECT_EQ(which.exit_code, 1);
    EXPECT_THAT(which.output, HasSubstr("say which with --lab, one of one, two\n"));
    EXPECT_TRUE(does("pull 2-3 --now --lab two"));
    EXPECT_EQ(lvt_lab("pull 2-3 --now --lab one").exit_code, 1);
    EXPECT_EQ(lab::run({.argv = {LAB, "plug", "2-3", "--now"}, .environment = {"LVT_LAB=two"}}).exit_code, 0);
    ASSERT_TRUE(does("down --lab one"));
    EXPECT_TRUE(does("show"));
}

class labs_end : public labs, public testing::WithParamInterface<std::pair<unsigned, int>> {};

TEST_P(labs_end, leaves_nothing)
{
    const auto [process, number] = GetParam();
    ASSERT_TRUE(does("up ring 3"));
    EXPECT_EQ(named(lab::program("LVT_RSTPD", "lvt_rstpd")).size(), 3u);
    const std::vector<pid_t> server = named("lvt_lab serve ring-3");
    ASSERT_EQ(server.size(), 3u);
    EXPECT_NE(getsid(server[0]), getsid(0)) << "a terminal's end does not reach it";
    kill(server.at(process), number);
    expect_nothing_left();
}

std::string end_name(const testing::TestParamInfo<std::pair<unsigned, int>> &row)
{
    constexpr const char *PROCESSES[] = {"who_waits", "the_first", "the_lab"};
    return fmt::format("{}_by_{}", PROCESSES[row.param.first], sigabbrev_np(row.param.second));
}

INSTANTIATE_TEST_SUITE_P(of, labs_end,
                         testing::Values(std::pair(0, SIGKILL), std::pair(0, SIGTERM), std::pair(1, SIGKILL),
                                         std::pair(2, SIGKILL), std::pair(2, SIGTERM)),
                         end_name);

TEST_F(labs, a_shell_in_a_node_has_its_prompt_and_the_tools)
{
    ASSERT_TRUE(does("up line 2"));
    const lab::outcome_t outcome = lab::run(
        {.argv = {LAB, "exec", "sw2"}},
        "complete -p lvt_rstpctl\nlvt_rstpctl expect port 2 is not off --within 10 && ip -brief link\nexit 6\n");
    EXPECT_EQ(outcome.exit_code, 6) << outcome.output;
    for (const char *part : {"sw2:", "-F _lvt_rstpctl lvt_rstpctl\n", "\nport2@"})
        EXPECT_THAT(outcome.output, HasSubstr(part));
}

TEST_F(labs, a_switch_whose_board_dies_has_no_power)
{
    ASSERT_TRUE(does("up line 2 --rapid"));
    for (const pid_t board : named(lab::program("LVT_BOARD", "lvt_board")))
        kill(board, SIGKILL);
    EXPECT_TRUE(
        holds("expect sw1 has no power\nexpect sw2 has no power\nexpect 1-2 is cut\n"
              "power sw1 on\npower sw2 on\nexpect rest\nping h1 h2"));
}

TEST_F(labs, starts_without_standard_input_and_with_few_descriptors)
{
    for (const char *lack : {"exec <&-", "ulimit -Sn 50"}) {
        const lab::outcome_t up =
            lab::run({.argv = {"bash", "-c", fmt::format("{}; exec \"$0\" up ring 6 --rapid", lack), LAB}});
        EXPECT_EQ(up.exit_code, 0) << lack << "\n" << up.output;
        EXPECT_TRUE(does("down"));
    }
}

TEST_F(labs, commands_at_once_are_done_in_turn)
{
    ASSERT_TRUE(does("up ring 3 --rapid"));
    std::vector<std::jthread> typed;
    for (const char *words : {"pull 1-2 --now", "plug 1-2 --now", "power sw3 off --now", "power sw3 on --now",
                              "restart sw2 --now", "flap 2-3 2 20ms --now"})
        for (int i = 0; i < 3; i++)
            typed.emplace_back([words] { lvt_lab(words); });
    typed.clear();
    lvt_lab("plug 1-2 --now");
    lvt_lab("power sw3 on --now");
    EXPECT_TRUE(holds("expect rest\nexpect 2-3 is cut\nping h1 h2"));
}

TEST_F(labs, what_runs_in_a_node_ends_with_the_lab)
{
    ASSERT_TRUE(does("up line 2"));
    lab::process_t sleeper = lab::start({.argv = {LAB, "exec", "sw1", "--", "sleep", "1000"}});
    ASSERT_TRUE(eventually(
        SOON, [] { return named("sleep 1000").size(); }, 1u));
    ASSERT_TRUE(does("down"));
    EXPECT_TRUE(eventually(
        SOON, [&] { return sleeper.exit_code(); }, 128 + SIGKILL));
}

// ---- words ----------------------------------------------------------------------------------------------

TEST_F(labs, tells_what_it_does_not_do_by_word_and_status)
{
    const struct {
        const char *words;
        int status;
        const char *said;
    } before[] = {
        {"--version", 0, LVT_VERSION "\n"},
        {"--help", 0, "Exit status: 0 done"},
        {"", 2, "A command is required"},
        {"bogus", 2, "bogus"},
        {"show", 3, "lvt_lab: no lab is up: start one, as in lvt_lab up ring 4\n"},
        {"show --lab none", 3, "lvt_lab: no lab \"none\" is up"},
        {"down --lab none", 3, "lvt_lab: no lab \"none\" is up"},
        {"up ring 1", 1, "a ring has 2 to 10000 switches"},
        {"up ring 600", 1, "a lab has at most 500 nodes"},
        {"up /no/file.yml", 1, "lvt_lab: cannot read /no/file.yml: No such file or directory\n"},
        {"up ring 3 --lab a/b", 2, "is no name for a lab"},
        {"up ring 3 --hosts 101", 2, "--hosts"},
        {"run /no/script", 1, "cannot read /no/script"},
        {"ls", 0, ""},
    };
    for (const auto &row : before) {
        const lab::outcome_t outcome = lvt_lab(row.words);
        EXPECT_EQ(outcome.exit_code, row.status) << row.words << outcome.output;
        EXPECT_THAT(outcome.output, HasSubstr(row.said)) << row.words;
    }
    const std::pair<const char *, const char *> files[] = {
        {"topology: {nodes: {hub1: {kind: hub}}}", "-:1:20: hub1 is a hub, which only the simulator plays"},
        {"topology: {nodes: {h1: {kind: host, address: 10.0.0}}}", "-:1:46: address should be an IPv4 address"},
    };
    for (const auto &[text, said] : files)
        EXPECT_THAT(lvt_lab("up -", text).output, HasSubstr(said)) << text;
    EXPECT_THAT(lab::run({.argv = {LAB, "up", "-"}, .environment = {"LVT_BRIDGE=/no/lvt_bridge"}},
                         "topology: {nodes: {br1: {kind: lvt-bridge}}}")
                    .output,
                HasSubstr("-:1:20: br1 is an lvt-bridge, and the program lvt_bridge is not there"));

    ASSERT_TRUE(does("up line 2"));
    const struct {
        const char *words;
        int status;
        const char *said;
    } after[] = {
        {"pull 1-3", 1, "lvt_lab: there is no link \"1-3\""},
        {"plug 1-2", 1, "lvt_lab: the cable sw1:1-sw2:2 is plugged in already\n"},
        {"degrade 1-2 lost 3%", 1, "a link has no quality \"lost\": did you mean \"loss\"?"},
        {"flap 1-2 0 1s", 1, "how often"},
        {"kill h1", 1, "h1 is a host: here should be a switch"},
        {"kill sw9", 1, "there is no node \"sw9\""},
        {"power sw1 on", 1, "lvt_lab: sw1 has power already\n"},
        {"hold sw1 2s", 2, "hold"},
        {"exec sw9 -- true", 1, "there is no node \"sw9\""},
        {"exec sw1 -- sh -c exit_7", 127, "exit_7"},
        {"exec sw1 -- /no/program", 127, "lvt_lab: /no/program: No such file or directory\n"},
        {"exec sw1 -- false", 1, ""},
        {"ping h1 sw1", 1, "lvt_lab: sw1 is no host\n"},
        {"ping h1 h2 --within soon", 2, "--within: \"soon\" should be a time"},
        {"capture 1-9 /tmp/x", 1, "there is no link \"1-9\""},
        {"capture all /no/folder/x --for 1s", 1, "cannot write /no/folder/x"},
        {"why 1-9", 1, "there is no link \"1-9\""},
        {"export png", 2, "png"},
    };
    for (const auto &row : after) {
        const lab::outcome_t outcome = lvt_lab(row.words);
        EXPECT_EQ(outcome.exit_code, row.status) << row.words << outcome.output;
        EXPECT_THAT(outcome.output, HasSubstr(row.said)) << row.words;
    }
}

/// The first words of the lines of a help that begin so.
std::vector<std::string> listed(const std::string &help, const std::string &start)
{
    std::vector<std::string> found;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("  " + start) && line.size() > 3 && line[2] != ' ') {
            const std::string word = line.substr(2, line.find_first_of(" ,", 2) - 2);
            if (start != "" || std::islower(static_cast<unsigned char>(word[0])))
                found.push_back(word);
        }
    return found;
}

TEST_F(labs, man_page_has_every_command_and_option)
{
    std::ifstream file(LVT_DOCS "/man/lvt_lab.1.scd");
    const std::string page(std::istreambuf_iterator<char>(file), {});
    const std::string help = lvt_lab("--help").output;
    const std::vector<std::string> commands = listed(help.substr(help.find("Subcommands:")), "");
    EXPECT_GE(commands.size(), 24u);
    for (const std::string &command : commands) {
        EXPECT_THAT(page, testing::ContainsRegex("\n(\\*[a-z]+\\*[^\n]*, )?\\*" + command + "\\*")) << command;
        const std::string more = lvt_lab(command + " --help").output;
        EXPECT_THAT(more, HasSubstr("Example")) << command;
        for (const std::string &option : listed(more, "--"))
            EXPECT_THAT(page, HasSubstr("*" + option + "*")) << command;
    }
}

TEST_F(labs, bash_completes_commands_nodes_and_cables)
{
    ASSERT_TRUE(does("up line 2"));
    const auto completions = [](const std::string &words) {
        const std::string script = LVT_COMPLETION;
        return lab::run({.argv = {"bash", "-c",
                                  fmt::format(". '{}'; COMP_WORDS=('{}' {}); COMP_CWORD=$((${{#COMP_WORDS[@]}} - 1)); "
                                              "_lvt_lab; printf '%s ' \"${{COMPREPLY[@]}}\"",
                                              script, LAB, words)}})
            .output;
    };
    EXPECT_EQ(completions("mon"), "monitor ");
    EXPECT_EQ(completions("pull sw1"), "sw1:1-sw2:2 sw1:6-h1 ");
    EXPECT_EQ(completions("kill sw"), "sw1 sw2 ");
    EXPECT_EQ(completions("ping h1 h"), "h1 h2 ");
    EXPECT_EQ(completions("power sw1 o"), "on off ");
    EXPECT_EQ(completions("export m"), "mermaid ");
    EXPECT_EQ(completions("up ri"), "ring ");
    EXPECT_EQ(completions("tree --w"), "--watch ");
    EXPECT_EQ(completions("pa"), "page ");
    EXPECT_EQ(completions("page --p"), "--port ");
    EXPECT_EQ(completions("down --lab l"), "line-2 ");
}

TEST_F(labs, scripts_that_do_not_hold_say_where)
{
    const lab::outcome_t outcome = lvt_lab("run -",
                                           "up line 2 --rapid --lab short\nexpect 1-2 carries within 60s\n"
                                           "expect 1-2 is pulled within 200ms\npull 1-2\n");
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_THAT(outcome.output, HasSubstr("\n-:3: the cable sw1:1-sw2:2 carries\n"));
    EXPECT_THAT(outcome.output, testing::Not(HasSubstr("-:4:")));
    const lab::outcome_t refused = lvt_lab("run -", "up line 2\npull 1-7\n");
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_THAT(refused.output, HasSubstr("\n-:2: there is no link \"1-7\""));
    EXPECT_EQ(lvt_lab("run -", "wait soon\n").exit_code, 2);
    EXPECT_EQ(lvt_lab("ls").output, "");
}

} // namespace
