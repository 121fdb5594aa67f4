/// What new settings would do to a running spanning tree, in words.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/config_file.h"
#include "tools/status_file.h"

/// What would change, one line each; or why nobody can tell.
struct outlook_told_t {
    std::vector<std::string> lines;
    std::string untold;
};

/// One line each for whatever may change. What other bridges do is not known: roles "may" change.
///
/// before  the settings in force
/// now     what the daemon reports
std::vector<std::string> outlook(const settings_t &before, const settings_t &after, const bridge_status_t &now);

/// Why turning off spanning tree where `after` does may let frames run in a loop that is cut now; empty
/// when nothing here cuts one.
std::string loop_opened(const settings_t &before, const settings_t &after, const bridge_status_t &now);
