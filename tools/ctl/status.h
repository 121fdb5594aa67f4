/// What the daemon reports, as the commands read it: the status file, judged by its age.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "tools/ctl/ctl.h"
#include "tools/status_file.h"

/// One state of the status file.
struct reading_t {
    bridge_status_t status;
    std::chrono::system_clock::time_point written;
};

/// A status file that has not been written for longer than this tells of a daemon that is no more, as
/// does one that is dated as far ahead.
constexpr std::chrono::seconds STATUS_STALE_AFTER{3};

constexpr std::chrono::milliseconds STATUS_POLL_PAUSE{20}; ///< between two looks at the file

/// Reads the status file. Throws untold_t when it is missing, stale or malformed, and says what that
/// means and what to do.
reading_t read_status(const ctl_t &ctl);

/// The same without the reasons.
std::optional<reading_t> try_status(const ctl_t &ctl);

/// Waits until the file is written anew after `last`. Throws untold_t as read_status does, so that
/// it waits no longer than a file needs to become stale.
reading_t next_status(const ctl_t &ctl, const reading_t &last);

/// As next_status, but gives up at `deadline` and returns nothing then.
std::optional<reading_t> next_status(const ctl_t &ctl, const reading_t &last,
                                     std::chrono::steady_clock::time_point deadline);

// ---- the words of reports ---------------------------------------------------------------

/// Formed groups and all ports are shown; a group without members is not there.
bool is_shown(const bridge_status_t &status, int port);

/// The members of group `group`, in words "1, 2"; empty when it has none.
std::string members_text(const bridge_status_t &status, int group);

/// The word of its role, or "member" of a group.
std::string role_name(const port_status_t &port);

/// The state of a port, HW_DISABLED ..., and its word; a member of a group has the group's.
int state_of(const bridge_status_t &status, int port);
std::string state_name(const bridge_status_t &status, int port);

/// The kind of BPDUs that suit the neighbour, "RSTP" or "STP"; "none" where no bridge is
/// expected or none was heard.
std::string neighbour_name(const port_status_t &port);

/// The port of this bridge that a backup port is looped to; nothing of another port.
std::optional<int> looped_to(const port_status_t &port);

/// The cost of the way to the root, as far as it can be told: the daemon reports only the costs of its
/// own ports, so it is known where the way has no more than one of them.
std::optional<uint32_t> root_path_cost(const bridge_status_t &status);

/// A time as the daemon writes it, "2026/11/20 14:08:15" on this machine's clock; nothing of another text.
std::optional<std::chrono::system_clock::time_point> daemon_time(const std::string &text);

/// "2026-11-20 14:08:15" of a time, on this machine's clock.
std::string time_text(std::chrono::system_clock::time_point time);

/// "2026-11-20 14:08:15.000250"
std::string time_text_of_micros(std::chrono::system_clock::time_point time);
