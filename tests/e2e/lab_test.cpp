// The starter of a single switch and the demo: what they print fits and can be typed, and however they end,
// nothing of them is left behind.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "board/lab/privileges.h"
#include "fixture.h"
#include "tools/printable.h"

namespace {

using namespace e2e;

const std::string SWITCH = lab::program("LVT_SWITCH", "lvt_switch");
const std::string BOARD = lab::program("LVT_BOARD", "lvt_board");
const std::string DEMO = lab::program("LVT_DEMO", "lvt_demo");

/// All processes by number, with their names, in this world of the test's own.
std::map<std::string, std::string> processes()
{
    std::map<std::string, std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
        std::string name;
        std::getline(std::ifstream(entry.path() / "comm"), name);
        if (const std::string number = entry.path().filename(); isdigit(number.front()) && !name.empty())
            found[number] = name;
    }
    return found;
}

size_t count_named(const std::string &name)
{
    size_t count = 0;
    for (const auto &process : processes())
        count += process.second == name;
    return count;
}

/// The interfaces and the mounts of this world.
std::string traces()
{
    const lab::outcome_t interfaces = lab::run({.argv = {"ip", "-brief", "link"}});
    std::ifstream mounts("/proc/self/mounts");
    return interfaces.output + std::string(std::istreambuf_iterator<char>(mounts), {});
}

std::string text_of(const fd_t &file)
{
    std::ifstream text(fmt::format("/proc/self/fd/{}", file.number()));
    return {std::istreambuf_iterator<char>(text), {}};
}

class lab_end : public testing::TestWithParam<int> {};

TEST_P(lab_end, leaves_nothing)
{
    const auto processes_before = processes();
    const std::string traces_before = traces();
    {
        const fd_t output(lab::checked(memfd_create("output", MFD_CLOEXEC), "memory for the output"));
        lab::process_t starter = lab::start(
            {.argv = {SWITCH, "--bridge", "1,2", "--host", "3"}, .out = output.number(), .err = output.number()});
        const auto said = [&] { return text_of(output); };
        ASSERT_TRUE(eventually(
            SOON, [&] { return said(); }, HasSubstr("nsenter")));
        EXPECT_EQ(count_named("lvt_rstpd"), 1u);
        EXPECT_EQ(count_named("lvt_board"), 1u);

        starter.signal(GetParam());
        const int wanted = GetParam() == SIGKILL ? 128 + SIGKILL : 0;
        ASSERT_TRUE(eventually(
            SOON, [&] { return starter.exit_code(); }, wanted))
            << said();
    }
    EXPECT_TRUE(eventually(
        SOON, [&] { return processes(); }, processes_before));
    EXPECT_EQ(traces(), traces_before);
}

INSTANTIATE_TEST_SUITE_P(by, lab_end, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGKILL),
                         [](const auto &row) { return std::string(sigabbrev_np(row.param)); });

TEST(lab_help, man_page_has_every_option)
{
    std::ifstream file(LVT_DOCS "/man/lvt_switch.8.scd");
    ASSERT_TRUE(file) << LVT_DOCS "/man/lvt_switch.8.scd";
    const std::string page(std::istreambuf_iterator<char>(file), {});
    std::istringstream help(lab::run({.argv = {SWITCH, "--help"}}).output);
    size_t options = 0;
    for (std::string line; std::getline(help, line);) {
        if (!line.starts_with("  --"))
            continue;
        const std::string option = line.substr(2, line.find(' ', 2) - 2);
        EXPECT_THAT(page, testing::HasSubstr("\n*" + option)) << option;
        options++;
    }
    EXPECT_GE(options, 8u);
}

