#include "rstp/machines.h"
#include "rstp/port.h"
#include "rstp/state_mach.h"
#include "rstp/times.h"
#include "rstp/vect.h"

namespace {

bool info_ran_out(const port_t *port)
{
    return port->infoIs == INFO_IS_RECEIVED && port->rcvdInfoWhile == 0 && !port->updtInfo && !port->rcvdMsg;
}

/// Compare rcvInfo (clause 17.21). A worse vector from the same designated port with unchanged times
/// is deliberately not superior: the old information ages out instead. None is inferior.
uint8_t classify(const port_t *port)
{
    if (port->rcvdType == BPDU_TYPE_TCN)
        return RCVD_OTHER;

    const bool from_designated = port->rcvdRole == BPDU_ROLE_DESIGNATED || port->rcvdType == BPDU_TYPE_CONFIG;
    const bool better = STP_VECT_compare_vector(&port->msgPrio, &port->portPrio) == VECT_BETTER;
    const bool same_bridge = STP_VECT_eq_bridge_id(&port->msgPrio.design_bridge, &port->portPrio.design_bridge);
    const bool same_sender = same_bridge && port->msgPrio.design_port == port->portPrio.design_port;
    const bool same_vector = STP_VECT_eq_vector(&port->msgPrio, &port->portPrio);
    const bool same_times = STP_eq_times(&port->msgTimes, &port->portTimes);
    const bool agreement = port->rcvdType == BPDU_TYPE_RST && (port->rcvdFlags & BPDU_FLAG_AGREEMENT);

    if (from_designated && (better || (same_sender && !same_times)))
        return RCVD_SUPERIOR;
    if (from_designated && same_vector && same_times)
        return RCVD_REPEATED;
    // On a shared link an agreement would speak for one neighbour only.
    if (agreement && port->operPointToPoint && same_bridge)
        return RCVD_AGREEMENT;
    return RCVD_OTHER;
}

/// Compare updtRcvdInfoWhile (clause 17.21). The age step is rounded down here, whereas role
/// selection rounds to nearest: information ages out no earlier than its sender expects.
void updtRcvdInfoWhile(port_t *port)
{
    const timevalues_t &times = port->portTimes;
    const int step = times.MaxAge < 16 ? 1 : times.MaxAge / 16;
    const int left = times.MaxAge - (times.MessageAge + step);
    const int hellos = 3 * times.HelloTime;

    port->rcvdInfoWhile = static_cast<uint8_t>(left < 0 ? 0 : hellos < left ? hellos : left);
}

/// Compare recordProposal (clause 17.21), which takes nothing back.
void recordProposed(port_t *port)
{
    port->proposed =
        port->rcvdRole == BPDU_ROLE_DESIGNATED && (port->rcvdFlags & BPDU_FLAG_PROPOSAL) && port->operPointToPoint;
}

void take_designated(port_t *port)
{
    port->portPrio = port->designatedPrio;
    port->portTimes = port->designatedTimes;
}

void enter_disabled(port_t *port)
{
    STP_port_reselect(port);
    port->updtInfo = 0;
    port->agreed = 0;
    port->proposed = 0;
    port->proposing = 0;
    port->rcvdMsg = 0;
    port->rcvdRSTP = 0;
    port->rcvdSTP = 0;
    port->infoIs = INFO_IS_DISABLED;
    port->rcvdInfoWhile = 0;
}

void enter_receive(port_t *port)
{
    const bool tcn = port->rcvdType == BPDU_TYPE_TCN;
    const bool rst = port->rcvdType == BPDU_TYPE_RST;

    if (!tcn)
        port->rcvdRole = rst ? (port->rcvdFlags >> BPDU_FLAG_ROLE_SHIFT) & 3 : BPDU_ROLE_UNKNOWN;
    port->rcvdInfo = classify(port);

    if (tcn || port->rcvdVersion < 2)
        port->rcvdSTP = 1;
    if (rst)
        port->rcvdRSTP = 1;
    if (tcn)
        port->rcvdTcn = 1;
    else {
        if (port->rcvdFlags & BPDU_FLAG_TC)
            port->rcvdTc = 1;
        if (port->rcvdFlags & BPDU_FLAG_TC_ACK)
            port->rcvdTcAck = 1;
    }
    port->rcvdMsg = 0;
}

} // namespace

