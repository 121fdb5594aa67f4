// lvt_sim as a program: what it understands, what it says, and how it ends.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "program.h"

namespace {

/// Runs the program with arguments and redirections in shell syntax.
run_t lvt_sim(const std::string &arguments, const std::string &redirections = "2>&1")
{
    return run_command("\"" LVT_SIM "\" " + arguments, redirections);
}

/// What bash offers for the last word of a command line, between blanks.
std::string completions(const std::string &line)
{
    return " " + completions_of(LVT_SIM, LVT_SIM_COMPLETION, "_lvt_sim", line) + " ";
}

struct misuse_t {
    const char *arguments, *words;
};

} // namespace

TEST(sim_program, what_it_does_not_understand_ends_with_2)
{
    constexpr misuse_t ROWS[] = {
        {"", "A command is required"},
        {"run", "--seed is required"},
        {"run --seed x", "\"x\" is no whole number"},
        {"run --seed -1", "\"-1\" is no whole number"},
        {"run --seed 1 --shape moebius", "\"moebius\" is none of ring, line,"},
        {"run --seed 1 --switches 0", "0 is not between 1 and 10000"},
        {"run --seed 1 --switches 10001", "10001 is not between 1 and 10000"},
        {"run --seed 1 --faults cuts,flips", "\"flips\" is no fault that can be chosen"},
        {"run --seed 1 --faults wide", "\"wide\" is no fault that can be chosen"},
        {"run --seed 1 --rapid --mixed", "--rapid excludes --mixed"},
        {"seeds", "RANGE is required"},
        {"seeds 5", "\"5\" is no range as in 1..1000"},
        {"seeds 5..x", "the last seed: \"x\" is no whole number"},
        {"seeds 0..5", "0 to 5 is no range of seeds"},
        {"seeds 5..4", "5 to 4 is no range of seeds"},
        {"seeds 1..2 --jobs 0", "--jobs: 0 is not between 1 and 1024"},
        {"dance", "dance"},
    };
    for (const misuse_t &row : ROWS) {
        const run_t ended = lvt_sim(row.arguments);
        EXPECT_EQ(ended.status, 2) << row.arguments;
        EXPECT_NE(ended.output.find(row.words), std::string::npos) << row.arguments << ": " << ended.output;
    }
}

TEST(sim_program, help_and_version_end_with_0)
{
    EXPECT_EQ(lvt_sim("--version").output, LVT_VERSION "\n");
    for (const char *words : {"--help", "help", "run --help", "help seeds", "help merge", "promises --help"})
        EXPECT_EQ(lvt_sim(words).status, 0) << words;
}

TEST(sim_program, a_full_disk_ends_with_3)
{
    for (const char *command : {"run --seed 1", "seeds 1..3", "seeds 1..3 -j", "promises"}) {
        const run_t ended = lvt_sim(command, "2>&1 >/dev/full");
        EXPECT_EQ(ended.status, 3) << command;
        EXPECT_NE(ended.output.find("No space left on device"), std::string::npos) << ended.output;
    }
}

TEST(sim_program, a_seed_is_told_the_same_again)
{
    const run_t first = lvt_sim("run --seed 7"), second = lvt_sim("run --seed 7");
    EXPECT_EQ(first.status, 0);
    EXPECT_EQ(first.output, second.output);
    EXPECT_EQ(first.output.substr(0, 8), "seed 7: ");
    EXPECT_NE(first.output.find("judged at rest"), std::string::npos);
    EXPECT_NE(first.output.find("\nheld: "), std::string::npos);
    EXPECT_EQ(lvt_sim("run --seed 7 --quiet").output.find("judged"), std::string::npos);
}

#ifdef LVT_RAPID
TEST(sim_program, switches_are_rapid_where_they_are_asked)
{
    EXPECT_EQ(lvt_sim("run --seed 7").output.find(", rapid"), std::string::npos);
    EXPECT_NE(lvt_sim("run --seed 7 --rapid").output.find(", rapid"), std::string::npos);
    EXPECT_NE(lvt_sim("settle ring 3 --rapid").output.find(" cut 0.00"), std::string::npos);
    EXPECT_NE(lvt_sim("play ring 3 --rapid --file").output.find("rapid: true"), std::string::npos);
}
#endif

TEST(sim_program, several_processes_find_what_one_does)
{
    const auto without_time = [](const run_t &ended) {
        return std::regex_replace(ended.output, std::regex(R"("seconds":[0-9.e-]+)"), "");
    };
    const run_t one = lvt_sim("seeds 1..60 --jobs 1 -j"), three = lvt_sim("seeds 1..60 --jobs 3 -j");
    EXPECT_EQ(one.status, 0) << one.output;
    EXPECT_EQ(without_time(one), without_time(three));
}

