/// Values as people write them, in files and in commands.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/topology/network.h"

namespace topology {

/// "20ms", "1.5s", "2min", "500us", "1h"; at most 30 days.
std::optional<span_t> parse_span(std::string_view text);
constexpr char SPAN_FORM[] = "a time, as in 20ms, 1.5s or 2min";

/// The shortest of these: "20ms".
std::string span_text(span_t span);

/// "10%" or "0.1%" or 0, in parts of a million.
std::optional<uint32_t> parse_share(std::string_view text);
constexpr char SHARE_FORM[] = "a share, as in 10% or 0.5%";

std::string share_text(uint32_t per_million);

/// "10.0.0.1/24" of itself or of "10.0.0.1".
std::optional<std::string> parse_address(const std::string &text);
constexpr char ADDRESS_FORM[] = "an IPv4 address, as in 10.0.0.1 or 192.168.1.5/16";

/// A value as a configuration file writes it: a number, true, false or a list of numbers as it is, all else in quotes.
std::string toml_value(const std::string &text);

} // namespace topology
