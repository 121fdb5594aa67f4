/// What happens to a network, a command each: "pull sw1-sw2", "power sw3 off".
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "tools/topology/network.h"

namespace topology {

/// A word of a command is wrong.
struct command_fault_t : std::runtime_error {
    command_fault_t(size_t word_offset, const std::string &text) : std::runtime_error(text), offset(word_offset) {}
    size_t offset; ///< of the word in the command's text
};

/// The commands and what follows each, "pull A-B".
std::vector<std::string> command_forms();

/// Reads a command that is given at a moment, after all of the network's story until now. Throws command_fault_t.
event_t parse_command(const network_t &network, span_t at, const std::string &text);

/// The command that parse_command reads as this event; `before` is what the switch had until then, for SET.
std::string command_text(const network_t &network, const event_t &event, const settings_t &before);

/// The settings of a node after all of the story until now.
const settings_t &settings_now(const network_t &network, size_t node);

/// What `now` sets otherwise than `before`, as "port.1.path_cost=200".
std::vector<std::string> changed_settings(const settings_t &before, const settings_t &now);

} // namespace topology
