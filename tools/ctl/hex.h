/// Octets as people type and copy them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

/// "bc30 11:82", with blanks, line ends, colons or dashes anywhere between octets, and "0x" before any.
/// Throws usage_t.
std::vector<uint8_t> parse_hex(const std::string &text);

/// A MAC address, "02:00:00:00:01:00". Throws usage_t.
std::array<uint8_t, 6> parse_address(const std::string &option, const std::string &text);
