/// The tag between the addresses and the length of a frame from the CPU, by which the switch chip knows
/// where to send it.
#pragma once

#include <cstddef>
#include <cstdint>

/// In the last octet bit 7 is always set, and bit n names chip port n.
constexpr uint8_t RSTP_CPU_TAG[] = {0x88, 0x99, 0x84, 0x80};
constexpr size_t RSTP_CPU_TAG_OCTETS = sizeof RSTP_CPU_TAG;
constexpr size_t RSTP_CPU_TAG_PORTS = RSTP_CPU_TAG_OCTETS - 1; ///< the octet that names the ports