TEST(lab_port, takes_no_name_that_no_interface_can_have)
{
    const char *names[] = {"a b",
                           "a\nlink add name other type dummy",
                           "a\tb",
                           "a\x7f",
                           "a\x1b[2J",
                           ".",
                           "..",
                           "a/b",
                           "a:b",
                           "a%d",
                           "a#b",
                           "a\"b",
                           "a'b",
                           "a\\b",
                           "sixteen_letters_",
                           "\xc3\xa4"};
    for (const std::string name : names) {
        const lab::outcome_t outcome = lab::run({.argv = {SWITCH, "--port", "1:" + name, "--run", "true"}});
        EXPECT_EQ(outcome.exit_code, 2) << name;
        EXPECT_EQ(outcome.output,
                  fmt::format("lvt_switch: '{}' is no name for an interface: it has 1 to 15 letters, digits or signs, "
                              "not / : % # \" ' or \\, and is not . or ..\n",
                              printable(name)));
    }
    EXPECT_EQ(lab::run({.argv = {SWITCH, "--port", "1:", "--run", "true"}}).output,
              "lvt_switch: '1:' is not N:IFNAME, as in 1:sw1p1\n");
    EXPECT_EQ(lab::run({.argv = {SWITCH, "--port", "1:fifteen-letters", "--run", "true"}}).exit_code,
              lab::in_own_user_namespace() ? 1 : 0);
}

TEST(lab_status, is_the_same_in_all_programs)
{
    const struct {
        std::vector<std::string> argv;
        int status;
        const char *said;
    } rows[] = {
        {{SWITCH, "--version"}, 0, LVT_VERSION "\n"},
        {{SWITCH, "--help"}, 0, "Exit status: 0 "},
        {{SWITCH, "--bogus"}, 2, "not expected: --bogus"},
        {{SWITCH, "--host", "7"}, 2, "7 not in range"},
        {{SWITCH, "--bridge", "1,7", "--run", "true"}, 2, "lvt_switch: there is no port '7', only 1 to 6\n"},
        {{SWITCH, "--host", "1", "--bridge", "1", "--run", "true"}, 2, "lvt_switch: port 1 has a cable already\n"},
        {{SWITCH, "--run", "true", "--shell"}, 2, "--run excludes --shell"},
        {{SWITCH, "--daemon", "/bin/false"}, 1, "the daemon ended with status 1 instead of getting ready"},
        {{SWITCH, "--daemon", "/no/daemon"}, 3, "the program /no/daemon\n"},
        {{"env", "PATH=/nowhere", SWITCH}, 3, "the program ping\n"},
        {{BOARD, "--version"}, 0, LVT_VERSION "\n"},
        {{BOARD, "--help"}, 0, "Exit status: 0 "},
        {{BOARD}, 2, "A subcommand is required"},
        {{BOARD, "show", "nothing"}, 2, "nothing"},
        {{BOARD, "set", "trunk", "x=7"}, 2, ""},
        {{BOARD, "--socket", "/no/board", "show", "ports"}, 3, "lvt_board: no board at /no/board: "},
        {{SWITCH, "--run", "\"" + BOARD + "\" set trunk 1=5"},
         1,
         "lvt_board: there is no group 5; groups are 7 to 9\n"},
        {{DEMO, "--version"}, 0, LVT_VERSION "\n"},
        {{DEMO, "--help"}, 0, "Exit status: 0 "},
        {{DEMO, "--bogus"}, 2, "lvt_demo does not know '--bogus'"},
        {{DEMO, "--rapid", "--bogus"}, 2, "lvt_demo does not know '--rapid --bogus'"},
        {{"env", "PATH=/nowhere", DEMO}, 3, "the program ping\n"},
    };
    for (const auto &row : rows) {
        const lab::outcome_t outcome = lab::run({.argv = row.argv});
        EXPECT_EQ(outcome.exit_code, row.status) << fmt::format("{}", fmt::join(row.argv, " "));
        EXPECT_THAT(outcome.output, HasSubstr(row.said)) << fmt::format("{}", fmt::join(row.argv, " "));
    }
}

/// The switch's shell, in which `script` is typed.
lab::outcome_t in_shell(const std::string &script)
{
    return lab::run({.argv = {SWITCH, "--host", "3", "--number", "5", "--shell"}}, script);
}

