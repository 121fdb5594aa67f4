/// Statements about the tree that scripts and monitoring can check.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/ctl/ctl.h"

/// What statements there are, for the help.
extern const char STATEMENTS[];

/// A statement as it was judged.
struct verdict_t {
    std::string statement;
    std::optional<bool> so; ///< nothing: nobody can tell
    std::string fact;       ///< what is true instead, or why nobody can tell
};

/// Whether all are so; nothing when none is wrong, but nobody can tell of some.
std::optional<bool> all_so(const std::vector<verdict_t> &verdicts);

struct expect_args_t {
    std::vector<std::string> statements;
    std::string file; ///< of more statements, a line each, "-" for standard input; empty: none
    std::chrono::nanoseconds within{0};
    bool json = false;
};

/// Checks statements, at once or until all are true together within that time. Where one of them limits
/// topology changes, these are counted to the end of that time, and then the others have to be true.
/// Throws usage_t when one is not understood; refused_t with what is true instead when one is not so,
/// untold_t when nobody can tell.
void expect(const ctl_t &ctl, const expect_args_t &args);
