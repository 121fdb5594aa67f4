/// Debug commands and what the daemon answers.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/ctl.h"

/// Where a simulated switch has the board's console.
constexpr char SIMULATED_CONSOLE[] = "/tmp/console";

/// Hands a debug command to the daemon. Where the board's console is a file, prints what comes there until
/// nothing more does; elsewhere says that it was sent. Throws refused_t.
void debug(const ctl_t &ctl, const std::vector<std::string> &words);