TEST(lab_shell, has_its_prompt_the_tools_and_one_line_of_hints)
{
    const lab::outcome_t outcome = in_shell(
        "command -v lvt_rstpctl lvt_board\n"
        "complete -p lvt_rstpctl\n"
        "pages=${MANPATH%%:*}; echo $pages; [ ! -d \"$pages\" ] ||"
        " [ -s \"$pages/man1/lvt_rstpctl.1\" -a -s \"$pages/man8/lvt_switch.8\" ] || exit\n"
        "test -e $LVT_HOST_3 && echo host\n"
        "lvt_rstpctl set port 3 --spanning-tree on && lvt_rstpctl expect port 3 is not off --within 10\n"
        "exit 9\n");
    EXPECT_EQ(outcome.exit_code, 9) << outcome.output;
    for (const char *part :
         {"\nswitch 5:", "/lvt_rstpctl\n", "/lvt_board\n", " _lvt_rstpctl lvt_rstpctl\n", "/share/man\n", "\nhost\n"})
        EXPECT_THAT(outcome.output, HasSubstr(part));
    EXPECT_THAT(outcome.output, HasSubstr("lvt_rstpctl rules this switch"));
}

TEST(lab_banner, can_be_typed_as_it_is_printed)
{
    const fd_t output(lab::checked(memfd_create("output", MFD_CLOEXEC), "memory for the output"));
    lab::process_t starter = lab::start(
        {.argv = {SWITCH, "--bridge", "1,2", "--host", "3"}, .out = output.number(), .err = output.number()});
    ASSERT_TRUE(eventually(
        SOON, [&] { return text_of(output); }, HasSubstr("daemon.err\n\n")));

    std::string enter, others;
    std::istringstream banner(text_of(output));
    for (std::string line; std::getline(banner, line);) {
        if (line.starts_with("  nsenter "))
            enter = line;
        else if (line.starts_with("  tail -f "))
            others += "timeout 1 " + line + " || [ $? -eq 124 ]\n";
        else if (line.starts_with("  ") && !line.starts_with("   ") && !line.starts_with("  port "))
            others += line + " || exit\n";
    }
    const std::filesystem::path machines_settings = "/etc/lvt_rstp.toml";
    const bool has_settings = std::filesystem::exists(machines_settings);
    const lab::outcome_t typed = lab::run({.argv = {"sh", "-ec", others + "echo typed"}});
    EXPECT_EQ(typed.exit_code, 0) << others << typed.output;
    for (const char *part : {"\n@rstp_port_status\n", "RSTP Initial Complete", "\ntyped\n", "\n3 "})
        EXPECT_THAT(typed.output, HasSubstr(part)) << others;
    EXPECT_EQ(std::filesystem::exists(machines_settings), has_settings);

    const lab::outcome_t shell = lab::run({.argv = {"sh", "-c", enter + " -i"}},
                                          "lvt_rstpctl expect port 1,2,3 is not off --within 10 && exit 6\n");
    EXPECT_EQ(shell.exit_code, 6) << enter << shell.output;
    EXPECT_THAT(shell.output, HasSubstr("\nswitch 1:")) << enter;
    EXPECT_EQ(starter.stop(SOON), 0);
}

class lab_demo : public testing::TestWithParam<int> {};

