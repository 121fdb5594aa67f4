/// Settings of the bridge and of a port, as they are stored and as they cross the control pipe.
#pragma once

#include <cstddef>
#include <cstdint>

/// Bridge settings. Compared and copied as a whole.
struct lvt_rstp_system_config_t {
    uint16_t bridge_priority; ///< steps of 4096; the low twelve bits are not used
    uint16_t max_age;         ///< seconds
    uint16_t hello_time;      ///< seconds
    uint16_t forward_delay;   ///< seconds
    uint8_t force_version;    ///< below 2: STP only
    uint8_t reserved;
};

/// Port settings. Compared and copied as a whole.
struct lvt_rstp_port_config_t {
    uint32_t adminPathCost; ///< 0: from the link's speed
    uint16_t port_priority;
    uint8_t adminEnable;       ///< nonzero: the port takes part in the spanning tree
    uint8_t adminEdge;         ///< nonzero: expected to lead to a host
    uint8_t adminPointToPoint; ///< 0 force true, 1 force false, else from the duplex
    uint8_t reserved[3];
};

static_assert(sizeof(lvt_rstp_system_config_t) == 10 && offsetof(lvt_rstp_system_config_t, max_age) == 2 &&
              offsetof(lvt_rstp_system_config_t, hello_time) == 4 &&
              offsetof(lvt_rstp_system_config_t, forward_delay) == 6 &&
              offsetof(lvt_rstp_system_config_t, force_version) == 8);
static_assert(sizeof(lvt_rstp_port_config_t) == 12 && offsetof(lvt_rstp_port_config_t, port_priority) == 4 &&
              offsetof(lvt_rstp_port_config_t, adminEnable) == 6 && offsetof(lvt_rstp_port_config_t, adminEdge) == 7 &&
              offsetof(lvt_rstp_port_config_t, adminPointToPoint) == 8);

/// What the daemon starts with.
constexpr lvt_rstp_system_config_t LVT_RSTP_SYSTEM_DEFAULTS = {
    .bridge_priority = 32768,
    .max_age = 20,
    .hello_time = 2,
    .forward_delay = 15,
    .force_version = 2,
    .reserved = 0,
};

/// What every port and group starts with.
constexpr lvt_rstp_port_config_t LVT_RSTP_PORT_DEFAULTS = {
    .adminPathCost = 0,
    .port_priority = 128,
    .adminEnable = 0,
    .adminEdge = 1,
    .adminPointToPoint = 2,
    .reserved = {},
};
