/// Every message that crosses a named pipe, byte for byte: the one home of these layouts,
/// for the daemon, its tools and its tests. Numbers are in host byte order.
#pragma once

#include <cstddef>
#include <cstdint>

#include "rstp/config.h"

constexpr char RSTP_IF_PIPE[] = "/tmp/rstp_if_pipe";
constexpr char RSTP_DBG_IF_PIPE[] = "/tmp/rstp_dbg_if_pipe";
constexpr char LACP_IF_PIPE[] = "/tmp/lacp_if_pipe";
constexpr char PORT_MUX_IF_PIPE[] = "/tmp/port_mux_if_pipe";
constexpr char RSTP_MONITOR_FILE[] = "/tmp/rstp_monitor"; ///< the status file, rewritten after every tick

// ---- control pipe, in ------------------------------------------------------------------

constexpr uint8_t rstp_magic_number_arr[4] = {0xBC, 0x30, 0x11, 0x82};

constexpr uint32_t RSTP_BODY_MAX = 1024; ///< longest body that is accepted
constexpr uint32_t RSTP_BPDU_MAX = 100;  ///< octets of a received frame that are kept
constexpr uint32_t RSTP_DBG_MAX = 100;   ///< octets of a debug command that are read

enum rstp_msg_type_t : uint8_t {
    RSTP_MSG_BPDU = 0,             ///< a received frame, from its destination address on
    RSTP_MSG_PORT_STATUS = 1,      ///< rstp_port_status_t for each front port
    RSTP_MSG_AGGR_STATUS = 2,      ///< seven octets; octet p: the group of port p
    RSTP_MSG_SYSTEM_CONFIG = 3,    ///< lvt_rstp_system_config_t
    RSTP_MSG_AGGR_CONFIG = 4,      ///< one lvt_rstp_port_config_t, for all groups
    RSTP_MSG_PORT_CONFIG = 5,      ///< seven lvt_rstp_port_config_t; record 0 is not used
    RSTP_MSG_WORK_FLUSH = 6,       ///< empties the reserved work table
    RSTP_MSG_PORT_CONFIG_ONLY = 9, ///< as 5, but queued group work stays queued
    RSTP_MSG_LACP_ENABLE = 10,     ///< six octets, nonzero: LACP runs on the port
    RSTP_MSG_TYPES = 11,
};

/// Opens every frame on the pipe.
struct rstp_frame_header_t {
    uint8_t magic[4];
    uint32_t length; ///< octets that follow the message header
};

/// Follows the frame header.
struct rstp_msg_header_t {
    uint8_t type;
    uint8_t port;    ///< RSTP_MSG_BPDU: chip port + 1; else ignored
    uint16_t length; ///< RSTP_MSG_BPDU: octets of the received frame; else ignored
    uint8_t reserved[4];
};

/// What the control pipe's reader hands on: a message without its frame header.
struct rstp_msg_t {
    rstp_msg_header_t header;
    uint8_t body[RSTP_BODY_MAX];
};

/// Mbit/s of each speed code, in these messages and in the link monitor's words; 0: no speed.
constexpr uint32_t RSTP_SPEEDS[] = {10, 100, 1000, 2500, 5000, 10000, 0};
constexpr uint32_t RSTP_SPEED_CODES = sizeof RSTP_SPEEDS / sizeof *RSTP_SPEEDS;

/// One entry of RSTP_MSG_PORT_STATUS, for front ports 1 to 6 in order.
struct rstp_port_status_t {
    uint8_t ignored;
    uint8_t link;   ///< nonzero: up
    uint8_t speed;  ///< a code, of which RSTP_SPEEDS tells the Mbit/s
    uint8_t duplex; ///< 1: full
};

constexpr uint32_t RSTP_PORT_CONFIG_RECORDS = 7;

static_assert(sizeof(rstp_frame_header_t) == 8 && offsetof(rstp_frame_header_t, length) == 4);
static_assert(sizeof(rstp_msg_header_t) == 8 && offsetof(rstp_msg_header_t, port) == 1 &&
              offsetof(rstp_msg_header_t, length) == 2);
static_assert(sizeof(rstp_msg_t) == 1032 && offsetof(rstp_msg_t, body) == 8);
static_assert(sizeof(rstp_port_status_t) == 4 && offsetof(rstp_port_status_t, link) == 1 &&
              offsetof(rstp_port_status_t, speed) == 2 && offsetof(rstp_port_status_t, duplex) == 3);

// ---- to the link-aggregation daemon ----------------------------------------------------

constexpr uint8_t lacp_msg_magic[4] = {0xAC, 0x01, 0x43, 0x52};
constexpr uint8_t LACP_MSG_RSTP_STATUS = 7; ///< six octets, nonzero: spanning tree is on

struct lacp_frame_t {
    uint8_t magic[4];
    uint32_t length; ///< octets of `body` in use
    uint8_t type;
    uint8_t reserved[3];
    uint8_t body[512];
};

static_assert(sizeof(lacp_frame_t) == 524 && offsetof(lacp_frame_t, length) == 4 && offsetof(lacp_frame_t, type) == 8 &&
              offsetof(lacp_frame_t, body) == 12);

// ---- to the port multiplexer -----------------------------------------------------------

constexpr uint8_t PORT_MUX_MAGIC[4] = {0xB2, 0x06, 0x66, 0xA8};
constexpr uint8_t PORT_MUX_MSG_FORWARDING = 2;
constexpr uint32_t PORT_MUX_LENGTH = 100; ///< what the length field says

struct port_mux_msg_t {
    uint8_t magic[4];
    uint32_t length; ///< PORT_MUX_LENGTH, although the message always has 124 octets
    uint8_t type;
    uint8_t reserved0;
    uint8_t l2port;
    uint8_t reserved1[13];
    uint8_t forwarding;
    uint8_t reserved2[99];
};

static_assert(sizeof(port_mux_msg_t) == 124 && offsetof(port_mux_msg_t, length) == 4 &&
              offsetof(port_mux_msg_t, type) == 8 && offsetof(port_mux_msg_t, l2port) == 10 &&
              offsetof(port_mux_msg_t, forwarding) == 24);
