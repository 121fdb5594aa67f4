#include "rstp/bpdu.h"

bool STP_bpdu_is_valid(const uint8_t *frame, uint32_t length)
{
    if (length < BPDU_ETHERNET_OCTETS)
        return false;
    const auto *bpdu = reinterpret_cast<const bpdu_t *>(frame);
    const uint32_t stated = bpdu_get16(bpdu->length);
    if (length < stated + BPDU_ETHERNET_OCTETS || stated < BPDU_TCN_OCTETS + BPDU_LLC_OCTETS)
        return false;
    if (bpdu->type != BPDU_TYPE_TCN && stated < BPDU_CONFIG_OCTETS + BPDU_LLC_OCTETS)
        return false;
    return bpdu->dsap == BPDU_LLC_SAP && bpdu->ssap == bpdu->dsap && bpdu->control == BPDU_LLC_CONTROL &&
           bpdu_get16(bpdu->protocol) == 0;
}
