/// How reports and the status file show numbers of the engine.
#pragma once

#include <cstdint>

/// Port number of a port identifier.
constexpr int port_id_number(uint32_t port_id) { return static_cast<int>(port_id & 0x0FFF); }

/// Priority of a port identifier.
constexpr int port_id_priority(uint32_t port_id) { return static_cast<int>((port_id & 0xF000) >> 8); }

/// An unsigned 32-bit value for "%ld", as the board's 32-bit long shows it.
constexpr long long_of(uint32_t value) { return static_cast<int32_t>(value); }
