/// From a configuration to the messages that put it in force.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/ctl/config_file.h"
#include "tools/status_file.h"

/// One message, and what it is sent for at its place.
struct plan_step_t {
    std::vector<uint8_t> frame;
    std::string reason;
};

/// The sequence of messages for all settings, made so that each has its effect once:
///
/// 1. LACP (type 10) is only stored, and counts when a port's state changes: before all that.
/// 2. The bridge (type 3): ports that are enabled then speak for it as it is to be.
/// 3. Ports that leave a group or change it (type 2): the daemon moves a port soundly only by way of
///    standing alone.
/// 4. The ports (type 9): groups whose members changed wait.
/// 5. The groups' settings (type 4): existing groups are formed, with what waits.
/// 6. The groups (type 2): new ones are formed, once, from members that are as they are to be.
///
/// Without 5 and 6, 4 is of type 5, which forms what waits.
///
/// The daemon traps spanning tree frames as the last changed port wants it. When it may find the
/// settings changed of a port that is to be off, while others are on, 4 is sent twice, first with a
/// reserved octet set in the record of one port that is on: that port then is the last that changes.
///
/// before  the settings that were in force, as far as that is known: those of the groups are costly,
///         the daemon forms each group anew
/// now     what the daemon reports
///
/// What is not known is taken for changed.
std::vector<plan_step_t> plan_of(const settings_t &settings, const std::optional<settings_t> &before,
                                 const std::optional<bridge_status_t> &now);

/// The same for the ports alone, of type 9 when queued group work is to wait.
std::vector<plan_step_t> plan_of_ports(const port_configs_t &ports, const std::optional<bridge_status_t> &now,
                                       bool groups_wait);
