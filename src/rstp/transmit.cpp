#include <cstring>

#include "rstp/machines.h"
#include "rstp/rapid.h"
#include "rstp/state_mach.h"
#include "rstp/times.h"
#include "rstp/vect.h"

namespace {

/// Role codes of RST BPDUs by selected role.
constexpr uint8_t role_codes[ROLE_NON_STP] = {
    BPDU_ROLE_UNKNOWN, BPDU_ROLE_ALTERNATE_BACKUP, BPDU_ROLE_ALTERNATE_BACKUP, BPDU_ROLE_ROOT, BPDU_ROLE_DESIGNATED,
};

uint8_t rst_flags(const port_t *port)
{
    STP_ASSERT(port->selectedRole < ROLE_NON_STP, "port->selectedRole < ((lvt_rstp_port_role_t)5)", "transmit", 0,
               "txBpdu");

    return static_cast<uint8_t>(role_codes[port->selectedRole] << BPDU_FLAG_ROLE_SHIFT |
                                (port->learning ? BPDU_FLAG_LEARNING : 0) |
                                (port->forwarding ? BPDU_FLAG_FORWARDING : 0) |
                                (port->synced ? BPDU_FLAG_AGREEMENT : 0) | (port->proposing ? BPDU_FLAG_PROPOSAL : 0));
}

/// Builds and sends one BPDU (compare txConfig, txRstp and txTcn, clause 17.21). The attempt counts against the
/// hold count even when nothing leaves. Returns 1 when nothing was sent, else the result of
/// STP_OUT_tx_bpdu.
int txBpdu(port_t *port, uint8_t type, uint32_t bpdu_octets)
{
    port->txCount++;
    port->newInfo = 0;
    if (port->nonStp)
        return 1;

    const port_t *sender = STP_OUT_sending_port(port->port_number);
    if (!sender)
        return 1;
    const size_t frame_octets = bpdu_octets + BPDU_HEADER_OCTETS;
    uint16_t tag = 0;
    uint8_t *buffer = lvt_os_alloc_xmit(sender->port_number, frame_octets, &tag);
    if (!buffer)
        return 1;

    memset(buffer, 0, frame_octets);
    auto *bpdu = reinterpret_cast<bpdu_t *>(buffer);
    memcpy(bpdu->destination, lvt_rstp_slowmac, sizeof bpdu->destination);
    memcpy(bpdu->source, sender->mac, sizeof bpdu->source);
    bpdu_put16(bpdu->length, static_cast<uint16_t>(bpdu_octets + BPDU_LLC_OCTETS));
    bpdu->dsap = BPDU_LLC_SAP;
    bpdu->ssap = BPDU_LLC_SAP;
    bpdu->control = BPDU_LLC_CONTROL;
    bpdu->version = type == BPDU_TYPE_RST ? 2 : 0;
    bpdu->type = type;

    if (type != BPDU_TYPE_TCN) {
        bpdu->flags = port->tcWhile ? BPDU_FLAG_TC : 0;
        if (type == BPDU_TYPE_CONFIG && port->tcAck)
            bpdu->flags |= BPDU_FLAG_TC_ACK;
        if (type == BPDU_TYPE_RST)
            bpdu->flags |= rst_flags(port);
        STP_VECT_set_vector(&port->designatedPrio, bpdu);
        STP_set_times(&port->designatedTimes, bpdu);
        if (type == BPDU_TYPE_RST && STP_OUT_rapid())
            STP_rapid_tell(port, bpdu);
    }

    const int result = STP_OUT_tx_bpdu(port->port_number, port->owner->vlan_id, buffer, tag, frame_octets);
    packet_tx_free(buffer);
    return result;
}

int check_idle(state_mach_t *mach, const port_t *port)
{
    if (port->helloWhen == 0)
        return STP_hop_2_state(mach, TRANSMIT_PERIODIC);
    if (!port->newInfo || port->txCount >= TX_HOLD_COUNT)
        return 0;
    if (port->sendRSTP && (port->role == ROLE_ROOT || port->role == ROLE_DESIGNATED))
        return STP_hop_2_state(mach, TRANSMIT_RSTP);
    if (!port->sendRSTP && port->role == ROLE_ROOT)
        return STP_hop_2_state(mach, TRANSMIT_TCN);
    if (!port->sendRSTP && port->role == ROLE_DESIGNATED)
        return STP_hop_2_state(mach, TRANSMIT_CONFIG);
    return 0;
}

} // namespace

int STP_transmit_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
        return STP_hop_2_state(mach, TRANSMIT_INIT);
    case TRANSMIT_IDLE:
        return check_idle(mach, port);
    case TRANSMIT_INIT:
    case TRANSMIT_PERIODIC:
    case TRANSMIT_TCN:
    case TRANSMIT_CONFIG:
    case TRANSMIT_RSTP:
        return STP_hop_2_state(mach, TRANSMIT_IDLE);
    }
    return 0;
}

void STP_transmit_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
    case TRANSMIT_INIT:
        port->newInfo = 0;
        port->helloWhen = 0;
        port->txCount = 0;
        break;
    case TRANSMIT_PERIODIC: {
        const uint8_t hello_time = port->owner->rootTimes.HelloTime;
        if (port->role == ROLE_DESIGNATED || (port->role == ROLE_ROOT && port->tcWhile != 0))
            port->newInfo = 1;
        // A hello time of 0, from a neighbour or the configuration, would bring the machine
        // back here without end.
        port->helloWhen = hello_time ? hello_time : 1;
        break;
    }
    case TRANSMIT_IDLE:
        break;
    case TRANSMIT_TCN:
        txBpdu(port, BPDU_TYPE_TCN, BPDU_TCN_OCTETS);
        break;
    case TRANSMIT_CONFIG:
        txBpdu(port, BPDU_TYPE_CONFIG, BPDU_CONFIG_OCTETS);
        port->tcAck = 0;
        break;
    case TRANSMIT_RSTP:
        txBpdu(port, BPDU_TYPE_RST, BPDU_RST_OCTETS);
        port->tcAck = 0;
        break;
    }
}
