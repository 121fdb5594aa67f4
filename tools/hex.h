/// Octets as text, for tools, board and tests alike.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <fmt/format.h>

/// "bc 30 11 82", two digits an octet; or with something else between the octets, or nothing.
inline std::string hex(std::span<const uint8_t> octets, std::string_view separator = " ")
{
    return fmt::format("{:02x}", fmt::join(octets, separator));
}

/// "02:00:00:00:01:00"
inline std::string address_text(std::span<const uint8_t, 6> address) { return hex(address, ":"); }

/// Reads a MAC address, "02:00:00:00:01:00"; nothing of any other text.
std::optional<std::array<uint8_t, 6>> read_address(std::string_view text);
