// The operator's guide against a real switch: what people ask is answered as its table says.
#include <algorithm>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "fixture.h"

namespace {

using namespace e2e;

const std::string PAGES_SWITCH = lab::program("LVT_SWITCH", "lvt_switch");

struct question_t {
    std::vector<std::string> typed;
    std::vector<std::string> read;
};

std::vector<std::string> all_matches(const std::string &text, const std::regex &expression)
{
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match)
        found.push_back((*match)[1]);
    return found;
}

/// The rows of the table, by number. What the last column says is read of the second's commands, and of
/// those that it says to be.
std::map<int, question_t> questions()
{
    const std::regex row("\\| (\\d+) \\| .+? \\| (.+?) \\| (.+) \\|"), code("`([^`]+)`"), says("`([^`]+)` says `"),
        status("(Exit status \\d)");
    std::map<int, question_t> found;
    std::ifstream page(LVT_DOCS "/operations.md");
    std::smatch cells;
    for (std::string line; std::getline(page, line);) {
        if (!std::regex_match(line, cells, row))
            continue;
        question_t &question = found[std::stoi(cells[1])];
        question.typed = all_matches(cells[2], code);
        for (const std::string &command : all_matches(cells[3], says))
            question.typed.push_back(command);
        for (const std::string &text : all_matches(cells[3], code))
            if (!text.starts_with("lvt_rstpctl "))
                question.read.push_back(text);
        for (const std::string &text : all_matches(cells[3], status))
            question.read.push_back(text);
    }
    return found;
}

/// In one line, and without what is another in each run.
std::string essence(const std::string &text)
{
    std::string result = std::regex_replace(text, std::regex("\\s+"), " ");
    for (const char *varying : {"received \\d+ RST, \\d+", "by port \\d, \\d+ passes", "BPDU \\d+ s ago"})
        result =
            std::regex_replace(result, std::regex(varying), std::regex_replace(varying, std::regex("\\\\d\\+?"), "N"));
    return result;
}

/// Types the commands of some questions in the page's switch and reads what comes.
///
/// before  typed in the switch before its settings.
/// ready   typed before the commands of a question.
void expect_answers(const std::vector<int> &numbers, const std::string &before, std::map<int, std::string> ready)
{
    const std::map<int, question_t> all = questions();
    ASSERT_EQ(all.size(), 15u);
    std::string script = before +
                         "\nlvt_rstpctl set bridge --priority 61440\n"
                         "lvt_rstpctl set port 1-3 --spanning-tree on\n"
                         "until_so() { lvt_rstpctl expect \"$*\" --within 30; }\n"
                         "until_said() { timeout 30 sh -c \"until $1 | grep -q '$2'; do sleep 0.1; done\"; }\n"
                         "tcpdump() { dumpcap -q \"$@\"; }\n";
    for (const int number : numbers) {
        script += fmt::format("{}\necho '=== {}'\n", ready[number], number);
        for (const std::string &command : all.at(number).typed)
            script += command + "\necho Exit status $?\n";
    }
    const lab::outcome_t outcome =
        lab::run({.argv = {PAGES_SWITCH, "--bridge", "1,2", "--host", "3", "--run", "exec 2>&1\n" + script}});
    for (const int number : numbers) {
        ASSERT_FALSE(all.at(number).read.empty()) << number;
        size_t from = outcome.output.find(fmt::format("=== {}\n", number));
        from = std::min(from, outcome.output.size());
        const std::string said = outcome.output.substr(from, outcome.output.find("\n=== ", from) - from);
        for (const std::string &text : all.at(number).read)
            EXPECT_THAT(essence(said), HasSubstr(essence(text))) << number << "\n" << outcome.output;
    }
}

} // namespace

TEST(lab_docs, what_people_ask)
{
    expect_answers({1, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, "",
                   {{1,
                     "until_so port 1,3 forwards && until_so port 2 is alternate\n"
                     "until_said 'lvt_rstpctl show port 1' 'neighbour *STP'"},
                    {7, "until_said 'lvt_rstpctl show bridge' 'last change'"},
                    {10, "lvt_rstpctl confirm"}});
}

TEST(lab_docs, what_people_ask_about_loops)
{
    expect_answers({2},
                   "for word in 'br0 type bridge stp_state 0' 'port1 down' 'port2 down' 'port1 up' 'port2 up'; do\n"
                   "nsenter --net=$LVT_BRIDGE_1 ip link set $word\n"
                   "done",
                   {{2, "until_so port 2 is backup"}});
}

TEST(lab_docs, what_people_ask_of_a_chip_that_refuses)
{
    expect_answers({4}, "",
                   {{4,
                     "until_so port 1,3 forwards && until_so port 2 is alternate\n"
                     "lvt_board set mdio-fail on\n"
                     "nsenter --net=$LVT_BRIDGE_1 ip link set port1 down\n"
                     "until_so port 2 forwards"}});
}

TEST(lab_docs, what_people_ask_of_a_chip_that_hands_nothing_over)
{
    expect_answers({3}, "",
                   {{3,
                     "until_so port 1,3 forwards && until_so port 2 is alternate && lvt_rstpctl show port 1\n"
                     "lvt_rstpctl debug bpdu_filter enable\n"
                     "until_said 'lvt_rstpctl show port 1' 'heard its last'"}});
}
