/// Settings that tests give their switches.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "tools/messages.h"

// The shortest times that the standard allows, in seconds.
constexpr int HELLO_TIME = 1;
constexpr int MAX_AGE = 6;
constexpr int FORWARD_DELAY = 4;

/// Those times, and a priority.
lvt_rstp_system_config_t bridge_config(uint16_t priority);

/// Spanning tree on for the ports named, off for the others. Those that lead to bridges are no
/// edge ports, so that their first seconds do not hang on whose clock ticks first.
port_configs_t port_configs(std::initializer_list<int> to_bridges, std::initializer_list<int> to_hosts = {});

/// Everybody's group in one line: the groups of ports 1 to 6, 0 for a port that stands alone.
aggr_status_t groups(std::initializer_list<uint8_t> of_ports);
