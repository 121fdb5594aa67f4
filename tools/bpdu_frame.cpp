#include "tools/bpdu_frame.h"

#include <algorithm>

uint32_t bpdu_octets(uint8_t type)
{
    switch (type) {
    case BPDU_TYPE_TCN:
        return BPDU_TCN_OCTETS;
    case BPDU_TYPE_RST:
        return BPDU_RST_OCTETS;
    default:
        return BPDU_CONFIG_OCTETS;
    }
}

bpdu_t blank_bpdu(uint8_t type)
{
    bpdu_t bpdu = {};
    std::ranges::copy(lvt_rstp_slowmac, bpdu.destination);
    bpdu_put16(bpdu.length, static_cast<uint16_t>(bpdu_octets(type) + BPDU_LLC_OCTETS));
    bpdu.dsap = bpdu.ssap = BPDU_LLC_SAP;
    bpdu.control = BPDU_LLC_CONTROL;
    bpdu.version = type == BPDU_TYPE_RST ? 2 : 0;
    bpdu.type = type;
    return bpdu;
}

bpdu_t bpdu_of(uint8_t type, const told_t &told, uint8_t flags)
{
    bpdu_t bpdu = blank_bpdu(type);
    bpdu.flags = flags;
    bpdu_put16(bpdu.root_priority, told.root.prio);
    std::ranges::copy(told.root.addr, bpdu.root_address);
    bpdu_put32(bpdu.root_path_cost, told.cost);
    bpdu_put16(bpdu.bridge_priority, told.bridge.prio);
    std::ranges::copy(told.bridge.addr, bpdu.bridge_address);
    bpdu_put16(bpdu.port_id, told.port);
    bpdu.message_age[0] = told.times.MessageAge;
    bpdu.max_age[0] = told.times.MaxAge;
    bpdu.hello_time[0] = told.times.HelloTime;
    bpdu.forward_delay[0] = told.times.ForwardDelay;
    return bpdu;
}

std::vector<uint8_t> frame_of(const bpdu_t &bpdu)
{
    const auto *octets = reinterpret_cast<const uint8_t *>(&bpdu);
    std::vector<uint8_t> frame(octets, octets + sizeof bpdu);
    frame.resize(BPDU_ETHERNET_OCTETS + bpdu_get16(bpdu.length));
    return frame;
}

bool is_bpdu(std::span<const uint8_t> frame)
{
    const bpdu_t bpdu = read_bpdu(frame);
    return frame.size() >= BPDU_HEADER_OCTETS && bpdu.dsap == BPDU_LLC_SAP && bpdu.ssap == BPDU_LLC_SAP &&
           bpdu.control == BPDU_LLC_CONTROL;
}

bpdu_t read_bpdu(std::span<const uint8_t> frame)
{
    bpdu_t bpdu = {};
    std::copy_n(frame.begin(), std::min(frame.size(), sizeof bpdu), reinterpret_cast<uint8_t *>(&bpdu));
    return bpdu;
}
