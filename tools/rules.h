/// What IEEE Std 802.1D-2004 allows an operator to set (tables 17-1 to 17-3). The daemon itself
/// takes any value; the tools ask here before they send one.
#pragma once

#include <cstdint>
#include <string>

/// A setting's allowed values: `min`, `min` + `step`, ... `max`.
struct setting_rule_t {
    const char *name;
    int64_t min;
    int64_t max;
    int64_t step;
    const char *unit;
};

constexpr setting_rule_t BRIDGE_PRIORITY = {"bridge priority", 0, 61440, 4096, ""};
constexpr setting_rule_t MAX_AGE = {"max age", 6, 40, 1, " s"};
constexpr setting_rule_t HELLO_TIME = {"hello time", 1, 2, 1, " s"};
constexpr setting_rule_t FORWARD_DELAY = {"forward delay", 4, 30, 1, " s"};
constexpr setting_rule_t FORCE_VERSION = {"force version", 0, 2, 2, ""};

constexpr setting_rule_t PATH_COST = {"path cost", 0, 200'000'000, 1, ""}; ///< 0: from the speed
constexpr setting_rule_t PORT_PRIORITY = {"port priority", 0, 240, 16, ""};

constexpr setting_rule_t FRONT_PORT = {"port", 1, 6, 1, ""};
constexpr setting_rule_t GROUP = {"group", 7, 9, 1, ""};
constexpr setting_rule_t LOGICAL_PORT = {"logical port", 1, 9, 1, ""};

/// What the kernel takes for an interface's name, and other programs for one word that means itself.
bool is_interface_name(const std::string &name);

/// Says in a sentence why `value` may not be set; empty when it may.
std::string fault_of(const setting_rule_t &rule, int64_t value);

/// Says which rule between the three times, in seconds, is broken; empty when they go together:
/// 2 * (forward delay - 1) >= max age >= 2 * (hello time + 1).
std::string fault_of_times(int64_t max_age, int64_t hello_time, int64_t forward_delay);
