/// The way to the daemon: control messages and debug commands.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/ctl/ctl.h"

/// Sends a control message as the whole of a command and says so in `words`, or shows it in words and hex on
/// a dry run. Throws refused_t, as demand_heard does, too.
void send_message(const ctl_t &ctl, const std::vector<uint8_t> &frame, const std::string &words);

/// Says in one line what was sent; nothing on a dry run.
void tell_sent(const ctl_t &ctl, const std::string &words);

/// The same for one message of several; demand_heard comes after the last.
///
/// patience  how long a full pipe is waited for.
void send_one_of_several(const ctl_t &ctl, const std::vector<uint8_t> &frame, std::chrono::milliseconds patience = {});

/// What the pipe took is not obeyed by a daemon that hangs: throws untold_t when there is a status
/// file that tells of one, and does not become a sound one soon. Without such a file nothing is known,
/// as of a daemon that has only just started.
void demand_heard(const ctl_t &ctl);

/// Calls `attempt` until it throws no refused_t any more, but only for as long as the daemon may take
/// until its next report; then throws what came last.
void within_a_report(const std::function<void()> &attempt);

/// Hands `debug WORDS` to the daemon, or shows it on a dry run. Throws refused_t, also for the one
/// command that would end the daemon, and as demand_heard does.
void send_debug_words(const ctl_t &ctl, const std::vector<std::string> &words);
