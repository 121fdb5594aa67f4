/// What the configuration file sets, beside what runs.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "tools/ctl/config_file.h"
#include "tools/ctl/ctl.h"
#include "tools/ctl/table.h"
#include "tools/status_file.h"

/// Nothing: as set, left to the daemon; as what runs, not told by it.
using setting_value_t = std::variant<std::monostate, bool, int64_t>;

struct compared_t {
    const char *key; ///< as in the file
    setting_value_t set, runs;
    bool differs; ///< what runs is told, and is not what it was set to
};

/// The bridge's settings, or those of a port.
struct compared_section_t {
    int port; ///< 1 to 6; 0: the bridge
    std::vector<compared_t> settings;
};

/// The bridge's first, then those of all front ports.
std::vector<compared_section_t> compare_settings(const settings_t &settings, const bridge_status_t &status);

/// Prints the comparison as tables or as one JSON document. Throws refused_t when the file cannot
/// be read, faults_t when it is not sound, untold_t when the daemon does not report.
void show_config(const ctl_t &ctl, const place_t &place, bool json);
