/// What the kernel tells of an interface, as far as a bridge's ruler wants to know it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// The state of a bridge's port, as the kernel numbers it.
enum class port_state_t : std::uint8_t { disabled, listening, learning, forwarding, blocking };

/// "disabled", "listening" ...
const char *port_state_name(port_state_t state);

/// Who decides about the states of a bridge's ports.
enum class stp_t : std::uint32_t { off, kernel, user_space };

struct interface_t {
    int index = 0;
    std::string name;
    bool running = false; ///< switched on
    bool up = false;      ///< running, with carrier, and nothing keeps it from passing frames
    std::array<std::uint8_t, 6> mac{};
    int master = 0;                         ///< the bridge that it is a port of, or another master
    std::string kind;                       ///< "bridge", "veth" ...; empty of hardware, and where it is not told
    std::optional<port_state_t> port_state; ///< where it is a port of a bridge, and this is told
    std::optional<stp_t> stp;               ///< where it is a bridge, and this is told

    bool operator==(const interface_t &) const = default;
};

/// Reads a message of the kernel about an interface, either of the kind that tells of all interfaces or of that of
/// bridges' ports. Nothing when it is another message or not sound.
std::optional<interface_t> parse_interface(std::span<const std::uint8_t> message);
