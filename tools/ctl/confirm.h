/// Changes that go back by themselves unless somebody confirms them in time.
///
///     apply --confirm ── starts the guard, which outlives it and its terminal
///                           ├─ confirm comes: the guard goes, all stays
///                           └─ nobody comes: the guard sends what was in force, and tells the system's log
///
/// They meet in two files of the tool's folder beside the daemon's pipes: a lock, held for as long as a guard
/// lives, and a note of what is awaited or how it ended.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "tools/ctl/ctl.h"

/// Throws refused_t while a change waits to be confirmed: going back would undo another one as well.
void refuse_while_unconfirmed(const ctl_t &ctl);

/// Starts a guard that calls `go_back` after so long unless confirm_change is called. Throws refused_t, also
/// when there is one already.
void start_guard(const ctl_t &ctl, std::chrono::nanoseconds patience, const std::function<void()> &go_back);

/// Lets the change stay that waits. Throws refused_t when none does, and tells how the last one ended.
void confirm_change(const ctl_t &ctl);
