/// The board's reports as text.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

/// Reports that can be shown, in the order of the help.
extern const std::vector<std::string> SHOW_REPORTS;

/// Lays out report `what`, one of SHOW_REPORTS, as a table.
std::string show_text(const std::string &what, const nlohmann::json &report);
