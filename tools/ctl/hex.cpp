#include "tools/ctl/hex.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include <fmt/format.h>

#include "tools/ctl/ctl.h"
#include "tools/hex.h"

std::vector<uint8_t> parse_hex(const std::string &text)
{
    const auto parts = [](unsigned char letter) { return std::isspace(letter) || letter == ':' || letter == '-'; };
    std::string digits = text;
    for (size_t at = 0; (at = digits.find("0x", at)) != std::string::npos; at++)
        if (at == 0 || parts(static_cast<unsigned char>(digits[at - 1])))
            digits.replace(at, 2, "  ");
    std::erase_if(digits, parts);

    const auto wrong = std::ranges::find_if_not(digits, [](unsigned char letter) { return std::isxdigit(letter); });
    if (wrong != digits.end())
        throw usage_t(fmt::format("\"{}\" is no digit of octets in hex", *wrong));
    if (digits.size() % 2)
        throw usage_t(digits.size() == 1 ? "1 digit in hex is no whole octet"
                                         : fmt::format("{} digits in hex are no whole octets", digits.size()));

    std::vector<uint8_t> octets(digits.size() / 2);
    for (size_t i = 0; i < octets.size(); i++)
        std::from_chars(&digits[2 * i], &digits[2 * i] + 2, octets[i], 16);
    return octets;
}

std::array<uint8_t, 6> parse_address(const std::string &option, const std::string &text)
{
    const auto address = read_address(text);
    if (!address)
        throw usage_t(fmt::format("{}: \"{}\" should read as 02:00:00:00:01:00", option, text));
    return *address;
}
