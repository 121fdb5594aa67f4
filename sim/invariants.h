/// What holds in a switch's daemon between any two messages, whatever came before.
#pragma once

#include <array>
#include <cstdint>
#include <string>

/// Spanning tree state codes of front ports 1 to 6 in the chip; octet 0 is no port.
using chip_states_t = std::array<uint8_t, 7>;

/// Compares the tables of the adaptation layer, the daemon, the engine and the chip with each other. Returns
/// one line for each thing that is wrong: empty when all is well. The chip must not have failed since the
/// start.
std::string record_faults(chip_states_t chip_states);
