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
