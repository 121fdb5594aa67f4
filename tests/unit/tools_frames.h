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
    bpdu_t bpdu{};
    std::copy_n(lvt_rstp_slowmac, 6, bpdu.destination);
    const uint8_t address[] = {0x02, 0, 0, 0, 0x99, 0};
    std::copy_n(address, 6, bpdu.source);
    std::copy_n(address, 6, bpdu.root_address);
    std::copy_n(address, 6, bpdu.bridge_address);
    bpdu_put16(bpdu.root_priority, 4096);
    bpdu_put16(bpdu.bridge_priority, 4096);
    bpdu_put16(bpdu.length, BPDU_RST_OCTETS + BPDU_LLC_OCTETS);
    bpdu.dsap = bpdu.ssap = BPDU_LLC_SAP;
    bpdu.control = BPDU_LLC_CONTROL;
    bpdu.version = 2;
    bpdu.type = BPDU_TYPE_RST;
    bpdu.flags = BPDU_FLAG_PROPOSAL | BPDU_ROLE_DESIGNATED << BPDU_FLAG_ROLE_SHIFT;
    bpdu_put16(bpdu.port_id, 0x8001);
    bpdu.max_age[0] = 20;
    bpdu.hello_time[0] = 2;
    bpdu.forward_delay[0] = 15;
    const auto *octets = reinterpret_cast<const uint8_t *>(&bpdu);
    return {octets, octets + sizeof bpdu};
}

inline octets_t tagged(octets_t frame)
{
    const uint8_t tag[] = {0x88, 0x99, 0x84, 0x82};
    frame.insert(frame.begin() + offsetof(bpdu_t, length), std::begin(tag), std::end(tag));
    return frame;
}

inline octets_t other_frame()
{
    octets_t frame(60, 0xAA);
    frame[12] = 0x08;
    frame[13] = 0x00;
    return frame;
}
