/// BPDU frames, for all who make, read or explain them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "rstp/bpdu.h"
#include "rstp/records.h"

/// Octets of a BPDU from its protocol identifier on; those of an unknown type are told as those of a
/// configuration BPDU.
uint32_t bpdu_octets(uint8_t type);

/// The role code (BPDU_ROLE_DESIGNATED ...) in the flags of an RST BPDU, and back.
constexpr uint8_t bpdu_role(uint8_t flags) { return flags >> BPDU_FLAG_ROLE_SHIFT & 3; }
constexpr uint8_t bpdu_role_flags(uint8_t role) { return static_cast<uint8_t>(role << BPDU_FLAG_ROLE_SHIFT); }

// ---- making ----------------------------------------------------------------------------

/// What a configuration or RST BPDU tells.
struct told_t {
    bridge_id_t root;
    uint32_t cost;
    bridge_id_t bridge;
    uint16_t port = 0x8001;
    timevalues_t times = {.MessageAge = 0, .MaxAge = 20, .ForwardDelay = 15, .HelloTime = 2};
};

/// A frame of this type that tells nothing yet: destination, length, LLC, version and type are there,
/// all else is zero.
bpdu_t blank_bpdu(uint8_t type);

/// A configuration or RST BPDU.
bpdu_t bpdu_of(uint8_t type, const told_t &told, uint8_t flags);

/// The whole frame, as long as its length field says.
std::vector<uint8_t> frame_of(const bpdu_t &bpdu);

// ---- reading ---------------------------------------------------------------------------

/// Whether a frame carries a BPDU, by its LLC header.
bool is_bpdu(std::span<const uint8_t> frame);

/// The fields of a frame, zero where it ends before them.
bpdu_t read_bpdu(std::span<const uint8_t> frame);
