#include "tools/topology/values.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include <arpa/inet.h>
#include <fmt/format.h>

#include "tools/number.h"

namespace topology {

namespace {

struct unit_t {
    const char *name;
    double microseconds;
};

constexpr unit_t UNITS[] = {{"us", 1}, {"ms", 1e3}, {"s", 1e6}, {"min", 60e6}, {"h", 3600e6}};
constexpr double SPAN_MAX = 30 * 24 * 3600e6;

/// A number that is not negative.
std::optional<double> amount_of(std::string_view text)
{
    double amount = 0;
    const char *end = text.data() + text.size();
    if (text.find_first_not_of("0123456789.") != std::string_view::npos)
        return {};
    const auto [stop, error] = std::from_chars(text.data(), end, amount);
    if (stop != end || error != std::errc())
        return {};
    return amount;
}

} // namespace

std::optional<span_t> parse_span(std::string_view text)
{
    const size_t end = std::min(text.find_first_not_of("0123456789."), text.size());
    const auto amount = amount_of(text.substr(0, end));
    if (amount && *amount == 0 && end == text.size())
        return span_t(0);
    for (const unit_t &unit : UNITS)
        if (amount && text.substr(end) == unit.name && *amount * unit.microseconds <= SPAN_MAX)
            return span_t(std::llround(*amount * unit.microseconds));
    return {};
}

std::string span_text(span_t span)
{
    if (span.count() % 1'000'000 == 0)
        return fmt::format("{}s", span.count() / 1'000'000);
    if (span.count() % 1000 == 0)
        return fmt::format("{}ms", span.count() / 1000);
    return fmt::format("{}us", span.count());
}

std::optional<uint32_t> parse_share(std::string_view text)
{
    if (text == "0")
        return 0;
    if (!text.ends_with('%'))
        return {};
    const auto percent = amount_of(text.substr(0, text.size() - 1));
    if (!percent || *percent > 100)
        return {};
    return static_cast<uint32_t>(std::llround(*percent * 1e4));
}

std::string share_text(uint32_t per_million)
{
    const uint32_t whole = per_million / 10000, rest = per_million % 10000;
    if (rest == 0)
        return fmt::format("{}%", whole);
    std::string digits = fmt::format("{:04}", rest);
    digits.erase(digits.find_last_not_of('0') + 1);
    return fmt::format("{}.{}%", whole, digits);
}

std::optional<std::string> parse_address(const std::string &text)
{
    constexpr unsigned BITS = 32;
    const size_t slash = std::min(text.find('/'), text.size());
    unsigned bits = 24;
    in_addr address;
    if (inet_pton(AF_INET, text.substr(0, slash).c_str(), &address) != 1 ||
        (slash < text.size() && (read_number(text.substr(slash + 1), bits) != std::errc() || bits < 1 || bits > BITS)))
        return {};
    return fmt::format("{}/{}", text.substr(0, slash), bits);
}

std::string toml_value(const std::string &text)
{
    int64_t number = 0;
    const bool is_list = text.starts_with('[') && text.find_first_not_of("[]0123456789, ") == std::string::npos;
    if (read_number(text, number) == std::errc() || text == "true" || text == "false" || is_list)
        return text;
    std::string quoted = "\"";
    for (const char letter : text) {
        if (static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F)
            quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(letter));
        else {
            if (letter == '"' || letter == '\\')
                quoted += '\\';
            quoted += letter;
        }
    }
    return quoted + '"';
}

} // namespace topology
