/// Frames to inject, to capture and to explain.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "rstp/bpdu.h"
#include "tools/hex.h"

using octets_t = std::vector<uint8_t>;

/// An RST BPDU of the root 4096/02:00:00:00:99:00, from its port 1.
inline octets_t rst_frame()
{
    // clang-format off
    return {0x01, 0x80, 0xC2, 0, 0, 0,                        // to all bridges
            0x02, 0, 0, 0, 0x99, 0,                           // from
            0, 39, 0x42, 0x42, 0x03,                          // length, LLC
            0, 0, 2, 2, 0x0E,                                 // protocol, version, type; a designated port proposes
            0x10, 0, 0x02, 0, 0, 0, 0x99, 0, 0, 0, 0, 0,      // root, cost
            0x10, 0, 0x02, 0, 0, 0, 0x99, 0, 0x80, 0x01,      // bridge, port
            0, 0, 20, 0, 2, 0, 15, 0,                         // times
            0};                                               // version 1 length
    // clang-format on
}

/// As it leaves on the CPU port: tagged behind the addresses, by default for front port 1.
inline octets_t tagged(octets_t frame, uint8_t last_octet = 0x82)
{
    const octets_t tag = {0x88, 0x99, 0x84, last_octet};
    frame.insert(frame.begin() + 12, tag.begin(), tag.end());
    return frame;
}

inline octets_t other_frame()
{
    octets_t frame(60, 0xAA);
    frame[12] = 0x08;
    frame[13] = 0x00;
    return frame;
}
