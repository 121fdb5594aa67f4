/// The commands that tell what the daemon does: show and monitor.
#pragma once

#include <chrono>
#include <optional>

#include "tools/ctl/ctl.h"
#include "tools/ctl/report.h"

enum class format_t { table, json, pretty_json, lines };

struct show_args_t {
    subject_t subject;
    format_t format = format_t::table;
    bool watch = false;
    std::optional<std::chrono::nanoseconds> length; ///< of watching; empty: for ever
};

/// Prints the state once, or each second anew with marks on what changed. Throws untold_t.
void show(const ctl_t &ctl, const show_args_t &args);

struct monitor_args_t {
    bool json = false;
    std::optional<std::chrono::nanoseconds> length; ///< empty: for ever
};

/// Prints a line for each change of a role, a state, the root or the topology. Throws untold_t when
/// the daemon no longer reports.
void monitor(const ctl_t &ctl, const monitor_args_t &args);
