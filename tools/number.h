/// Numbers in text, for tools, board and tests alike.
#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

/// Reads the whole text as a number. Returns std::errc() when it is one, result_out_of_range when it is
/// too large for `value`, else invalid_argument; only a number is stored.
template <typename number_t>
std::errc read_number(std::string_view text, number_t &value, int base = 10)
{
    const char *end = text.data() + text.size();
    number_t read = {};
    const auto [stop, error] = std::from_chars(text.data(), end, read, base);
    if (stop != end)
        return std::errc::invalid_argument;
    if (error == std::errc())
        value = read;
    return error;
}
