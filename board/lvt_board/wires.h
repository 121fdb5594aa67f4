/// The board's sockets: raw access to one network interface each.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "lvt_board/fd.h"

/// What the kernel put off for a frame, in its own layout (the virtio network header, whose header
/// file is not for C++): check sums to fill in, a cut into segments. It travels along.
struct wire_offload_t {
    std::uint8_t flags; ///< bit 0: check sum to fill in
    std::uint8_t segments_kind;
    std::uint16_t headers_octets;
    std::uint16_t segment_octets;
    std::uint16_t checksum_start;
    std::uint16_t checksum_offset;
};

static_assert(sizeof(wire_offload_t) == 10);

/// A frame on its way through the board.
struct wire_frame_t {
    static constexpr std::size_t OCTETS_MAX = 65536 + 64;

    wire_offload_t offload;
    std::size_t size;
    std::array<std::uint8_t, OCTETS_MAX> octets; ///< from the destination address on

    std::span<std::uint8_t> span() { return std::span(octets).first(size); }
};

/// What a socket hears.
enum class ear_t {
    everything,
    bpdus,        ///< frames without VLAN tag to 01:80:c2:00:00:00; all others pass without waking anybody
    passed_bpdus, ///< the same, of what a bridge with spanning tree leaves to others; no other frame is looked at
};

/// A socket that hears frames that come in at the interface with number `index`, and none that
/// goes out. Throws std::system_error.
fd_t wire_open(int index, ear_t ear = ear_t::everything);

enum class wire_result_t { frame, nothing, failed };

/// Takes the next frame; never waits. Short frames are filled up to the 60 octets of the wire, and
/// a VLAN tag that the kernel keeps aside goes back to its place. After `failed` (the interface
/// went down, say) the next call is as good as any.
wire_result_t wire_receive(const fd_t &wire, wire_frame_t &frame);

/// Sends `octets`; false when the interface does not take them now.
bool wire_send(const fd_t &wire, const wire_offload_t &offload, std::span<const std::uint8_t> octets);
