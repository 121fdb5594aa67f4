// The starter of a single switch: however it ends, nothing of it is left behind.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>

#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <sys/mman.h>

#include "board/lab/privileges.h"
#include "fixture.h"
#include "tools/printable.h"

namespace {

using namespace e2e;

const std::string SWITCH = lab::program("LVT_SWITCH", "lvt_switch");

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

class lab_end : public testing::TestWithParam<int> {};

TEST_P(lab_end, leaves_nothing)
{
    const auto processes_before = processes();
    const std::string traces_before = traces();
    {
        const fd_t output(lab::checked(memfd_create("output", MFD_CLOEXEC), "memory for the output"));
        lab::process_t starter = lab::start(
            {.argv = {SWITCH, "--bridge", "1,2", "--host", "3"}, .out = output.number(), .err = output.number()});
        const auto said = [&] {
            std::ifstream text(fmt::format("/proc/self/fd/{}", output.number()));
            return std::string(std::istreambuf_iterator<char>(text), {});
        };
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
        EXPECT_EQ(outcome.exit_code, 1) << name;
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

TEST(lab_run, ends_as_its_command_does)
{
    const auto before = processes();
    const std::string command = "lvt_rstpctl expect root is this bridge --within 10 && exit 7";
    EXPECT_EQ(lab::run({.argv = {SWITCH, "--run", command}}).exit_code, 7);
    EXPECT_TRUE(eventually(
        SOON, [&] { return processes(); }, before));
}

} // namespace
