/// What came of many seeds, in words and as JSON lines that can be put together again.
#pragma once

#include <string>
#include <vector>

#include "sim/campaign.h"

namespace sim {

/// A line for each failure and one for the whole. `again` are the options to repeat it with.
std::string report_text(const report_t &report, const std::string &again = {});

/// The same as JSON: {"seed": ...} lines, then {"ranges": ...}.
std::string report_json(const report_t &report);

/// Puts reports together that came as JSON lines.
class merge_t {
public:
    /// Throws std::exception when the line is none of report_json.
    void add_line(const std::string &line);
    /// Throws could_not_t when ranges overlap, or lines of failures are missing.
    report_t whole() const;

private:
    report_t report_;
    uint64_t not_held_ = 0;
};

} // namespace sim