TEST(sim_program, ranges_are_merged_into_one)
{
    const auto folder = std::filesystem::temp_directory_path() / ("lvt_sim." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    const auto file = [&](const char *name) { return (folder / name).string(); };
    EXPECT_EQ(lvt_sim("seeds 1..20 -j >" + file("a")).status, 0);
    EXPECT_EQ(lvt_sim("seeds 21..30 -j >" + file("b")).status, 0);
    EXPECT_EQ(lvt_sim("seeds 1..30 -j >" + file("whole")).status, 0);
    const auto without_time = [](const std::string &text) {
        return std::regex_replace(text, std::regex(R"("seconds":[0-9.e-]+)"), "");
    };
    const run_t merged = lvt_sim("merge -j " + file("b") + " " + file("a")),
                whole = lvt_sim("merge -j " + file("whole"));
    EXPECT_EQ(merged.status, 0);
    EXPECT_EQ(without_time(merged.output), without_time(whole.output));
    EXPECT_NE(merged.output.find(R"("ranges":[[1,30]])"), std::string::npos) << merged.output;
    EXPECT_EQ(lvt_sim("merge <" + file("a")).output.substr(0, 24), "20 seeds held, 0 did not");

    // Failures are counted, and what is lost or counted twice is refused.
    std::ofstream(file("failure")) << R"({"seed":7,"property":"no-loop","network":"ring","words":"it does"})"
                                   << "\n";
    std::string summary = whole.output;
    summary = std::regex_replace(summary, std::regex(R"("not_held":0)"), R"("not_held":1)");
    std::ofstream(file("summary")) << summary;
    EXPECT_EQ(lvt_sim("merge " + file("failure") + " " + file("summary")).status, 1);
    EXPECT_EQ(lvt_sim("merge " + file("summary")).status, 3);
    EXPECT_NE(lvt_sim("merge " + file("summary")).output.find("lines are missing"), std::string::npos);
    const run_t twice = lvt_sim("merge " + file("a") + " " + file("whole"));
    EXPECT_EQ(twice.status, 3);
    EXPECT_NE(twice.output.find("the ranges 1..20 and 1..30 overlap"), std::string::npos) << twice.output;

    // Files that are none.
    std::ofstream(file("words")) << "hello\n";
    const run_t words = lvt_sim("merge " + file("words"));
    EXPECT_EQ(words.status, 2);
    EXPECT_NE(words.output.find(file("words") + ":1:1: "), std::string::npos) << words.output;
    EXPECT_EQ(lvt_sim("merge " + file("none")).status, 3);
    EXPECT_EQ(lvt_sim("merge </dev/null").status, 3);
    std::filesystem::remove_all(folder);
}

// As on several hosts: GNU parallel starts ranges, which are put together.
TEST(sim_program, ranges_run_in_parallel)
{
    if (system("parallel --version >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "cannot run here: there is no GNU parallel";
    const run_t ended =
        run_command("seq 1 10 31 | parallel -j 2 '\"" LVT_SIM "\" seeds {}..$(({} + 9)) -j' | \"" LVT_SIM "\" merge");
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.output.substr(0, 24), "40 seeds held, 0 did not");
}

TEST(sim_program, promises_are_told_with_the_rule_to_blame)
{
    const run_t ended = lvt_sim("promises");
    EXPECT_EQ(ended.status, 0);
    EXPECT_NE(ended.output.find("no-loop         data cannot go round"), std::string::npos) << ended.output;
    EXPECT_NE(ended.output.find("but: a link change begins no pass"), std::string::npos) << ended.output;
}

TEST(sim_program, completes_what_the_help_lists)
{
    std::istringstream help(lvt_sim("--help").output);
    unsigned commands = 0;
    for (std::string line;
         std::getline(help, line) && line != "Each command has a --help of its own, with examples.";) {
        const std::regex command("  ([a-z]+) {2,}.*");
        std::smatch name;
        if (!std::regex_match(line, name, command))
            continue;
        commands++;
        EXPECT_NE(completions("''").find(" " + name.str(1) + " "), std::string::npos) << name.str(1);
        const std::string options = lvt_sim(name.str(1) + " --help").output;
        const std::regex option("\n  (?:-.,)?(--[a-z-]+)");
        const std::string offered = completions(name.str(1) + " --");
        for (std::sregex_iterator each(options.begin(), options.end(), option), end; each != end; ++each)
            EXPECT_NE(offered.find(" " + each->str(1) + " "), std::string::npos) << name.str(1) << each->str();
    }
    EXPECT_GE(commands, 5u);
    EXPECT_EQ(completions("ru"), " run ");
    EXPECT_EQ(completions("run --shape fat"), " fat-tree ");
    EXPECT_EQ(completions("run --seed ''"), "  ");
}
