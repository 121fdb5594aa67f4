/// Link state of the front ports, from the board library liblink_mon_intf.so.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr uint32_t LINK_MON_PORTS = 6;

/// Bits of a status word.
constexpr uint32_t LINK_MON_SPEED_MASK = 0x3; ///< a speed code: RSTP_SPEEDS
constexpr uint32_t LINK_MON_DUPLEX_BIT = 6;   ///< set: full duplex
constexpr uint32_t LINK_MON_LINK_BIT = 8;     ///< set: link up

struct link_mon_status_t {
    uint32_t head;                   ///< the library's own
    uint32_t status[LINK_MON_PORTS]; ///< word i belongs to front port i + 1
    uint32_t spare[57];              ///< room for what a library's longer record holds; never read
};

static_assert(sizeof(link_mon_status_t) == 256 && offsetof(link_mon_status_t, status) == 4,
              "the board library writes this layout");

/// Fills `status` with the present state of all front ports.
/// Returns 0, or nonzero when it is not known.
extern "C" int link_mon_intf_param_get(link_mon_status_t *status);
