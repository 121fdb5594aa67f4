/// lvt_rstpctl, the operator's tool: what its commands share. A group of commands has a source file
/// of its own, which adds them to the command line; main only puts the groups together.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "tools/rules.h"

/// Options that every command knows.
struct ctl_t {
    std::string root; ///< put in front of every path; empty for this machine
    bool dry_run = false;
};

/// Ends the tool with status 1: understood, but not allowed or not possible.
struct refused_t : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// ---- groups of commands; `ctl` must outlive the parsing ---------------------------------

/// bridge, ports, aggr-config, groups, lacp
void add_settings_commands(CLI::App &app, const ctl_t &ctl);

/// debug
void add_debug_command(CLI::App &app, const ctl_t &ctl);

// ---- what they do ----------------------------------------------------------------------

/// Sends a control message, or shows it in words and hex on a dry run. Throws refused_t.
void send_message(const ctl_t &ctl, const std::vector<uint8_t> &frame);

/// Sends a debug command, or shows it on a dry run. Throws refused_t.
void send_debug_text(const ctl_t &ctl, const std::string &text);

// ---- what they read --------------------------------------------------------------------

/// Throws refused_t unless the rule allows the value.
void demand(const setting_rule_t &rule, long value);

/// A list as in "1,2,5", or "all". Throws CLI::ValidationError for what is no list of numbers,
/// refused_t for a port that is none.
std::vector<unsigned> parse_ports(const std::string &option, const std::string &text);

/// The two sides of "3=200".
struct assignment_t {
    std::string left, right;
};

/// `form` is what a right one looks like. Throws CLI::ValidationError unless there is something on
/// either side of a "=".
assignment_t parse_assignment(const std::string &option, const std::string &text, const std::string &form);

/// A whole decimal number. Throws CLI::ValidationError.
long parse_number(const std::string &option, const std::string &text);

/// One of `words`; returns its place in the list. Throws CLI::ValidationError.
size_t parse_word(const std::string &option, const std::string &text, const std::vector<std::string> &words);
