/// The encoder of the daemon's control messages, for tools, demo, tests and benchmarks alike.
///
/// Each function returns one whole frame: frame header, message header and body, in host byte
/// order, to be written into the control pipe in one piece (tools/pipe.h). The layouts are those
/// of platform/messages.h; no value is judged here (tools/rules.h does that), so that tests can send
/// what no operator should.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/messages.h"

constexpr size_t FRONT_PORTS = RSTP_PORT_CONFIG_RECORDS - 1; ///< record 0 is that of the groups

/// Octet 0 is not used; octet p is the group (7 to 9) of front port p, or p when it stands alone.
using aggr_status_t = std::array<uint8_t, FRONT_PORTS + 1>;
/// Record 0 stands for the groups, which the daemon does not take from here; record p is port p's.
using port_configs_t = std::array<lvt_rstp_port_config_t, RSTP_PORT_CONFIG_RECORDS>;
using port_statuses_t = std::array<rstp_port_status_t, FRONT_PORTS>;
/// Octet p - 1: nonzero when LACP runs on front port p.
using lacp_enables_t = std::array<uint8_t, FRONT_PORTS>;

/// A port with link at 1000 Mbit/s, full duplex.
constexpr rstp_port_status_t LINK_UP = {.ignored = 0, .link = 1, .speed = 2, .duplex = 1};
static_assert(RSTP_SPEEDS[LINK_UP.speed] == 1000);

/// Every port standing alone.
constexpr aggr_status_t AGGR_STATUS_ALONE = {0, 1, 2, 3, 4, 5, 6};

/// Seven records of defaults: spanning tree off everywhere.
port_configs_t default_port_configs();

/// Type 0, a received frame.
///
/// port_octet     the chip's port number + 1; 1 to 7 exist.
/// frame          from its destination address on, without switch tag; at most 1024 octets.
/// stated_length  what the header calls the frame's length; by default its real one.
std::vector<uint8_t> bpdu_message(uint8_t port_octet, std::span<const uint8_t> frame,
                                  std::optional<uint16_t> stated_length = {});

/// The same for a frame that came in at front port `front`, 1 to 6.
std::vector<uint8_t> received_message(unsigned front, std::span<const uint8_t> frame,
                                      std::optional<uint16_t> stated_length = {});

/// Type 1, link, speed and duplex of all front ports.
std::vector<uint8_t> port_status_message(const port_statuses_t &ports);

/// Type 2, the groups that the ports belong to.
std::vector<uint8_t> aggr_status_message(const aggr_status_t &groups);

/// Type 3, the bridge's settings.
std::vector<uint8_t> system_config_message(const lvt_rstp_system_config_t &config);

/// Type 4, the settings of all groups.
std::vector<uint8_t> aggr_config_message(const lvt_rstp_port_config_t &config);

/// Type 5, the settings of all ports; type 9, the same with queued group work left queued.
std::vector<uint8_t> port_config_message(const port_configs_t &configs);
std::vector<uint8_t> port_config_only_message(const port_configs_t &configs);

/// Type 6, empties the daemon's reserved work table.
std::vector<uint8_t> work_flush_message();

/// Type 10, the ports on which LACP runs.
std::vector<uint8_t> lacp_enable_message(const lacp_enables_t &enables);

/// Any type with any body, for trying out what the daemon does with it. The header's length field
/// is the body's length unless stated.
std::vector<uint8_t> raw_message(uint8_t type, std::span<const uint8_t> body, uint8_t port_octet = 0,
                                 std::optional<uint16_t> stated_length = {});
