// The page of labs against a lab: what people ask is answered as its table says.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "fixture.h"

namespace {

using namespace e2e;

std::string page()
{
    std::ifstream file(LVT_DOCS "/lab.md");
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> codes_in(const std::string &text)
{
    const std::regex code("`([^`]+)`");
    std::vector<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), code), end; match != end; ++match)
        found.push_back((*match)[1]);
    return found;
}

struct asked_t {
    std::vector<std::string> typed, read;
    std::string line; ///< of the script
};

/// The row of a question. Nothing is typed where there is none.
asked_t row_of(int number)
{
    const std::regex row(fmt::format("\n\\| {} \\| [^\n]+? \\| ([^\n]+?) \\| ([^\n]+) \\|", number)),
        line("the line `([^`]+)`");
    const std::string text = page();
    std::smatch cells, found;
    asked_t asked;
    if (!std::regex_search(text, cells, row))
        return asked;
    asked.typed = codes_in(cells[1]);
    const std::string answer = cells[2];
    if (std::regex_search(answer, found, line))
        asked.line = found[1];
    for (const std::string &code : codes_in(answer))
        if (!code.starts_with("lvt_lab ") && code != asked.line)
            asked.read.push_back(code);
    return asked;
}

/// In one line.
std::string joined(const std::string &text) { return std::regex_replace(text, std::regex("\\s+"), " "); }

/// What a command says that is typed in a folder.
lab::outcome_t typed_in(const std::string &folder, const std::string &command)
{
    const std::string programs = std::filesystem::path(lab::program("LVT_LAB_PROGRAM", "lvt_lab")).parent_path();
    return lab::run({.argv = {"sh", "-c", fmt::format("cd {} && {}", folder, command)},
                     .environment = {fmt::format("PATH={}:{}", programs, getenv("PATH"))}});
}

class labs_page : public testing::TestWithParam<int> {};

TEST_P(labs_page, answers_what_people_ask)
{
    const asked_t asked = row_of(GetParam());
    ASSERT_FALSE(asked.typed.empty());
    EXPECT_FALSE(asked.read.empty() && asked.line.empty());

    const std::string text = page();
    const size_t begin = text.find("```yaml\n") + 8;
    char folder[] = "/tmp/questions.XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    const auto typed = [&](const std::string &command) { return typed_in(folder, command); };
    std::ofstream(fmt::format("{}/office.yml", folder)) << text.substr(begin, text.find("```\n", begin) - begin);
    const lab::outcome_t up = typed("lvt_lab up office.yml && echo expect rest | lvt_lab run -");
    ASSERT_EQ(up.exit_code, 0) << up.output << typed("lvt_lab tree").output;
    std::string said;
    for (const std::string &command : asked.typed) {
        if (const size_t at = command.find("lvt_lab run "); at == 0 && !asked.line.empty())
            std::ofstream(fmt::format("{}/{}", folder, command.substr(12))) << asked.line << "\n";
        const lab::outcome_t outcome = typed(command);
        said += outcome.output;
        const bool refused = command == "lvt_lab set core bridge.max_age=40";
        EXPECT_EQ(outcome.exit_code, refused ? 1 : 0) << command << "\n" << outcome.output;
    }
    for (const std::string &read : asked.read)
        EXPECT_THAT(joined(said), HasSubstr(joined(read))) << said;
    EXPECT_EQ(typed("lvt_lab down").exit_code, 0);
    std::filesystem::remove_all(folder);
}

INSTANTIATE_TEST_SUITE_P(question, labs_page, testing::Range(1, 16), testing::PrintToStringParamName());

} // namespace
