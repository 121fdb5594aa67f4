/// The tag between the addresses and the length of a frame from the CPU, by which the switch chip knows
/// where to send it.
#pragma once

#include <cstddef>
#include <cstdint>

/// In the last octet bit 7 is always set, and bit n names chip port n.
constexpr uint8_t RSTP_CPU_TAG[] = {0x88, 0x99, 0x84, 0x80};
constexpr size_t RSTP_CPU_TAG_OCTETS = sizeof RSTP_CPU_TAG;
constexpr size_t RSTP_CPU_TAG_PORTS = RSTP_CPU_TAG_OCTETS - 1; ///< the octet that names the ports
constexpr size_t RSTP_CPU_TAG_OFFSET = 12;                     ///< in the frame, behind both addresses

/// Whether a frame of `length` octets has a tag, whatever ports it names.
constexpr bool has_cpu_tag(const uint8_t *frame, size_t length)
{
    if (length < RSTP_CPU_TAG_OFFSET + RSTP_CPU_TAG_OCTETS)
        return false;
    const uint8_t *tag = frame + RSTP_CPU_TAG_OFFSET;
    for (size_t i = 0; i < RSTP_CPU_TAG_PORTS; i++)
        if (tag[i] != RSTP_CPU_TAG[i])
            return false;
    return (tag[RSTP_CPU_TAG_PORTS] & RSTP_CPU_TAG[RSTP_CPU_TAG_PORTS]) != 0;
}

/// The ports that a tagged frame names: bit n for chip port n.
constexpr uint8_t cpu_tag_ports(const uint8_t *frame)
{
    return frame[RSTP_CPU_TAG_OFFSET + RSTP_CPU_TAG_PORTS] & static_cast<uint8_t>(~RSTP_CPU_TAG[RSTP_CPU_TAG_PORTS]);
}
