#include "tools/ctl/letters.h"

#include <algorithm>

#include <fmt/format.h>

#include "tools/ctl/ctl.h"

namespace {

using words_t = std::vector<std::string>;

/// One option of iproute2: what it is called there, at full length, and from how many letters on.
struct letter_t {
    std::string_view name;
    size_t letters_min;
    const char *command;     ///< for which it means something; null: for any
    const char *replacement; ///< "": nothing, for it is so already; null: refused
    const char *hint;        ///< what to use where it means nothing
};

constexpr letter_t LETTERS[] = {
    {"json", 1, nullptr, "--json", ""},
    {"pretty", 1, nullptr, "--pretty", ""},
    {"oneline", 1, nullptr, "--oneline", ""},
    {"statistics", 1, "show", "--statistics", "show statistics has the counters"},
    {"stats", 1, "show", "--statistics", "show statistics has the counters"},
    {"brief", 2, "decode", "--brief", "show ports has one line for each port"},
    {"color", 1, nullptr, "--color=always", ""},
    {"timestamp", 1, "monitor", "", "only monitor tells times, and always does"},
    {"tshort", 2, "monitor", "", "only monitor tells times, and always does"},
    {"details", 1, "", nullptr, "show port LIST has all that is known of a port"},
    {"netns", 1, "", nullptr, "a board is named by its folder, --root /proc/PID/root"},
};

/// Those whose words are taken as they are.
bool is_literal(const std::string &command) { return command == "debug" || command == "inject"; }

const letter_t *find_letter(const std::string &word)
{
    if (word.size() < 2 || word[0] != '-' || word[1] == '-')
        return nullptr;
    const std::string name = word.substr(1, word.find('=') - 1);
    const auto found = std::ranges::find_if(LETTERS, [&](const letter_t &letter) {
        return name.size() >= letter.letters_min && letter.name.starts_with(name);
    });
    return found == std::end(LETTERS) ? nullptr : found;
}

/// Where the command stands; the number of words when there is none.
size_t place_of_command(const words_t &words)
{
    size_t at = 0;
    while (at < words.size() && words[at].starts_with('-'))
        at += words[at] == "--root" || words[at] == "--color" ? 2 : 1;
    return std::min(at, words.size());
}

/// The word in this tool's terms; none where it says what is so already.
words_t translated(const std::string &word, const std::string &command)
{
    const letter_t *letter = find_letter(word);
    if (!letter)
        return {word};
    if (letter->command && command != letter->command)
        throw usage_t(fmt::format("{}: {}", word, letter->hint));
    const std::string replacement = letter->replacement;
    if (replacement.empty())
        return {};
    const size_t value = word.find('=');
    if (value == std::string::npos)
        return {replacement};
    return {replacement.substr(0, replacement.find('=')) + word.substr(value)};
}

/// "-jp" are two letters.
bool is_bundle(const std::string &word)
{
    return word.size() > 2 && word[0] == '-' && word.find_first_not_of("jpos", 1) == std::string::npos;
}

} // namespace

std::vector<std::string> with_known_letters(std::vector<std::string> words)
{
    const size_t place = place_of_command(words);
    const std::string command = place < words.size() ? words[place] : "";
    words_t before, behind, rest;
    size_t at = 0;
    for (; at < words.size() && words[at] != "--" && !(at > place && is_literal(command)); at++) {
        const std::string &word = words[at];
        const bool known = find_letter(word) || is_bundle(word);
        words_t &list = at > place ? rest : at < place && known && !command.empty() ? behind : before;
        if (is_bundle(word) && !find_letter(word))
            for (size_t i = 1; i < word.size(); i++)
                std::ranges::copy(translated({'-', word[i]}, command), std::back_inserter(list));
        else
            std::ranges::copy(translated(word, command), std::back_inserter(list));
    }
    before.insert(before.end(), behind.begin(), behind.end());
    before.insert(before.end(), rest.begin(), rest.end());
    before.insert(before.end(), words.begin() + static_cast<long>(at), words.end());
    return before;
}
