/// What holds between any two messages, whatever came before.
#pragma once

#include <string>

/// Compares the tables of the adaptation layer, the daemon, the engine and the chip with each other.
/// Returns one line for each thing that is wrong: empty when all is well. The chip must not have
/// failed since the start.
std::string daemon_faults();
