/// The daemon's state as tables for people.
#pragma once

#include <vector>

#include "tools/ctl/table.h"
#include "tools/status_file.h"

/// What a report is about. `ports` names those that are shown.
struct subject_t {
    bool bridge = true;
    bool ports = true;
    bool statistics = true;
    int port = 0; ///< one port alone, 1 to 9, with all that is known of it; 0: the above
};

/// The tables of a report, in order.
std::vector<table_t> report_of(const bridge_status_t &status, const subject_t &subject);
