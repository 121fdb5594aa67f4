/// Reading the words of a command line beyond what its options say of themselves.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tools/ctl/ctl.h"
#include "tools/rules.h"

/// Throws refused_t unless the rule allows the value.
void demand(const setting_rule_t &rule, int64_t value);

/// A list as in "1,2,5" or "1-3,5", or "all" that the rule allows, in the order given. Throws
/// usage_t for what is no list of numbers, refused_t for a number that the rule does not allow.
std::vector<unsigned> parse_ports(const std::string &option, const std::string &text,
                                  const setting_rule_t &rule = FRONT_PORT);

/// The same, or "none".
std::vector<unsigned> parse_ports_or_none(const std::string &option, const std::string &text);

/// Ports in ascending order as such a list, "1-3,5"; empty for none.
std::string ports_text(const std::vector<unsigned> &ports);

/// "spanning tree on at port 1-3, off at 4-6", of whether it is on at front ports 1 to 6.
std::string on_at_text(const std::string &what, const std::function<bool(unsigned port)> &is_on, const char *yes = "on",
                       const char *no = "off");

/// The two sides of "3=200".
struct assignment_t {
    std::string left, right;
};

/// `form` is what a right one looks like. Throws usage_t unless there is something on either side
/// of a "=".
assignment_t parse_assignment(const std::string &option, const std::string &text, const std::string &form);

/// Throws usage_t when an argument, or what an option is set to, is empty: a variable of the shell that
/// is not set must not turn a command into another one.
void refuse_empty_arguments(int argc, const char *const *argv);

/// The first of an option's names, "--cost" of "--cost,--path-cost", for messages.
std::string first_name(const std::string &names);

/// A whole number, decimal or in hex after "0x". Throws usage_t.
int64_t parse_number(const std::string &option, const std::string &text);

/// A time in seconds, 0 to a thousand million, with or without a fraction. Throws usage_t.
std::chrono::nanoseconds parse_seconds(const std::string &option, const std::string &text);

/// One of `words`; returns its place in the list. Throws usage_t.
size_t parse_word(const std::string &option, const std::string &text, const std::vector<std::string> &words);

/// A whole number as parse_number reads it, which the rule has to allow. Throws usage_t or refused_t.
int64_t parse_setting(const std::string &option, const std::string &text, const setting_rule_t &rule);

/// A path cost, or "auto", which is 0. Throws usage_t or refused_t.
unsigned parse_path_cost(const std::string &option, const std::string &text);
