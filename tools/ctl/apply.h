/// The commands that put a configuration file in force: check, apply and set.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/config_edit.h"
#include "tools/ctl/ctl.h"
#include "tools/messages.h"

/// Says that the file is in order, and what it sets, or tells all of it as JSON. Throws faults_t with all that is
/// wrong in it.
void check_config(const place_t &place, bool json = false);

/// Checks the file and sends all that it sets, or shows it on a dry run. Throws refused_t.
void apply_config(const ctl_t &ctl, const place_t &place);

/// Changes settings of the file, which is made if it is not there, and sends what it then sets; on
/// a dry run shows both. Nothing is written or sent unless the whole file is in order and, without
/// `force`, no port leaves the spanning tree that it did not take part in by the file before.
/// Throws refused_t.
void set_in_config(const ctl_t &ctl, const place_t &place, const std::vector<edit_t> &edits, bool force);

/// Sends settings of the ports, in such a way that spanning tree frames stay trapped while a port is on.
///
/// groups_wait  queued group work stays queued
///
/// Throws refused_t.
void send_ports(const ctl_t &ctl, const port_configs_t &ports, bool groups_wait);

/// The file that is named, on this machine; without a name, where the configuration is kept on the board that `ctl`
/// speaks to.
place_t place_of(const ctl_t &ctl, const std::string &file);
