/// What is different between two states of the status file.
#pragma once

#include <string>
#include <vector>

#include "tools/status_file.h"

/// One change, in words. Either side is empty where there is no value.
struct change_t {
    std::string what; ///< "root", "root port", "topology change", "role" or "state"
    int port;         ///< 1 to 9 for role and state, else 0
    std::string from, to;
};

/// All changes but those of counters and settings, the bridge's first.
std::vector<change_t> changes_between(const bridge_status_t &before, const bridge_status_t &now);

/// How many topology changes have begun in between, 0 or 1. One that began and ended within the
/// second between two files is seen, too.
int topology_changes_between(const bridge_status_t &before, const bridge_status_t &now);

/// "port 3 role alternate -> root"
std::string change_text(const change_t &change);
