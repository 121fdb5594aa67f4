/// The command line: each group of commands has a source file of its own, which adds them; main only
/// puts the groups together. `ctl` must outlive the parsing.
#pragma once

#include <CLI/CLI.hpp>

#include "tools/ctl/ctl.h"

/// What the help says over each group of commands.
constexpr char HEADING_LOOK[] = "Look";
constexpr char HEADING_CONFIGURE[] = "Configure";
constexpr char HEADING_TEST[] = "Test";

/// show, monitor, expect
void add_status_commands(CLI::App &app, const ctl_t &ctl);

/// check, apply, set, confirm, save
void add_config_commands(CLI::App &app, const ctl_t &ctl);

/// send: bridge, ports, aggr-config, groups, lacp, without the file
void add_message_commands(CLI::App &app, const ctl_t &ctl);

/// inject, decode, debug
void add_lab_commands(CLI::App &app, const ctl_t &ctl);

/// groups, which also is one of the messages to inject. Returns it.
CLI::App *add_groups_command(CLI::App &app, const ctl_t &ctl);