TEST_P(lab_demo, fits_its_terminal_and_leaves_nothing_when_it_is_ended_early)
{
    const auto processes_before = processes();
    const std::string traces_before = traces();
    const unsigned short width = static_cast<unsigned short>(GetParam());
    const winsize size = {100, width, 0, 0};
    int ends[2];
    lab::checked(openpty(&ends[0], &ends[1], nullptr, nullptr, &size), "a terminal");
    const fd_t terminal(ends[0]), slave(ends[1]);
    fcntl(terminal.number(), F_SETFL, O_NONBLOCK);
    std::string said;
    const auto listen = [&] {
        char octets[4096];
        for (ssize_t got; (got = read(terminal.number(), octets, sizeof octets)) > 0;)
            said.append(octets, static_cast<size_t>(got));
        return said;
    };
    lab::process_t demo =
        lab::start({.argv = {DEMO}, .environment = {"NO_COLOR=1"}, .out = slave.number(), .err = slave.number()});
    ASSERT_TRUE(eventually(30s, listen, testing::ContainsRegex("\n +3s (ours|kernel) "))) << said;
    demo.signal(SIGINT);
    ASSERT_TRUE(eventually(
        SOON, [&] { return demo.exit_code(); }, 128 + SIGINT));
    EXPECT_TRUE(eventually(SOON, listen, testing::EndsWith("\nEnded early. Nothing of the demo is left behind.\r\n")));
    EXPECT_TRUE(eventually(
        SOON, [&] { return processes(); }, processes_before));
    EXPECT_EQ(traces(), traces_before);

    EXPECT_THAT(said, HasSubstr(" vary from run to run "));
    EXPECT_THAT(said, HasSubstr("s * our switch: lvt_rstpctl set port 1-3 "));
    EXPECT_THAT(said, HasSubstr("s * cable 1: plugged in\r\n"));
    int second = 0;
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);) {
        line.erase(line.find_last_not_of('\r') + 1);
        EXPECT_LE(line.size(), width) << line;
        if (line.find("s ours ") == 3 || line.find("s kernel ") == 3) {
            EXPECT_EQ(std::stoi(line), ++second) << line;
        }
    }
}

#ifdef LVT_RAPID
class lab_demo_of_rings : public testing::TestWithParam<const char *> {};

TEST_P(lab_demo_of_rings, tells_how_long_hosts_were_apart)
{
    const fd_t output(lab::checked(memfd_create("output", MFD_CLOEXEC), "memory for the output"));
    lab::process_t demo = lab::start({.argv = {DEMO, GetParam()},
                                      .environment = {"NO_COLOR=1", "COLUMNS=60"},
                                      .out = output.number(),
                                      .err = output.number()});
    const std::string row = GetParam() == std::string("--lab") ? "\npulled out: sw1:1-sw2:2\n"
                                                               : "\ncable 2 is pulled +[0-9<. ]+ s +[0-9<. ]+ s\n";
    EXPECT_TRUE(eventually(
        60s, [&] { return text_of(output); }, testing::ContainsRegex(row)));
    demo.signal(SIGINT);
    EXPECT_TRUE(eventually(
        SOON, [&] { return demo.exit_code(); }, 128 + SIGINT));
    const std::string said = text_of(output);
    if (GetParam() == std::string("--bridge")) {
        EXPECT_THAT(said, HasSubstr("\nbridge 3  root (forwarding)        alternate (disabled)\n"));
    }
    std::istringstream lines(said);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 60u) << line;
}

const std::vector<const char *> demos_of_rings = {
    "--rapid",
#ifdef LVT_BRIDGE
    "--bridge",
#endif
#ifdef LVT_LAB
    "--lab",
#endif
};
INSTANTIATE_TEST_SUITE_P(, lab_demo_of_rings, testing::ValuesIn(demos_of_rings),
                         [](const auto &one) { return std::string(one.param).substr(2); });

#ifdef LVT_LAB
TEST(lab_demo_of_a_lab, says_when_it_is_not_right)
{
    const lab::outcome_t outcome =
        lab::run({.argv = {DEMO, "--lab"}, .environment = {"LVT_LAB_PROGRAM=/bin/false", "COLUMNS=80"}});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_THAT(outcome.output, HasSubstr("\n  FAILED  the ring by default: lvt_lab up ring 4 --lab by-default\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n  FAILED  the ring that is rapid: lvt_lab up ring 4 --rapid\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n0 of 4 ok after "));
}
#endif
#endif

INSTANTIATE_TEST_SUITE_P(at, lab_demo, testing::Values(60, 80, 120, 200), testing::PrintToStringParamName());

TEST(lab_run, ends_as_its_command_does)
{
    const auto before = processes();
    const std::string command = "lvt_rstpctl expect root is this bridge --within 10 && exit 7";
    EXPECT_EQ(lab::run({.argv = {SWITCH, "--run", command}}).exit_code, 7);
    EXPECT_TRUE(eventually(
        SOON, [&] { return processes(); }, before));
}

} // namespace
