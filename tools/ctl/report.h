/// The daemon's state as tables for people.
#pragma once

#include <vector>

#include "tools/ctl/linux_bridge.h"
#include "tools/ctl/table.h"
#include "tools/status_file.h"

/// What a report is about. `ports` names those that are shown.
struct subject_t {
    bool bridge = true;
    bool ports = true;
    bool statistics = true;
    std::vector<int> one_by_one = {}; ///< these ports alone, with all that is known of each; none: the above
};

/// The tables of a report, in order. What is known of the interfaces behind front ports of a Linux bridge is told, too.
std::vector<table_t> report_of(const bridge_status_t &status, const subject_t &subject,
                               const linux_ports_t &interfaces = {});