void STP_info_rx_bpdu(port_t *port, const bpdu_t *bpdu, uint32_t /*len*/)
{
    switch (bpdu->type) {
    case BPDU_TYPE_CONFIG:
        port->stp_frame_recvs++;
        break;
    case BPDU_TYPE_RST:
        port->rstp_frame_recvs++;
        break;
    case BPDU_TYPE_TCN:
        port->tcn_frame_recvs++;
        break;
    default:
        port->unknown_frame_recvs++;
        return;
    }

    if (port->nonStp || (bpdu->type == BPDU_TYPE_RST && STP_OUT_force_version() < 2))
        return;

    port->rcvdMsg = 1;
    port->rcvdType = bpdu->type;
    port->rcvdVersion = bpdu->version;
    if (bpdu->type == BPDU_TYPE_TCN)
        return; // nothing follows the type

    port->rcvdFlags = bpdu->flags;
    STP_VECT_get_vector(bpdu, &port->msgPrio);
    port->msgPrio.bridge_port = port->port_id;
    STP_get_times(bpdu, &port->msgTimes);
}

int STP_info_check_conditions(state_mach_t *mach)
{
    const auto *port = static_cast<const port_t *>(mach->owner);

    if (!port->edgeDetected && port->infoIs != INFO_IS_DISABLED)
        return STP_hop_2_state(mach, INFO_DISABLED);

    switch (mach->State) {
    case STP_BEGIN:
        return STP_hop_2_state(mach, INFO_DISABLED);
    case INFO_DISABLED:
        if (port->updtInfo)
            return STP_hop_2_state(mach, INFO_DISABLED);
        if (port->edgeDetected && port->selected)
            return STP_hop_2_state(mach, INFO_ENABLED);
        if (port->rcvdMsg)
            return STP_hop_2_state(mach, INFO_DISABLED);
        return 0;
    case INFO_ENABLED:
        return STP_hop_2_state(mach, INFO_AGED);
    case INFO_AGED:
        if (port->selected && port->updtInfo)
            return STP_hop_2_state(mach, INFO_UPDATE);
        return 0;
    case INFO_UPDATE:
    case INFO_SUPERIOR:
    case INFO_REPEAT:
    case INFO_AGREEMENT:
        return STP_hop_2_state(mach, INFO_CURRENT);
    case INFO_CURRENT:
        if (port->selected && port->updtInfo)
            return STP_hop_2_state(mach, INFO_UPDATE);
        if (info_ran_out(port))
            return STP_hop_2_state(mach, INFO_AGED);
        if (port->rcvdMsg && !port->updtInfo)
            return STP_hop_2_state(mach, INFO_RECEIVE);
        return 0;
    case INFO_RECEIVE:
        switch (port->rcvdInfo) {
        case RCVD_SUPERIOR:
            return STP_hop_2_state(mach, INFO_SUPERIOR);
        case RCVD_REPEATED:
            return STP_hop_2_state(mach, INFO_REPEAT);
        case RCVD_AGREEMENT:
            return STP_hop_2_state(mach, INFO_AGREEMENT);
        default:
            return STP_hop_2_state(mach, INFO_CURRENT);
        }
    }
    return 0;
}

void STP_info_enter_state(state_mach_t *mach)
{
    auto *port = static_cast<port_t *>(mach->owner);

    switch (mach->State) {
    case STP_BEGIN:
        port->rcvdInfo = RCVD_OTHER;
        port->rcvdType = 255;
        port->rcvdRole = BPDU_ROLE_UNKNOWN;
        port->rcvdFlags = 0;
        enter_disabled(port);
        break;
    case INFO_DISABLED:
        enter_disabled(port);
        break;
    case INFO_ENABLED:
        take_designated(port);
        break;
    case INFO_AGED:
        port->infoIs = INFO_IS_AGED;
        STP_port_reselect(port);
        break;
    case INFO_UPDATE:
        take_designated(port);
        port->proposed = 0;
        port->proposing = 0;
        port->agreed = 0;
        port->synced = 0;
        port->updtInfo = 0;
        port->newInfo = 1;
        port->infoIs = INFO_IS_MINE;
        break;
    case INFO_CURRENT:
        break;
    case INFO_RECEIVE:
        enter_receive(port);
        break;
    case INFO_SUPERIOR:
        port->portPrio = port->msgPrio;
        port->portTimes = port->msgTimes;
        updtRcvdInfoWhile(port);
        port->agreed = 0;
        port->synced = 0;
        port->proposing = 0;
        recordProposed(port);
        STP_port_reselect(port);
        port->infoIs = INFO_IS_RECEIVED;
        break;
    case INFO_REPEAT:
        recordProposed(port);
        updtRcvdInfoWhile(port);
        break;
    case INFO_AGREEMENT:
        port->agreed = 1;
        port->proposing = 0;
        break;
    }
}
