#include "board/bridge/numbers.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

#include <fmt/format.h>

#include "chip/ports.h"

namespace {

bool is_digit(char letter) { return std::isdigit(static_cast<unsigned char>(letter)) != 0; }

/// Takes digits off the front of `text`; without leading zeros, so that the longer number is the greater one.
std::string_view take_number(std::string_view &text)
{
    const auto end = std::ranges::find_if_not(text, is_digit);
    std::string_view number = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(number.size());
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

} // namespace

bool before_by_nature(const std::string &a, const std::string &b)
{
    std::string_view left = a, right = b;
    while (!left.empty() && !right.empty()) {
        if (is_digit(left.front()) && is_digit(right.front())) {
            const std::string_view one = take_number(left), other = take_number(right);
            if (one.size() != other.size())
                return one.size() < other.size();
            if (one != other)
                return one < other;
        } else if (left.front() != right.front()) {
            return left.front() < right.front();
        } else {
            left.remove_prefix(1);
            right.remove_prefix(1);
        }
    }
    return left.empty() != right.empty() ? left.empty() : a < b;
}

unsigned number_for(const numbering_t &numbering, const numbers_t &taken, const std::string &name)
{
    unsigned unwanted = 0, forgotten = 0;
    for (unsigned front = BOARD_PORTS; front >= 1; front--) {
        const bool listed = front <= numbering.listed.size() && numbering.listed[front - 1] == name;
        const auto remembered = numbering.remembered.find(front);
        const bool known = remembered != numbering.remembered.end();
        if (taken.contains(front))
            continue;
        if (listed || (numbering.listed.empty() && known && remembered->second == name))
            return front;
        (known ? forgotten : unwanted) = front;
    }
    if (!numbering.listed.empty())
        return 0;
    return unwanted != 0 ? unwanted : forgotten;
}

numbers_t numbers_for(const numbering_t &numbering, std::vector<std::string> names)
{
    std::ranges::sort(names, before_by_nature);
    std::ranges::stable_partition(names, [&](const std::string &name) {
        return std::ranges::any_of(numbering.remembered, [&](const auto &entry) { return entry.second == name; });
    });
    numbers_t numbers;
    for (const std::string &name : names)
        if (const unsigned front = number_for(numbering, numbers, name))
            numbers[front] = name;
    return numbers;
}

std::string numbers_text(const numbers_t &numbers)
{
    std::string text;
    for (const auto &[front, name] : numbers)
        text += fmt::format("{} {}\n", front, name);
    return text;
}

numbers_t parse_numbers(const std::string &text)
{
    numbers_t numbers;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        unsigned front = 0;
        std::string name;
        if (words >> front >> name && front >= 1 && front <= BOARD_PORTS)
            numbers[front] = name;
    }
    return numbers;
}
