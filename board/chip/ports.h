/// How the front of the board is wired to the switch chip: the one home of the crossing for board, tools
/// and tests. The daemon has its own (os_api.cpp), so that each shows a mistake in the other.
#pragma once

#include <array>
#include <cstdint>

constexpr unsigned BOARD_PORTS = 6; ///< numbered from 1, as printed on the case
constexpr unsigned CHIP_PORTS = 7;  ///< numbered from 0, which leads to the CPU
constexpr unsigned CHIP_CPU_PORT = 0;

/// Ports 5 and 6 are crossed on the board; the wiring is its own inverse.
constexpr std::array<std::uint8_t, CHIP_PORTS> PORT_WIRING = {0, 1, 2, 3, 4, 6, 5};

/// The chip port behind front port 1 to 6.
constexpr unsigned chip_port_of_front(unsigned front) { return PORT_WIRING.at(front); }

/// The front port that chip port 1 to 6 leads to.
constexpr unsigned front_port_of_chip(unsigned chip_port) { return PORT_WIRING.at(chip_port); }
