/// Statements about the tree that scripts and monitoring can check.
#pragma once

#include <chrono>
#include <string>

#include "tools/ctl/ctl.h"

/// What statements there are, for the help.
extern const char STATEMENTS[];

/// Checks a statement, at once or until it is true within that time; the number of topology
/// changes is counted to the end of that time. Throws usage_t when the statement is not understood,
/// refused_t with what is true instead when it is not so, or when the daemon does not report.
void expect(const ctl_t &ctl, const std::string &statement, std::chrono::nanoseconds within);
