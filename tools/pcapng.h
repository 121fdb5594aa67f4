/// Captures of Ethernet frames in the format that protocol analysers read, as octets to be written one behind the
/// other.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// The file's beginning: an interface for each name, numbered from 0.
std::vector<uint8_t> pcapng_opening(const std::vector<std::string> &interfaces);

/// A frame, `microseconds` after 1970, or after any other beginning.
std::vector<uint8_t> pcapng_packet(uint32_t interface, uint64_t microseconds, std::span<const uint8_t> frame);
