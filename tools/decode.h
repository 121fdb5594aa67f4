/// Messages and frames explained field by field, the reverse of the encoder.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

/// One field, where it lies and what it says.
struct decoded_field_t {
    size_t offset;
    std::vector<uint8_t> octets; ///< fewer than the field has, or none, where the message ends early
    std::string name;
    std::string value;
};

struct decoded_t {
    std::string title;                   ///< what it is, in a line
    std::vector<decoded_field_t> fields; ///< in the order of the octets
    std::string fault;                   ///< what is wrong with it; empty when nothing is
    size_t octets;                       ///< how many belong to it; others may follow
};

/// What the octets may be.
enum class kind_t { any, control, lacp, mux, frame };

/// Explains the message or frame that the octets begin with: a control message, a message to the
/// link-aggregation daemon or to the port multiplexer, or a frame with a BPDU, with or without
/// switch tag and VLAN tags. `kind_t::any` tells them apart by how they begin.
decoded_t decode(std::span<const uint8_t> octets, kind_t kind = kind_t::any);

/// All messages of a stream, one behind the other; a frame takes all that is left.
std::vector<decoded_t> decode_all(std::span<const uint8_t> octets, kind_t kind = kind_t::any);

/// What a frame is and says in a line, "RST BPDU of 32768/02:00:00:00:00:01, designated ...".
std::string frame_summary(std::span<const uint8_t> frame);

/// Whether a frame carries a BPDU, be it with a switch tag, VLAN tags, or of a single VLAN's tree.
bool is_any_bpdu(std::span<const uint8_t> frame);

/// For people: the title, then a line for each field unless it is to be brief, then the fault.
std::string decoded_text(const decoded_t &decoded, bool brief = false);

/// "3, front port 2" of the port octet of a message with a received frame.
std::string received_on(uint8_t port_octet);

/// The frame with its switch tag, if it has one, taken out.
std::vector<uint8_t> without_switch_tag(std::span<const uint8_t> frame);
