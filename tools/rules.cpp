#include "tools/rules.h"

#include <algorithm>
#include <cstring>

#include <fmt/format.h>
#include <net/if.h>

bool is_interface_name(const std::string &name)
{
    return !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
           std::ranges::all_of(name, [](char letter) {
               return letter > ' ' && letter <= '~' && std::strchr("/:%#\"'\\", letter) == nullptr;
           });
}

std::string fault_of(const setting_rule_t &rule, int64_t value)
{
    if (value >= rule.min && value <= rule.max && (value - rule.min) % rule.step == 0)
        return {};

    if (rule.max - rule.min == rule.step)
        return fmt::format("{} {}: allowed is {} or {}{}", rule.name, value, rule.min, rule.max, rule.unit);
    const std::string steps = rule.step > 1 ? fmt::format(" in steps of {}", rule.step) : "";
    return fmt::format("{} {}: allowed is {} to {}{}{}", rule.name, value, rule.min, rule.max, rule.unit, steps);
}

std::string fault_of_times(int64_t max_age, int64_t hello_time, int64_t forward_delay)
{
    if (max_age > 2 * (forward_delay - 1))
        return fmt::format("max age {} s is too long for forward delay {} s: at most 2 * ({} - 1) = {} s", max_age,
                           forward_delay, forward_delay, 2 * (forward_delay - 1));
    if (max_age < 2 * (hello_time + 1))
        return fmt::format("max age {} s is too short for hello time {} s: at least 2 * ({} + 1) = {} s", max_age,
                           hello_time, hello_time, 2 * (hello_time + 1));
    return {};
}
