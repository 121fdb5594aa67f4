/// Control messages in words, read back from their octets.
#pragma once

#include <cstdint>
#include <span>
#include <string>

/// Says what a whole control message sets, one line for its name and one for each setting.
/// A message of a type without a meaning is told by its body length only.
std::string explain_message(std::span<const uint8_t> frame);

/// Sixteen octets a line, indented by two.
std::string hex_lines(std::span<const uint8_t> octets);
