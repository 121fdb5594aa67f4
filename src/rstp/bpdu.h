/// The layout of a BPDU frame, from its destination address on (clause 9.3, with IEEE 802.3
/// and LLC headers). All numbers are big-endian. The switch tag is not part of it.
#pragma once

#include <cstddef>
#include <cstdint>

struct bpdu_t {
    uint8_t destination[6];
    uint8_t source[6];
    uint8_t length[2]; ///< octets that follow, padding not counted
    uint8_t dsap;
    uint8_t ssap;
    uint8_t control;
    uint8_t protocol[2];
    uint8_t version;
    uint8_t type;
    uint8_t flags; ///< the rest is missing in a topology change notification
    uint8_t root_priority[2];
    uint8_t root_address[6];
    uint8_t root_path_cost[4];
    uint8_t bridge_priority[2];
    uint8_t bridge_address[6];
    uint8_t port_id[2];
    uint8_t message_age[2]; ///< times in 1/256 s: whole seconds come first
    uint8_t max_age[2];
    uint8_t hello_time[2];
    uint8_t forward_delay[2];
    uint8_t version_1_length; ///< RST BPDUs only
};

static_assert(sizeof(bpdu_t) == 53 && alignof(bpdu_t) == 1);
static_assert(offsetof(bpdu_t, length) == 12 && offsetof(bpdu_t, type) == 20 && offsetof(bpdu_t, root_priority) == 22 &&
              offsetof(bpdu_t, port_id) == 42 && offsetof(bpdu_t, hello_time) == 48);

constexpr size_t BPDU_HEADER_OCTETS = offsetof(bpdu_t, protocol); ///< addresses, length, LLC
constexpr size_t BPDU_ETHERNET_OCTETS = offsetof(bpdu_t, dsap);
constexpr size_t BPDU_LLC_OCTETS = BPDU_HEADER_OCTETS - BPDU_ETHERNET_OCTETS;

/// Octets of each kind from the protocol identifier on.
constexpr uint32_t BPDU_TCN_OCTETS = 4;
constexpr uint32_t BPDU_CONFIG_OCTETS = 35;
constexpr uint32_t BPDU_RST_OCTETS = 36;

constexpr uint8_t BPDU_LLC_SAP = 0x42;
constexpr uint8_t BPDU_LLC_CONTROL = 0x03;

enum : uint8_t { BPDU_TYPE_CONFIG = 0x00, BPDU_TYPE_RST = 0x02, BPDU_TYPE_TCN = 0x80 };

/// Bits of the flags octet.
enum : uint8_t {
    BPDU_FLAG_TC = 0x01,
    BPDU_FLAG_PROPOSAL = 0x02,
    BPDU_FLAG_ROLE_SHIFT = 2, ///< two bits, a role code
    BPDU_FLAG_LEARNING = 0x10,
    BPDU_FLAG_FORWARDING = 0x20,
    BPDU_FLAG_AGREEMENT = 0x40,
    BPDU_FLAG_TC_ACK = 0x80,
};

/// Role codes of RST BPDUs.
enum : uint8_t { BPDU_ROLE_UNKNOWN, BPDU_ROLE_ALTERNATE_BACKUP, BPDU_ROLE_ROOT, BPDU_ROLE_DESIGNATED };

/// Where bridges send BPDUs.
constexpr uint8_t lvt_rstp_slowmac[6] = {0x01, 0x80, 0xC2, 0x00, 0x00, 0x00};

constexpr uint16_t bpdu_get16(const uint8_t *octets) { return static_cast<uint16_t>(octets[0] << 8 | octets[1]); }

constexpr uint32_t bpdu_get32(const uint8_t *octets)
{
    return static_cast<uint32_t>(bpdu_get16(octets)) << 16 | bpdu_get16(octets + 2);
}

constexpr void bpdu_put16(uint8_t *octets, uint16_t value)
{
    octets[0] = static_cast<uint8_t>(value >> 8);
    octets[1] = static_cast<uint8_t>(value);
}

constexpr void bpdu_put32(uint8_t *octets, uint32_t value)
{
    bpdu_put16(octets, static_cast<uint16_t>(value >> 16));
    bpdu_put16(octets + 2, static_cast<uint16_t>(value));
}

/// The rules that every received frame of `length` octets must pass before the engine sees it (compare
/// clause 9.3.4). The version is not among them, nor the message age. Octets past `length` are not read.
bool STP_bpdu_is_valid(const uint8_t *frame, uint32_t length);
