/// The commands that put a configuration file in force, and store what is in force: check, apply, set, save.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "tools/ctl/config_edit.h"
#include "tools/ctl/ctl.h"
#include "tools/messages.h"

/// After so long a change goes back unless it is confirmed; nothing: it stays.
using confirm_within_t = std::optional<std::chrono::nanoseconds>;

/// Says that the file is in order, and what it sets, or tells all of it as JSON. Throws faults_t with all that is
/// wrong in it.
void check_config(const place_t &place, bool json = false);

struct apply_args_t {
    confirm_within_t confirm;
    bool json = false; ///< of a dry run
};

/// Checks the file and sends all that it sets; on a dry run tells what would change, and shows the messages.
/// Throws refused_t.
void apply_config(const ctl_t &ctl, const place_t &place, const apply_args_t &args);

struct set_args_t {
    std::vector<edit_t> edits;
    bool force = false;
    confirm_within_t confirm;
};

/// Changes settings of the file, which is made if it is not there, and sends what it then sets; on
/// a dry run tells and shows both. Nothing is written or sent unless the whole file is in order and, without
/// `force`, no port leaves the spanning tree that it did not take part in by the file before, and none that
/// cuts a loop. Throws refused_t.
void set_in_config(const ctl_t &ctl, const place_t &place, const set_args_t &args);

/// Puts what is in force into the file, its comments and order kept. Throws refused_t.
void save_config_in_force(const ctl_t &ctl, const place_t &place);

/// Sends settings of the ports, in such a way that spanning tree frames stay trapped while a port is on.
///
/// groups_wait  queued group work stays queued
///
/// Throws refused_t.
void send_ports(const ctl_t &ctl, const port_configs_t &ports, bool groups_wait);

/// The file that is named, on this machine; without a name, where the configuration is kept on the board that `ctl`
/// speaks to.
place_t place_of(const ctl_t &ctl, const std::string &file);
