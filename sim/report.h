/// What came of many seeds, in words and as JSON lines that can be put together again.
#pragma once

#include <string>
#include <vector>

#include "sim/campaign.h"

namespace sim {

/// A line for each failure and one for the whole. `again` are the options to repeat it with.
std::string report_text(const report_t &report, const std::string &again = {});

/// The same as JSON: {"seed": ...} lines, then {"first": ...}.
std::string report_json(const report_t &report);

} // namespace sim
