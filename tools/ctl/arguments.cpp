#include "tools/ctl/arguments.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "tools/number.h"

void demand(const setting_rule_t &rule, int64_t value)
{
    const std::string fault = fault_of(rule, value);
    if (!fault.empty())
        throw refused_t(fault);
}

std::vector<unsigned> parse_ports(const std::string &option, const std::string &text, const setting_rule_t &rule)
{
    const std::string list = text == "all" ? fmt::format("{}-{}", rule.min, rule.max) : text;

    std::vector<unsigned> ports;
    for (size_t start = 0, comma = 0; comma != std::string::npos; start = comma + 1) {
        comma = list.find(',', start);
        const std::string part = list.substr(start, comma - start);
        const size_t dash = part.find('-', 1);
        const int64_t first = parse_number(option, part.substr(0, dash));
        const int64_t last = dash == std::string::npos ? first : parse_number(option, part.substr(dash + 1));
        demand(rule, first);
        demand(rule, last);
        if (last < first)
            throw usage_t(fmt::format("{}: \"{}\" runs backwards", option, part));
        for (int64_t port = first; port <= last; port++)
            ports.push_back(static_cast<unsigned>(port));
    }
    return ports;
}

std::vector<unsigned> parse_ports_or_none(const std::string &option, const std::string &text)
{
    return text == "none" ? std::vector<unsigned>() : parse_ports(option, text);
}

std::string ports_text(const std::vector<unsigned> &ports)
{
    std::string text;
    for (size_t first = 0, last = 0; first < ports.size(); first = last + 1) {
        for (last = first; last + 1 < ports.size() && ports[last + 1] == ports[last] + 1;)
            last++;
        text += fmt::format("{}{}", text.empty() ? "" : ",", ports[first]);
        if (last > first)
            text += fmt::format("{}{}", last == first + 1 ? "," : "-", ports[last]);
    }
    return text;
}

std::string on_at_text(const std::string &what, const std::function<bool(unsigned port)> &is_on, const char *yes,
                       const char *no)
{
    std::vector<unsigned> on, off;
    for (auto port = static_cast<unsigned>(FRONT_PORT.min); port <= FRONT_PORT.max; port++)
        (is_on(port) ? on : off).push_back(port);
    if (on.empty() || off.empty())
        return fmt::format("{} {} at all ports", what, on.empty() ? no : yes);
    return fmt::format("{} {} at port {}, {} at {}", what, yes, ports_text(on), no, ports_text(off));
}

assignment_t parse_assignment(const std::string &option, const std::string &text, const std::string &form)
{
    const size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0 || sign + 1 == text.size())
        throw usage_t(fmt::format("{}: \"{}\" should read {}", option, text, form));
    return {text.substr(0, sign), text.substr(sign + 1)};
}

void refuse_empty_arguments(int argc, const char *const *argv)
{
    for (int i = 1; i < argc; i++) {
        const std::string argument = argv[i];
        if (argument.empty() || (argument.starts_with("--") && argument.ends_with('=')))
            throw usage_t(fmt::format("argument {}{} is empty: is a variable not set?", i,
                                      argument.empty() ? "" : ", " + argument + ","));
    }
}

std::string first_name(const std::string &names) { return names.substr(0, names.find(',')); }

int64_t parse_number(const std::string &option, const std::string &text)
{
    const bool hex = text.starts_with("0x");
    int64_t value = 0;
    const std::errc error = read_number(std::string_view(text).substr(hex ? 2 : 0), value, hex ? 16 : 10);
    if (error == std::errc::invalid_argument)
        throw usage_t(fmt::format("{}: \"{}\" is not a number", option, text));
    if (error != std::errc{})
        throw usage_t(fmt::format("{}: {} is too large a number", option, text));
    return value;
}

std::chrono::nanoseconds parse_seconds(const std::string &option, const std::string &text)
{
    constexpr double max = 1e9;
    const char *end = text.data() + text.size();
    double seconds = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, seconds);
    if (error != std::errc{} || stop != end || !(seconds >= 0 && seconds <= max))
        throw usage_t(fmt::format("{}: \"{}\" is no number of seconds from 0 to {:.0f}", option, text, max));
    return std::chrono::round<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
}

size_t parse_word(const std::string &option, const std::string &text, const std::vector<std::string> &words)
{
    const auto found = std::ranges::find(words, text);
    if (found == words.end())
        throw usage_t(fmt::format("{}: \"{}\" is none of {}", option, text, fmt::join(words, ", ")));
    return static_cast<size_t>(found - words.begin());
}

int64_t parse_setting(const std::string &option, const std::string &text, const setting_rule_t &rule)
{
    const int64_t value = parse_number(option, text);
    demand(rule, value);
    return value;
}

unsigned parse_path_cost(const std::string &option, const std::string &text)
{
    return text == "auto" ? 0 : static_cast<unsigned>(parse_setting(option, text, PATH_COST));
}
